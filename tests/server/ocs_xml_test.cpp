// The OCS inventory XML over every real bundle and this machine, over documents only a
// hostile host makes, and the device id a host keeps.
#include <gtest/gtest.h>

#include "../common/run_command.h"
#include "cli/Ocs.h"
#include "cli/Send.h"

#include <pugixml.hpp>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>
#ifdef INVSCAN_HAVE_SEND
#include <zlib.h>
#endif

namespace {

using Json = nlohmann::ordered_json;

const std::string kBundles = std::string(INVSCAN_TEST_DATA) + "/bundles/";
const std::string kInvscan =
    "env -u KOR_HOMEDIR " + std::string(INVSCAN_BINARY_DIR) + "/bin/invscan";

Json scanOf(const std::string& bundle) {
    const std::string cmd = kInvscan + " --format json" +
                            (bundle.empty() ? "" : " --replay '" + kBundles + bundle + "'");
    return Json::parse(testrun::run(cmd + " 2>/dev/null"), nullptr, false);
}

std::vector<std::string> bundles() {
    std::vector<std::string> out;
    if (DIR* d = opendir(kBundles.c_str())) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.') out.push_back(e->d_name);
        closedir(d);
    }
    return out;
}

// The rows of a group that was read.
std::size_t rowCount(const Json& scan, unsigned id) {
    for (const Json& t : scan["tables"])
        if (t["id"] == id && t["status"] == "ok" && t["rows"].is_array()) return t["rows"].size();
    return 0;
}

std::size_t count(const pugi::xml_node& content, const char* section) {
    std::size_t n = 0;
    for (pugi::xml_node s = content.child(section); s; s = s.next_sibling(section))
        ++n;
    return n;
}

TEST(OcsXml, EveryBundleAndThisHost) {
    std::vector<std::string> names = bundles();
    ASSERT_GE(names.size(), 10u);
    names.push_back(""); // this machine
    for (const std::string& name : names) {
        SCOPED_TRACE(name.empty() ? "this host" : name);
        const Json scan = scanOf(name);
        ASSERT_TRUE(scan.is_object());
        const std::string xml = ocsInventory(scan, "box-2026-01-02-03-04-05");
        pugi::xml_document doc;
        ASSERT_TRUE(doc.load_string(xml.c_str()));
        pugi::xml_node req = doc.child("REQUEST");
        EXPECT_STREQ(req.child_value("QUERY"), "INVENTORY");
        EXPECT_STREQ(req.child_value("DEVICEID"), "box-2026-01-02-03-04-05");
        pugi::xml_node content = req.child("CONTENT");
        pugi::xml_node hw = content.child("HARDWARE");
        EXPECT_EQ(hw.child_value("NAME"), scan["host"].get<std::string>());
        EXPECT_EQ(std::stoul(hw.child_value("CHECKSUM")), ocsChecksum(scan));
        // One entry per row for the groups read row for row.
        EXPECT_EQ(count(content, "MEMORIES"), rowCount(scan, 31));
        EXPECT_EQ(count(content, "STORAGES"), rowCount(scan, 5));
        EXPECT_EQ(count(content, "DRIVES"), rowCount(scan, 27));
        EXPECT_GE(count(content, "NETWORKS"), rowCount(scan, 7));
        EXPECT_LE(count(content, "CPUS"), rowCount(scan, 44));
        EXPECT_EQ(count(content, "BIOS"), content.child("BIOS").first_child() ? 1u : 0u);
        // A section is flagged only when its group was read.
        const unsigned long sum = ocsChecksum(scan);
        if (rowCount(scan, 31)) {
            EXPECT_TRUE(sum & OCS_MEMORIES);
        }
        if (!(sum & OCS_DRIVES)) {
            EXPECT_FALSE(content.child("DRIVES"));
        }
        if (!(sum & OCS_STORAGES)) {
            EXPECT_FALSE(content.child("STORAGES"));
        }
        // Nothing empty is sent: the server would store it as a value.
        for (pugi::xml_node s : content.children())
            for (pugi::xml_node f = s.first_child(); f; f = f.next_sibling()) {
                if (f.type() != pugi::node_element) continue;
                EXPECT_TRUE(*f.child_value() != '\0') << s.name() << "/" << f.name();
            }
    }
}

