#include "invscan/SMBIOSTable.h"

#include "invscan/BIOSROM.h"
#include "invscan/CcLog.h"

#include <cstdlib>
#include <cstring>

static const char* const kFile = "./../../../src/invscan/SMBIOS/SMBIOSTable";

extern "C" {
const char* bogus_strings[] = {"Not Available", "This is OEM",          "System Manufacturer",
                               "System Model",  "No Asset Information", nullptr};
}

SMBIOSTable* globalSMBIOSTable = nullptr;
static int refCount = 0;

void SMBIOSTable::init() {
    revision = majorVersion = minorVersion = 0;
    totalLength = numTables = allocLength = 0;
    available = false;
    data = nullptr;
    table0 = nullptr;
    table1 = nullptr;
    table2 = nullptr;
    table3 = nullptr;
    table5 = nullptr;
    table11 = nullptr;
    table16 = nullptr;
    table22 = nullptr;
    table24 = nullptr;
    std::memset(table4, 0, sizeof table4);
    std::memset(table6, 0, sizeof table6);
    std::memset(table8, 0, sizeof table8);
    std::memset(table9, 0, sizeof table9);
    std::memset(table10, 0, sizeof table10);
    std::memset(table17, 0, sizeof table17);
    table4Total = table4PopulatedTotal = table6Total = table8Total = 0;
    table9Total = table10Total = table17Total = 0;
}

static void traceHexDump(const unsigned char* d, int len) {
    CcLogWrapper* log = getCcLogHw();
    if (!log->isOn()) return;
    for (int off = 0; off < len; off += 16) {
        char hex[16 * 3 + 1] = "";
        char text[17] = "";
        int n = len - off < 16 ? len - off : 16;
        for (int i = 0; i < n; ++i) {
            unsigned char c = d[off + i];
            std::snprintf(hex + 3 * i, 4, "%02X ", c);
            text[i] = (c >= 0x20 && c < 0x7F) ? static_cast<char>(c) : '.';
        }
        text[n] = '\0';
        log->traceMAX(__LINE__, kFile, "SMBIOSTable()", "hardware %04X --- >%-48s< >%s<", off, hex,
                      text);
    }
}

SMBIOSTable::SMBIOSTable() {
    init();
    getCcLogHw()->traceMidEntry(__LINE__, kFile, "SMBIOSTable()", "hardware %s", "SMBIOS Group");
    available = getDataFromIOKit();
    if (!available) legacyScan();
    if (available) traceHexDump(data, allocLength);
    getCcLogHw()->traceMidExit(__LINE__, kFile, "SMBIOSTable()", "hardware available=%d",
                               available ? 1 : 0);
}

// The F0000-segment scan for the _DMI_ anchor. Its memory reader fails on this
// platform; the path stays so that a platform with one works unchanged.
void SMBIOSTable::legacyScan() {
    const int segLen = 0x10000;
    unsigned char* seg = new unsigned char[segLen + 4]();
    getCcLogHw()->traceMAX(__LINE__, kFile, "SMBIOSTable()", "hardware %s",
                           "Reading F0000 segment");
    if (BIOSROM::getPhysMem(seg, 0, 0xF0000u, segLen) == 0) {
        getCcLogHw()->traceMAX(__LINE__, kFile, "SMBIOSTable()", "hardware %s",
                               "Looking for _DMI_ signature");
        // p >= 16: the anchor sits at offset 0x10 of the entry point, whose version
        // bytes are read below.
        for (int p = 16; p + 15 <= segLen && !available; ++p) {
            if (std::memcmp(seg + p, "_DMI_", 5) != 0) continue;
            getCcLogHw()->traceMAX(__LINE__, kFile, "SMBIOSTable()", "hardware %s%04X",
                                   "Found _DMI_ at 000F:", p);
            totalLength = allocLength = IntelByteBuffer::readUSHORT(seg, p + 6);
            uint32_t address = IntelByteBuffer::readULONG(seg, p + 8);
            numTables = IntelByteBuffer::readUSHORT(seg, p + 12);
            unsigned bcd = seg[p + 14];
            if (bcd != 0) {
                majorVersion = static_cast<int>(bcd >> 4);
                minorVersion = static_cast<int>(bcd & 0x0F);
            } else {
                majorVersion = seg[p - 10];
                minorVersion = seg[p - 9];
            }
            revision = (majorVersion << 8) | minorVersion;
            delete[] data;
            data = new unsigned char[static_cast<size_t>(allocLength) + 5]();
            getCcLogHw()->traceMAX(__LINE__, kFile, "SMBIOSTable()", "hardware %s",
                                   "Grabbing memory from absolute location");
            available = BIOSROM::getPhysMem(data, 0, address, allocLength) == 0;
            if (!available) {
                // Nothing usable was read: do not leave a half-filled table behind.
                delete[] data;
                data = nullptr;
                totalLength = allocLength = numTables = 0;
                break;
            }
        }
    }
    delete[] seg;
}

