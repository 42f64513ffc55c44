// Variant tree: building, lookup, the dump writer and reader, and their round trip.
#include "invscan/vtree.h"
#include "invscan/VtProcess.h"
#include "invscan/VtStream.h"

#include <gtest/gtest.h>

#include <vector>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>

namespace {

using NodePtr = std::unique_ptr<VtNode>;

std::string dumpToString(void (*write)(std::FILE*, const VtNode*), const VtNode* n) {
    std::FILE* f = std::tmpfile();
    EXPECT_NE(f, nullptr);
    write(f, n);
    std::string out;
    std::rewind(f);
    char buf[4096];
    size_t k;
    while ((k = std::fread(buf, 1, sizeof buf, f)) > 0)
        out.append(buf, k);
    std::fclose(f);
    return out;
}

std::string dumpTree(const VtNode* root) {
    return dumpToString(vtDumpTree, root);
}
std::string dumpNode(const VtNode* n) {
    return dumpToString([](std::FILE* f, const VtNode* x) { vtDumpNode(f, x, 0); }, n);
}

NodePtr parse(const std::string& text, int* err = nullptr) {
    return NodePtr(vtParseDumpBuffer(text.data(), text.size(), err));
}

TEST(VtTree, BuildsListsInInsertionOrder) {
    VtNode root("");
    for (int i = 0; i < 1000; ++i)
        root.addInt("n", i);
    VtNode* a = root.addNode("a");
    root.addNode("b");
    root.addNode("a");
    int i = 0;
    for (VtVariant* v = root.values; v; v = v->next)
        EXPECT_EQ(v->value.i, i++);
    EXPECT_EQ(i, 1000);
    EXPECT_EQ(root.getChild("a", 0), a);
    EXPECT_STREQ(root.getChild(nullptr, 1)->name, "b");
    EXPECT_EQ(root.getChild("a", 1), a->next->next);
    EXPECT_EQ(root.getChild("a", 2), nullptr);
    EXPECT_EQ(root.getChild("A", 0), nullptr); // exact, case-sensitive
}

// Lookups by index answer the same whatever order they come in: the remembered
// position of the last one must never change the answer.
TEST(VtTree, ChildByIndexInAnyOrder) {
    VtNode root("r");
    for (int i = 0; i < 6; ++i)
        root.addNode(i % 2 ? "odd" : "even");
    const struct {
        const char* name;
        int index;
        int expectAt; // position among all children, -1 for none
    } steps[] = {{nullptr, 0, 0},  {nullptr, 1, 1}, {nullptr, 5, 5},   {nullptr, 2, 2},
                 {nullptr, 6, -1}, {nullptr, 3, 3}, {nullptr, -1, -1}, {"odd", 1, 3},
                 {nullptr, 4, 4},  {"even", 2, 4},  {nullptr, 0, 0},   {nullptr, 5, 5}};
    std::vector<VtNode*> all;
    for (VtNode* c = root.children; c; c = c->next)
        all.push_back(c);
    for (const auto& s : steps)
        EXPECT_EQ(root.getChild(s.name, s.index), s.expectAt < 0 ? nullptr : all[s.expectAt])
            << (s.name ? s.name : "null") << " " << s.index;
    // A child appended after a walk is found at the end.
    EXPECT_EQ(root.getChild(nullptr, 5), all[5]);
    VtNode* added = root.addNode("late");
    EXPECT_EQ(root.getChild(nullptr, 6), added);
    EXPECT_EQ(root.getChild(nullptr, 7), nullptr);
}

TEST(VtTree, PathLookup) {
    VtNode root("");
    VtNode* a = root.addNode("a");
    VtNode* b1 = a->addNode("b");
    VtNode* b2 = a->addNode("b");
    b1->addInt("x", 1);
    b2->addInt("x", 2);
    b2->addInt("y", 3);
    a->addString("s", "text");
    a->addInt("s", 9); // a later duplicate is never found
    root.addNode("dotted.name")->addInt("z", 4);

    struct Case {
        const char* path;
        const char* name;
        int expect; // -1: absent or not an integer
    } cases[] = {
        {"a.b", "x", 1},    {"a.b", "y", -1},         {"a.b.", "x", 1},
        {"a", "s", -1},     {"a.c", "x", -1},         {"", "x", -1},
        {nullptr, "x", -1}, {"dotted.name", "z", -1}, {"a..b", "x", -1},
    };
    for (const Case& c : cases)
        EXPECT_EQ(root.getValue(c.path, c.name, -1), c.expect) << (c.path ? c.path : "(null)");
    EXPECT_STREQ(root.getValue("a", "s", "dflt"), "text");
    EXPECT_STREQ(root.getValue("a.b", "x", "dflt"), "dflt");
    EXPECT_EQ(root.getNode(nullptr), &root);
    EXPECT_EQ(root.getNode(""), &root);
}

TEST(VtTree, ExecInfoLookups) {
    VtExecInfo info;
    EXPECT_EQ(vtGetValue(&info, "a", "b", 5), 5);
    EXPECT_EQ(vtGetNode(&info, nullptr, 0), nullptr);
    EXPECT_EQ(vtGetValue(static_cast<VtExecInfo*>(nullptr), "a", "b"), nullptr);
    info.tree = new VtNode("");
    VtNode* sp = info.tree->addNode("SystemProfiler");
    VtNode* sp2 = info.tree->addNode("SystemProfiler");
    sp->addNode("inner")->addString("v", "s");
    EXPECT_EQ(vtGetValue(&info, "SystemProfiler.inner", "v", 5), 5); // string, not int
    EXPECT_STREQ(vtGetValue(&info, "SystemProfiler.inner", "v", "d"), "s");
    EXPECT_EQ(vtGetNode(&info, nullptr, 3), info.tree);
    EXPECT_EQ(vtGetNode(&info, "SystemProfiler", -4), sp);
    EXPECT_EQ(vtGetNode(&info, "SystemProfiler", 1), sp2);
    EXPECT_EQ(vtGetNode(&info, "inner", 0), nullptr); // direct children only
}

TEST(VtDump, WritesEveryValueForm) {
    VtNode n("hw");
    n.addInt("cores", 2);
    n.addInt("neg", -2147483647 - 1);
    n.addString("s", "a b:c=d ");
    n.addReal("f", 0.1234567);
    n.addUnicode("u", L"ab\u00eb");
    n.addUnicode("w", L"\u20ac");
    const unsigned char bytes[] = {0x0a, 0xff, 0x00};
    n.addData("d", bytes, 3);
    n.addData("e", nullptr, 0);
    n.addNode("");
    n.addNode("child")->addInt("x", 1);
    EXPECT_EQ(dumpNode(&n), "(hw\n"
                            "   cores:i=2\n"
                            "   neg:i=-2147483648\n"
                            "   s:s=a b:c=d \n"
                            "   f:f=0.123457\n"
                            "   u:u=3,6162c3\n"
                            "   w:u=1,e2\n"
                            "   d:d=3,0aff00\n"
                            "   e:d=0,\n"
                            "   (\n"
                            "   )\n"
                            "   (child\n"
                            "      x:i=1\n"
                            "   )\n"
                            ")\n");
    EXPECT_STREQ(vtGetIndentString(), "   ");
}

TEST(VtDump, ReadsValueLines) {
    NodePtr root = parse("n:i=12abc\n"
                         "  s:s=  spaced  \n"
                         "\tf:f=0.1234567\n"
                         "b:d=2,0aFF\n"
                         "z:d=0,\n"
                         "k:d=-3,\n"
                         "u:u=5,61c3ab6200\n"
                         "big:i=99999999999\n"
                         "x:d=1,zz\n"
                         "; comment\n"
                         "\n"
                         "(\n"
                         ")\n");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->getValue(nullptr, "n", 0), 12);
    EXPECT_STREQ(root->getValue(nullptr, "s", ""), "  spaced  ");
    EXPECT_DOUBLE_EQ(root->getValue("f")->value.f, 0.1234567);
    VtVariant* b = root->getValue("b");
    ASSERT_EQ(b->type, VT_DATA);
    ASSERT_EQ(b->length, 2u);
    EXPECT_EQ(b->value.d[0], 0x0a);
    EXPECT_EQ(b->value.d[1], 0xff);
    EXPECT_EQ(root->getValue("z")->length, 0u);
    EXPECT_EQ(root->getValue("k")->length, 0u);
    VtVariant* u = root->getValue("u");
    ASSERT_EQ(u->type, VT_UNICODE);
    EXPECT_STREQ(u->value.u, L"a\u00ebb"); // the NUL byte ends the text
    EXPECT_EQ(root->getValue(nullptr, "big", 0), 2147483647);
    // Unvalidated nibbles: 'z' - '0' = 74 -> (74 << 4) + 74 truncated to a byte.
    EXPECT_EQ(root->getValue("x")->value.d[0], static_cast<unsigned char>((74 << 4) + 74));
    ASSERT_NE(root->getChild(nullptr, 0), nullptr);
    EXPECT_STREQ(root->getChild(nullptr, 0)->name, "");
}

