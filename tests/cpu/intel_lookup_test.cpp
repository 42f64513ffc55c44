// The brand-string helpers and the search passes, each pass forced by a brand string
// that only that pass can settle.
#include <gtest/gtest.h>

#include "invscan/cpuid_intel_table_new.h"

#include <clocale>
#include <cstring>
#include <string>

TEST(IntelBrandHelpers, MHz) {
    const struct {
        const char* brand;
        int mhz;
    } cases[] = {{"Intel(R) Core(TM)2 Duo CPU T7200 @ 2.00GHz", 2000},
                 {"x 2.4GHz", 2400},
                 {"x 2.66GHz", 2660},
                 {"x 1.833GHz", 1833},
                 {"x 2.6667GHz", 2666},
                 {"x 3 GHz", 3000},
                 {"x 866.7MHz", 866},
                 {"x 0.8GHz", -1},
                 {"x .5GHz", -1},
                 {"GHz", -1},
                 {"x 2.4 Ghz", -1},
                 {"x 1.5MHz 2.0GHz", 1},          // MHz is looked for first
                 {"x 7777777777MHz", 1000000000}, // found by the fuzzer: used to wrap negative
                 {"x 99999999999999999999GHz", 1000000000}};
    for (const auto& c : cases)
        EXPECT_EQ(IntelGetMHzFromBrandstring(c.brand), c.mhz) << c.brand;
    EXPECT_EQ(IntelGetMHzFromBrandstring(nullptr), -1);

    // Long leading zeros and a decimal-comma locale must not change the reading.
    EXPECT_EQ(IntelGetMHzFromBrandstring(("x " + std::string(80, '0') + "1.23456GHz").c_str()),
              1234);
    const std::string saved = std::setlocale(LC_NUMERIC, nullptr);
    if (!std::setlocale(LC_NUMERIC, "de_DE.utf8") && !std::setlocale(LC_NUMERIC, "de_DE.UTF-8"))
        return;
    const int commaLocale = IntelGetMHzFromBrandstring("x 2.6667GHz");
    std::setlocale(LC_NUMERIC, saved.c_str());
    EXPECT_EQ(commaLocale, 2666);
}

TEST(IntelBrandHelpers, ModelNumberBrandAndStrip) {
    const struct {
        const char* brand;
        const char* model;
        bool match;
    } models[] = {{"Intel(R) Core(TM)2 Duo CPU     P7550  @ 2.26GHz", "P7550", true},
                  {"Intel(R) Celeron(R) M processor 440", "440", true}, // ends the string
                  {"Intel(R) Core(TM)2 Duo CPU T7200 @ 2.00GHz", "T720", false},
                  {"Intel(R) Core(TM) i7-920 @ 2.67GHz", "920", false},
                  {"x 4400 y 440", "440", false}, // only the first " 440" may end the string
                  {"440 x", "440", false},
                  {"x", nullptr, false},
                  {nullptr, "440", false}};
    for (const auto& c : models)
        EXPECT_EQ(IntelCheckModelNumber(c.brand, c.model), c.match) << c.brand;

    const char* i5 = "Intel(R) Core(TM) i5 CPU M 520 @ 2.40GHz";
    const struct {
        const char* brand;
        int code;
        bool match;
    } brands[] = {{"Intel(R) Pentium(R) M processor 1.73GHz", 0, true},
                  {"Intel(R) Celeron(R) CPU", 0, false},
                  {"Intel(R) Xeon(R) CPU", 2, true},
                  {"Intel(R) Itanium(R) 2 9050", 3, false},
                  {i5, 4, true},
                  {i5, 6, true},
                  {i5, 7, false},
                  {"Core(TM) I7", 7, true},
                  {"CORE(TM) i7", 7, false},
                  {"Core(TM) i9", 9, true},
                  {i5, 10, false},
                  {nullptr, 0, false}};
    for (const auto& c : brands)
        EXPECT_EQ(IntelCheckBrand(c.brand, c.code), c.match) << c.brand << " " << c.code;

    const char* strip[][2] = {{"470UM", "470"}, {"9120N", "9120"}, {"Z510PT", "Z510"},
                              {"T7200", ""},    {"M", ""},         {"5M", "5"}};
    for (const auto& s : strip)
        EXPECT_EQ(stripModel(s[0]), s[1]) << s[0];
    EXPECT_EQ(stripModel(nullptr), "");
}

