// One decoder of attribute value blocks for every output (the tables' text dump,
// JSON, GLPI): the value a block holds, checked against the block's length.
#ifndef INVSCAN_ZELVALUE_H
#define INVSCAN_ZELVALUE_H

#include "invscan_export.h"

#include <cstdint>
#include <string>
#include <vector>

struct INVSCAN_API ZelValue {
    enum Kind { NONE, UNSIGNED, SIGNED, REAL, TEXT, WORDS };
    Kind kind = NONE;            // NONE for a block shorter than its type needs, or unknown type
    uint32_t type = 0;           // the block's type code
    uint64_t u = 0;              // UCHAR, USHORT, ULONG, ULONGLONG
    int64_t i = 0;               // LONGLONG
    double d = 0;                // FLOAT, DOUBLE
    std::string text;            // STRING as UTF-8, OCTETSTRING as upper-case hex, DATETIME as is
    std::u32string chars;        // STRING's characters as stored, up to the first NUL
    std::vector<uint32_t> words; // UQUAD: first, second
};

// Decodes `block`; false (kind NONE) when it is null, malformed or of no known type.
INVSCAN_API bool zelDecodeValue(const unsigned char* block, ZelValue* out);

#endif
