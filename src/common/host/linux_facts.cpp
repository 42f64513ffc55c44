#include "common/host/linux_facts.h"

#include <algorithm>
#include <climits>
#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace linuxfacts {
namespace {

// fstab fields write a blank, tab, newline or backslash as \ooo.
std::string unescape(const std::string& s) {
    std::string out;
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\\' && i + 3 < s.size() && s[i + 1] >= '0' && s[i + 1] <= '3' &&
            s[i + 2] >= '0' && s[i + 2] <= '7' && s[i + 3] >= '0' && s[i + 3] <= '7') {
            out +=
                static_cast<char>((s[i + 1] - '0') * 64 + (s[i + 2] - '0') * 8 + (s[i + 3] - '0'));
            i += 3;
        } else {
            out += s[i];
        }
    }
    return out;
}

// Calls `each` with the blank-separated words of each line in turn; one vector of
// words is reused, so a table of 200,000 lines is never held split.
template <typename Each> void eachLineWords(const std::string& text, Each each) {
    std::vector<std::string> words;
    std::size_t p = 0;
    while (p < text.size()) {
        std::size_t e = text.find('\n', p);
        if (e == std::string::npos) e = text.size();
        words.clear();
        std::size_t i = p;
        while (i < e) {
            while (i < e && (text[i] == ' ' || text[i] == '\t'))
                ++i;
            if (i >= e) break;
            std::size_t w = i;
            while (w < e && text[w] != ' ' && text[w] != '\t')
                ++w;
            words.emplace_back(text, i, w - i);
            i = w;
        }
        if (!each(words)) return;
        p = e + 1;
    }
}

bool hexByte(const std::string& s, std::size_t at, unsigned char* out) {
    if (at + 2 > s.size() || !std::isxdigit(static_cast<unsigned char>(s[at])) ||
        !std::isxdigit(static_cast<unsigned char>(s[at + 1])))
        return false;
    *out = static_cast<unsigned char>(std::strtoul(s.substr(at, 2).c_str(), nullptr, 16));
    return true;
}

// "2596.122" whatever the C locale's decimal point; 0 when the text is no number.
double decimal(const std::string& t) {
    double v = 0, scale = 0;
    bool any = false;
    for (char ch : t) {
        if (ch >= '0' && ch <= '9') {
            any = true;
            if (scale == 0) {
                v = v * 10 + (ch - '0');
            } else {
                v += (ch - '0') * scale;
                scale /= 10;
            }
        } else if (ch == '.' && scale == 0) {
            scale = 0.1;
        } else {
            break;
        }
    }
    return any && v < 1e15 ? v : 0;
}

} // namespace

