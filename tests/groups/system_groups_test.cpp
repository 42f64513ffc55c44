// The operating system, memory, memory modules, storage, regional and component id
// groups over a host whose every answer the test sets: the fallbacks and the kept
// quirks, on the Mac rules and on the Linux rules, each as complete rows.
#include <gtest/gtest.h>

#include "../common/group_fixture.h"

#include "invscan/CcLog.h"
#include "invscan/ComponentIDGroup.h"
#include "invscan/MemoryGroup.h"
#include "invscan/MemoryModulesGroup.h"
#include "invscan/OperatingSystemGroup.h"
#include "invscan/RegionalGroup.h"
#include "invscan/StorageGroup.h"
#include "invscan/md5.h"

#include <fstream>
#include <iterator>
#include <unistd.h>

using testhost::snapshot;

namespace {

class SystemGroups : public ::testing::Test, public testhost::HostGroupTest {
protected:
    void SetUp() override { install(); }
    void TearDown() override { uninstall(); }

    // Runs `fn` with the trace going to a file, and returns what it wrote.
    template <typename F> std::string traced(F fn) {
        char path[] = "/tmp/invscan-groups-trace-XXXXXX";
        int fd = mkstemp(path);
        close(fd);
        getCcLogHw()->setOutput(path);
        fn();
        getCcLogHw()->setOutput(nullptr);
        std::ifstream in(path);
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        unlink(path);
        return text;
    }
};

std::string osSnapshot(const std::string& name) {
    return "(SystemProfiler\n(SPSoftwareDataType\n(os_overview\nos_version:s=" + name +
           "\nkernel_version:s=Darwin 9.8.0\n)\n)\n)\n";
}

} // namespace

TEST_F(SystemGroups, OperatingSystemNamesAndMachines) {
    const struct {
        const char* name; // null: no system profiler snapshot
        const char* machine;
        const char* log; // null: no install log
        const char* row;
    } cases[] = {
        {"Mac OS X 10.4.11 (8S165)", "Power Macintosh", nullptr,
         "1=Mac OS X 10.4.11 (8S165);2=3;3=10;4=4;5=11;6=;10=Power Macintosh;11=32;12=Mac OS "
         "X;15="},
        {"Mac OS X Server 10.5", "i386", "Native install completed 2009-08-28 10:12:01 +0200.\n",
         "1=Mac OS X Server 10.5;2=3;3=0;4=0;5=;6=2009-08-28 10:12:01 +0200;10=i386;11=32;12=Mac "
         "OS X;15="},
        {"Mac OS 9", "x86_64", "Native install completed\n",
         "1=Mac OS 9;2=3;3=0;4=0;5=;6=;10=x86_64;11=64;12=Mac OS X;15="},
        {"Mac OS X", "x86_64h", "Upgrade install completed 2010\n",
         "1=Mac OS X;2=3;3=0;4=0;5=;6=;10=x86_64h;11=32;12=Mac OS X;15="},
        {nullptr, "", nullptr, "1=Mac OS;2=3;3=0;4=0;5=;6=;10=;11=32;12=Mac OS X;15="},
    };
    for (const auto& c : cases) {
        fake.sysname = "Darwin";
        fake.machine = c.machine;
        fake.files.clear();
        if (c.log) fake.files["/var/log/OSInstall.custom"] = c.log;
        MacInfo::setSysProf(c.name ? snapshot(osSnapshot(c.name).c_str()) : nullptr);
        EXPECT_EQ(scan<OperatingSystemGroup>(), std::vector<std::string>{c.row}) << c.row;
    }
}

TEST_F(SystemGroups, OperatingSystemDescriptionAndLocale) {
    fake.sysname = "Darwin";
    fake.machine = "i386";
    fake.locales[LC_MESSAGES] = "fr_FR.UTF-8";
    MacInfo::setIoKit(
        snapshot("(IOKit\n(Root\nIOKitBuildVersion:s=Darwin Kernel Version 10.8.0\n)\n)\n"));
    MacInfo::setSysProf(snapshot(osSnapshot("Mac OS X 10.6.8 (10K549)").c_str()));
    EXPECT_EQ(
        scan<OperatingSystemGroup>(),
        std::vector<std::string>{"1=Mac OS X 10.6.8 (10K549);2=3;3=10;4=6;5=8;6=;10=i386;11=32;"
                                 "12=Darwin Kernel Version 10.8.0;15=fr_FR.UTF-8"});
}

