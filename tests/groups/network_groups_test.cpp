// The network adapter, IP address and partition groups over snapshots and mount
// tables the test sets, and the bounds that keep a dead server or resolver from
// holding up a scan.
#include <gtest/gtest.h>

#include "../common/run_command.h"

#include "../common/group_fixture.h"

#include "invscan/IpAddressGroup.h"
#include "invscan/KorCfg.h"
#include "invscan/NetworkAdapterGroup.h"
#include "invscan/PartitionGroup.h"
#include "invscan/md5.h"

#include <arpa/inet.h>
#include <chrono>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using testhost::snapshot;

namespace {

using testrun::openDescriptors;

class NetworkGroups : public ::testing::Test, public testhost::HostGroupTest {
protected:
    void SetUp() override { install(); }
    void TearDown() override { uninstall(); }
};

const char* const kServices =
    "(SystemProfiler\n(SPNetworkDataType\n"
    "(Ethernet\ntype:s=Ethernet\nhardware:s=Ethernet\ninterface:s=en0\n"
    "(IPv4\nConfigMethod:s=Automatic\nRouter:s=10.0.1.1\n(Addresses\nsize:i=2\nAddresses:s=10.0.1."
    "101\n"
    "Addresses:s=10.0.1.102\n)\n(SubnetMasks\nsize:i=1\nSubnetMasks:s=255.255.255.0\n)\n)\n"
    "(IPv6\nConfigMethod:s=Automatic\nRouter:s=fe80::1\n)\n"
    "(DNS\n(ServerAddresses\nsize:i=3\nServerAddresses:s=10.0.1.1\nServerAddresses:s=10.0.1.2\n"
    "ServerAddresses:s=10.0.1.3\n)\n(SearchDomains\nsize:i=1\nSearchDomains:s=lan\n)\n)\n"
    "(Ethernet\nMAC Address:s=00:1e:c2:0c:36:27\nMediaSubType:s=100baseTX\n)\n)\n"
    "(AirPort\ntype:s=AirPort\nhardware:s=AirPort\ninterface:s=en1\n"
    "(IPv4\nConfigMethod:s=Manual\n(Addresses\nsize:i=1\nAddresses:s=192.168.5.9\nAddresses:i=7\n)"
    "\n)\n"
    "(IPv6\nConfigMethod:s=Automatic\n)\n)\n"
    "(Bluetooth\ntype:s=PPP (PPPSerial)\nhardware:s=Modem\ninterface:s=Bluetooth-Modem\n)\n"
    "(VPN\ntype:s=ppp\n)\n"
    "(Thunderbolt\ntype:s=ethernet\nhardware:s=Thunderbolt\ninterface:s=en2\n)\n"
    ")\n)\n";

std::string md5(const std::string& s) {
    char* d = md5_checksum(s.c_str());
    std::string r = d;
    std::free(d);
    return r;
}

host::Statfs mount(const char* type, const char* from, const char* on, unsigned bsize,
                   unsigned long long blocks, unsigned long long avail) {
    host::Statfs s{};
    host::copyField(s.f_fstypename, sizeof s.f_fstypename, type);
    host::copyField(s.f_mntfromname, host::PATH_LEN, from);
    host::copyField(s.f_mntonname, host::PATH_LEN, on);
    s.f_bsize = bsize;
    s.f_blocks = blocks;
    s.f_bavail = avail;
    return s;
}

} // namespace

TEST_F(NetworkGroups, Adapters) {
    MacInfo::setSysProf(snapshot(kServices));
    const std::vector<std::string> want = {
        "1=1;2=" + md5("Ethernet-en0") +
            ";3=00:1e:c2:0c:36:27;4=00:1e:c2:0c:36:27;5=3;6=Ethernet-en0;9=100baseTX;10=ethernet;"
            "11=",
        "1=2;2=" + md5("AirPort-en1") + ";3=;4=;5=1;6=AirPort-en1;9=;10=ethernet;11=",
        "1=3;2=" + md5("Modem-Bluetooth-Modem") +
            ";3=;4=;5=10;6=Modem-Bluetooth-Modem;9=;10=ethernet;11=",
        "1=4;2=" + md5("-") + ";3=;4=;5=1;6=-;9=;10=ethernet;11=",
        "1=5;2=" + md5("Thunderbolt-en2") + ";3=;4=;5=3;6=Thunderbolt-en2;9=;10=ethernet;11=",
    };
    EXPECT_EQ(scan<NetworkAdapterGroup>(), want);
    MacInfo::setSysProf(nullptr);
    bool got = true;
    scan<NetworkAdapterGroup>(&got);
    EXPECT_FALSE(got);
    MacInfo::setSysProf(snapshot("(SystemProfiler\n)\n"));
    EXPECT_TRUE(scan<NetworkAdapterGroup>(&got).empty());
    EXPECT_TRUE(got);
}

