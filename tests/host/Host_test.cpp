// The host layer: record a fake machine into a bundle, replay it, and make sure a
// broken or hostile bundle can only make answers fail, never reach outside.
#include "invscan/host.h"
#include "common/host/host_internal.h"

#include "../common/group_fixture.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <set>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string tempDir() {
    char tmpl[] = "/tmp/invscan-host-XXXXXX";
    const char* d = mkdtemp(tmpl);
    return d ? d : "";
}

void writeText(const std::string& path, const std::string& text) {
    std::ofstream f(path.c_str(), std::ios::binary);
    f << text;
}

std::string readStream(std::FILE* f) {
    std::string s;
    char buf[256];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0)
        s.append(buf, n);
    return s;
}

// A machine with fixed answers, standing in for the live backend; commands it does
// not answer run for real, so the test asks none of those.
void fixedAnswers(testhost::FakeHost& m) {
    m.setQuad("hw.memsize", 17179869184LL);
    m.setQuad("hw.pagesize", 4096);
    m.setText("machdep.cpu.brand_string", "Intel(R) Core(TM)2 Duo CPU     P7550  @ 2.26GHz");
    m.setSwap(1073741824ull, 268435456ull); // answers CTL_VM.VM_SWAPUSAGE
    m.setInt("6.5", -1073741824);           // CTL_HW.HW_PHYSMEM
    m.pageSize = 4096;
    m.haveVm = true;
    m.vmStats.free_count = 1000;
    m.vmStats.active_count = 2000;
    m.vmStats.inactive_count = 3000;
    m.vmStats.wire_count = 4000;
    m.vmStats.speculative_count = 15;
    m.mountList.assign(2, host::Statfs{});
    host::Statfs& root = m.mountList[0];
    host::copyField(root.f_fstypename, sizeof root.f_fstypename, "hfs");
    host::copyField(root.f_mntfromname, host::PATH_LEN, "/dev/disk0s2");
    host::copyField(root.f_mntonname, host::PATH_LEN, "/");
    root.f_bsize = 4096;
    root.f_blocks = 1000000;
    root.f_bavail = 250000;
    host::Statfs& smb = m.mountList[1];
    host::copyField(smb.f_fstypename, sizeof smb.f_fstypename, "smbfs");
    host::copyField(smb.f_mntfromname, host::PATH_LEN, "//me@fileserver/public share\t1");
    host::copyField(smb.f_mntonname, host::PATH_LEN, "/Volumes/public share");
    m.sysname = "Darwin";
    m.machine = "i386";
    m.files["/etc/resolv.conf"] = "nameserver 8.8.8.8\nsearch lan\n";
    m.commands["ifconfig -a 2>/dev/null"] =
        "lo0: flags=8049<UP,LOOPBACK,RUNNING,MULTICAST> mtu 16384\n\tinet 127.0.0.1\n";
    m.commandStatus = 256; // exit status 1
    m.names["10.0.1.1"] = "router.lan";
    m.locales[LC_CTYPE] = "fr_FR.UTF-8";
    m.haveZone = true;
    m.zone.gmtoff = 3600;
    m.zone.daylight = 1;
    std::strcpy(m.zone.stdName, "CET");
    std::strcpy(m.zone.dstName, "CEST");
}

