// End to end: every bundle through `invscan --replay DIR --format json` for the
// system groups and the network groups, compared with expected files; then, field
// by field, where the expected values come from in each bundle's own sources, so
// that an expected file cannot drift away from the data it claims to describe.
#include <gtest/gtest.h>

#include "../common/run_command.h"

#include "../common/json_schema.h"
#include <nlohmann/json.hpp>

#include <cstdio>
#include <dirent.h>
#include <string>
#include <vector>

namespace {

using testrun::readFile;

const std::string kBundles = std::string(INVSCAN_TEST_DATA) + "/bundles/";
const std::string kExpected = std::string(INVSCAN_TEST_DATA) + "/expected/";
const std::string kInvscan = std::string(INVSCAN_BINARY_DIR) + "/bin/invscan";
const char* const kGroups = " -g 4 -g 3 -g 31 -g 5 -g 15 -g 1";
const char* const kNetworkGroups = " -g 7 -g 6 -g 51 -g 27";

using testrun::run;

std::vector<std::string> bundles() {
    std::vector<std::string> names;
    if (DIR* d = opendir(kBundles.c_str())) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.') names.push_back(e->d_name);
        closedir(d);
    }
    return names;
}

// Every output the tests here read, for the schema check at the end of each test.
std::vector<std::string>& outputs() {
    static std::vector<std::string> o;
    return o;
}

nlohmann::json scanBundle(const std::string& name, const char* groups = nullptr) {
    std::string g = groups ? groups : std::string(kGroups) + kNetworkGroups;
    std::string out = run("env -u KOR_HOMEDIR " + kInvscan + " --replay " + kBundles + name + g +
                          " --format json");
    outputs().push_back(out);
    return nlohmann::json::parse(out, nullptr, false);
}

// The outputs made so far follow the schema; the list starts again.
void expectValidOutputs() {
    EXPECT_EQ(testjson::schemaProblems(outputs()), "");
    outputs().clear();
}

// The value of attribute `attr` in row `row` of group `group`, as text.
std::string field(const nlohmann::json& scan, int group, size_t row, const std::string& attr) {
    for (const auto& t : scan["tables"]) {
        if (t.value("id", 0) != group || !t.contains("rows") || row >= t["rows"].size()) continue;
        for (const auto& a : t["rows"][row])
            if (a["name"] == attr)
                return a["value"].is_string() ? a["value"].get<std::string>() : a["value"].dump();
    }
    return "<absent>";
}

} // namespace

TEST(SystemGroupsReplay, EveryBundleMatchesItsExpectedFiles) {
    std::vector<std::string> names = bundles();
    ASSERT_GE(names.size(), 13u);
    const struct {
        const char* groups;
        const char* suffix;
    } kinds[] = {{kGroups, ".system.json"}, {kNetworkGroups, ".network.json"}};
    for (const std::string& name : names) {
        for (const auto& k : kinds) {
            nlohmann::json got = scanBundle(name, k.groups);
            ASSERT_FALSE(got.is_discarded()) << name;
            nlohmann::json want =
                nlohmann::json::parse(readFile(kExpected + name + k.suffix), nullptr, false);
            ASSERT_FALSE(want.is_discarded()) << "no expected file " << name << k.suffix;
            EXPECT_EQ(got["tables"], want) << name << k.suffix;
            EXPECT_EQ(got["format"], 1) << name;
        }
    }
    expectValidOutputs();
}

