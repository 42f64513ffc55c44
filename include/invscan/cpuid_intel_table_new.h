// Intel processor model table and its brand-string search.
//
// The kernel gives us a brand string such as "Intel(R) Core(TM)2 Duo CPU T7200 @ 2.00GHz",
// a CPUID signature and little else; core counts and family names come from a table
// of known parts. The search runs passes of varying strictness and accepts a pass only
// when exactly one row answers, so that duplicate model numbers across families and
// steppings resolve the same way every time.
#ifndef INVSCAN_CPUID_INTEL_TABLE_NEW_H
#define INVSCAN_CPUID_INTEL_TABLE_NEW_H

#include "invscan_export.h"

#include <cstdint>
#include <string>

#define INTEL_TABLE_END 0xFFFFFFFFu

// Eight 32-bit words on the 32-bit platform the table was laid out for.
struct IntelModelRow {
    uint32_t brand;     // brand code, see IntelCheckBrand; INTEL_TABLE_END ends the table
    const char* model;  // model number as brand strings print it ("T7200", "470UM")
    uint32_t signature; // CPUID family/model/stepping, 20 bits; 0 when unknown
    float speed;        // nominal MHz
    int32_t cache;      // largest cache in KB
    const char* family;
    int32_t cores;   // per package, -1 unknown
    int32_t threads; // logical processors per package, -1 unknown
};

INVSCAN_API extern const IntelModelRow newIntelTable[];
INVSCAN_API extern const unsigned newIntelTableRows; // rows before the terminator

// One processor package as handed to the lookup, and its results.
struct INVSCAN_API PhysicalProcessor {
    static const unsigned BRAND_SIZE = 128;

    PhysicalProcessor();
    void setBrand(const char* brand); // copies, truncating to the array

    char brandString[BRAND_SIZE];
    uint32_t signature = 0;
    int logicalPerCoreKnown = 0; // set when logicalPerCoreKnownCount is trustworthy
    int logicalPerCoreKnownCount = -1;
    int logicalPerCore = -1;  // input
    int coresPerPackage = -1; // input; replaced by the row's count when it has one

    std::string familyName = "Unknown";
    std::string modelName = "Unknown";
    int outCoresPerPackage = -1;
    int outLogicalPerPackage = -1;

    // Not filled by the lookup; kept for callers that carry more per package.
    int speedMHz = -1;
    int cacheKB = -1;
    std::string vendorName;
    std::string socketName;
};

INVSCAN_API bool IntelLookupNewTable(PhysicalProcessor& proc);
INVSCAN_API bool IntelCheckBrand(const char* brand, int code);
INVSCAN_API bool IntelCheckModelNumber(const char* brand, const char* model);
INVSCAN_API int IntelGetMHzFromBrandstring(const char* brand);
INVSCAN_API std::string stripModel(const char* model);

// Debug lines of the search on standard error. Off unless INVSCAN_CPU_DEBUG is set in
// the environment or the switch is turned on here.
INVSCAN_API void IntelSetDebug(bool on);
INVSCAN_API bool IntelDebug();

#endif
