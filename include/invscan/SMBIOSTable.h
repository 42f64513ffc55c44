// One copy of the machine's SMBIOS structure table, walked once into typed records of
// the structure types the inventory uses, and the process-wide shared instance.
#ifndef INVSCAN_SMBIOSTABLE_H
#define INVSCAN_SMBIOSTABLE_H

#include "SMBIOSRecords.h"
#include "invscan_export.h"

#include <cstdint>
#include <cstdio>

struct VtNode;

// Placeholder texts of BIOS setups, null-terminated.
extern "C" INVSCAN_API const char* bogus_strings[];

class INVSCAN_API SMBIOSTable {
public:
    static const int kMaxTable4 = 80;
    static const int kMaxTable6 = 12;
    static const int kMaxTable8 = 20;
    static const int kMaxTable9 = 20;
    static const int kMaxTable10 = 20;
    static const int kMaxTable17 = 1000;

    // From the live machine: the I/O-registry snapshot, else the legacy scan.
    SMBIOSTable();
    // Caller-supplied bytes; revision is the byte the entry point announced (BCD).
    SMBIOSTable(const unsigned char* bytes, int length, unsigned char revision, int numTables);
    // From a table file; call parseData() afterwards.
    explicit SMBIOSTable(const char* fileName);
    ~SMBIOSTable();
    SMBIOSTable(const SMBIOSTable&) = delete;
    SMBIOSTable& operator=(const SMBIOSTable&) = delete;

    void init();

    bool isAvailable() const { return available; }
    int getRevision() const { return revision; }
    int getMajorVersion() const { return majorVersion; }
    int getMinorVersion() const { return minorVersion; }
    int getNumTables() const { return numTables; }
    int getTotalLength() const { return totalLength; }
    const unsigned char* getData() const { return data; }

    // Offset of the structure after the one at `offset`.
    int getNextType(const unsigned char* bytes, int offset) const;
    void parseData();

    SMBIOSTable0Data* getTable0() const { return table0; }
    SMBIOSTable1Data* getTable1() const { return table1; }
    SMBIOSTable2Data* getTable2() const { return table2; }
    SMBIOSTable3Data* getTable3() const { return table3; }
    SMBIOSTable4Data* getTable4(int i) const { return pick(table4, table4Total, i); }
    SMBIOSTable5Data* getTable5() const { return table5; }
    SMBIOSTable6Data* getTable6(int i) const { return pick(table6, table6Total, i); }
    SMBIOSTable8Data* getTable8(int i) const { return pick(table8, table8Total, i); }
    SMBIOSTable9Data* getTable9(int i) const { return pick(table9, table9Total, i); }
    SMBIOSTable10Data* getTable10(int i) const { return pick(table10, table10Total, i); }
    SMBIOSTable11Data* getTable11() const { return table11; }
    SMBIOSTable16Data* getTable16() const { return table16; }
    SMBIOSTable17Data* getTable17(int i) const { return pick(table17, table17Total, i); }
    SMBIOSTable24Data* getTable24() const { return table24; }
    int getTable4Total() const { return table4Total; }
    int getTable4PopulatedTotal() const { return table4PopulatedTotal; }
    int getTable6Total() const { return table6Total; }
    int getTable8Total() const { return table8Total; }
    int getTable9Total() const { return table9Total; }
    int getTable10Total() const { return table10Total; }
    int getTable17Total() const { return table17Total; }

    void dump(FILE* out) const;
    void dump() const { dump(stdout); }

    // Table file: a text dump, one field per line, values in hexadecimal.
    void readBytesFromFile(const char* fileName);
    void writeBytesToFile(const char* fileName) const;
    // Same, from and to an open stream. The reader returns false on a wrong format
    // number (the file variant then ends the process, as it always has).
    bool readBytesFromStream(FILE* f);
    void writeBytesToStream(FILE* f) const;

    bool getDataFromIOKit();
    // Takes the SMBIOS bytes out of an I/O-registry tree root; false when absent.
    bool setDataFromIoRegistry(const VtNode* root);

    // Cleans an SMBIOS string for use as an attribute value; `out` must hold
    // strlen(in) + 1 bytes. Returns `out`.
    static char* validateString(const char* in, char* out);

    static void initializeGlobalTable(unsigned char parse);
    static void terminateGlobalTable();

private:
    template <class T> static T* pick(T* const* arr, int total, int i) {
        return (i < 0 || i >= total) ? nullptr : arr[i];
    }
    unsigned at(int i) const { return (i >= 0 && i < totalLength) ? data[i] : 0u; }
    void freeRecords();
    void takeBytes(const unsigned char* bytes, int length);
    void legacyScan();

    int revision;
    int majorVersion;
    int minorVersion;
    int totalLength;
    int numTables;
    bool available;
    unsigned char* data;
    int allocLength;
    SMBIOSTable0Data* table0;
    SMBIOSTable1Data* table1;
    SMBIOSTable2Data* table2;
    SMBIOSTable3Data* table3;
    SMBIOSTable4Data* table4[kMaxTable4];
    int table4Total;
    int table4PopulatedTotal;
    SMBIOSTable5Data* table5;
    SMBIOSTable6Data* table6[kMaxTable6];
    int table6Total;
    SMBIOSTable8Data* table8[kMaxTable8];
    int table8Total;
    SMBIOSTable9Data* table9[kMaxTable9];
    int table9Total;
    SMBIOSTable10Data* table10[kMaxTable10];
    int table10Total;
    SMBIOSTable11Data* table11;
    SMBIOSTable16Data* table16;
    SMBIOSTable17Data* table17[kMaxTable17];
    int table17Total;
    SMBIOSTable22Data* table22;
    SMBIOSTable24Data* table24;
};

extern INVSCAN_API SMBIOSTable* globalSMBIOSTable;

#endif
