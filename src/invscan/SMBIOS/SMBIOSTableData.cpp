#include "invscan/SMBIOSTableData.h"

#include <cstring>

char* IntelByteBuffer::readASCIIZ(const unsigned char* b, int off, char* out) {
    std::strcpy(out, reinterpret_cast<const char*>(b + off));
    return out;
}

int IntelByteBuffer::getASCIIZLength(const char* s) {
    return static_cast<int>(std::strlen(s)) + 1;
}

char* IntelByteBuffer::readCHARArray(const unsigned char* b, int off, char* out, int n) {
    if (n > 0) std::memcpy(out, b + off, static_cast<size_t>(n));
    return out;
}

SMBIOSTableData::SMBIOSTableData(int rev) : revision(rev) {}

SMBIOSTableData::~SMBIOSTableData() {
    freeStrings();
}

void SMBIOSTableData::freeStrings() {
    if (strings) {
        for (int i = 0; i < stringSlots; ++i)
            delete[] strings[i];
        delete[] strings;
    }
    strings = nullptr;
    stringSlots = 0;
}

int SMBIOSTableData::readBlock(const unsigned char* bytes, int offset, int size) {
    // A record read again must not keep strings of the structure it held before.
    freeStrings();
    type = (offset >= 0 && offset < size) ? bytes[offset] : 0;
    length = (offset >= 0 && offset + 1 < size) ? bytes[offset + 1] : 0;
    stringSetLength = 1;
    blockRead = 1;
    m_blk = bytes + offset;
    int avail = size - offset;
    m_avail = avail < 0 ? 0 : (avail < length ? avail : length);
    return offset + length;
}

unsigned SMBIOSTableData::rd8(int off) const {
    return off + 1 <= m_avail ? m_blk[off] : 0u;
}

unsigned SMBIOSTableData::rd16(int off) const {
    return off + 2 <= m_avail ? IntelByteBuffer::readUSHORT(m_blk, off) : 0u;
}

uint32_t SMBIOSTableData::rd32(int off) const {
    return off + 4 <= m_avail ? IntelByteBuffer::readULONG(m_blk, off) : 0u;
}

int SMBIOSTableData::finishBlock(const unsigned char* bytes, int offset, int size) {
    m_blk = nullptr;
    m_avail = 0;
    getStrings(bytes, offset + length, size);
    return offset + length + stringSetLength;
}

void SMBIOSTableData::getStrings(const unsigned char* bytes, int offset, int size) {
    // A string set is one or more NUL-terminated strings followed by one more NUL.
    // Strings past the 15th are counted but not kept; a set cut by the end of the
    // table ends there.
    int stored = 0;
    while (offset >= 0 && offset < size) {
        const unsigned char* s = bytes + offset;
        const void* nul = std::memchr(s, 0, static_cast<size_t>(size - offset));
        int len =
            nul ? static_cast<int>(static_cast<const unsigned char*>(nul) - s) : size - offset;
        stringSetLength += len + 1;
        offset += len + 1;
        if (!strings) {
            strings = new char*[kStringSlots]();
            stringSlots = kStringSlots;
        }
        if (stored < kStringSlots) {
            char* copy = new char[static_cast<size_t>(len) + 1];
            std::memcpy(copy, s, static_cast<size_t>(len));
            copy[len] = '\0';
            strings[stored] = copy;
        }
        ++stored;
        if (!nul || offset >= size || bytes[offset] == 0) break;
    }
}

const char* SMBIOSTableData::stringFromIndex(int n) const {
    if (!strings || n < 1 || n > stringSlots) return nullptr;
    const char* s = strings[n - 1];
    return (s && *s) ? s : nullptr;
}

char* SMBIOSTableData::removeInvalidChars(char* out, const char* in) {
    if (!in) return nullptr;
    char* o = out;
    for (; *in; ++in, ++o) {
        unsigned char c = static_cast<unsigned char>(*in);
        *o = (c >= 0x20 && c <= 0x7E) ? static_cast<char>(c) : '.';
    }
    *o = '\0';
    return out;
}

void SMBIOSTableData::dump(FILE* out) const {
    std::fprintf(out,
                 "\n\nSMBIOS Header -----------------------------------------------------------");
    std::fprintf(out, "\n   Type  : %d", type);
    std::fprintf(out, "\n   Length: x%04X", static_cast<unsigned>(length));
}
