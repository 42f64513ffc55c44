// Saved reports of real Macs (tests/data/macos, see SOURCES.md there) go through the
// helpers' conversion and the library's response reader, and the values the groups
// read come out as the source files hold them.
#include "common/report/Report.h"
#include "common/report/ReportVt.h"
#include "invscan/VtProcess.h"
#include "invscan/VtStream.h"
#include "invscan/vtree.h"

#include <gtest/gtest.h>

#include "../common/run_command.h"

#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <string>
#include <vector>

namespace {

const std::string DATA = std::string(INVSCAN_TEST_DATA) + "/macos/";

// Converts a saved report the way `sysprof --from` does and reads the output back
// through the response reader the library uses.
std::unique_ptr<VtExecInfo> readBack(const char* helper, const std::string& path) {
    std::string text = testrun::readFile(path);
    report::Node root;
    std::string err;
    std::string out = report::convertReport(helper, text.data(), text.size(), &root, &err)
                          ? report::renderResponse(0, nullptr, &root)
                          : report::renderResponse(1, err.c_str(), nullptr);
    VtIStream_Memory in(out.data(), out.size());
    return std::unique_ptr<VtExecInfo>(vtParseProgramOutput(&in));
}

// Walks node names separated by '|' (names may hold '.' and '/').
const VtNode* walk(const VtNode* n, const std::string& path) {
    std::size_t p = 0;
    while (n && p <= path.size()) {
        std::size_t e = path.find('|', p);
        if (e == std::string::npos) e = path.size();
        n = n->getChild(path.substr(p, e - p).c_str(), 0);
        p = e + 1;
    }
    return n;
}

std::vector<std::string> listFiles(const std::string& dir) {
    std::vector<std::string> out;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.' && e->d_type != DT_DIR &&
                std::string(e->d_name) != "SOURCES.md")
                out.push_back(dir + e->d_name);
        closedir(d);
    }
    return out;
}

TEST(ReportCorpus, EverySavedReportReadsBackWithResultZero) {
    std::vector<std::pair<const char*, std::string>> files;
    for (const auto& f : listFiles(DATA))
        files.emplace_back("sysprof", f);
    for (const auto& f : listFiles(DATA + "ioreg/"))
        files.emplace_back("iokit", f);
    ASSERT_GE(files.size(), 35u);
    for (const auto& f : files) {
        auto info = readBack(f.first, f.second);
        ASSERT_TRUE(info) << f.second;
        EXPECT_EQ(0, info->result) << f.second;
        ASSERT_NE(nullptr, info->tree) << f.second;
        const char* top = std::string(f.first) == "iokit" ? "IOKit" : "SystemProfiler";
        EXPECT_NE(nullptr, info->tree->getChild(top, 0)) << f.second;
    }
}

// The captured Mac reports of peer projects (tests/data/corpus).
TEST(ReportCorpus, SharedCorpusWhenPresent) {
    const char* env = std::getenv("INVSCAN_CORPUS");
    std::string base = std::string(env && *env ? env : INVSCAN_CORPUS) + "/macos/";
    std::vector<std::pair<const char*, std::string>> files;
    for (const auto& f : listFiles(base + "glpi-agent/system_profiler/"))
        files.emplace_back("sysprof", f);
    for (const auto& f : listFiles(base + "glpi-agent/ioreg/"))
        files.emplace_back("iokit", f);
    if (files.empty()) GTEST_SKIP() << "no corpus at " << base;
    for (const char* f : {"facter/darwin-system-profiler.xml", "facter/system_profiler",
                          "facter/system_profile_sp_hardware_data_type",
                          "ohai/SPHardwareDataType.xml", "ohai/SPPowerDataType.xml",
                          "ohai/SPStorageDataType.xml", "ohai/system_profiler_mini_10.7.5.xml",
                          "grr/SPHardwareDataType-MacBookPro18,3-M1Pro.xml"})
        files.emplace_back("sysprof", base + f);
    for (const char* f :
         {"ohai/ioreg-l-fragment-parallels-host.txt", "ohai/ioreg-l-fragment-parallels-vm.txt"})
        files.emplace_back("iokit", base + f);
    for (const auto& f : files) {
        auto info = readBack(f.first, f.second);
        EXPECT_EQ(0, info->result) << f.second;
        EXPECT_NE(nullptr, info->tree) << f.second;
    }
}

