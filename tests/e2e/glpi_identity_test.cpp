// The GLPI inventory's identity over the real bundles and this machine: the deviceid
// is the node name (and a digest of the machine id where the host has one) whatever
// groups are asked for and whoever runs the scan, no two hosts share one, and the
// values GLPI shows of a host reach it from their source.
#include <gtest/gtest.h>

#include "../common/run_command.h"

#include "../common/json_schema.h"
#include <nlohmann/json.hpp>

#include <dirent.h>
#include <map>
#include <string>
#include <sys/utsname.h>
#include <unistd.h>
#include <vector>

namespace {

using testrun::readFile;
using testrun::run;

const std::string kBundles = std::string(INVSCAN_TEST_DATA) + "/bundles/";
const std::string kBinary = std::string(INVSCAN_BINARY_DIR) + "/bin/invscan";
const std::string kInvscan = "env -u KOR_HOMEDIR " + kBinary;
const std::string kSchema = std::string(INVSCAN_TEST_DATA) + "/glpi/inventory.schema.json";

// Group selections that share no group, and none at all (every group).
const char* const kSelections[] = {
    "", " -g 24 -g 31", " -g 20", " -g 7 -g 6 -g 51 -g 27", " -g 4 -g 44", " -g 1 -g 3 -g 5"};

std::vector<std::string> bundles() {
    std::vector<std::string> names;
    if (DIR* d = opendir(kBundles.c_str())) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.') names.push_back(e->d_name);
        closedir(d);
    }
    return names;
}

// The inventory of a bundle ("" for this machine), its text kept for the schema check.
nlohmann::json glpi(const std::string& bundle, const std::string& groups,
                    std::vector<std::string>* docs) {
    const std::string replay = bundle.empty() ? "" : " --replay " + kBundles + bundle;
    docs->push_back(run(kInvscan + replay + groups + " --format glpi 2>/dev/null"));
    return nlohmann::json::parse(docs->back(), nullptr, false);
}

std::string nodeName() {
    utsname u;
    return uname(&u) == 0 ? u.nodename : "";
}

// This machine's id: its node name, and the digest of its machine id when it has one.
std::string thisDeviceId() {
    if (access("/etc/machine-id", R_OK) != 0) return nodeName();
    return nodeName() + "-" +
           run("tr -d '\\n' </etc/machine-id | md5sum | cut -c1-12 | tr -d '\\n'");
}

// A copy of a bundle whose host has the given machine id.
std::string withMachineId(const std::string& bundle, const std::string& id, const std::string& at) {
    run("rm -rf " + at + " && cp -r " + kBundles + bundle + " " + at + " && mkdir -p " + at +
        "/files && printf '" + id + "\\n' >" + at + "/files/%2Fetc%2Fmachine-id");
    return at;
}

} // namespace

TEST(GlpiIdentity, TheNodeNameIsTheIdWhateverTheGroups) {
    const struct {
        std::string bundle; // "" for this machine
        std::string node;
        std::string id;
    } cases[] = {
        {"kbrazil-mac-10.14.6", "kbrazil-mac", "kbrazil-mac"},
        {"linux-debian12-vm", "vm", "vm"},
        // The same VM seen from a network namespace: other addresses, the same host.
        {"linux-debian12-netns-ipv6", "vm", "vm"},
        {"", nodeName(), thisDeviceId()},
    };
    std::vector<std::string> docs;
    for (const auto& c : cases) {
        ASSERT_FALSE(c.node.empty());
        if (!c.bundle.empty()) {
            EXPECT_NE(readFile(kBundles + c.bundle + "/uname.txt").find("nodename\t" + c.node),
                      std::string::npos)
                << c.bundle;
        }
        for (const char* groups : kSelections) {
            const nlohmann::json doc = glpi(c.bundle, groups, &docs);
            ASSERT_FALSE(doc.is_discarded()) << c.bundle << groups;
            EXPECT_EQ(doc["deviceid"], c.id) << c.bundle << groups;
            EXPECT_EQ(doc["content"]["hardware"]["name"], c.node) << c.bundle << groups;
        }
    }
    EXPECT_EQ(testjson::schemaProblems(docs, kSchema), "");
}

// Bundles recorded without a node name fall back to their hardware; the two bundles of
// one VM are the only ones to share an id.
TEST(GlpiIdentity, NoTwoHostsShareAnId) {
    std::map<std::string, std::vector<std::string>> byId;
    std::vector<std::string> docs;
    for (const std::string& name : bundles()) {
        const nlohmann::json a = glpi(name, "", &docs), b = glpi(name, "", &docs);
        ASSERT_TRUE(a["deviceid"].is_string()) << name;
        EXPECT_EQ(a["deviceid"], b["deviceid"]) << name << ": scan after scan";
        byId[a["deviceid"]].push_back(name);
    }
    ASSERT_GE(byId.size(), 12u);
    for (const auto& id : byId) {
        if (id.first == "vm")
            EXPECT_EQ(id.second,
                      std::vector<std::string>({"linux-debian12-netns-ipv6", "linux-debian12-vm"}));
        else
            EXPECT_EQ(id.second.size(), 1u)
                << id.first << " is " << id.second[0] << " and " << id.second.back();
    }
}

