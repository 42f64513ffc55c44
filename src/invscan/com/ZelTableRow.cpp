#include "invscan/ZelTableRow.h"

#include "invscan/ZelRender.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <mutex>
#include <new>

static_assert(sizeof(wchar_t) == 4, "counted strings hold 32-bit characters");

namespace {

void put64(unsigned char* p, uint64_t v) {
    zelPut32(p, static_cast<uint32_t>(v));
    zelPut32(p + 4, static_cast<uint32_t>(v >> 32));
}

template <typename T> void putBytes(unsigned char* p, T v) {
    static_assert(sizeof(T) == 4 || sizeof(T) == 8, "IEEE float or double");
    if (sizeof(T) == 4) {
        uint32_t bits;
        std::memcpy(&bits, &v, 4);
        zelPut32(p, bits);
    } else {
        uint64_t bits;
        std::memcpy(&bits, &v, 8);
        put64(p, bits);
    }
}

// Attribute objects come from slabs and go back to a free list; a slab is kept for
// the life of the process, so a long-lived host holds at most its largest table's
// count of them (8 bytes each rather than a 32-byte heap chunk). Under
// AddressSanitizer each object is its own allocation, so misuse is still caught.
#if defined(__SANITIZE_ADDRESS__)
#define INVSCAN_ATTRIB_POOL 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define INVSCAN_ATTRIB_POOL 0
#endif
#endif
#ifndef INVSCAN_ATTRIB_POOL
#define INVSCAN_ATTRIB_POOL 1
#endif

#if INVSCAN_ATTRIB_POOL
struct AttribPool {
    union Slot {
        Slot* next;
        alignas(ZelTableAttrib) unsigned char object[sizeof(ZelTableAttrib)];
    };
    static constexpr std::size_t SLAB = 4096;
    std::mutex lock;
    Slot* free = nullptr;

    void* take() {
        std::lock_guard<std::mutex> hold(lock);
        if (!free) {
            Slot* slab = static_cast<Slot*>(std::malloc(SLAB * sizeof(Slot)));
            if (!slab) throw std::bad_alloc();
            for (std::size_t i = 0; i < SLAB; ++i)
                slab[i].next = i + 1 < SLAB ? &slab[i + 1] : nullptr;
            free = slab;
        }
        Slot* s = free;
        free = s->next;
        return s;
    }

    void give(void* p) {
        std::lock_guard<std::mutex> hold(lock);
        Slot* s = static_cast<Slot*>(p);
        s->next = free;
        free = s;
    }
};

// Never destroyed: attributes may outlive static destruction in a host's exit path.
AttribPool& pool() {
    static AttribPool* p = new AttribPool;
    return *p;
}
#endif

} // namespace

void* ZelTableAttrib::operator new(std::size_t size) {
#if INVSCAN_ATTRIB_POOL
    if (size == sizeof(ZelTableAttrib)) return pool().take();
#endif
    return ::operator new(size);
}

void ZelTableAttrib::operator delete(void* p, std::size_t size) noexcept {
    if (!p) return;
#if INVSCAN_ATTRIB_POOL
    if (size == sizeof(ZelTableAttrib)) return pool().give(p);
#endif
    (void)size;
    ::operator delete(p);
}

unsigned char* ZelTableAttrib::allocate(unsigned long id, uint32_t type, size_t valueBytes) {
    size_t total = ZEL_ATTRIB_HEADER + valueBytes;
    m_block = new unsigned char[total];
    std::memset(m_block, 0, total);
    zelPut32(m_block, static_cast<uint32_t>(total));
    zelPut32(m_block + 4, static_cast<uint32_t>(id));
    zelPut32(m_block + 8, type);
    return m_block + ZEL_ATTRIB_HEADER;
}

ZelTableAttrib::ZelTableAttrib(unsigned long id, unsigned char value) {
    *allocate(id, ZEL_UCHAR, 1) = value;
}

ZelTableAttrib::ZelTableAttrib(unsigned long id, unsigned short value) {
    unsigned char* p = allocate(id, ZEL_USHORT, 2);
    p[0] = static_cast<unsigned char>(value);
    p[1] = static_cast<unsigned char>(value >> 8);
}

ZelTableAttrib::ZelTableAttrib(unsigned long id, long timeValue) {
    TimeToZelDateTime(timeValue, allocate(id, ZEL_DATETIME, ZEL_DATETIME_LEN));
}

