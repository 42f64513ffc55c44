// The Linux readers and parsers over files captured on real machines of several
// kinds (tests/data/linux, SOURCES.md says where each came from): processors, caches,
// memory, mount tables, os-release and the interface list, and readers cut short.
#include "common/host/linux_facts.h"
#include "invscan/HostFacts.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

const std::string kLinux = std::string(INVSCAN_TEST_DATA) + "/linux/";

} // namespace

TEST(LinuxFacts, CpuinfoOfEachKindOfMachine) {
    const struct {
        const char* machine;
        const char* brand;
        const char* board;
        const char* flag; // one flag or feature it lists
        long long family, model, stepping, logical, cores, packages, perPackage, siblings;
        double mhz;
    } cases[] = {
        {"laptop-toshiba-r630", "Intel(R) Core(TM) i3 CPU       M 350  @ 2.27GHz", "", "sse4_2", 6,
         37, 5, 4, 2, 1, 2, 4, 933.0},
        {"laptop-samsung-nc10", "Intel(R) Atom(TM) CPU N270   @ 1.60GHz", "", "ssse3", 6, 28, 2, 2,
         1, 1, 1, 2, 800.0},
        {"server-hp-dl180", "Intel(R) Xeon(R) CPU           E5504  @ 2.00GHz", "", "sse2", 6, 26, 5,
         3, 3, 1, 4, 4, 2000.09},
        {"server-oracle-oda", "Intel(R) Xeon(R) CPU E5-2699 v3 @ 2.30GHz", "", "avx", 6, 63, 2, 16,
         8, 2, 4, 8, 2301.0},
        {"arm-raspberry-pi-3b", "", "Raspberry Pi 3 Model B Rev 1.2", "asimd", -1, -1, -1, 4, 4, 1,
         -1, -1, 0},
        {"arm-armel", "XScale-80219 rev 0 (v5l)", "Thecus N2100", "edsp", -1, -1, -1, 0, 0, 1, -1,
         -1, 0},
        {"vm-vmware-rhel62", "Intel(R) Xeon(R) CPU           E7520  @ 1.87GHz", "", "hypervisor", 6,
         42, 7, 2, 2, 1, -1, -1, 2694.293},
        {"vm-vmware-fusion", "Intel(R) Core(TM) i5-8279U CPU @ 2.40GHz", "", "hypervisor", 6, 142,
         10, 2, 2, 2, 1, 1, 2400.0},
        {"vm-firecracker-debian12", "Intel(R) Xeon(R) Processor", "", "hypervisor", 6, 167, 1, 2, 2,
         1, 2, 2, 2599.998},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.machine);
        const linuxfacts::CpuInfo i =
            linuxfacts::parseCpuinfo(linuxfacts::readFile(kLinux + c.machine, "/proc/cpuinfo"));
        EXPECT_EQ(i.brand, c.brand);
        EXPECT_EQ(i.board, c.board);
        EXPECT_NE(i.flags.find(std::string(" ") + c.flag + " "), std::string::npos) << i.flags;
        EXPECT_EQ(i.family, c.family);
        EXPECT_EQ(i.model, c.model);
        EXPECT_EQ(i.stepping, c.stepping);
        EXPECT_EQ(i.logical, c.logical);
        EXPECT_EQ(i.cores, c.cores);
        EXPECT_EQ(i.packages, c.packages);
        EXPECT_EQ(i.coresPerPackage, c.perPackage);
        EXPECT_EQ(i.logicalPerPackage, c.siblings);
        EXPECT_DOUBLE_EQ(i.mhz, c.mhz);
    }
}