std::string trim(const std::string& s) {
    std::size_t b = s.find_first_not_of(" \t\r\n"), e = s.find_last_not_of(" \t\r\n");
    return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

bool toInt64(const std::string& s, std::int64_t* v) {
    std::string t = trim(s);
    if (t.empty()) return false;
    char* end = nullptr;
    errno = 0;
    long long x = std::strtoll(t.c_str(), &end, 10);
    if (errno || end == t.c_str()) return false;
    *v = x;
    return true;
}

std::string readFile(const std::string& root, const std::string& path, std::size_t cap) {
    std::FILE* f = std::fopen((root + path).c_str(), "rb");
    if (!f) return std::string();
    std::string out;
    char buf[4096];
    while (out.size() < cap) {
        std::size_t want = std::min(sizeof buf, cap - out.size());
        std::size_t n = std::fread(buf, 1, want, f);
        if (n == 0) break;
        out.append(buf, n);
    }
    std::fclose(f);
    return out;
}

std::string readAttr(const std::string& root, const std::string& path) {
    std::string s = readFile(root, path, 4096);
    return trim(s.substr(0, s.find('\n')));
}

std::vector<std::string> listDir(const std::string& root, const std::string& path) {
    std::vector<std::string> out;
    DIR* d = ::opendir((root + path).c_str());
    if (!d) return out;
    while (struct dirent* e = ::readdir(d)) {
        std::string n = e->d_name;
        if (n != "." && n != "..") out.push_back(n);
    }
    ::closedir(d);
    std::sort(out.begin(), out.end());
    return out;
}

bool exists(const std::string& root, const std::string& path) {
    struct stat st;
    return ::stat((root + path).c_str(), &st) == 0;
}

CpuInfo parseCpuinfo(const std::string& text) {
    CpuInfo c;
    std::set<std::string> packages, cores;
    std::string phys = "0";
    std::size_t p = 0;
    while (p < text.size()) {
        std::size_t e = text.find('\n', p);
        if (e == std::string::npos) e = text.size();
        const std::string line = text.substr(p, e - p);
        p = e + 1;
        std::size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        const std::string key = trim(line.substr(0, colon));
        const std::string val = trim(line.substr(colon + 1));
        std::int64_t n = -1;
        if (key == "processor") {
            ++c.logical;
        } else if (key == "vendor_id" && c.vendor.empty()) {
            c.vendor = val;
        } else if ((key == "model name" || key == "cpu model") && c.brand.empty()) {
            c.brand = val;
        } else if (key == "Processor" && c.brand.empty()) {
            c.brand = val; // ARM kernels before 3.8 name the core here
        } else if ((key == "Model" || key == "Hardware") && c.board.empty()) {
            c.board = val;
        } else if ((key == "flags" || key == "Features") && c.flags.empty()) {
            c.flags = " " + val + " ";
        } else if (key == "cpu family" && c.family < 0 && toInt64(val, &n)) {
            c.family = n;
        } else if (key == "model" && c.model < 0 && toInt64(val, &n)) {
            c.model = n;
        } else if (key == "stepping" && c.stepping < 0 && toInt64(val, &n)) {
            c.stepping = n;
        } else if (key == "physical id") {
            phys = val;
            packages.insert(val);
        } else if (key == "core id") {
            cores.insert(phys + "/" + val);
        } else if (key == "cpu cores" && c.coresPerPackage < 0 && toInt64(val, &n)) {
            c.coresPerPackage = n;
        } else if (key == "siblings" && c.logicalPerPackage < 0 && toInt64(val, &n)) {
            c.logicalPerPackage = n;
        } else if (key == "cpu MHz") {
            const double mhz = decimal(val);
            if (c.mhz == 0) c.mhz = std::atof(val.c_str());
            if (mhz > c.maxMhz) c.maxMhz = mhz;
        } else if (key == "CPU implementer" && c.implementer.empty()) {
            c.implementer = val;
        }
    }
    c.packages = packages.empty() ? 1 : static_cast<std::int64_t>(packages.size());
    c.cores = cores.empty() ? c.logical : static_cast<std::int64_t>(cores.size());
    return c;
}

std::string cpuMaker(const std::string& vendorId, const std::string& implementer) {
    // CPUID leaf 0 vendor strings; /proc/cpuinfo gives them without their blanks.
    static const char* const vendors[][2] = {
        {"GenuineIntel", "Intel"},     {"AuthenticAMD", "AMD"},
        {"AMDisbetter!", "AMD"},       {"HygonGenuine", "Hygon"},
        {"CentaurHauls", "Centaur"},   {"Shanghai", "Zhaoxin"},
        {"CyrixInstead", "Cyrix"},     {"NexGenDriven", "NexGen"},
        {"GenuineTMx86", "Transmeta"}, {"TransmetaCPU", "Transmeta"},
        {"RiseRiseRise", "Rise"},      {"SiS SiS SiS", "SiS"},
        {"UMC UMC UMC", "UMC"},        {"Geode by NSC", "National Semiconductor"},
        {"Vortex86 SoC", "DM&P"},      {"VIA VIA VIA", "VIA"},
        {"E2K MACHINE", "MCST"}};
    for (const auto& v : vendors)
        if (vendorId == v[0]) return v[1];
    // MIDR_EL1 implementer codes, as the Arm architecture manual assigns them.
    static const struct {
        unsigned code;
        const char* name;
    } implementers[] = {
        {0x41, "Arm"},       {0x42, "Broadcom"},      {0x43, "Cavium"},   {0x44, "DEC"},
        {0x46, "Fujitsu"},   {0x48, "HiSilicon"},     {0x49, "Infineon"}, {0x4d, "Motorola"},
        {0x4e, "NVIDIA"},    {0x50, "Applied Micro"}, {0x51, "Qualcomm"}, {0x53, "Samsung"},
        {0x56, "Marvell"},   {0x61, "Apple"},         {0x66, "Faraday"},  {0x69, "Intel"},
        {0x6d, "Microsoft"}, {0x70, "Phytium"},       {0xc0, "Ampere"}};
    const std::string code = trim(implementer);
    if (code.size() < 3 || code.size() > 4 || code[0] != '0' || (code[1] != 'x' && code[1] != 'X'))
        return std::string();
    char* end = nullptr;
    const unsigned long n = std::strtoul(code.c_str() + 2, &end, 16);
    if (!end || *end) return std::string();
    for (const auto& i : implementers)
        if (n == i.code) return i.name;
    return std::string();
}

std::int64_t cpuMHz(const std::string& maxFreqText, const CpuInfo& cpu) {
    std::int64_t khz;
    if (toInt64(maxFreqText, &khz) && khz >= 1000 && khz < INT64_C(1) << 40)
        return (khz + 500) / 1000;
    if (cpu.maxMhz >= 1 && cpu.maxMhz < 1e9) return static_cast<std::int64_t>(cpu.maxMhz + 0.5);
    return -1;
}

bool parseByteCount(const std::string& text, std::uint64_t* bytes) {
    const std::string t = trim(text);
    if (t.empty() || t.size() > 20) return false;
    std::uint64_t v = 0;
    for (char ch : t) {
        if (ch < '0' || ch > '9') return false;
        const unsigned d = static_cast<unsigned>(ch - '0');
        if (v > (UINT64_MAX - d) / 10) return false;
        v = v * 10 + d;
    }
    *bytes = v;
    return true;
}

bool parseDecimalSize(const std::string& text, std::uint64_t* bytes) {
    static const char* const units[] = {"bytes", "KB", "MB", "GB", "TB", "PB", "EB"};
    const std::string t = trim(text);
    const std::size_t blank = t.find(' ');
    if (blank == std::string::npos || blank == 0) return false;
    const std::string number = t.substr(0, blank), unit = t.substr(blank + 1);
    if (number.find_first_not_of("0123456789.") != std::string::npos) return false;
    double v = decimal(number);
    for (const char* u : units) {
        if (unit == u) {
            if (!(v < 1.8e19)) return false;
            *bytes = static_cast<std::uint64_t>(v + 0.5);
            return true;
        }
        v *= 1000;
    }
    return false;
}

std::uint32_t decimalMB(std::uint64_t bytes) {
    const std::uint64_t mb = bytes / 1000000u;
    return mb > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(mb);
}

std::uint32_t kbField(std::uint64_t kb) {
    return kb > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(kb);
}

SmbiosTable readSmbiosTable(const std::string& root) {
    SmbiosTable t;
    t.entry = readFile(root, "/sys/firmware/dmi/tables/smbios_entry_point", 4096);
    const std::size_t cap = t.entry.compare(0, 4, "_SM_") == 0 ? MAX_SMBIOS_2 : MAX_SMBIOS_3;
    const std::string path = root + SMBIOS_TABLE_PATH;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        t.state = errno == EACCES || errno == EPERM     ? SMBIOS_NEEDS_ROOT
                  : errno == ENOENT || errno == ENOTDIR ? SMBIOS_ABSENT
                                                        : SMBIOS_UNREADABLE;
        return t;
    }
    // sysfs gives the table's true size; read one byte past the cap to see it overflow.
    char buf[65536];
    std::string data;
    t.state = SMBIOS_OK;
    for (;;) {
        const ssize_t n = ::read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            t.state = SMBIOS_UNREADABLE;
            break;
        }
        if (n == 0) break;
        t.size += static_cast<std::uint64_t>(n);
        if (data.size() <= cap)
            data.append(buf, std::min(static_cast<std::size_t>(n), cap + 1 - data.size()));
        if (t.size > cap) {
            t.state = SMBIOS_TOO_LARGE;
            struct stat st;
            if (::fstat(fd, &st) == 0 && st.st_size > 0)
                t.size = static_cast<std::uint64_t>(st.st_size);
            break;
        }
    }
    ::close(fd);
    if (t.state == SMBIOS_OK && data.empty()) t.state = SMBIOS_ABSENT;
    if (t.state == SMBIOS_OK) t.bytes.swap(data);
    return t;
}

