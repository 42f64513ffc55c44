// Little-endian byte readers and the common base of every SMBIOS structure record:
// header fields and the string set.
//
// Records read their fields bytewise and only inside the structure's formatted area
// and the table: a field that lies beyond either reads as 0. On a well-formed table
// that changes nothing; on a cut or lying table it keeps every read inside the buffer.
#ifndef INVSCAN_SMBIOSTABLEDATA_H
#define INVSCAN_SMBIOSTABLEDATA_H

#include "invscan_export.h"

#include <cstdint>
#include <cstdio>

class INVSCAN_API IntelByteBuffer {
public:
    // No bounds checks: callers check first.
    static unsigned char readUCHAR(const unsigned char* b, int off) { return b[off]; }
    static uint16_t readUSHORT(const unsigned char* b, int off) {
        return static_cast<uint16_t>(b[off] + 256u * b[off + 1]);
    }
    static uint32_t readULONG(const unsigned char* b, int off) {
        return static_cast<uint32_t>(b[off]) | (static_cast<uint32_t>(b[off + 1]) << 8) |
               (static_cast<uint32_t>(b[off + 2]) << 16) |
               (static_cast<uint32_t>(b[off + 3]) << 24);
    }
    static char* readASCIIZ(const unsigned char* b, int off, char* out);
    static int getASCIIZLength(const char* s);
    static char* readCHARArray(const unsigned char* b, int off, char* out, int n);
};

class INVSCAN_API SMBIOSTableData {
public:
    static const int kStringSlots = 15;

    explicit SMBIOSTableData(int revision);
    virtual ~SMBIOSTableData();
    SMBIOSTableData(const SMBIOSTableData&) = delete;
    SMBIOSTableData& operator=(const SMBIOSTableData&) = delete;

    // Reads the structure at `offset` of a table of `size` valid bytes and returns the
    // offset of the next structure. The base reads only the header and returns the end
    // of the formatted area.
    virtual int readBlock(const unsigned char* bytes, int offset, int size);

    // Reads the string set at `offset`; stops at `size`.
    void getStrings(const unsigned char* bytes, int offset, int size);

    // String number n (1-based); null for 0, past the strings read, or an empty slot.
    const char* stringFromIndex(int n) const;

    static char* removeInvalidChars(char* out, const char* in);

    virtual void dump(FILE* out) const;
    void dump() const { dump(stdout); }

    int getTypeByte() const { return type; }
    int getLength() const { return length; }
    int getStringSetLength() const { return stringSetLength; }
    int getRevision() const { return revision; }

protected:
    // Revision gates: major is the revision's high byte, minor its low byte.
    // Kept as the firmware era had them: a 3.0 table fails the first gate.
    bool gateMinorNonZero() const { return major() >= 2 && minor() != 0; }
    bool gateMinorAbove2() const { return major() >= 2 && minor() > 2; }
    int major() const { return (revision >> 8) & 0xFF; }
    int minor() const { return revision & 0xFF; }

    // Field readers for use inside readBlock: offsets from the structure start.
    unsigned rd8(int off) const;
    unsigned rd16(int off) const;
    uint32_t rd32(int off) const;
    // Reads the string set after the formatted area; returns the next structure's offset.
    int finishBlock(const unsigned char* bytes, int offset, int size);

    int type = 0;
    int revision = 0;
    int length = 0;
    int stringSetLength = 0;
    int blockRead = 0;
    char** strings = nullptr;
    int stringSlots = 0;

private:
    void freeStrings();

    const unsigned char* m_blk = nullptr; // valid only during readBlock
    int m_avail = 0;                      // readable bytes of the formatted area
};

#endif
