// On Linux the two reports are gathered from /sys, /proc and /etc and given the
// shape of their Mac counterparts, so that the groups read both alike. A source that
// is missing or unreadable (DMI data often needs root) only leaves its part out.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64 // 64-bit sizes and inode numbers on 32-bit Linux too
#endif
#include "common/report/ReportVt.h"

#include "common/host/linux_facts.h"
#include "invscan/HostFacts.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <ifaddrs.h>
#include <map>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace report {
namespace {

// This machine's files, through the same bounded readers the host backend uses.
std::string readFile(const std::string& path, std::size_t limit = linuxfacts::MAX_FILE) {
    return linuxfacts::readFile("", path, limit);
}

using linuxfacts::trim;

std::string attr(const std::string& path) {
    return linuxfacts::readAttr("", path);
}

bool exists(const std::string& path) {
    return linuxfacts::exists("", path);
}

std::vector<std::string> listDir(const std::string& path) {
    return linuxfacts::listDir("", path);
}

std::string realPath(const std::string& p) {
    char buf[PATH_MAX];
    return ::realpath(p.c_str(), buf) ? std::string(buf) : std::string();
}

std::string baseName(const std::string& p) {
    std::size_t s = p.rfind('/');
    return s == std::string::npos ? p : p.substr(s + 1);
}

std::string trimZeros(double v, const char* unit) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.2f", v);
    std::string s = buf;
    while (!s.empty() && s.back() == '0')
        s.pop_back();
    if (!s.empty() && s.back() == '.') s.pop_back();
    return s + " " + unit;
}

std::string kbText(long long kb) {
    if (kb >= 1024 && kb % 1024 == 0) return std::to_string(kb / 1024) + " MB";
    return std::to_string(kb) + " KB";
}

// ---- SMBIOS ----

struct Smbios {
    std::string table, entry;
};

Smbios readSmbios() {
    Smbios s;
    s.table = readFile("/sys/firmware/dmi/tables/DMI", 1u << 20);
    s.entry = readFile("/sys/firmware/dmi/tables/smbios_entry_point", 4096);
    return s;
}

// ---- hardware and software ----

struct Cpu {
    std::string brand;
    int logical = 0, cores = 0, packages = 0;
    double mhz = 0;
};

Cpu readCpu() {
    Cpu c;
    const linuxfacts::CpuInfo info = linuxfacts::parseCpuinfo(readFile("/proc/cpuinfo"));
    c.brand = !info.brand.empty() ? info.brand : info.board; // ARM boards name the board
    c.logical = static_cast<int>(info.logical);
    c.cores = static_cast<int>(info.cores);
    c.packages = static_cast<int>(info.packages);
    c.mhz = info.mhz;
    const std::int64_t khz = linuxfacts::cpuMaxKHz("");
    if (khz > 0) c.mhz = static_cast<double>(khz) / 1000.0;
    return c;
}

// The size of the first level-`level` cache that holds data, as the profiler writes it.
std::string cacheText(const std::vector<linuxfacts::Cache>& caches, int level) {
    std::int64_t bytes = linuxfacts::cacheBytes(caches, level, nullptr);
    if (bytes <= 0) return std::string();
    if (bytes % 1024 != 0) return std::to_string(bytes) + " bytes";
    return kbText(bytes / 1024);
}

void addHardware(Node* sp, const Smbios& smb) {
    Node& hw = sp->addChild("SPHardwareDataType").addChild("hardware_overview");
    const std::string dmi = "/sys/class/dmi/id/";
    std::string product = attr(dmi + "product_name"), family = attr(dmi + "product_family");
    if (!family.empty() || !product.empty())
        hw.addString("machine_name", family.empty() ? product : family);
    if (!product.empty()) hw.addString("machine_model", product);
    std::string vendor = attr(dmi + "sys_vendor");
    if (!vendor.empty()) hw.addString("manufacturer", vendor);
    Cpu c = readCpu();
    if (!c.brand.empty()) hw.addString("cpu_type", c.brand);
    if (c.mhz > 0)
        hw.addString("current_processor_speed",
                     c.mhz >= 1000 ? trimZeros(c.mhz / 1000, "GHz") : trimZeros(c.mhz, "MHz"));
    hw.addInt("packages", c.packages);
    hw.addInt("number_processors", c.cores);
    const std::vector<linuxfacts::Cache> caches = linuxfacts::readCaches("");
    std::string l2 = cacheText(caches, 2), l3 = cacheText(caches, 3);
    if (!l2.empty()) hw.addString("l2_cache_core", l2);
    if (!l3.empty()) hw.addString("l3_cache", l3);
    struct sysinfo si;
    if (::sysinfo(&si) == 0) {
        // The kernel keeps some memory for itself; the installed amount is the next GB.
        double gb = static_cast<double>(si.totalram) * si.mem_unit / (1024.0 * 1024 * 1024);
        hw.addString("physical_memory",
                     std::to_string(static_cast<long long>(std::ceil(gb))) + " GB");
    }
    std::string bios = attr(dmi + "bios_version");
    if (!bios.empty()) hw.addString("boot_rom_version", bios);
    std::string serial = attr(dmi + "product_serial");
    if (!serial.empty()) hw.addString("serial_number", serial);
    std::string uuid = attr(dmi + "product_uuid");
    for (char& ch : uuid)
        ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    if (!uuid.empty()) hw.addString("platform_UUID", uuid);
    (void)smb;
}

