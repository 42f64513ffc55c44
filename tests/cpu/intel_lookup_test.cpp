// The brand-string helpers and the search passes, each pass forced by a brand string
// that only that pass can settle.
#include <gtest/gtest.h>

#include "cpuid_intel_table_new.h"

#include <cstring>
#include <string>

TEST(IntelMHz, FromBrandString) {
    const struct {
        const char* brand;
        int mhz;
    } cases[] = {
        {"Intel(R) Core(TM)2 Duo CPU T7200 @ 2.00GHz", 2000},
        {"Intel(R) Xeon(R) CPU E5462 @ 2.80GHz", 2800},
        {"Intel(R) Core(TM) i7 CPU 920 @ 2.67GHz", 2670},
        {"x 2.4GHz", 2400},
        {"x 2.66GHz", 2660},
        {"x 1.833GHz", 1833},
        {"x 2.6667GHz", 2666},  // four fraction digits: real arithmetic, truncated
        {"x 3GHz", 3000},
        {"x 3 GHz", 3000},      // blanks before the unit
        {"x 866MHz", 866},
        {"x 866.7MHz", 866},    // MHz keeps the integer part
        {"Intel(R) Pentium(R) 4 CPU 3.00GHz", 3000},
        {"x 0.8GHz", -1},       // integer part below 1
        {"x .5GHz", -1},
        {"GHz", -1},
        {"x 2.4 Ghz", -1},      // units are case-sensitive
        {"Intel(R) Celeron(R) M processor 440", -1},
        {"", -1},
        {"x 99999999999999999999GHz", 1000000000},  // saturates instead of overflowing
        {"x 1.5MHz 2.0GHz", 1},  // MHz is looked for first
        {"x 7777777777MHz", 1000000000},  // found by the fuzzer: used to wrap negative
    };
    for (const auto& c : cases) EXPECT_EQ(IntelGetMHzFromBrandstring(c.brand), c.mhz) << c.brand;
    EXPECT_EQ(IntelGetMHzFromBrandstring(nullptr), -1);
}

