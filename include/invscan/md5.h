// MD5 (RFC 1321) with an incremental interface and a one-call hexadecimal helper,
// used to turn texts into stable row identifiers.
#ifndef INVSCAN_MD5_H
#define INVSCAN_MD5_H

#include "invscan_export.h"

#include <cstddef>
#include <cstdint>

struct md5file {
    uint32_t state[4];
    uint32_t count[2]; // bit count, low word first
    unsigned char buffer[64];
};

INVSCAN_API void MD5Transform(uint32_t state[4], const unsigned char block[64]);
INVSCAN_API void md5file_clear(md5file* ctx);
INVSCAN_API void md5file_addn(md5file* ctx, const unsigned char* bytes, size_t n);
INVSCAN_API void md5file_add(md5file* ctx, unsigned char byte);
INVSCAN_API void md5file_hash(md5file* ctx, unsigned char digest[16]);
// 32 lower-case hexadecimal digits and a terminator into text (33 bytes).
INVSCAN_API void md5file_sprint_hash(md5file* ctx, char* text);
// Heap text (free() it) with the digest of text's bytes; null for null or "".
INVSCAN_API char* md5_checksum(const char* text);

#endif
