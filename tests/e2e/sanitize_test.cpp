// --sanitize: pseudonyms keep their shape and agree for one value; a sanitised
// recording of this machine and of every real bundle holds none of the original
// serials, UUIDs, addresses and names in any file or in the output, loses nothing
// else, and replays to exactly the sanitised scan.
#include <gtest/gtest.h>

#include "../common/json_schema.h"
#include "../common/run_command.h"
#include "cli/Sanitize.h"

#include <nlohmann/json.hpp>

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

// What a bundle's own files name beside the tables: the helpers' keys, mount sources,
// hardware addresses written with dashes.
std::set<std::string> bundleOriginals(const std::string& bundle) {
    static const std::regex dumpKey("^ *(DomainName|SearchDomains|Domain Name|local_host_name|"
                                    "device_serial|serial_number|IOPlatformSerialNumber|"
                                    "IOPlatformUUID):s=(.+)$");
    static const std::regex user("^ *user_name:s=(.+) \\((.+)\\)$");
    static const std::regex dashed("\\b[0-9a-f]{2}(-[0-9a-f]{2}){5}\\b");
    static const std::regex mount("(//([^@/\t]+)@)?([A-Za-z][A-Za-z0-9.-]+)(:/|/)");
    static const std::regex ioreg("\"IOPlatform(SerialNumber|UUID)\" = \"([^\"]+)\"");
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
                for (std::sregex_iterator i(line.begin(), line.end(), ioreg), end; i != end; ++i)
                    out.insert((*i)[2]);
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