TEST_F(NetworkGroups, Ipv4Addresses) {
    MacInfo::setSysProf(snapshot(kServices));
    fake.names["10.0.1.101"] = "imac.home.example.org";
    fake.names["192.168.5.9"] = "laptop";
    EXPECT_EQ(
        scan<IpAddressGroup>(),
        (std::vector<std::string>{
            "1=1;2=10.0.1.101;3=imac;4=home.example.org;5=255.255.255.0;6=10.0.1.1;7=10.0.1.1;"
            "8=10.0.1.2;9=Y;10=00:1e:c2:0c:36:27",
            // No answer, and no fallback: the server list begins with its size.
            "1=2;2=10.0.1.102;3=;4=;5=255.255.255.0;6=10.0.1.1;7=10.0.1.1;8=10.0.1.2;9=Y;"
            "10=00:1e:c2:0c:36:27",
            "1=3;2=192.168.5.9;3=laptop;4=;5=;6=;7=;8=;9=N;10="}));
}

TEST_F(NetworkGroups, Ipv6AddressesJoinDiscoveryByInterface) {
    MacInfo::setSysProf(snapshot(kServices));
    fake.commands["ifconfig -a 2>/dev/null"] = "";
    fake.commands["/sbin/ifconfig -a 2>/dev/null"] =
        "en0: flags=8863 mtu 1500\n\tinet6 fe80::21e:c2ff:fe0c:3627%en0 prefixlen 64 scopeid 0x4\n"
        "\tinet6 2001:db8::5 prefixlen 64 autoconf\n"; // en1 is not listed
    fake.names["2001:db8::5"] = "imac";
    EXPECT_EQ(scan<Ipv6AddressGroup>(),
              (std::vector<std::string>{
                  "1=1;2=fe80::21e:c2ff:fe0c:3627;3=;4=;5=64;6=fe80::1;7=10.0.1.1;8=10.0.1.2;"
                  "9=00:1e:c2:0c:36:27;10=link;11=en0",
                  "1=2;2=2001:db8::5;3=imac;4=;5=64;6=fe80::1;7=10.0.1.1;8=10.0.1.2;"
                  "9=00:1e:c2:0c:36:27;10=global;11=en0"}));
}

// The fallback domain is the first value of the server list when that is a text,
// and only when the service has search domains.
TEST_F(NetworkGroups, FallbackDomain) {
    const struct {
        const char* dns;
        const char* domain;
    } cases[] = {
        {"(DNS\n(ServerAddresses\nServerAddresses:s=10.0.0.53\n)\n(SearchDomains\nSearchDomains:s="
         "lan\n)\n)\n",
         "10.0.0.53"},
        {"(DNS\n(ServerAddresses\nsize:i=1\nServerAddresses:s=10.0.0.53\n)\n(SearchDomains\n)\n)\n",
         ""},
        {"(DNS\n(ServerAddresses\nServerAddresses:s=10.0.0.53\n)\n)\n", ""},
        {"(DNS\n(SearchDomains\nSearchDomains:s=lan\n)\n)\n", ""},
    };
    int n = 0;
    for (const auto& c : cases) {
        std::string addr = "10.66.0." + std::to_string(n++);
        std::string dump =
            "(SystemProfiler\n(SPNetworkDataType\n(A\n(IPv4\n(Addresses\nAddresses:s=" + addr +
            "\n)\n)\n" + c.dns + ")\n)\n)\n";
        MacInfo::setSysProf(snapshot(dump.c_str()));
        std::vector<std::string> rows = scan<IpAddressGroup>();
        ASSERT_EQ(rows.size(), 1u) << c.dns;
        EXPECT_NE(rows[0].find(";3=;4=" + std::string(c.domain) + ";5="), std::string::npos)
            << rows[0];
    }
}

