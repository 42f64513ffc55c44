// The SMBIOS structure walk, every record reader, the facts and the SMBIOS group over
// arbitrary table bytes. Seeds: tests/data/smbios/*.bin.
#include "invscan/SMBIOSGroup.h"
#include "invscan/SMBIOSTable.h"
#include "invscan/SMMemory.h"
#include "invscan/SM_HWSecurity.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

template <class R> void readDirect(const uint8_t* data, int size, int revision, std::FILE* sink) {
    R r(revision);
    int next = r.readBlock(data, 0, size);
    (void)next;
    r.dump(sink);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static std::FILE* sink = std::fopen("/dev/null", "w");
    if (size > 1 << 20) return 0;
    const int n = static_cast<int>(size);

    globalSMBIOSTable = new SMBIOSTable(data, n, 0, n / 4);
    globalSMBIOSTable->parseData();
    globalSMBIOSTable->dump(sink);
    uint32_t maxMB, slots, flags;
    getMemorySpecs(&maxMB, &slots);
    uint16_t a, b, c;
    SM_Processor(&a, &b, &c, &flags);
    SM_HWSecurity(&a, &b);
    SM_ProcessorFamily();
    SMBIOSGroup group;
    delete group.getTable();
    delete globalSMBIOSTable;
    globalSMBIOSTable = nullptr;

    // Every reader on its own, with the revision gates open, at the start of the input.
    const int rev = 0x0207;
    readDirect<SMBIOSTable0Data>(data, n, rev, sink);
    readDirect<SMBIOSTable1Data>(data, n, rev, sink);
    readDirect<SMBIOSTable2Data>(data, n, rev, sink);
    readDirect<SMBIOSTable3Data>(data, n, rev, sink);
    readDirect<SMBIOSTable4Data>(data, n, rev, sink);
    readDirect<SMBIOSTable5Data>(data, n, rev, sink);
    readDirect<SMBIOSTable6Data>(data, n, rev, sink);
    readDirect<SMBIOSTable8Data>(data, n, rev, sink);
    readDirect<SMBIOSTable9Data>(data, n, rev, sink);
    readDirect<SMBIOSTable10Data>(data, n, rev, sink);
    readDirect<SMBIOSTable11Data>(data, n, rev, sink);
    readDirect<SMBIOSTable16Data>(data, n, rev, sink);
    readDirect<SMBIOSTable17Data>(data, n, rev, sink);
    readDirect<SMBIOSTable22Data>(data, n, rev, sink);
    readDirect<SMBIOSTable24Data>(data, n, rev, sink);
    SMBIOSTable1Data t1(rev);
    t1.readBlock(data, 0, n);
    t1.getUUIDAsString();
    SMBIOSTable0Data t0(rev);
    t0.readBlock(data, 0, n);
    std::free(t0.getReleaseDateAsYYYYMMDD());
    t0.getReleaseDateAsTimeT();
    return 0;
}