void addSoftware(Node* sp) {
    Node& os = sp->addChild("SPSoftwareDataType").addChild("os_overview");
    const std::string text = readFile("/etc/os-release");
    const hostfacts::OsRelease release = hostfacts::parseOsRelease(text.data(), text.size());
    std::string name = !release.prettyName.empty() ? release.prettyName : release.name;
    struct utsname u;
    bool un = ::uname(&u) == 0;
    if (!name.empty())
        os.addString("os_version", name);
    else if (un)
        os.addString("os_version", u.sysname);
    if (un) {
        os.addString("kernel_version", std::string(u.sysname) + " " + u.release);
        os.addString("local_host_name", u.nodename);
    }
    double up = std::atof(readFile("/proc/uptime", 256).c_str());
    if (up > 0) {
        long s = static_cast<long>(up);
        char buf[64];
        std::snprintf(buf, sizeof buf, "up %ld:%ld:%ld:%ld", s / 86400, s / 3600 % 24, s / 60 % 60,
                      s % 60);
        os.addString("uptime", buf);
    }
}

// ---- disks ----

std::string vpdSerial(const std::string& dev) {
    std::string v = readFile(dev + "/vpd_pg80", 4096);
    if (v.size() > 4) {
        std::size_t n = static_cast<unsigned char>(v[3]);
        return trim(v.substr(4, std::min(n, v.size() - 4)));
    }
    return std::string();
}

struct Sections {
    Node* sp;
    std::map<std::string, Node*> sections;
    std::map<std::string, Node*> controllers;
    Node* controller(const std::string& dataType, const std::string& key, const std::string& name) {
        Node*& sec = sections[dataType];
        if (!sec) sec = &sp->addChild(dataType);
        Node*& c = controllers[dataType + "\n" + key];
        if (!c) c = &sec->addChild(name);
        return c;
    }
};

// Component of `path` that looks like a PCI address, searching back from `before`.
std::string pciBefore(const std::string& path, std::size_t before) {
    std::string head = path.substr(0, before);
    std::size_t p = head.size();
    while (p > 0) {
        std::size_t s = head.rfind('/', p - 1);
        if (s == std::string::npos) break;
        std::string comp = head.substr(s + 1, p - s - 1);
        if (comp.size() == 12 && comp[4] == ':' && comp[7] == ':' && comp[10] == '.')
            return head.substr(0, p);
        p = s;
    }
    return std::string();
}

std::string driverOf(const std::string& devPath) {
    return baseName(realPath(devPath + "/driver"));
}

