// One typed attribute value (a self-describing heap block handed on to the host
// agent as it stands) and a row of them. Block layout, little-endian:
//   0 u32 total length   4 u32 attribute id   8 u32 type code   12 value
#ifndef INVSCAN_ZELTABLEROW_H
#define INVSCAN_ZELTABLEROW_H

#include "invscan_export.h"
#include "ZelDefs.h"

#include <cstddef>
#include <cstdint>
#include <ctime>

struct uquad {
    uint32_t first;
    uint32_t second;
};

// Length of a ZEL_DATETIME value: "yyyy-mm-dd-hh.mm.ss.000000", no terminator.
#define ZEL_DATETIME_LEN 26
#define ZEL_ATTRIB_HEADER 12
#define ZEL_NO_TYPE 0x80000000u

// Little-endian access to value blocks, independent of the host's byte order.
inline uint32_t zelGet32(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}
inline void zelPut32(unsigned char* p, uint32_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
    p[2] = static_cast<unsigned char>(v >> 16);
    p[3] = static_cast<unsigned char>(v >> 24);
}

class INVSCAN_API ZelTableAttrib {
public:
    ZelTableAttrib(unsigned long id, unsigned char value);
    ZelTableAttrib(unsigned long id, unsigned short value);
    ZelTableAttrib(unsigned long id, long timeValue); // ZEL_DATETIME, local time
    ZelTableAttrib(unsigned long id, unsigned long value);
    ZelTableAttrib(unsigned long id, unsigned long long value);
    ZelTableAttrib(unsigned long id, long long value);
    ZelTableAttrib(unsigned long id, double value);
    ZelTableAttrib(unsigned long id, float value);
    ZelTableAttrib(unsigned long id, uquad value);
    ZelTableAttrib(unsigned long id, const unsigned char* bytes, unsigned long length);
    ZelTableAttrib(unsigned long id, const char* text); // multibyte, current locale
    ~ZelTableAttrib();
    ZelTableAttrib(const ZelTableAttrib&) = delete;
    ZelTableAttrib& operator=(const ZelTableAttrib&) = delete;

    // From a pool of small blocks: an attribute object is one pointer, and a table of
    // 100,000 rows holds a million of them.
    static void* operator new(std::size_t size);
    static void operator delete(void* p, std::size_t size) noexcept;

    unsigned long getId() const;
    unsigned long getType() const; // ZEL_NO_TYPE without a block
    unsigned char* getAttribPtr() const { return m_block; }
    void toString() const;

private:
    unsigned char* allocate(unsigned long id, uint32_t type, size_t valueBytes);
    unsigned char* m_block;
};

class INVSCAN_API ZelTableRow {
public:
    ZelTableRow() = default;
    ~ZelTableRow();
    ZelTableRow(const ZelTableRow&) = delete;
    ZelTableRow& operator=(const ZelTableRow&) = delete;

    // Appends and takes ownership; a null attribute is appended and counted too.
    int addAttrib(ZelTableAttrib* attrib);
    unsigned long getNumAttribs() const { return m_count; }
    int reset() {
        m_cursor = 0;
        return 1;
    }
    ZelTableAttrib* getNext();
    void toString() const;

private:
    // One array of pointers rather than a node per attribute: a table of 100,000 rows
    // of eight values saves 25 MB.
    unsigned long m_count = 0;
    unsigned long m_capacity = 0;
    unsigned long m_cursor = 0;
    ZelTableAttrib** m_attribs = nullptr;
};

// Value conversions shared with the rendering functions.
INVSCAN_API void TimeToZelDateTime(long timeValue, unsigned char* block);
INVSCAN_API unsigned long SizeofZelString(const unsigned char* counted);
INVSCAN_API unsigned long SizeAsZelString(const char* text);
INVSCAN_API unsigned long StringToZelString(const char* text, unsigned char* dest,
                                            unsigned long limit, unsigned long& offset,
                                            unsigned long& start);
INVSCAN_API const char* getZelAttribTypeAsString(unsigned long code);

// True when the value its type code announces lies wholly inside the block's own
// length. Blocks can come from a caller's buffer: the printers check before reading.
INVSCAN_API bool zelBlockIsComplete(const unsigned char* block);

#endif