// An address is asked once, however many groups and rows name it.
TEST_F(NetworkGroups, LookupsAreAskedOncePerAddress) {
    MacInfo::setSysProf(snapshot("(SystemProfiler\n(SPNetworkDataType\n(A\n(IPv4\n("
                                 "Addresses\nAddresses:s=10.9.8.7\n)\n)\n)\n"
                                 "(B\n(IPv4\n(Addresses\nAddresses:s=10.9.8.7\n)\n)\n)\n)\n)\n"));
    scan<IpAddressGroup>();
    scan<IpAddressGroup>();
    EXPECT_EQ(std::count(fake.lookups.begin(), fake.lookups.end(), "10.9.8.7"), 1);
}

TEST_F(NetworkGroups, MacPartitions) {
    fake.sysname = "Darwin";
    fake.mountList = {
        mount("hfs", "/dev/disk0s2", "/", 4096, 1000000, 250000),
        mount("devfs", "devfs", "/dev", 512, 667, 0),
        mount("autofs", "map -hosts", "/net", 512, 0, 0),
        mount("nfs", "automount -nsl [141]", "/Network", 512, 0, 0),
        mount("NFS", "server:/export/home", "/Volumes/home", 1024, 100, 50),
        mount("nfs", "exports", "/Volumes/x", 1024, 0, 0),
        mount("nfs", "ftp://ftp.example.org/pub", "/Volumes/ftp", 1024, 0, 0),
        mount("smbfs", "//joe@fileserver/public", "/Volumes/public", 512, 2048, 1024),
        mount("smbfs", "//nas/media", "/Volumes/media", 512, 0, 0),
        mount("udf", "/dev/disk2", "/Volumes/DVD", 2048, 100, 0),
        mount("cd9660", "/dev/disk3", "/Volumes/CD", 2048, 100, 0),
        mount("msdos", "/dev/disk4s1", "/Volumes/USB", 512, 0, 0),
        mount("apfs", "/dev/disk1s1", "/System", 4096, 8, 8),
    };
    const std::vector<std::string> rows = scan<PartitionGroup>();
    const std::vector<std::string> want = {
        "1=1;2=1;3=3;4=/dev/disk0s2;5=4000000;6=256;7=/dev/disk0s2;8=/"
        ";9=4000000;10=1000000;11=;12=",
        "1=2;2=2;3=4;4=server:/export/home;5=100;6=260;7=server:/export/home;8=/Volumes/"
        "home;9=100;10=50;"
        "11=server;12=/export/home",
        "1=3;2=2;3=4;4=exports;5=0;6=260;7=exports;8=/Volumes/x;9=0;10=0;11=localhost;12=exports",
        "1=4;2=2;3=4;4=ftp://ftp.example.org/pub;5=0;6=260;7=ftp://ftp.example.org/pub;8=/Volumes/"
        "ftp;9=0;"
        "10=0;11=ftp.example.org/pub;12=/",
        "1=5;2=2;3=4;4=//joe@fileserver/public;5=1024;6=282;7=//joe@fileserver/public;8=/Volumes/"
        "public;"
        "9=1024;10=512;11=fileserver;12=/public",
        "1=6;2=2;3=4;4=//nas/media;5=0;6=282;7=//nas/media;8=/Volumes/media;9=0;10=0;11=nas;12=/"
        "media",
        "1=7;2=1;3=3;4=/dev/disk2;5=200;6=264;7=/dev/disk2;8=/Volumes/DVD;9=200;10=0;11=;12=",
        "1=8;2=1;3=5;4=/dev/disk3;5=200;6=264;7=/dev/disk3;8=/Volumes/CD;9=200;10=0;11=;12=",
        "1=9;2=1;3=3;4=/dev/disk4s1;5=0;6=14;7=/dev/disk4s1;8=/Volumes/USB;9=0;10=0;11=;12=",
        "1=10;2=1;3=3;4=/dev/disk1s1;5=32;6=65535;7=/dev/disk1s1;8=/System;9=32;10=32;11=;12=",
    };
    EXPECT_EQ(rows, want);

    const struct {
        const wchar_t* value;
        size_t rows;
    } skips[] = {{L" Yes ", 5}, {L"ON", 5}, {L"true", 5}, {L"false", 10}, {L"1", 10}};
    for (const auto& s : skips) {
        ZelAttrList attrs = {{String(L"skipRemote"), String(s.value)}};
        PartitionGroup group;
        group.setGroupAttrs(&attrs);
        ZelTable* t = group.getTable();
        EXPECT_EQ(testhost::rowsOf(t).size(), s.rows);
        delete t;
    }
    fake.mountList.clear();
    bool got = true;
    scan<PartitionGroup>(&got);
    EXPECT_FALSE(got);
}