// A log of one 100 KB line: the first 511 characters are all that is read.
TEST_F(SystemGroups, OperatingSystemLongInstallLog) {
    fake.sysname = "Darwin";
    fake.files["/var/log/OSInstall.custom"] =
        "Native install completed " + std::string(100 * 1024, '7') + ".\n";
    std::vector<std::string> rows = scan<OperatingSystemGroup>();
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_NE(rows[0].find(";6=" + std::string(511 - 25, '7') + ";10="), std::string::npos);
}

TEST_F(SystemGroups, OperatingSystemTraces) {
    fake.sysname = "Darwin";
    MacInfo::setSysProf(snapshot(osSnapshot("Mac OS 9").c_str()));
    std::string trace = traced([this] { scan<OperatingSystemGroup>(); });
    EXPECT_NE(trace.find("OS VERSION FORMAT MISMASH"), std::string::npos);
    EXPECT_NE(trace.find("Install log doesn't exists"), std::string::npos);
    EXPECT_NE(trace.find("Can't parse iokit binary"), std::string::npos);
    EXPECT_NE(trace.find("64-bits status [0]"), std::string::npos);

    MacInfo::setSysProf(snapshot(osSnapshot("Mac OS X Server 10.5").c_str()));
    trace = traced([this] { scan<OperatingSystemGroup>(); });
    EXPECT_EQ(trace.find("MISMASH"), std::string::npos);
}

TEST_F(SystemGroups, OperatingSystemOnLinux) {
    const struct {
        const char* osRelease; // null: no os-release at all
        const char* installDate;
        const char* row;
    } cases[] = {
        {"PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nVERSION_ID=\"12\"\n", nullptr,
         "1=Debian GNU/Linux 12 (bookworm);2=37;3=12;4=0;5=;6=;10=x86_64;11=64;12=Linux version "
         "1.0 #1;15=C"},
        {"NAME=\"Ubuntu\"\nVERSION_ID=\"22.04\"\n", "2024-05-01 10:00:00 +0000",
         "1=Ubuntu;2=37;3=22;4=4;5=;6=2024-05-01 10:00:00 +0000;10=x86_64;11=64;12=Linux version "
         "1.0 #1;15=C"},
        {"PRETTY_NAME=\"Alpine Linux v3.19\"\nVERSION_ID=3.19.1\n", nullptr,
         "1=Alpine Linux v3.19;2=37;3=3;4=19;5=1;6=;10=x86_64;11=64;12=Linux version 1.0 #1;15=C"},
        {"NAME=\"Arch Linux\"\n", nullptr,
         "1=Arch Linux;2=37;3=0;4=0;5=;6=;10=x86_64;11=64;12=Linux version 1.0 #1;15=C"},
        {nullptr, nullptr,
         "1=Linux;2=37;3=0;4=0;5=;6=;10=x86_64;11=64;12=Linux version 1.0 #1;15=C"},
    };
    for (const auto& c : cases) {
        fake.sysname = "Linux";
        fake.machine = "x86_64";
        fake.locales[LC_MESSAGES] = "C";
        fake.files.clear();
        fake.sysctls.clear();
        if (c.osRelease) fake.files["/etc/os-release"] = c.osRelease;
        if (c.installDate) fake.setText("kern.install_date", c.installDate);
        // The Mac's profiler name is not used on Linux.
        MacInfo::setSysProf(snapshot(osSnapshot("Mac OS X 10.6.8").c_str()));
        EXPECT_EQ(scan<OperatingSystemGroup>(), std::vector<std::string>{c.row}) << c.row;
    }
}