SMBIOSTable::SMBIOSTable(const unsigned char* bytes, int length, unsigned char rev, int count) {
    init();
    if (length < 0) length = 0;
    takeBytes(bytes, length);
    revision = rev;
    majorVersion = rev >> 4;
    minorVersion = rev & 0x0F;
    numTables = count;
    available = true;
}

SMBIOSTable::SMBIOSTable(const char* fileName) {
    init();
    readBytesFromFile(fileName);
}

SMBIOSTable::~SMBIOSTable() {
    freeRecords();
    delete[] data;
    data = nullptr;
}

void SMBIOSTable::takeBytes(const unsigned char* bytes, int length) {
    delete[] data;
    totalLength = allocLength = length;
    // Five spare zero bytes keep terminator look-ahead inside the buffer.
    data = new unsigned char[static_cast<size_t>(length) + 5]();
    if (bytes && length > 0) std::memcpy(data, bytes, static_cast<size_t>(length));
}

void SMBIOSTable::freeRecords() {
    delete table0;
    delete table1;
    delete table2;
    delete table3;
    delete table5;
    delete table11;
    delete table16;
    delete table22;
    delete table24;
    for (int i = 0; i < table4Total; ++i)
        delete table4[i];
    for (int i = 0; i < table6Total; ++i)
        delete table6[i];
    for (int i = 0; i < table8Total; ++i)
        delete table8[i];
    for (int i = 0; i < table9Total; ++i)
        delete table9[i];
    for (int i = 0; i < table10Total; ++i)
        delete table10[i];
    for (int i = 0; i < table17Total; ++i)
        delete table17[i];
    table0 = nullptr;
    table1 = nullptr;
    table2 = nullptr;
    table3 = nullptr;
    table5 = nullptr;
    table11 = nullptr;
    table16 = nullptr;
    table22 = nullptr;
    table24 = nullptr;
    table4Total = table4PopulatedTotal = table6Total = table8Total = 0;
    table9Total = table10Total = table17Total = 0;
}

int SMBIOSTable::getNextType(const unsigned char* bytes, int offset) const {
    (void)bytes; // the walk always runs over the table's own bytes
    int e = offset + static_cast<int>(at(offset + 1));
    if (at(offset) == 5) {
        // Some firmware ends a memory-controller structure without its two zero bytes.
        if (at(e) != 0 || at(e + 1) != 0) return e;
        return e + 2;
    }
    int pos = e;
    while (pos < totalLength && !(at(pos) == 0 && at(pos + 1) == 0))
        ++pos;
    return pos + 2;
}

namespace {
template <class T> T* readOne(T*& slot, int rev, const unsigned char* d, int& cur, int size) {
    slot = new T(rev);
    cur = slot->readBlock(d, cur, size);
    return slot;
}
} // namespace

