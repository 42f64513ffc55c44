// End to end: a replayed host whose I/O registry carries a real machine's SMBIOS
// table, scanned by the invscan program itself. This is the path a Linux machine
// with a readable DMI table takes (iokit publishes the table where the SMBIOS code
// looks for it), so the group must come out as it does from the table directly.
#include "../smbios/smbios_builder.h"

#include <gtest/gtest.h>

#include "../common/run_command.h"

#include "../common/json_schema.h"
#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

using testrun::writeFile;

const std::string kTables = std::string(INVSCAN_TEST_DATA) + "/smbios/";

// file -> attribute id -> value, as reviewed for the SMBIOS group.
std::map<std::string, std::map<int, std::string>> expectations() {
    std::map<std::string, std::map<int, std::string>> all;
    std::ifstream in(kTables + "group_expected.txt");
    std::string line;
    while (std::getline(in, line)) {
        size_t a = line.find('\t'), b = line.find('\t', a + 1);
        if (a == std::string::npos || b == std::string::npos) continue;
        all[line.substr(0, a)][std::stoi(line.substr(a + 1, b - a - 1))] = line.substr(b + 1);
    }
    return all;
}

// The iokit helper's output for a registry whose platform expert holds `table`.
std::string ioKitReport(const std::vector<unsigned char>& table) {
    static const char hex[] = "0123456789abcdef";
    std::string data;
    for (unsigned char c : table) {
        data += hex[c >> 4];
        data += hex[c & 15];
    }
    return "1.0 0\n(IOKit\n(Root\nIOKitBuildVersion:s=replayed\n(IOKitDiagnostics\n(Classes\n"
           "AppleSMBIOS:i=1\nAppleACPIPlatformExpert:i=1\n)\n)\n(Machine\n"
           "(AppleACPIPlatformExpert\n(bios\n(AppleSMBIOS\nSMBIOS:d=" +
           std::to_string(table.size()) + "," + data + "\n)\n)\n)\n)\n)\n)\n";
}

using testrun::run;

TEST(SmbiosReplay, EveryCorpusTableThroughTheProgram) {
    const auto expected = expectations();
    const std::vector<std::string> names = corpusTableNames();
    ASSERT_FALSE(names.empty());
    const std::string dir = testing::TempDir() + "/smbios-replay";
    mkdir(dir.c_str(), 0755);
    std::vector<std::string> outputs;
    mkdir((dir + "/helpers").c_str(), 0755);
    writeFile(dir + "/bundle.txt", "invscan-bundle 1\n# an I/O registry around a corpus table\n");
    for (const std::string& name : names) {
        std::ifstream in(kTables + name, std::ios::binary);
        std::vector<unsigned char> table((std::istreambuf_iterator<char>(in)),
                                         std::istreambuf_iterator<char>());
        writeFile(dir + "/helpers/iokit", ioKitReport(table));
        std::string out = run("env -u KOR_HOMEDIR -u INVSCAN_REPLAY -u INVSCAN_RECORD " +
                              std::string(INVSCAN_BINARY_DIR) + "/bin/invscan --replay '" + dir +
                              "' --group SMBIOS --format json 2>/dev/null");
        outputs.push_back(out);
        nlohmann::json doc = nlohmann::json::parse(out, nullptr, false);
        ASSERT_FALSE(doc.is_discarded()) << name << ": " << out.substr(0, 200);
        const nlohmann::json& tables = doc["tables"];
        ASSERT_EQ(tables.size(), 1u) << name;
        ASSERT_EQ(tables[0]["rows"].size(), 1u) << name << ": no SMBIOS table";
        std::map<int, std::string> got;
        for (const auto& attr : tables[0]["rows"][0]) {
            const auto& v = attr["value"];
            got[attr["id"].get<int>()] = v.is_string() ? v.get<std::string>() : v.dump();
        }
        auto it = expected.find(name);
        ASSERT_NE(it, expected.end()) << name;
        EXPECT_EQ(got, it->second) << name;
    }
    EXPECT_EQ(testjson::schemaProblems(outputs), "");
}

} // namespace

namespace {

// A structure of an OEM type (200) with `len` formatted bytes and no strings.
void oemStructure(std::vector<unsigned char>* t, unsigned char len, unsigned handle) {
    t->push_back(200);
    t->push_back(len);
    t->push_back(static_cast<unsigned char>(handle & 0xFF));
    t->push_back(static_cast<unsigned char>(handle >> 8));
    t->insert(t->end(), len - 4, 0x5A);
    t->push_back(0);
    t->push_back(0);
}

} // namespace

// A Linux host gives its table as the kernel's file, read whole: a table far larger
// than the registry snapshot carries (here 200 KB, a real machine's structures and
// OEM ones after them) comes out as the real machine's alone does.
TEST(SmbiosReplay, LinuxTableOfAnySizeFromTheKernelFile) {
    const auto expected = expectations();
    const std::string name = "vmware-virtual-platform-large.bin";
    std::ifstream in(kTables + name, std::ios::binary);
    std::vector<unsigned char> table((std::istreambuf_iterator<char>(in)),
                                     std::istreambuf_iterator<char>());
    ASSERT_GT(table.size(), 8u);
    // Its own structures, then OEM ones, then the end-of-table structure.
    std::vector<unsigned char> big(table.begin(), table.end() - 6);
    ASSERT_EQ(table[table.size() - 6], 127) << "the corpus table ends with type 127";
    for (unsigned h = 0; big.size() < 200000; ++h)
        oemStructure(&big, 250, 0x8000 + h);
    big.insert(big.end(), table.end() - 6, table.end());

    const std::string dir = testing::TempDir() + "/smbios-linux";
    ASSERT_EQ(run("rm -rf '" + dir + "' && cp -r '" + std::string(INVSCAN_TEST_DATA) +
                  "/bundles/linux-debian12-vm' '" + dir + "' && echo ok"),
              "ok\n");
    writeFile(dir + "/files/%2Fsys%2Ffirmware%2Fdmi%2Ftables%2FDMI",
              std::string(big.begin(), big.end()));
    std::ofstream(dir + "/files.txt", std::ios::app)
        << "/sys/firmware/dmi/tables/DMI\tfiles/%2Fsys%2Ffirmware%2Fdmi%2Ftables%2FDMI\n";
    std::string out = run("env -u KOR_HOMEDIR -u INVSCAN_REPLAY -u INVSCAN_RECORD " +
                          std::string(INVSCAN_BINARY_DIR) + "/bin/invscan --replay '" + dir +
                          "' --group SMBIOS --format json 2>/dev/null");
    nlohmann::json doc = nlohmann::json::parse(out, nullptr, false);
    ASSERT_FALSE(doc.is_discarded()) << out.substr(0, 200);
    ASSERT_EQ(doc["tables"][0]["rows"].size(), 1u) << out.substr(0, 400);
    std::map<int, std::string> got;
    for (const auto& attr : doc["tables"][0]["rows"][0]) {
        const auto& v = attr["value"];
        got[attr["id"].get<int>()] = v.is_string() ? v.get<std::string>() : v.dump();
    }
    auto it = expected.find(name);
    ASSERT_NE(it, expected.end());
    EXPECT_EQ(got, it->second);
    run("rm -rf '" + dir + "'");
}