// Asks every question of the layer and writes the answers down, so that the same
// questions can be put to the recorder and to the replay of its bundle.
std::string interrogate() {
    std::string out;
    auto add = [&out](const std::string& s) { out += s + "\n"; };
    std::int64_t mem = 0;
    std::size_t len = sizeof mem;
    int r = host::sysctlbyname("hw.memsize", &mem, &len);
    add("memsize " + std::to_string(r) + " " + std::to_string(mem) + " " + std::to_string(len));
    std::int32_t page = 0;
    len = sizeof page; // a 64-bit value that fits may be read into 4 bytes
    r = host::sysctlbyname("hw.pagesize", &page, &len);
    add("pagesize " + std::to_string(r) + " " + std::to_string(page) + " " + std::to_string(len));
    len = 0;
    r = host::sysctlbyname("machdep.cpu.brand_string", nullptr, &len);
    std::string brand(len, '\0');
    r += host::sysctlbyname("machdep.cpu.brand_string", &brand[0], &len);
    add("brand " + std::to_string(r) + " " + brand.c_str());
    len = sizeof page;
    r = host::sysctlbyname("hw.nosuch", &page, &len);
    int e = errno;
    add("missing " + std::to_string(r) + " " + std::to_string(e));
    int mib[2] = {CTL_VM, VM_SWAPUSAGE};
    host::XswUsage sw;
    std::memset(&sw, 0, sizeof sw);
    len = sizeof sw;
    r = host::sysctl(mib, 2, &sw, &len);
    add("swap " + std::to_string(r) + " " + std::to_string(sw.xsu_total) + " " +
        std::to_string(sw.xsu_used) + " " + std::to_string(len));
    int phys[2] = {CTL_HW, HW_PHYSMEM};
    std::int32_t pm = 0;
    len = sizeof pm;
    r = host::sysctl(phys, 2, &pm, &len);
    add("physmem " + std::to_string(r) + " " + std::to_string(pm));
    std::size_t ps = 0;
    r = host::hostPageSize(&ps);
    add("hostpage " + std::to_string(r) + " " + std::to_string(ps));
    host::VmStatistics vm;
    std::memset(&vm, 0, sizeof vm);
    unsigned count = HOST_VM_INFO_COUNT;
    r = host::hostStatistics(HOST_VM_INFO, &vm, &count);
    add("vm " + std::to_string(r) + " " + std::to_string(vm.free_count) + " " +
        std::to_string(vm.wire_count) + " " + std::to_string(vm.speculative_count));
    host::Statfs* mnt = nullptr;
    int n = host::getmntinfo(&mnt, MNT_NOWAIT);
    add("mounts " + std::to_string(n));
    for (int i = 0; i < n; ++i)
        add(std::string(mnt[i].f_fstypename) + "|" + mnt[i].f_mntfromname + "|" +
            mnt[i].f_mntonname + "|" + std::to_string(mnt[i].f_bsize) + "|" +
            std::to_string(mnt[i].f_blocks) + "|" + std::to_string(mnt[i].f_bavail));
    host::Utsname u;
    std::memset(&u, 0, sizeof u);
    r = host::uname(&u);
    add("uname " + std::to_string(r) + " " + u.machine + " " + u.version);
    std::FILE* f = host::fopen("/etc/resolv.conf", "r");
    add("resolv " + (f ? readStream(f) : std::string("none")));
    if (f) std::fclose(f);
    f = host::fopen("/var/log/OSInstall.custom", "r");
    add(std::string("install ") + (f ? "open" : "none"));
    if (f) std::fclose(f);
    std::FILE* p = host::popen("ifconfig -a 2>/dev/null", "r");
    add("ifconfig " + (p ? readStream(p) : std::string("none")));
    if (p) add("status " + std::to_string(host::pclose(p)));
    struct in_addr a;
    inet_pton(AF_INET, "10.0.1.1", &a);
    struct hostent* h = host::gethostbyaddr(&a, 4, AF_INET);
    add(std::string("lookup ") + (h ? h->h_name : "none"));
    inet_pton(AF_INET, "10.0.1.2", &a);
    add(std::string("lookup2 ") + (host::gethostbyaddr(&a, 4, AF_INET) ? "found" : "none"));
    const char* loc = host::setlocale(LC_CTYPE, "");
    add(std::string("locale ") + (loc ? loc : "null"));
    std::setlocale(LC_CTYPE, "C");
    host::tzset();
    host::TimeZoneInfo tz;
    r = host::timeZone(&tz);
    add("tz " + std::to_string(r) + " " + std::to_string(tz.gmtoff) + " " +
        std::to_string(tz.daylight) + " " + tz.stdName + " " + tz.dstName);
    return out;
}

class HostBundle : public ::testing::Test {
protected:
    void SetUp() override {
        dir = tempDir();
        ASSERT_FALSE(dir.empty());
    }
    void TearDown() override {
        host::useBackend(nullptr);
        host::useLive();
        std::string cmd = "rm -rf '" + dir + "'";
        ASSERT_EQ(0, std::system(cmd.c_str()));
    }
    std::string dir;
};

TEST_F(HostBundle, ReplayAnswersAsTheRecordedMachineDid) {
    testhost::FakeHost fake;
    fixedAnswers(fake);
    host::useBackend(&fake);
    std::string live = interrogate();

    std::unique_ptr<host::Backend> rec(host::newRecordBackend(&fake, dir.c_str()));
    ASSERT_TRUE(rec);
    host::useBackend(rec.get());
    EXPECT_EQ(live, interrogate());
    ASSERT_TRUE(rec->saveHelperOutput("sysprof", "1.0 0\n(SystemProfiler\n)\n"));

    std::unique_ptr<host::Backend> rep(host::newReplayBackend(dir.c_str()));
    ASSERT_TRUE(rep);
    host::useBackend(rep.get());
    EXPECT_EQ(live, interrogate());
    std::string out;
    EXPECT_TRUE(rep->helperOutput("sysprof", &out));
    EXPECT_EQ("1.0 0\n(SystemProfiler\n)\n", out);
    EXPECT_FALSE(rep->helperOutput("iokit", &out));

    // The bundle is plain text: one line per answer, values readable.
    std::string sysctl;
    int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_TRUE(host::bundle::readFile(fd, nullptr, "sysctl.txt", &sysctl));
    ::close(fd);
    EXPECT_NE(std::string::npos, sysctl.find("hw.memsize\tq\t17179869184\n"));
    EXPECT_NE(
        std::string::npos,
        sysctl.find(
            "machdep.cpu.brand_string\ts\tIntel(R) Core(TM)2 Duo CPU     P7550  @ 2.26GHz\n"));
}

