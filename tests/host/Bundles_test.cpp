// Replay bundles of real Macs (tests/data/bundles, made by tools/make_bundles.py from
// saved outputs; each bundle.txt names its sources). Replay goes through the same
// code as a live scan: the layer's calls, and the helper programs run by the
// library's own helper runner.
#include "common/report/ReportVt.h"
#include "invscan/VtProcess.h"
#include "invscan/VtStream.h"
#include "invscan/host.h"
#include "invscan/vtree.h"

#include <gtest/gtest.h>

#include "../common/run_command.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

using testrun::run;

const std::string BUNDLES = std::string(INVSCAN_TEST_DATA) + "/bundles/";

struct Machine {
    const char* bundle;
    bool sysprof, iokit;
    const char* path; // dotted path in the helper's tree, or a sysctl name
    const char* name; // value name, or null for a sysctl
    const char* text;
};

const Machine MACHINES[] = {
    {"macmini3-1-10.6.8", true, false, "machdep.cpu.brand_string", nullptr,
     "Intel(R) Core(TM)2 Duo CPU     P7550  @ 2.26GHz"},
    {"macbookair10-1-m1-11.2.3", true, false, "SystemProfiler.SPSoftwareDataType.os_overview",
     "os_version", "macOS 11.2.3 (20D91)"},
    {"powermac11-2-10.5.8", true, false, "SystemProfiler.SPHardwareDataType.hardware_overview",
     "cpu_type", "PowerPC G5 (1.1)"},
    {"macbook2-1-registry", false, true, "IOKit.Root.MacBook2,1", "IOPlatformSerialNumber",
     "W87305UMYA8"},
    {"kbrazil-mac-10.14.6", false, false, "machdep.cpu.brand_string", nullptr,
     "Intel(R) Core(TM) i5-8279U CPU @ 2.40GHz"},

};

class Bundles : public ::testing::Test {
protected:
    void TearDown() override {
        host::useLive();
        unsetenv("KOR_HOMEDIR");
    }
};

TEST_F(Bundles, ReplayGivesEachMachineItsRecordedAnswers) {
    std::string helperDir = std::string(INVSCAN_BINARY_DIR) + "/bin/";
    if (access((helperDir + "sysprof").c_str(), X_OK) != 0) GTEST_SKIP() << "helpers not built";
    setenv("KOR_HOMEDIR", INVSCAN_BINARY_DIR, 1);
    for (const Machine& m : MACHINES) {
        std::string dir = BUNDLES + m.bundle;
        ASSERT_TRUE(host::useReplay(dir.c_str())) << dir;
        // The helpers run as child processes and follow the replay through the
        // environment; the library reads them as it reads a live helper.
        std::unique_ptr<VtExecInfo> sp(vtExecCommand("sysprof"));
        std::unique_ptr<VtExecInfo> io(vtExecCommand("iokit"));
        ASSERT_TRUE(sp && io);
        EXPECT_EQ(m.sysprof ? 0 : 2, sp->result) << m.bundle;
        EXPECT_EQ(m.iokit ? 0 : 2, io->result) << m.bundle;
        if (m.sysprof) {
            std::string saved = testrun::readFile(dir + "/helpers/sysprof");
            VtIStream_Memory in(saved.data(), saved.size());
            std::unique_ptr<VtExecInfo> direct(vtParseProgramOutput(&in));
            EXPECT_TRUE(vtNodeEquals(direct->tree, sp->tree)) << m.bundle;
        }
        if (m.name) {
            VtExecInfo* info = std::strncmp(m.path, "IOKit", 5) == 0 ? io.get() : sp.get();
            EXPECT_STREQ(m.text, vtGetValue(info, m.path, m.name, "<missing>")) << m.bundle;
        } else {
            char buf[256] = {0};
            std::size_t len = sizeof buf - 1;
            ASSERT_EQ(0, host::sysctlbyname(m.path, buf, &len)) << m.bundle;
            EXPECT_STREQ(m.text, buf) << m.bundle;
        }
    }
}

TEST_F(Bundles, WhatAHelperRecordsItReplays) {
    std::string bin = std::string(INVSCAN_BINARY_DIR) + "/bin/";
    if (access((bin + "sysprof").c_str(), X_OK) != 0) GTEST_SKIP() << "helpers not built";
    char tmpl[] = "/tmp/invscan-rec-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(tmpl));
    std::string dir = std::string(tmpl) + "/bundle";
    for (const char* helper : {"sysprof", "iokit"}) {
        std::string live = run(bin + helper + " --record " + dir);
        ASSERT_EQ(0, live.compare(0, 6, "1.0 0\n")) << helper;
        EXPECT_EQ(live, testrun::readFile(dir + "/helpers/" + helper)) << helper;
        EXPECT_EQ(live, run(bin + helper + " --replay " + dir)) << helper;
    }
    EXPECT_EQ(0, testrun::readFile(dir + "/bundle.txt").compare(0, 16, "invscan-bundle 1"));
    // A saved report that is not one gives a failure response, not a crash.
    EXPECT_EQ(0, run(bin + "iokit --from " + dir + "/bundle.txt").compare(0, 6, "1.0 1 "));
    EXPECT_EQ(0, run(bin + "sysprof --from /nonexistent").compare(0, 6, "1.0 1 "));
    ASSERT_EQ(0, std::system((std::string("rm -rf ") + tmpl).c_str()));
}

} // namespace