void SMBIOSTable::parseData() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, kFile, "parseData()", "hardware %s", "parseData()");
    freeRecords();
    if (!data || totalLength <= 0) {
        log->traceMidExit(__LINE__, kFile, "parseData()", "hardware %s", "no data");
        return;
    }
    int cur = 0;
    int visited = 0;
    while (cur < totalLength - 4 && visited < numTables) {
        ++visited;
        const int t = static_cast<int>(at(cur));
        if (log->isOn())
            log->traceMAX(
                __LINE__, kFile, "parseData()",
                "hardware %s %04X %s %3d %s %2d %s %2d %s %02X %02X %02X %s %02X %s %02X %02X %02X",
                "SMBIOS cur=", cur, "type=", t, "tables=", visited, "of", numTables, "-",
                at(cur - 3), at(cur - 2), at(cur - 1), ">", at(cur), "<", at(cur + 1), at(cur + 2),
                at(cur + 3));
        // A length below the header size is a broken table; nothing after it can be
        // trusted to be a structure.
        if (at(cur + 1) < 4) {
            log->traceMAX(__LINE__, kFile, "parseData()", "hardware %s %d",
                          "invalid structure length at", cur);
            break;
        }
        const int rev = revision;
        // Single records: the first structure of the type wins, later ones are skipped.
        auto firstWins = [&](auto*& slot) {
            if (!slot)
                readOne(slot, rev, data, cur, totalLength);
            else
                cur = getNextType(data, cur);
        };
        // Repeated records: kept up to the cap, the rest skipped.
        auto upTo = [&](auto* slots, auto& total, auto cap) {
            if (total < cap)
                readOne(slots[total++], rev, data, cur, totalLength);
            else
                cur = getNextType(data, cur);
        };
        switch (t) {
        case 0:
            firstWins(table0);
            break;
        case 1:
            firstWins(table1);
            break;
        case 2:
            firstWins(table2);
            break;
        case 3:
            firstWins(table3);
            break;
        case 5:
            firstWins(table5);
            break;
        case 16:
            firstWins(table16);
            break;
        case 22:
            firstWins(table22);
            break;
        case 24:
            firstWins(table24);
            break;
        case 4:
            if (table4Total < kMaxTable4) {
                SMBIOSTable4Data* r = readOne(table4[table4Total], rev, data, cur, totalLength);
                if (r->isPopulated() && r->getType() == 3) ++table4PopulatedTotal;
                ++table4Total;
            } else {
                cur = getNextType(data, cur);
            }
            break;
        case 6:
            upTo(table6, table6Total, kMaxTable6);
            break;
        case 8:
            upTo(table8, table8Total, kMaxTable8);
            break;
        case 9:
            upTo(table9, table9Total, kMaxTable9);
            break;
        case 10:
            upTo(table10, table10Total, kMaxTable10);
            break;
        case 17:
            upTo(table17, table17Total, kMaxTable17);
            break;
        case 127:
            // End of table. The walk stays on it until its visits are used up, which
            // is the same as stopping here.
            log->traceMAX(__LINE__, kFile, "parseData()", "hardware %s", "found structure 127");
            visited = numTables;
            break;
        default:
            cur = getNextType(data, cur);
            break;
        }
    }
    log->traceMAX(__LINE__, kFile, "parseData()", "hardware %s %d",
                  "Number of Table 4 =", table4Total);
    log->traceMAX(__LINE__, kFile, "parseData()", "hardware %s %d",
                  "Number of Table 4 Populated=", table4PopulatedTotal);
    if (table4Total > 0)
        log->traceMAX(__LINE__, kFile, "parseData()", "hardware %s %u",
                      "Table 4 Family =", table4[0]->getFamily());
    log->traceMidExit(__LINE__, kFile, "parseData()", "hardware %s", "parseData()");
}

void SMBIOSTable::dump(FILE* out) const {
    std::fprintf(out, "\n-SMBIOS Table -------------------------------");
    std::fprintf(out, "\n   revision    : x%02X", static_cast<unsigned>(revision));
    std::fprintf(out, "\n   numTables   : %d", numTables);
    std::fprintf(out, "\n   totalLength : %d", totalLength);
    if (table0) table0->dump(out);
    if (table1) table1->dump(out);
    if (table2) table2->dump(out);
    if (table3) table3->dump(out);
    for (int i = 0; i < table4Total; ++i)
        table4[i]->dump(out);
    if (table5) table5->dump(out);
    for (int i = 0; i < table6Total; ++i)
        table6[i]->dump(out);
    for (int i = 0; i < table8Total; ++i)
        table8[i]->dump(out);
    for (int i = 0; i < table9Total; ++i)
        table9[i]->dump(out);
    for (int i = 0; i < table10Total; ++i)
        table10[i]->dump(out);
    if (table11) table11->dump(out);
    if (table16) table16->dump(out);
    for (int i = 0; i < table17Total; ++i)
        table17[i]->dump(out);
    if (table22) table22->dump(out);
    if (table24) table24->dump(out);
    std::fprintf(out, "\n");
}