TEST(VtDump, ReaderErrors) {
    struct Case {
        const char* text;
        int expect;
    } cases[] = {
        {"n:x=1\n", VT_PARSE_BAD_TYPE},
        {"n:a=1\n", VT_PARSE_BAD_TYPE},
        {"n:v=1\n", VT_PARSE_BAD_TYPE},
        {"n=1\n", VT_PARSE_BAD_VALUE},
        {"a:ii=1\n", VT_PARSE_BAD_VALUE},
        {"a=b:s=1\n", VT_PARSE_BAD_VALUE},
        {"novalue\n", VT_PARSE_BAD_VALUE},
        {"b:d=3,0aff\n", VT_PARSE_BAD_HEX},
        {"b:d=3\n", VT_PARSE_BAD_HEX},
        {"b:u=2,6\n", VT_PARSE_BAD_HEX},
        {"b:d=2147483647,00\n", VT_PARSE_BAD_HEX},
        {")\n", VT_PARSE_UNBALANCED},
        {"(a\n)\n)\n", VT_PARSE_UNBALANCED},
        {"#x\n", VT_PARSE_BAD_LINE},
        {"-1:i=1\n", VT_PARSE_BAD_LINE},
        {"(a\nn:i=1\n", VT_PARSE_OK}, // unterminated node is dropped
        {"", VT_PARSE_OK},
    };
    for (const Case& c : cases) {
        int err = 99;
        NodePtr root = parse(c.text, &err);
        EXPECT_EQ(err, c.expect) << c.text;
        EXPECT_EQ(root != nullptr, c.expect == VT_PARSE_OK) << c.text;
    }
    NodePtr root = parse("(a\nn:i=1\n(b\n");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->children, nullptr);
}

