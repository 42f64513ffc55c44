// The model table is data: these checks pin its shape (row counts per brand and
// family, unknown signatures, the rows quoted in the design notes) and keep the
// generated source in step with the CSV it is generated from.
#include <gtest/gtest.h>

#include "cpuid_intel_table_new.h"

#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

static_assert(sizeof(void*) != 4 || sizeof(IntelModelRow) == 8 * 4,
              "a table row is eight 32-bit words on ILP32");

TEST(IntelTable, RowCountAndTerminator) {
    ASSERT_EQ(newIntelTableRows, 868u);
    unsigned n = 0;
    while (newIntelTable[n].brand != INTEL_TABLE_END) ++n;
    EXPECT_EQ(n, 868u);
}

TEST(IntelTable, RowsPerBrandAndFamily) {
    const std::map<std::pair<unsigned, std::string>, int> expected = {
        {{0, "Pentium"}, 47},          {{0, "Pentium 4"}, 94},       {{0, "Pentium M"}, 51},
        {{1, "Celeron"}, 14},          {{1, "Celeron D"}, 69},       {{1, "Celeron M"}, 56},
        {{2, "Dual-Core Xeon"}, 73},   {{2, "Quad-Core Xeon"}, 119}, {{2, "Xeon"}, 23},
        {{3, "Itanium 2"}, 26},        {{4, "Core Duo"}, 26},        {{4, "Core Solo"}, 12},
        {{4, "Core2 Duo"}, 38},        {{4, "Core2 Duo Mobile"}, 81}, {{4, "Core2 Extreme"}, 9},
        {{4, "Core2 QUAD"}, 23},       {{5, "Core i3"}, 16},         {{6, "Core i5"}, 28},
        {{7, "Core i7"}, 39},          {{8, "Atom"}, 24},
    };
    std::map<std::pair<unsigned, std::string>, int> counted;
    int unknownSignature = 0;
    for (unsigned i = 0; i < newIntelTableRows; ++i) {
        const IntelModelRow& r = newIntelTable[i];
        ++counted[{r.brand, r.family}];
        if (r.signature == 0) ++unknownSignature;
        EXPECT_EQ(r.threads, -1) << "row " << i;
        EXPECT_LT(r.signature, 1u << 20) << "row " << i;
        EXPECT_GT(r.speed, 0.0f) << "row " << i;
        EXPECT_GT(r.cache, 0) << "row " << i;
        EXPECT_GE(r.cores, 1) << "row " << i;
    }
    EXPECT_EQ(counted, expected);
    // Itanium parts report no x86 signature; a few more rows name parts whose
    // stepping is not known.
    EXPECT_GE(unknownSignature, 40);
    EXPECT_LE(unknownSignature, 50);
}

TEST(IntelTable, QuotedRowsAreExact) {
    struct Quoted {
        unsigned code;
        const char* model;
        uint32_t signature;
        float mhz;
        int cache;
        const char* family;
        int cores;
    };
    const Quoted rows[] = {
        {6, "470UM", 0x20655, 1330, 3072, "Core i5", 2},
        {1, "P4600", 0x20655, 2000, 2048, "Celeron M", 2},
        {8, "D425", 0x106CA, 1800, 512, "Atom", 1},
        {2, "X5472", 0x1067A, 3000, 12288, "Quad-Core Xeon", 4},
        {4, "QX9300", 0x10676, 2530, 12288, "Core2 Duo Mobile", 4},
        {0, "E5300", 0x1067A, 2600, 2048, "Pentium", 2},
        {3, "9350", 0, 1730, 24576, "Itanium 2", 4},
        {0, "713", 0x695, 1100, 1024, "Pentium M", 1},
    };
    for (const Quoted& q : rows) {
        bool found = false;
        for (unsigned i = 0; i < newIntelTableRows && !found; ++i) {
            const IntelModelRow& r = newIntelTable[i];
            found = r.brand == q.code && std::strcmp(r.model, q.model) == 0 &&
                    r.signature == q.signature && r.speed == q.mhz && r.cache == q.cache &&
                    std::strcmp(r.family, q.family) == 0 && r.cores == q.cores;
        }
        EXPECT_TRUE(found) << q.model;
    }
    // Newest first: the first row and the last.
    EXPECT_STREQ(newIntelTable[0].model, "470UM");
    EXPECT_STREQ(newIntelTable[newIntelTableRows - 1].model, "330");
    EXPECT_STREQ(newIntelTable[newIntelTableRows - 1].family, "Pentium M");
}

// The generated source must match the CSV it claims to come from.
TEST(IntelTable, MatchesDataFile) {
    std::ifstream in(INVSCAN_TEST_DATA "/../../src/invscan/scanners/intel_model_table.csv");
    ASSERT_TRUE(in) << "data file not found";
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "code,model,signature,mhz,cache_kb,family,cores,threads,note");
    unsigned row = 0;
    while (std::getline(in, line)) {
        ASSERT_LT(row, newIntelTableRows);
        std::vector<std::string> f;
        std::stringstream ss(line);
        std::string cell;
        for (int i = 0; i < 8 && std::getline(ss, cell, ','); ++i) f.push_back(cell);
        ASSERT_EQ(f.size(), 8u) << "line " << row + 2;
        const IntelModelRow& r = newIntelTable[row];
        EXPECT_EQ(r.brand, std::stoul(f[0])) << row;
        EXPECT_STREQ(r.model, f[1].c_str()) << row;
        EXPECT_EQ(r.signature, std::stoul(f[2], nullptr, 0)) << row;
        EXPECT_EQ(r.speed, std::stof(f[3])) << row;
        EXPECT_EQ(r.cache, std::stoi(f[4])) << row;
        EXPECT_STREQ(r.family, f[5].c_str()) << row;
        EXPECT_EQ(r.cores, std::stoi(f[6])) << row;
        EXPECT_EQ(r.threads, std::stoi(f[7])) << row;
        ++row;
    }
    EXPECT_EQ(row, newIntelTableRows);
}