// Each expected value and the line of the bundle it was read from.
TEST(SystemGroupsReplay, ExpectedValuesComeFromTheBundles) {
    const struct {
        const char* bundle;
        int group;
        size_t row;
        const char* attr;
        const char* value;
        const char* file;   // in the bundle
        const char* source; // the text there that gives the value
    } cases[] = {
        {"macmini3-1-10.6.8", 4, 0, "Name", "Mac OS X 10.6.8 (10K549)", "helpers/sysprof",
         "os_version:s=Mac OS X 10.6.8 (10K549)"},
        {"macmini3-1-10.6.8", 4, 0, "Install Date", "2009-08-28 10:12:01 +0200",
         "files/%2Fvar%2Flog%2FOSInstall.custom",
         "Native install completed 2009-08-28 10:12:01 +0200."},
        {"macmini3-1-10.6.8", 31, 0, "Module Size MB", "2048", "helpers/sysprof",
         "dimm_size:s=2 GB"},
        {"macmini3-1-10.6.8", 5, 0, "Total Size", "163880", "helpers/sysprof", "size:s=160.04 GB"},
        {"macmini3-1-10.6.8", 1, 0, "UUID", "402127FE-F62F-5F2F-B899-BC9F25C44006",
         "helpers/sysprof", "platform_UUID:s=402127FE-F62F-5F2F-B899-BC9F25C44006"},
        {"macbook2-1-10.6.6", 31, 0, "Packaging", "0x48594D503536345336344350362D59352020",
         "helpers/sysprof", "dimm_part_number:s=0x48594D503536345336344350362D59352020"},
        {"powermac11-2-10.5.8", 31, 2, "Module Size MB", "0", "helpers/sysprof",
         "dimm_size:s=Empty"},
        {"powermac11-2-10.5.8", 5, 1, "Type", "23", "helpers/sysprof", "HL-DT-ST DVD-RW GWA-4165B"},
        {"apple-ssd-nvme", 5, 0, "Total Size", "512286", "helpers/sysprof", "size:s=500.28 GB"},
        {"macbookair10-1-m1-11.2.3", 4, 0, "Major Version", "0", "helpers/sysprof",
         "os_version:s=macOS 11.2.3"},
        {"kbrazil-mac-10.14.6", 3, 0, "Total Physical", "16777216", "sysctl.txt",
         "hw.memsize\tq\t17179869184"},
        {"kbrazil-mac-10.14.6", 4, 0, "OS Kernel Mode", "64", "uname.txt", "machine\tx86_64"},
        {"linux-debian12-vm", 4, 0, "Name", "Debian GNU/Linux 12 (bookworm)",
         "files/%2Fetc%2Fos-release", "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\""},
        {"linux-debian12-vm", 4, 0, "OS Messages Locale", "C.UTF-8", "locale.txt",
         "LC_MESSAGES\tC.UTF-8"},
        {"linux-debian12-vm", 3, 0, "Free Physical", "24094820", "files/%2Fproc%2Fmeminfo",
         "MemAvailable:   24094820 kB"},
        {"linux-debian12-vm", 15, 0, "Time Zone Name", "UTC", "timezone.txt", "std\tUTC"},
        {"imac7-1-10.6.4", 7, 0, "Type", "10", "helpers/sysprof", "type:s=PPP (PPPSerial)"},
        {"imac7-1-10.6.4", 7, 1, "Connector Type", "100baseTX", "helpers/sysprof",
         "MediaSubType:s=100baseTX"},
        {"imac7-1-10.6.4", 6, 0, "DHCP Enabled", "N", "helpers/sysprof", "ConfigMethod:s=DHCP"},
        {"macbook2-1-10.6.6", 6, 0, "Secondary DNS", "193.55.99.70", "helpers/sysprof",
         "ServerAddresses:s=193.55.99.70"},
        {"linux-debian12-netns-ipv6", 51, 0, "Address", "2001:db8:10::10",
         "commands/%2Fsbin%2Fifconfig%20-a%202%3E%2Fdev%2Fnull",
         "inet6 2001:db8:10::10 prefixlen 64"},
        {"linux-debian12-netns-ipv6", 51, 1, "Scope", "link",
         "commands/%2Fsbin%2Fifconfig%20-a%202%3E%2Fdev%2Fnull",
         "inet6 fe80::8a7:9aff:fe04:4344%eth0"},
        {"linux-debian12-vm", 27, 2, "FS Type", "131", "mounts.txt", "ext4\t/dev/vda\t/\t"},
        {"mac-mounts-nfs-smb", 27, 8, "Server Hostname", "MN - mydomain.com (ftp.mydomain.com)",
         "mounts.txt", "nfs\tMN - mydomain.com (ftp.mydomain.com):/\t"},
        {"mac-mounts-nfs-smb", 27, 12, "Server Path", "/Media", "mounts.txt",
         "smbfs\t//lex@nas.local/Media\t"},
        {"kbrazil-mac-10.14.6", 27, 0, "FS Total Size", "488245288", "mounts.txt",
         "apfs\t/dev/disk1s1\t/\t512\t4096\t976490576\t"},

    };
    std::string lastBundle;
    nlohmann::json scan;
    for (const auto& c : cases) {
        if (c.bundle != lastBundle) {
            scan = scanBundle(c.bundle);
            lastBundle = c.bundle;
        }
        const std::string where =
            std::string(c.bundle) + " group " + std::to_string(c.group) + " " + c.attr;
        EXPECT_EQ(field(scan, c.group, c.row, c.attr), c.value) << where;
        EXPECT_NE(readFile(kBundles + c.bundle + "/" + c.file).find(c.source), std::string::npos)
            << where << ": '" << c.source << "' not in " << c.file;
    }
    expectValidOutputs();
}

