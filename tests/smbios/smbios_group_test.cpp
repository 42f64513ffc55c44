// The SMBIOS group: attribute order, cleaning, fingerprint members and the power-on
// password states.
#include "invscan/GroupFactory.h"
#include "invscan/SMBIOSGroup.h"
#include "invscan/ZelRender.h"
#include "invscan/md5.h"
#include "smbios_builder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>

namespace {

std::string md5Of(const std::string& s) {
    char* d = md5_checksum(s.c_str());
    std::string r = d ? d : "";
    std::free(d);
    return r;
}

struct Machine {
    const char* name;
    TableBuilder table;
    std::map<unsigned long, std::string> want;
};

TEST(SMBIOSGroup, Rows) {
    std::vector<Machine> cases;
    {
        // Full identity; the serial numbers, date and asset tag stay out of the fingerprint.
        TableBuilder b;
        b.add(0, type0Fields(0x0F), {"  Apple Inc. ", "MBP51.88Z.007E.B05", "12/25/03"})
            .add(1, type1Fields(1, 2, 3, 4), {"Apple Inc.", "MacBookPro5,1", "1.0", "W8913"})
            .add(2, {1, 2, 3, 4}, {"Apple Inc.", "Mac-F42D86C8", "PVT", "W89130"})
            .add(3, {1, 0x89, 2, 3, 4}, {"Apple Inc.", "Mac-F42D86C8", "W8913X", "Asset-1234"})
            .add(24, {0x40})
            .end();
        cases.push_back(
            {"full",
             b,
             {{1, "Apple Inc."},
              {2, "MBP51.88Z.007E.B05"},
              {3, "2003-12-25"},
              {4, "1024K"},
              {5, "Apple Inc."},
              {6, "MacBookPro5,1"},
              {7, "1.0"},
              {8, "W8913"},
              {10, "Apple Inc."},
              {11, "Mac-F42D86C8"},
              {12, "PVT"},
              {13, "W89130"},
              {14, "Apple Inc."},
              {15, "9"},
              {16, "Mac-F42D86C8"},
              {17, "W8913X"},
              {18, "Asset-1234"},
              {19, md5Of("Apple Inc.MBP51.88Z.007E.B051024KApple Inc.MacBookPro5,11.0Apple Inc."
                         "Mac-F42D86C8PVTApple Inc.9Mac-F42D86C8")},
              {20, "1"}}});
    }
    {
        // No board, a placeholder version, chassis type out of range.
        TableBuilder b;
        b.add(0, type0Fields(0x07), {"Phoenix", "A05", "2013/12/25"})
            .add(1, type1Fields(1, 2, 3, 0), {"Dell Inc.", "Latitude", "Not Available"})
            .add(3, {1, 0x1A, 0, 0, 0}, {"Dell Inc."})
            .add(24, {0x80})
            .end();
        cases.push_back({"no board",
                         b,
                         {{1, "Phoenix"},
                          {2, "A05"},
                          {3, "2/25-20-3/"},
                          {4, "512K"},
                          {5, "Dell Inc."},
                          {6, "Latitude"},
                          {14, "Dell Inc."},
                          {19, md5Of("PhoenixA05512KDell Inc.Latitude|Dell Inc.|")},
                          {20, "2"}}});
    }
    {
        // Only a board whose strings are all placeholders or missing: the row holds no
        // attribute before the fingerprint, so there is none; no type 24.
        TableBuilder b;
        b.add(2, {1, 0, 2, 0}, {"System Manufacturer", "System Model"}).end();
        cases.push_back({"placeholders", b, {{20, "3"}}});
    }
    {
        TableBuilder b;
        b.add(24, {0xC0}).end();
        cases.push_back({"security only", b, {{20, "2"}}});
    }
    for (Machine& m : cases) {
        auto t = m.table.parse();
        SMBIOSGroup g;
        ZelTable* table = g.buildTable(t.get());
        ASSERT_NE(table, nullptr) << m.name;
        EXPECT_EQ(table->getGroupId(), 24u);
        EXPECT_EQ(table->getRowCount(), 1u);
        EXPECT_EQ(groupRow(table), m.want) << m.name;
        delete table;
    }
}

TEST(SMBIOSGroup, NoDataNoTable) {
    SMBIOSGroup g;
    EXPECT_EQ(g.getTable(), nullptr);
    SMBIOSTable empty("/nonexistent");
    EXPECT_EQ(g.buildTable(&empty), nullptr);
}

TEST(SMBIOSGroup, FactoryHandsOutTheGroup) {
    TableBuilder b;
    b.add(1, type1Fields(1, 2, 0, 0), {"QEMU", "Standard PC"}).end();
    GlobalTableScope scope(b.parse());
    ZelGroup* g = GroupFactory::getInstance()->getZELGroup(24);
    ASSERT_NE(g, nullptr);
    ZelTable* table = g->getTable();
    auto row = groupRow(table);
    EXPECT_EQ(row[5], "QEMU");
    EXPECT_EQ(row[6], "Standard PC");
    EXPECT_EQ(row[20], "3");
    delete table;
    delete g;
}

} // namespace