const char* smbiosStateText(SmbiosState state) {
    switch (state) {
    case SMBIOS_OK:
        return "SMBIOS table read";
    case SMBIOS_ABSENT:
        return "no SMBIOS table";
    case SMBIOS_NEEDS_ROOT:
        return "the SMBIOS table needs root";
    case SMBIOS_TOO_LARGE:
        return "the SMBIOS table is larger than its cap";
    default:
        return "the SMBIOS table is unreadable";
    }
}

std::int64_t parseCacheSize(const std::string& text) {
    std::int64_t v;
    std::string t = trim(text);
    if (!toInt64(t, &v) || v < 0) return -1;
    std::size_t unit = t.find_first_not_of("0123456789");
    if (unit == std::string::npos) return v;
    switch (t[unit]) {
    case 'K':
        return v * 1024;
    case 'M':
        return v * 1024 * 1024;
    case 'G':
        return v * 1024 * 1024 * 1024;
    default:
        return -1;
    }
}

std::int64_t cpuMaxKHz(const std::string& root) {
    std::int64_t khz;
    if (toInt64(readAttr(root, "/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq"), &khz) &&
        khz > 0)
        return khz;
    return -1;
}

std::vector<Cache> readCaches(const std::string& root) {
    std::vector<Cache> out;
    for (int i = 0; i < 16; ++i) {
        const std::string base =
            "/sys/devices/system/cpu/cpu0/cache/index" + std::to_string(i) + "/";
        std::int64_t level;
        if (!toInt64(readAttr(root, base + "level"), &level)) break;
        Cache c;
        c.level = static_cast<int>(level);
        c.type = readAttr(root, base + "type");
        c.bytes = parseCacheSize(readAttr(root, base + "size"));
        out.push_back(c);
    }
    return out;
}