// What a live scan read, a replay of its bundle reproduces exactly.
TEST(SystemGroupsReplay, RecordThenReplayIsIdentical) {
    char dir[] = "/tmp/invscan-record-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string bundle = std::string(dir) + "/host";
    const std::string groups = std::string(kGroups) + kNetworkGroups + " -g 44 -g 24 --format json";
    std::string live = run("env -u KOR_HOMEDIR " + kInvscan + " --record " + bundle + groups);
    std::string replayed = run("env -u KOR_HOMEDIR " + kInvscan + " --replay " + bundle + groups);
    // The same tables; only the time of the scan differs.
    nlohmann::json a = nlohmann::json::parse(live, nullptr, false);
    nlohmann::json b = nlohmann::json::parse(replayed, nullptr, false);
    ASSERT_FALSE(a.is_discarded());
    ASSERT_FALSE(b.is_discarded());
    EXPECT_FALSE(a["tables"].empty());
    EXPECT_EQ(a["tables"], b["tables"]);
    EXPECT_EQ(a["kernel"], b["kernel"]);
    outputs() = {live, replayed};
    expectValidOutputs();
    run("rm -rf " + std::string(dir));
}

// The GLPI inventory of every bundle and of this machine is what a GLPI server takes.
TEST(GlpiInventory, EveryBundleAndThisMachineFollowTheServersSchema) {
    const std::string schema = std::string(INVSCAN_TEST_DATA) + "/glpi/inventory.schema.json";
    std::vector<std::string> docs;
    std::vector<std::string> commands = {"env -u KOR_HOMEDIR " + kInvscan + " --format glpi"};
    for (const std::string& name : bundles())
        commands.push_back("env -u KOR_HOMEDIR " + kInvscan + " --replay " + kBundles + name +
                           " --format glpi");
    for (const std::string& c : commands) {
        docs.push_back(run(c));
        nlohmann::json doc = nlohmann::json::parse(docs.back(), nullptr, false);
        ASSERT_FALSE(doc.is_discarded()) << c;
        EXPECT_EQ(doc["itemtype"], "Computer") << c;
        EXPECT_EQ(doc["content"]["versionclient"], "invscan_v" + std::string(INVSCAN_VERSION_TEXT))
            << c;
    }
    EXPECT_EQ(testjson::schemaProblems(docs, schema), "");
    // The same host gives the same id, scan after scan.
    EXPECT_EQ(nlohmann::json::parse(run(commands[1]))["deviceid"],
              nlohmann::json::parse(docs[1])["deviceid"]);
}
