// The readable view over the scan of every real bundle and of this machine, and over
// scans only a hostile host makes: 100,000 rows, names and values with tabs, line
// breaks, escapes and invalid UTF-8, documents of the wrong shape. The manual
// describes every group and attribute of the catalogue.
#include <gtest/gtest.h>

#include "../common/run_command.h"
#include "cli/View.h"
#include "invscan/ZelDefs.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
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

// Characters of valid UTF-8 (the tests that measure give it no wide characters).
std::size_t chars(const std::string& s) {
    return static_cast<std::size_t>(
        std::count_if(s.begin(), s.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// Valid UTF-8 (nlohmann's dump refuses anything else) without a control character
// but the line ends.
bool terminalSafe(const std::string& s) {
    try {
        Json(s).dump();
    } catch (const Json::exception&) {
        return false;
    }
    return std::none_of(s.begin(), s.end(), [](char c) {
        return (static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == 0x7F;
    });
}

Json attr(unsigned id, const std::string& name, const Json& value) {
    return Json{{"id", id}, {"name", name}, {"value", value}};
}

Json table(unsigned id, const std::string& name, Json rows) {
    return Json{{"id", id}, {"name", name}, {"status", "ok"}, {"rows", std::move(rows)}};
}

Json scanOf(Json tables) {
    return Json{{"tool", "invscan"},
                {"version", "0"},
                {"kernel", "Linux"},
                {"host", "testhost"},
                {"scan_time", "2026-01-02T03:04:05Z"},
                {"tables", std::move(tables)}};
}

// The lines of the group headed `heading`, up to the next group.
std::vector<std::string> groupLines(const std::string& view, const std::string& heading) {
    std::vector<std::string> all = lines(view), out;
    auto it = std::find(all.begin(), all.end(), heading);
    for (; it != all.end() && ++it != all.end() && (it->empty() || it->compare(0, 2, "  ") == 0);)
        out.push_back(*it);
    while (!out.empty() && out.back().empty())
        out.pop_back();
    return out;
}

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
    ASSERT_TRUE(scan.is_object() && scan["tables"].is_array());
    const std::string view = readableView(scan);
    const std::vector<std::string> all = lines(view);
    ASSERT_GE(all.size(), 3u);
    EXPECT_EQ(all[0].substr(0, 5) + all[1].substr(0, 7) + all[2].substr(0, 8),
              "Host:System:Scanned:");
    EXPECT_TRUE(terminalSafe(view));
    EXPECT_EQ(view.find("ZEL_"), std::string::npos);
    EXPECT_EQ(view.find("Index"), std::string::npos) << "the running row number is left out";

    std::vector<std::string> names; // every attribute name the scan has
    const auto has = [&](const std::string& l) {
        return std::find(all.begin(), all.end(), l) != all.end();
    };
    for (const Json& t : scan["tables"]) {
        const std::string name = t["name"];
        SCOPED_TRACE(name);
        if (t["status"] != "ok") {
            EXPECT_TRUE(has(name + ": " + t["status"].get<std::string>()));
            continue;
        }
        if (t["rows"].empty()) {
            EXPECT_TRUE(has(name + ": none"));
            continue;
        }
        const std::size_t n = t["rows"].size();
        std::string text; // the group's lines, digits without their separators
        for (const std::string& l :
             groupLines(view, n > 1 ? name + " (" + std::to_string(n) + ")" : name))
            text += l + "\n";
        text.erase(std::remove(text.begin(), text.end(), ','), text.end());
        for (const Json& row : t["rows"]) {
            for (const Json& a : row) {
                names.push_back(a["name"]);
                // An enumeration by its text, a date and time by its date, text without
                // the blanks that pad a fixed-width field.
                std::string shown = a.contains("text")       ? a["text"].get<std::string>()
                                    : a["value"].is_string() ? a["value"].get<std::string>()
                                                             : a["value"].dump();
                shown.erase(0, shown.find_first_not_of(' '));
                shown.erase(shown.find_last_not_of(' ') + 1);
                if (shown.size() == 26 && shown[10] == '-') shown.resize(10);
                shown.erase(std::remove(shown.begin(), shown.end(), ','), shown.end());
                if (a["name"] != "Index" && !shown.empty() && shown != "null") {
                    EXPECT_NE(text.find(shown), std::string::npos) << a["name"] << " not shown";
                }
            }
        }
    }
    // Only a pair line of one long value may pass the width.
    for (const std::string& l : all) {
        if (chars(l) <= VIEW_WIDTH) continue;
        const std::string name = l.substr(2, l.find(':') - 2);
        EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << l;
    }
}

INSTANTIATE_TEST_SUITE_P(Bundles, BundleView, ::testing::ValuesIn(bundleNames()),
                         [](const ::testing::TestParamInfo<std::string>& p) {
                             std::string n = p.param;
                             std::replace_if(
                                 n.begin(), n.end(),
                                 [](char c) {
                                     return !std::isalnum(static_cast<unsigned char>(c));
                                 },
                                 '_');
                             return n;
                         });

TEST(View, ThisMachineFitsAScreenfulOrTwo) {
    const std::string view =
        readableView(Json::parse(testrun::run(kInvscan + " --format json"), nullptr, false));
    EXPECT_LT(lines(view).size(), 200u);
    const std::vector<std::string> memory = groupLines(view, "Memory");
    ASSERT_FALSE(memory.empty());
    EXPECT_NE(memory[0].find(" KB"), std::string::npos) << memory[0];
}

TEST(View, HeaderNamesHostSystemAndTime) {
    const Json os = Json::array(
        {table(4, "Operating System", Json::array({Json::array({attr(1, "Name", "Debian 12")})}))});
    Json noHost = scanOf(os);
    noHost.erase("host");
    Json notRoot = scanOf(os);
    notRoot["needs_root"] = {"serial number", "UUID"};
    const std::string when = "Scanned: 2026-01-02 03:04:05 UTC (invscan 0)\n";
    const std::string none = "Host:    unknown\nSystem:  unknown\nScanned: unknown\n";
    const struct {
        Json scan;
        std::string header;
    } cases[] = {
        {scanOf(os), "Host:    testhost\nSystem:  Debian 12\n" + when},
        {scanOf(Json::array()), "Host:    testhost\nSystem:  Linux\n" + when},
        {noHost, "Host:    unknown\nSystem:  Debian 12\n" + when},
        {notRoot, "Host:    testhost\nSystem:  Debian 12\n" + when},
        {Json::object(), none},
        {Json::array({1, 2}), none},
    };
    for (const auto& c : cases)
        EXPECT_EQ(readableView(c.scan).substr(0, c.header.size()), c.header) << c.scan;
    // What root alone could have read closes the view.
    const std::string tail = "\nNot read: serial number, UUID (needs root)\n";
    const std::string view = readableView(notRoot);
    ASSERT_GE(view.size(), tail.size());
    EXPECT_EQ(view.substr(view.size() - tail.size()), tail);
}

TEST(View, TextIsOneLineOfValidUtf8) {
    const std::string fffd = "\xef\xbf\xbd";
    const struct {
        std::string in, out;
        std::size_t width;
    } cases[] = {
        {"a\tb\nc\rd", "a\\tb\\nc\\rd", 10},
        {"\x1b[31mred\x7f", "\\x1B[31mred\\x7F", 15},
        {std::string("nul\0x", 5), "nul\\x00x", 8},
        {"\xff", fffd, 1},
        {"x\xc0\xaf", "x" + fffd + fffd, 3},                         // overlong
        {"\xed\xa0\x80", fffd + fffd + fffd, 3},                     // surrogate
        {"cut\xe6\x97", "cut" + fffd + fffd, 5},                     // cut short
        {"\xc2\x85", "\\u{0085}", 8},                                // C1 next line
        {"\xe2\x80\xa8", "\\u{2028}", 8},                            // line separator
        {"ab\xe2\x80\xae", "ab\\u{202E}", 10},                       // right-to-left override
        {"\xe6\x97\xa5\xe6\x9c\xac", "\xe6\x97\xa5\xe6\x9c\xac", 4}, // wide
        {"e\xcc\x81", "e\xcc\x81", 1},                               // combining
    };
    for (const auto& c : cases) {
        const std::string got = viewText(c.in);
        EXPECT_EQ(got, c.out);
        EXPECT_TRUE(terminalSafe(got)) << got;
        EXPECT_EQ(viewWidth(got), c.width) << got;
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
        const std::size_t at =
            page.find(".SS \"" + std::to_string(g->id) + "  " + roff(g->name) + "\"\n", groups);
        ASSERT_NE(at, std::string::npos) << g->name;
        const std::string section = page.substr(at, page.find("\n.S", at + 1) - at);
        for (const zelAttribDef* a = g->attribs; a->id != ZEL_DEF_END; ++a) {
            const std::size_t item = section.find(".TP\n\\fB" + roff(a->name) + "\\fR\n");
            ASSERT_NE(item, std::string::npos) << g->name << ": " << a->name;
            const std::string text = section.substr(item, section.find("\n.TP", item + 1) - item);
            // A unit belongs to a number, and every numeric size has one.
            const char* unit = attributeUnit(g->id, a->id);
            const bool number = a->type == ZEL_ULONG || a->type == ZEL_ULONGLONG;
            EXPECT_TRUE(unit ? number : !number || !std::strstr(a->name, "Size")) << text;
            EXPECT_TRUE(!unit || text.find(std::string("in ") + unit) != std::string::npos) << text;
            EXPECT_TRUE(!a->enumDef || zelEnumCount(a->enumDef) > 4 ||
                        text.find(roff(a->enumDef[0].name)) != std::string::npos)
                << text;
        }
    }
}

// Rows of a group no host has: a tab in a name, bytes that are not UTF-8 in another,
// values with every kind of trouble, a long run of a's in the second column.
Json nastyRows(std::size_t rows, std::size_t aWidth) {
    static const std::string nasty[] = {
        "tab\there",   "two\nlines",   "esc\x1b[2J", "bad\xff\xfe",
        "cut\xe6\x97", "spaced   out", "",           "\xe2\x80\xaereversed"};
    Json out = Json::array();
    for (std::size_t i = 0; i < rows; ++i)
        out.push_back(Json::array(
            {attr(1, "Index", i + 1), attr(2, "ID\tname", nasty[i % 8] + std::to_string(i)),
             attr(3, "Addr\xff", std::string(aWidth, 'a') + nasty[(i + 3) % 8]),
             attr(4, "Size", i * 1000)}));
    return out;
}

TEST(View, HostileRowsStayAlignedRows) {
    const struct {
        std::size_t rows, aWidth;
        std::string heading;
    } cases[] = {
        {10000, 8, "10,000"}, {100000, 8, "100,000"}, {10000, 120, "10,000"}, // too wide: blocks
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.heading + " rows of " + std::to_string(c.aWidth));
        const std::string view = readableView(
            scanOf(Json::array({table(7, "Nasty\tgroup", nastyRows(c.rows, c.aWidth))})));
        EXPECT_TRUE(terminalSafe(view));
        const std::vector<std::string> body = groupLines(view, "Nasty\\tgroup (" + c.heading + ")");
        ASSERT_FALSE(body.empty()) << view.substr(0, 400);
        const std::string as(c.aWidth, 'a');
        if (2 + 21 + 2 + c.aWidth + 21 + 2 + 8 <= VIEW_WIDTH) {
            // Columns: a line of names, then a line a row, each value under its name.
            ASSERT_EQ(body.size(), c.rows + 1);
            EXPECT_EQ(body[0].find("ID\\tname"), 2u);
            const std::size_t second = chars(body[0].substr(0, body[0].find("Addr")));
            for (std::size_t i = 1; i < body.size(); ++i) {
                ASSERT_LE(chars(body[i]), VIEW_WIDTH) << body[i];
                ASSERT_EQ(chars(body[i].substr(0, body[i].find(as))), second) << body[i];
            }
        } else {
            // Blocks: every value starts in the same column, whatever its name.
            std::size_t valueAt = 0, pairs = 0;
            for (const std::string& l : body) {
                if (l.empty()) continue;
                const std::size_t colon = l.find(": ");
                ASSERT_NE(colon, std::string::npos) << l;
                const std::size_t at = chars(l.substr(0, l.find_first_not_of(' ', colon + 1)));
                valueAt = valueAt ? valueAt : at;
                ASSERT_EQ(at, valueAt) << l;
                ++pairs;
            }
            EXPECT_EQ(pairs, 3 * c.rows); // no value lost, none split
        }
    }
}

TEST(View, DocumentsOfTheWrongShapeStillPrint) {
    const Json odd = Json::array(
        {Json::array({1, "two", Json::object(), nullptr}),
         Json::array({Json{{"value", Json::array({1, 2})}}, Json{{"name", 3}, {"value", true}},
                      Json{{"id", 9}, {"value", -4.5}}, attr(2, "A", "x"), attr(2, "A", "y")})});
    const Json tables =
        Json::array({table(5, "Rows of text", Json("text")), table(5, "Null rows", nullptr),
                     table(5, "Odd", odd), Json{{"id", "x"}, {"status", 7}}, 42, "table", nullptr});
    std::string view;
    ASSERT_NO_THROW(view = readableView(scanOf(tables)));
    EXPECT_EQ(view.rfind("Host:    testhost\n", 0), 0u);
    EXPECT_TRUE(terminalSafe(view)) << view;
}

} // namespace
