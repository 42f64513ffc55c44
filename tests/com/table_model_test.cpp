#include <gtest/gtest.h>

#include "invscan/ZelTable.h"
#include "invscan/ZelTableRow.h"

#include <clocale>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

std::vector<unsigned char> blockOf(const ZelTableAttrib& a) {
    const unsigned char* p = a.getAttribPtr();
    return std::vector<unsigned char>(p, p + zelGet32(p));
}

std::vector<unsigned char> le(std::initializer_list<uint32_t> words) {
    std::vector<unsigned char> out;
    for (uint32_t w : words)
        for (int i = 0; i < 4; ++i)
            out.push_back(static_cast<unsigned char>(w >> (8 * i)));
    return out;
}

std::vector<unsigned char> cat(std::vector<unsigned char> a, const std::vector<unsigned char>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

struct BlockCase {
    const char* what;
    ZelTableAttrib* attrib;
    std::vector<unsigned char> expected;
};

TEST(ZelTableAttrib, ValueBlocksAreByteExact) {
    double d = 1.5;
    uint64_t dbits;
    std::memcpy(&dbits, &d, 8);
    float f = -2.25f;
    uint32_t fbits;
    std::memcpy(&fbits, &f, 4);
    const unsigned char octets[] = {0x0A, 0xFF, 0x00};
    BlockCase cases[] = {
        {"uchar", new ZelTableAttrib(5UL, static_cast<unsigned char>(0xAB)),
         cat(le({13, 5, 1}), {0xAB})},
        {"ushort", new ZelTableAttrib(6UL, static_cast<unsigned short>(0x1234)),
         cat(le({14, 6, 2}), {0x34, 0x12})},
        {"ulong", new ZelTableAttrib(7UL, 0xDEADBEEFUL), le({16, 7, 3, 0xDEADBEEF})},
        {"uquad", new ZelTableAttrib(8UL, uquad{1, 2}), le({20, 8, 4, 1, 2})},
        {"float", new ZelTableAttrib(9UL, f), le({16, 9, 5, fbits})},
        {"double", new ZelTableAttrib(10UL, d),
         le({20, 10, 6, static_cast<uint32_t>(dbits), static_cast<uint32_t>(dbits >> 32)})},
        {"ulonglong", new ZelTableAttrib(11UL, 0x0102030405060708ULL),
         le({20, 11, 10, 0x05060708, 0x01020304})},
        {"longlong", new ZelTableAttrib(12UL, -2LL), le({20, 12, 11, 0xFFFFFFFE, 0xFFFFFFFF})},
        {"octets", new ZelTableAttrib(13UL, octets, 3UL), cat(le({19, 13, 8, 3}), {0x0A, 0xFF, 0})},
        {"no octets", new ZelTableAttrib(14UL, octets, 0UL), le({16, 14, 8, 0})},
        {"string", new ZelTableAttrib(15UL, "abc"), le({32, 15, 7, 4, 'a', 'b', 'c', 0})},
        {"empty string", new ZelTableAttrib(16UL, ""), le({20, 16, 7, 1, 0})},
        {"null string", new ZelTableAttrib(17UL, static_cast<const char*>(nullptr)),
         le({20, 17, 7, 1, 0})},
    };
    for (BlockCase& c : cases) {
        EXPECT_EQ(blockOf(*c.attrib), c.expected) << c.what;
        delete c.attrib;
    }
}

TEST(ZelTableAttrib, StringBlockKeepsItsSizeWhenCharactersAreMultibyte) {
    // Sized from the byte length; the count says how many characters were converted.
    ZelTableAttrib a(1UL, "a\xC3\xA9");
    const unsigned char* p = a.getAttribPtr();
    EXPECT_EQ(zelGet32(p), 12u + 4u * 3 + 8);
    uint32_t n = zelGet32(p + 12);
    if (n == 3) { // a UTF-8 locale
        EXPECT_EQ(zelGet32(p + 20), 0xE9u);
    } else { // the C locale keeps the bytes one by one
        EXPECT_EQ(n, 4u);
        EXPECT_EQ(zelGet32(p + 20), 0xC3u);
    }
}

// Characters of a string block.
std::vector<uint32_t> charsOf(const ZelTableAttrib& a) {
    const unsigned char* p = a.getAttribPtr() + 12;
    std::vector<uint32_t> out;
    for (uint32_t i = 0; i < zelGet32(p); ++i)
        out.push_back(zelGet32(p + 4 + 4 * i));
    return out;
}

TEST(ZelTableAttrib, UndecodableBytesDoNotSpoilTheRestOfTheText) {
    std::string before = std::setlocale(LC_CTYPE, nullptr);
    struct {
        const char* locale;
        const char* text;
        std::vector<uint32_t> chars;
    } cases[] = {
        {"C.UTF-8", "caf\xC3\xA9", {'c', 'a', 'f', 0xE9, 0}},
        // A stray byte keeps its code; the valid sequences around it still decode.
        {"C.UTF-8", "\xC3\xA9 \xFF \xC3\xA9", {0xE9, ' ', 0xFF, ' ', 0xE9, 0}},
        {"C.UTF-8", "x\xC3", {'x', 0xC3, 0}}, // cut inside a sequence
        {"C",
         "a\xE9"
         "b",
         {'a', 0xE9, 'b', 0}},
    };
    for (auto& c : cases) {
        if (!std::setlocale(LC_CTYPE, c.locale)) continue;
        ZelTableAttrib a(1UL, c.text);
        EXPECT_EQ(charsOf(a), c.chars) << c.locale << " " << c.text;
        EXPECT_EQ(zelGet32(a.getAttribPtr()), 12 + SizeAsZelString(c.text));
    }
    std::setlocale(LC_CTYPE, before.c_str());
}

TEST(ZelTableAttrib, DateTimeIsLocalTimeWithSixZeros) {
    std::time_t t = 1000000000; // 2001-09-09 01:46:40 UTC
    std::tm tmv;
    localtime_r(&t, &tmv);
    char expected[96];
    std::snprintf(expected, sizeof expected, "%04d-%02d-%02d-%02d.%02d.%02d.000000",
                  tmv.tm_year + 1900, tmv.tm_mon + 1, tmv.tm_mday, tmv.tm_hour, tmv.tm_min,
                  tmv.tm_sec);
    ZelTableAttrib a(4UL, static_cast<long>(t));
    const unsigned char* p = a.getAttribPtr();
    EXPECT_EQ(zelGet32(p), 38u);
    EXPECT_EQ(zelGet32(p + 8), static_cast<uint32_t>(ZEL_DATETIME));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(p + 12), 26), expected);
}

