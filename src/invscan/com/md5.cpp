#include "invscan/md5.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

inline uint32_t rotl(uint32_t x, int n) {
    return (x << n) | (x >> (32 - n));
}

const uint32_t K[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

const int S[64] = {7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
                   5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20,
                   4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
                   6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};

} // namespace

void MD5Transform(uint32_t state[4], const unsigned char block[64]) {
    uint32_t x[16];
    for (int i = 0; i < 16; ++i)
        x[i] = static_cast<uint32_t>(block[4 * i]) | static_cast<uint32_t>(block[4 * i + 1]) << 8 |
               static_cast<uint32_t>(block[4 * i + 2]) << 16 |
               static_cast<uint32_t>(block[4 * i + 3]) << 24;
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    for (int i = 0; i < 64; ++i) {
        uint32_t f;
        int g;
        if (i < 16) {
            f = (b & c) | (~b & d);
            g = i;
        } else if (i < 32) {
            f = (d & b) | (~d & c);
            g = (5 * i + 1) % 16;
        } else if (i < 48) {
            f = b ^ c ^ d;
            g = (3 * i + 5) % 16;
        } else {
            f = c ^ (b | ~d);
            g = (7 * i) % 16;
        }
        uint32_t tmp = d;
        d = c;
        c = b;
        b = b + rotl(a + f + K[i] + x[g], S[i]);
        a = tmp;
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
}

void md5file_clear(md5file* ctx) {
    ctx->state[0] = 0x67452301;
    ctx->state[1] = 0xefcdab89;
    ctx->state[2] = 0x98badcfe;
    ctx->state[3] = 0x10325476;
    ctx->count[0] = ctx->count[1] = 0;
}

void md5file_addn(md5file* ctx, const unsigned char* bytes, size_t n) {
    size_t used = (ctx->count[0] >> 3) & 63;
    uint32_t bitsLow = static_cast<uint32_t>(n << 3);
    ctx->count[0] += bitsLow;
    if (ctx->count[0] < bitsLow) ++ctx->count[1];
    ctx->count[1] += static_cast<uint32_t>(static_cast<uint64_t>(n) >> 29);
    size_t i = 0;
    if (used + n >= 64) {
        size_t fill = 64 - used;
        std::memcpy(ctx->buffer + used, bytes, fill);
        MD5Transform(ctx->state, ctx->buffer);
        for (i = fill; i + 64 <= n; i += 64)
            MD5Transform(ctx->state, bytes + i);
        used = 0;
    }
    if (i < n) std::memcpy(ctx->buffer + used, bytes + i, n - i);
}

void md5file_add(md5file* ctx, unsigned char byte) {
    md5file_addn(ctx, &byte, 1);
}

void md5file_hash(md5file* ctx, unsigned char digest[16]) {
    unsigned char bits[8];
    for (int i = 0; i < 4; ++i) {
        bits[i] = static_cast<unsigned char>(ctx->count[0] >> (8 * i));
        bits[i + 4] = static_cast<unsigned char>(ctx->count[1] >> (8 * i));
    }
    size_t used = (ctx->count[0] >> 3) & 63;
    size_t pad = used < 56 ? 56 - used : 120 - used;
    static const unsigned char padding[64] = {0x80};
    md5file_addn(ctx, padding, pad);
    md5file_addn(ctx, bits, 8);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            digest[4 * i + j] = static_cast<unsigned char>(ctx->state[i] >> (8 * j));
    std::memset(ctx, 0, sizeof *ctx);
}

void md5file_sprint_hash(md5file* ctx, char* text) {
    unsigned char digest[16];
    md5file_hash(ctx, digest);
    for (int i = 0; i < 16; ++i)
        std::snprintf(text + 2 * i, 3, "%02x", digest[i]);
    text[32] = '\0';
}

char* md5_checksum(const char* text) {
    if (!text || !*text) return nullptr;
    char* out = static_cast<char*>(std::malloc(36));
    if (!out) return nullptr;
    md5file ctx;
    md5file_clear(&ctx);
    md5file_addn(&ctx, reinterpret_cast<const unsigned char*>(text), std::strlen(text));
    md5file_sprint_hash(&ctx, out);
    return out;
}