ZelTableAttrib::ZelTableAttrib(unsigned long id, unsigned long value) {
    zelPut32(allocate(id, ZEL_ULONG, 4), static_cast<uint32_t>(value));
}

ZelTableAttrib::ZelTableAttrib(unsigned long id, unsigned long long value) {
    put64(allocate(id, ZEL_ULONGLONG, 8), value);
}

ZelTableAttrib::ZelTableAttrib(unsigned long id, long long value) {
    put64(allocate(id, ZEL_LONGLONG, 8), static_cast<uint64_t>(value));
}

ZelTableAttrib::ZelTableAttrib(unsigned long id, double value) {
    putBytes(allocate(id, ZEL_DOUBLE, 8), value);
}

ZelTableAttrib::ZelTableAttrib(unsigned long id, float value) {
    putBytes(allocate(id, ZEL_FLOAT, 4), value);
}

ZelTableAttrib::ZelTableAttrib(unsigned long id, uquad value) {
    unsigned char* p = allocate(id, ZEL_UQUAD, 8);
    zelPut32(p, value.first);
    zelPut32(p + 4, value.second);
}

ZelTableAttrib::ZelTableAttrib(unsigned long id, const unsigned char* bytes, unsigned long length) {
    if (!bytes) length = 0;
    // The count and the block length are 32-bit words; size_t may be 32 bits too.
    const unsigned long maxOctets = 0xFFFFFFFFUL - ZEL_ATTRIB_HEADER - 4;
    if (length > maxOctets) length = maxOctets;
    unsigned char* p = allocate(id, ZEL_OCTETSTRING, 4 + static_cast<size_t>(length));
    zelPut32(p, static_cast<uint32_t>(length));
    if (length) std::memcpy(p + 4, bytes, length);
}

ZelTableAttrib::ZelTableAttrib(unsigned long id, const char* text) {
    // 4 bytes a character must not wrap the 32-bit block length (nor size_t on
    // 32-bit hosts): a text beyond that is cut.
    const size_t maxChars = (0xFFFFFFFFUL - ZEL_ATTRIB_HEADER - 8) / 4;
    unsigned long size = text && std::strlen(text) > maxChars
                             ? static_cast<unsigned long>(4 * maxChars + 8)
                             : SizeAsZelString(text);
    unsigned char* p = allocate(id, ZEL_STRING, size);
    unsigned long offset = 0, start = 0;
    StringToZelString(text, p, size / 4 - 1, offset, start);
}

ZelTableAttrib::~ZelTableAttrib() {
    delete[] m_block;
    m_block = nullptr;
}

unsigned long ZelTableAttrib::getId() const {
    return m_block ? zelGet32(m_block + 4) : 0;
}

unsigned long ZelTableAttrib::getType() const {
    return m_block ? zelGet32(m_block + 8) : ZEL_NO_TYPE;
}

void ZelTableAttrib::toString() const {
    if (m_block) PrintZelAttribValue(m_block);
}

ZelTableRow::~ZelTableRow() {
    for (unsigned long i = 0; i < m_count; ++i)
        delete m_attribs[i];
    std::free(m_attribs);
    m_attribs = nullptr;
    m_count = m_capacity = m_cursor = 0;
}

int ZelTableRow::addAttrib(ZelTableAttrib* attrib) {
    if (m_count == m_capacity) {
        const unsigned long capacity = m_capacity ? m_capacity * 2 : 8;
        void* grown = std::realloc(m_attribs, capacity * sizeof *m_attribs);
        if (!grown) {
            delete attrib; // taken, as promised, even when it cannot be kept
            return 0;
        }
        m_attribs = static_cast<ZelTableAttrib**>(grown);
        m_capacity = capacity;
    }
    m_attribs[m_count++] = attrib;
    return 1;
}

ZelTableAttrib* ZelTableRow::getNext() {
    return m_cursor < m_count ? m_attribs[m_cursor++] : nullptr;
}

void ZelTableRow::toString() const {
    std::printf("\n\t Attribs=%lu", m_count);
    for (unsigned long i = 0; i < m_count; ++i)
        if (m_attribs[i]) m_attribs[i]->toString();
}