void addDisks(Node* sp) {
    Sections secs;
    secs.sp = sp;
    int diskNo = 0;
    for (const std::string& name : listDir("/sys/block")) {
        static const char* const skip[] = {"loop", "ram", "zram", "dm-", "md",
                                           "nbd",  "fd",  "zd",   "rbd", "mmcblk"};
        bool skipIt = false;
        for (const char* s : skip)
            skipIt = skipIt || name.compare(0, std::strlen(s), s) == 0;
        if (skipIt) continue;
        std::string blk = "/sys/block/" + name;
        std::string path = realPath(blk);
        if (path.empty() || path.find("/virtual/") != std::string::npos) continue;
        unsigned long long sectors = std::strtoull(attr(blk + "/size").c_str(), nullptr, 10);
        unsigned long long bytes = sectors * 512ull;
        bool optical = name.compare(0, 2, "sr") == 0;
        std::string dev = blk + "/device";
        std::string model = attr(dev + "/model"), vendor = attr(dev + "/vendor");
        std::string serial = attr(dev + "/serial");
        if (serial.empty()) serial = attr(blk + "/serial");
        if (serial.empty()) serial = vpdSerial(dev);
        std::string rev = attr(dev + "/rev");
        if (rev.empty()) rev = attr(dev + "/firmware_rev");

        std::string dataType, key, ctlName;
        Node* ctl = nullptr;
        std::size_t usb = path.find("/usb");
        if (usb != std::string::npos) {
            // The USB device is the nearest ancestor with an idVendor; the bus is usbN.
            std::string up = path;
            std::string usbDev;
            while (up.size() > 1) {
                up = up.substr(0, up.rfind('/'));
                if (exists(up + "/idVendor")) {
                    usbDev = up;
                    break;
                }
            }
            std::size_t busEnd = path.find('/', usb + 1);
            std::string bus = path.substr(0, busEnd);
            std::string busName = attr(bus + "/product");
            ctl = secs.controller("SPUSBDataType", bus, busName.empty() ? baseName(bus) : busName);
            std::string product = usbDev.empty() ? model : attr(usbDev + "/product");
            Node& d = ctl->addChild(product.empty() ? (model.empty() ? name : model) : product);
            if (!usbDev.empty()) {
                d.addString("a_product_id", "0x" + attr(usbDev + "/idProduct"));
                d.addString("b_vendor_id", "0x" + attr(usbDev + "/idVendor"));
                std::string s = attr(usbDev + "/serial");
                if (!s.empty()) d.addString("d_serial_num", s);
                std::string m = attr(usbDev + "/manufacturer");
                if (!m.empty()) d.addString("f_manufacturer", m);
            }
            if (!model.empty())
                d.addString("device_model", vendor.empty() ? model : vendor + " " + model);
            if (bytes) {
                d.addString("size", formatSize(bytes));
                d.addString("bsd_name", "disk" + std::to_string(diskNo++));
            }
            d.addString("removable_media", attr(blk + "/removable") == "1" ? "yes" : "no");
            d.addString("detachable_drive", "yes");
            continue;
        }
        if (name.compare(0, 4, "nvme") == 0) {
            std::size_t at = path.find("/nvme/");
            std::string pci = pciBefore(path, at == std::string::npos ? path.size() : at);
            key = pci.empty() ? "nvme" : pci;
            ctlName = "NVMe Controller " + baseName(key);
            dataType = "SPNVMeDataType";
        } else if (name.compare(0, 2, "vd") == 0) {
            std::size_t at = path.find("/virtio");
            std::string pci = pciBefore(path, at == std::string::npos ? path.size() : at);
            key = pci.empty() ? "virtio" : pci;
            ctlName = "VirtIO Block Controller " + baseName(key);
            dataType = "SPSerialATADataType";
            if (model.empty()) model = "VirtIO Block Device";
        } else {
            std::size_t h = path.find("/host");
            std::size_t hEnd = h == std::string::npos ? std::string::npos : path.find('/', h + 1);
            key = hEnd == std::string::npos ? path : path.substr(0, hEnd);
            std::string pci = pciBefore(path, h == std::string::npos ? path.size() : h);
            std::string drv = pci.empty() ? std::string() : driverOf(pci);
            bool pata = drv.compare(0, 5, "pata_") == 0 || name.compare(0, 2, "hd") == 0;
            dataType = pata ? "SPParallelATADataType" : "SPSerialATADataType";
            ctlName = (drv.empty() ? std::string("SCSI") : drv) + " " + baseName(key);
            if (!vendor.empty() && vendor != "ATA") model = vendor + " " + model;
        }
        ctl = secs.controller(dataType, key, ctlName);
        Node& d = ctl->addChild(model.empty() ? name : model);
        if (!model.empty()) d.addString("device_model", model);
        if (!serial.empty()) d.addString("device_serial", serial);
        if (!rev.empty()) d.addString("device_revision", rev);
        if (bytes && (!optical || sectors > 0)) {
            d.addString("size", formatSize(bytes));
            d.addString("size_in_bytes", std::to_string(bytes));
            d.addString("bsd_name", "disk" + std::to_string(diskNo++));
        }
        d.addString("removable_media", attr(blk + "/removable") == "1" ? "yes" : "no");
        d.addString("detachable_drive", "no");
        if (!optical)
            d.addString("spsata_medium_type",
                        attr(blk + "/queue/rotational") == "0" ? "Solid State" : "Rotational");
    }
}

