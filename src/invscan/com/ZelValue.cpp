#include "invscan/ZelValue.h"

#include "invscan/ZelTableRow.h"

#include <cstring>

namespace {

uint64_t get64(const unsigned char* p) {
    return static_cast<uint64_t>(zelGet32(p)) | static_cast<uint64_t>(zelGet32(p + 4)) << 32;
}

void appendUtf8(std::string& out, uint32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

} // namespace

bool zelDecodeValue(const unsigned char* block, ZelValue* out) {
    *out = ZelValue();
    if (!block || !zelBlockIsComplete(block)) return false;
    const uint32_t length = zelGet32(block);
    out->type = zelGet32(block + 8);
    const unsigned char* v = block + ZEL_ATTRIB_HEADER;
    switch (out->type) {
    case ZEL_UCHAR:
        out->u = v[0];
        out->kind = ZelValue::UNSIGNED;
        break;
    case ZEL_USHORT:
        out->u = static_cast<uint64_t>(v[0] | v[1] << 8);
        out->kind = ZelValue::UNSIGNED;
        break;
    case ZEL_ULONG:
        out->u = zelGet32(v);
        out->kind = ZelValue::UNSIGNED;
        break;
    case ZEL_ULONGLONG:
        out->u = get64(v);
        out->kind = ZelValue::UNSIGNED;
        break;
    case ZEL_LONGLONG:
        out->i = static_cast<int64_t>(get64(v));
        out->kind = ZelValue::SIGNED;
        break;
    case ZEL_UQUAD:
        out->words = {zelGet32(v), zelGet32(v + 4)};
        out->kind = ZelValue::WORDS;
        break;
    case ZEL_FLOAT: {
        uint32_t bits = zelGet32(v);
        float f;
        std::memcpy(&f, &bits, 4);
        out->d = f;
        out->kind = ZelValue::REAL;
        break;
    }
    case ZEL_DOUBLE: {
        uint64_t bits = get64(v);
        std::memcpy(&out->d, &bits, 8);
        out->kind = ZelValue::REAL;
        break;
    }
    case ZEL_STRING: {
        const uint32_t n = zelGet32(v);
        const uint32_t room = (length - ZEL_ATTRIB_HEADER - 4) / 4;
        for (uint32_t k = 0; k + 1 < n && k < room; ++k) {
            uint32_t c = zelGet32(v + 4 + 4 * static_cast<size_t>(k));
            if (c == 0) break;
            out->chars += static_cast<char32_t>(c);
            appendUtf8(out->text, c);
        }
        out->kind = ZelValue::TEXT;
        break;
    }
    case ZEL_OCTETSTRING: {
        static const char hex[] = "0123456789ABCDEF";
        const uint32_t n = zelGet32(v);
        for (uint32_t k = 0; k < n; ++k) {
            out->text += hex[v[4 + k] >> 4];
            out->text += hex[v[4 + k] & 15];
        }
        out->kind = ZelValue::TEXT;
        break;
    }
    case ZEL_DATETIME:
        out->text.assign(reinterpret_cast<const char*>(v), ZEL_DATETIME_LEN);
        out->kind = ZelValue::TEXT;
        break;
    default:
        return false;
    }
    return true;
}
