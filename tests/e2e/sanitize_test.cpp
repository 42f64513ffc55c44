// --sanitize: pseudonyms keep their shape and agree for one value; a sanitised
// recording of this machine and of every real bundle holds none of the original
// serials, UUIDs, addresses and names in any file or in the output, loses nothing
// else, and replays to exactly the sanitised scan.
#include <gtest/gtest.h>

#include "../common/json_schema.h"
#include "../common/planted.h"
#include "../common/run_command.h"
#include "cli/Sanitize.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <dirent.h>
#include <regex>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using testrun::readFile;

using Json = nlohmann::ordered_json;

const std::string kBundles = std::string(INVSCAN_TEST_DATA) + "/bundles/";
const std::string kInvscan =
    "env -u KOR_HOMEDIR " + std::string(INVSCAN_BINARY_DIR) + "/bin/invscan";

void filesUnder(const std::string& dir, std::vector<std::string>* out) {
    DIR* d = opendir(dir.c_str());
    if (!d) return;
    while (dirent* e = readdir(d)) {
        std::string name = e->d_name;
        if (name == "." || name == "..") continue;
        struct stat st;
        std::string p = dir + "/" + name;
        if (stat(p.c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode))
            filesUnder(p, out);
        else
            out->push_back(p);
    }
    closedir(d);
}

