// The model table is data: pin its shape and keep the generated source in step with
// the CSV it comes from.
#include <gtest/gtest.h>

#include "invscan/cpuid_intel_table_new.h"

#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

static_assert(sizeof(void*) != 4 || sizeof(IntelModelRow) == 8 * 4,
              "a table row is eight 32-bit words on ILP32");

TEST(IntelTable, CountsPerBrandAndFamily) {
    const std::map<std::string, int> expected = {
        {"0 Pentium", 47},        {"0 Pentium 4", 94},
        {"0 Pentium M", 51},      {"1 Celeron", 14},
        {"1 Celeron D", 69},      {"1 Celeron M", 56},
        {"2 Dual-Core Xeon", 73}, {"2 Quad-Core Xeon", 119},
        {"2 Xeon", 23},           {"3 Itanium 2", 26},
        {"4 Core Duo", 26},       {"4 Core Solo", 12},
        {"4 Core2 Duo", 38},      {"4 Core2 Duo Mobile", 81},
        {"4 Core2 Extreme", 9},   {"4 Core2 QUAD", 23},
        {"5 Core i3", 16},        {"6 Core i5", 28},
        {"7 Core i7", 39},        {"8 Atom", 24}};
    std::map<std::string, int> counted;
    int unknownSignature = 0;
    unsigned n = 0;
    for (; newIntelTable[n].brand != INTEL_TABLE_END; ++n) {
        ++counted[std::to_string(newIntelTable[n].brand) + " " + newIntelTable[n].family];
        unknownSignature += newIntelTable[n].signature == 0;
    }
    EXPECT_EQ(n, 868u);
    EXPECT_EQ(newIntelTableRows, 868u);
    EXPECT_EQ(counted, expected);
    EXPECT_EQ(unknownSignature, 45); // Itanium rows and parts of unknown stepping
}

// Row order decides the tie-breaks, so the sequence of brand code, family and model is
// pinned row by row against the reference listing.
TEST(IntelTable, RowOrderMatchesReference) {
    std::ifstream in(INVSCAN_TEST_DATA "/cpu/intel_model_rows.csv");
    ASSERT_TRUE(in);
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "row,brand_code,family,model");
    unsigned row = 0;
    for (; std::getline(in, line); ++row) {
        ASSERT_LT(row, newIntelTableRows);
        const IntelModelRow& r = newIntelTable[row];
        const std::string expected =
            std::to_string(row) + ',' + std::to_string(r.brand) + ',' + r.family + ',' + r.model;
        EXPECT_EQ(line, expected);
    }
    EXPECT_EQ(row, newIntelTableRows);
}

TEST(IntelTable, QuotedRowsAreExact) {
    const char* const quoted[] = {"6 470UM 20655 1330 3072 Core i5 2",
                                  "1 P4600 20655 2000 2048 Celeron M 2",
                                  "8 D425 106CA 1800 512 Atom 1",
                                  "2 X5472 1067A 3000 12288 Quad-Core Xeon 4",
                                  "4 QX9300 10676 2530 12288 Core2 Duo Mobile 4",
                                  "0 E5300 1067A 2600 2048 Pentium 2",
                                  "3 9350 0 1730 24576 Itanium 2 4",
                                  "0 713 695 1100 1024 Pentium M 1"};
    for (const char* q : quoted) {
        bool found = false;
        for (unsigned i = 0; i < newIntelTableRows; ++i) {
            const IntelModelRow& r = newIntelTable[i];
            char text[128];
            std::snprintf(text, sizeof text, "%u %s %X %.0f %d %s %d", r.brand, r.model,
                          r.signature, r.speed, r.cache, r.family, r.cores);
            found = found || std::strcmp(text, q) == 0;
        }
        EXPECT_TRUE(found) << q;
    }
}

TEST(IntelTable, MatchesDataFile) {
    std::ifstream in(INVSCAN_TEST_DATA "/../../src/invscan/scanners/intel_model_table.csv");
    ASSERT_TRUE(in);
    std::string line;
    std::getline(in, line);
    unsigned row = 0;
    for (; std::getline(in, line) && row < newIntelTableRows; ++row) {
        const IntelModelRow& r = newIntelTable[row];
        std::ostringstream expected;
        expected << r.brand << ',' << r.model << ',';
        if (r.signature)
            expected << "0x" << std::uppercase << std::hex << r.signature << std::dec;
        else
            expected << '0';
        expected << ',' << r.speed << ',' << r.cache << ',' << r.family << ',' << r.cores << ','
                 << r.threads << ',';
        EXPECT_EQ(line.compare(0, expected.str().size(), expected.str()), 0)
            << "line " << row + 2 << ": " << line << " vs " << expected.str();
    }
    EXPECT_EQ(row, newIntelTableRows);
    EXPECT_FALSE(std::getline(in, line));
}
