// What Linux keeps in /proc and /sys, read apart from how it is parsed. Each parser
// takes the text; each reader takes a root folder ("" for this machine, or a captured
// tree of another one) and reads at most a bounded number of bytes a file. The host
// backend and the helpers' gathering share them, so each file has one parser.
#ifndef INVSCAN_LINUX_FACTS_H
#define INVSCAN_LINUX_FACTS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace linuxfacts {

// The largest file a reader takes; the rest of a longer one is not read.
const std::size_t MAX_FILE = 1u << 20;

// The text without blanks (and line ends) around it.
std::string trim(const std::string& s);
// The last component of a path.
std::string baseName(const std::string& path);
// A decimal number at the start of `s` (blanks around it allowed).
bool toInt64(const std::string& s, std::int64_t* v);

// `path` below `root`: at most `cap` bytes; empty when it cannot be read.
std::string readFile(const std::string& root, const std::string& path, std::size_t cap = MAX_FILE);
// The first line of a sysfs attribute, without its blanks.
std::string readAttr(const std::string& root, const std::string& path);
// The names in a folder, sorted; empty when it cannot be read.
std::vector<std::string> listDir(const std::string& root, const std::string& path);
bool exists(const std::string& root, const std::string& path);

// /proc/cpuinfo. Counts are 0 and numbers -1 when the text does not give them.
struct CpuInfo {
    std::string vendor; // vendor_id
    std::string brand;  // model name; Processor (older ARM kernels); cpu model (MIPS)
    std::string board;  // Model or Hardware (ARM boards)
    std::string flags;  // " flag flag ... " (flags, or Features on ARM), blank-framed
    std::int64_t family = -1, model = -1, stepping = -1;
    std::int64_t logical = 0;  // processor entries
    std::int64_t cores = 0;    // distinct physical id / core id pairs (logical when none)
    std::int64_t packages = 0; // distinct physical ids (1 when none)
    std::int64_t coresPerPackage = -1, logicalPerPackage = -1; // cpu cores, siblings
    double mhz = 0;                                            // the first cpu MHz
    double maxMhz = 0;                                         // the highest cpu MHz
    std::string implementer;                                   // CPU implementer (ARM): "0x41"
};
CpuInfo parseCpuinfo(const std::string& text);

// Who made the processor, from the x86 vendor id ("AuthenticAMD": "AMD") or else the
// ARM implementer code ("0x41": "Arm"); empty when neither is one we know.
std::string cpuMaker(const std::string& vendorId, const std::string& implementer);

// The processor's clock in MHz: cpufreq's cpuinfo_max_freq (its text, in kHz), else
// the highest cpu MHz of /proc/cpuinfo, rounded; -1 when neither gives one.
std::int64_t cpuMHz(const std::string& maxFreqText, const CpuInfo& cpu);

// A byte count written as plain decimal digits ("274877906944"); false for anything
// else or more than 64 bits hold.
bool parseByteCount(const std::string& text, std::uint64_t* bytes);
// A size as the gathering writes it for people ("274.88 GB", "650 MB", "512 bytes"),
// in bytes of decimal units; false when the text is not one.
bool parseDecimalSize(const std::string& text, std::uint64_t* bytes);
// Whole megabytes of 10^6 bytes, held at the 32-bit maximum.
std::uint32_t decimalMB(std::uint64_t bytes);
// A KB count in a 32-bit field: held at the maximum (4 TiB) rather than wrapped.
std::uint32_t kbField(std::uint64_t kb);

// The firmware's SMBIOS structure table (/sys/firmware/dmi/tables/DMI), read whole,
// and why it is missing when it is: a machine without one (no DMI in sysfs) is told
// apart from a scan that is not root.
enum SmbiosState {
    SMBIOS_OK,
    SMBIOS_ABSENT,
    SMBIOS_NEEDS_ROOT,
    SMBIOS_UNREADABLE,
    SMBIOS_TOO_LARGE
};
// A 2.x entry point gives the table's length in 16 bits; a 3.x one gives a 32-bit
// maximum, which real firmware keeps far below this.
const char* const SMBIOS_TABLE_PATH = "/sys/firmware/dmi/tables/DMI";
const std::size_t MAX_SMBIOS_2 = 0xFFFF;
const std::size_t MAX_SMBIOS_3 = 8u << 20;
struct SmbiosTable {
    SmbiosState state = SMBIOS_ABSENT;
    std::string bytes;      // the table; empty unless SMBIOS_OK
    std::string entry;      // smbios_entry_point
    std::uint64_t size = 0; // the table's size in the file system, also when refused
};
SmbiosTable readSmbiosTable(const std::string& root);
// "no SMBIOS table", "the SMBIOS table needs root", ... for traces and messages.
const char* smbiosStateText(SmbiosState state);

// A cache size as sysfs writes it ("32K", "8192K", "1M", "512"): bytes, or -1.
std::int64_t parseCacheSize(const std::string& text);