std::string lower(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string trim(const std::string& s) {
    std::size_t b = s.find_first_not_of(' '), e = s.find_last_not_of(' ');
    return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

bool placeholder(const std::string& v) {
    static const std::regex known("^(|.|..|Not Available|To Be Filled By O\\.E\\.M\\.|0123456789|"
                                  "System Serial Number|Not Specified|None|Default string|0+)$",
                                  std::regex::icase);
    return std::regex_match(v, known);
}

// Every UUID a text holds but the ones no machine owns (one digit over and over, the
// firmware's "03000200-0400-...").
void uuidsIn(const std::string& text, std::set<std::string>* out) {
    static const std::regex uuid("[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}");
    for (std::sregex_iterator i(text.begin(), text.end(), uuid), end; i != end; ++i) {
        std::string v = lower(i->str());
        v.erase(std::remove(v.begin(), v.end(), '-'), v.end());
        if (v.find_first_not_of(v[0]) != std::string::npos &&
            v != "03000200040005000006000700080009")
            out->insert(i->str());
    }
}

// What a bundle's own files name beside the tables: the helpers' keys, mount sources,
// hardware addresses written with dashes, every UUID, the logins of home folders and
// of the console's session.
std::set<std::string> bundleOriginals(const std::string& bundle) {
    static const std::regex dumpKey("^ *(DomainName|SearchDomains|Domain Name|local_host_name|"
                                    "device_serial|serial_number|IOPlatformSerialNumber|"
                                    "IOPlatformUUID):s=(.+)$");
    static const std::regex user("^ *user_name:s=(.+) \\((.+)\\)$");
    static const std::regex dashed("\\b[0-9a-f]{2}(-[0-9a-f]{2}){5}\\b");
    static const std::regex mount("(//([^@/\t]+)@)?([A-Za-z][A-Za-z0-9.-]+)(:/|/)");
    static const std::regex ioreg("\"IOPlatform(SerialNumber|UUID)\" = \"([^\"]+)\"");
    static const std::regex session("\"kCGS?Session(Long)?UserNameKey\"=\"([^\"]+)\"");
    static const std::regex home("/(Users|home)/([A-Za-z0-9._-]+)/");
    std::set<std::string> out;
    std::vector<std::string> files;
    filesUnder(bundle, &files);
    for (const std::string& f : files) {
        const std::string text = readFile(f);
        std::size_t p = 0;
        while (p < text.size()) {
            std::size_t e = text.find('\n', p);
            if (e == std::string::npos) e = text.size();
            const std::string line = text.substr(p, e - p);
            std::smatch m;
            if (std::regex_match(line, m, dumpKey) && !placeholder(trim(m[2])) &&
                trim(m[2]) != "local")
                out.insert(trim(m[2]));
            if (std::regex_match(line, m, user)) {
                for (int k : {1, 2})
                    if (m[k] != "root" && m[k] != "System Administrator") out.insert(m[k]);
            }
            for (std::sregex_iterator i(line.begin(), line.end(), dashed), end; i != end; ++i)
                out.insert(i->str());
            if (f.find("mounts.txt") != std::string::npos && line[0] != '#' &&
                std::regex_search(line, m, mount) && (m[1].matched || m[4] == ":/")) {
                if (m[2].matched) out.insert(m[2]);
                if (m[3].str().find('.') != std::string::npos) out.insert(m[3]);
            }
            if (line.size() < 100000)
                for (const std::regex* r : {&ioreg, &session, &home})
                    for (std::sregex_iterator i(line.begin(), line.end(), *r), end; i != end; ++i)
                        if ((*i)[2] != "Shared" && (*i)[2] != "root") {
                            std::string v = (*i)[2];
                            out.insert(v);
                            v.erase(std::remove(v.begin(), v.end(), ' '), v.end());
                            out.insert(lower(v)); // a full name run together
                        }
            uuidsIn(line, &out);
            p = e + 1;
        }
    }
    return out;
}

// Whether `value` stands in `text` as a whole word (a one-label name may sit inside a
// longer dotted word such as a sysctl key).
bool holds(const std::string& text, const std::string& value) {
    const bool label = value.find_first_of(". ") == std::string::npos;
    for (std::size_t p = 0; (p = text.find(value, p)) != std::string::npos; ++p) {
        const std::size_t q = p + value.size();
        auto apart = [label](char c) {
            return !std::isalnum(static_cast<unsigned char>(c)) &&
                   (!label || (c != '.' && c != '-' && c != '_'));
        };
        if ((p == 0 || apart(text[p - 1])) && (q >= text.size() || apart(text[q]))) return true;
    }
    return false;
}

// What a sanitised scan must not show, read from the plain scan by attribute name.
std::set<std::string> originals(const Json& scan) {
    static const std::regex serialName("Serial|UUID|Asset Tag");
    static const std::regex addressName(
        "^(Address|Gateway|Primary DNS|Secondary DNS|Permanent Address|Current Address|"
        "Permanent Mac Address)$");
    static const std::regex hostName("^(Hostname|Domain|Server Hostname)$");
    static const std::regex hostWord("[A-Za-z0-9-]+(\\.[A-Za-z0-9-]+)+");
    std::set<std::string> out;
    for (const Json& t : scan["tables"]) {
        if (!t["rows"].is_array()) continue;
        for (const Json& row : t["rows"])
            for (const Json& a : row) {
                if (!a["value"].is_string()) continue;
                const std::string name = a["name"], v = trim(a["value"]);
                if (v.empty()) continue;
                uuidsIn(v, &out);
                if (std::regex_search(name, serialName)) {
                    // Any serial but a firmware's placeholder; a disk's id hashes its serial.
                    if (!placeholder(v)) {
                        out.insert(v);
                        if (t["name"] == "Storage") out.insert(row[1]["value"].get<std::string>());
                    }
                } else if (std::regex_match(name, addressName)) {
                    unsigned char b[16];
                    bool special = v.compare(0, 4, "127.") == 0 || v == "::1" ||
                                   v.find_first_not_of("0:") == std::string::npos ||
                                   (inet_pton(AF_INET, v.c_str(), b) == 1 && b[0] >= 224);
                    if (!special) out.insert(v);
                } else if (std::regex_match(name, hostName)) {
                    for (std::sregex_iterator m(v.begin(), v.end(), hostWord), end; m != end; ++m)
                        out.insert(m->str());
                    if (v.find_first_of(" .") == std::string::npos && v != "localhost")
                        out.insert(v);
                }
            }
    }
    return out;
}

// Values the sanitised scan lost or changed although they hold no original: every
// other value must come through as it was (what changes between scans aside).
std::string lostValues(const Json& plain, const Json& sanitised,
                       const std::set<std::string>& secret) {
    static const std::set<std::string> volatileNames = {"Free Physical", "Free Virtual",
                                                        "FS Free Size"};
    std::string lost;
    for (std::size_t t = 0; t < plain["tables"].size(); ++t) {
        const Json &a = plain["tables"][t], &b = sanitised["tables"][t];
        if (a["name"] == "Scan Info") continue;
        if (a["rows"].size() != b["rows"].size()) {
            lost += a["name"].get<std::string>() + ": rows; ";
            continue;
        }
        for (std::size_t r = 0; a["rows"].is_array() && r < a["rows"].size(); ++r)
            for (std::size_t i = 0; i < a["rows"][r].size(); ++i) {
                const Json &x = a["rows"][r][i], &y = b["rows"][r][i];
                if (x["value"] == y["value"] || volatileNames.count(x["name"])) continue;
                bool holdsSecret = false;
                for (const std::string& v : secret)
                    holdsSecret =
                        holdsSecret || (x["value"].is_string() &&
                                        x["value"].get<std::string>().find(v) != std::string::npos);
                if (!holdsSecret)
                    lost += a["name"].get<std::string>() + "/" + x["name"].get<std::string>() +
                            ": " + x["value"].dump() + " -> " + y["value"].dump() + "; ";
            }
    }
    return lost;
}

// The tables without what changes from one scan to the next.
Json steady(Json scan) {
    for (Json& t : scan["tables"])
        if (t["name"] == "Scan Info") t["rows"] = nullptr;
    return scan["tables"];
}

class Sanitize : public testrun::TempDirTest {};

} // namespace

TEST(SanitizeShapes, PseudonymsKeepTheShapeAndAgreeForOneValue) {
    Sanitizer s("key one");
    const struct {
        const char* original;
        const char* shape; // empty: kept as it is
    } cases[] = {
        {"d4:9a:20:f3:db:00", "^[0-9a-f]{2}(:[0-9a-f]{2}){5}$"},
        {"D4:9A:20:F3:DB:00", "^[0-9A-F]{2}(:[0-9A-F]{2}){5}$"},
        {"0:1b:63:a5:c2:d2", "^[0-9a-f]{1,2}(:[0-9a-f]{1,2}){5}$"},
        {"d4:9a:20:ff:fe:f3:db:00", "^[0-9a-f]{2}(:[0-9a-f]{2}){7}$"},
        {"198.51.100.10", "^198\\.[0-9]{1,3}\\.[0-9]{1,3}\\.[0-9]{1,3}$"},
        {"10.255.255.53", "^10\\.[0-9]{1,3}\\.[0-9]{1,3}\\.[0-9]{1,3}$"},
        {"2001:db8:10::10", "^2001:[0-9a-f]{1,4}:[0-9a-f]{1,4}::[0-9a-f]{1,4}$"},
        {"fe80::1c2b:a5ff:fe3c:d2", "^fe80::([0-9a-f]{1,4}:){3}[0-9a-f]{1,4}$"},
        {"255.255.255.0", ""},
        {"127.0.0.1", ""},
        {"0.0.0.0", ""},
        {"::1", ""},
        {"00:00:00:00:00:00", ""},
        {"ff:ff:ff:ff:ff:ff", ""},
        {"10:12:01", ""},
        {"10.6.8", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.original);
        std::string p = s.address(c.original);
        if (!*c.shape) {
            EXPECT_EQ(p, c.original);
            continue;
        }
        EXPECT_NE(p, c.original);
        EXPECT_TRUE(std::regex_match(p, std::regex(c.shape))) << p;
        EXPECT_EQ(s.address(c.original), p);
        EXPECT_NE(Sanitizer("key two").address(c.original), p);
        // Found inside text, with what stands around it kept.
        EXPECT_EQ(s.rewrite(std::string("inet6 ") + c.original + "%en0 up."),
                  "inet6 " + p + "%en0 up.");
    }

    const std::string uuid = s.learn(Sanitizer::HEX, "402127FE-F62F-5F2F-B899-BC9F25C44006");
    EXPECT_TRUE(std::regex_match(uuid, std::regex("^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$")));
    // The SMBIOS byte order of the same UUID, inside a hexadecimal data value.
    std::string smbios = s.rewrite("SMBIOS:d=16,FE2721402FF62F5FB899BC9F25C44006\n");
    EXPECT_EQ(smbios.find("FE2721402FF62F5F"), std::string::npos) << smbios;
    EXPECT_NE(smbios.find(uuid.substr(6, 2) + uuid.substr(4, 2) + uuid.substr(2, 2)),
              std::string::npos);

    const std::string serial = s.learn(Sanitizer::SERIAL, "K67HTA229209");
    EXPECT_TRUE(std::regex_match(serial, std::regex("^[A-Z][0-9]{2}[A-Z]{3}[0-9]{6}$"))) << serial;
    EXPECT_EQ(s.rewrite("serial_number:s=K67HTA229209\n"), "serial_number:s=" + serial + "\n");
    EXPECT_EQ(s.rewrite("XK67HTA229209"), "XK67HTA229209"); // part of another word
    EXPECT_EQ(s.learn(Sanitizer::SERIAL, "Not Specified"), "Not Specified");

    const std::string host = s.learn(Sanitizer::HOST, "MN - mydomain.com (ftp.mydomain.com)");
    std::smatch m;
    ASSERT_TRUE(std::regex_match(
        host, m, std::regex("^MN - ([a-z]{8})\\.com \\(([a-z]{3})\\.([a-z]{8})\\.com\\)$")))
        << host;
    EXPECT_EQ(m[1], m[3]); // the domain and the name in it agree
}

TEST(SanitizeShapes, EveryFormOfANotedOrAddressValueGoesAndItsPlaceStays) {
    Sanitizer s("key one");
    // What a bundle holds beside the tables, as its files write it.
    s.learnText("      (DNS\n            DomainName:s=lan\n            (SearchDomains\n"
                "               SearchDomains:s=corp.example.org\n"
                "               SearchDomains:s=branch\n            )\n         )\n"
                "         local_host_name:s=MacBook de Ana \n"
                "         user_name:s=Ana Lima (alima)\n"
                "      (Sleep Proxies\n         (Studio of Bo\n            Metric:i=1\n         "
                ")\n      )\n"
                "            device_serial:s=overlayblk\n"
                "            serial_number:s=Not Available\n"
                "contents:s=+-o Root  |   \"IOPlatformSerialNumber\" = \"C02H40CEDV7N\"   | "
                "\"IOPlatformUUID\" = \"DAB7AD41-9312-5322-89DE-1FA4A8F1CB91\"   | "
                "\"serial-number\" = <44563700000043303248343043454456374e00>\n"
                "<key>ComputerName</key> <string>Studio-7</string>\n"
                "Dec  3 16:11:37 Pauls-MacBook-Pro Installer[29002]: done\n"
                "Address:s=00-1e-52-ed-37-e4 ether 00:1b:63:36:1e:c3 inet 10.77.1.5\n"
                "\"IOConsoleUsers\" = ({\"kCGSessionLongUserNameKey\"=\"Bo Reis\","
                "\"kCGSSessionUserNameKey\"=\"breis\"})\n"
                "path:s=/home/cdias/\n");
    const struct {
        const char* text;
        const char* gone;  // what must not survive
        const char* shape; // the rewritten text
    } cases[] = {
        {"search corp.example.org branch", "branch", "^search [a-z]{4}\\.[a-z]{7}\\.org [a-z]{6}$"},
        {"DomainName:s=lan\n", "=lan", "^DomainName:s=[a-z]{3}\n$"},
        {"name MacBook de Ana, MacBook-de-Ana.local, MacBookdeAna", "Ana",
         "^name [A-Z][a-z]{2}[A-Z][a-z]{3} [a-z]{2} [A-Z][a-z]{2}, [A-Z][a-z]{2}[A-Z][a-z]{3}"
         "-[a-z]{2}-[A-Z][a-z]{2}\\.local, [A-Z][a-z]{2}[A-Z][a-z]{3}[a-z]{2}[A-Z][a-z]{2}$"},
        {"Ana Lima, /Users/alima/Library", "lima",
         "^[A-Z][a-z]{2} [A-Z][a-z]{3}, /Users/[a-z]{5}/Library$"},
        {"(Studio of Bo", "Studio", "^\\([A-Z][a-z]{5} [a-z]{2} [A-Z][a-z]$"},
        {"sudo: breis : PWD=/Users/breis/Github/boreis", "reis",
         "^sudo: [a-z]{5} : PWD=/Users/[a-z]{5}/Github/[a-z]{6}$"},
        {"cdias logged in", "cdias", "^[a-z]{5} logged in$"},
        {"/Volumes/0a1b2c3d-4e5f-6789-abcd-ef0123456789/x", "0a1b2c3d",
         "^/Volumes/[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}/x$"},
        {"FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF", "", "^FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF$"},
        {"disk overlayblk", "overlayblk", "^disk [a-z]{10}$"},
        {"Not Available", "", "^Not Available$"},
        {"\"IOPlatformSerialNumber\" = \"C02H40CEDV7N\"", "C02H40CEDV7N",
         "^\"IOPlatformSerialNumber\" = \"[A-Z][0-9]{2}[A-Z][0-9]{2}[A-Z]{4}[0-9][A-Z]\"$"},
        {"dab7ad41-9312-5322-89de-1fa4a8f1cb91 DAB7AD419312532289DE1FA4A8F1CB91", "ad41",
         "^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12} [0-9A-F]{32}$"},
        // The serial's registry data, the short copy of its end included.
        {"<44563700000043303248343043454456374e00>", "4456370000", "^<[0-9a-f]{38}>$"},
        {"Studio-7", "Studio-7", "^[A-Z][a-z]{5}-[0-9]$"},
        {"Dec  3 16:11:37 Pauls-MacBook-Pro kernel[0]:", "Pauls",
         "^Dec  3 16:11:37 [A-Z][a-z]{4}-[A-Z][a-z]{2}[A-Z][a-z]{3}-[A-Z][a-z]{2} kernel\\[0\\]:$"},
        // Hardware addresses in every writing, and inside an EUI-64 interface id.
        {"00-1E-52-ED-37-E4", "37-E4", "^[0-9A-F]{2}(-[0-9A-F]{2}){5}$"},
        {"001e.52ed.37e4 001E52ED37E4", "37e4",
         "^[0-9a-f]{4}\\.[0-9a-f]{4}\\.[0-9a-f]{4} [0-9A-F]{12}$"},
        {"fe80::21b:63ff:fe36:1ec3%en0", "1ec3",
         "^fe80::[0-9a-f]{1,4}:[0-9a-f]{2}ff:fe[0-9a-f]{2}:[0-9a-f]{1,4}%en0$"},
        // IPv4 in every writing; private ranges stay private.
        {"10.77.1.5:/export 10.77.1.5:445 [10.77.1.5]", "77.1.5",
         "^10(\\.[0-9]{1,3}){3}:/export 10(\\.[0-9]{1,3}){3}:445 \\[10(\\.[0-9]{1,3}){3}\\]$"},
        {"0x0a4d0105 0A4D0105 05014D0A", "4d01", "^0x[0-9a-f]{8} [0-9A-F]{8} [0-9A-F]{8}$"},
        {"5.1.77.10.in-addr.arpa", "5.1.77",
         "^[0-9]{1,3}\\.[0-9]{1,3}\\.[0-9]{1,3}\\.10\\.in-addr\\.arpa$"},
        {"192.168.1.20", "1.20", "^192\\.168\\.[0-9]{1,3}\\.[0-9]{1,3}$"},
        {"172.20.10.171", "10.171", "^172\\.(1[6-9]|2[0-9]|3[01])\\.[0-9]{1,3}\\.[0-9]{1,3}$"},
        {"100.64.3.9", "3.9",
         "^100\\.(6[4-9]|[7-9][0-9]|1[01][0-9]|12[0-7])\\.[0-9]{1,3}\\.[0-9]{1,3}$"},
        {"169.254.7.7", "7.7", "^169\\.254\\.[0-9]{1,3}\\.[0-9]{1,3}$"},
        {"fd12:3456::1", "3456", "^fd12:[0-9a-f]{1,4}::[0-9a-f]{1,4}$"},
        {"netmask 0xffffff00 broadcast 255.255.255.255", "",
         "^netmask 0xffffff00 broadcast 255.255.255.255$"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const std::string out = s.rewrite(c.text);
        if (*c.gone) {
            EXPECT_EQ(lower(out).find(lower(c.gone)), std::string::npos) << out;
        }
        EXPECT_TRUE(std::regex_match(out, std::regex(c.shape))) << out;
        EXPECT_EQ(s.rewrite(c.text), out);
    }
    // A public address never becomes a private one.
    for (const char* a : {"172.217.1.1", "100.200.1.1", "192.0.2.10", "169.1.2.3"}) {
        unsigned char b[4];
        ASSERT_EQ(inet_pton(AF_INET, s.address(a).c_str(), b), 1);
        EXPECT_FALSE((b[0] == 172 && (b[1] & 0xF0) == 16) || (b[0] == 100 && (b[1] & 0xC0) == 64) ||
                     (b[0] == 192 && b[1] == 168) || (b[0] == 169 && b[1] == 254))
            << a << " -> " << s.address(a);
    }
    // The EUI-64 address is made from the MAC's own pseudonym.
    const std::string mac = s.address("00:1b:63:36:1e:c3");
    const std::string v6 = s.rewrite("fe80::21b:63ff:fe36:1ec3");
    EXPECT_NE(v6.find("ff:fe" + mac.substr(9, 2) + ":" + mac.substr(12, 2) + mac.substr(15, 2)),
              std::string::npos)
        << mac << " " << v6;
}

TEST_F(Sanitize, NothingOriginalInTheRecordingOrTheOutputAndTheRecordingReplaysToTheOutput) {
    std::vector<std::string> hosts = {""}; // this machine
    DIR* d = opendir(kBundles.c_str());
    ASSERT_NE(d, nullptr);
    while (dirent* e = readdir(d))
        if (e->d_name[0] != '.') hosts.push_back(kBundles + e->d_name);
    closedir(d);
    std::vector<std::string> outputs;
    std::size_t checked = 0;
    for (const std::string& host : hosts) {
        SCOPED_TRACE(host.empty() ? "this machine" : host);
        const std::string from = host.empty() ? "" : " --replay " + host;
        const std::string rec = dir + "/" + std::to_string(outputs.size());
        Json plain = Json::parse(testrun::run(kInvscan + from + " -f json"));
        std::set<std::string> secret = originals(plain);
        if (!host.empty())
            for (const std::string& v : bundleOriginals(host))
                secret.insert(v);
        checked += secret.size();

        testrun::Outcome s =
            testrun::runCommand(kInvscan + from + " --record " + rec + " --sanitize-key k -f json");
        ASSERT_EQ(s.status, 0);
        std::vector<std::string> files;
        filesUnder(rec, &files);
        ASSERT_FALSE(files.empty());
        for (const std::string& value : secret) {
            EXPECT_FALSE(holds(s.out, value)) << value << " in the output";
            for (const std::string& f : files)
                EXPECT_FALSE(holds(readFile(f), value)) << value << " in " << f;
        }
        EXPECT_NE(access((rec + "/incomplete").c_str(), F_OK), 0) << "still marked incomplete";
        Json replayed = Json::parse(testrun::run(kInvscan + " --replay " + rec + " -f json"));
        EXPECT_EQ(steady(Json::parse(s.out)), steady(replayed));
        EXPECT_EQ(lostValues(plain, Json::parse(s.out), secret), "");
        outputs.push_back(s.out);
    }
    EXPECT_GT(checked, 100u);
    std::printf("%zu original values looked for\n", checked);
    EXPECT_EQ(testjson::schemaProblems(outputs), "");
}

TEST_F(Sanitize, TheKeyIsMadeOnceAndSanitisedScansDiffAsTheSame) {
    const std::string env = "HOME=" + dir + " XDG_CONFIG_HOME= ";
    const std::string scan = " --replay " + kBundles + "macmini3-1-10.6.8 --sanitize -f json > ";
    ASSERT_EQ(testrun::runCommand(env + kInvscan + scan + dir + "/a.json").status, 0);
    struct stat st;
    const std::string key = dir + "/.config/invscan/sanitize.key";
    ASSERT_EQ(stat(key.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    ASSERT_EQ(testrun::runCommand(env + kInvscan + scan + dir + "/b.json").status, 0);
    EXPECT_EQ(testrun::runCommand(kInvscan + " diff " + dir + "/a.json " + dir + "/b.json").status,
              0);
    // Another key, other pseudonyms: the serial and the UUID differ.
    testrun::runCommand(kInvscan + " --replay " + kBundles +
                        "macmini3-1-10.6.8 --sanitize-key other -f json > " + dir + "/c.json");
    testrun::Outcome c =
        testrun::runCommand(kInvscan + " diff " + dir + "/a.json " + dir + "/c.json");
    EXPECT_EQ(c.status, 1);
    EXPECT_NE(c.out.find("Serial Number"), std::string::npos) << c.out;
    // Text output is sanitised the same way.
    std::string text = testrun::run(env + kInvscan + " --replay " + kBundles +
                                    "macmini3-1-10.6.8 -g ComponentID --sanitize");
    Json a = Json::parse(readFile(dir + "/a.json"));
    for (const Json& t : a["tables"])
        if (t["name"] == "ComponentID") {
            EXPECT_NE(text.find(t["rows"][0][3]["value"].get<std::string>()), std::string::npos)
                << text;
            EXPECT_EQ(text.find("YM008ASN9G5"), std::string::npos);
        }
}

// Links and FIFOs another user plants in a bundle being sanitised, or where the key
// is kept, are refused with the file named: nothing written through, nothing waited
// on, and a bundle left half-way stays marked incomplete.
TEST_F(Sanitize, PlantedLinksAndFifosAreRefused) {
    INVSCAN_NEEDS_ROOT();
    planted::NobodysFolder nobody;
    ASSERT_FALSE(nobody.dir().empty());
    const std::string victim = nobody.rootFile("victim");
    testrun::writeFile(victim, "root's own\n");
    const struct {
        const char* plant; // run as nobody in the bundle's folder
        const char* named; // the file the refusal names
    } bundleCases[] = {
        {"ln -s VICTIM mounts.txt.sanitize", "mounts.txt.sanitize"},
        {"rm -f uname.txt && ln -s VICTIM uname.txt", "uname.txt"},
        {"rm -f uname.txt && mkfifo uname.txt", "uname.txt"},
    };
    int n = 0;
    for (const auto& c : bundleCases) {
        SCOPED_TRACE(c.plant);
        const std::string b = nobody.dir() + "/b" + std::to_string(n++);
        ASSERT_EQ(testrun::runCommand("cp -r " + kBundles + "mac-mounts-nfs-smb " + b +
                                      " && chmod 0777 " + b)
                      .status,
                  0);
        std::string plant = c.plant;
        if (plant.find("VICTIM") != std::string::npos)
            plant.replace(plant.find("VICTIM"), 6, victim);
        EXPECT_EQ(planted::asNobody([&] {
                      return std::system(("cd " + b + " && " + plant).c_str()) == 0 ? ""
                                                                                    : "not planted";
                  }),
                  "");
        const bool quick = planted::returnsInTime([&] {
            std::string why;
            return !Sanitizer("k").sanitizeBundle(b, &why);
        });
        EXPECT_TRUE(quick);
        std::string why;
        if (quick) {
            EXPECT_FALSE(Sanitizer("k").sanitizeBundle(b, &why));
            EXPECT_NE(why.find(std::string("/") + c.named + ":"), std::string::npos) << why;
        }
        EXPECT_EQ(readFile(victim), "root's own\n");
        EXPECT_EQ(testrun::runCommand(kInvscan + " --replay " + b + " -g 20 2>/dev/null").status,
                  5);
    }

    const struct {
        const char* make; // the key's place, made as root unless "nobody:" leads
        const char* reason;
    } keyCases[] = {
        {"nobody:ln -s VICTIM KEY", "another user"},
        {"nobody:echo k > KEY", "another user"},
        {"echo k > KEY && chmod 0620 KEY", "group- or world-writable"},
        {"echo k > KEY && chmod 0602 KEY", "group- or world-writable"},
        {"mkfifo KEY", "not a regular file"},
        {"mkdir KEY", "folder"},
    };
    n = 0;
    for (const auto& c : keyCases) {
        SCOPED_TRACE(c.make);
        std::string make = c.make;
        const bool asNobody = make.compare(0, 7, "nobody:") == 0;
        if (asNobody) make = make.substr(7);
        const std::string key = (asNobody ? nobody.dir() : dir) + "/key" + std::to_string(n++);
        for (std::size_t at; (at = make.find("KEY")) != std::string::npos;)
            make.replace(at, 3, key);
        for (std::size_t at; (at = make.find("VICTIM")) != std::string::npos;)
            make.replace(at, 6, victim);
        if (asNobody)
            ASSERT_EQ(planted::asNobody([&] { return std::system(make.c_str()) == 0 ? "" : "no"; }),
                      "");
        else
            ASSERT_EQ(std::system(make.c_str()), 0);
        EXPECT_TRUE(planted::returnsInTime([&] {
            std::string why;
            return sanitizeKeyFromFile(key, &why).empty() &&
                   why.find(c.reason) != std::string::npos && why.find(key) != std::string::npos;
        }));
    }
    EXPECT_EQ(readFile(victim), "root's own\n");
}
