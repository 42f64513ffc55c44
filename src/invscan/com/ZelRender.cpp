#include "invscan/ZelRender.h"

#include "invscan/ZelTableRow.h"
#include "invscan/ZelValue.h"

#include <climits>
#include <clocale>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#ifndef INVSCAN_BUILD_DATE
#define INVSCAN_BUILD_DATE "00/01/01"
#endif
#ifndef INVSCAN_BUILD_TIME
#define INVSCAN_BUILD_TIME "00:00:00"
#endif

extern "C" {
const char VMQT_BuildDate[] = INVSCAN_BUILD_DATE;
const char VMQT_BuildTime[] = INVSCAN_BUILD_TIME;
}

const char* getBuildDateVMQT() {
    static char buffer[32];
    static bool unformatted = true;
    if (unformatted) {
        std::snprintf(buffer, sizeof buffer, "20%s-%s.000000", VMQT_BuildDate, VMQT_BuildTime);
        buffer[4] = '-';
        buffer[7] = '-';
        buffer[13] = '.';
        buffer[16] = '.';
        unformatted = false;
    }
    buffer[31] = '\0';
    return buffer;
}

wchar_t* dmtf_escape(const wchar_t* text) {
    if (!text || !*text) return const_cast<wchar_t*>(text);
    size_t len = std::wcslen(text);
    wchar_t* out = new wchar_t[4 * len + 1];
    size_t o = 0;
    static const wchar_t hex[] = L"0123456789abcdef";
    for (size_t i = 0; i < len; ++i) {
        wchar_t c = text[i];
        if (c == L'\\' || c == L'"') {
            out[o++] = L'\\';
            out[o++] = c;
        } else if (c >= 1 && c <= 31) {
            out[o++] = L'\\';
            out[o++] = L'x';
            out[o++] = hex[(c >> 4) & 0xF];
            out[o++] = hex[c & 0xF];
        } else {
            out[o++] = c;
        }
    }
    out[o] = 0;
    return out;
}

void PrintZelFloat(std::FILE* file, double value) {
    const char* current = std::setlocale(LC_NUMERIC, nullptr);
    std::string saved = current ? current : "C";
    std::setlocale(LC_NUMERIC, "C");
    std::fprintf(file ? file : stdout, "%f", value);
    std::setlocale(LC_NUMERIC, saved.c_str());
}

void PrintOctetStringToFile(std::FILE* file, const unsigned char* bytes, unsigned long count) {
    std::fputc('"', file);
    for (unsigned long i = 0; i < count; ++i)
        std::fprintf(file, "%02X", bytes[i]);
    std::fputc('"', file);
}

namespace {

// Escaped characters out in the locale's encoding, character by character rather
// than "%ls": one character the locale cannot express (any non-ASCII one in the C
// locale) would drop the whole value. Codes up to 0xFF go out as the byte they
// were read from.
void printChars(std::FILE* file, const std::u32string& chars) {
    std::vector<wchar_t> text(chars.begin(), chars.end());
    text.push_back(0);
    wchar_t* escaped = dmtf_escape(text.data());
    std::mbstate_t state{};
    char buf[MB_LEN_MAX];
    for (const wchar_t* c = escaped; *c; ++c) {
        size_t k = std::wcrtomb(buf, *c, &state);
        if (k == static_cast<size_t>(-1)) {
            std::fputc(*c >= 0 && *c <= 0xFF ? static_cast<int>(*c) : '?', file);
            state = std::mbstate_t{};
        } else {
            std::fwrite(buf, 1, k, file);
        }
    }
    if (escaped != text.data()) delete[] escaped;
}

// The value forms that the file writer and the dump share.
void printCommonValue(std::FILE* f, const ZelValue& v) {
    switch (v.type) {
    case ZEL_UQUAD:
        // Only the first word, read as signed.
        std::fprintf(f, "%ld", static_cast<long>(static_cast<int32_t>(v.words[0])));
        break;
    case ZEL_FLOAT:
    case ZEL_DOUBLE:
        PrintZelFloat(f, v.d);
        break;
    case ZEL_STRING:
        printChars(f, v.chars);
        break;
    case ZEL_OCTETSTRING:
        if (!v.text.empty()) std::fprintf(f, "\"%s\"", v.text.c_str());
        break;
    case ZEL_DATETIME:
        std::fwrite(v.text.data(), 1, v.text.size(), f);
        break;
    default:
        break;
    }
}

} // namespace