TEST(VtDump, NestingLimit) {
    std::string deep;
    for (int i = 0; i < VT_MAX_DEPTH; ++i)
        deep += "(n\n";
    for (int i = 0; i < VT_MAX_DEPTH; ++i)
        deep += ")\n";
    NodePtr ok = parse(deep);
    ASSERT_NE(ok, nullptr);
    int err = 0;
    EXPECT_EQ(parse("(n\n" + deep + ")\n", &err), nullptr);
    EXPECT_EQ(err, VT_PARSE_TOO_DEEP);
}

TEST(VtDump, LongLinesAreCut) {
    // A line is cut to VT_DUMP_LINE_MAX - 1 bytes, so a long blob reads short.
    std::string hex(VT_DUMP_LINE_MAX, 'a');
    std::string line = "b:d=" + std::to_string(VT_DUMP_LINE_MAX / 2 - 2) + "," + hex + "\n";
    int err = 0;
    EXPECT_EQ(parse(line, &err), nullptr);
    EXPECT_EQ(err, VT_PARSE_BAD_HEX);
    NodePtr root = parse("s:s=" + hex + "\n");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(std::strlen(root->getValue("s")->value.s), VT_DUMP_LINE_MAX - 1 - 4);
}

// Trees inside what the format can carry: no line breaks in texts, value names free
// of ':' and '=', ASCII Unicode text, reals with at most six decimals.
class TreeGenerator {
public:
    explicit TreeGenerator(unsigned seed) : m_rng(seed) {}

    VtNode* tree() {
        VtNode* root = new VtNode("");
        fill(root, 0);
        return root;
    }

private:
    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(m_rng); }

    std::string text(int maxLen, const char* forbidden) {
        std::string s;
        int n = pick(maxLen + 1);
        while (static_cast<int>(s.size()) < n) {
            char c = static_cast<char>(1 + pick(255));
            if (c == '\n' || c == '\r' || std::strchr(forbidden, c)) continue;
            s += c;
        }
        return s;
    }

    std::string valueName() {
        static const char lead[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
        return std::string(1, lead[pick(sizeof lead - 1)]) + text(12, ":=");
    }

    void fill(VtNode* n, int depth) {
        int values = pick(6);
        for (int i = 0; i < values; ++i) {
            std::string name = valueName();
            switch (pick(5)) {
            case 0:
                n->addInt(name.c_str(), static_cast<int>(m_rng()));
                break;
            case 1:
                n->addString(name.c_str(), text(40, "").c_str());
                break;
            case 2:
                n->addReal(name.c_str(), static_cast<double>(static_cast<int>(m_rng())) / 1e6);
                break;
            case 3: {
                std::wstring w;
                for (int k = pick(20); k > 0; --k)
                    w += static_cast<wchar_t>(1 + pick(127));
                n->addUnicode(name.c_str(), w.c_str());
                break;
            }
            default: {
                std::string bytes;
                for (int k = pick(40); k > 0; --k)
                    bytes += static_cast<char>(pick(256));
                n->addData(name.c_str(), reinterpret_cast<const unsigned char*>(bytes.data()),
                           static_cast<unsigned>(bytes.size()));
            }
            }
        }
        if (depth < 5)
            for (int i = pick(4); i > 0; --i)
                fill(n->addNode(text(16, "").c_str()), depth + 1);
    }

    std::mt19937 m_rng;
};

