// The structure walk: caps, first-wins, the end marker, the advancing rules, string
// sets, hostile tables, the table file and the shared instance.
#include "invscan/MacInfo.h"
#include "invscan/SMBIOSTable.h"
#include "smbios_builder.h"
#include "invscan/vtree.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

namespace {

TEST(SMBIOSWalk, CapsPerType) {
    struct Case {
        int type;
        int cap;
        int (SMBIOSTable::*total)() const;
    };
    const Case cases[] = {
        {4, 80, &SMBIOSTable::getTable4Total},   {6, 12, &SMBIOSTable::getTable6Total},
        {8, 20, &SMBIOSTable::getTable8Total},   {9, 20, &SMBIOSTable::getTable9Total},
        {10, 20, &SMBIOSTable::getTable10Total}, {17, 1000, &SMBIOSTable::getTable17Total}};
    for (const Case& c : cases) {
        TableBuilder b;
        for (int i = 0; i < c.cap + 1; ++i)
            b.add(c.type, std::vector<uint8_t>(0x18, 0), {"x"});
        b.add(0, type0Fields(), {"After", "cap"}).end();
        auto t = b.parse();
        EXPECT_EQ((t.get()->*c.total)(), c.cap) << "type " << c.type;
        // The structure after the skipped one is still found.
        ASSERT_NE(t->getTable0(), nullptr) << "type " << c.type;
        EXPECT_STREQ(t->getTable0()->getVendor(), "After");
    }
}

TEST(SMBIOSWalk, FirstStructureOfSingleTypesWins) {
    const int singles[] = {0, 1, 2, 3, 5, 16, 22, 24};
    for (int type : singles) {
        TableBuilder b;
        std::vector<uint8_t> f(0x1B, 0);
        f[0] = 1; // first string field
        if (type == 24) f[0] = 0x40;
        if (type == 5 || type == 16) {
            b.add(type, std::vector<uint8_t>(0x0F, 0x11))
                .add(type, std::vector<uint8_t>(0x0F, 0x22));
        } else {
            b.add(type, f, {"first"}).add(type, f, {"second"});
        }
        b.end();
        auto t = b.parse();
        switch (type) {
        case 0:
            EXPECT_STREQ(t->getTable0()->getVendor(), "first");
            break;
        case 1:
            EXPECT_STREQ(t->getTable1()->getManufacturer(), "first");
            break;
        case 2:
            EXPECT_STREQ(t->getTable2()->getManufacturer(), "first");
            break;
        case 3:
            EXPECT_STREQ(t->getTable3()->getManufacturer(), "first");
            break;
        case 5:
            EXPECT_EQ(t->getTable5()->getMaximumMemoryModuleSize(), 0x11u);
            break;
        case 16:
            EXPECT_EQ(t->getTable16()->getNumMemDevices(), 0x1111u);
            break;
        case 24:
            EXPECT_EQ(t->getTable24()->getHWSecStatus(), 0x40u);
            break;
        default:
            break;
        }
    }
}

TEST(SMBIOSWalk, EndMarkerOemAndType11) {
    TableBuilder b;
    b.add(11, {2}, {"oem one", "oem two"})
        .add(0x80, {1, 2, 3}, {"vendor junk"})
        .add(0xDA, std::vector<uint8_t>(20, 0xFF))
        .add(2, {1, 2, 0, 0}, {"Board maker", "Board"})
        .end()
        .add(1, type1Fields(1, 2, 0, 0), {"after", "end"});
    auto t = b.parse();
    EXPECT_EQ(t->getTable11(), nullptr);
    ASSERT_NE(t->getTable2(), nullptr);
    EXPECT_STREQ(t->getTable2()->getProduct(), "Board");
    EXPECT_EQ(t->getTable1(), nullptr) << "nothing after type 127 is read";
}

TEST(SMBIOSWalk, Type5WithoutTerminatorAndType16ZeroRuns) {
    // Type 5 followed directly by the next structure; type 16 followed by extra zeros.
    TableBuilder b;
    b.raw({5, 0x0F, 0, 0, 3, 3, 0x0E, 0x02, 0x0B});
    b.raw({0, 0, 0, 0, 0x02, 4}); // supported speeds/types, voltage, slots
    b.add(16, cat({{3, 3, 3}, le32(8u << 20), le16(0xFFFE), le16(2)}));
    b.raw({0, 0, 0});
    b.add(2, {1, 0, 0, 0}, {"V"}).end();
    auto t = b.parse();
    ASSERT_NE(t->getTable5(), nullptr);
    EXPECT_EQ(t->getTable5()->getMaximumMemoryModuleSize(), 0x0Bu);
    EXPECT_EQ(t->getTable5()->getNumAssocMemorySlots(), 4u);
    ASSERT_NE(t->getTable16(), nullptr);
    EXPECT_EQ(t->getTable16()->getMaxCapacity(), 8u << 20);
    EXPECT_EQ(t->getTable16()->getNumMemDevices(), 2u);
    // Neither reads a string set: the set length stays at the header read's 1.
    EXPECT_EQ(t->getTable5()->getStringSetLength(), 1);
    EXPECT_EQ(t->getTable16()->getStringSetLength(), 1);
    ASSERT_NE(t->getTable2(), nullptr);
    EXPECT_STREQ(t->getTable2()->getManufacturer(), "V");
}

TEST(SMBIOSWalk, GetNextType) {
    TableBuilder b;
    b.add(0x90, {1, 2}, {"ab", "c"});               // 0: 6 bytes + "ab\0c\0\0"
    b.raw({5, 6, 0, 0, 9, 9, 1, 0x04, 0, 0});       // 12: type 5, no terminator
    b.raw({5, 5, 0, 0, 9, 0, 0, 0x7F, 4, 0, 0, 0}); // 22: type 5 with its two zeros
    SMBIOSTable t(b.bytes.data(), static_cast<int>(b.bytes.size()), 0, 0);
    EXPECT_EQ(t.getNextType(t.getData(), 0), 12);
    EXPECT_EQ(t.getNextType(t.getData(), 12), 18);
    EXPECT_EQ(t.getNextType(t.getData(), 22), 29);
}

TEST(SMBIOSStrings, SetLengthsAndIndexes) {
    struct Case {
        std::vector<std::string> strings;
        int setLength;
    };
    const Case cases[] = {{{}, 2}, {{"A", "B"}, 5}, {{"abc"}, 5}};
    for (const Case& c : cases) {
        TableBuilder b;
        b.add(2, {1, 2, 3, 0}, c.strings).end();
        auto t = b.parse();
        const SMBIOSTable2Data* r = t->getTable2();
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(r->getStringSetLength(), c.setLength);
        EXPECT_EQ(r->stringFromIndex(0), nullptr);
        EXPECT_EQ(r->stringFromIndex(-1), nullptr);
        EXPECT_EQ(r->stringFromIndex(16), nullptr);
        for (size_t i = 0; i < 3; ++i) {
            const char* s = r->stringFromIndex(static_cast<int>(i + 1));
            if (i < c.strings.size())
                EXPECT_STREQ(s, c.strings[i].c_str());
            else
                EXPECT_EQ(s, nullptr) << i;
        }
    }
}

TEST(SMBIOSStrings, MoreThanFifteenStringsKeepTheWalkInStep) {
    std::vector<std::string> many;
    for (int i = 1; i <= 24; ++i)
        many.push_back("s" + std::to_string(i));
    TableBuilder b;
    b.add(2, {15, 16, 1, 24}, many).add(3, {1, 0x0A, 0, 0, 0}, {"Chassis maker"}).end();
    auto t = b.parse();
    ASSERT_NE(t->getTable2(), nullptr);
    EXPECT_STREQ(t->getTable2()->getManufacturer(), "s15");
    EXPECT_EQ(t->getTable2()->getProduct(), nullptr);
    EXPECT_EQ(t->getTable2()->getSerialNumber(), nullptr);
    ASSERT_NE(t->getTable3(), nullptr);
    EXPECT_STREQ(t->getTable3()->getManufacturer(), "Chassis maker");
}

TEST(SMBIOSStrings, RemoveInvalidChars) {
    char out[16];
    EXPECT_EQ(SMBIOSTableData::removeInvalidChars(out, nullptr), nullptr);
    EXPECT_STREQ(SMBIOSTableData::removeInvalidChars(out, "a\tb\x7F\xC3z"), "a.b..z");
}

TEST(SMBIOSValidate, Cleaning) {
    struct Case {
        const char* in;
        const char* out;
    };
    const Case cases[] = {
        {"  MacBookPro5,1  ", "MacBookPro5,1"},
        {"Not Available", ""},
        {"xx Not Available yy", ""},
        {"To Be Filled By O.E.M. This is OEM", ""},
        {"System Manufacturer", ""},
        {"System Model", ""},
        {"No Asset Information", ""},
        {"Serial\x01tail", "Serial"},
        {"Caf\xC3\xA9 board", "Caf"},
        {"line one\nline two", "line one"},
        {"ends with blanks \x05 after", "ends with blanks"},
        {"", ""},
        {"   ", ""},
    };
    for (const Case& c : cases) {
        char out[64];
        EXPECT_STREQ(SMBIOSTable::validateString(c.in, out), c.out) << c.in;
    }
    char out[4] = "xyz";
    EXPECT_STREQ(SMBIOSTable::validateString(nullptr, out), "");
}

// Hostile tables: none of these may read or write outside the buffer (the sanitizer
// build checks that); the walk keeps what it read before the damage.
TEST(SMBIOSHostile, BrokenTablesAreSurvived) {
    TableBuilder good;
    good.add(0, type0Fields(), {"Vendor", "1.0", "12/25/2003"});
    std::vector<std::vector<uint8_t>> inputs;
    auto with = [&](std::vector<uint8_t> tail) {
        std::vector<uint8_t> v = good.bytes;
        v.insert(v.end(), tail.begin(), tail.end());
        inputs.push_back(v);
    };
    with({1, 0, 0, 0, 0, 0, 0, 0});              // length 0
    with({2, 3, 0, 0, 1, 1, 1, 1});              // length 3
    with({17, 0x22, 0, 0, 1, 2});                // cut in the formatted area
    with({2, 8, 0, 0, 1, 2, 3, 4, 'a', 'b'});    // cut in a string
    with({2, 8, 0, 0, 9, 200, 3, 4, 'x', 0, 0}); // string numbers past the set
    with({5, 0x0F, 0, 0, 1});                    // type 5 at the very end
    with({16, 0x0F, 0, 0});                      // type 16 at the very end
    with({5, 0xFF, 0, 0, 0, 0, 0, 0});           // length past the end
    with({4, 0xFF, 0, 0, 1, 3, 1, 1, 0, 0});
    for (size_t i = 0; i < inputs.size(); ++i) {
        const std::vector<uint8_t>& v = inputs[i];
        for (size_t cut = 0; cut <= v.size(); ++cut) {
            SMBIOSTable t(v.data(), static_cast<int>(cut), 0x24, 1000);
            t.parseData();
            std::FILE* devnull = std::fopen("/dev/null", "w");
            t.dump(devnull);
            std::fclose(devnull);
        }
        SMBIOSTable t(v.data(), static_cast<int>(v.size()), 0, static_cast<int>(v.size() / 4));
        t.parseData();
        ASSERT_NE(t.getTable0(), nullptr) << i;
        EXPECT_STREQ(t.getTable0()->getVendor(), "Vendor") << i;
    }
}

TEST(SMBIOSHostile, LengthBelowFourEndsTheWalk) {
    TableBuilder b;
    b.add(0, type0Fields(), {"V"})
        .raw({1, 2, 0, 0, 0, 0})
        .add(2, {1, 0, 0, 0}, {"unreached"})
        .end();
    auto t = b.parse();
    EXPECT_NE(t->getTable0(), nullptr);
    EXPECT_EQ(t->getTable2(), nullptr);
}

TEST(SMBIOSTableFile, RoundTripIsExact) {
    TableBuilder b;
    b.add(0, type0Fields(), {"Vendor", "1.0", "12/25/2003"})
        .add(0x81, std::vector<uint8_t>(40, 0xA5))
        .end();
    const std::string path = scratchPath("smbios_roundtrip.txt");
    SMBIOSTable src(b.bytes.data(), static_cast<int>(b.bytes.size()), 0x24, 3);
    src.writeBytesToFile(path.c_str());

    std::ifstream in(path);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    char head[160];
    std::snprintf(head, sizeof head,
                  "SMBIOS File Format=0x0001\nSMBIOS Length=0x%04X\nSMBIOS NumTables=0x0003\n"
                  "SMBIOS Revision=0x24\nSMBIOS Data=\n0x00 0x13 0x00 0x00 0x01 ",
                  static_cast<unsigned>(b.bytes.size()));
    EXPECT_EQ(text.rfind(head, 0), 0u) << text;
    EXPECT_EQ(text.back(), '\n');

    SMBIOSTable back(path.c_str());
    EXPECT_FALSE(back.isAvailable());
    ASSERT_EQ(back.getTotalLength(), src.getTotalLength());
    EXPECT_EQ(back.getNumTables(), 3);
    EXPECT_EQ(back.getRevision(), 0x24);
    EXPECT_EQ(std::memcmp(back.getData(), src.getData(), b.bytes.size()), 0);
    back.parseData();
    ASSERT_NE(back.getTable0(), nullptr);
    EXPECT_STREQ(back.getTable0()->getReleaseDate(), "12/25/2003");
    std::remove(path.c_str());

    SMBIOSTable empty(nullptr, 0, 0, 0);
    empty.writeBytesToFile(path.c_str());
    std::ifstream in2(path);
    std::string text2((std::istreambuf_iterator<char>(in2)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text2.substr(text2.size() - 13), "SMBIOS Data=\n");
    std::remove(path.c_str());

    SMBIOSTable missing("/nonexistent/smbios.txt");
    EXPECT_EQ(missing.getTotalLength(), 0);
    EXPECT_EQ(missing.getData(), nullptr);
}

TEST(SMBIOSTableFile, WrongFormatEndsTheProcess) {
    const std::string path = scratchPath("smbios_badformat.txt");
    std::FILE* f = std::fopen(path.c_str(), "w");
    std::fputs("SMBIOS File Format=0x0002\n", f);
    std::fclose(f);
    EXPECT_EXIT({ SMBIOSTable t(path.c_str()); }, testing::ExitedWithCode(255), "");
    std::remove(path.c_str());
}

TEST(SMBIOSShared, SnapshotSourceAndReferenceCount) {
    TableBuilder b;
    b.add(0, type0Fields(), {"Apple Inc.", "MBP51.88Z", "12/25/2003"}).end();
    MacInfo::setIoKit(snapshotWith(b.bytes));
    // Set aside an instance that an earlier test (the factory's initialise) created.
    SMBIOSTable* saved = globalSMBIOSTable;
    globalSMBIOSTable = nullptr;
    SMBIOSTable::initializeGlobalTable(1);
    SMBIOSTable* first = globalSMBIOSTable;
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(first->isAvailable());
    EXPECT_EQ(first->getRevision(), 0);
    EXPECT_EQ(first->getTotalLength(), static_cast<int>(b.bytes.size()));
    EXPECT_EQ(first->getNumTables(), static_cast<int>(b.bytes.size() / 4));
    ASSERT_NE(first->getTable0(), nullptr);
    EXPECT_STREQ(first->getTable0()->getVendor(), "Apple Inc.");

    SMBIOSTable::initializeGlobalTable(1);
    EXPECT_EQ(globalSMBIOSTable, first);
    SMBIOSTable::terminateGlobalTable();
    EXPECT_EQ(globalSMBIOSTable, first);
    SMBIOSTable::terminateGlobalTable();
    EXPECT_EQ(globalSMBIOSTable, nullptr);
    SMBIOSTable::terminateGlobalTable(); // one too many is harmless

    // Without parsing, a later request to parse does not parse.
    SMBIOSTable::initializeGlobalTable(0);
    SMBIOSTable::initializeGlobalTable(1);
    EXPECT_EQ(globalSMBIOSTable->getTable0(), nullptr);
    SMBIOSTable::terminateGlobalTable();
    SMBIOSTable::terminateGlobalTable();

    // Missing class entry: no data, and the legacy path cannot read memory here.
    MacInfo::setIoKit(snapshotWith(b.bytes, false));
    SMBIOSTable live;
    EXPECT_FALSE(live.isAvailable());
    EXPECT_EQ(live.getData(), nullptr);
    MacInfo::setIoKit(nullptr);
    globalSMBIOSTable = saved;
}

} // namespace
