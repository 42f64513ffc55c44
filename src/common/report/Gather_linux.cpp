// On Linux the two reports are gathered from /sys, /proc and /etc and given the
// shape of their Mac counterparts, so that the groups read both alike. A source that
// is missing or unreadable (DMI data often needs root) only leaves its part out.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64 // 64-bit sizes and inode numbers on 32-bit Linux too
#endif
#include "common/report/Gather_linux.h"

#include "common/report/ReportVt.h"
#include "invscan/HostFacts.h"

#include <arpa/inet.h>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>

namespace report {
namespace {

using linuxfacts::baseName;
using linuxfacts::trim;

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

std::string upper(std::string s) {
    for (char& ch : s)
        ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    return s;
}

// The addresses of this machine's interfaces, as the kernel lists them; a labelled
// address ("eth0:1") is its interface's.
std::map<std::string, LinuxMachine::Addresses> liveAddresses() {
    return addressesByInterface(linuxfacts::readAddresses());
}

// ---- hardware and software ----

// The size of the first level-`level` cache that holds data, as the profiler writes it.
std::string cacheText(const std::vector<linuxfacts::Cache>& caches, int level) {
    std::int64_t bytes = linuxfacts::cacheBytes(caches, level, nullptr);
    if (bytes <= 0) return std::string();
    if (bytes % 1024 != 0) return std::to_string(bytes) + " bytes";
    return kbText(bytes / 1024);
}

void addHardware(const LinuxMachine& m, Node* sp) {
    Node& hw = sp->addChild("SPHardwareDataType").addChild("hardware_overview");
    if (!m.family.empty() || !m.product.empty())
        hw.addString("machine_name", m.family.empty() ? m.product : m.family);
    if (!m.product.empty()) hw.addString("machine_model", m.product);
    if (!m.vendor.empty()) hw.addString("manufacturer", m.vendor);
    // ARM boards name the board, not the processor.
    const std::string brand = !m.cpu.brand.empty() ? m.cpu.brand : m.cpu.board;
    if (!brand.empty()) hw.addString("cpu_type", brand);
    const double mhz = m.maxKHz > 0 ? static_cast<double>(m.maxKHz) / 1000.0 : m.cpu.mhz;
    if (mhz > 0)
        hw.addString("current_processor_speed",
                     mhz >= 1000 ? trimZeros(mhz / 1000, "GHz") : trimZeros(mhz, "MHz"));
    hw.addInt("packages", static_cast<int>(m.cpu.packages));
    hw.addInt("number_processors", static_cast<int>(m.cpu.cores));
    std::string l2 = cacheText(m.caches, 2), l3 = cacheText(m.caches, 3);
    if (!l2.empty()) hw.addString("l2_cache_core", l2);
    if (!l3.empty()) hw.addString("l3_cache", l3);
    if (m.memoryBytes > 0) {
        // The kernel keeps some memory for itself; the installed amount is the next GB.
        double gb = static_cast<double>(m.memoryBytes) / (1024.0 * 1024 * 1024);
        hw.addString("physical_memory",
                     std::to_string(static_cast<long long>(std::ceil(gb))) + " GB");
    }
    if (!m.bios.empty()) hw.addString("boot_rom_version", m.bios);
    if (!m.serial.empty()) hw.addString("serial_number", m.serial);
    if (!m.uuid.empty()) hw.addString("platform_UUID", upper(m.uuid));
}

void addSoftware(const LinuxMachine& m, Node* sp) {
    Node& os = sp->addChild("SPSoftwareDataType").addChild("os_overview");
    const hostfacts::OsRelease release =
        hostfacts::parseOsRelease(m.osRelease.data(), m.osRelease.size());
    std::string name = !release.prettyName.empty() ? release.prettyName : release.name;
    if (!name.empty())
        os.addString("os_version", name);
    else if (!m.sysname.empty())
        os.addString("os_version", m.sysname);
    if (!m.sysname.empty()) {
        os.addString("kernel_version", m.sysname + " " + m.release);
        os.addString("local_host_name", m.nodename);
    }
    if (m.uptime > 0) {
        long s = static_cast<long>(m.uptime);
        char buf[64];
        std::snprintf(buf, sizeof buf, "up %ld:%ld:%ld:%ld", s / 86400, s / 3600 % 24, s / 60 % 60,
                      s % 60);
        os.addString("uptime", buf);
    }
}

// ---- disks ----

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

bool skipDisk(const linuxfacts::BlockDevice& d) {
    static const char* const skip[] = {"loop", "ram", "zram", "dm-", "md",
                                       "nbd",  "fd",  "zd",   "rbd", "mmcblk"};
    for (const char* s : skip)
        if (d.name.compare(0, std::strlen(s), s) == 0) return true;
    return d.path.empty() || d.path.find("/virtual/") != std::string::npos;
}

void addUsbDisk(const linuxfacts::BlockDevice& b, Sections* secs, int* diskNo) {
    const std::uint64_t bytes = b.sectors * 512ull;
    Node* ctl = secs->controller("SPUSBDataType", b.usbBus,
                                 b.usbBusProduct.empty() ? baseName(b.usbBus) : b.usbBusProduct);
    const std::string product = b.usbDevice.empty() ? b.model : b.usbProduct;
    Node& d = ctl->addChild(product.empty() ? (b.model.empty() ? b.name : b.model) : product);
    if (!b.usbDevice.empty()) {
        d.addString("a_product_id", "0x" + b.usbIdProduct);
        d.addString("b_vendor_id", "0x" + b.usbIdVendor);
        if (!b.usbSerial.empty()) d.addString("d_serial_num", b.usbSerial);
        if (!b.usbManufacturer.empty()) d.addString("f_manufacturer", b.usbManufacturer);
    }
    if (!b.model.empty())
        d.addString("device_model", b.vendor.empty() ? b.model : b.vendor + " " + b.model);
    if (bytes) {
        d.addString("size", formatSize(bytes));
        d.addString("size_in_bytes", std::to_string(bytes));
        d.addString("bsd_name", "disk" + std::to_string((*diskNo)++));
    }
    d.addString("removable_media", b.removable ? "yes" : "no");
    d.addString("detachable_drive", "yes");
}

void addDisks(const LinuxMachine& m, Node* sp) {
    Sections secs;
    secs.sp = sp;
    int diskNo = 0;
    for (const linuxfacts::BlockDevice& b : m.disks) {
        if (skipDisk(b)) continue;
        if (b.path.find("/usb") != std::string::npos) {
            addUsbDisk(b, &secs, &diskNo);
            continue;
        }
        const std::string& path = b.path;
        const std::uint64_t bytes = b.sectors * 512ull;
        const bool optical = b.name.compare(0, 2, "sr") == 0;
        std::string model = b.model, dataType, key, ctlName;
        if (b.name.compare(0, 4, "nvme") == 0) {
            std::size_t at = path.find("/nvme/");
            std::string pci =
                linuxfacts::pciBefore(path, at == std::string::npos ? path.size() : at);
            key = pci.empty() ? "nvme" : pci;
            ctlName = "NVMe Controller " + baseName(key);
            dataType = "SPNVMeDataType";
        } else if (b.name.compare(0, 2, "vd") == 0) {
            std::size_t at = path.find("/virtio");
            std::string pci =
                linuxfacts::pciBefore(path, at == std::string::npos ? path.size() : at);
            key = pci.empty() ? "virtio" : pci;
            ctlName = "VirtIO Block Controller " + baseName(key);
            dataType = "SPSerialATADataType";
            if (model.empty()) model = "VirtIO Block Device";
        } else {
            std::size_t h = path.find("/host");
            std::size_t hEnd = h == std::string::npos ? std::string::npos : path.find('/', h + 1);
            key = hEnd == std::string::npos ? path : path.substr(0, hEnd);
            const std::string& drv = b.pciDriver;
            bool pata = drv.compare(0, 5, "pata_") == 0 || b.name.compare(0, 2, "hd") == 0;
            dataType = pata ? "SPParallelATADataType" : "SPSerialATADataType";
            ctlName = (drv.empty() ? std::string("SCSI") : drv) + " " + baseName(key);
            if (!b.vendor.empty() && b.vendor != "ATA") model = b.vendor + " " + model;
        }
        Node* ctl = secs.controller(dataType, key, ctlName);
        Node& d = ctl->addChild(model.empty() ? b.name : model);
        if (!model.empty()) d.addString("device_model", model);
        if (!b.serial.empty()) d.addString("device_serial", b.serial);
        if (!b.rev.empty()) d.addString("device_revision", b.rev);
        if (bytes) {
            d.addString("size", formatSize(bytes));
            d.addString("size_in_bytes", std::to_string(bytes));
            d.addString("bsd_name", "disk" + std::to_string(diskNo++));
        }
        d.addString("removable_media", b.removable ? "yes" : "no");
        d.addString("detachable_drive", "no");
        if (!optical)
            d.addString("spsata_medium_type", b.solidState ? "Solid State" : "Rotational");
    }
}

// ---- network ----

void addNetwork(const LinuxMachine& m, Node* sp) {
    static const LinuxMachine::Addresses none;
    auto addressesOf = [&m](const std::string& n) -> const LinuxMachine::Addresses& {
        auto it = m.addresses.find(n);
        return it == m.addresses.end() ? none : it->second;
    };
    const std::vector<std::string>& servers = m.resolver.servers;
    const std::vector<std::string>& search = m.resolver.search;
    std::vector<const linuxfacts::NetInterface*> ifs;
    // Every interface but loopback: up or down, with addresses or none.
    for (const linuxfacts::NetInterface& i : m.interfaces)
        if (i.name != "lo" && i.arphrd != 772) ifs.push_back(&i);
    if (ifs.empty()) return;
    const auto routers4 = linuxfacts::defaultRouters4(m.routes4);
    const auto routers6 = linuxfacts::defaultRouters6(m.routes6);
    Node& sec = sp->addChild("SPNetworkDataType");
    int order = 0;
    for (const linuxfacts::NetInterface* ip : ifs) {
        const linuxfacts::NetInterface& i = *ip;
        const std::string& n = i.name;
        std::string kind = linuxfacts::interfaceKind(i);
        if (kind == "Wireless") kind = "AirPort";
        Node& s = sec.addChild(n);
        s.addString("type", kind == "PPP" ? "PPP (PPPSerial)" : kind);
        s.addString("hardware", kind == "PPP" ? "Modem" : kind);
        s.addString("interface", n);
        // Linux only: whether a device backs it, its link state and its bridge or bond.
        s.addString("physical", i.device ? "yes" : "no");
        if (!i.operstate.empty()) s.addString("operstate", i.operstate);
        if (!i.master.empty()) s.addString("master", i.master);
        const LinuxMachine::Addresses& a = addressesOf(n);
        bool assigned = !a.v4.empty();
        s.addString("ip_assigned", assigned ? "yes" : "no");
        if (assigned) s.addList("ip_address", a.v4);
        s.addInt("spnetwork_service_order", order++);
        if (assigned) {
            Node& v4 = s.addChild("IPv4");
            v4.addList("Addresses", a.v4);
            auto dhcp = m.dhcp.find(n);
            v4.addString("ConfigMethod", dhcp != m.dhcp.end() && dhcp->second ? "DHCP" : "Manual");
            v4.addString("InterfaceName", n);
            auto r = routers4.find(n);
            if (r != routers4.end()) v4.addString("Router", r->second);
            v4.addList("SubnetMasks", a.masks);
        }
        if (!a.v6.empty()) {
            Node& v6 = s.addChild("IPv6");
            v6.addList("Addresses", a.v6);
            v6.addString("ConfigMethod", "Automatic");
            v6.addString("InterfaceName", n);
            v6.addList("PrefixLength", a.prefixes);
            auto r = routers6.find(n);
            if (r != routers6.end()) v6.addString("Router", r->second);
        }
        if ((assigned || !a.v6.empty()) && !servers.empty()) {
            Node& dns = s.addChild("DNS");
            dns.addList("ServerAddresses", servers);
            if (!search.empty()) dns.addList("SearchDomains", search);
        }
        if (i.arphrd == 1 && !i.mac.empty()) {
            Node& e = s.addChild("Ethernet");
            e.addString("MAC Address", i.mac);
            if (!i.duplex.empty() && i.duplex != "unknown")
                e.addList("MediaOptions", {i.duplex + "-duplex"});
            e.addString("MediaSubType",
                        i.speedMbps > 0 ? std::to_string(i.speedMbps) + "baseT" : "autoselect");
        }
    }
}

} // namespace

std::map<std::string, LinuxMachine::Addresses>
addressesByInterface(const std::vector<linuxfacts::IfAddress>& list) {
    std::map<std::string, LinuxMachine::Addresses> out;
    for (const linuxfacts::IfAddress& a : list) {
        LinuxMachine::Addresses& x = out[a.ifname];
        if (a.family == AF_INET) {
            x.v4.push_back(a.address);
            x.masks.push_back(a.netmask);
        } else if (a.family == AF_INET6) {
            x.v6.push_back(a.address);
            x.prefixes.push_back(std::to_string(a.prefix));
        }
    }
    return out;
}

LinuxMachine readLinuxMachine(const std::string& root, const char* helper) {
    using linuxfacts::readAttr;
    using linuxfacts::readFile;
    LinuxMachine m;
    const bool live = root.empty();
    const bool registry = std::strcmp(helper, "iokit") == 0;
    const std::string dmi = "/sys/class/dmi/id/";
    m.product = readAttr(root, dmi + "product_name");
    m.vendor = readAttr(root, dmi + "sys_vendor");
    m.serial = readAttr(root, dmi + "product_serial");
    m.uuid = readAttr(root, dmi + "product_uuid");
    linuxfacts::SmbiosTable smbios = linuxfacts::readSmbiosTable(root);
    m.smbiosTable.swap(smbios.bytes);
    m.smbiosState = smbios.state;
    m.smbiosSize = smbios.size;
    if (registry) {
        m.smbiosEntry.swap(smbios.entry);
        const std::string version = readFile(root, "/proc/version", 4096);
        m.kernelVersion = trim(version.substr(0, version.find('\n')));
        return m;
    }
    m.family = readAttr(root, dmi + "product_family");
    m.bios = readAttr(root, dmi + "bios_version");
    m.cpu = linuxfacts::parseCpuinfo(readFile(root, "/proc/cpuinfo"));
    m.maxKHz = linuxfacts::cpuMaxKHz(root);
    m.caches = linuxfacts::readCaches(root);
    m.osRelease = readFile(root, "/etc/os-release");
    m.uptime = std::atof(readFile(root, "/proc/uptime", 256).c_str());
    m.disks = linuxfacts::readBlockDevices(root);
    m.interfaces = linuxfacts::readInterfaces(root);
    for (const linuxfacts::NetInterface& i : m.interfaces)
        m.dhcp[i.name] = linuxfacts::hasDhcpLease(root, i.name, i.index);
    m.routes4 = readFile(root, "/proc/net/route");
    m.routes6 = readFile(root, "/proc/net/ipv6_route");
    m.resolver = linuxfacts::parseResolvConf(readFile(root, "/etc/resolv.conf"));
    if (live) {
        struct utsname u;
        if (::uname(&u) == 0) {
            m.sysname = u.sysname;
            m.release = u.release;
            m.nodename = u.nodename;
        }
        struct sysinfo si;
        if (::sysinfo(&si) == 0)
            m.memoryBytes = static_cast<std::uint64_t>(si.totalram) * si.mem_unit;
        m.addresses = liveAddresses();
    } else {
        const std::string meminfo = readFile(root, "/proc/meminfo");
        std::uint64_t kb = 0;
        if (hostfacts::meminfoKB(meminfo.data(), meminfo.size(), "MemTotal", &kb))
            m.memoryBytes = kb * 1024;
    }
    return m;
}

void buildSystemProfiler(const LinuxMachine& m, Node* root) {
    Node& sp = root->addChild("SystemProfiler");
    addHardware(m, &sp);
    addSoftware(m, &sp);
    if (!m.smbiosTable.empty()) addMemoryModules(&sp, m.smbiosTable);
    // Without modules the section still says why, so that the group can tell a
    // machine without a table from a scan that was not root.
    if (!sp.child("SPMemoryDataType"))
        sp.addChild("SPMemoryDataType")
            .addString("smbios_table", m.smbiosState == linuxfacts::SMBIOS_OK
                                           ? "no memory devices in the SMBIOS table"
                                           : linuxfacts::smbiosStateText(m.smbiosState));
    addDisks(m, &sp);
    addNetwork(m, &sp);
}

void buildRegistry(const LinuxMachine& m, Node* root) {
    Node tops;
    Node& r = tops.addChild("Root");
    if (!m.kernelVersion.empty()) r.addString("IOKitBuildVersion", m.kernelVersion);
    bool haveTable = !m.smbiosTable.empty() && m.smbiosTable.size() <= MAX_DATA;
    Node& classes = r.addChild("IOKitDiagnostics").addChild("Classes");
    classes.addInt("IORegistryEntry", 1);
    classes.addInt("IOPlatformExpertDevice", 1);
    classes.addInt("AppleACPIPlatformExpert", haveTable ? 1 : 0);
    classes.addInt("AppleSMBIOS", haveTable ? 1 : 0);

    Node& pe = r.addChild(m.product.empty() ? "Linux" : m.product);
    pe.addString("IOObjectClass", "IOPlatformExpertDevice");
    if (!m.product.empty()) pe.addString("model", m.product);
    if (!m.vendor.empty()) pe.addString("manufacturer", m.vendor);
    if (!m.serial.empty()) pe.addString("IOPlatformSerialNumber", m.serial);
    if (!m.uuid.empty()) pe.addString("IOPlatformUUID", upper(m.uuid));
    if (!m.smbiosTable.empty() && !haveTable)
        pe.addString("SMBIOS-omitted", std::to_string(m.smbiosTable.size()) +
                                           " bytes, more than a report value holds");
    else if (m.smbiosState == linuxfacts::SMBIOS_TOO_LARGE)
        pe.addString("SMBIOS-omitted",
                     std::to_string(m.smbiosSize) + " bytes, over the cap of an SMBIOS table");
    if (haveTable) {
        Node& smbios =
            pe.addChild("AppleACPIPlatformExpert").addChild("bios").addChild("AppleSMBIOS");
        smbios.addString("IOObjectClass", "AppleSMBIOS");
        smbios.addData("SMBIOS", m.smbiosTable);
        if (!m.smbiosEntry.empty()) smbios.addData("SMBIOS-EPS", m.smbiosEntry);
    }
    placeRegistry(root, std::move(tops));
}

bool gatherLive(const char* helper, Node* root, std::string* err) {
    (void)err;
    const LinuxMachine m = readLinuxMachine("", helper);
    if (std::strcmp(helper, "iokit") == 0) {
        buildRegistry(m, root);
        if (m.smbiosTable.size() > MAX_DATA || m.smbiosState == linuxfacts::SMBIOS_TOO_LARGE)
            std::fprintf(stderr, "%s: the SMBIOS table (%llu bytes) is too large and is left out\n",
                         helper, static_cast<unsigned long long>(m.smbiosSize));
    } else {
        buildSystemProfiler(m, root);
    }
    return true;
}

} // namespace report