struct Expect {
    const char* file;
    const char* helper;
    const char* node;  // '|'-separated node names from the root
    const char* value; // value name
    const char* text;  // expected string
};

const Expect EXPECTS[] = {
    // Hardware and software overviews, XML and text.
    {"facter-darwin-system-profiler.xml", "sysprof",
     "SystemProfiler|SPHardwareDataType|hardware_overview", "serial_number", "C02MQ15KFD57"},
    {"SPHardwareDataType-MacBookPro18,3-M1Pro.xml", "sysprof",
     "SystemProfiler|SPHardwareDataType|hardware_overview", "chip_type", "Apple M1 Pro"},
    {"10.4-powerpc", "sysprof", "SystemProfiler|SPHardwareDataType|hardware_overview", "cpu_type",
     "PowerPC G5 (1.1)"},
    {"10.4-powerpc", "sysprof", "SystemProfiler|SPSoftwareDataType|os_overview", "os_version",
     "Mac OS X 10.4.11 (8S165)"},
    {"facter-system_profiler", "sysprof", "SystemProfiler|SPHardwareDataType|hardware_overview",
     "platform_UUID", "12345678-1111-2222-AAAA-AABBCCDDEEFF"},
    // Memory slots sit under the wrapper item named after the data type.
    {"10.4-powerpc", "sysprof", "SystemProfiler|SPMemoryDataType|DIMM2/J6900", "dimm_size",
     "Empty"},
    // Disks: controller, then device; text sizes take the XML form.
    {"SPSerialATADataType.xml", "sysprof",
     "SystemProfiler|SPSerialATADataType|Intel ICH8-M AHCI|WDC WD2500AAJS-40VWA1", "size",
     "250.06 GB"},
    {"10.4-powerpc", "sysprof",
     "SystemProfiler|SPParallelATADataType|ATA Bus|HL-DT-ST DVD-RW GWA-4165B", "device_model",
     "HL-DT-ST DVD-RW GWA-4165B"},
    // I/O registry listings.
    {"ioreg/IOPlatformExpertDevice-2", "iokit", "IOKit|Root|MacBookPro12,1", "IOPlatformUUID",
     "CE3A2773-AF9E-515B-918B-5EE5C09372D7"},
};

// The saved reports that no replay bundle is made from (the bundles' expected scans
// cover the others): the values the groups read.
TEST(ReportCorpus, ValuesTheGroupsReadMatchTheSources) {
    std::string lastFile;
    std::unique_ptr<VtExecInfo> info;
    for (const Expect& e : EXPECTS) {
        if (lastFile != e.file) {
            info = readBack(e.helper, DATA + e.file);
            lastFile = e.file;
        }
        ASSERT_TRUE(info && info->tree) << e.file;
        const VtNode* n = walk(info->tree, e.node);
        ASSERT_NE(nullptr, n) << e.file << ": " << e.node;
        EXPECT_STREQ(e.text, n->getValue(nullptr, e.value, "<missing>"))
            << e.file << ": " << e.node << " " << e.value;
    }
}