TEST(LinuxFacts, CacheSizes) {
    const struct {
        const char* text;
        long long bytes;
    } sizes[] = {{"48K", 48 * 1024}, {"2048K\n", 2048 * 1024},
                 {"8M", 8 << 20},    {"1G", 1ll << 30},
                 {"512", 512},       {"", -1},
                 {"K", -1},          {"-4K", -1},
                 {"32X", -1}};
    for (const auto& s : sizes)
        EXPECT_EQ(linuxfacts::parseCacheSize(s.text), s.bytes) << s.text;

    const std::vector<linuxfacts::Cache> caches =
        linuxfacts::readCaches(kLinux + "vm-firecracker-debian12");
    ASSERT_EQ(caches.size(), 4u);
    EXPECT_EQ(linuxfacts::cacheBytes(caches, 1, "Data"), 48 * 1024);
    EXPECT_EQ(linuxfacts::cacheBytes(caches, 1, "Instruction"), 64 * 1024);
    EXPECT_EQ(linuxfacts::cacheBytes(caches, 1, nullptr), 48 * 1024); // data, not instructions
    EXPECT_EQ(linuxfacts::cacheBytes(caches, 2, "Unified"), 2048 * 1024);
    EXPECT_EQ(linuxfacts::cacheBytes(caches, 3, nullptr), 491520ll * 1024);
    EXPECT_EQ(linuxfacts::cacheBytes(caches, 4, nullptr), -1);
    EXPECT_TRUE(linuxfacts::readCaches(kLinux + "arm-armel").empty()); // no sysfs captured
}

TEST(LinuxFacts, MeminfoAndOsRelease) {
    const struct {
        const char* machine;
        unsigned long long total, available, swap;
    } memory[] = {
        {"vm-firecracker-debian12", 24683656, 23455512, 0},
        {"vm-vmware-fusion", 3997272, 3386876, 3996668},
    };
    for (const auto& c : memory) {
        SCOPED_TRACE(c.machine);
        const std::string mi = linuxfacts::readFile(kLinux + c.machine, "/proc/meminfo");
        std::uint64_t kb = 0;
        ASSERT_TRUE(hostfacts::meminfoKB(mi.data(), mi.size(), "MemTotal", &kb));
        EXPECT_EQ(kb, c.total);
        ASSERT_TRUE(hostfacts::meminfoKB(mi.data(), mi.size(), "MemAvailable", &kb));
        EXPECT_EQ(kb, c.available);
        ASSERT_TRUE(hostfacts::meminfoKB(mi.data(), mi.size(), "SwapTotal", &kb));
        EXPECT_EQ(kb, c.swap);
    }
    // /proc/vmstat: the counters the memory statistics take.
    const std::string vm = linuxfacts::readFile(kLinux + "vm-firecracker-debian12", "/proc/vmstat");
    std::uint64_t v = 0;
    EXPECT_TRUE(linuxfacts::vmstatValue(vm, "pgfault", &v));
    EXPECT_EQ(v, 581405658u);
    EXPECT_TRUE(linuxfacts::vmstatValue(vm, "pswpout", &v));
    EXPECT_EQ(v, 0u);
    EXPECT_FALSE(linuxfacts::vmstatValue(vm, "pgfaul", &v));
    const struct {
        const char* machine;
        const char* pretty;
        const char* versionId;
    } releases[] = {
        {"vm-firecracker-debian12", "Debian GNU/Linux 12 (bookworm)", "12"},
        {"centos-7.9", "CentOS Linux 7 (Core)", "7"},
        {"ubuntu-18.04", "Ubuntu 18.04.5 LTS", "18.04"},
    };
    for (const auto& c : releases) {
        SCOPED_TRACE(c.machine);
        const std::string os = linuxfacts::readFile(kLinux + c.machine, "/etc/os-release");
        const hostfacts::OsRelease r = hostfacts::parseOsRelease(os.data(), os.size());
        EXPECT_EQ(r.prettyName, c.pretty);
        EXPECT_EQ(r.versionId, c.versionId);
    }
}

TEST(LinuxFacts, MountTables) {
    const struct {
        const char* machine;
        std::size_t count;
        unsigned index; // one entry checked
        const char *from, *on, *type;
    } cases[] = {
        {"vm-firecracker-debian12", 21, 5, "/dev/vda", "/", "ext4"},
        {"installer-opensuse-lvm-btrfs", 26, 15, "/dev/mapper/system-home", "/mnt/home", "btrfs"},
        {"container-overlay-namespace", 24, 21, "overlay", "/tmp/ct/merged", "overlay"},
        // Blanks and tabs in a source or a mount point come escaped as \040 and \011.
        {"container-overlay-namespace", 24, 22, "/dev/vda", "/tmp/ct/a b", "ext4"},
        {"container-overlay-namespace", 24, 23, "my tmp", "/tmp/ct/tab\tx", "tmpfs"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.machine) + " #" + std::to_string(c.index));
        const std::vector<linuxfacts::Mount> m =
            linuxfacts::parseMounts(linuxfacts::readFile(kLinux + c.machine, "/proc/self/mounts"));
        ASSERT_EQ(m.size(), c.count);
        EXPECT_EQ(m[c.index].from, c.from);
        EXPECT_EQ(m[c.index].on, c.on);
        EXPECT_EQ(m[c.index].type, c.type);
    }
    // Lines too short to be an entry, comments and a backslash that starts no escape.
    const std::vector<linuxfacts::Mount> odd =
        linuxfacts::parseMounts("# comment\n\nproc\nproc /proc\na\\b /x\\9 t o\n");
    ASSERT_EQ(odd.size(), 1u);
    EXPECT_EQ(odd[0].from, "a\\b");
    EXPECT_EQ(odd[0].on, "/x\\9");
}