// Kernel answers for the memory group; the rows are totals in KB.
TEST_F(SystemGroups, MemoryFallbacks) {
    struct Case {
        const char* what;
        void (*setup)(testhost::FakeHost&);
        const char* row;
    };
    const Case cases[] = {
        {"memsize wins over physmem",
         [](testhost::FakeHost& h) {
             h.setQuad("hw.memsize", 8LL << 30);
             h.setInt("6.5", 12345678);
             h.setInt("6.7", 4096);
             h.setSwap(1024LL << 20, 256LL << 20);
             h.pageSize = 4096;
             h.haveVm = true;
             h.vmStats.free_count = 262144; // 1 GB
         },
         "1=8388608;2=262144;3=9437184;4=1048576;7=4096"},
        {"memsize by number, zero: physmem, negative, truncated toward zero",
         [](testhost::FakeHost& h) {
             h.setQuad("6.24", 0);
             h.setInt("6.5", -1536);
             h.pageSize = 4096;
             h.haveVm = true;
             h.vmStats.free_count = 10;
         },
         "1=4294967295;2=0;3=4294967295;4=40;7=4096"},
        {"swap unreadable",
         [](testhost::FakeHost& h) {
             h.setQuad("hw.memsize", 2LL << 30);
             h.setInt("hw.pagesize", 4096);
             h.pageSize = 4096;
             h.haveVm = true;
             h.vmStats.free_count = 1000;
         },
         "1=2097152;2=0;3=2097152;4=4000;7=4096"},
        {"host statistics unreadable",
         [](testhost::FakeHost& h) {
             h.setQuad("hw.memsize", 2LL << 30);
             h.setSwap(1 << 30, 0);
             h.pageSize = 4096;
         },
         "1=2097152;2=0;3=0;4=0;7=4096"},
        {"page size from the kernel; 32-bit free product wraps",
         [](testhost::FakeHost& h) {
             h.setQuad("hw.memsize", 16LL << 30);
             h.pageSize = 4096;
             h.haveVm = true;
             h.vmStats.free_count = 1u << 20; // 4 GB free: 4096 * 2^20 wraps to 0
         },
         "1=16777216;2=0;3=16777216;4=0;7=4096"},
        {"free swap larger than free memory wraps",
         [](testhost::FakeHost& h) {
             h.setQuad("hw.memsize", 1LL << 30);
             h.setSwap(64 << 20, 0);
             h.pageSize = 4096;
             h.haveVm = true;
             h.vmStats.free_count = 256;
         },
         "1=1048576;2=4294902784;3=1114112;4=1024;7=4096"},
        {"nothing readable", [](testhost::FakeHost&) {}, "1=0;2=0;3=0;4=0;7=0"},
    };
    for (const Case& c : cases) {
        fake = testhost::FakeHost();
        fake.sysname = "Darwin";
        c.setup(fake);
        EXPECT_EQ(scan<MemoryGroup>(), std::vector<std::string>{c.row}) << c.what;
    }
}

TEST_F(SystemGroups, MemoryOnLinuxReportsAvailable) {
    fake.sysname = "Linux";
    fake.setQuad("hw.memsize", 24LL << 30);
    fake.pageSize = 4096;
    fake.haveVm = true;
    fake.vmStats.free_count = 1000;
    fake.files["/proc/meminfo"] = "MemTotal: 25165824 kB\nMemAvailable:   20000000 kB\n";
    EXPECT_EQ(scan<MemoryGroup>(),
              std::vector<std::string>{"1=25165824;2=20000000;3=25165824;4=20000000;7=4096"});
    fake.files.clear(); // unreadable: the free pages
    EXPECT_EQ(scan<MemoryGroup>(),
              std::vector<std::string>{"1=25165824;2=4000;3=25165824;4=4000;7=4096"});
}

TEST_F(SystemGroups, MemoryModules) {
    const struct {
        const char* dump;
        std::vector<std::string> rows;
    } cases[] = {
        {"(SystemProfiler\n(SPMemoryDataType\n(SPMemoryDataType\n"
         "(BANK 0/DIMM0\ndimm_size:s=2 GB\ndimm_type:s=DDR3\ndimm_part_number:s=0x1234\n)\n"
         "(BANK 1/DIMM0\ndimm_size:s=512 MB\ndimm_type:s=DDR2\n)\n"
         "(DIMM2\ndimm_size:s=Empty\ndimm_type:s=Empty\ndimm_part_number:s=Empty\n)\n)\n)\n)\n",
         {"1=1;2=2048;3=2048;4=BANK 0/DIMM0;5=0x1234;6=DDR3",
          "1=2;2=512;3=512;4=BANK 1/DIMM0;5=;6=DDR2", "1=3;2=0;3=0;4=DIMM2;5=Empty;6=Empty"}},
        // A size given as a number is not a text: 0, but the slot still has a row.
        {"(SystemProfiler\n(SPMemoryDataType\n(A\ndimm_size:i=4\n)\n)\n)\n",
         {"1=1;2=0;3=0;4=A;5=;6="}},
        {"(SystemProfiler\n(SPMemoryDataType\n)\n)\n", {}},
        {"(SystemProfiler\n)\n", {}},
        {nullptr, {}},
    };
    for (const auto& c : cases) {
        MacInfo::setSysProf(snapshot(c.dump));
        bool got = false;
        EXPECT_EQ(scan<MemoryModulesGroup>(&got), c.rows) << (c.dump ? c.dump : "none");
        EXPECT_TRUE(got); // an empty table, never none
    }
}

