// Brand strings exactly as real machines print them (runs of blanks included), with the
// CPUID signature each machine reported. Sources: the Mac sysctl captures in
// tests/data/cpu, and public /proc/cpuinfo, dmesg and lshw listings (their family,
// model and stepping give the signature).
// The expectations are what the search gives; a few are quirks of the search that we
// keep and say so.
#include <gtest/gtest.h>

#include "invscan/cpuid_intel_table_new.h"

#include <string>

namespace {

struct Machine {
    const char* brand;
    uint32_t signature;
    const char* family; // null: must not resolve
    const char* model;
    int cores;
};

const Machine kMachines[] = {
    // Core Duo / Core Solo (Yonah), MacBook, MacBook Pro, iMac and Mac mini of 2006.
    {"Genuine Intel(R) CPU           T2600  @ 2.16GHz", 0x6E8, "Core Duo", "T2600", 2},
    {"Intel(R) Core(TM) Solo CPU     T1300  @ 1.66GHz", 0x6E8, "Core Solo", "T1300", 1},
    // Core 2 Duo (Merom, Conroe), 2006-2007.
    {"Intel(R) Core(TM)2 CPU         T7200  @ 2.00GHz", 0x6F6, "Core2 Duo Mobile", "T7200", 2},
    {"Intel(R) Core(TM)2 Duo CPU     T5500  @ 1.66GHz", 0x6F6, "Core2 Duo Mobile", "T5500", 2},
    {"Intel(R) Core(TM)2 Duo CPU     T7500  @ 2.20GHz", 0x6FA, "Core2 Duo Mobile", "T7500", 2},
    {"Intel(R) Core(TM)2 Duo CPU     L7500  @ 1.60GHz", 0x6FB, "Core2 Duo Mobile", "L7500", 2},
    // Core 2 Duo (Penryn), 2008-2010.
    {"Intel(R) Core(TM)2 Duo CPU     T8100  @ 2.10GHz", 0x10676, "Core2 Duo Mobile", "T8100", 2},
    {"Intel(R) Core(TM)2 Duo CPU     P7350  @ 2.00GHz", 0x10676, "Core2 Duo Mobile", "P7350", 2},
    {"Intel(R) Core(TM)2 Duo CPU     P7550  @ 2.26GHz", 67194, "Core2 Duo Mobile", "P7550", 2},
    {"Intel(R) Core(TM)2 Duo CPU     P8700  @ 2.53GHz", 0x1067A, "Core2 Duo Mobile", "P8700", 2},
    {"Intel(R) Core(TM)2 Duo CPU     E7600  @ 3.06GHz", 0x1067A, "Core2 Duo", "E7600", 2},
    {"Intel(R) Core(TM)2 Quad  CPU   Q9400  @ 2.66GHz", 0x1067A, "Core2 QUAD", "Q9400", 4},
    {"Intel(R) Core(TM)2 Extreme CPU X9100  @ 3.06GHz", 0x10676, "Core2 Duo Mobile", "X9100", 2},
    // Xeon 5100 (Mac Pro 2006), 5300 (2007), 5400 (2008), 3500/5500 (2009), 5600 (2010).
    {"Intel(R) Xeon(R) CPU            5130  @ 2.00GHz", 0x6F6, "Dual-Core Xeon", "5130", 2},
    {"Intel(R) Xeon(R) CPU           X5365  @ 3.00GHz", 0x6FB, "Quad-Core Xeon", "X5365", 4},
    {"Intel(R) Xeon(R) CPU           E5462  @ 2.80GHz", 0x10676, "Quad-Core Xeon", "E5462", 4},
    {"Intel(R) Xeon(R) CPU           X5450  @ 3.00GHz", 0x1067A, "Quad-Core Xeon", "X5450", 4},
    {"Intel(R) Xeon(R) CPU           W3520  @ 2.67GHz", 0x106A5, "Quad-Core Xeon", "W3520", 4},
    {"Intel(R) Xeon(R) CPU           E5520  @ 2.27GHz", 0x106A5, "Quad-Core Xeon", "E5520", 4},
    {"Intel(R) Xeon(R) CPU           E5620  @ 2.40GHz", 0x206C2, "Quad-Core Xeon", "E5620", 4},
    {"Intel(R) Xeon(R) CPU           X5670  @ 2.93GHz", 0x206C2, "Xeon", "X5670", 6},
    {"Intel(R) Xeon(R) CPU           W3680  @ 3.33GHz", 0x206C2, "Xeon", "W3680", 6},
    // Core i3/i5/i7 of 2009-2010 (iMac, MacBook Pro).
    {"Intel(R) Core(TM) i7 CPU         920  @ 2.67GHz", 0x106A5, "Core i7", "920", 4},
    {"Intel(R) Core(TM) i3 CPU       540  @ 3.07GHz", 0x20655, "Core i3", "540", 2},
    {"Intel(R) Core(TM) i5 CPU       680  @ 3.60GHz", 0x20655, "Core i5", "680", 2},
    {"Intel(R) Core(TM) i5 CPU       760  @ 2.80GHz", 0x106E5, "Core i5", "760", 4},
    {"Intel(R) Core(TM) i7 CPU       Q 720  @ 1.60GHz", 0x106E5, "Core i7", "720QM", 4},
    {"Intel(R) Core(TM) i7 CPU       M 620  @ 2.67GHz", 0x20655, "Core i7", "620M", 2},
    // Quirk: 520M and 520E share clock and C2 stepping; pass 2A takes the first, 520E.
    {"Intel(R) Core(TM) i5 CPU       M 520  @ 2.40GHz", 0x20652, "Core i5", "520E", 2},
    // Quirk: on K0 the 520M, 520E and 450M rows share clock and stepping: no answer.
    {"Intel(R) Core(TM) i5 CPU       M 520  @ 2.40GHz", 0x20655, nullptr, nullptr, -1},
    // Quirk: two 540M steppings tie in pass 1D, then the Core iX check finds the i3 540.
    {"Intel(R) Core(TM) i5 CPU       M 540  @ 2.53GHz", 0x20655, "Core i3", "540", 2},
    // Older brands without a model number: signature and clock decide.
    {"Intel(R) Pentium(R) M processor 1.73GHz", 0x6D8, "Pentium M", "740", 1},
    {"Intel(R) Celeron(R) M processor         1.50GHz", 0x6D8, "Celeron M", "370", 1},
    {"Intel(R) Pentium(R) 4 CPU 3.00GHz", 0xF43, "Pentium 4", "630", 1},
    {"Intel(R) Pentium(R) Dual  CPU  E2180  @ 2.00GHz", 0x6FD, "Pentium", "E2180", 2},
    {"Intel(R) Celeron(R) CPU          420  @ 1.60GHz", 0x10661, "Celeron", "420", 1},
    {"Intel(R) Atom(TM) CPU N270   @ 1.60GHz", 0x106C2, "Atom", "N270", 1},
    {"Intel(R) Atom(TM) CPU D525   @ 1.80GHz", 0x106CA, "Atom", "D525", 2},
    // Must not resolve: parts newer or older than the table, other makers, emulators.
    {"Genuine Intel(R) CPU           T1200  @ 1.50GHz", 0x6E8, nullptr, nullptr, -1},
    {"Intel(R) Core(TM)2 Duo CPU     E8135  @ 2.40GHz", 0x10676, nullptr, nullptr, -1},
    {"Intel(R) Core(TM) i5-8279U CPU @ 2.40GHz", 526058, nullptr, nullptr, -1},
    {"Intel(R) Core(TM) i7-4980HQ CPU @ 2.80GHz", 263777, nullptr, nullptr, -1},
    {"Intel(R) Core(TM) i7-8700B CPU @ 3.20GHz", 591594, nullptr, nullptr, -1},
    {"Apple M1", 0, nullptr, nullptr, -1},
    {"Apple M1 Pro", 0, nullptr, nullptr, -1},
    {"PowerPC G5 (1.1)", 0, nullptr, nullptr, -1},
    {"AMD Phenom(tm) 9550 Quad-Core Processor", 0x100F23, nullptr, nullptr, -1},
    {"QEMU Virtual CPU version 2.5+", 0x663, nullptr, nullptr, -1},
    {"", 0, nullptr, nullptr, -1},
};

} // namespace

TEST(RealBrandStrings, ResolveAsExpected) {
    int resolved = 0;
    for (const Machine& m : kMachines) {
        PhysicalProcessor p;
        p.setBrand(m.brand);
        p.signature = m.signature;
        const bool found = IntelLookupNewTable(p);
        EXPECT_EQ(found, m.family != nullptr) << m.brand;
        if (!found || !m.family) continue;
        ++resolved;
        EXPECT_EQ(p.familyName, m.family) << m.brand;
        EXPECT_EQ(p.modelName, m.model) << m.brand;
        EXPECT_EQ(p.outCoresPerPackage, m.cores) << m.brand;
    }
    EXPECT_GE(resolved, 35);
}