// A replayed bundle is another host (or this one in the past): it is sent under its
// own fixed id, never under the id this machine keeps.
TEST(OcsDeviceId, ReplayedBundlesAreNotThisHost) {
    for (const std::string& name :
         {std::string("kbrazil-mac-10.14.6"), std::string("linux-debian12-vm")}) {
        const std::string xml = testrun::run(kInvscan + " --format ocs -g 20 --replay '" +
                                             kBundles + name + "' 2>/dev/null");
        pugi::xml_document doc;
        ASSERT_TRUE(doc.load_string(xml.c_str())) << name;
        const std::string node =
            doc.child("REQUEST").child("CONTENT").child("HARDWARE").child_value("NAME");
        EXPECT_EQ(std::string(doc.child("REQUEST").child_value("DEVICEID")),
                  node + "-2000-01-01-00-00-00")
            << name;
        EXPECT_TRUE(ocsDeviceIdValid(doc.child("REQUEST").child_value("DEVICEID")));
    }
}

TEST(OcsXml, FactsOfRealMachines) {
    struct Case {
        const char* bundle;
        const char* path; // section/FIELD of the first such section, or the n-th with #n
        const char* value;
    };
    const Case cases[] = {
        {"macbookpro-2011-10.7.5", "BIOS/SMANUFACTURER", "Apple"},
        {"macbookpro-2011-10.7.5", "MEMORIES/CAPACITY", "4096"},
        {"macbookpro-2011-10.7.5", "MEMORIES/CAPTION", "BANK 0/DIMM0"},
        {"macbookpro-2011-10.7.5", "MEMORIES/TYPE", "DDR3"},
        {"macbookpro-2011-10.7.5", "STORAGES/NAME", "TOSHIBA MK7559GSXF"},
        {"macbookpro-2011-10.7.5", "STORAGES/DISKSIZE", "768163"},
        {"macbookpro-2011-10.7.5", "HARDWARE/OSNAME", "Mac OS X 10.7.5 (11G63)"},
        {"macbookpro-2011-10.7.5", "HARDWARE/OSVERSION", "10.7.5"},
        {"macmini3-1-10.6.8", "BIOS/SMODEL", "Macmini3,1"},
        {"macmini3-1-10.6.8", "BIOS/SSN", "YM008ASN9G5"},
        {"linux-debian12-vm", "HARDWARE/IPADDR", "192.0.2.2"},
        {"linux-debian12-vm", "HARDWARE/DEFAULTGATEWAY", "192.0.2.1"},
        {"linux-debian12-vm", "HARDWARE/PROCESSORT", "Intel(R) Xeon(R) Processor"},
        {"linux-debian12-vm", "NETWORKS/IPSUBNET", "192.0.2.0"},
        {"linux-debian12-vm", "NETWORKS/MACADDR", "02:fc:00:00:00:01"},
        {"linux-debian12-vm", "CPUS/CORES", "2"},
        {"linux-debian12-vm", "DRIVES/TYPE", "/dev"},
        {"linux-debian12-vm", "ACCESSLOG/LOGDATE", ""}, // present; any date
    };
    std::map<std::string, std::string> xmls;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.bundle) + " " + c.path);
        if (!xmls.count(c.bundle))
            xmls[c.bundle] = ocsInventory(scanOf(c.bundle), "x-2026-01-02-03-04-05");
        pugi::xml_document doc;
        ASSERT_TRUE(doc.load_string(xmls[c.bundle].c_str()));
        const std::string path(c.path);
        pugi::xml_node field = doc.child("REQUEST")
                                   .child("CONTENT")
                                   .child(path.substr(0, path.find('/')).c_str())
                                   .child(path.substr(path.find('/') + 1).c_str());
        ASSERT_TRUE(field);
        if (*c.value) {
            EXPECT_STREQ(field.child_value(), c.value);
        }
    }
}

