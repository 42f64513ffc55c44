// The readable view over the scan of every real bundle and of this machine, and over
// scans no host should produce but a hostile one can: tens of thousands of rows,
// names and values with tabs, line breaks, escapes and invalid UTF-8, documents of
// the wrong shape.
#include <gtest/gtest.h>

#include "../common/run_command.h"
#include "cli/View.h"
#include "invscan/ZelDefs.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <dirent.h>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Json = nlohmann::ordered_json;

const std::string kBundles = std::string(INVSCAN_TEST_DATA) + "/bundles/";
const std::string kInvscan =
    "env -u KOR_HOMEDIR " + std::string(INVSCAN_BINARY_DIR) + "/bin/invscan";

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);)
        out.push_back(l);
    return out;
}

// Characters of a valid UTF-8 line (the tests give it no wide characters).
std::size_t chars(const std::string& s) {
    return static_cast<std::size_t>(
        std::count_if(s.begin(), s.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

bool validUtf8(const std::string& s) {
    for (std::size_t i = 0; i < s.size();) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        std::size_t n = c < 0x80         ? 1
                        : (c >> 5) == 6  ? 2
                        : (c >> 4) == 14 ? 3
                        : (c >> 3) == 30 ? 4
                                         : 0;
        if (n == 0 || i + n > s.size()) return false;
        for (std::size_t k = 1; k < n; ++k)
            if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return false;
        i += n;
    }
    return true;
}

// A control character other than the line ends, or an escape sequence's start.
bool hasControl(const std::string& view) {
    return std::any_of(view.begin(), view.end(), [](char c) {
        unsigned char u = static_cast<unsigned char>(c);
        return (u < 0x20 && c != '\n') || u == 0x7F;
    });
}

std::string grouped(std::uint64_t v) {
    std::string d = std::to_string(v), out;
    for (std::size_t i = 0; i < d.size(); ++i) {
        if (i && (d.size() - i) % 3 == 0) out += ',';
        out += d[i];
    }
    return out;
}

Json attr(unsigned id, const std::string& name, const Json& value) {
    return Json{{"id", id},
                {"name", name},
                {"type", value.is_string() ? "ZEL_STRING" : "ZEL_ULONG"},
                {"value", value}};
}

Json scanOf(Json tables) {
    return Json{
        {"tool", "invscan"},          {"version", "0"},     {"format", 1},
        {"kernel", "Linux"},          {"host", "testhost"}, {"scan_time", "2026-01-02T03:04:05Z"},
        {"tables", std::move(tables)}};
}

Json table(unsigned id, const std::string& name, Json rows) {
    return Json{{"id", id}, {"name", name}, {"version", 1}, {"status", "ok"}, {"rows", rows}};
}

// The lines of the group headed `heading`, up to the next group.
std::vector<std::string> groupLines(const std::string& view, const std::string& heading) {
    std::vector<std::string> all = lines(view), out;
    auto it = std::find(all.begin(), all.end(), heading);
    if (it == all.end()) return out;
    for (++it; it != all.end() && (it->empty() || it->compare(0, 2, "  ") == 0); ++it)
        out.push_back(*it);
    while (!out.empty() && out.back().empty())
        out.pop_back();
    return out;
}

// ---- the real bundles ---------------------------------------------------------------

std::vector<std::string> bundleNames() {
    std::vector<std::string> out;
    if (DIR* d = opendir(kBundles.c_str())) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.') out.push_back(e->d_name);
        closedir(d);
    }
    std::sort(out.begin(), out.end());
    return out;
}

class BundleView : public ::testing::TestWithParam<std::string> {};

TEST_P(BundleView, ShowsEveryGroupAndEveryValueReadably) {
    const Json scan = Json::parse(
        testrun::run(kInvscan + " --replay " + kBundles + GetParam() + " --format json"), nullptr,
        false);
    ASSERT_TRUE(scan.is_object() && scan["tables"].is_array()) << "no scan of " << GetParam();
    const std::string view = readableView(scan);
    const std::vector<std::string> all = lines(view);

    ASSERT_GE(all.size(), 3u);
    EXPECT_EQ(all[0].rfind("Host:", 0), 0u);
    EXPECT_EQ(all[1].rfind("System:", 0), 0u);
    EXPECT_EQ(all[2].rfind("Scanned:", 0), 0u);
    EXPECT_FALSE(hasControl(view));
    EXPECT_EQ(view.find("ZEL_"), std::string::npos);
    EXPECT_EQ(view.find("Index"), std::string::npos) << "the running row number is left out";

    std::vector<std::string> names; // every attribute name the scan has
    for (const Json& t : scan["tables"]) {
        const std::string name = t["name"];
        SCOPED_TRACE(name);
        if (t["status"] != "ok") {
            EXPECT_NE(
                std::find(all.begin(), all.end(), name + ": " + t["status"].get<std::string>()),
                all.end());
            continue;
        }
        if (t["rows"].empty()) {
            EXPECT_NE(std::find(all.begin(), all.end(), name + ": none"), all.end());
            continue;
        }
        const bool many = t["rows"].size() > 1;
        const std::vector<std::string> body =
            groupLines(view, many ? name + " (" + std::to_string(t["rows"].size()) + ")" : name);
        std::string text;
        for (const std::string& l : body)
            text += l + "\n";
        for (const Json& row : t["rows"]) {
            for (const Json& a : row) {
                names.push_back(a["name"]);
                const Json& v = a["value"];
                if (a["name"] == "Index" || v.is_null() ||
                    (v.is_string() &&
                     v.get<std::string>().find_first_not_of(' ') == std::string::npos))
                    continue;
                // What the value must show as: an enumeration by its text, a number with
                // its digits grouped, a date and time from its date, text as it is.
                std::string shown = a.contains("text") && a["text"].is_string()
                                        ? a["text"].get<std::string>()
                                    : v.is_number_unsigned() ? grouped(v.get<std::uint64_t>())
                                    : v.is_string()          ? v.get<std::string>()
                                                             : v.dump();
                if (v.is_string()) { // without the blanks that pad a fixed-width field
                    shown.erase(0, shown.find_first_not_of(' '));
                    shown.erase(shown.find_last_not_of(' ') + 1);
                }
                if (v.is_string() && shown.size() == 26 && shown[10] == '-')
                    shown = shown.substr(0, 10);
                EXPECT_NE(text.find(shown), std::string::npos)
                    << a["name"] << " = " << v << " is not shown";
            }
        }
    }
    // Only a pair line of one long value may pass the width.
    for (const std::string& l : all) {
        if (chars(l) <= VIEW_WIDTH) continue;
        const std::size_t colon = l.find(':');
        ASSERT_NE(colon, std::string::npos) << l;
        const std::string name = l.substr(2, colon - 2);
        EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << l;
    }
}

INSTANTIATE_TEST_SUITE_P(Bundles, BundleView, ::testing::ValuesIn(bundleNames()),
                         [](const ::testing::TestParamInfo<std::string>& p) {
                             std::string n = p.param;
                             for (char& c : n)
                                 if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                             return n;
                         });

TEST(View, ThisMachineFitsAScreenfulOrTwo) {
    const Json scan = Json::parse(testrun::run(kInvscan + " --format json"), nullptr, false);
    ASSERT_TRUE(scan.is_object());
    const std::string view = readableView(scan);
    EXPECT_LT(lines(view).size(), 200u);
    // Units are shown with the sizes.
    const std::vector<std::string> memory = groupLines(view, "Memory");
    ASSERT_FALSE(memory.empty());
    EXPECT_NE(memory[0].find(" KB"), std::string::npos) << memory[0];
}

// ---- header -------------------------------------------------------------------------

TEST(View, HeaderNamesHostSystemAndTime) {
    const Json osTable =
        table(4, "Operating System", Json::array({Json::array({attr(1, "Name", "Debian 12")})}));
    struct Case {
        const char* what;
        Json scan;
        std::vector<std::string> header;
    } cases[] = {
        {"system from the table",
         scanOf(Json::array({osTable})),
         {"Host:    testhost", "System:  Debian 12",
          "Scanned: 2026-01-02 03:04:05 UTC (invscan 0)"}},
        {"system from the kernel",
         scanOf(Json::array()),
         {"Host:    testhost", "System:  Linux", "Scanned: 2026-01-02 03:04:05 UTC (invscan 0)"}},
        {"nothing known",
         Json::object(),
         {"Host:    unknown", "System:  unknown", "Scanned: unknown"}},
        {"not even an object",
         Json::array({1, 2}),
         {"Host:    unknown", "System:  unknown", "Scanned: unknown"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<std::string> got = lines(readableView(c.scan));
        got.resize(std::min<std::size_t>(got.size(), 3));
        EXPECT_EQ(got, c.header);
    }
    Json noHost = scanOf(Json::array());
    noHost.erase("host");
    EXPECT_EQ(lines(readableView(noHost))[0], "Host:    unknown");
}

// ---- text ---------------------------------------------------------------------------

TEST(View, TextIsOneLineOfValidUtf8) {
    const struct {
        std::string in, out;
        std::size_t width;
    } cases[] = {
        {"plain", "plain", 5},
        {"a\tb\nc\rd", "a\\tb\\nc\\rd", 10},
        {"\x1b[31mred", "\\x1B[31mred", 11},
        {"del\x7f", "del\\x7F", 7},
        {"Gr\xc3\xbc\xc3\x9f"
         "e",
         "Gr\xc3\xbc\xc3\x9f"
         "e",
         5},
        {"\xff", "\xef\xbf\xbd", 1},
        {"x\xc0\xaf", "x\xef\xbf\xbd\xef\xbf\xbd", 3},               // overlong
        {"\xed\xa0\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd", 3}, // surrogate
        {"cut\xe6\x97", "cut\xef\xbf\xbd\xef\xbf\xbd", 5},           // truncated
        {"\xc2\x85", "\\u{0085}", 8},                                // C1 line end
        {"ab\xe2\x80\xae"
         "cd",
         "ab\\u{202E}cd", 12},                                       // reversal
        {"\xe2\x80\xa8", "\\u{2028}", 8},                            // line separator
        {"\xe6\x97\xa5\xe6\x9c\xac", "\xe6\x97\xa5\xe6\x9c\xac", 4}, // wide
        {"e\xcc\x81", "e\xcc\x81", 1},                               // combining
        {std::string("nul\0x", 5), "nul\\x00x", 8},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.in);
        const std::string got = viewText(c.in);
        EXPECT_EQ(got, c.out);
        EXPECT_TRUE(validUtf8(got));
        EXPECT_EQ(viewWidth(got), c.width);
    }
}

// ---- the catalogue ------------------------------------------------------------------

TEST(View, UnitsBelongToNumbers) {
    for (const zelGroupDef* g = GROUPS_DEF; g->id != ZEL_DEF_END; ++g) {
        for (const zelAttribDef* a = g->attribs; a->id != ZEL_DEF_END; ++a) {
            SCOPED_TRACE(std::string(g->name) + ": " + a->name);
            const char* unit = attributeUnit(g->id, a->id);
            const std::string name = a->name;
            if (unit) {
                EXPECT_TRUE(a->type == ZEL_ULONG || a->type == ZEL_ULONGLONG) << unit;
            }
            if (name.size() > 3 && name.compare(name.size() - 3, 3, " MB") == 0) {
                EXPECT_STREQ(unit, "MB");
            }
            if (name.find("Size") != std::string::npos && a->type != ZEL_STRING) {
                EXPECT_NE(unit, nullptr) << "a size without its unit";
            }
        }
    }
}

TEST(Manual, DescribesEveryGroupAndAttribute) {
    const std::string page = testrun::run(kInvscan + " --manual-page");
    const std::size_t groups = page.find("\n.SH GROUPS\n");
    ASSERT_NE(groups, std::string::npos);
    const auto roff = [](std::string s) {
        for (std::size_t p = 0; (p = s.find('-', p)) != std::string::npos; p += 2)
            s.insert(p, "\\");
        return s;
    };
    for (const zelGroupDef* g = GROUPS_DEF; g->id != ZEL_DEF_END; ++g) {
        SCOPED_TRACE(g->name);
        const std::size_t at =
            page.find(".SS \"" + std::to_string(g->id) + "  " + roff(g->name) + "\"\n", groups);
        ASSERT_NE(at, std::string::npos);
        const std::size_t end = page.find("\n.S", at + 1);
        const std::string section = page.substr(at, end - at);
        for (const zelAttribDef* a = g->attribs; a->id != ZEL_DEF_END; ++a) {
            const std::size_t item = section.find(".TP\n\\fB" + roff(a->name) + "\\fR\n");
            ASSERT_NE(item, std::string::npos) << a->name;
            const std::string text = section.substr(item, section.find("\n.TP", item + 1) - item);
            if (const char* unit = attributeUnit(g->id, a->id)) {
                EXPECT_NE(text.find(std::string("in ") + unit), std::string::npos) << text;
            }
            if (a->enumDef && zelEnumCount(a->enumDef) <= 4) {
                EXPECT_NE(text.find(roff(a->enumDef[0].name)), std::string::npos) << text;
            }
        }
    }
}

// ---- hostile scans ------------------------------------------------------------------

const std::string kNasty[] = {
    "tab\there",
    "two\nlines",
    "esc\x1b[2J",
    "bad\xff\xfe",
    "cut\xe6\x97",
    "spaced   out  ",
    "",
    "\xe2\x80\xae"
    "reversed",
};

// A many-row group of the given names and values, as columns when narrow.
Json nastyRows(std::size_t rows, std::size_t valueWidth) {
    Json out = Json::array();
    for (std::size_t i = 0; i < rows; ++i) {
        Json row = Json::array();
        row.push_back(attr(1, "Index", i + 1));
        row.push_back(attr(2, "ID\tname", kNasty[i % 8] + std::to_string(i)));
        row.push_back(attr(3, "Addr\xff", std::string(valueWidth, 'a') + kNasty[(i + 3) % 8]));
        row.push_back(attr(4, "Size", i * 1000));
        out.push_back(std::move(row));
    }
    return out;
}

TEST(View, HostileRowsStayAlignedRows) {
    const struct {
        const char* what;
        std::size_t rows, valueWidth;
        bool columns;
    } cases[] = {
        {"10,000 narrow rows", 10000, 8, true},
        {"100,000 narrow rows", 100000, 8, true},
        {"10,000 rows too wide for columns", 10000, 120, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string heading = "Nasty\\tgroup (" + [&] {
            std::string n = std::to_string(c.rows), g;
            for (std::size_t i = 0; i < n.size(); ++i)
                g += (i && (n.size() - i) % 3 == 0 ? "," : "") + n.substr(i, 1);
            return g;
        }() + ")";
        const std::string view = readableView(
            scanOf(Json::array({table(7, "Nasty\tgroup", nastyRows(c.rows, c.valueWidth))})));
        EXPECT_FALSE(hasControl(view));
        ASSERT_TRUE(validUtf8(view));
        const std::vector<std::string> body = groupLines(view, heading);
        ASSERT_FALSE(body.empty()) << view.substr(0, 400);
        if (c.columns) {
            ASSERT_EQ(body.size(), c.rows + 1); // a line of names, then a line a row
            EXPECT_EQ(body[0].find("ID\\tname"), 2u);
            // Every row's second column starts where its name does.
            const std::size_t second = chars(body[0].substr(0, body[0].find("Addr")));
            for (std::size_t i = 1; i < body.size(); ++i) {
                ASSERT_LE(chars(body[i]), VIEW_WIDTH) << body[i];
                const std::size_t at = body[i].find(std::string(c.valueWidth, 'a'));
                ASSERT_NE(at, std::string::npos) << body[i];
                ASSERT_EQ(chars(body[i].substr(0, at)), second) << body[i];
            }
        } else {
            // Blocks: every value starts in the same column, whatever its name.
            std::size_t valueAt = 0, pairs = 0;
            for (const std::string& l : body) {
                if (l.empty()) continue;
                const std::size_t colon = l.find(": ");
                ASSERT_NE(colon, std::string::npos) << l;
                const std::size_t at = chars(l.substr(0, l.find_first_not_of(' ', colon + 1)));
                if (!valueAt) valueAt = at;
                ASSERT_EQ(at, valueAt) << l;
                ++pairs;
            }
            EXPECT_GE(pairs, 2 * c.rows); // no row lost, none split
        }
    }
}

TEST(View, DocumentsOfTheWrongShapeStillPrint) {
    const Json weird[] = {
        Json::array({table(5, "Rows not rows", Json("text"))}),
        Json::array({Json{{"id", "x"}, {"status", 7}, {"rows", nullptr}}}),
        Json::array({table(5, "Null rows", nullptr)}),
        Json::array({table(5, "Odd attributes",
                           Json::array({Json::array({1, "two", Json::object(), nullptr}),
                                        Json::array({Json{{"value", Json::array({1, 2})}},
                                                     Json{{"name", 3}, {"value", true}},
                                                     Json{{"id", 9}, {"value", -4.5}}})}))}),
        Json::array({table(5, "Same attribute twice",
                           Json::array({Json::array({attr(2, "A", "x"), attr(2, "A", "y")})}))}),
        Json::array({42, "table", nullptr}),
    };
    for (const Json& tables : weird) {
        SCOPED_TRACE(tables.dump());
        std::string view;
        ASSERT_NO_THROW(view = readableView(scanOf(tables)));
        EXPECT_EQ(view.rfind("Host:    testhost\n", 0), 0u);
        EXPECT_FALSE(hasControl(view));
    }
}

} // namespace
