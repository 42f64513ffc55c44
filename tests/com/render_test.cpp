#include <gtest/gtest.h>

#include "invscan/ZelRender.h"
#include "invscan/ZelTable.h"
#include "invscan/ZelTableRow.h"

#include <clocale>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

// Runs fn with a temporary FILE* and returns what it wrote.
template <typename Fn> std::string written(Fn fn) {
    std::FILE* f = std::tmpfile();
    fn(f);
    std::fflush(f);
    std::rewind(f);
    std::string out;
    char buf[256];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0)
        out.append(buf, n);
    std::fclose(f);
    return out;
}

std::string fileForm(const ZelTableAttrib& a) {
    return written([&](std::FILE* f) { PrintZelAttribValueToFile(f, a.getAttribPtr()); });
}

TEST(Render, FileWriterByType) {
    const unsigned char octets[] = {0x0A, 0xFF};
    struct {
        ZelTableAttrib* attrib;
        const char* expected;
    } cases[] = {
        {new ZelTableAttrib(1UL, static_cast<unsigned char>(10)), "0x0A"},
        {new ZelTableAttrib(1UL, static_cast<unsigned short>(65535)), "65535"},
        {new ZelTableAttrib(1UL, 4294967295UL), "4294967295"},
        {new ZelTableAttrib(1UL, uquad{0xFFFFFFFF, 7}), "-1"}, // first word, signed
        {new ZelTableAttrib(1UL, 1.5), "1.500000"},
        {new ZelTableAttrib(1UL, 0.25f), "0.250000"},
        {new ZelTableAttrib(1UL, "a\"b\\c\td"), "a\\\"b\\\\c\\x09d"},
        {new ZelTableAttrib(1UL, ""), ""},
        {new ZelTableAttrib(1UL, octets, 2UL), "\"0AFF\""},
        {new ZelTableAttrib(1UL, octets, 0UL), ""},
        {new ZelTableAttrib(1UL, 18446744073709551615ULL), "18446744073709551615"},
        {new ZelTableAttrib(1UL, -5LL), "-5"},
    };
    for (auto& c : cases) {
        EXPECT_EQ(fileForm(*c.attrib), c.expected);
        delete c.attrib;
    }
}

TEST(Render, DmtfEscape) {
    struct {
        const wchar_t* in;
        const wchar_t* out;
    } cases[] = {
        {L"\t", L"\\x09"},    {L"\x1f", L"\\x1f"},        {L"\"", L"\\\""},      {L"\\", L"\\\\"},
        {L"plain", L"plain"}, {L"\x7f\xe9", L"\x7f\xe9"}, {L"a\nb", L"a\\x0ab"},
    };
    for (auto& c : cases) {
        wchar_t* e = dmtf_escape(c.in);
        EXPECT_STREQ(e, c.out);
        if (e != c.in) delete[] e;
    }
    const wchar_t* empty = L"";
    EXPECT_EQ(dmtf_escape(empty), empty);
}

TEST(Render, FloatIgnoresTheProcessLocale) {
    const char* candidates[] = {"de_DE.UTF-8", "fr_FR.UTF-8", "de_DE"};
    std::string before = std::setlocale(LC_NUMERIC, nullptr);
    const char* used = nullptr;
    for (const char* c : candidates)
        if ((used = std::setlocale(LC_NUMERIC, c))) break;
    if (!used) GTEST_SKIP() << "no locale with a decimal comma is installed";
    char probe[16];
    std::snprintf(probe, sizeof probe, "%.1f", 1.5);
    EXPECT_STREQ(probe, "1,5");
    std::string active = std::setlocale(LC_NUMERIC, nullptr);
    EXPECT_EQ(written([](std::FILE* f) { PrintZelFloat(f, 1.5); }), "1.500000");
    EXPECT_EQ(std::setlocale(LC_NUMERIC, nullptr), active);
    std::setlocale(LC_NUMERIC, before.c_str());
}

TEST(Render, DumpOfValues) {
    ZelTableAttrib ull(0x10UL, 0x123456789ULL);
    testing::internal::CaptureStdout();
    ull.toString();
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out,
              "\n\t\t---len      : 20\n\t\t   attribId : x00000010"
              "\n\t\t   zel_type : 10 (ZEL_ULONGLONG)\n\t\t   value    : 4886718345 (0x        "
              "23456789)");

    ZelTableAttrib ul(2UL, 255UL);
    testing::internal::CaptureStdout();
    ul.toString();
    EXPECT_NE(testing::internal::GetCapturedStdout().find("value    : 255 (0x000000FF)"),
              std::string::npos);

    ZelTableAttrib us(2UL, static_cast<unsigned short>(10));
    testing::internal::CaptureStdout();
    us.toString();
    EXPECT_NE(testing::internal::GetCapturedStdout().find("value    : 10 (0x000A)"),
              std::string::npos);

    unsigned char bogus[16] = {16, 0, 0, 0, 1, 0, 0, 0, 99, 0, 0, 0};
    testing::internal::CaptureStdout();
    PrintZelAttribValue(bogus);
    std::string b = testing::internal::GetCapturedStdout();
    EXPECT_NE(b.find("99 (Undefined Attrib Type)"), std::string::npos);
    EXPECT_NE(b.find("Unknown attrib value type"), std::string::npos);
}