TEST(ZelTableAttrib, AccessorsAndTypeNames) {
    ZelTableAttrib a(0x42UL, 1UL);
    EXPECT_EQ(a.getId(), 0x42u);
    EXPECT_EQ(a.getType(), static_cast<unsigned long>(ZEL_ULONG));

    const char* names[] = {"Undefined Attrib Type",
                           "ZEL_UCHAR",
                           "ZEL_USHORT",
                           "ZEL_ULONG",
                           "ZEL_UQUAD",
                           "ZEL_FLOAT",
                           "ZEL_DOUBLE",
                           "ZEL_STRING",
                           "ZEL_OCTETSTRING",
                           "ZEL_DATETIME",
                           "ZEL_ULONGLONG",
                           "ZEL_LONGLONG",
                           "Undefined Attrib Type"};
    for (unsigned long code = 0; code <= 12; ++code)
        EXPECT_STREQ(getZelAttribTypeAsString(code), names[code]) << code;
    EXPECT_STREQ(getZelAttribTypeAsString(0x80000000UL), "Undefined Attrib Type");
}

TEST(ZelStringHelpers, SizesAndOffsets) {
    EXPECT_EQ(SizeAsZelString(nullptr), 8u);
    EXPECT_EQ(SizeAsZelString(""), 8u);
    EXPECT_EQ(SizeAsZelString("abc"), 20u);
    unsigned char buf[64];
    unsigned long offset = 100, start = 0;
    EXPECT_EQ(StringToZelString("hi", buf, 3, offset, start), 16u);
    EXPECT_EQ(start, 100u);
    EXPECT_EQ(offset, 116u);
    EXPECT_EQ(SizeofZelString(buf), 16u);
    // A limit shorter than the text cuts it and still terminates.
    EXPECT_EQ(StringToZelString("hello", buf, 3, offset, start), 16u);
    EXPECT_EQ(zelGet32(buf), 3u);
    EXPECT_EQ(zelGet32(buf + 12), 0u);
}