TEST(ReportIoreg, ValueNotation) {
    struct Case {
        const char* text;
        report::PValue::Kind kind;
        const char* bytes;
        std::size_t len;
    } cases[] = {
        {"\"Darwin Kernel\"", report::PValue::STRING, "Darwin Kernel", 13},
        {"12", report::PValue::INTEGER, "12", 2},
        {"-3", report::PValue::INTEGER, "-3", 2},
        {"18446744073709551615", report::PValue::INTEGER, "18446744073709551615", 20},
        {"<00d69327>", report::PValue::DATA, "\x00\xd6\x93\x27", 4},
        {"<\"MacBook2,1\">", report::PValue::DATA, "MacBook2,1\0", 11},
        {"<\"a\",\"b\">", report::PValue::DATA, "a\0b\0", 4},
        {"IOCommand is not serializable", report::PValue::STRING, "IOCommand is not serializable",
         29},
        {"<0a1", report::PValue::STRING, "<0a1", 4}, // broken: kept as text
    };
    for (const Case& c : cases) {
        report::PValue v;
        ASSERT_TRUE(report::parseIoregValue(c.text, &v)) << c.text;
        EXPECT_EQ(c.kind, v.kind) << c.text;
        EXPECT_EQ(std::string(c.bytes, c.len), v.text) << c.text;
    }
    report::PValue d;
    ASSERT_TRUE(report::parseIoregValue(
        "{\"Classes\"={\"AppleSMBIOS\"=1,\"IOPCIDevice\"=30},\"On\"=Yes,\"L\"=(1,2)}", &d));
    ASSERT_EQ(report::PValue::DICT, d.kind);
    ASSERT_EQ(3u, d.dict.size());
    EXPECT_EQ("1", d.get("Classes")->get("AppleSMBIOS")->text);
    EXPECT_TRUE(d.get("On")->flag);
    EXPECT_EQ(2u, d.get("L")->items.size());
}

TEST(ReportText, LabelsTakeTheirXmlKeys) {
    struct Case {
        const char* text;
        const char* node;
        const char* value;
        const char* expect;
    } cases[] = {
        // An empty value is a value, not a heading, when nothing deeper follows.
        {"Network:\n\n    En:\n\n      Type: Ethernet\n      Ethernet:\n          Media Options: \n"
         "          Media Subtype: autoselect\n",
         "SystemProfiler|SPNetworkDataType|En|Ethernet", "MediaSubType", "autoselect"},
        {"Serial-ATA:\n\n    C:\n\n        D:\n\n          Capacity: 4,01 GB (4 010 803 200 "
         "bytes)\n",
         "SystemProfiler|SPSerialATADataType|C|D", "size", "4.01 GB"},
        {"Serial-ATA:\n\n    C:\n\n        D:\n\n          Capacity: 233.76 GB\n",
         "SystemProfiler|SPSerialATADataType|C|D", "size", "233.76 GB"},
        {"Memory:\n\n      Memory: 16 GB\n      Type: LPDDR4\n",
         "SystemProfiler|SPMemoryDataType|SPMemoryDataType", "dimm_type", "LPDDR4"},
        {"Frobnicator:\n\n    Thing:\n\n      Odd Label: x\n",
         "SystemProfiler|SPFrobnicatorDataType|Thing", "Odd Label", "x"},
    };
    for (const auto& c : cases) {
        report::Node root;
        ASSERT_TRUE(report::sysprofFromText(c.text, std::strlen(c.text), &root)) << c.text;
        std::unique_ptr<VtNode> vt(report::toVtTree(root));
        const VtNode* n = walk(vt.get(), c.node);
        ASSERT_NE(nullptr, n) << c.node;
        EXPECT_STREQ(c.expect, n->getValue(nullptr, c.value, "<missing>")) << c.node;
    }
}

TEST(ReportTree, NamesAreSafeForTheDump) {
    // Keys that would break a dump line: leading '_', ':' and '=', line breaks.
    const char* plist = "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><dict>"
                        "<key>_dataType</key><string>SPTestDataType</string>"
                        "<key>_items</key><array><dict><key>_name</key><string>a\nb</string>"
                        "<key>x:y=z</key><string>line1\r\nline2</string>"
                        "<key>_private</key><true/>"
                        "<key>big</key><integer>4294967296</integer>"
                        "<key>blob</key><data>AAEC</data>"
                        "<key>list</key><array><string>p</string><string>q</string></array>"
                        "</dict></array></dict></array></plist>";
    report::Node root;
    std::string err;
    ASSERT_TRUE(report::convertReport("sysprof", plist, std::strlen(plist), &root, &err)) << err;
    std::string out = report::renderResponse(0, nullptr, &root);
    VtIStream_Memory in(out.data(), out.size());
    std::unique_ptr<VtExecInfo> info(vtParseProgramOutput(&in));
    ASSERT_EQ(0, info->result);
    ASSERT_NE(nullptr, info->tree);
    const VtNode* item = walk(info->tree, "SystemProfiler|SPTestDataType|a b");
    ASSERT_NE(nullptr, item);
    EXPECT_STREQ("line1 line2", item->getValue(nullptr, "x_y_z", ""));
    EXPECT_EQ(1, item->getValue(nullptr, "private", 0));
    EXPECT_STREQ("4294967296", item->getValue(nullptr, "big", ""));
    EXPECT_EQ(3u, item->getValue("blob")->length);
    EXPECT_EQ(2, item->getValue("list", "size", 0));
    // Round trip: what is written reads back into the same tree.
    std::unique_ptr<VtNode> direct(report::toVtTree(root));
    EXPECT_TRUE(vtNodeEquals(direct.get(), info->tree));
}

