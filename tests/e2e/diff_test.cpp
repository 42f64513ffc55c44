// invscan diff over scans of the real bundles: two replays of one bundle are the
// same; a bundle with one module removed, one disk's serial changed and one address
// added gives exactly those three; broken input is trouble (exit 2), never a crash.
#include <gtest/gtest.h>

#include "../common/run_command.h"
#include <nlohmann/json.hpp>

#include <cstdio>
#include <dirent.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using testrun::readFile;
using testrun::writeFile;

const std::string kBundles = std::string(INVSCAN_TEST_DATA) + "/bundles/";
const std::string kInvscan =
    "env -u KOR_HOMEDIR " + std::string(INVSCAN_BINARY_DIR) + "/bin/invscan";

using testrun::Outcome;
Outcome run(const std::string& command) {
    return testrun::runCommand(command);
}

class Diff : public testrun::TempDirTest {
protected:
    std::string scan(const std::string& bundle, const std::string& file) {
        std::string path = dir + "/" + file;
        run(kInvscan + " --replay " + bundle + " --format json > " + path);
        return path;
    }
};

} // namespace

TEST_F(Diff, TwoReplaysOfOneBundleAreTheSame) {
    DIR* d = opendir(kBundles.c_str());
    ASSERT_NE(d, nullptr);
    std::vector<std::string> names;
    while (dirent* e = readdir(d))
        if (e->d_name[0] != '.') names.push_back(e->d_name);
    closedir(d);
    for (const std::string& name : names) {
        std::string a = scan(kBundles + name, "a.json"), b = scan(kBundles + name, "b.json");
        Outcome r = run(kInvscan + " diff " + a + " " + b);
        EXPECT_EQ(r.status, 0) << name << ": " << r.out;
        EXPECT_EQ(r.out, "no differences\n") << name;
    }
}

TEST_F(Diff, RemovedChangedAndAddedRows) {
    const std::string copy = dir + "/imac";
    run("cp -r " + kBundles + "imac7-1-10.6.4 " + copy);
    std::string sp = readFile(copy + "/helpers/sysprof");
    // The second memory module goes, the first disk gets another serial, the Ethernet
    // service a second address.
    std::size_t at = sp.find("         (BANK 1/DIMM1\n");
    ASSERT_NE(at, std::string::npos);
    sp.erase(at, sp.find("         )\n", at) + 11 - at);
    sp.replace(sp.find("WD-WMARW0629615"), 15, "WD-REPLACED0001");
    at = sp.find("Addresses:s=10.0.1.101\n");
    sp.insert(at, "Addresses:s=10.0.1.102\n               ");
    writeFile(copy + "/helpers/sysprof", sp);

    std::string before = scan(kBundles + "imac7-1-10.6.4", "old.json"),
                after = scan(copy, "new.json");
    Outcome r = run(kInvscan + " diff --format json " + before + " " + after);
    EXPECT_EQ(r.status, 1);
    nlohmann::json d = nlohmann::json::parse(r.out, nullptr, false);
    ASSERT_FALSE(d.is_discarded()) << r.out;
    const nlohmann::json& diffs = d["differences"];
    ASSERT_EQ(diffs.size(), 3u) << r.out;
    const struct {
        const char *group, *change, *detail;
    } want[] = {{"Storage", "changed", "WD-REPLACED0001"},
                {"IP Address", "added", "10.0.1.102"},
                {"Memory Modules", "removed", "BANK 1/DIMM1"}};
    for (const auto& w : want) {
        bool found = false;
        for (const auto& x : diffs)
            found = found || (x["group"] == w.group && x["change"] == w.change &&
                              x.dump().find(w.detail) != std::string::npos);
        EXPECT_TRUE(found) << w.group << " " << w.change << " in " << r.out;
    }
    Outcome text = run(kInvscan + " diff " + before + " " + after);
    EXPECT_NE(text.out.find("    Serial Number: \"WD-WMARW0629615\" -> \"WD-REPLACED0001\"\n"),
              std::string::npos);
    EXPECT_NE(text.out.find("3 differences\n"), std::string::npos);
}

// Values that change on every scan count only with --all.
TEST_F(Diff, VolatileValuesNeedAll) {
    std::string a = scan(kBundles + "linux-debian12-vm", "a.json");
    std::string text = readFile(a);
    std::size_t at = text.find("\"Free Physical\"");
    ASSERT_NE(at, std::string::npos);
    at = text.find("\"value\": ", at) + 9;
    text.replace(at, text.find_first_of(",\n}", at) - at, "1");
    writeFile(dir + "/b.json", text);
    EXPECT_EQ(run(kInvscan + " diff " + a + " " + dir + "/b.json").status, 0);
    EXPECT_EQ(run(kInvscan + " diff --all " + a + " " + dir + "/b.json").status, 1);
}

TEST_F(Diff, BrokenInputIsTrouble) {
    std::string good = scan(kBundles + "imac7-1-10.6.4", "good.json");
    const std::string text = readFile(good);
    writeFile(dir + "/cut.json", text.substr(0, text.size() / 2));
    writeFile(dir + "/prose.json", "not JSON at all\n");
    writeFile(dir + "/array.json", "[1, 2, 3]\n");
    std::string other = text;
    other.replace(other.find("\"format\": 1"), 11, "\"format\": 2");
    writeFile(dir + "/format2.json", other);
    const struct {
        std::string args;
        const char* message;
    } cases[] = {
        {good + " " + dir + "/cut.json", "not JSON (or cut short)"},
        {good + " " + dir + "/prose.json", "not JSON (or cut short)"},
        {good + " " + dir + "/array.json", "not an invscan JSON scan"},
        {good + " " + dir + "/format2.json", "the scans have different formats (1 and 2)"},
        {good + " /dev/zero", "is not a regular file"},
        {good + " " + dir + "/missing.json", "No such file or directory"},
        {"- - < " + good, "only one of the scans can come from standard input"},
    };
    for (const auto& c : cases) {
        Outcome r = run(kInvscan + " diff " + c.args + " 2>&1");
        EXPECT_EQ(r.status, 2) << c.args << ": " << r.out;
        EXPECT_NE(r.out.find(c.message), std::string::npos) << c.args << ": " << r.out;
    }
    EXPECT_EQ(run(kInvscan + " diff - " + good + " < " + good).status, 0);
}