TEST(LinuxFacts, InterfaceListByIndex) {
    const std::vector<linuxfacts::NetInterface> ifs =
        linuxfacts::readInterfaces(kLinux + "vm-firecracker-debian12");
    ASSERT_EQ(ifs.size(), 4u);
    const char* const names[] = {"lo", "ifb0", "ifb1", "eth0"};
    for (std::size_t i = 0; i < ifs.size(); ++i) {
        EXPECT_EQ(ifs[i].name, names[i]);
        EXPECT_EQ(ifs[i].index, static_cast<int>(i + 1));
    }
    EXPECT_EQ(ifs[0].arphrd, 772);
    EXPECT_EQ(ifs[3].arphrd, 1);
    EXPECT_EQ(ifs[3].mtu, 1400u);
    EXPECT_EQ(ifs[3].mac.size(), 17u);
    EXPECT_EQ(ifs[3].operstate, "up");
    EXPECT_EQ(ifs[1].operstate, "down");
    EXPECT_TRUE(ifs[3].device); // a network card, where ifb0 and ifb1 are not
    EXPECT_FALSE(ifs[1].device || ifs[3].wireless || ifs[3].bridge);
    EXPECT_TRUE(linuxfacts::readInterfaces(kLinux + "arm-armel").empty());
}

TEST(LinuxFacts, ReadersStopAtTheirBound) {
    const std::string root = kLinux + "server-oracle-oda";
    const std::string whole = linuxfacts::readFile(root, "/proc/cpuinfo");
    ASSERT_GT(whole.size(), 4096u);
    for (std::size_t cap : {0u, 1u, 7u, 4095u, 4096u, 4097u}) {
        const std::string part = linuxfacts::readFile(root, "/proc/cpuinfo", cap);
        EXPECT_EQ(part, whole.substr(0, cap)) << cap;
        // A cut text parses to what its whole lines say, never past its end.
        linuxfacts::parseCpuinfo(part);
        linuxfacts::parseMounts(part);
    }
    EXPECT_EQ(linuxfacts::readFile(root, "/no/such/file"), "");
    EXPECT_EQ(linuxfacts::readAttr(kLinux + "vm-firecracker-debian12", "/sys/class/net/eth0/mtu"),
              "1400");
}

TEST(LinuxFacts, DefaultRoutersAndResolver) {
    const struct {
        const char* machine;
        const char* ifname;
        const char* v4;
        const char* v6;
    } cases[] = {
        {"container-netns-routes", "v0", "198.51.100.1", "2001:db8:10::1"},
        {"container-netns-routes", "lo", "", ""},
        {"vm-vmware-fusion", "ens33", "192.168.71.2", ""},
        {"vm-firecracker-debian12", "eth0", "", ""}, // no route tables captured
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.machine) + " " + c.ifname);
        const std::string root = kLinux + c.machine;
        EXPECT_EQ(
            linuxfacts::defaultRouter4(linuxfacts::readFile(root, "/proc/net/route"), c.ifname),
            c.v4);
        EXPECT_EQ(linuxfacts::defaultRouter6(linuxfacts::readFile(root, "/proc/net/ipv6_route"),
                                             c.ifname),
                  c.v6);
    }
    const linuxfacts::Resolver here = linuxfacts::parseResolvConf(
        linuxfacts::readFile(kLinux + "vm-firecracker-debian12", "/etc/resolv.conf"));
    EXPECT_EQ(here.servers, std::vector<std::string>{"10.255.255.53"});
    EXPECT_TRUE(here.search.empty());
    // The last search or domain line wins, as in the resolver.
    const linuxfacts::Resolver r = linuxfacts::parseResolvConf(
        "search a.example b.example\nnameserver 192.0.2.1\ndomain c.example\nnameserver\n"
        "nameserver 2001:db8::53\n");
    EXPECT_EQ(r.servers, (std::vector<std::string>{"192.0.2.1", "2001:db8::53"}));
    EXPECT_EQ(r.search, std::vector<std::string>{"c.example"});
}