TEST_F(HostBundle, EmptyBundleFailsLikeTheLiveCalls) {
    std::unique_ptr<host::Backend> rep(host::newReplayBackend(dir.c_str()));
    ASSERT_TRUE(rep);
    host::useBackend(rep.get());
    std::string answers = interrogate();
    answers = "\n" + answers;
    for (const char* line :
         {"memsize -1", "brand -2", "swap -1", "hostpage 5", "vm 5", "mounts 0", "uname -1",
          "resolv none", "install none", "ifconfig none", "lookup none", "locale null", "tz -1"})
        EXPECT_NE(std::string::npos, answers.find(std::string("\n") + line)) << line << answers;
}

TEST_F(HostBundle, HostileBundleCannotReachOutside) {
    // Symbolic links out of the bundle, names that climb, garbage in every table.
    ASSERT_EQ(0, symlink("/etc", (dir + "/files").c_str()));
    ASSERT_EQ(0, mkdir((dir + "/commands").c_str(), 0755));
    ASSERT_EQ(
        0, symlink("/etc/passwd", (dir + "/commands/" + host::bundle::safeName("cat x")).c_str()));
    ASSERT_EQ(0, mkdir((dir + "/helpers").c_str(), 0755));
    ASSERT_EQ(0, mkdir((dir + "/helpers/sysprof").c_str(), 0755)); // a directory, not a file
    writeText(dir + "/commands.txt", "../../etc/passwd\t0\t../../etc/passwd\ncat x\t0\n");
    writeText(dir + "/sysctl.txt",
              "hw.memsize\tq\tnot-a-number\nhw.ncpu\tz\t4\nvm.swapusage\tx\t0g\n"
              "hw.pagesize\ti\n\t\t\t\n" +
                  std::string(100000, 'x') + "\n");
    writeText(dir + "/mounts.txt", "hfs\t/dev/disk0\n" + std::string(3000, '\t') + "\n");
    writeText(dir + "/uname.txt", "sysname\t" + std::string(5000, 'A') + "\n");
    ASSERT_EQ(0, symlink("/etc/hostname", (dir + "/locale.txt").c_str()));

    std::unique_ptr<host::Backend> rep(host::newReplayBackend(dir.c_str()));
    ASSERT_TRUE(rep);
    host::useBackend(rep.get());
    EXPECT_EQ(nullptr, host::fopen("/etc/passwd", "r"));
    EXPECT_EQ(nullptr, host::fopen("../../etc/passwd", "r"));
    EXPECT_EQ(nullptr, host::popen("cat x", "r"));
    EXPECT_EQ(nullptr, host::popen("../../etc/passwd", "r"));
    std::string out;
    EXPECT_FALSE(rep->helperOutput("sysprof", &out));
    EXPECT_FALSE(rep->helperOutput("../sysprof", &out));
    std::int64_t v = 0;
    std::size_t len = sizeof v;
    EXPECT_EQ(-1, host::sysctlbyname("hw.memsize", &v, &len));
    EXPECT_EQ(-1, host::sysctlbyname("hw.ncpu", &v, &len));
    EXPECT_EQ(-1, host::sysctlbyname("hw.pagesize", &v, &len));
    int mib[2] = {CTL_VM, VM_SWAPUSAGE};
    EXPECT_EQ(-1, host::sysctl(mib, 2, &v, &len));
    host::Statfs* m = nullptr;
    EXPECT_LE(host::getmntinfo(&m, MNT_NOWAIT), 1); // short lines are passed over
    host::Utsname u;
    ASSERT_EQ(0, host::uname(&u));
    EXPECT_EQ(host::SYS_NAMELEN - 1, std::strlen(u.sysname)); // cut to the field
    EXPECT_EQ(nullptr, host::setlocale(LC_CTYPE, ""));
    // Writes refuse the same way: the recorder will not follow a planted link.
    std::unique_ptr<host::Backend> rec(host::newRecordBackend(host::liveBackend(), dir.c_str()));
    ASSERT_TRUE(rec);
    EXPECT_FALSE(rec->saveHelperOutput("sysprof", "x"));
}