void SMBIOSTable::writeBytesToStream(FILE* f) const {
    std::fprintf(f, "SMBIOS File Format=0x%04X\n", 1u);
    std::fprintf(f, "SMBIOS Length=0x%04X\n", static_cast<unsigned>(totalLength));
    std::fprintf(f, "SMBIOS NumTables=0x%04X\n", static_cast<unsigned>(numTables));
    std::fprintf(f, "SMBIOS Revision=0x%02X\n", static_cast<unsigned>(revision));
    std::fprintf(f, "SMBIOS Data=");
    for (int i = 0; i < totalLength; ++i) {
        if (i % 16 == 0) std::fputc('\n', f);
        std::fprintf(f, "0x%02X ", data[i]);
    }
    std::fputc('\n', f);
}

void SMBIOSTable::writeBytesToFile(const char* fileName) const {
    FILE* f = fileName ? std::fopen(fileName, "w") : nullptr;
    if (!f) return;
    writeBytesToStream(f);
    std::fclose(f);
}

bool SMBIOSTable::readBytesFromStream(FILE* f) {
    unsigned format = 0;
    if (std::fscanf(f, "SMBIOS File Format=%X ", &format) != 1 || format != 1) return false;
    unsigned len = 0, count = 0, rev = 0;
    if (std::fscanf(f, "SMBIOS Length=%X ", &len) != 1) len = 0;
    if (std::fscanf(f, "SMBIOS NumTables=%X ", &count) != 1) count = 0;
    if (std::fscanf(f, "SMBIOS Revision=%X ", &rev) != 1) rev = 0;
    // A table is at most what a 32-bit length field says; refuse absurd sizes instead
    // of allocating them (the items must be in the file anyway).
    if (len > 0x1000000u) len = 0;
    freeRecords();
    numTables = static_cast<int>(count);
    revision = static_cast<int>(rev);
    takeBytes(nullptr, static_cast<int>(len));
    if (std::fscanf(f, "SMBIOS Data=") == 0) {
        for (unsigned i = 0; i < len; ++i) {
            unsigned v = 0;
            if (std::fscanf(f, " %X", &v) != 1) break;
            data[i] = static_cast<unsigned char>(v & 0xFFu);
        }
    }
    return true;
}

void SMBIOSTable::readBytesFromFile(const char* fileName) {
    FILE* f = fileName ? std::fopen(fileName, "r") : nullptr;
    if (!f) return;
    bool ok = readBytesFromStream(f);
    std::fclose(f);
    if (!ok) {
        std::printf("\nERROR - Invalid file format.");
        std::fflush(stdout);
        std::exit(-1);
    }
}

char* SMBIOSTable::validateString(const char* in, char* out) {
    out[0] = '\0';
    if (!in) return out;
    for (const char** b = bogus_strings; *b; ++b)
        if (std::strstr(in, *b)) return out;
    while (*in == ' ' || *in == '\t' || *in == '\n' || *in == '\r' || *in == '\f' || *in == '\v')
        ++in;
    size_t n = 0;
    // Cut at the first control or non-ASCII byte (signed-char test).
    while (in[n] && static_cast<signed char>(in[n]) >= 0x20) {
        out[n] = in[n];
        ++n;
    }
    out[n] = '\0';
    while (n > 0 && (out[n - 1] == ' ' || out[n - 1] == '\t'))
        out[--n] = '\0';
    return out;
}

void SMBIOSTable::initializeGlobalTable(unsigned char parse) {
    if (!globalSMBIOSTable) {
        globalSMBIOSTable = new SMBIOSTable();
        refCount = 1;
        if (parse == 1 && globalSMBIOSTable->isAvailable()) globalSMBIOSTable->parseData();
    } else {
        ++refCount;
    }
}

void SMBIOSTable::terminateGlobalTable() {
    if (refCount > 0) --refCount;
    if (refCount == 0 && globalSMBIOSTable) {
        delete globalSMBIOSTable;
        globalSMBIOSTable = nullptr;
    }
}