// The maker and the clock that the Linux rules of the processor group take, over the
// same readers the group uses, on machines of each kind: cpufreq's maximum first,
// else the highest cpu MHz; the x86 vendor, else the ARM implementer.
TEST(LinuxFacts, ProcessorMakerAndClockOfEachKindOfMachine) {
    const struct {
        const char* machine;
        const char* maker;
        long long mhz, logical, packages;
    } cases[] = {
        {"server-amd-epyc-7451", "AMD", 2300, 96, 2},     // cpufreq, through cpu0's policy link
        {"arm-exynos5-armv7", "Arm", 1700, 2, 1},         // cpufreq, no cpu MHz at all
        {"arm-raspberry-pi-3b", "Arm", -1, 4, 1},         // neither: the brand string's turn
        {"vm-firecracker-debian12", "Intel", 2600, 2, 1}, // 2599.998, rounded
        {"server-oracle-oda", "Intel", 2301, 16, 2},
        {"server-hp-dl180", "Intel", 2000, 3, 1},
        {"arm-armel", "Intel", -1, 0, 1}, // XScale: implementer 0x69
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.machine);
        const std::string root = kLinux + c.machine;
        const linuxfacts::CpuInfo i =
            linuxfacts::parseCpuinfo(linuxfacts::readFile(root, "/proc/cpuinfo"));
        const std::string maxFreq =
            linuxfacts::readAttr(root, "/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq");
        EXPECT_EQ(linuxfacts::cpuMaker(i.vendor, i.implementer), c.maker);
        EXPECT_EQ(linuxfacts::cpuMHz(maxFreq, i), c.mhz);
        EXPECT_EQ(i.logical, c.logical);
        EXPECT_EQ(i.packages, c.packages);
    }
    // The second package of the EPYC runs faster than the first processor says.
    const linuxfacts::CpuInfo epyc = linuxfacts::parseCpuinfo(
        linuxfacts::readFile(kLinux + "server-amd-epyc-7451", "/proc/cpuinfo"));
    EXPECT_GT(epyc.maxMhz, epyc.mhz);
}