// Linux: what df lists, with disk file systems as "Linux native".
TEST_F(NetworkGroups, LinuxPartitions) {
    fake.sysname = "Linux";
    fake.mountList = {
        mount("devfs", "proc", "/proc", 0, 0, 0),
        mount("devtmpfs", "devtmpfs", "/dev", 4096, 3083608, 3083608),
        mount("tmpfs", "tmpfs", "/dev/shm", 4096, 100, 100),
        mount("ext4", "/dev/vda", "/", 4096, 1000, 500),
        mount("tmpfs", "tmpfs", "/dev/shm", 4096, 200, 200), // mounted over: listed once, in place
        mount("tmpfs", "none", "/empty", 4096, 0, 0),
        mount("nfs4", "filer:/vol/home", "/home", 0, 0,
              0), // no answer in time: sizes 0, still listed
        mount("cifs", "//server/share", "/mnt/share", 1024, 10, 5),
        mount("xfs", "/dev/sdb1", "/data", 4096, 256, 256),
        mount("ext4", "/dev/vda", "/run/netns", 4096, 1000, 500), // a bind mount: listed once
    };
    EXPECT_EQ(
        scan<PartitionGroup>(),
        (std::vector<std::string>{
            "1=1;2=1;3=3;4=devtmpfs;5=12334432;6=65535;7=devtmpfs;8=/"
            "dev;9=12334432;10=12334432;11=;12=",
            "1=2;2=1;3=3;4=tmpfs;5=800;6=65535;7=tmpfs;8=/dev/shm;9=800;10=800;11=;12=",
            "1=3;2=1;3=3;4=/dev/vda;5=4000;6=131;7=/dev/vda;8=/;9=4000;10=2000;11=;12=",
            "1=4;2=2;3=4;4=filer:/vol/home;5=0;6=260;7=filer:/vol/home;8=/home;9=0;10=0;11=filer;"
            "12=/vol/home",
            "1=5;2=2;3=4;4=//server/share;5=10;6=282;7=//server/share;8=/mnt/share;9=10;10=5;"
            "11=server;12=/share",
            "1=6;2=1;3=3;4=/dev/sdb1;5=1024;6=131;7=/dev/sdb1;8=/data;9=1024;10=1024;11=;12="}));
    // The mount's own type goes with each row, for a row of that mount point only.
    const char* const own[][2] = {{"/dev", "devtmpfs"}, {"/dev/shm", "tmpfs"},  {"/", "ext4"},
                                  {"/home", "nfs4"},    {"/mnt/share", "cifs"}, {"/data", "xfs"}};
    for (unsigned long i = 0; i < 6; ++i)
        EXPECT_EQ(partitionFsName(i + 1, own[i][0]), own[i][1]) << own[i][0];
    EXPECT_EQ(partitionFsName(2, "/"), "");
    EXPECT_EQ(partitionFsName(7, "/data"), "");
    fake.sysname = "Darwin";
    fake.mountList = {mount("hfs", "/dev/disk0s2", "/", 4096, 10, 5)};
    scan<PartitionGroup>();
    EXPECT_EQ(partitionFsName(1, "/"), "") << "a Mac table keeps no Linux type";
}