std::int64_t cacheBytes(const std::vector<Cache>& caches, int level, const char* type) {
    for (const Cache& c : caches)
        if (c.level == level && (type ? c.type == type : c.type != "Instruction")) return c.bytes;
    return -1;
}

std::vector<Mount> parseMounts(const std::string& text) {
    std::vector<Mount> out;
    eachLineWords(text, [&](const std::vector<std::string>& f) {
        if (f.size() >= 3 && f[0][0] != '#')
            out.push_back({unescape(f[0]), unescape(f[1]), unescape(f[2]),
                           f.size() > 3 ? unescape(f[3]) : std::string()});
        return true;
    });
    return out;
}

std::vector<NetInterface> readInterfaces(const std::string& root) {
    std::vector<NetInterface> out;
    for (const std::string& n : listDir(root, "/sys/class/net")) {
        const std::string base = "/sys/class/net/" + n + "/";
        NetInterface i;
        i.name = n;
        std::int64_t v;
        if (toInt64(readAttr(root, base + "ifindex"), &v)) i.index = static_cast<int>(v);
        if (toInt64(readAttr(root, base + "type"), &v)) i.arphrd = static_cast<int>(v);
        if (toInt64(readAttr(root, base + "mtu"), &v) && v > 0) i.mtu = static_cast<unsigned>(v);
        i.mac = readAttr(root, base + "address");
        i.operstate = readAttr(root, base + "operstate");
        i.device = exists(root, base + "device");
        i.wireless = exists(root, base + "wireless") || exists(root, base + "phy80211");
        i.bridge = exists(root, base + "bridge");
        i.vlan = exists(root, "/proc/net/vlan/" + n);
        i.bond = exists(root, base + "bonding");
        i.tun = exists(root, base + "tun_flags");
        if (toInt64(readAttr(root, base + "iflink"), &v)) i.iflink = static_cast<int>(v);
        const std::string flags = readAttr(root, base + "flags");
        i.flags = static_cast<unsigned>(std::strtoul(flags.c_str(), nullptr, 16));
        char link[PATH_MAX];
        const std::string masterPath = root + base + "master";
        ssize_t len = ::readlink(masterPath.c_str(), link, sizeof link - 1);
        if (len > 0) i.master = baseName(std::string(link, static_cast<std::size_t>(len)));
        if (toInt64(readAttr(root, base + "speed"), &v) && v > 0) i.speedMbps = v;
        i.duplex = readAttr(root, base + "duplex");
        out.push_back(i);
    }
    std::stable_sort(out.begin(), out.end(), [](const NetInterface& a, const NetInterface& b) {
        return a.index < b.index;
    });
    return out;
}