// ---- network ----

std::string ipv4Router(const std::string& ifname) {
    return linuxfacts::defaultRouter4(readFile("/proc/net/route"), ifname);
}

std::string ipv6Router(const std::string& ifname) {
    return linuxfacts::defaultRouter6(readFile("/proc/net/ipv6_route"), ifname);
}

bool usesDhcp(const std::string& ifname, const std::string& ifindex) {
    const std::string files[] = {
        "/run/systemd/netif/leases/" + ifindex, "/var/lib/dhcp/dhclient." + ifname + ".leases",
        "/var/lib/dhclient/dhclient-" + ifname + ".leases", "/run/dhclient." + ifname + ".pid",
        "/var/lib/dhcpcd/" + ifname + ".lease"};
    for (const std::string& f : files)
        if (exists(f)) return true;
    return false;
}

struct Addrs {
    std::vector<std::string> v4, masks, v6, prefixes;
};

int prefixLength(const unsigned char* m, int n) {
    int bits = 0;
    for (int i = 0; i < n; ++i)
        for (int b = 7; b >= 0; --b)
            if (m[i] & (1 << b)) ++bits;
    return bits;
}

void addNetwork(Node* sp) {
    std::map<std::string, Addrs> addrs;
    struct ifaddrs* list = nullptr;
    if (::getifaddrs(&list) == 0) {
        for (struct ifaddrs* a = list; a; a = a->ifa_next) {
            if (!a->ifa_addr || !a->ifa_name) continue;
            char buf[INET6_ADDRSTRLEN];
            Addrs& x = addrs[a->ifa_name];
            if (a->ifa_addr->sa_family == AF_INET) {
                const auto* in = reinterpret_cast<const struct sockaddr_in*>(a->ifa_addr);
                if (inet_ntop(AF_INET, &in->sin_addr, buf, sizeof buf)) x.v4.push_back(buf);
                if (a->ifa_netmask) {
                    const auto* m = reinterpret_cast<const struct sockaddr_in*>(a->ifa_netmask);
                    if (inet_ntop(AF_INET, &m->sin_addr, buf, sizeof buf)) x.masks.push_back(buf);
                }
            } else if (a->ifa_addr->sa_family == AF_INET6) {
                const auto* in = reinterpret_cast<const struct sockaddr_in6*>(a->ifa_addr);
                if (inet_ntop(AF_INET6, &in->sin6_addr, buf, sizeof buf)) x.v6.push_back(buf);
                if (a->ifa_netmask) {
                    const auto* m = reinterpret_cast<const struct sockaddr_in6*>(a->ifa_netmask);
                    x.prefixes.push_back(std::to_string(prefixLength(m->sin6_addr.s6_addr, 16)));
                }
            }
        }
        ::freeifaddrs(list);
    }
    const linuxfacts::Resolver resolver = linuxfacts::parseResolvConf(readFile("/etc/resolv.conf"));
    const std::vector<std::string>& servers = resolver.servers;
    const std::vector<std::string>& search = resolver.search;
    std::vector<linuxfacts::NetInterface> ifs;
    for (const linuxfacts::NetInterface& i : linuxfacts::readInterfaces("")) {
        if (i.name == "lo" || i.arphrd == 772) continue;
        // Virtual interfaces that are down and unaddressed (ifb, dummy) are no service.
        const Addrs& a = addrs[i.name];
        if (!i.device && a.v4.empty() && a.v6.empty() && i.operstate == "down") continue;
        ifs.push_back(i);
    }
    if (ifs.empty()) return;
    Node& sec = sp->addChild("SPNetworkDataType");
    int order = 0;
    for (const linuxfacts::NetInterface& i : ifs) {
        const std::string& n = i.name;
        std::string base = "/sys/class/net/" + n;
        const int arphrd = i.arphrd;
        std::string kind = "Ethernet";
        if (i.wireless)
            kind = "AirPort";
        else if (i.bridge)
            kind = "Bridge";
        else if (exists("/proc/net/vlan/" + n))
            kind = "VLAN";
        else if (arphrd == 512)
            kind = "PPP";
        else if (arphrd != 1)
            kind = "Other";
        Node& s = sec.addChild(n);
        s.addString("type", kind == "PPP" ? "PPP (PPPSerial)" : kind);
        s.addString("hardware", kind == "PPP" ? "Modem" : kind);
        s.addString("interface", n);
        const Addrs& a = addrs[n];
        bool assigned = !a.v4.empty();
        s.addString("ip_assigned", assigned ? "yes" : "no");
        if (assigned) s.addList("ip_address", a.v4);
        s.addInt("spnetwork_service_order", order++);
        if (assigned) {
            Node& v4 = s.addChild("IPv4");
            v4.addList("Addresses", a.v4);
            v4.addString("ConfigMethod", usesDhcp(n, std::to_string(i.index)) ? "DHCP" : "Manual");
            v4.addString("InterfaceName", n);
            std::string r = ipv4Router(n);
            if (!r.empty()) v4.addString("Router", r);
            v4.addList("SubnetMasks", a.masks);
        }
        if (!a.v6.empty()) {
            Node& v6 = s.addChild("IPv6");
            v6.addList("Addresses", a.v6);
            v6.addString("ConfigMethod", "Automatic");
            v6.addString("InterfaceName", n);
            v6.addList("PrefixLength", a.prefixes);
            std::string r = ipv6Router(n);
            if (!r.empty()) v6.addString("Router", r);
        }
        if ((assigned || !a.v6.empty()) && !servers.empty()) {
            Node& dns = s.addChild("DNS");
            dns.addList("ServerAddresses", servers);
            if (!search.empty()) dns.addList("SearchDomains", search);
        }
        std::string mac = attr(base + "/address");
        if (arphrd == 1 && !mac.empty()) {
            Node& e = s.addChild("Ethernet");
            e.addString("MAC Address", mac);
            long speed = std::atol(attr(base + "/speed").c_str());
            std::string duplex = attr(base + "/duplex");
            if (!duplex.empty() && duplex != "unknown")
                e.addList("MediaOptions", {duplex + "-duplex"});
            e.addString("MediaSubType", speed > 0 ? std::to_string(speed) + "baseT" : "autoselect");
        }
    }
}