TEST(IntelLookup, Passes) {
    const struct {
        const char* pass;
        const char* brand;
        uint32_t sig;
        const char* model;
    } cases[] = {{"1", "Intel(R) Xeon(R) CPU W3680 @ 3.33GHz", 0x206C2, "W3680"},
                 // 420 is a Celeron and a Celeron M: the family guessed from " M " decides.
                 {"1A", "Intel(R) Celeron(R) M processor 420 @ 1.60GHz", 0x6EC, "420"},
                 // Four Celeron M 530 rows at one clock, one per stepping.
                 {"1C", "Intel(R) Celeron(R) M processor 530 @ 1.73GHz", 0x6F6, "530"},
                 {"1C", "Intel(R) Core(TM) i7 CPU 920 @ 2.67GHz", 0xFFF106A4u, "920"}, // masked
                 {"1D", "Intel(R) Core(TM) i5 CPU UM 470 @ 1.33GHz", 0x20655, "470UM"},
                 {"Core iX", "Intel(R) Core(TM) CPU 661 @ 3.33GHz", 0x20655, "661"},
                 {"2", "Intel(R) Pentium(R) M processor 1.73GHz", 0x6D8, "740"},
                 // Itanium rows pass no brand check, and pass 3 needs a signature they lack.
                 {"3", "Intel(R) Itanium(R) 2 Processor 9050 @ 1.60GHz", 0, nullptr},
                 {"no clock", "Intel(R) Pentium(R) M processor", 0x6D8, nullptr}};
    for (const auto& c : cases) {
        PhysicalProcessor p;
        p.setBrand(c.brand);
        p.signature = c.sig;
        p.coresPerPackage = 8;
        EXPECT_EQ(IntelLookupNewTable(p), c.model != nullptr) << c.pass;
        EXPECT_EQ(p.modelName, c.model ? c.model : "Unknown") << c.pass;
        EXPECT_EQ(p.coresPerPackage, c.model ? p.outCoresPerPackage : 8) << c.pass;
    }
}

TEST(IntelLookup, LogicalProcessorCounts) {
    const struct {
        int knownFlag, knownCount, inPerCore, outLogical;
    } cases[] = {{0, -1, -1, -1}, {0, -1, 2, 8}, {0, -1, 0, -1}, {1, 2, -1, 8}, {1, 1, 2, 4}};
    for (const auto& c : cases) {
        PhysicalProcessor p;
        p.setBrand("Intel(R) Core(TM) i7 CPU 920 @ 2.67GHz");
        p.signature = 0x106A5;
        p.logicalPerCoreKnown = c.knownFlag;
        p.logicalPerCoreKnownCount = c.knownCount;
        p.logicalPerCore = c.inPerCore;
        ASSERT_TRUE(IntelLookupNewTable(p));
        EXPECT_EQ(p.outCoresPerPackage, 4);
        EXPECT_EQ(p.outLogicalPerPackage, c.outLogical) << c.knownFlag << " " << c.inPerCore;
    }
}

TEST(IntelLookup, UnterminatedBrandIsNotReadPastItsArray) {
    PhysicalProcessor p;
    p.setBrand(std::string(500, 'x').c_str());
    EXPECT_EQ(std::strlen(p.brandString), PhysicalProcessor::BRAND_SIZE - 1);
    std::memset(p.brandString, 'A', sizeof p.brandString);
    EXPECT_FALSE(IntelLookupNewTable(p));
}

TEST(IntelLookup, DebugTrace) {
    IntelSetDebug(true);
    testing::internal::CaptureStderr();
    PhysicalProcessor p;
    p.setBrand("Intel(R) Core(TM) i7 CPU 920 @ 2.67GHz");
    p.signature = 0x106A4;
    IntelLookupNewTable(p);
    const std::string log = testing::internal::GetCapturedStderr();
    IntelSetDebug(false);
    EXPECT_EQ(log.rfind("./../../../src/invscan/scanners/cpuid_intel_table_new(", 0), 0u);
    for (const char* l :
         {"IntelLookupNewTable() STARTING brandstring='Intel(R) Core(TM) i7 CPU 920 @ 2.67GHz' "
          "signature=0x106A4 speed=2670\n",
          ") - IntelLookupNewTable() ITERATION 1 hits=2\n",
          "IntelGuessFamily() FINISHED family = -1\n", "ITERATION 1B hits=2\n",
          "ITERATION 1C hits=1\n", "FOUND PROC at 220, Core i7, 920\n",
          "IntelLookupNewTable() FINISHED with result 1\n"})
        EXPECT_NE(log.find(l), std::string::npos) << l << "\n" << log;
    testing::internal::CaptureStderr();
    IntelLookupNewTable(p);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