std::string interfaceKind(const NetInterface& i) {
    if (i.arphrd == 772) return "Loopback";
    if (i.wireless) return "Wireless";
    if (i.bridge) return "Bridge";
    if (i.bond) return "Bond";
    if (i.vlan) return "VLAN";
    if (i.arphrd == 512) return "PPP";
    if (i.tun) return "tun";
    if (i.device) return i.arphrd == 1 ? "Ethernet" : "Other";
    // A veth's iflink is its peer's index; a plain virtual device links to itself.
    if (i.arphrd == 1 && i.iflink > 0 && i.iflink != i.index) return "veth";
    return "Virtual";
}

unsigned prefixLength(const unsigned char* mask, std::size_t n) {
    unsigned bits = 0;
    for (std::size_t k = 0; k < n; ++k)
        for (int b = 7; b >= 0; --b) {
            if (!(mask[k] & (1 << b))) return bits;
            ++bits;
        }
    return bits;
}

std::string labelInterface(const std::string& label) {
    return label.substr(0, label.find(':'));
}

std::vector<IfAddress> readAddresses() {
    std::vector<IfAddress> out;
    struct ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) return out;
    for (struct ifaddrs* a = list; a; a = a->ifa_next) {
        if (!a->ifa_name || !a->ifa_addr) continue;
        const int family = a->ifa_addr->sa_family;
        if (family != AF_INET && family != AF_INET6) continue;
        char buf[INET6_ADDRSTRLEN];
        IfAddress ad;
        ad.family = family;
        ad.label = a->ifa_name;
        ad.ifname = labelInterface(ad.label);
        if (family == AF_INET) {
            const auto* in = reinterpret_cast<const struct sockaddr_in*>(a->ifa_addr);
            if (!inet_ntop(AF_INET, &in->sin_addr, buf, sizeof buf)) continue;
            ad.address = buf;
            if (a->ifa_netmask) {
                const auto* m = reinterpret_cast<const struct sockaddr_in*>(a->ifa_netmask);
                if (inet_ntop(AF_INET, &m->sin_addr, buf, sizeof buf)) ad.netmask = buf;
                ad.prefix = prefixLength(reinterpret_cast<const unsigned char*>(&m->sin_addr), 4);
            }
            if ((a->ifa_flags & IFF_BROADCAST) && a->ifa_broadaddr) {
                const auto* b = reinterpret_cast<const struct sockaddr_in*>(a->ifa_broadaddr);
                // Without a broadcast address of its own the kernel repeats the local one.
                if (inet_ntop(AF_INET, &b->sin_addr, buf, sizeof buf) && ad.address != buf)
                    ad.broadcast = buf;
            }
        } else {
            const auto* in6 = reinterpret_cast<const struct sockaddr_in6*>(a->ifa_addr);
            if (!inet_ntop(AF_INET6, &in6->sin6_addr, buf, sizeof buf)) continue;
            ad.address = buf;
            ad.scopeId = in6->sin6_scope_id;
            if (a->ifa_netmask)
                ad.prefix = prefixLength(
                    reinterpret_cast<const struct sockaddr_in6*>(a->ifa_netmask)->sin6_addr.s6_addr,
                    16);
        }
        out.push_back(ad);
    }
    ::freeifaddrs(list);
    return out;
}