TEST(LinuxFacts, SizesAtFullPrecision) {
    const struct {
        const char* text;
        bool count, decimal;
        unsigned long long bytes;
        unsigned mb;
    } cases[] = {
        {"274877906944", true, false, 274877906944ull, 274877}, // this VM's 256 GiB disk
        {"18446744073709551615", true, false, 18446744073709551615ull, 4294967295u},
        {"18446744073709551616", false, false, 0, 0}, // one past 64 bits
        {"274.88 GB", false, true, 274880000000ull, 274880},
        {"650 MB", false, true, 650000000ull, 650},
        {"512 bytes", false, true, 512, 0},
        {"1.5 TiB", false, false, 0, 0},
        {"-1", false, false, 0, 0},
        {"", false, false, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        std::uint64_t counted = 0, read = 0;
        EXPECT_EQ(linuxfacts::parseByteCount(c.text, &counted), c.count);
        EXPECT_EQ(linuxfacts::parseDecimalSize(c.text, &read), c.decimal);
        if (c.count || c.decimal) {
            EXPECT_EQ(c.count ? counted : read, c.bytes);
            EXPECT_EQ(linuxfacts::decimalMB(c.bytes), c.mb);
        }
    }
    EXPECT_EQ(linuxfacts::kbField(24ull << 20), 25165824u);  // 24 GiB stays whole
    EXPECT_EQ(linuxfacts::kbField(5ull << 30), 4294967295u); // 5 TiB holds at the top
}

// The SMBIOS table of real machines put where the kernel puts it, and the ways it is
// missing: no table at all, too large for its entry point, unreadable without root.
TEST(LinuxFacts, SmbiosTableAndWhyItIsMissing) {
    const std::string lenovo = linuxfacts::readFile(kLinux, "lenovo-thinkpad-t480s.bin");
    ASSERT_FALSE(lenovo.empty());
    char dir[] = "/tmp/invscan-smbios-XXXXXX";
    ASSERT_TRUE(mkdtemp(dir));
    const std::string root = dir, tables = root + "/sys/firmware/dmi/tables";
    auto put = [&](const std::string& name, const std::string& bytes) {
        std::FILE* f = std::fopen((tables + "/" + name).c_str(), "wb");
        ASSERT_TRUE(f);
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
    };

    linuxfacts::SmbiosTable t = linuxfacts::readSmbiosTable(root);
    EXPECT_EQ(t.state, linuxfacts::SMBIOS_ABSENT);
    EXPECT_STREQ(linuxfacts::smbiosStateText(t.state), "no SMBIOS table");

    ASSERT_EQ(std::system(("mkdir -p " + tables).c_str()), 0);
    put("DMI", lenovo);
    put("smbios_entry_point", "_SM3_");
    t = linuxfacts::readSmbiosTable(root);
    EXPECT_EQ(t.state, linuxfacts::SMBIOS_OK);
    EXPECT_EQ(t.bytes, lenovo);

    // A 2.x entry point cannot describe more than 64 KiB; a 3.x one may, up to the cap.
    const std::string big = lenovo + std::string(70000, '\0');
    put("DMI", big);
    t = linuxfacts::readSmbiosTable(root);
    EXPECT_EQ(t.state, linuxfacts::SMBIOS_OK);
    EXPECT_EQ(t.bytes.size(), big.size());
    put("smbios_entry_point", "_SM_");
    t = linuxfacts::readSmbiosTable(root);
    EXPECT_EQ(t.state, linuxfacts::SMBIOS_TOO_LARGE);
    EXPECT_TRUE(t.bytes.empty());
    EXPECT_EQ(t.size, big.size());

    if (geteuid() != 0) {
        ::chmod((tables + "/DMI").c_str(), 0);
        EXPECT_EQ(linuxfacts::readSmbiosTable(root).state, linuxfacts::SMBIOS_NEEDS_ROOT);
    }
    ASSERT_EQ(std::system(("rm -rf " + root).c_str()), 0);
}

TEST(LinuxInterfaces, KindPrefixAndLabel) {
    auto nic = [](int arphrd, bool device) {
        linuxfacts::NetInterface i;
        i.arphrd = arphrd;
        i.device = device;
        i.index = 7;
        i.iflink = 7;
        return i;
    };
    linuxfacts::NetInterface eth = nic(1, true), wifi = nic(1, true), br = nic(1, false),
                             bond = nic(1, false), vlan = nic(1, false), veth = nic(1, false),
                             tun = nic(65534, false), dummy = nic(1, false), lo = nic(772, false),
                             ppp = nic(512, false);
    wifi.wireless = true;
    br.bridge = true;
    bond.bond = true;
    vlan.vlan = true;
    vlan.iflink = 3; // its lower device: a VLAN is no veth
    veth.iflink = 8;
    tun.tun = true;
    const struct {
        const linuxfacts::NetInterface& i;
        const char* kind;
    } kinds[] = {{eth, "Ethernet"}, {wifi, "Wireless"}, {br, "Bridge"}, {bond, "Bond"},
                 {vlan, "VLAN"},    {veth, "veth"},     {tun, "tun"},   {dummy, "Virtual"},
                 {lo, "Loopback"},  {ppp, "PPP"}};
    for (const auto& k : kinds)
        EXPECT_EQ(linuxfacts::interfaceKind(k.i), k.kind);

    const struct {
        std::vector<unsigned char> mask;
        unsigned bits;
    } masks[] = {{{255, 255, 255, 0}, 24},
                 {{255, 255, 255, 255}, 32},
                 {{0, 0, 0, 0}, 0},
                 {{255, 255, 128, 0}, 17},
                 {{255, 0, 255, 0}, 8}, // not contiguous: the leading ones
                 {std::vector<unsigned char>(8, 255), 64}};
    for (const auto& m : masks)
        EXPECT_EQ(linuxfacts::prefixLength(m.mask.data(), m.mask.size()), m.bits);

    EXPECT_EQ(linuxfacts::labelInterface("eth0:1"), "eth0");
    EXPECT_EQ(linuxfacts::labelInterface("br0:a:b"), "br0");
    EXPECT_EQ(linuxfacts::labelInterface("eth0"), "eth0");
}
