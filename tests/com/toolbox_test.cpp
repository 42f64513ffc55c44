#include <gtest/gtest.h>

#include "invscan/Toolbox.h"

#include <cstdio>
#include <string>

namespace {

struct MatchCase {
    const char* text;
    const char* pattern;
    bool result;
    std::map<std::string, std::string> expected;
};

class ToolboxMatch : public ::testing::TestWithParam<MatchCase> {};

TEST_P(ToolboxMatch, FillsCapturesMatchedAndRest) {
    const MatchCase& c = GetParam();
    std::map<std::string, std::string> fields;
    EXPECT_EQ(Toolbox::match(c.text, c.pattern, fields), c.result);
    for (const auto& kv : c.expected)
        EXPECT_EQ(fields[kv.first], kv.second) << kv.first;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ToolboxMatch,
    ::testing::Values(
        MatchCase{"Intel(R) Core(TM)2 CPU T7200",
                  "Intel(R) %family CPU %model",
                  true,
                  {{"family", "Core(TM)2"},
                   {"model", "T7200"},
                   {"matched", "Intel(R) Core(TM)2 CPU T7200"},
                   {"rest", ""}}},
        MatchCase{"a b c d", "a %x", false, {{"x", "b"}, {"matched", "a b"}, {"rest", " c d"}}},
        MatchCase{"one two", "%w %w", true, {{"w", "one two"}}},
        MatchCase{"a", "a b", false, {{"matched", "a"}, {"rest", ""}}},
        MatchCase{"  padded   text ", "padded text", true, {{"matched", "padded   text"}}},
        MatchCase{"x y", "X y", false, {{"matched", ""}, {"rest", "x y"}}},
        MatchCase{"lone", "%", true, {{"", "lone"}}}));

TEST(Toolbox, MatchRejectsNullArguments) {
    std::map<std::string, std::string> f;
    EXPECT_FALSE(Toolbox::match(nullptr, "a", f));
    EXPECT_FALSE(Toolbox::match("a", nullptr, f));
    EXPECT_TRUE(f.empty());
}

TEST(Toolbox, CompareVersions) {
    struct {
        const char *a, *b;
        int expected;
    } cases[] = {
        {"10.4.11", "10.5", -1},
        {"2", "2.0", 0},
        {"0", "1", -1},
        {"1.010", "1.8", 0},
        {"10.6.8", "10.6.7", 1},
        {"", "1", -1},
        {nullptr, "1", -1},
        {"x1", "1", -1},
        {"1.08", "1.0", 0},
        {"0x10", "16", 0},
        // Date-like components overflow 32 bits once scaled; 32-bit hosts agree.
        {"20210315", "20200101", 1},
        {"429497", "1", 1},
        {"1", "429497", -1},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Toolbox::compareVersions(c.a, c.b), c.expected)
            << (c.a ? c.a : "null") << " vs " << c.b;
}

TEST(Toolbox, TrimAndTokens) {
    EXPECT_EQ(Toolbox::trim("  ab c \t"), "ab c");
    EXPECT_EQ(Toolbox::trim(" \t \t"), "");
    EXPECT_EQ(Toolbox::trim(nullptr), "");

    int pos = 0;
    EXPECT_EQ(Toolbox::get_token("  ab  cd", pos), "ab");
    EXPECT_EQ(pos, 4);
    EXPECT_EQ(Toolbox::get_token("  ab  cd", pos), "cd");
    EXPECT_EQ(pos, 8);
    EXPECT_EQ(Toolbox::get_token("  ab  cd", pos), "");
    pos = -1;
    EXPECT_EQ(Toolbox::get_token("ab", pos), "");
    pos = 0;
    EXPECT_EQ(Toolbox::get_token("   ", pos), "");
}

TEST(Toolbox, Numbers) {
    long l = 0;
    EXPECT_TRUE(Toolbox::str2long("12abc", l, 10));
    EXPECT_EQ(l, 12);
    l = 7;
    EXPECT_FALSE(Toolbox::str2long("abc", l, 10));
    EXPECT_EQ(l, 7);
    unsigned long u = 0;
    EXPECT_TRUE(Toolbox::str2ulong("0x1F", u, 16));
    EXPECT_EQ(u, 31u);
    EXPECT_FALSE(Toolbox::str2ulong(nullptr, u, 10));
}

TEST(Toolbox, StrCaseStr) {
    const char* hay = "Genuine Intel(R) CPU";
    EXPECT_EQ(Toolbox::strcasestr(hay, "intel"), hay + 8);
    EXPECT_EQ(Toolbox::strcasestr(hay, "cpu"), hay + 17);
    EXPECT_EQ(Toolbox::strcasestr(hay, "amd"), nullptr);
    EXPECT_EQ(Toolbox::strcasestr(hay, ""), nullptr);
    EXPECT_EQ(Toolbox::strcasestr(nullptr, "a"), nullptr);
    EXPECT_EQ(Toolbox::strcasestr("ab", "abc"), nullptr);
}

std::FILE* streamOf(const std::string& text) {
    std::FILE* f = std::tmpfile();
    std::fputs(text.c_str(), f);
    std::rewind(f);
    return f;
}

TEST(Toolbox, GetTokenFromStream) {
    std::FILE* f = streamOf("  first second\nlast");
    EXPECT_STREQ(Toolbox::get_token(f), "first");
    EXPECT_STREQ(Toolbox::get_token(f), "second");
    EXPECT_EQ(Toolbox::get_token(f), nullptr); // no white space after "last"
    std::fclose(f);

    f = streamOf(std::string(99, 'x') + " " + std::string(100, 'y') + " ");
    const char* t = Toolbox::get_token(f);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(std::string(t), std::string(99, 'x'));
    EXPECT_EQ(Toolbox::get_token(f), nullptr); // 100 characters are refused
    std::fclose(f);
}

} // namespace