// The highest clock of processor 0 in kHz (cpufreq's cpuinfo_max_freq), or -1.
std::int64_t cpuMaxKHz(const std::string& root);

// The caches of processor 0, from /sys/devices/system/cpu/cpu0/cache/index*.
struct Cache {
    int level = 0;
    std::string type; // Data, Instruction, Unified
    std::int64_t bytes = -1;
};
std::vector<Cache> readCaches(const std::string& root);
// Bytes of the first cache of `level` whose type is `type`, or of any type but
// Instruction when `type` is null; -1 when there is none.
std::int64_t cacheBytes(const std::vector<Cache>& caches, int level, const char* type);

// /proc/self/mounts (the fstab format): the fields with their octal escapes undone.
struct Mount {
    std::string from, on, type, options;
};
std::vector<Mount> parseMounts(const std::string& text);

// The network interfaces in /sys/class/net, by interface index.
struct NetInterface {
    std::string name;
    int index = 0;
    int arphrd = -1; // type: 1 Ethernet, 772 loopback, 512 PPP
    std::string mac; // address
    unsigned mtu = 0;
    std::string operstate; // up, down, unknown
    bool device = false, wireless = false, bridge = false;
    bool vlan = false; // listed in /proc/net/vlan
    bool bond = false, tun = false;
    int iflink = 0;              // the peer's or lower device's index (veth, VLAN)
    unsigned flags = 0;          // IFF_* bits
    std::string master;          // the bridge or bond it is enslaved to
    std::int64_t speedMbps = -1; // speed; -1 when the driver does not say
    std::string duplex;          // full, half, unknown
};
std::vector<NetInterface> readInterfaces(const std::string& root);
// What an interface is, for people: "Ethernet", "Wireless", "Bridge", "Bond", "VLAN",
// "veth", "tun", "PPP", "Loopback" or "Virtual"; physical when a device backs it.
std::string interfaceKind(const NetInterface& i);

// One address of an interface as the kernel lists it. An IPv4 address added with a
// label ("eth0:1") belongs to the interface the label starts with.
struct IfAddress {
    std::string ifname, label;
    int family = 0;                          // AF_INET or AF_INET6
    std::string address, netmask, broadcast; // netmask and broadcast dotted, IPv4 only
    unsigned prefix = 0;
    unsigned scopeId = 0;
};
// Every address of every interface of this machine, in the kernel's order.
std::vector<IfAddress> readAddresses();
// The leading one bits of a mask of `n` bytes.
unsigned prefixLength(const unsigned char* mask, std::size_t n);
// The interface a label names: "eth0:1" gives "eth0" (interface names hold no colon).
std::string labelInterface(const std::string& label);

// Whether a DHCP client keeps a lease (or runs) for the interface: networkd,
// dhclient (Debian and Red Hat paths) or dhcpcd.
bool hasDhcpLease(const std::string& root, const std::string& ifname, int ifindex);

// A disk of /sys/block with what its device, and the devices above it, say of it.
struct BlockDevice {
    std::string name;          // sda, nvme0n1, vda, sr0
    std::string path;          // the device's own folder, links resolved, below the root
    std::uint64_t sectors = 0; // 512-byte units
    std::string model, vendor, serial, rev;
    bool removable = false, solidState = false;
    std::string pciDriver; // driver of the nearest PCI device above the disk
    // USB: the nearest device above it with an idVendor, and the bus (usbN) it hangs on.
    std::string usbDevice, usbProduct, usbIdProduct, usbIdVendor, usbSerial, usbManufacturer;
    std::string usbBus, usbBusProduct;
};
std::vector<BlockDevice> readBlockDevices(const std::string& root);
// The unit serial number of a SCSI VPD page 0x80 (vpd_pg80), without blanks.
std::string parseVpdSerial(const std::string& page);
// The last component of `path` that looks like a PCI address (0000:00:1f.2), searching
// back from byte `before`, with the path up to it; empty when there is none.
std::string pciBefore(const std::string& path, std::size_t before);

// /proc/vmstat ("pgfault 123" lines): the value of `key`; false when absent.
bool vmstatValue(const std::string& text, const char* key, std::uint64_t* value);

// /proc/net/route and /proc/net/ipv6_route: the default router of `ifname` as text,
// empty when it has none.
std::string defaultRouter4(const std::string& routeText, const std::string& ifname);
// The same for every interface at once: a host of thousands of interfaces reads its
// route tables once.
std::unordered_map<std::string, std::string> defaultRouters4(const std::string& routeText);
std::unordered_map<std::string, std::string> defaultRouters6(const std::string& routeText);
std::string defaultRouter6(const std::string& routeText, const std::string& ifname);

// /etc/resolv.conf: every name server, and the search list (the last "search" or
// "domain" line wins, as the resolver has it).
struct Resolver {
    std::vector<std::string> servers, search;
};
Resolver parseResolvConf(const std::string& text);

} // namespace linuxfacts

#endif