// The replay bundles' expected scans hold real disks of every bus; here the kept quirk
// (an item named like its section is passed over), the ID and a missing snapshot.
TEST_F(SystemGroups, Storage) {
    MacInfo::setSysProf(
        snapshot("(SystemProfiler\n(SPSerialATADataType\n(Intel ICH8-M AHCI\n"
                 "(SPSerialATADataType\nsize:s=1 GB\n)\n"
                 "(TOSHIBA MK2555GSX\ndevice_model:s=TOSHIBA MK2555GSX\n"
                 "device_serial:s=X1\nsize:s=250.06 GB\nbsd_name:s=disk0\n)\n)\n)\n)\n"));
    std::vector<std::string> rows = scan<StorageGroup>();
    ASSERT_EQ(rows.size(), 1u);
    // ID = MD5 of name, model, manufacturer and serial run together.
    char* id = md5_checksum("TOSHIBA MK2555GSXTOSHIBA MK2555GSXX1");
    EXPECT_EQ(rows[0].substr(0, 39), std::string("1=1;2=") + id + ";");
    std::free(id);
    EXPECT_NE(rows[0].find(";3=30;4=TOSHIBA MK2555GSX;6=X1;10=256061"), std::string::npos);

    MacInfo::setSysProf(nullptr);
    bool got = true;
    scan<StorageGroup>(&got);
    EXPECT_FALSE(got);
}

TEST_F(SystemGroups, Regional) {
    const struct {
        long gmtoff;
        int daylight;
        const char *std, *dst, *row;
    } cases[] = {
        {3600, 1, "CET", "CEST", "1=de_DE.UTF-8;2=3600;3=1;4=1;5=CET;6=CEST"},
        {-18000, 1, "EST", "EDT", "1=de_DE.UTF-8;2=18000;3=2;4=1;5=EST;6=EDT"},
        {7200, 1, "CET", "CEST", "1=de_DE.UTF-8;2=7200;3=1;4=1;5=CET;6=CEST"},
        {0, 0, "UTC", "UTC", "1=de_DE.UTF-8;2=0;3=1;4=2;5=UTC;6=UTC"},
        {19800, 0, "IST", "IST", "1=de_DE.UTF-8;2=19800;3=1;4=2;5=IST;6=IST"},
    };
    fake.locales[LC_CTYPE] = "de_DE.UTF-8";
    fake.haveZone = true;
    for (const auto& c : cases) {
        fake.zone.gmtoff = c.gmtoff;
        fake.zone.daylight = c.daylight;
        host::copyField(fake.zone.stdName, sizeof fake.zone.stdName, c.std);
        host::copyField(fake.zone.dstName, sizeof fake.zone.dstName, c.dst);
        EXPECT_EQ(scan<RegionalGroup>(), std::vector<std::string>{c.row});
    }
    fake.locales.clear();
    fake.haveZone = false;
    EXPECT_EQ(scan<RegionalGroup>(), std::vector<std::string>{"1=;2=0;3=1;4=2;5=;6="});
}

TEST_F(SystemGroups, ComponentId) {
    const char* overview = "(SystemProfiler\n(SPHardwareDataType\n(hardware_overview\n"
                           "machine_model:s=Macmini3,1\nSMC_version_system:s=1.35f1\n"
                           "serial_number:s=YM008ASN9G5\nplatform_UUID:s=402127FE\n)\n)\n)\n";
    const struct {
        const char* dump;
        bool table;
        const char* row;
    } cases[] = {
        {overview, true, "1=Apple;2=Macmini3,1;3=1.35f1;4=YM008ASN9G5;9=402127FE"},
        {"(SystemProfiler\n)\n", true, "1=Apple;2=;3=;4=;9="},
        {nullptr, false, nullptr},
    };
    fake.sysname = "Darwin";
    for (const auto& c : cases) {
        MacInfo::setSysProf(snapshot(c.dump));
        bool got = false;
        std::vector<std::string> rows = scan<ComponentIDGroup>(&got);
        EXPECT_EQ(got, c.table);
        if (c.row) {
            EXPECT_EQ(rows, std::vector<std::string>{c.row});
        }
    }
    std::string trace = traced([this] { scan<ComponentIDGroup>(); });
    EXPECT_NE(trace.find("getTableForVM(): hardware ComponentIDGroup"), std::string::npos);

    // Linux: the firmware's DMI fields; serial and UUID absent without root.
    fake.sysname = "Linux";
    fake.files["/sys/class/dmi/id/sys_vendor"] = "LENOVO\n";
    fake.files["/sys/class/dmi/id/product_name"] = "20HRCTO1WW\n";
    fake.files["/sys/class/dmi/id/product_version"] = "ThinkPad X1 Carbon 5th\n";
    MacInfo::setSysProf(nullptr);
    EXPECT_EQ(scan<ComponentIDGroup>(),
              std::vector<std::string>{"1=LENOVO;2=20HRCTO1WW;3=ThinkPad X1 Carbon 5th;4=;9="});
}
