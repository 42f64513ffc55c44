// Processor summary straight from the raw SMBIOS table: one Chip per processor
// structure, summed into package, core and thread counts and clock speeds. Independent
// of SMBIOSTable on purpose: it reads the structures itself.
#ifndef INVSCAN_SCANNERS_SMBIOS_H
#define INVSCAN_SCANNERS_SMBIOS_H

#include "invscan_export.h"

#include <cstddef>
#include <string>
#include <vector>

struct INVSCAN_API SmbiosInfo {
    struct Chip {
        std::string version;
        std::string manufacturer;
        std::string socket;
        int status = 0;
        int maxSpeedMHz = 0;
        int bootSpeedMHz = 0;
        int busClockMHz = 0;
        int totalCores = -1;
        int enabledCores = -1;
        int totalThreads = -1;
        int activeThreads = -1;
    };
    struct System {
        bool present = false;
        std::string manufacturer, product, version, serial, family, uuid;
    };

    int numTotalProcessors = -1;
    int numTotalPackages = -1;
    int numTotalCores = -1;
    int numActiveProcessors = -1;
    int numActivePackages = -1;
    int numActiveCores = -1;
    int cpuClockMHz = -1;
    int busClockMHz = -1;
    unsigned char version[3] = {0, 0, 0}; // major, minor, 0
    std::vector<Chip> chips;
    System system;
};

// From the I/O-registry snapshot; true when a table was found and parsed.
INVSCAN_API bool getSmbiosInfo(SmbiosInfo& info);
// The same summary over a table the caller holds (version major.minor).
INVSCAN_API bool getSmbiosInfoFromTable(const unsigned char* table, size_t length, int major,
                                        int minor, SmbiosInfo& info);

// Walks `length` bytes of structures (count 0: unknown); 0 on a broken structure.
INVSCAN_API int parseSmbiosStructs(const unsigned char* table, unsigned short count,
                                   unsigned length, SmbiosInfo& info);
// Appends a Chip for the type-4 structure at `structure`; `end` bounds every read.
INVSCAN_API void parseProcStruct(const unsigned char* structure, const unsigned char* end,
                                 SmbiosInfo& info);
// String number `index` of the structure's string set into `out` (at most outSize - 1
// bytes); empty when there is none.
INVSCAN_API char* getString(const unsigned char* structure, const unsigned char* end, int index,
                            char* out, size_t outSize);

// Debug switches: 1 traces to standard error, 2 also writes smbios_<pid>.raw/.txt.
// Initialised from INVSCAN_SMBIOS_DEBUG.
INVSCAN_API void setSmbiosDebug(int level);
INVSCAN_API int getSmbiosDebug();
INVSCAN_API void dump_smbios(const unsigned char* table, size_t length);

#endif