void TimeToZelDateTime(long timeValue, unsigned char* block) {
    std::time_t t = static_cast<std::time_t>(timeValue);
    std::tm tmv;
    if (!localtime_r(&t, &tmv)) {
        std::memset(block, 0, 4);
        return;
    }
    auto digits = [](unsigned char* p, int value, int width) {
        for (int i = width - 1; i >= 0; --i) {
            p[i] = static_cast<unsigned char>('0' + value % 10);
            value /= 10;
        }
    };
    digits(block, tmv.tm_year + 1900, 4);
    block[4] = '-';
    digits(block + 5, tmv.tm_mon + 1, 2);
    block[7] = '-';
    digits(block + 8, tmv.tm_mday, 2);
    block[10] = '-';
    digits(block + 11, tmv.tm_hour, 2);
    block[13] = '.';
    digits(block + 14, tmv.tm_min, 2);
    block[16] = '.';
    digits(block + 17, tmv.tm_sec, 2);
    block[19] = '.';
    std::memset(block + 20, '0', 6);
}

unsigned long SizeofZelString(const unsigned char* counted) {
    return counted ? 4UL * zelGet32(counted) + 4UL : 0;
}

unsigned long SizeAsZelString(const char* text) {
    if (!text || !*text) return 8;
    return 4UL * static_cast<unsigned long>(std::strlen(text)) + 8UL;
}

unsigned long StringToZelString(const char* text, unsigned char* dest, unsigned long limit,
                                unsigned long& offset, unsigned long& start) {
    start = offset;
    // limit: room in 32-bit slots after the count word, terminator included.
    size_t n = 0;
    if (text && *text && limit > 1) {
        std::mbstate_t state{};
        const char* p = text;
        size_t left = std::strlen(text);
        while (left > 0 && n < limit - 1) {
            wchar_t wc = 0;
            size_t k = std::mbrtowc(&wc, p, left, &state);
            if (k == static_cast<size_t>(-1) || k == static_cast<size_t>(-2)) {
                // A byte the locale cannot decode keeps its own code: the rest of
                // the text still converts and nothing is lost.
                wc = static_cast<wchar_t>(static_cast<unsigned char>(*p));
                k = 1;
                state = std::mbstate_t{};
            } else if (k == 0) {
                break;
            }
            zelPut32(dest + 4 + 4 * n, static_cast<uint32_t>(wc));
            ++n;
            p += k;
            left -= k;
        }
    }
    zelPut32(dest, static_cast<uint32_t>(n + 1));
    zelPut32(dest + 4 + 4 * n, 0);
    unsigned long size = 4UL * static_cast<unsigned long>(n + 1) + 4UL;
    offset += size;
    return size;
}

const char* getZelAttribTypeAsString(unsigned long code) {
    static const char* const names[] = {nullptr,        "ZEL_UCHAR",     "ZEL_USHORT",
                                        "ZEL_ULONG",    "ZEL_UQUAD",     "ZEL_FLOAT",
                                        "ZEL_DOUBLE",   "ZEL_STRING",    "ZEL_OCTETSTRING",
                                        "ZEL_DATETIME", "ZEL_ULONGLONG", "ZEL_LONGLONG"};
    if (code >= 1 && code <= 11) return names[code];
    return "Undefined Attrib Type";
}

bool zelBlockIsComplete(const unsigned char* block) {
    if (!block) return false;
    uint32_t length = zelGet32(block);
    if (length < ZEL_ATTRIB_HEADER) return false;
    uint32_t room = length - ZEL_ATTRIB_HEADER;
    const unsigned char* v = block + ZEL_ATTRIB_HEADER;
    switch (zelGet32(block + 8)) {
    case ZEL_UCHAR:
        return room >= 1;
    case ZEL_USHORT:
        return room >= 2;
    case ZEL_ULONG:
    case ZEL_FLOAT:
        return room >= 4;
    case ZEL_UQUAD:
    case ZEL_DOUBLE:
    case ZEL_ULONGLONG:
    case ZEL_LONGLONG:
        return room >= 8;
    case ZEL_DATETIME:
        return room >= ZEL_DATETIME_LEN;
    case ZEL_STRING:
        return room >= 4 && zelGet32(v) <= (room - 4) / 4;
    case ZEL_OCTETSTRING:
        return room >= 4 && zelGet32(v) <= room - 4;
    default:
        return true; // nothing of the value is read
    }
}
