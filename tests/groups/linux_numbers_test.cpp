// The Linux rules of the processor, memory, storage and memory-module groups: the
// same host answers on a Linux and on a Darwin kernel name, so that each row shows
// the Linux number and the Mac one it replaces, over files of real machines.
#include <gtest/gtest.h>

#include "../common/group_fixture.h"

#include "common/host/linux_facts.h"
#include "invscan/CcLog.h"
#include "invscan/MemoryGroup.h"
#include "invscan/MemoryModulesGroup.h"
#include "invscan/PhysicalProcessorGroup.h"
#include "invscan/StorageGroup.h"

#include <fstream>
#include <iterator>
#include <unistd.h>

using testhost::snapshot;

namespace {

const std::string kLinux = std::string(INVSCAN_TEST_DATA) + "/linux/";
const char* const kMaxFreq = "/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq";

class LinuxNumbers : public ::testing::Test, public testhost::HostGroupTest {
protected:
    void SetUp() override { install(); }
    void TearDown() override { uninstall(); }

    template <typename F> std::string traced(F fn) {
        char path[] = "/tmp/invscan-numbers-trace-XXXXXX";
        close(mkstemp(path));
        getCcLogHw()->setOutput(path);
        fn();
        getCcLogHw()->setOutput(nullptr);
        std::ifstream in(path);
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        unlink(path);
        return text;
    }
};

// One attribute of the first row ("4=AMD" for id 4), empty when absent.
std::string attr(const std::vector<std::string>& rows, const std::string& id) {
    if (rows.empty()) return std::string();
    const std::string row = ";" + rows[0] + ";";
    const std::size_t at = row.find(";" + id + "=");
    if (at == std::string::npos) return std::string();
    return row.substr(at + 1, row.find(';', at + 1) - at - 1);
}

} // namespace

// Captured machines: the files the group reads through the host layer, and the sysctl
// answers the Linux backend would give from them.
TEST_F(LinuxNumbers, ProcessorMakerAndClock) {
    const struct {
        const char* machine;
        const char* linuxMaker;
        const char* linuxMhz;
        const char* macMaker;
        const char* macMhz;
    } cases[] = {
        {"server-amd-epyc-7451", "4=AMD", "7=2300", "4=Unknown", "7=0"},
        {"arm-exynos5-armv7", "4=Arm", "7=1700", "4=Unknown", "7=0"},
        // Intel's table has no entry for a brand without a model number; the clock
        // is the highest cpu MHz where sysfs has no cpufreq, as on this VM.
        {"vm-firecracker-debian12", "4=Intel", "7=2600", "4=Intel", "7=0"},
        // The brand string's clock is the last resort.
        {"laptop-toshiba-r630", "4=Intel", "7=933", "4=Intel", "7=2270"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.machine);
        const std::string root = kLinux + c.machine;
        const std::string text = linuxfacts::readFile(root, "/proc/cpuinfo");
        const linuxfacts::CpuInfo info = linuxfacts::parseCpuinfo(text);
        for (const char* kernel : {"Linux", "Darwin"}) {
            fake = testhost::FakeHost();
            fake.sysname = kernel;
            fake.files["/proc/cpuinfo"] = text;
            const std::string maxFreq = linuxfacts::readFile(root, kMaxFreq);
            if (!maxFreq.empty()) fake.files[kMaxFreq] = maxFreq;
            if (!info.vendor.empty()) fake.setText("machdep.cpu.vendor", info.vendor);
            if (!info.brand.empty()) fake.setText("machdep.cpu.brand_string", info.brand);
            fake.setInt("hw.packages", info.packages);
            const std::vector<std::string> rows = scan<PhysicalProcessorGroup>();
            const bool onLinux = std::string(kernel) == "Linux";
            EXPECT_EQ(attr(rows, "4"), onLinux ? c.linuxMaker : c.macMaker) << kernel;
            EXPECT_EQ(attr(rows, "7"), onLinux ? c.linuxMhz : c.macMhz) << kernel;
            EXPECT_EQ(rows.size(), static_cast<std::size_t>(info.packages));
        }
    }
}