// Loopback and link-local addresses are never asked for; the configuration key
// turns every lookup off, the prefetching ones too.
TEST_F(NetworkGroups, LookupsSkippedOrSwitchedOff) {
    MacInfo::setSysProf(
        snapshot("(SystemProfiler\n(SPNetworkDataType\n(A\ninterface:s=en0\n(IPv4\n(Addresses\n"
                 "Addresses:s=127.0.0.1\nAddresses:s=169.254.3.4\nAddresses:s=10.9.8.6\n)\n)\n"
                 "(IPv6\n)\n)\n)\n)\n"));
    fake.commands["ifconfig -a 2>/dev/null"] = "";
    fake.commands["/sbin/ifconfig -a 2>/dev/null"] =
        "en0: flags=8863 mtu 1500\n\tinet6 ::1 prefixlen 128\n\tinet6 fe80::1%en0 prefixlen 64\n"
        "\tinet6 febf::1 prefixlen 64\n\tinet6 fec0::1 prefixlen 64\n\tinet6 2001:db8::6 prefixlen "
        "64\n";
    // Switched off first: an answer is kept for a minute, and would hide a lookup.
    const struct {
        const char* key; // hwscanner.reverse_lookup, null for none
        std::vector<std::string> asked;
    } cases[] = {{"off", {}}, {" OFF ", {}}, {nullptr, {"10.9.8.6", "2001:db8::6", "fec0::1"}}};
    for (const auto& c : cases) {
        if (c.key) KorCfg::setKey(String("hwscanner.reverse_lookup"), String(c.key));
        fake.lookups.clear();
        scan<IpAddressGroup>();
        scan<Ipv6AddressGroup>();
        std::vector<std::string> asked = fake.lookups;
        std::sort(asked.begin(), asked.end());
        asked.erase(std::unique(asked.begin(), asked.end()), asked.end());
        EXPECT_EQ(asked, c.asked) << (c.key ? c.key : "no key");
        KorCfg::removeKey(String("hwscanner.reverse_lookup"));
    }
}

// On Linux each IPv4 address has its own mask, and each row its interface.
TEST_F(NetworkGroups, LinuxAddressesWithTheirMasksAndInterfaces) {
    fake.sysname = "Linux";
    KorCfg::setKey(String("hwscanner.reverse_lookup"), String("off"));
    MacInfo::setSysProf(
        snapshot("(SystemProfiler\n(SPNetworkDataType\n(br0\ninterface:s=br0\n(IPv4\n(Addresses\n"
                 "Addresses:s=10.20.0.1\nAddresses:s=10.21.0.10\n)\n(SubnetMasks\n"
                 "SubnetMasks:s=255.255.255.0\nSubnetMasks:s=255.255.0.0\n)\n)\n)\n"
                 "(veth0\ninterface:s=veth0\nphysical:s=no\n)\n)\n)\n"));
    std::vector<std::string> rows = scan<IpAddressGroup>();
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_NE(rows[0].find(";5=255.255.255.0;"), std::string::npos) << rows[0];
    EXPECT_NE(rows[1].find(";5=255.255.0.0;"), std::string::npos) << rows[1];
    EXPECT_EQ(ipAddressInterface(2, "10.21.0.10"), "br0");
    EXPECT_EQ(ipAddressInterface(2, "10.20.0.1"), "");
    rows = scan<NetworkAdapterGroup>();
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_NE(rows[1].find(";10=virtual;"), std::string::npos) << rows[1];
    KorCfg::removeKey(String("hwscanner.reverse_lookup"));
}

namespace {

// A statistics call that never returns for the NFS mount, as a dead server's.
int hangingStatvfs(const char* path, struct statvfs* out) {
    if (std::strcmp(path, "/mnt/dead") == 0)
        for (;;)
            std::this_thread::sleep_for(std::chrono::hours(1));
    std::memset(out, 0, sizeof *out);
    out->f_frsize = 4096;
    out->f_blocks = 10;
    return 0;
}

int silentResolver(const struct sockaddr*, unsigned, char*, std::size_t) {
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
}

double secondsSince(std::chrono::steady_clock::time_point t) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
}

} // namespace