// Both addresses of the adapter are given, each as an entry of its own.
TEST(OcsXml, AddressesOfAnAdapter) {
    pugi::xml_document doc;
    ASSERT_TRUE(doc.load_string(
        ocsInventory(scanOf("linux-debian12-netns-ipv6"), "x-2026-01-02-03-04-05").c_str()));
    std::vector<std::string> addresses;
    for (pugi::xml_node n : doc.child("REQUEST").child("CONTENT").children("NETWORKS")) {
        EXPECT_STREQ(n.child_value("DESCRIPTION"), "Ethernet-eth0");
        addresses.push_back(n.child_value("IPADDRESS"));
    }
    EXPECT_EQ(addresses, (std::vector<std::string>{"198.51.100.10", "2001:db8:10::10",
                                                   "fe80::8a7:9aff:fe04:4344"}));
}

Json attr(const std::string& name, const Json& value) {
    return Json{{"name", name}, {"value", value}};
}

TEST(OcsXml, HostileDocuments) {
    const std::string nasty = std::string("a\x01<b>&\"c\xff\xc3(\xed\xa0\x80\xef\xbf\xbe]]>");
    Json table = {{"id", 5},
                  {"status", "ok"},
                  {"rows", Json::array({Json::array({attr("Model", nasty), attr("Total Size", -5),
                                                     attr("Serial Number", 7)}),
                                        "not a row", Json::array({42, Json::object()})})}};
    const Json documents[] = {
        Json(),
        Json::array(),
        Json{{"host", 3}, {"tables", "none"}},
        Json{{"host", nasty},
             {"version", nasty},
             {"tables", Json::array({table, 7, Json::object()})}},
        Json{{"tables", Json::array({{{"id", "5"}, {"status", "ok"}, {"rows", 1}}})}},
    };
    for (const Json& d : documents) {
        SCOPED_TRACE(d.dump(-1, ' ', false, Json::error_handler_t::replace));
        std::string xml;
        ASSERT_NO_THROW(xml = ocsInventory(d, "x-2026-01-02-03-04-05"));
        pugi::xml_document doc;
        ASSERT_TRUE(doc.load_string(xml.c_str()));
        EXPECT_EQ(ocsXmlText(xml), xml); // nothing XML 1.0 forbids
        EXPECT_TRUE(doc.child("REQUEST").child("CONTENT").child("HARDWARE").child("CHECKSUM"));
    }
}

