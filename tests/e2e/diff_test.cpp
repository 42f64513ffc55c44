// invscan diff over scans of the real bundles: two replays of one bundle are the
// same; edited copies of a bundle, and two bundles of one VM, give exactly the rows
// that came, went and changed; a group in one scan only is said once; broken input
// is trouble (exit 2), never a crash.
#include <gtest/gtest.h>

#include "../common/run_command.h"
#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <map>
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

namespace {

// A change to a copy of a bundle: `from` (found once at least) becomes `to`, everywhere.
struct Edit {
    const char* file;
    const char* from;
    const char* to;
};
struct Want {
    const char* group;
    const char* change;
    const char* detail; // in the difference's JSON
};

const char kDimm1[] = "         (BANK 1/DIMM1\n"
                      "            dimm_size:s=1 GB\n"
                      "            dimm_type:s=DDR2 SDRAM\n"
                      "            dimm_speed:s=667 MHz\n"
                      "            dimm_status:s=OK\n"
                      "            dimm_manufacturer:s=0x0000000000000000\n"
                      "            dimm_part_number:s=0x313032343633363735305320202020202020\n"
                      "            dimm_serial_number:s=0x00000000\n"
                      "         )\n";

} // namespace

// Rows pair by what identifies them, whatever their place: an address by itself and
// its interface, an adapter by its hardware address or name, a disk by its ID or
// serial, a mount by its mount point, a memory module by its socket.
TEST_F(Diff, RowsPairByWhatIdentifiesThem) {
    const struct {
        const char* what;
        const char* before; // bundles
        const char* after;  // "" for a copy of `before` with the edits
        std::vector<Edit> edits;
        std::vector<Want> want; // exactly these
        const char* line;       // in the readable output
    } cases[] = {
        {"a module out, a disk replaced, an address added",
         "imac7-1-10.6.4",
         "",
         {{"helpers/sysprof", kDimm1, ""},
          {"helpers/sysprof", "WD-WMARW0629615", "WD-REPLACED0001"},
          {"helpers/sysprof", "   Addresses:s=10.0.1.101\n",
           "   Addresses:s=10.0.1.101\n               Addresses:s=10.0.1.102\n"}},
         {{"Memory Modules", "removed", "BANK 1/DIMM1"},
          {"Storage", "removed", "WD-WMARW0629615"},
          {"Storage", "added", "WD-REPLACED0001"},
          {"IP Address", "added", "10.0.1.102"}},
         "Memory Modules: removed (Socket Name=\"BANK 1/DIMM1\")\n"},
        // The new address takes the old one's Index: still two rows, not one changed.
        {"an address gone from en2, another on en0",
         "imac7-1-10.6.4",
         "",
         {{"helpers/sysprof", "   Addresses:s=192.168.0.11\n", "\n"},
          {"helpers/sysprof", "   ip_address:s=192.168.0.11\n", "\n"},
          {"helpers/sysprof", "   Addresses:s=10.0.1.101\n",
           "   Addresses:s=10.0.1.101\n               Addresses:s=10.0.1.102\n"}},
         {{"IP Address", "removed", "192.168.0.11"}, {"IP Address", "added", "10.0.1.102"}},
         "IP Address: removed (Address=\"192.168.0.11\", "
         "Permanent Mac Address=\"00:1c:42:00:00:08\")\n"},
        {"one VM seen from a network namespace",
         "linux-debian12-vm",
         "linux-debian12-netns-ipv6",
         {},
         {{"Network Adapter", "changed", "0a:a7:9a:04:43:44"},
          {"IP Address", "removed", "192.0.2.2"},
          {"IP Address", "added", "198.51.100.10"},
          {"IPv6 Address", "removed", "\"fd00::2\""},
          {"IPv6 Address", "removed", "fe80::fc:ff:fe00:1"},
          {"IPv6 Address", "added", "2001:db8:10::10"},
          {"IPv6 Address", "added", "fe80::8a7:9aff:fe04:4344"},
          {"Partition", "removed", "/sys/fs/cgroup"}},
         "Network Adapter: changed (Model=\"Ethernet-eth0\")\n"
         "    Permanent Address: \"02:fc:00:00:00:01\" -> \"0a:a7:9a:04:43:44\"\n"},
        // Every mount after /dev moves up one Index; /dev/vda now shows where else it
        // is mounted.
        {"/dev gone, / mounted from another disk",
         "linux-debian12-vm",
         "",
         {{"mounts.txt", "devtmpfs\tdevtmpfs\t/dev\t", "#"},
          {"mounts.txt", "ext4\t/dev/vda\t/\t", "ext4\t/dev/vdb\t/\t"}},
         {{"Partition", "removed", "devtmpfs"},
          {"Partition", "added", "/run/netns"},
          {"Partition", "changed", "/dev/vdb"}},
         "Partition: changed (FS Mount Point=\"/\")\n"},
    };
    for (const auto& c : cases) {
        std::string after = kBundles + c.after;
        if (c.edits.size()) {
            after = dir + "/edited";
            run("rm -rf " + after + " && cp -r " + kBundles + c.before + " " + after);
            for (const Edit& e : c.edits) {
                std::string text = readFile(after + "/" + e.file);
                ASSERT_NE(text.find(e.from), std::string::npos) << c.what << ": " << e.from;
                for (std::size_t at = 0; (at = text.find(e.from, at)) != std::string::npos;
                     at += std::strlen(e.to))
                    text.replace(at, std::strlen(e.from), e.to);
                writeFile(after + "/" + e.file, text);
            }
        }
        const std::string a = scan(kBundles + c.before, "old.json"), b = scan(after, "new.json");
        Outcome r = run(kInvscan + " diff --format json " + a + " " + b);
        EXPECT_EQ(r.status, 1) << c.what;
        nlohmann::json d = nlohmann::json::parse(r.out, nullptr, false);
        ASSERT_FALSE(d.is_discarded()) << c.what << ": " << r.out;
        std::vector<bool> claimed(d["differences"].size(), false);
        for (const Want& w : c.want) {
            bool found = false;
            for (std::size_t i = 0; i < claimed.size() && !found; ++i) {
                const auto& x = d["differences"][i];
                found = !claimed[i] && x["group"] == w.group && x["change"] == w.change &&
                        x.dump().find(w.detail) != std::string::npos;
                claimed[i] = claimed[i] || found;
            }
            EXPECT_TRUE(found) << c.what << ": " << w.group << " " << w.change << " " << w.detail;
        }
        EXPECT_EQ(d["differences"].size(), c.want.size()) << c.what << ": " << r.out;
        Outcome text = run(kInvscan + " diff " + a + " " + b);
        EXPECT_NE(text.out.find(c.line), std::string::npos) << c.what << ":\n" << text.out;
        EXPECT_NE(text.out.find(std::to_string(c.want.size()) + " differences\n"),
                  std::string::npos)
            << c.what;
    }
}

