#include <gtest/gtest.h>

#include "invscan/md5.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string checksum(const char* text) {
    char* r = md5_checksum(text);
    if (!r) return "<null>";
    std::string s(r);
    std::free(r);
    return s;
}

TEST(Md5, Rfc1321Vectors) {
    EXPECT_EQ(checksum(""), "<null>");
    EXPECT_EQ(checksum(nullptr), "<null>");
    EXPECT_EQ(checksum("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(checksum("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(checksum("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(checksum("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(checksum("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    EXPECT_EQ(checksum("1234567890123456789012345678901234567890123456789012345678901234567890"
                       "1234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5, IncrementalEqualsOneCallAtEveryBlockBoundary) {
    std::string text(200, '\0');
    for (size_t i = 0; i < text.size(); ++i)
        text[i] = static_cast<char>('a' + i % 26);
    for (size_t split : {0u, 1u, 55u, 56u, 63u, 64u, 65u, 128u, 199u}) {
        md5file ctx;
        md5file_clear(&ctx);
        const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
        md5file_addn(&ctx, bytes, split);
        for (size_t i = split; i < text.size(); ++i)
            md5file_add(&ctx, bytes[i]);
        char hex[33];
        md5file_sprint_hash(&ctx, hex);
        EXPECT_EQ(hex, checksum(text.c_str())) << "split at " << split;
        // The context is wiped after hashing.
        EXPECT_EQ(ctx.state[0], 0u);
        EXPECT_EQ(ctx.count[0], 0u);
    }
}

} // namespace
