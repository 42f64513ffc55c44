// The physical processor group over a fake kernel: real Mac sysctl captures (hw.* and
// machdep.cpu.* lines, see tests/data/cpu) and a few hand-made machines for the
// PowerPC rules and the sharing of active counts, each compared as complete rows.
#include <gtest/gtest.h>

#include "../common/group_fixture.h"

#include "invscan/CcLog.h"
#include "invscan/PhysicalProcessorGroup.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

namespace {

// A number where the text is one, else the text.
void set(testhost::FakeHost& k, const std::string& key, const std::string& value) {
    char* end = nullptr;
    const long long n = std::strtoll(value.c_str(), &end, 10);
    if (!value.empty() && *end == '\0')
        k.setInt(key, n);
    else
        k.setText(key, value);
}

// "name: value" lines as `sysctl` prints them; the numeric names a Darwin kernel also
// answers are filled in from their text names.
void load(testhost::FakeHost& k, const std::string& path) {
    static const std::map<std::string, std::string> mib = {{"hw.ncpu", "6.3"},
                                                           {"hw.busfrequency", "6.14"},
                                                           {"hw.cpufrequency", "6.15"},
                                                           {"hw.l2cachesize", "6.20"},
                                                           {"hw.l3cachesize", "6.22"}};
    std::ifstream in(path);
    ASSERT_TRUE(in) << path;
    std::string line;
    while (std::getline(in, line)) {
        const std::size_t colon = line.find(": ");
        if (line.empty() || line[0] == '#' || colon == std::string::npos) continue;
        const std::string key = line.substr(0, colon), value = line.substr(colon + 2);
        set(k, key, value);
        auto it = mib.find(key);
        if (it != mib.end()) set(k, it->second, value);
    }
}

std::string cpuTypeDump(const char* cpuType) {
    return std::string("(SystemProfiler\n(SPHardwareDataType\n(hardware_overview\ncpu_type:s=") +
           cpuType + "\n)\n)\n)\n";
}

class PhysicalProcessorGroupTest : public ::testing::Test, public testhost::HostGroupTest {
protected:
    void SetUp() override { install(); }
    void TearDown() override { uninstall(); }
    std::vector<std::string> scan() { return HostGroupTest::scan<PhysicalProcessorGroup>(); }
    testhost::FakeHost& kernel = fake;
};

std::string data(const char* name) {
    return std::string(INVSCAN_TEST_DATA "/cpu/") + name;
}

} // namespace

// Real Macs, no snapshot: the kernel values alone.
TEST_F(PhysicalProcessorGroupTest, RealMacCaptures) {
    const struct {
        const char* capture;
        const char* row;
    } cases[] = {// MacBook Pro 2014: a part newer than the table. The kernel's per-package counts
                 // are the family's maximum (8 cores, 16 threads); the machine has 4 and 8.
                 {"macbookpro-i7-4980HQ.sysctl",
                  "1=1;2=8;3=2;4=Intel;5=Unknown;6=Unknown;7=2800;8=256;9=6144;"
                  "10=Intel(R) Core(TM) i7-4980HQ CPU @ 2.80GHz;11=40661;12=Y;13=8;14=4"},
                 // Mac mini 2018 in a one-processor virtual machine.
                 {"macmini-i7-8700B-vm.sysctl",
                  "1=1;2=1;3=1;4=Intel;5=Unknown;6=Unknown;7=3200;8=256;9=12288;"
                  "10=Intel(R) Core(TM) i7-8700B CPU @ 3.20GHz;11=906EA;12=Y;13=1;14=1"},
                 // Mac mini 2009, machdep.cpu.* only: no package count (one row, no guesses), L2
                 // from machdep.cpu.cache.size as it stands, no 64-bit flag, nothing active.
                 {"macmini-p7550.sysctl",
                  "1=1;2=2;3=1;4=Intel;5=Core2 Duo Mobile;6=P7550;7=2260;8=3072;9=0;"
                  "10=Intel(R) Core(TM)2 Duo CPU     P7550  @ 2.26GHz;11=1067A;12=N;13=0;14=0"}};
    for (const auto& c : cases) {
        kernel.sysctls.clear();
        load(kernel, data(c.capture));
        EXPECT_EQ(scan(), std::vector<std::string>{c.row}) << c.capture;
    }
}