bool hasDhcpLease(const std::string& root, const std::string& ifname, int ifindex) {
    const std::string files[] = {"/run/systemd/netif/leases/" + std::to_string(ifindex),
                                 "/var/lib/dhcp/dhclient." + ifname + ".leases",
                                 "/var/lib/dhclient/dhclient-" + ifname + ".leases",
                                 "/run/dhclient." + ifname + ".pid",
                                 "/var/lib/dhcpcd/" + ifname + ".lease"};
    for (const std::string& f : files)
        if (exists(root, f)) return true;
    return false;
}

std::string parseVpdSerial(const std::string& page) {
    if (page.size() <= 4) return std::string();
    const std::size_t n = static_cast<unsigned char>(page[3]); // page length
    return trim(page.substr(4, std::min(n, page.size() - 4)));
}

std::string pciBefore(const std::string& path, std::size_t before) {
    const std::string head = path.substr(0, std::min(before, path.size()));
    std::size_t p = head.size();
    while (p > 0) {
        const std::size_t s = head.rfind('/', p - 1);
        if (s == std::string::npos) break;
        const std::string comp = head.substr(s + 1, p - s - 1);
        if (comp.size() == 12 && comp[4] == ':' && comp[7] == ':' && comp[10] == '.')
            return head.substr(0, p);
        p = s;
    }
    return std::string();
}

std::string baseName(const std::string& path) {
    const std::size_t s = path.rfind('/');
    return s == std::string::npos ? path : path.substr(s + 1);
}

namespace {

// `path` (below the root whose own resolved path is `realRoot`, "" for this machine)
// with its links resolved, again below the root; empty when it cannot be resolved or
// leaves the root.
std::string resolvedBelow(const std::string& root, const std::string& realRoot,
                          const std::string& path) {
    char buf[PATH_MAX];
    if (!::realpath((root + path).c_str(), buf)) return std::string();
    const std::string full = buf;
    if (realRoot.empty()) return full;
    if (full.compare(0, realRoot.size(), realRoot) != 0 ||
        (full.size() > realRoot.size() && full[realRoot.size()] != '/'))
        return std::string();
    return full.substr(realRoot.size());
}

} // namespace

std::vector<BlockDevice> readBlockDevices(const std::string& root) {
    std::vector<BlockDevice> out;
    std::string realRoot;
    if (!root.empty()) {
        char rbuf[PATH_MAX];
        if (!::realpath(root.c_str(), rbuf)) return out;
        realRoot = rbuf;
    }
    for (const std::string& name : listDir(root, "/sys/block")) {
        const std::string blk = "/sys/block/" + name, dev = blk + "/device";
        BlockDevice d;
        d.name = name;
        d.path = resolvedBelow(root, realRoot, blk);
        std::int64_t v;
        if (toInt64(readAttr(root, blk + "/size"), &v) && v > 0)
            d.sectors = static_cast<std::uint64_t>(v);
        d.model = readAttr(root, dev + "/model");
        d.vendor = readAttr(root, dev + "/vendor");
        d.serial = readAttr(root, dev + "/serial");
        if (d.serial.empty()) d.serial = readAttr(root, blk + "/serial");
        if (d.serial.empty()) d.serial = parseVpdSerial(readFile(root, dev + "/vpd_pg80", 4096));
        d.rev = readAttr(root, dev + "/rev");
        if (d.rev.empty()) d.rev = readAttr(root, dev + "/firmware_rev");
        d.removable = readAttr(root, blk + "/removable") == "1";
        d.solidState = readAttr(root, blk + "/queue/rotational") == "0";
        const std::string pci = pciBefore(d.path, d.path.size());
        if (!pci.empty()) d.pciDriver = baseName(resolvedBelow(root, realRoot, pci + "/driver"));
        const std::size_t usb = d.path.find("/usb");
        if (usb != std::string::npos) {
            std::string up = d.path;
            while (up.size() > 1 && d.usbDevice.empty()) {
                up = up.substr(0, up.rfind('/'));
                if (exists(root, up + "/idVendor")) d.usbDevice = up;
            }
            if (!d.usbDevice.empty()) {
                d.usbProduct = readAttr(root, d.usbDevice + "/product");
                d.usbIdProduct = readAttr(root, d.usbDevice + "/idProduct");
                d.usbIdVendor = readAttr(root, d.usbDevice + "/idVendor");
                d.usbSerial = readAttr(root, d.usbDevice + "/serial");
                d.usbManufacturer = readAttr(root, d.usbDevice + "/manufacturer");
            }
            d.usbBus = d.path.substr(0, d.path.find('/', usb + 1));
            d.usbBusProduct = readAttr(root, d.usbBus + "/product");
        }
        out.push_back(d);
    }
    return out;
}