TEST(OcsXml, TextFitForXml) {
    const struct {
        std::string in, out;
    } cases[] = {
        {"plain", "plain"},
        {"tab\tline\nret\r", "tab\tline\nret\r"},
        {std::string("nul\0bell\x07 esc\x1b", 14), "nulbell esc"},
        {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"},
        {"\xff", "\xef\xbf\xbd"},
        {"\xc3", "\xef\xbf\xbd"},                                                 // cut short
        {"\xc0\xaf", "\xef\xbf\xbd\xef\xbf\xbd"},                                 // overlong
        {"\xed\xa0\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},                 // a surrogate
        {"\xef\xbf\xbe", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},                 // U+FFFE
        {"\xf4\x90\x80\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"}, // past U+10FFFF
    };
    for (const auto& c : cases)
        EXPECT_EQ(ocsXmlText(c.in), c.out) << c.in;
}

TEST(OcsDeviceId, Form) {
    const struct {
        const char* id;
        bool valid;
    } cases[] = {
        {"vm-2026-11-23-22-25-16", true},   {"a-b-c-2026-11-23-22-25-16", true},
        {"-2026-11-23-22-25-16", false},    {"vm-2026-11-23-22-25-1", false},
        {"vm-2026-11-23 22-25-16", false},  {"vm 1-2026-11-23-22-25-16", false},
        {"vm-2026-11-23-22-25-16x", false}, {"", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ocsDeviceIdValid(c.id), c.valid) << c.id;
}

struct TempDir {
    std::string path;
    TempDir() {
        char tmpl[] = "/tmp/invscan-ocs-test-XXXXXX";
        path = mkdtemp(tmpl) ? tmpl : "";
    }
    ~TempDir() { testrun::run("rm -rf '" + path + "'"); }
};

TEST(OcsDeviceId, MadeOnceAndKept) {
    TempDir dir;
    const std::string folder = dir.path + "/config/invscan"; // made with its parent
    std::string why;
    const std::string first = ocsDeviceId(folder, "web 01/ü", &why);
    ASSERT_TRUE(ocsDeviceIdValid(first)) << why;
    EXPECT_EQ(first.substr(0, 11), "web_01___-2");
    // Renamed, the host is still the same computer.
    EXPECT_EQ(ocsDeviceId(folder, "web02", &why), first);
    struct stat st;
    ASSERT_EQ(stat((folder + "/ocs-deviceid").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0644u);
    EXPECT_EQ(ocsDeviceId(dir.path, "", &why).substr(0, 8), "unknown-");
}

TEST(OcsDeviceId, Refusals) {
    TempDir dir;
    const std::string file = dir.path + "/ocs-deviceid";
    std::string why;

    testrun::writeFile(file, "not an id\n");
    EXPECT_EQ(ocsDeviceId(dir.path, "h", &why), "");
    EXPECT_NE(why.find("does not hold a device id"), std::string::npos) << why;
    EXPECT_EQ(testrun::readFile(file), "not an id\n"); // left for the user to look at

    testrun::writeFile(file, "h-2026-01-02-03-04-05\n");
    chmod(file.c_str(), 0666);
    EXPECT_EQ(ocsDeviceId(dir.path, "h", &why), "");
    EXPECT_NE(why.find("others may change it"), std::string::npos) << why;
    unlink(file.c_str());

    // A link planted by another user is not followed, and nothing is made through it.
    if (geteuid() == 0) {
        const std::string target = dir.path + "/target";
        ASSERT_EQ(symlink(target.c_str(), file.c_str()), 0);
        ASSERT_EQ(lchown(file.c_str(), 65534, 65534), 0);
        EXPECT_EQ(ocsDeviceId(dir.path, "h", &why), "");
        EXPECT_FALSE(why.empty());
        EXPECT_NE(access(target.c_str(), F_OK), 0);
    }
}

TEST(OcsSend, FormatOfAnAddress) {
    const struct {
        const char* url;
        const char* format;
        const char* is;
    } cases[] = {
        {"http://inv.example/ocsinventory", "", "ocs"},
        {"https://inv.example/ocsinventory/", "json", "ocs"},
        {"https://inv.example/OCSInventory?x=1", "", "ocs"},
        {"https://inv.example/front/inventory.php", "", "glpi"},
        {"https://inv.example/", "", "glpi"},
        {"https://inv.example/ocsinventory", "glpi", "glpi"},
        {"https://inv.example/front/inventory.php", "ocs", "ocs"},
        {"nonsense", "", "glpi"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(sendFormatFor(c.url, c.format), c.is) << c.url << " " << c.format;
}

#ifdef INVSCAN_HAVE_SEND
std::string zlibOf(const std::string& s) {
    uLongf n = compressBound(static_cast<uLong>(s.size()));
    std::string out(n, '\0');
    compress(reinterpret_cast<Bytef*>(&out[0]), &n, reinterpret_cast<const Bytef*>(s.data()),
             static_cast<uLong>(s.size()));
    out.resize(n);
    return out;
}

TEST(OcsSend, ServerReplies) {
    const std::string reply =
        "<?xml version='1.0'?><REPLY><RESPONSE>NO_ACCOUNT_UPDATE</RESPONSE></REPLY>";
    const std::string bomb =
        zlibOf("<REPLY><RESPONSE>" + std::string(4 << 20, 'A') + "</RESPONSE></REPLY>");
    const struct {
        std::string raw;
        bool ok;
        const char* response;
    } cases[] = {
        {zlibOf(reply), true, "NO_ACCOUNT_UPDATE"},
        {reply, true, "NO_ACCOUNT_UPDATE"},
        {zlibOf("<REPLY/>"), true, ""},
        {zlibOf(reply).substr(0, 20), false, ""},
        {zlibOf("<html>It works</html>"), false, ""},
        {"<html>It works</html>", false, ""},
        {"", false, ""},
        {bomb, false, ""}, // more than the cap once inflated
    };
    for (const auto& c : cases) {
        std::string response;
        EXPECT_EQ(ocsParseReply(c.raw, 1 << 20, &response), c.ok) << c.raw.size();
        if (c.ok) {
            EXPECT_EQ(response, c.response);
        }
    }
}

#endif
} // namespace