TEST_F(PhysicalProcessorGroupTest, HandMadeMachines) {
    const struct {
        const char* what;
        const char* cpuType; // null: no snapshot
        std::vector<std::pair<const char*, const char*>> sysctl;
        std::vector<std::string> rows;
    } cases[] = {{"two-package Mac Pro with two of eight cores disabled",
                  "Quad-Core Intel Xeon",
                  {{"machdep.cpu.brand_string", "Intel(R) Xeon(R) CPU E5462 @ 2.80GHz"},
                   {"machdep.cpu.signature", "67190"},
                   {"hw.packages", "2"},
                   {"hw.logicalcpu_max", "6"},
                   {"hw.physicalcpu_max", "6"},
                   {"machdep.cpu.cores_per_package", "4"},
                   {"machdep.cpu.logical_per_package", "4"},
                   {"6.20", "12582912"},
                   {"hw.cpu64bit_capable", "1"}},
                  {"1=1;2=4;3=1;4=Intel;5=Quad-Core Xeon;6=E5462;7=2800;8=12288;9=0;"
                   "10=Intel(R) Xeon(R) CPU E5462 @ 2.80GHz;11=10676;12=Y;13=4;14=4",
                   "1=2;2=4;3=1;4=Intel;5=Quad-Core Xeon;6=E5462;7=2800;8=12288;9=0;"
                   "10=Intel(R) Xeon(R) CPU E5462 @ 2.80GHz;11=10676;12=Y;13=2;14=2"}},
                 // The corpus's Power Mac G5 (PowerMac11,2): one dual-core package, 1 MB L2.
                 {"Power Mac G5",
                  "PowerPC G5 (1.1)",
                  {{"6.3", "2"}, {"6.20", "1048576"}},
                  {"1=1;2=2;3=1;4=Apple Inc.;5=PowerPC;6=G5;7=0;8=1024;9=0;10=PowerPC G5 (1.1);"
                   "12=Y;13=2;14=2"}},
                 {"dual G4, 256 KB L2",
                  "PowerPC G4  (1.1)",
                  {{"6.3", "2"}, {"6.20", "262144"}},
                  {"1=1;2=1;3=1;4=Apple Inc.;5=PowerPC;6=G4;7=0;8=256;9=0;10=PowerPC G4  "
                   "(1.1);12=Y;13=1;14=1",
                   "1=2;2=1;3=1;4=Apple Inc.;5=PowerPC;6=G4;7=0;8=256;9=0;10=PowerPC G4  "
                   "(1.1);12=Y;13=1;14=1"}},
                 {"per-package counts guessed from the totals; signature 0 left out",
                  nullptr,
                  {{"machdep.cpu.vendor", "GenuineIntel"},
                   {"hw.packages", "2"},
                   {"hw.physicalcpu_max", "8"},
                   {"hw.logicalcpu_max", "16"},
                   {"machdep.cpu.signature", "0"}},
                  {"1=1;2=4;3=2;4=Intel;5=Unknown;6=Unknown;7=0;8=0;9=0;10=;12=N;13=8;14=4",
                   "1=2;2=4;3=2;4=Intel;5=Unknown;6=Unknown;7=0;8=0;9=0;10=;12=N;13=8;14=4"}},
                 {"nothing known",
                  nullptr,
                  {},
                  {"1=1;2=0;3=0;4=Unknown;5=Unknown;6=Unknown;7=0;8=0;9=0;10=;12=N"}}};
    for (const auto& c : cases) {
        kernel.sysctls.clear();
        for (const auto& kv : c.sysctl)
            set(kernel, kv.first, kv.second);
        MacInfo::setSysProf(c.cpuType ? testhost::snapshot(cpuTypeDump(c.cpuType).c_str())
                                      : nullptr);
        EXPECT_EQ(scan(), c.rows) << c.what;
    }
}

