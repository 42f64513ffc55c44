// This machine and every Mac bundle sent to a real OCS Inventory NG server, then read
// back from its database: what it stored is what the scan found. Runs under
// tests/server/ocs_test.sh, which stands the server up (INVSCAN_OCS_URL and
// INVSCAN_OCS_SQL); skipped otherwise.
#include <gtest/gtest.h>

#include "../common/run_command.h"
#include "cli/Ocs.h"
#include "cli/Send.h"

#include <chrono>
#include <cstdlib>
#include <dirent.h>
#include <set>
#include <sstream>
#include <vector>

namespace {

using Json = nlohmann::ordered_json;

const std::string kBundles = std::string(INVSCAN_TEST_DATA) + "/bundles/";
const std::string kInvscan =
    "env -u KOR_HOMEDIR " + std::string(INVSCAN_BINARY_DIR) + "/bin/invscan";

std::string env(const char* name) {
    const char* v = std::getenv(name);
    return v ? v : "";
}

Json scanOf(const std::string& bundle) {
    const std::string cmd = kInvscan + " --format json" +
                            (bundle.empty() ? "" : " --replay '" + kBundles + bundle + "'");
    return Json::parse(testrun::run(cmd + " 2>/dev/null"), nullptr, false);
}

typedef std::vector<std::string> Line;

// Rows of a query on the server's database, tab-separated fields.
std::vector<Line> query(const std::string& sql) {
    const std::string out = testrun::run(env("INVSCAN_OCS_SQL") + " -N -B -e \"" + sql + "\" 2>&1");
    std::vector<Line> rows;
    std::istringstream in(out);
    for (std::string l; std::getline(in, l);) {
        Line row;
        std::size_t start = 0, tab;
        while ((tab = l.find('\t', start)) != std::string::npos) {
            row.push_back(l.substr(start, tab - start));
            start = tab + 1;
        }
        row.push_back(l.substr(start));
        for (std::string& f : row)
            if (f == "NULL") f.clear();
        row.resize(std::max<std::size_t>(row.size(), 8)); // a short line fails, not crashes
        rows.push_back(row);
    }
    return rows;
}

struct Row {
    std::map<std::string, Json> a;
    std::string text(const std::string& name) const {
        auto it = a.find(name);
        if (it == a.end() || !it->second.is_string()) return "";
        std::string s = it->second.get<std::string>();
        std::size_t b = s.find_first_not_of(' '), e = s.find_last_not_of(' ');
        return b == std::string::npos ? "" : s.substr(b, e - b + 1);
    }
    long long number(const std::string& name) const {
        auto it = a.find(name);
        return it != a.end() && it->second.is_number() ? it->second.get<long long>() : -1;
    }
};

std::vector<Row> rows(const Json& scan, unsigned id) {
    std::vector<Row> out;
    for (const Json& t : scan["tables"])
        if (t["id"] == id && t["status"] == "ok")
            for (const Json& r : t["rows"]) {
                Row row;
                for (const Json& a : r) {
                    row.a[a["name"].get<std::string>()] = a["value"];
                    if (a.contains("text"))
                        row.a[a["name"].get<std::string>() + "#text"] = a["text"];
                }
                out.push_back(row);
            }
    return out;
}

// What the server holds for a DEVICEID against what the scan found.
void compare(const Json& scan, const std::string& id) {
    const auto hw =
        query("SELECT ID, NAME, OSNAME, MEMORY FROM hardware WHERE DEVICEID='" + id + "'");
    ASSERT_EQ(hw.size(), 1u) << "one computer";
    const std::string hid = hw[0][0];
    EXPECT_EQ(hw[0][1], scan["host"].get<std::string>());
    const auto os = rows(scan, 4), mem = rows(scan, 3);
    EXPECT_EQ(hw[0][2], os.empty() ? "" : os[0].text("Name"));
    const long long kb = mem.empty() ? 0 : mem[0].number("Total Physical");
    EXPECT_EQ(hw[0][3], std::to_string(kb > 0 ? kb / 1024 : 0));

    const auto comp = rows(scan, 1), smbios = rows(scan, 24);
    const auto bios =
        query("SELECT SSN, SMODEL, SMANUFACTURER, BVERSION FROM bios WHERE HARDWARE_ID=" + hid);
    if (!comp.empty() || !smbios.empty()) {
        ASSERT_LE(bios.size(), 1u);
        const Row none;
        const Row& s = smbios.empty() ? none : smbios[0];
        const Row& c = comp.empty() ? none : comp[0];
        auto either = [&](const char* a, const char* b) {
            return s.text(a).empty() ? c.text(b) : s.text(a);
        };
        Line stored = bios.empty() ? Line(8) : bios[0]; // none when the scan knew nothing
        EXPECT_EQ(stored[0], either("System Serial Number", "Serial Number"));
        EXPECT_EQ(stored[1], either("System Product Name", "Product"));
        EXPECT_EQ(stored[2], either("System Manufacturer", "Manufacturer"));
        EXPECT_EQ(stored[3], s.text("BIOS Version"));
    }

    size_t knownCpus = 0;
    for (const Row& p : rows(scan, 44))
        if (p.number("CpuFreq") > 0 || !p.text("Brandname").empty() ||
            p.number("Core Per Package Count") > 0 ||
            (p.text("Manufacturer") != "Unknown" && !p.text("Manufacturer").empty()))
            ++knownCpus;
    const auto cpus = query("SELECT TYPE, SPEED, CORES FROM cpus WHERE HARDWARE_ID=" + hid);
    EXPECT_EQ(cpus.size(), knownCpus);
    if (knownCpus > 0 && !cpus.empty()) {
        const std::vector<Row> all = rows(scan, 44);
        const Row& p = all[0];
        EXPECT_EQ(cpus[0][0], p.text("Brandname"));
        if (p.number("CpuFreq") > 0) {
            EXPECT_EQ(cpus[0][1], std::to_string(p.number("CpuFreq")));
        }
    }

    std::multiset<std::string> want, got;
    for (const Row& m : rows(scan, 31))
        want.insert(m.text("Socket Name") + "|" +
                    std::to_string(std::max(0LL, m.number("Module Size MB"))));
    for (const Line& l : query("SELECT CAPTION, CAPACITY FROM memories WHERE HARDWARE_ID=" + hid))
        got.insert(l[0] + "|" + l[1]);
    EXPECT_EQ(got, want) << "memories";

    want.clear();
    got.clear();
    for (const Row& d : rows(scan, 5))
        want.insert(d.text("Model") + "|" + d.text("Serial Number") + "|" +
                    std::to_string(std::max(0LL, d.number("Total Size"))));
    for (const Line& l :
         query("SELECT NAME, SERIALNUMBER, DISKSIZE FROM storages WHERE HARDWARE_ID=" + hid))
        got.insert(l[0] + "|" + l[1] + "|" + l[2]);
    EXPECT_EQ(got, want) << "storages";

    want.clear();
    got.clear();
    for (const Row& p : rows(scan, 27))
        want.insert(p.text("Device Name") + "|" + p.text("FS Mount Point") + "|" +
                    std::to_string(p.number("FS Total Size") / 1024));
    for (const Line& l : query("SELECT VOLUMN, TYPE, TOTAL FROM drives WHERE HARDWARE_ID=" + hid))
        got.insert(l[0] + "|" + l[1] + "|" + l[2]);
    EXPECT_EQ(got, want) << "drives";

    // Every adapter, with its hardware address when it has one.
    want.clear();
    got.clear();
    for (const Row& a : rows(scan, 7)) {
        std::string mac = a.text("Permanent Address");
        if (mac.size() != 17) mac = a.text("Current Address");
        want.insert(a.text("Model") + "|" + (mac.size() == 17 ? mac : "00:00:00:00:00:00"));
    }
    for (const Line& l :
         query("SELECT DISTINCT DESCRIPTION, MACADDR FROM networks WHERE HARDWARE_ID=" + hid))
        got.insert(l[0] + "|" + l[1]);
    EXPECT_EQ(got, want) << "networks";
    for (const Row& r : rows(scan, 6))
        EXPECT_EQ(query("SELECT COUNT(*) FROM networks WHERE HARDWARE_ID=" + hid +
                        " AND IPADDRESS='" + r.text("Address") + "'")[0][0],
                  "1");
}

class OcsServer : public ::testing::Test {
protected:
    void SetUp() override {
        if (env("INVSCAN_OCS_URL").empty() || env("INVSCAN_OCS_SQL").empty())
            GTEST_SKIP() << "no OCS server (tests/server/ocs_test.sh stands one up)";
        char tmpl[] = "/tmp/invscan-ocs-ids-XXXXXX";
        ASSERT_TRUE(mkdtemp(tmpl));
        folder_ = tmpl;
    }
    void TearDown() override {
        if (!folder_.empty()) testrun::run("rm -rf '" + folder_ + "'");
    }
    // Sends a scan under the id its own folder keeps; the id.
    std::string sendOnce(const Json& scan, const std::string& name, double* ms = nullptr) {
        std::string why, answer;
        const std::string id = ocsDeviceId(folder_ + "/" + name, name, &why);
        EXPECT_FALSE(id.empty()) << why;
        const auto start = std::chrono::steady_clock::now();
        const int rc = sendScan(env("INVSCAN_OCS_URL"), "ocs", ocsInventory(scan, id),
                                SendOptions(), &answer, &why);
        if (ms)
            *ms =
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                    .count();
        EXPECT_EQ(rc, SEND_OK) << why;
        EXPECT_NE(answer.find("ACCOUNT_UPDATE"), std::string::npos) << answer;
        return id;
    }
    std::string folder_;
};

TEST_F(OcsServer, ThisHost) {
    const Json scan = scanOf("");
    ASSERT_TRUE(scan.is_object());
    double first = 0, again = 0;
    const std::string id = sendOnce(scan, "host", &first);
    compare(scan, id);
    // Sent again, still one computer with the same rows.
    EXPECT_EQ(sendOnce(scan, "host", &again), id);
    compare(scan, id);
    std::printf("sent this host to the server in %.0f ms, again in %.0f ms\n", first, again);
    EXPECT_LT(again, 200.0);
}

TEST_F(OcsServer, EveryMacBundle) {
    std::vector<std::string> macs;
    if (DIR* d = opendir(kBundles.c_str())) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.' && std::string(e->d_name).compare(0, 5, "linux") != 0)
                macs.push_back(e->d_name);
        closedir(d);
    }
    ASSERT_GE(macs.size(), 9u);
    for (const std::string& b : macs) {
        SCOPED_TRACE(b);
        const Json scan = scanOf(b);
        ASSERT_TRUE(scan.is_object());
        const std::string id = sendOnce(scan, b);
        compare(scan, id);
        EXPECT_EQ(sendOnce(scan, b), id);
        compare(scan, id);
    }
}

} // namespace