// The tree shape the groups rely on, from the XML forms, after a trip through the
// dump: (node path, value, expected dump line of that value or "" for a node only).
TEST(ReportTree, PlistShapeRules) {
    const char* sp =
        "<plist version=\"1.0\"><array>"
        "<dict><key>_dataType</key><string>SPMemoryDataType</string><key>_items</key><array>"
        "<dict><key>_name</key><string>global_ecc_state_name</string>"
        "<key>global_ecc_state</key><string>ecc_disabled</string><key>_items</key><array>"
        "<dict><key>_name</key><string>BANK 0/DIMM0</string><key>dimm_size</key><string>4 "
        "GB</string></dict>"
        "</array></dict></array></dict>"
        "<dict><key>_dataType</key><string>SPUSBDataType</string><key>_items</key><array>"
        "<dict><key>_name</key><string>Bus</string><key>_items</key><array>"
        "<dict><key>_name</key><string>Hub</string><key>_items</key><array>"
        "<dict><key>_name</key><string>Stick</string><key>on</key><true/><key>off</key><false/>"
        "<key>ratio</key><real>0.25</real><key>when</key><date>2011-03-01T10:00:00Z</date>"
        "<key>neg</key><integer>-2147483648</integer><key>wide</key><integer>2147483648</integer>"
        "<key>vols</key><array><dict><key>_name</key><string>EFI</string><key>n</key><integer>1</"
        "integer></dict>"
        "<dict><key>n</key><integer>2</integer></dict></array>"
        "<key>codes</key><array><integer>7</integer><string>x</string></array>"
        "<key>none</key><array/>"
        "</dict></array></dict></array></dict>"
        "<dict><key>n</key><integer>3</integer></dict>"
        "</array></dict></array></plist>";
    const char* io =
        "<plist version=\"1.0\"><dict><key>IORegistryEntryName</key><string>Root</string>"
        "<key>IOKitBuildVersion</key><string>Darwin</string>"
        "<key>IOKitDiagnostics</key><dict><key>Classes</key><dict>"
        "<key>AppleSMBIOS</key><integer>1</integer></dict></dict>"
        "<key>IORegistryEntryChildren</key><array>"
        "<dict><key>IORegistryEntryName</key><string>Mac1,1</string>"
        "<key>IORegistryEntryChildren</key><array>"
        "<dict><key>IOObjectClass</key><string>AppleSMBIOS</string><key>SMBIOS</key><data>AAEC</"
        "data></dict>"
        "</array></dict></array></dict></plist>";
    struct Case {
        const char* helper;
        const char* path;  // node names separated by '|'
        const char* value; // null: the node must exist
        const char* line;  // the value as the dump writes it
    } cases[] = {
        {"sysprof", "SystemProfiler|SPMemoryDataType|SPMemoryDataType", "global_ecc_state",
         "s=ecc_disabled"},
        {"sysprof", "SystemProfiler|SPMemoryDataType|SPMemoryDataType|BANK 0/DIMM0", "dimm_size",
         "s=4 GB"},
        {"sysprof", "SystemProfiler|SPUSBDataType|Bus|Hub|Stick", "on", "i=1"},
        {"sysprof", "SystemProfiler|SPUSBDataType|Bus|Hub|Stick", "off", "i=0"},
        {"sysprof", "SystemProfiler|SPUSBDataType|Bus|Hub|Stick", "ratio", "f=0.250000"},
        {"sysprof", "SystemProfiler|SPUSBDataType|Bus|Hub|Stick", "when", "s=2011-03-01T10:00:00Z"},
        {"sysprof", "SystemProfiler|SPUSBDataType|Bus|Hub|Stick", "neg", "i=-2147483648"},
        {"sysprof", "SystemProfiler|SPUSBDataType|Bus|Hub|Stick", "wide", "s=2147483648"},
        {"sysprof", "SystemProfiler|SPUSBDataType|Bus|Hub|Stick|vols|EFI", "n", "i=1"},
        {"sysprof", "SystemProfiler|SPUSBDataType|Bus|Hub|Stick|vols|1", "n", "i=2"},
        {"sysprof", "SystemProfiler|SPUSBDataType|Bus|Hub|Stick|codes", "size", "i=2"},
        {"sysprof", "SystemProfiler|SPUSBDataType|Bus|Hub|Stick|codes", "codes", "i=7"},
        {"sysprof", "SystemProfiler|SPUSBDataType|Bus|Hub|Stick|none", "size", "i=0"},
        {"sysprof", "SystemProfiler|SPUSBDataType|SPUSBDataType", "n", "i=3"}, // no _name
        {"iokit", "IOKit|Root", "IOKitBuildVersion", "s=Darwin"},
        {"iokit", "IOKit|Root|IOKitDiagnostics|Classes", "AppleSMBIOS", "i=1"},
        {"iokit", "IOKit|Root|Mac1,1|AppleSMBIOS", "SMBIOS", "d=3,000102"},
    };
    for (const char* helper : {"sysprof", "iokit"}) {
        const char* text = std::strcmp(helper, "iokit") == 0 ? io : sp;
        report::Node root;
        std::string err;
        ASSERT_TRUE(report::convertReport(helper, text, std::strlen(text), &root, &err)) << err;
        std::string out = report::renderResponse(0, nullptr, &root);
        VtIStream_Memory in(out.data(), out.size());
        std::unique_ptr<VtExecInfo> info(vtParseProgramOutput(&in));
        ASSERT_NE(nullptr, info->tree) << out;
        for (const Case& c : cases) {
            if (std::strcmp(c.helper, helper) != 0) continue;
            const VtNode* n = walk(info->tree, c.path);
            ASSERT_NE(nullptr, n) << c.path << "\n" << out;
            const VtVariant* v = n->getValue(c.value);
            ASSERT_NE(nullptr, v) << c.path << " " << c.value;
            std::string line = std::string(c.value) + ":" + c.line + "\n";
            EXPECT_NE(std::string::npos, out.find(line)) << line;
        }
        // The wrapper keys are structure, not data.
        EXPECT_EQ(std::string::npos, out.find("IORegistryEntryChildren"));
        EXPECT_EQ(std::string::npos, out.find("(_items"));
        EXPECT_EQ(std::string::npos, out.find("(global_"));
    }
}

TEST(ReportTree, RejectsWhatIsNotAReport) {
    struct Case {
        const char* helper;
        const char* text;
    } cases[] = {
        {"sysprof", "<plist><dict><key>a</key><string>b</string></dict></plist>"}, // no data type
        {"sysprof", "<plist><array>"},                                             // broken XML
        {"iokit", "Hardware:\n\n    Hardware Overview:\n"},                        // wrong kind
        {"sysprof", ""},
        {"iokit", "<html/>"},
    };
    for (const auto& c : cases) {
        report::Node root;
        std::string err;
        EXPECT_FALSE(report::convertReport(c.helper, c.text, std::strlen(c.text), &root, &err))
            << c.text;
        EXPECT_FALSE(err.empty());
    }
}

TEST(ReportTree, SizesInTheProfilerForm) {
    EXPECT_EQ("250.06 GB", report::formatSize(250059350016ull));
    EXPECT_EQ("209.7 MB", report::formatSize(209715200ull));
    EXPECT_EQ("650 MB", report::formatSize(650002432ull));
    EXPECT_EQ("512 bytes", report::formatSize(512));
    EXPECT_EQ("2 TB", report::formatSize(2000000000000ull));
}

} // namespace