TEST(ZelTableRow, CursorCountsAndNulls) {
    ZelTableRow row;
    EXPECT_EQ(row.getNext(), nullptr);
    auto* a = new ZelTableAttrib(1UL, 1UL);
    auto* b = new ZelTableAttrib(2UL, 2UL);
    EXPECT_EQ(row.addAttrib(a), 1);
    EXPECT_EQ(row.addAttrib(nullptr), 1); // counted, unlike a null table row
    EXPECT_EQ(row.addAttrib(b), 1);
    EXPECT_EQ(row.getNumAttribs(), 3u);
    EXPECT_EQ(row.getNext(), a);
    EXPECT_EQ(row.getNext(), nullptr);
    EXPECT_EQ(row.getNext(), b);
    EXPECT_EQ(row.getNext(), nullptr);
    EXPECT_EQ(row.getNext(), nullptr);
    EXPECT_EQ(row.reset(), 1);
    EXPECT_EQ(row.getNext(), a);
}

TEST(ZelTable, RowsNamesAndCursor) {
    ZelTable table(20UL, 1UL);
    EXPECT_STREQ(table.getGroupName(), "Scan Info");
    EXPECT_NE(table.getTimeStamp(), 0);
    EXPECT_EQ(table.addRow(nullptr), 0);
    EXPECT_EQ(table.getRowCount(), 0u);
    auto* r1 = new ZelTableRow();
    auto* r2 = new ZelTableRow();
    EXPECT_EQ(table.addRow(r1), 1);
    EXPECT_EQ(table.addRow(r2), 1);
    EXPECT_EQ(table.getRowCount(), 2u);
    EXPECT_EQ(table.getNext(), r1);
    EXPECT_EQ(table.getNext(), r2);
    EXPECT_EQ(table.getNext(), nullptr);
    EXPECT_EQ(table.getNext(), nullptr);
    table.reset();
    EXPECT_EQ(table.getNext(), r1);

    ZelTable unknown(2UL, 1UL);
    EXPECT_STREQ(unknown.getGroupName(), "Unknown");
    EXPECT_EQ(unknown.getGroupDefinitionFromId(), nullptr);
    ZelTable own(nullptr, 20UL, 3UL);
    EXPECT_STREQ(own.getGroupName(), "Unknown");
    EXPECT_EQ(own.getGroupVersion(), 3u);
}

class TestGroup : public ZelGroup {
public:
    TestGroup(unsigned long id) : ZelGroup(id, 1) {}
    ZelTable* getTable() override { return nullptr; }
};

TEST(ZelGroup, ExtraTablesAndAttributeLists) {
    TestGroup g(44);
    EXPECT_EQ(g.getGroupName(), String("PhysicalProcessor"));
    EXPECT_EQ(TestGroup(2).getGroupName(), String("Unknown"));
    EXPECT_EQ(g.generateTable(), nullptr);
    ZelTable t1(44UL, 1UL), t2(44UL, 1UL);
    g.addExtraTable(&t1);
    g.addExtraTable(&t2);
    EXPECT_EQ(g.getExtraTableCount(), 2);
    EXPECT_EQ(g.getExtraTable(0), &t1);
    EXPECT_EQ(g.getExtraTable(1), &t2);
    EXPECT_EQ(g.getExtraTable(-1), nullptr);
    EXPECT_EQ(g.getExtraTable(2), nullptr);

    EXPECT_EQ(g.getGroupAttr(L"skipRemote"), nullptr);
    EXPECT_EQ(g.getGlobalAttr(L"skipRemote"), nullptr);
    ZelAttrList empty;
    ZelAttrList list = {{String("a"), String("first")},
                        {String("skipRemote"), String("yes")},
                        {String("a"), String("second")}};
    g.setGroupAttrs(&list);
    g.setGlobalAttrs(&empty);
    EXPECT_STREQ(g.getGroupAttr(L"a"), L"first");
    EXPECT_STREQ(g.getGroupAttr(L"skipRemote"), L"yes");
    EXPECT_EQ(g.getGroupAttr(L"A"), nullptr);
    EXPECT_EQ(g.getGlobalAttr(L"a"), nullptr);
}

} // namespace