// A block laid out from words, in an allocation exactly as long as it says, so
// that a read past its end is a fault under AddressSanitizer.
std::vector<unsigned char> block(std::initializer_list<uint32_t> words, size_t length) {
    std::vector<unsigned char> b(length);
    size_t at = 0;
    for (uint32_t w : words) {
        for (int i = 0; i < 4 && at < length; ++i)
            b[at++] = static_cast<unsigned char>(w >> 8 * i);
    }
    return b;
}

TEST(Render, IncompleteBlocksAreNotReadPastTheirEnd) {
    struct {
        std::vector<unsigned char> b;
        const char* file; // what the file writer writes
    } cases[] = {
        {block({8, 1, ZEL_ULONG}, 8), ""},   // shorter than the header
        {block({12, 1, ZEL_ULONG}, 12), ""}, // no room for the value
        {block({16, 1, ZEL_DOUBLE, 0}, 16), ""},
        {block({30, 1, ZEL_DATETIME}, 30), ""},
        {block({20, 1, ZEL_STRING, 5, 'a'}, 20), ""}, // N says 5 characters
        {block({20, 1, ZEL_STRING, 0xFFFFFFFF, 'a'}, 20), ""},
        {block({18, 1, ZEL_OCTETSTRING, 3}, 18), ""}, // count says 3 bytes
        {block({15, 1, ZEL_OCTETSTRING}, 15), ""},
        // Exactly complete blocks still print.
        {block({16, 1, ZEL_ULONG, 7}, 16), "7"},
        {block({24, 1, ZEL_STRING, 2, 'a', 0}, 24), "a"},
        {block({17, 1, ZEL_OCTETSTRING, 1, 0xAB}, 17), "\"AB\""},
        {block({12, 1, 99}, 12), ""},
    };
    for (auto& c : cases) {
        EXPECT_EQ(written([&](std::FILE* f) { PrintZelAttribValueToFile(f, c.b.data()); }), c.file);
        testing::internal::CaptureStdout();
        PrintZelAttribValue(c.b.data());
        std::string dump = testing::internal::GetCapturedStdout();
        bool complete = zelBlockIsComplete(c.b.data());
        EXPECT_EQ(dump.find("Malformed attrib value") != std::string::npos, !complete) << dump;
    }
    EXPECT_FALSE(zelBlockIsComplete(nullptr));
}

TEST(Render, StringsOutsideTheLocaleAreNotDropped) {
    std::string before = std::setlocale(LC_CTYPE, nullptr);
    std::setlocale(LC_CTYPE, "C");
    auto b = block({32, 1, ZEL_STRING, 4, 'c', 0xE9, 'a', 0}, 32);
    EXPECT_EQ(written([&](std::FILE* f) {
                  std::fputc('[', f);
                  PrintZelAttribValueToFile(f, b.data());
                  std::fputc(']', f);
              }),
              "[c\xE9"
              "a]");
    // Beyond one byte and outside the locale: a stand-in, and the rest follows.
    auto wide = block({28, 1, ZEL_STRING, 3, 0x20AC, 'a', 0}, 28);
    EXPECT_EQ(written([&](std::FILE* f) { PrintZelAttribValueToFile(f, wide.data()); }), "?a");
    // Text read in this locale is written back byte for byte.
    ZelTableAttrib utf8(1UL, "caf\xC3\xA9");
    EXPECT_EQ(written([&](std::FILE* f) { PrintZelAttribValueToFile(f, utf8.getAttribPtr()); }),
              "caf\xC3\xA9");
    if (std::setlocale(LC_CTYPE, "C.UTF-8")) {
        EXPECT_EQ(written([&](std::FILE* f) { PrintZelAttribValueToFile(f, b.data()); }),
                  "c\xc3\xa9"
                  "a");
    }
    std::setlocale(LC_CTYPE, before.c_str());
}

TEST(Render, TableDump) {
    ZelTable table(20UL, 1UL);
    auto* row = new ZelTableRow();
    row->addAttrib(new ZelTableAttrib(2UL, 2UL));
    table.addRow(row);
    testing::internal::CaptureStdout();
    table.toString();
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.rfind("\n--------Table Scan Info (00000014) ver=1\nRows=1\n\t Attribs=1\n", 0),
              0u);
}

TEST(Render, BuildStamp) {
    const std::string stamp = getBuildDateVMQT();
    EXPECT_TRUE(testing::internal::RE::FullMatch(
        stamp, "20[0-9][0-9]-[0-9][0-9]-[0-9][0-9]-[0-9][0-9]\\.[0-9][0-9]\\.[0-9][0-9]\\.000000"))
        << stamp;
    EXPECT_EQ(stamp.substr(2, 2), std::string(VMQT_BuildDate, 2));
}

} // namespace