TEST(IntelModelNumber, BlanksAroundOrAtEnd) {
    const struct {
        const char* brand;
        const char* model;
        bool match;
    } cases[] = {
        {"Intel(R) Core(TM)2 Duo CPU T7200 @ 2.00GHz", "T7200", true},
        {"Intel(R) Core(TM)2 Duo CPU     P7550  @ 2.26GHz", "P7550", true},
        {"Intel(R) Celeron(R) M processor 440", "440", true},   // ends the string
        {"Intel(R) Core(TM)2 Duo CPU T7200 @ 2.00GHz", "T720", false},
        {"Intel(R) Core(TM) i7 CPU 920 @ 2.67GHz", "920XM", false},
        {"Intel(R) Core(TM) i7-920 @ 2.67GHz", "920", false},   // no blank before
        {"x 440 y 440", "440", true},
        {"x 4400 y 440", "440", false},  // only the first " 440" may end the string
        {"x 440x", "440", false},
        {"440 x", "440", false},          // needs the blank before it
        {"", "440", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(IntelCheckModelNumber(c.brand, c.model), c.match) << c.brand << " / " << c.model;
    EXPECT_FALSE(IntelCheckModelNumber(nullptr, "440"));
    EXPECT_FALSE(IntelCheckModelNumber("x 440", nullptr));
}

TEST(IntelBrand, CodeWords) {
    const char* core2 = "Intel(R) Core(TM)2 Duo CPU T7200 @ 2.00GHz";
    const char* i5 = "Intel(R) Core(TM) i5 CPU M 520 @ 2.40GHz";
    const char* i7lower = "Intel(R) Core(TM) I7 CPU 920 @ 2.67GHz";
    const struct {
        const char* brand;
        int code;
        bool match;
    } cases[] = {
        {"Intel(R) Pentium(R) M processor 1.73GHz", 0, true},
        {"Intel(R) Celeron(R) CPU 420 @ 1.60GHz", 1, true},
        {"Intel(R) Celeron(R) CPU 420 @ 1.60GHz", 0, false},
        {"Intel(R) Xeon(R) CPU 5150 @ 2.66GHz", 2, true},
        {"Intel(R) Itanium(R) 2 9050", 3, false},
        {core2, 4, true},
        {core2, 5, false},
        {i5, 4, true},
        {i5, 6, true},
        {i5, 7, false},
        {i7lower, 7, true},  // i3/i5/i7/i9 ignore case, "Core" does not
        {"Intel(R) CORE(TM) i7 CPU", 7, false},
        {"Intel(R) Core(TM) i9-9880H CPU @ 2.30GHz", 9, true},
        {"Intel(R) Atom(TM) CPU N270 @ 1.60GHz", 8, true},
        {i5, 10, false},
        {i5, -1, false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(IntelCheckBrand(c.brand, c.code), c.match) << c.brand << " code " << c.code;
    EXPECT_FALSE(IntelCheckBrand(nullptr, 0));
}

TEST(IntelStripModel, TrailingLetters) {
    const struct {
        const char* model;
        const char* stripped;
    } cases[] = {
        {"470UM", "470"}, {"520M", "520"}, {"9120N", "9120"}, {"Z510PT", "Z510"},
        {"T7200", ""},    {"QX9300", ""},  {"M", ""},         {"", ""},
        {"5M", "5"},      {"E6500K", "E6500"},
    };
    for (const auto& c : cases) EXPECT_EQ(stripModel(c.model), c.stripped) << c.model;
    EXPECT_EQ(stripModel(nullptr), "");
}

namespace {

struct Result {
    bool found;
    std::string family;
    std::string model;
    int cores;
};

Result lookup(const char* brand, uint32_t signature) {
    PhysicalProcessor p;
    p.setBrand(brand);
    p.signature = signature;
    const bool found = IntelLookupNewTable(p);
    return {found, p.familyName, p.modelName, p.outCoresPerPackage};
}

}  // namespace

// Each brand string below is settled by a different pass.
TEST(IntelLookup, Passes) {
    const struct {
        const char* pass;
        const char* brand;
        uint32_t signature;
        const char* family;  // null: no row
        const char* model;
    } cases[] = {
        {"1", "Intel(R) Xeon(R) CPU W3680 @ 3.33GHz", 0x206C2, "Xeon", "W3680"},
        // 420 is a Celeron and a Celeron M; the family guessed from " M " decides.
        {"1A", "Intel(R) Celeron(R) M processor 420 @ 1.60GHz", 0x6EC, "Celeron M", "420"},
        {"1A", "Intel(R) Celeron(R) CPU 440 @ 2.00GHz", 0x10661, "Celeron", "440"},
        // Four Celeron M 530 rows at one clock, one per stepping.
        {"1C", "Intel(R) Celeron(R) M processor 530 @ 1.73GHz", 0x6F6, "Celeron M", "530"},
        // Two Bloomfield 920 rows, C0 and D0: the signature decides.
        {"1C", "Intel(R) Core(TM) i7 CPU 920 @ 2.67GHz", 0x106A4, "Core i7", "920"},
        {"1C", "Intel(R) Core(TM) i7 CPU 920 @ 2.67GHz", 0x106A5, "Core i7", "920"},
        // Number and letters apart: "UM 470" for the row 470UM.
        {"1D", "Intel(R) Core(TM) i5 CPU UM 470 @ 1.33GHz", 0x20655, "Core i5", "470UM"},
        // No i5 in the brand: the Core iX rows are searched by model and signature.
        {"Core iX", "Intel(R) Core(TM) CPU 661 @ 3.33GHz", 0x20655, "Core i5", "661"},
        // No model number at all: brand, signature and clock.
        {"2", "Intel(R) Pentium(R) M processor 1.73GHz", 0x6D8, "Pentium M", "740"},
        // Itanium rows are reached only without a brand check, and then need a
        // signature, which they lack.
        {"3", "Intel(R) Itanium(R) 2 Processor 9050 @ 1.60GHz", 0, nullptr, nullptr},
        // Brand without a clock stops before pass 2.
        {"none", "Intel(R) Pentium(R) M processor", 0x6D8, nullptr, nullptr},
    };
    for (const auto& c : cases) {
        const Result r = lookup(c.brand, c.signature);
        EXPECT_EQ(r.found, c.family != nullptr) << c.pass << ": " << c.brand;
        if (c.family && r.found) {
            EXPECT_EQ(r.family, c.family) << c.pass << ": " << c.brand;
            EXPECT_EQ(r.model, c.model) << c.pass << ": " << c.brand;
        }
    }
}

TEST(IntelLookup, SignatureIsMaskedTo20Bits) {
    const Result r = lookup("Intel(R) Core(TM) i7 CPU 920 @ 2.67GHz", 0xFFF00000u | 0x106A5u);
    ASSERT_TRUE(r.found);
    EXPECT_EQ(r.family, "Core i7");
}

TEST(IntelLookup, OutputFilling) {
    const struct {
        int knownFlag, knownCount, inPerCore, inCores;
        int outCores, outLogical, cores;  // cores: the input field after the lookup
    } cases[] = {
        {0, -1, -1, -1, 4, -1, 4},  // no per-core count from anywhere
        {0, -1, 2, 8, 4, 8, 4},     // the row's cores replace the input's
        {1, 2, -1, -1, 4, 8, 4},    // known count wins
        {1, 1, 2, -1, 4, 4, 4},
        {0, -1, 0, -1, 4, -1, 4},   // zero per core is not a count
    };
    for (const auto& c : cases) {
        PhysicalProcessor p;
        p.setBrand("Intel(R) Core(TM) i7 CPU 920 @ 2.67GHz");
        p.signature = 0x106A5;
        p.logicalPerCoreKnown = c.knownFlag;
        p.logicalPerCoreKnownCount = c.knownCount;
        p.logicalPerCore = c.inPerCore;
        p.coresPerPackage = c.inCores;
        ASSERT_TRUE(IntelLookupNewTable(p));
        EXPECT_EQ(p.outCoresPerPackage, c.outCores);
        EXPECT_EQ(p.outLogicalPerPackage, c.outLogical) << c.knownFlag << c.inPerCore;
        EXPECT_EQ(p.coresPerPackage, c.cores);
    }
}

TEST(IntelLookup, FailureLeavesDefaults) {
    PhysicalProcessor p;
    p.setBrand("Apple M1");
    p.coresPerPackage = 8;
    EXPECT_FALSE(IntelLookupNewTable(p));
    EXPECT_EQ(p.familyName, "Unknown");
    EXPECT_EQ(p.modelName, "Unknown");
    EXPECT_EQ(p.outCoresPerPackage, -1);
    EXPECT_EQ(p.outLogicalPerPackage, -1);
    EXPECT_EQ(p.coresPerPackage, 8);
}

TEST(IntelLookup, BrandIsCopiedAndBounded) {
    PhysicalProcessor p;
    const std::string longBrand(500, 'x');
    p.setBrand(longBrand.c_str());
    EXPECT_EQ(std::string(p.brandString).size(), PhysicalProcessor::BRAND_SIZE - 1);
    p.setBrand(nullptr);
    EXPECT_STREQ(p.brandString, "");
    // An unterminated array is not read past its end.
    std::memset(p.brandString, 'A', sizeof p.brandString);
    EXPECT_FALSE(IntelLookupNewTable(p));
}

TEST(IntelLookup, DebugTrace) {
    IntelSetDebug(true);
    testing::internal::CaptureStderr();
    lookup("Intel(R) Core(TM) i7 CPU 920 @ 2.67GHz", 0x106A4);
    const std::string log = testing::internal::GetCapturedStderr();
    IntelSetDebug(false);
    const char* lines[] = {
        "IntelLookupNewTable() STARTING brandstring='Intel(R) Core(TM) i7 CPU 920 @ 2.67GHz' "
        "signature=0x106A4 speed=2670\n",
        "IntelLookupNewTable() ITERATION 1 hits=2\n",
        "IntelGuessFamily() FINISHED family = -1\n",
        "IntelLookupNewTable() ITERATION 1B hits=2\n",
        "IntelLookupNewTable() ITERATION 1C hits=1\n",
        "IntelLookupNewTable() FINISHED with result 1\n",
        "cpuid_intel_table_new(",
    };
    for (const char* l : lines) EXPECT_NE(log.find(l), std::string::npos) << l << "\n" << log;
    EXPECT_EQ(log.find("ITERATION 1A"), std::string::npos);

    testing::internal::CaptureStderr();
    lookup("Intel(R) Core(TM) i7 CPU 920 @ 2.67GHz", 0x106A4);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