bool vmstatValue(const std::string& text, const char* key, std::uint64_t* value) {
    bool found = false;
    eachLineWords(text, [&](const std::vector<std::string>& f) {
        std::int64_t v;
        if (f.size() >= 2 && f[0] == key && toInt64(f[1], &v) && v >= 0) {
            *value = static_cast<std::uint64_t>(v);
            found = true;
        }
        return !found;
    });
    return found;
}

std::unordered_map<std::string, std::string> defaultRouters4(const std::string& routeText) {
    std::unordered_map<std::string, std::string> out;
    eachLineWords(routeText, [&](const std::vector<std::string>& f) {
        if (f.size() < 3 || f[1] != "00000000" || f[2] == "00000000" || f[2].size() != 8 ||
            out.count(f[0]))
            return true;
        // The kernel prints the address as a host-order number of network-order bytes.
        unsigned char b[4];
        bool ok = true;
        for (int i = 0; i < 4; ++i)
            ok = ok && hexByte(f[2], static_cast<std::size_t>(6 - 2 * i), &b[i]);
        char buf[INET_ADDRSTRLEN];
        if (ok && inet_ntop(AF_INET, b, buf, sizeof buf)) out.emplace(f[0], buf);
        return true;
    });
    return out;
}

std::unordered_map<std::string, std::string> defaultRouters6(const std::string& routeText) {
    std::unordered_map<std::string, std::string> out;
    const std::string zero(32, '0');
    eachLineWords(routeText, [&](const std::vector<std::string>& f) {
        if (f.size() < 10 || f[0] != zero || f[1] != "00" || f[4] == zero || f[4].size() != 32 ||
            out.count(f[9]))
            return true;
        unsigned char a[16];
        bool ok = true;
        for (int i = 0; i < 16; ++i)
            ok = ok && hexByte(f[4], static_cast<std::size_t>(2 * i), &a[i]);
        char buf[INET6_ADDRSTRLEN];
        if (ok && inet_ntop(AF_INET6, a, buf, sizeof buf)) out.emplace(f[9], buf);
        return true;
    });
    return out;
}

std::string defaultRouter4(const std::string& routeText, const std::string& ifname) {
    const auto all = defaultRouters4(routeText);
    const auto it = all.find(ifname);
    return it == all.end() ? std::string() : it->second;
}

std::string defaultRouter6(const std::string& routeText, const std::string& ifname) {
    const auto all = defaultRouters6(routeText);
    const auto it = all.find(ifname);
    return it == all.end() ? std::string() : it->second;
}

Resolver parseResolvConf(const std::string& text) {
    Resolver r;
    eachLineWords(text, [&](const std::vector<std::string>& f) {
        if (f.empty()) return true;
        if (f[0] == "nameserver" && f.size() > 1) {
            r.servers.push_back(f[1]);
        } else if (f[0] == "search" || f[0] == "domain") {
            r.search.assign(f.begin() + 1, f.end());
        }
        return true;
    });
    return r;
}

} // namespace linuxfacts