// ---- I/O registry ----

void addRegistry(Node* root) {
    Node tops;
    Node& r = tops.addChild("Root");
    std::string version = readFile("/proc/version", 4096);
    version = trim(version.substr(0, version.find('\n')));
    if (!version.empty()) r.addString("IOKitBuildVersion", version);
    Smbios smb = readSmbios();
    bool haveTable = !smb.table.empty() && smb.table.size() <= MAX_DATA;
    Node& classes = r.addChild("IOKitDiagnostics").addChild("Classes");
    classes.addInt("IORegistryEntry", 1);
    classes.addInt("IOPlatformExpertDevice", 1);
    classes.addInt("AppleACPIPlatformExpert", haveTable ? 1 : 0);
    classes.addInt("AppleSMBIOS", haveTable ? 1 : 0);

    const std::string dmi = "/sys/class/dmi/id/";
    std::string product = attr(dmi + "product_name");
    Node& pe = r.addChild(product.empty() ? "Linux" : product);
    pe.addString("IOObjectClass", "IOPlatformExpertDevice");
    if (!product.empty()) pe.addString("model", product);
    std::string vendor = attr(dmi + "sys_vendor");
    if (!vendor.empty()) pe.addString("manufacturer", vendor);
    std::string serial = attr(dmi + "product_serial");
    if (!serial.empty()) pe.addString("IOPlatformSerialNumber", serial);
    std::string uuid = attr(dmi + "product_uuid");
    for (char& ch : uuid)
        ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    if (!uuid.empty()) pe.addString("IOPlatformUUID", uuid);
    if (haveTable) {
        Node& smbios =
            pe.addChild("AppleACPIPlatformExpert").addChild("bios").addChild("AppleSMBIOS");
        smbios.addString("IOObjectClass", "AppleSMBIOS");
        smbios.addData("SMBIOS", smb.table);
        if (!smb.entry.empty()) smbios.addData("SMBIOS-EPS", smb.entry);
    }
    placeRegistry(root, std::move(tops));
}

} // namespace

bool gatherLive(const char* helper, Node* root, std::string* err) {
    (void)err;
    if (std::strcmp(helper, "iokit") == 0) {
        addRegistry(root);
        return true;
    }
    Node& sp = root->addChild("SystemProfiler");
    Smbios smb = readSmbios();
    addHardware(&sp, smb);
    addSoftware(&sp);
    if (!smb.table.empty()) addMemoryModules(&sp, smb.table);
    addDisks(&sp);
    addNetwork(&sp);
    return true;
}

} // namespace report