// A group one scan has and the other does not is one line, whichever the older.
TEST_F(Diff, AGroupInOneScanOnlyIsNotScanned) {
    const std::string full = scan(kBundles + "macmini3-1-10.6.8", "full.json"),
                      part = dir + "/part.json";
    run(kInvscan + " --replay " + kBundles + "macmini3-1-10.6.8 -g 24 -g 31 --format json > " +
        part);
    nlohmann::json scanned = nlohmann::json::parse(readFile(full));
    std::map<int, std::string> others; // the full scan's groups with a table, but 24 and 31
    for (const auto& t : scanned["tables"])
        if (t["rows"].is_array() && t["id"] != 24 && t["id"] != 31) others[t["id"]] = t["name"];
    ASSERT_GE(others.size(), 8u);
    for (const bool fullFirst : {true, false}) {
        const std::string args = fullFirst ? full + " " + part : part + " " + full;
        Outcome r = run(kInvscan + " diff --format json " + args);
        EXPECT_EQ(r.status, 1);
        nlohmann::json d = nlohmann::json::parse(r.out);
        ASSERT_EQ(d["differences"].size(), others.size()) << r.out;
        auto group = others.begin();
        for (const auto& x : d["differences"]) {
            EXPECT_EQ(x["group"], (group++)->second);
            EXPECT_EQ(x["change"], "not scanned");
            EXPECT_EQ(x["absent_from"], fullFirst ? "new" : "old");
        }
        EXPECT_NE(run(kInvscan + " diff " + args)
                      .out.find(std::string("\nStorage: not scanned in the ") +
                                (fullFirst ? "new" : "old") + " scan\n"),
                  std::string::npos);
    }
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