void PrintZelStringToFile(std::FILE* file, const unsigned char* counted) {
    uint32_t n = zelGet32(counted);
    if (n < 1) return;
    // The characters may sit at any alignment in a caller's buffer: read them one by one.
    std::u32string chars;
    for (uint32_t i = 0; i + 1 < n; ++i) {
        uint32_t c = zelGet32(counted + 4 + 4 * static_cast<size_t>(i));
        if (c == 0) break;
        chars += static_cast<char32_t>(c);
    }
    printChars(file, chars);
}

void PrintZelTimeBlockToFile(std::FILE* file, const unsigned char* block) {
    for (int i = 0; i < ZEL_DATETIME_LEN; ++i)
        std::fputc(block[i], file);
}

void PrintZelAttribValueToFile(std::FILE* file, const unsigned char* block) {
    ZelValue v;
    if (!zelDecodeValue(block, &v)) return;
    switch (v.type) {
    case ZEL_UCHAR:
        std::fprintf(file, "0x%02X", static_cast<unsigned>(v.u));
        break;
    case ZEL_USHORT:
        std::fprintf(file, "%d", static_cast<int>(v.u));
        break;
    case ZEL_ULONG:
        std::fprintf(file, "%lu", static_cast<unsigned long>(v.u));
        break;
    case ZEL_ULONGLONG:
        std::fprintf(file, "%llu", static_cast<unsigned long long>(v.u));
        break;
    case ZEL_LONGLONG:
        std::fprintf(file, "%lld", static_cast<long long>(v.i));
        break;
    default:
        printCommonValue(file, v);
        break;
    }
}

void PrintZelAttribValue(const unsigned char* block) {
    if (!block) return;
    std::printf("\n\t\t---len      : %lu", static_cast<unsigned long>(zelGet32(block)));
    if (zelGet32(block) < ZEL_ATTRIB_HEADER) {
        std::printf("\n\t\t   value    : Malformed attrib value");
        return;
    }
    uint32_t type = zelGet32(block + 8);
    std::printf("\n\t\t   attribId : x%08X", static_cast<unsigned>(zelGet32(block + 4)));
    std::printf("\n\t\t   zel_type : %lu (%s)", static_cast<unsigned long>(type),
                getZelAttribTypeAsString(type));
    std::printf("\n\t\t   value    : ");
    ZelValue v;
    if (!zelDecodeValue(block, &v)) {
        std::printf(zelBlockIsComplete(block) ? "Unknown attrib value type"
                                              : "Malformed attrib value");
        return;
    }
    // 64-bit values show only their low word in hexadecimal, right-aligned in 16.
    const unsigned low = static_cast<unsigned>(v.u & 0xFFFFFFFFu);
    switch (type) {
    case ZEL_UCHAR:
        std::printf("0x%02X", low);
        break;
    case ZEL_USHORT:
        std::printf("%d (0x%04X)", static_cast<int>(v.u), low);
        break;
    case ZEL_ULONG:
        std::printf("%lu (0x%08X)", static_cast<unsigned long>(v.u), low);
        break;
    case ZEL_ULONGLONG:
        std::printf("%llu (0x%16X)", static_cast<unsigned long long>(v.u), low);
        break;
    case ZEL_LONGLONG:
        std::printf("%lld (0x%16X)", static_cast<long long>(v.i),
                    static_cast<unsigned>(static_cast<uint64_t>(v.i) & 0xFFFFFFFFu));
        break;
    default:
        printCommonValue(stdout, v);
        break;
    }
}
