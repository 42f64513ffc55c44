// The model table is data generated from its CSV (tools/gen_intel_table.py --check
// keeps the two in step); here its rows are held to the reference listing's order.
#include <gtest/gtest.h>

#include "invscan/cpuid_intel_table_new.h"

#include <fstream>
#include <string>

static_assert(sizeof(void*) != 4 || sizeof(IntelModelRow) == 8 * 4,
              "a table row is eight 32-bit words on ILP32");

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