// Two hosts of one name, told apart by their machine ids.
TEST(GlpiIdentity, HostsOfOneNameAreTwoComputers) {
    const std::string dir = testing::TempDir() + "glpi_identity_" + std::to_string(getpid());
    const struct {
        const char* machineId;
        const char* deviceId;
    } cases[] = {
        {"0123456789abcdef0123456789abcdef", "vm-"},
        {"fedcba9876543210fedcba9876543210", "vm-"},
        {"not a machine id", "vm"}, // taken for none
    };
    std::map<std::string, int> seen;
    std::vector<std::string> docs;
    int n = 0;
    for (const auto& c : cases) {
        const std::string at =
            withMachineId("linux-debian12-vm", c.machineId, dir + "_" + std::to_string(n++));
        docs.push_back(run(kInvscan + " --replay " + at + " --format glpi 2>/dev/null"));
        const nlohmann::json doc = nlohmann::json::parse(docs.back(), nullptr, false);
        ASSERT_TRUE(doc["deviceid"].is_string()) << c.machineId;
        const std::string id = doc["deviceid"];
        EXPECT_EQ(id.substr(0, std::string(c.deviceId).size()), c.deviceId) << c.machineId;
        EXPECT_EQ(id.size(), std::string(c.deviceId) == "vm" ? 2u : 15u) << id;
        EXPECT_EQ(doc["content"]["hardware"]["name"], "vm");
        EXPECT_EQ(++seen[id], 1) << id << " twice";
        run("rm -rf " + at);
    }
    EXPECT_EQ(testjson::schemaProblems(docs, kSchema), "");
}

// A scan without root reads no UUID or system serial; its id stays the same.
TEST(GlpiIdentity, RootOrNotTheSameId) {
    if (geteuid() != 0 || access("/usr/bin/setpriv", X_OK) != 0)
        GTEST_SKIP() << "needs root and setpriv";
    std::vector<std::string> docs;
    const nlohmann::json root = glpi("", "", &docs);
    docs.push_back(run("cd / && setpriv --reuid=65534 --regid=65534 --clear-groups " + kInvscan +
                       " --format glpi 2>/dev/null"));
    const nlohmann::json nobody = nlohmann::json::parse(docs.back(), nullptr, false);
    ASSERT_FALSE(nobody.is_discarded()) << "cannot run " << kBinary << " as nobody";
    EXPECT_EQ(root["deviceid"], nobody["deviceid"]);
    EXPECT_EQ(root["content"]["hardware"]["name"], nobody["content"]["hardware"]["name"]);
}

// What GLPI shows of a host, and the line of the bundle it comes from.
TEST(GlpiContent, ValuesReachTheInventory) {
    const struct {
        const char* bundle;
        const char* pointer;
        nlohmann::json value;
        const char* file;   // in the bundle
        const char* source; // the text there that gives the value
    } cases[] = {
        {"linux-debian12-vm", "/content/operatingsystem/kernel_version", "6.18.44-fc-v769",
         "helpers/iokit", "Linux version 6.18.44-fc-v769 ("},
        {"linux-debian12-vm", "/content/operatingsystem/kernel_name", "linux", "uname.txt",
         "sysname\tLinux"},
        {"kbrazil-mac-10.14.6", "/content/cpus/0/speed", 2400, "sysctl.txt",
         "hw.cpufrequency\tq\t2400000000"},
        {"macmini3-1-10.6.8", "/content/cpus/0/speed", 2260, "helpers/sysprof",
         "current_processor_speed:s=2,26 GHz"},
        {"kbrazil-mac-10.14.6", "/content/hardware/name", "kbrazil-mac", "uname.txt",
         "nodename\tkbrazil-mac"},
    };
    std::vector<std::string> docs;
    for (const auto& c : cases) {
        const nlohmann::json doc = glpi(c.bundle, "", &docs);
        const nlohmann::json::json_pointer at(c.pointer);
        ASSERT_TRUE(doc.contains(at)) << c.bundle << " " << c.pointer;
        EXPECT_EQ(doc[at], c.value) << c.bundle << " " << c.pointer;
        EXPECT_NE(readFile(kBundles + c.bundle + "/" + c.file).find(c.source), std::string::npos)
            << c.bundle << ": '" << c.source << "' not in " << c.file;
    }
    // A Mac's description names no kernel release: none is made up.
    EXPECT_FALSE(glpi("macmini3-1-10.6.8", "", &docs)["content"]["operatingsystem"].contains(
        "kernel_version"));
    EXPECT_EQ(testjson::schemaProblems(docs, kSchema), "");
}