TEST(HostBundleText, EscapingRoundTripsAndNamesStaySafe) {
    const std::string samples[] = {"",
                                   "plain",
                                   "tab\there",
                                   "line\nbreak\r",
                                   "back\\slash",
                                   std::string("nul\0x", 5),
                                   "\x7f\x01",
                                   "caf\xc3\xa9",
                                   "\\x4g"};
    for (const auto& s : samples) {
        std::string e = host::bundle::escape(s);
        EXPECT_EQ(std::string::npos, e.find_first_of("\t\n\r")) << s;
        EXPECT_EQ(s, host::bundle::unescape(e)) << s;
    }
    const std::string keys[] = {"ifconfig -a 2>/dev/null",
                                "ifconfig_-a_2>/dev/null",
                                "/etc/resolv.conf",
                                "..",
                                ".",
                                "",
                                "a/../../b",
                                std::string(400, 'x'),
                                std::string(400, 'x') + "y",
                                "%2F"};
    std::set<std::string> seen;
    for (const auto& k : keys) {
        std::string n = host::bundle::safeName(k);
        EXPECT_TRUE(host::bundle::isSafeComponent(n)) << k << " -> " << n;
        EXPECT_EQ(std::string::npos, n.find('/'));
        EXPECT_LE(n.size(), 180u);
        EXPECT_TRUE(seen.insert(n).second) << "collision for " << k;
    }
    EXPECT_EQ("ifconfig%20-a%202%3E%2Fdev%2Fnull",
              host::bundle::safeName("ifconfig -a 2>/dev/null"));
}

TEST(HostSysctl, AnswersFollowTheDarwinSizeRules) {
    struct Case {
        host::SysctlValue v;
        std::size_t buf; // 0 = size query
        int rc;
        std::size_t len;
    } cases[] = {
        {host::SysctlValue::i64(4096), 0, 0, 8},
        {host::SysctlValue::i64(4096), 8, 0, 8},
        {host::SysctlValue::i64(4096), 4, 0, 4},           // fits: 4 bytes allowed
        {host::SysctlValue::i64(17179869184LL), 4, -1, 4}, // does not fit
        {host::SysctlValue::i32(7), 8, 0, 4},
        {host::SysctlValue::i32(7), 2, -1, 2},
        {host::SysctlValue::str("abc"), 0, 0, 4},
        {host::SysctlValue::str("abc"), 2, -1, 2},
        {host::SysctlValue::raw("\x01\x02\x03", 3), 16, 0, 3},
    };
    for (const auto& c : cases) {
        unsigned char buf[16] = {0};
        std::size_t len = c.buf;
        int rc = host::answerSysctl(c.v, c.buf ? buf : nullptr, &len);
        EXPECT_EQ(c.rc, rc) << c.v.type << c.buf;
        EXPECT_EQ(c.len, len) << c.v.type << c.buf;
    }
}

TEST(HostSelection, ReplayAndRecordFollowTheEnvironment) {
    std::string dir = tempDir();
    ASSERT_TRUE(host::useRecord((dir + "/rec").c_str()));
    EXPECT_STREQ("record", host::mode());
    EXPECT_STREQ((dir + "/rec").c_str(), std::getenv("INVSCAN_RECORD"));
    ASSERT_TRUE(host::useReplay((dir + "/rec").c_str()));
    EXPECT_STREQ("replay", host::mode());
    EXPECT_EQ(nullptr, std::getenv("INVSCAN_RECORD"));
    EXPECT_FALSE(host::useReplay((dir + "/nosuch").c_str()));
    EXPECT_STREQ("replay", host::mode()); // unchanged by the failure
    host::useLive();
    EXPECT_STREQ("live", host::mode());
    EXPECT_EQ(nullptr, std::getenv("INVSCAN_REPLAY"));
    ASSERT_EQ(0, std::system(("rm -rf '" + dir + "'").c_str()));
}

#ifdef __linux__
TEST(HostLinux, LiveAnswersAreConsistent) {
    host::useLive();
    std::int64_t mem = 0;
    std::size_t len = sizeof mem;
    ASSERT_EQ(0, host::sysctlbyname("hw.memsize", &mem, &len));
    EXPECT_GT(mem, 0);
    std::int32_t page = 0;
    len = sizeof page;
    ASSERT_EQ(0, host::sysctlbyname("hw.pagesize", &page, &len));
    EXPECT_EQ(sysconf(_SC_PAGESIZE), page);
    std::int32_t logical = 0;
    len = sizeof logical;
    ASSERT_EQ(0, host::sysctlbyname("hw.logicalcpu_max", &logical, &len));
    EXPECT_GE(logical, 1);
    host::Statfs* m = nullptr;
    int n = host::getmntinfo(&m, MNT_NOWAIT);
    ASSERT_GT(n, 0);
    bool root = false;
    for (int i = 0; i < n; ++i) {
        root = root || m[i].f_mntonname == "/";
        EXPECT_STRNE("proc", m[i].f_fstypename); // pseudo file systems pass as devfs
    }
    EXPECT_TRUE(root);
}
#endif

} // namespace