TEST(NetworkBounds, DeadNfsServerDoesNotHangTheMountTable) {
    char path[] = "/tmp/invscan-mounts-XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    const std::string table = "/dev/vda / ext4 rw 0 0\nfiler:/vol /mnt/dead nfs4 rw 0 0\n"
                              "//srv/share /mnt/smb cifs rw 0 0\nproc /proc proc rw 0 0\n";
    ASSERT_EQ(write(fd, table.data(), table.size()), static_cast<ssize_t>(table.size()));
    close(fd);
    host::setLinuxMountSource(path, hangingStatvfs, 200);
    host::Statfs* mounts = nullptr;
    int n = 0;
    auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(host::liveBackend()->mounts(&mounts, &n));
    double took = secondsSince(start);
    host::setLinuxMountSource(nullptr, nullptr, 0);
    unlink(path);
    EXPECT_LT(took, 2.0);
    ASSERT_EQ(n, 4);
    // The mount's own type: the partition group gives it its code.
    EXPECT_STREQ(mounts[1].f_fstypename, "nfs4");
    EXPECT_EQ(mounts[1].f_blocks, 0u);
    EXPECT_STREQ(mounts[2].f_fstypename, "cifs");
    EXPECT_EQ(mounts[2].f_blocks, 10u);
    EXPECT_STREQ(mounts[3].f_fstypename, "devfs");
}

// A resolver that never answers costs each address its bound and the group at most
// its budget, both taken from the configuration.
TEST_F(NetworkGroups, SilentResolverCostsTheBoundsOnly) {
    fake.answerLookups = false; // the live path, with its bound
    host::setResolver(silentResolver);
    std::string dump = "(SystemProfiler\n(SPNetworkDataType\n(A\n(IPv4\n(Addresses\n";
    for (int i = 0; i < 8; ++i)
        dump += "Addresses:s=10.77.0." + std::to_string(i) + "\n";
    dump += ")\n)\n)\n)\n)\n";
    MacInfo::setSysProf(snapshot(dump.c_str()));
    const struct {
        const wchar_t *timeout, *budget;
        double most;
    } cases[] = {{nullptr, nullptr, 0.8}, {L"50", L"400", 0.3}, {L"300", L"100", 0.25}};
    for (const auto& c : cases) {
        ZelAttrList global;
        if (c.timeout)
            global = {{String(L"reverseLookupTimeout"), String(c.timeout)},
                      {String(L"reverseLookupBudget"), String(c.budget)}};
        IpAddressGroup group;
        group.setGlobalAttrs(&global);
        auto start = std::chrono::steady_clock::now();
        ZelTable* t = group.getTable();
        double took = secondsSince(start);
        EXPECT_EQ(testhost::rowsOf(t).size(), 8u);
        delete t;
        EXPECT_LT(took, c.most);
        // Asked together, the eight lookups run out together at the bound.
        EXPECT_GT(took, c.timeout ? 0.04 : 0.29); // the budget of 100 ms cuts the third
        // Fresh addresses for the next case, not cached ones.
        static int fresh = 78;
        const std::string from = "10." + std::to_string(fresh - 1) + ".";
        const std::string to = "10." + std::to_string(fresh++) + ".";
        for (std::size_t at; (at = dump.find(from)) != std::string::npos;)
            dump.replace(at, from.size(), to);
        MacInfo::setSysProf(snapshot(dump.c_str()));
    }
    host::setResolver(nullptr);
}

// An agent that scans every hour: the interface commands leave no descriptor and
// no child behind.
TEST_F(NetworkGroups, HundredScansLeaveNothingBehind) {
    MacInfo::setSysProf(snapshot(kServices));
    fake.answerLookups = true;
    scan<Ipv6AddressGroup>(); // the first run may open what stays (locale files and the like)
    int before = openDescriptors();
    for (int i = 0; i < 100; ++i)
        scan<Ipv6AddressGroup>();
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1); // no child, finished or not
    EXPECT_EQ(errno, ECHILD);
    EXPECT_EQ(fake.popens, 202);
    EXPECT_EQ(fake.pcloses, 202);
}