TEST_F(PhysicalProcessorGroupTest, KernelValueHelpers) {
    set(kernel, "6.3", "4");
    set(kernel, "machdep.cpu.vendor", "GenuineIntel");
    set(kernel, "hw.cpufrequency", "2800000000"); // does not fit 4 bytes
    EXPECT_EQ(PhysicalProcessorGroup::getIntValue(CTL_HW, HW_NCPU), 4);
    EXPECT_EQ(PhysicalProcessorGroup::getIntValue(CTL_HW, HW_L3CACHESIZE), -1);
    EXPECT_EQ(PhysicalProcessorGroup::getIntValue("hw.cpufrequency"), -1);
    EXPECT_EQ(PhysicalProcessorGroup::getIntValue(nullptr), -1);
    EXPECT_EQ(PhysicalProcessorGroup::getStringValue("machdep.cpu.vendor"), "GenuineIntel");
    EXPECT_EQ(PhysicalProcessorGroup::getStringValue("machdep.cpu.brand_string"), "");
}

// The trace is the only account of where each value came from: one line per value in
// gathering order, errors on the error level.
TEST_F(PhysicalProcessorGroupTest, TraceFollowsGatheringOrder) {
    for (const auto& kv :
         std::vector<std::pair<const char*, const char*>>{{"machdep.cpu.vendor", "GenuineIntel"},
                                                          {"6.3", "16"},
                                                          {"hw.packages", "2"},
                                                          {"hw.physicalcpu_max", "8"},
                                                          {"6.20", "262144"},
                                                          {"machdep.cpu.signature", "0"}})
        set(kernel, kv.first, kv.second);
    VtExecInfo* failed = new VtExecInfo();
    failed->result = 3;
    MacInfo::setSysProf(failed);

    char path[] = "/tmp/invscan-pp-trace-XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    ASSERT_TRUE(getCcLogHw()->setOutput(path));
    scan();
    getCcLogHw()->setOutput(nullptr);
    std::ifstream in(path);
    const std::string log((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::remove(path);

    std::size_t at = 0;
    for (const char* line : {"ENTRY",
                             "\nMIN   ./../../../src/invscan/macos/PhysicalProcessorGroup:",
                             ": hardware Failed to exec sysprof command\n",
                             ": hardware cpu_type=\n",
                             ": hardware machdep.cpu.vendor=GenuineIntel\n",
                             ": hardware hw.logicalcpu_max=-1\n",
                             ": hardware HW_NCPU=16\n",
                             ": hardware hw.physicalcpu_max=8\n",
                             ": hardware hw.packages=2\n",
                             ": hardware machdep.cpu.cores_per_package=-1\n",
                             ": hardware machdep.cpu.logical_per_package=-1\n",
                             ": hardware machdep.cpu.brand_string=\n",
                             ": hardware machdep.cpu.signature=0\n",
                             ": hardware HW_L2CACHESIZE=262144\n",
                             ": hardware HW_L3CACHESIZE=-1\n",
                             ": hardware IntelGetMHzFromBrandstring=-1\n",
                             ": hardware hw.cpufrequency_max=0\n",
                             ": hardware HW_CPU_FREQ=0\n",
                             ": hardware HW_BUS_FREQ=-1\n",
                             ": hardware hw.cpu64bit_capable=-1\n",
                             ": hardware hw.optional.x86_64=-1\n",
                             ": hardware Processor man=Intel fam=Unknown type=Unknown\n",
                             ": hardware guestimated coresPerPackage=4\n",
                             ": hardware guestimated procsPerPackage=8 procsPerCore=2\n",
                             ": hardware Adding package ID: 1\n",
                             ": hardware Adding package ID: 2\n",
                             "EXIT "}) {
        const std::size_t found = log.find(line, at);
        ASSERT_NE(found, std::string::npos) << "missing or out of order: " << line << "\n" << log;
        at = found + std::strlen(line);
    }
}