// KB values past 4 GB: Linux adds in 64 bits and holds at the field's top; the Mac's
// 32-bit page product wraps and stays as it was.
TEST_F(LinuxNumbers, MemoryWithoutWrapping) {
    const std::string vmMeminfo =
        linuxfacts::readFile(kLinux + "vm-firecracker-debian12", "/proc/meminfo");
    const struct {
        const char* what;
        std::string meminfo;
        unsigned long long swapTotal, swapUsed;
        unsigned freePages;
        const char* linuxRow;
        const char* macRow;
    } cases[] = {
        {"this VM: 24 GB free, no swap", vmMeminfo, 0, 0, 6000000,
         "1=25165824;2=23455512;3=25165824;4=23455512;7=4096",
         "1=25165824;2=0;3=25165824;4=3028480;7=4096"},
        {"swap counts in Free Virtual",
         "MemTotal: 25165824 kB\nMemAvailable: 20000000 kB\nSwapTotal: 8388608 kB\n"
         "SwapFree: 8000000 kB\n",
         8ull << 30, 388608ull << 10, 6000000, "1=25165824;2=20000000;3=33554432;4=28000000;7=4096",
         "1=25165824;2=4289995776;3=33554432;4=3028480;7=4096"},
        {"no MemAvailable (before 3.14): free pages in 64 bits", "MemTotal: 25165824 kB\n", 0, 0,
         6000000, "1=25165824;2=24000000;3=25165824;4=24000000;7=4096",
         "1=25165824;2=0;3=25165824;4=3028480;7=4096"},
        {"more than 4 TiB free holds at the top", "MemAvailable: 5000000000 kB\nSwapFree: 5 kB\n",
         0, 0, 6000000, "1=25165824;2=4294967295;3=25165824;4=4294967295;7=4096",
         "1=25165824;2=0;3=25165824;4=3028480;7=4096"},
    };
    for (const auto& c : cases) {
        for (const char* kernel : {"Linux", "Darwin"}) {
            fake = testhost::FakeHost();
            fake.sysname = kernel;
            fake.setQuad("hw.memsize", 24LL << 30);
            fake.pageSize = 4096;
            fake.haveVm = true;
            fake.vmStats.free_count = c.freePages;
            if (c.swapTotal) fake.setSwap(c.swapTotal, c.swapUsed);
            fake.files["/proc/meminfo"] = c.meminfo;
            const bool onLinux = std::string(kernel) == "Linux";
            EXPECT_EQ(scan<MemoryGroup>(),
                      std::vector<std::string>{onLinux ? c.linuxRow : c.macRow})
                << c.what << " on " << kernel;
        }
    }
}

// Total Size: Linux takes the gathering's byte count in MB of 10^6 bytes; a Mac reads
// the size text in GB of 1024 MB.
TEST_F(LinuxNumbers, StorageSizeFromTheByteCount) {
    const struct {
        const char* what;
        const char* values;
        const char* linuxSize;
        const char* macSize;
    } cases[] = {
        {"this VM's 256 GiB disk", "size:s=274.88 GB\nsize_in_bytes:s=274877906944\n", "10=274877",
         "10=281477"},
        {"a count that fits 32 bits", "size:s=524.3 MB\nsize_in_bytes:i=524288000\n", "10=524",
         "10=524"},
        {"an older recording without the count", "size:s=274.88 GB\n", "10=274880", "10=281477"},
        {"a 20 TB disk", "size:s=20 TB\nsize_in_bytes:s=20000588955648\n", "10=20000588", "10=20"},
    };
    for (const auto& c : cases) {
        const std::string dump = std::string("(SystemProfiler\n(SPSerialATADataType\n(virtio\n"
                                             "(VirtIO Block Device\nbsd_name:s=disk0\n") +
                                 c.values + ")\n)\n)\n)\n";
        for (const char* kernel : {"Linux", "Darwin"}) {
            fake.sysname = kernel;
            MacInfo::setSysProf(snapshot(dump.c_str()));
            const bool onLinux = std::string(kernel) == "Linux";
            EXPECT_EQ(attr(scan<StorageGroup>(), "10"), onLinux ? c.linuxSize : c.macSize)
                << c.what << " on " << kernel;
        }
    }
}

// Module sizes from the number the gathering writes beside the text, and the reason
// the trace gives for a section without slots.
TEST_F(LinuxNumbers, MemoryModulesSizesAndWhyNone) {
    fake.sysname = "Linux";
    MacInfo::setSysProf(snapshot("(SystemProfiler\n(SPMemoryDataType\n(SPMemoryDataType\n"
                                 "(ChannelA/DIMM 0\ndimm_size_mb:i=1536\ndimm_size:s=1536 MB\n"
                                 "dimm_type:s=DDR4\n)\n(ChannelB/DIMM 0\ndimm_size_mb:i=16384\n"
                                 "dimm_size:s=16 GB\ndimm_type:s=DDR4\n)\n)\n)\n)\n"));
    EXPECT_EQ(scan<MemoryModulesGroup>(),
              (std::vector<std::string>{"1=1;2=1536;3=1536;4=ChannelA/DIMM 0;5=;6=DDR4",
                                        "1=2;2=16384;3=16384;4=ChannelB/DIMM 0;5=;6=DDR4"}));

    const struct {
        const char* reason;
        const char* trace;
    } cases[] = {
        {"no SMBIOS table", "no memory modules: no SMBIOS table"},
        {"the SMBIOS table needs root", "no memory modules: the SMBIOS table needs root"},
        {nullptr, "no memory modules: the profiler has no memory section"},
    };
    for (const auto& c : cases) {
        const std::string dump = c.reason ? std::string("(SystemProfiler\n(SPMemoryDataType\n"
                                                        "smbios_table:s=") +
                                                c.reason + "\n)\n)\n"
                                          : std::string("(SystemProfiler\n)\n");
        MacInfo::setSysProf(snapshot(dump.c_str()));
        std::vector<std::string> rows;
        const std::string trace = traced([&] { rows = scan<MemoryModulesGroup>(); });
        EXPECT_TRUE(rows.empty());
        EXPECT_NE(trace.find(c.trace), std::string::npos) << trace;
    }
}