TEST(VtDump, RoundTripOfGeneratedTrees) {
    for (unsigned seed = 1; seed <= 300; ++seed) {
        NodePtr tree(TreeGenerator(seed).tree());
        std::string text = dumpTree(tree.get());
        // Read back in short pieces too, so lines straddle the reads.
        VtIStream_Memory mem(text.data(), text.size(), 1 + seed % 7);
        VtILineStream lines(&mem);
        NodePtr back(vtParseNodeDump(&lines));
        ASSERT_NE(back, nullptr) << "seed " << seed;
        ASSERT_TRUE(vtNodeEquals(tree.get(), back.get())) << "seed " << seed << "\n" << text;
        EXPECT_EQ(dumpTree(back.get()), text);
    }
}

TEST(VtText, Utf8Encoding) {
    struct Case {
        const wchar_t* in;
        size_t size;
        int chars;
        const char* out;
    } cases[] = {
        {L"abc", 16, 3, "abc"},
        {L"\u00eb", 16, 1, "\xc3\xab"},
        {L"\u20ac", 16, 1, "\xe2\x82\xac"},
        {L"\U0001F600", 16, 1, "\xf0\x9f\x98\x80"},
        {L"a\u20acb", 4, 2, "ab"}, // the euro no longer fits and is skipped
        {L"abc", 3, 2, "ab"},      // capacity is size - 1
        {L"abc", 1, 0, ""},
    };
    for (const Case& c : cases) {
        unsigned char buf[32];
        std::memset(buf, 0x55, sizeof buf);
        EXPECT_EQ(stringToUTF8(buf, c.size, c.in), c.chars) << c.out;
        EXPECT_STREQ(reinterpret_cast<char*>(buf), c.out);
    }
    const wchar_t high[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    unsigned char buf[16];
    EXPECT_EQ(stringToUTF8(buf, sizeof buf, high), 1);
    EXPECT_STREQ(reinterpret_cast<char*>(buf), "\xfd\xbf\xbf\xbf\xbf\xbf");
}

TEST(VtText, Utf8Decoding) {
    struct Case {
        const char* in;
        size_t size;
        std::wstring out;
    } cases[] = {
        {"abc", 16, L"abc"},
        {"\xc3\xab", 16, L"\u00eb"},
        {"\xf0\x9f\x98\x80x", 16, L"\U0001F600x"},
        {"\xc3", 16, L"\u00c0"},     // truncated sequence: missing bits are zero
        {"\xab", 16, L"\x2b"},       // stray continuation byte: its low six bits
        {"\xc3\x41", 16, L"\u00c1"}, // no validation of continuation bytes
        {"abcdef", 4, L"abc"},
    };
    for (const Case& c : cases) {
        wchar_t buf[32];
        int n = utf8ToWideChar(buf, c.size, reinterpret_cast<const unsigned char*>(c.in));
        EXPECT_EQ(std::wstring(buf), c.out);
        EXPECT_EQ(n, static_cast<int>(c.out.size()));
    }
}

TEST(VtText, RemoveEndOfLine) {
    struct Case {
        const char* in;
        const char* out;
    } cases[] = {{"abc\n", "abc"}, {"ab\rc\n", "ab"}, {"", ""}, {"plain", "plain"}, {"\nx", ""}};
    for (const Case& c : cases) {
        char buf[32];
        std::strcpy(buf, c.in);
        EXPECT_STREQ(removeEndOfLine(buf), c.out);
    }
}

TEST(VtTreeDeathTest, BrokenInvariantsAbortWithTheirExpression) {
    VtNode n("n");
    VtVariant unnamed;
    VtNode nameless;
    EXPECT_DEATH(n.addValue(nullptr), "src/common/vartree/vtree:[0-9]+: failed assertion `v != 0'");
    EXPECT_DEATH(n.addChild(nullptr), "failed assertion `n != 0'");
    EXPECT_DEATH(n.getValue(nullptr), "failed assertion `name != 0'");
    EXPECT_DEATH(vtDumpNode(&nameless, 0), "failed assertion `node->name != 0'");
    EXPECT_DEATH(vtDumpValue(static_cast<const VtVariant*>(nullptr), 0),
                 "failed assertion `value != 0'");
    EXPECT_DEATH(vtParseNodeDump(nullptr, nullptr), "failed assertion `root != 0'");
}

} // namespace
