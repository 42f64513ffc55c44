// Linux answers to the Darwin-named calls, from /proc, /sys, sysinfo, statvfs and
// the mount table. Names that Linux cannot answer fail with ENOENT as an unknown
// sysctl name does on Darwin.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64 // 64-bit sizes and inode numbers on 32-bit Linux too
#endif
#include "common/host/host_internal.h"
#include "common/host/linux_facts.h"
#include "invscan/HostFacts.h"

#include "invscan/CcLog.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <ifaddrs.h>
#include <unordered_map>
#include <memory>
#include <mutex>
#include <net/if.h>
#include <netinet/in.h>
#include <system_error>
#include <thread>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <ctime>
#include <fcntl.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace host {
namespace {

std::string readText(const std::string& path) {
    return linuxfacts::readFile("", path);
}

using linuxfacts::toInt64;
using linuxfacts::trim;

// /proc/meminfo value in bytes ("MemTotal:  16318504 kB").
bool meminfo(const std::string& text, const char* key, std::uint64_t* bytes) {
    std::uint64_t kb;
    if (!hostfacts::meminfoKB(text.data(), text.size(), key, &kb)) return false;
    *bytes = kb * 1024u;
    return true;
}

const linuxfacts::CpuInfo& cpu() {
    static linuxfacts::CpuInfo c;
    static bool read = false;
    if (read) return c;
    read = true;
    c = linuxfacts::parseCpuinfo(readText("/proc/cpuinfo"));
    if (c.logical == 0) c.cores = c.logical = sysconf(_SC_NPROCESSORS_CONF);
    return c;
}

// Cache size in bytes of the first cache of `level` and `type` of CPU 0.
std::int64_t cacheSize(int level, const char* type) {
    return linuxfacts::cacheBytes(linuxfacts::readCaches(""), level, type);
}

std::int64_t cpuMaxHz() {
    const std::int64_t khz = linuxfacts::cpuMaxKHz("");
    if (khz > 0) return khz * 1000;
    if (cpu().maxMhz > 0) return static_cast<std::int64_t>(cpu().maxMhz * 1000000.0);
    return -1;
}

bool hasFlag(const char* f) {
    return cpu().flags.find(std::string(" ") + f + " ") != std::string::npos;
}

// When the system was installed: the root file system's birth time, else the
// Debian installer's log folder. UTC, in the form the Mac install log uses. A
// birth time of 0 is a file system that does not keep one.
std::string installDate() {
    const char* const paths[] = {"/", "/var/log/installer"};
    for (const char* p : paths) {
        struct statx sx;
        if (::statx(AT_FDCWD, p, 0, STATX_BTIME, &sx) != 0 || !(sx.stx_mask & STATX_BTIME) ||
            sx.stx_btime.tv_sec <= 0)
            continue;
        std::time_t t = static_cast<std::time_t>(sx.stx_btime.tv_sec);
        struct tm tmv;
        char buf[64];
        if (::gmtime_r(&t, &tmv) && std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S +0000", &tmv))
            return buf;
    }
    return std::string();
}

bool lookup(const std::string& name, SysctlValue* v) {
    const linuxfacts::CpuInfo& c = cpu();
    struct sysinfo si;
    if (name == "hw.memsize" || name == "hw.physmem") {
        if (::sysinfo(&si) != 0) return false;
        std::uint64_t bytes = static_cast<std::uint64_t>(si.totalram) * si.mem_unit;
        if (name == "hw.memsize")
            *v = SysctlValue::i64(static_cast<std::int64_t>(bytes));
        else
            *v = SysctlValue::i32(bytes > INT32_MAX ? INT32_MAX : static_cast<std::int64_t>(bytes));
        return true;
    }
    if (name == "hw.pagesize") {
        *v = SysctlValue::i64(sysconf(_SC_PAGESIZE));
        return true;
    }
    if (name == "vm.swapusage") {
        std::string mi = readText("/proc/meminfo");
        std::uint64_t total = 0, avail = 0;
        if (!meminfo(mi, "SwapTotal", &total) || !meminfo(mi, "SwapFree", &avail)) return false;
        XswUsage u;
        std::memset(&u, 0, sizeof u);
        u.xsu_total = total;
        u.xsu_avail = avail;
        u.xsu_used = total >= avail ? total - avail : 0;
        u.xsu_pagesize = static_cast<std::uint32_t>(sysconf(_SC_PAGESIZE));
        *v = SysctlValue::raw(&u, sizeof u);
        return true;
    }
    if (name == "machdep.cpu.brand_string" && !c.brand.empty()) {
        *v = SysctlValue::str(c.brand);
        return true;
    }
    if (name == "machdep.cpu.vendor" && !c.vendor.empty()) {
        *v = SysctlValue::str(c.vendor);
        return true;
    }
    if (name == "machdep.cpu.features" && !c.flags.empty()) {
        *v = SysctlValue::str(trim(c.flags));
        return true;
    }
    if (c.family >= 0 && c.model >= 0 && c.stepping >= 0) {
        // CPUID leaf 1 EAX from the decoded family / model / stepping.
        std::int64_t fam = c.family, mod = c.model;
        std::int64_t baseFam = fam >= 15 ? 15 : fam, extFam = fam >= 15 ? fam - 15 : 0;
        const std::pair<const char*, std::int64_t> ids[] = {
            {"machdep.cpu.signature", (extFam << 20) | ((mod >> 4) << 16) | (baseFam << 8) |
                                          ((mod & 15) << 4) | (c.stepping & 15)},
            {"machdep.cpu.family", fam},
            {"machdep.cpu.model", mod},
            {"machdep.cpu.stepping", c.stepping},
            {"machdep.cpu.extfamily", extFam},
            {"machdep.cpu.extmodel", mod >> 4}};
        for (const auto& k : ids)
            if (name == k.first) {
                *v = SysctlValue::i32(k.second);
                return true;
            }
    }
    // Counts; a zero per-package figure means /proc/cpuinfo did not say.
    const struct {
        const char* n1;
        const char* n2;
        std::int64_t value;
        bool known;
    } counts[] = {
        {"machdep.cpu.cores_per_package", nullptr, c.coresPerPackage, c.coresPerPackage > 0},
        {"machdep.cpu.logical_per_package", nullptr, c.logicalPerPackage, c.logicalPerPackage > 0},
        {"machdep.cpu.core_count", nullptr, c.cores, true},
        {"machdep.cpu.thread_count", nullptr, c.logical, true},
        {"hw.packages", nullptr, c.packages, true},
        {"hw.physicalcpu_max", "hw.physicalcpu", c.cores, true},
        {"hw.logicalcpu_max", "hw.ncpu", c.logical, true}};
    for (const auto& k : counts)
        if (k.known && (name == k.n1 || (k.n2 && name == k.n2))) {
            *v = SysctlValue::i32(k.value);
            return true;
        }
    if (name == "machdep.cpu.cache.size") {
        std::int64_t l2 = cacheSize(2, "Unified");
        if (l2 < 0) return false;
        *v = SysctlValue::i32(l2 >> 10); // kilobytes, as Darwin gives it
        return true;
    }
    if (name == "hw.logicalcpu" || name == "hw.activecpu") {
        *v = SysctlValue::i32(sysconf(_SC_NPROCESSORS_ONLN));
        return true;
    }
    struct {
        const char* n;
        int level;
        const char* type;
    } caches[] = {{"hw.l1icachesize", 1, "Instruction"},
                  {"hw.l1dcachesize", 1, "Data"},
                  {"hw.l2cachesize", 2, "Unified"},
                  {"hw.l3cachesize", 3, "Unified"}};
    for (const auto& k : caches) {
        if (name == k.n) {
            std::int64_t s = cacheSize(k.level, k.type);
            if (s < 0) return false;
            *v = SysctlValue::i64(s);
            return true;
        }
    }
    if (name == "hw.cpufrequency" || name == "hw.cpufrequency_max") {
        std::int64_t hz = cpuMaxHz();
        if (hz <= 0) return false;
        *v = SysctlValue::i64(hz);
        return true;
    }
    if (name == "hw.cpu64bit_capable" || name == "hw.optional.x86_64") {
        struct utsname u;
        bool x86 = !c.vendor.empty();
        if (name == "hw.optional.x86_64" && !x86) return false;
        bool is64 =
            x86 ? hasFlag("lm") : (::uname(&u) == 0 && (std::strstr(u.machine, "64") != nullptr));
        *v = SysctlValue::i32(is64 ? 1 : 0);
        return true;
    }
    if (name == "hw.byteorder") {
        const std::uint16_t one = 1;
        *v = SysctlValue::i32(*reinterpret_cast<const unsigned char*>(&one) ? 1234 : 4321);
        return true;
    }
    struct utsname u;
    if (::uname(&u) == 0) {
        const std::pair<const char*, const char*> fields[] = {{"hw.machine", u.machine},
                                                              {"kern.ostype", u.sysname},
                                                              {"kern.osrelease", u.release},
                                                              {"kern.version", u.version},
                                                              {"kern.hostname", u.nodename}};
        for (const auto& f : fields)
            if (name == f.first) {
                *v = SysctlValue::str(f.second);
                return true;
            }
    }
    if (name == "kern.install_date") {
        std::string d = installDate();
        if (d.empty()) return false;
        *v = SysctlValue::str(d);
        return true;
    }
    if (name == "hw.model") {
        std::string m = trim(readText("/sys/class/dmi/id/product_name"));
        if (m.empty()) return false;
        *v = SysctlValue::str(m);
        return true;
    }
    return false;
}

const char* mibName(const int* mib, unsigned n) {
    if (n != 2) return nullptr;
    if (mib[0] == CTL_HW) {
        switch (mib[1]) {
        case HW_NCPU:
            return "hw.ncpu";
        case HW_PHYSMEM:
            return "hw.physmem";
        case HW_PAGESIZE:
            return "hw.pagesize";
        case HW_CPU_FREQ:
            return "hw.cpufrequency";
        case HW_L2CACHESIZE:
            return "hw.l2cachesize";
        case HW_L3CACHESIZE:
            return "hw.l3cachesize";
        case HW_MEMSIZE:
            return "hw.memsize";
        default:
            return nullptr; // HW_BUS_FREQ has no Linux source
        }
    }
    if (mib[0] == CTL_VM && mib[1] == VM_SWAPUSAGE) return "vm.swapusage";
    return nullptr;
}

// The mount's own type, but for what df leaves out by default (proc, sysfs, cgroup
// and the other kernel views): those are reported as devfs, which the partition
// scan passes over; tmpfs and devtmpfs hold memory and are listed, as df does. The
// partition scan gives Linux types their codes itself, so nfs4 stays nfs4.
std::string darwinFsType(const std::string& type) {
    static const char* const pseudo[] = {
        "proc",        "sysfs",       "cgroup", "cgroup2",  "devpts",    "securityfs", "debugfs",
        "tracefs",     "pstore",      "bpf",    "mqueue",   "hugetlbfs", "configfs",   "fusectl",
        "binfmt_misc", "rpc_pipefs",  "nsfs",   "efivarfs", "selinuxfs", "autofs",     "nfsd",
        "devfs",       "fuse.portal", "subfs",  "kernfs",   "ignore"};
    for (const char* p : pseudo)
        if (type == p) return "devfs";
    return type;
}

// File systems whose statistics come from a server that may not answer.
bool isNetworkFs(const std::string& type) {
    static const char* const net[] = {"nfs",   "nfs4", "cifs",       "smb3",
                                      "smbfs", "ceph", "fuse.sshfs", "fuse.glusterfs",
                                      "afs",   "9p",   "fuse.s3fs",  "davfs"};
    for (const char* n : net)
        if (type == n) return true;
    return false;
}

const char* g_mountTable = "/proc/self/mounts";

// The mount table's text; false when it cannot be opened. A table larger than the
// reader's bound is cut at its last whole line.
// A host of 100,000 mounts has a table of about 10 MB; past this the rest is dropped
// and the trace says so.
const std::size_t MAX_MOUNT_TABLE = 32u << 20;

bool readMountTable(const char* path, std::string* out) {
    if (::access(path, R_OK) != 0) return false;
    *out = linuxfacts::readFile("", path, MAX_MOUNT_TABLE);
    if (out->size() >= MAX_MOUNT_TABLE) {
        out->erase(out->find_last_of('\n') + 1);
        getCcLogHw()->traceMIN(__LINE__, "./../../../src/common/host/host_linux", "mounts()",
                               "hardware %s is longer than %u MiB: the mounts past it are left out",
                               path, static_cast<unsigned>(MAX_MOUNT_TABLE >> 20));
    }
    return true;
}
StatvfsFn g_statvfs = ::statvfs;
unsigned g_remoteTimeoutMs = 1000;

struct PendingStat {
    std::mutex lock;
    std::condition_variable doneCv;
    bool done = false;
    int rc = -1;
    struct statvfs sv;
};

// statvfs of a network mount on a thread of its own, so that a dead server costs
// the bound and not the scan; the thread is left to finish (or not) by itself.
int boundedStatvfs(const std::string& dir, struct statvfs* out, unsigned ms) {
    auto p = std::make_shared<PendingStat>();
    StatvfsFn fn = g_statvfs;
    try {
        std::thread([p, dir, fn] {
            struct statvfs sv;
            int rc = fn(dir.c_str(), &sv);
            std::lock_guard<std::mutex> g(p->lock);
            p->rc = rc;
            p->sv = sv;
            p->done = true;
            p->doneCv.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        return -1;
    }
    std::unique_lock<std::mutex> g(p->lock);
    if (!p->doneCv.wait_for(g, std::chrono::milliseconds(ms), [&] { return p->done; })) return -2;
    if (p->rc == 0) *out = p->sv;
    return p->rc;
}

// The kernel's interface list: every interface, up or down, with its addresses
// (labelled ones under the interface they label) and hardware address.
std::vector<InterfaceFacts> readInterfaces() {
    std::vector<InterfaceFacts> out;
    std::unordered_map<std::string, std::size_t> byName;
    for (const linuxfacts::NetInterface& s : linuxfacts::readInterfaces("")) {
        InterfaceFacts i;
        i.name = s.name;
        i.index = static_cast<unsigned>(s.index);
        i.flags = s.flags;
        // /sys keeps the administrative flags; RUNNING is the link's state.
        if (s.operstate == "up" || (s.operstate == "unknown" && (s.flags & IFF_UP)))
            i.flags |= IFF_RUNNING;
        i.mtu = s.mtu;
        if (s.arphrd == 1 && !s.mac.empty() && s.mac != "00:00:00:00:00:00") i.mac = s.mac;
        byName.emplace(i.name, out.size());
        out.push_back(i);
    }
    for (const linuxfacts::IfAddress& a : linuxfacts::readAddresses()) {
        auto it = byName.find(a.ifname);
        if (it == byName.end()) {
            // Gone from /sys between the two reads, or /sys not mounted.
            InterfaceFacts i;
            i.name = a.ifname;
            it = byName.emplace(i.name, out.size()).first;
            out.push_back(i);
        }
        InterfaceFacts::Address ad;
        ad.family = a.family;
        ad.address = a.address;
        if (a.family == AF_INET) {
            std::uint32_t mask = a.prefix ? ~std::uint32_t(0) << (32 - a.prefix) : 0;
            char hex[16];
            std::snprintf(hex, sizeof hex, "0x%08x", mask);
            ad.netmask = hex;
            ad.broadcast = a.broadcast;
        }
        ad.prefix = a.prefix;
        ad.scopeId = a.scopeId;
        out[it->second].addresses.push_back(ad);
    }
    return out;
}

// "ifconfig -a" and "/sbin/ifconfig -a", with any redirection after them.
bool isInterfaceCommand(const char* command) {
    for (const char* c : {"ifconfig -a", "/sbin/ifconfig -a"}) {
        std::size_t n = std::strlen(c);
        if (std::strncmp(command, c, n) == 0 && (command[n] == '\0' || command[n] == ' '))
            return true;
    }
    return false;
}

class LinuxBackend : public PosixBackend {
public:
    const char* name() const override { return "linux"; }

    int sysctlbyname(const char* name, void* oldp, std::size_t* oldlenp) override {
        SysctlValue v;
        if (!lookup(name, &v)) {
            errno = ENOENT;
            return -1;
        }
        return answerSysctl(v, oldp, oldlenp);
    }

    int sysctl(const int* mib, unsigned n, void* oldp, std::size_t* oldlenp) override {
        const char* nm = mibName(mib, n);
        if (!nm) {
            errno = ENOENT;
            return -1;
        }
        return sysctlbyname(nm, oldp, oldlenp);
    }

    kern_return_t hostPageSize(std::size_t* pageSize) override {
        long p = sysconf(_SC_PAGESIZE);
        if (p <= 0) return KERN_FAILURE;
        *pageSize = static_cast<std::size_t>(p);
        return KERN_SUCCESS;
    }

    kern_return_t hostStatistics(VmStatistics* info) override {
        std::string mi = readText("/proc/meminfo");
        long page = sysconf(_SC_PAGESIZE);
        std::uint64_t freeB = 0, active = 0, inactive = 0;
        if (page <= 0 || !meminfo(mi, "MemFree", &freeB) || !meminfo(mi, "Active", &active) ||
            !meminfo(mi, "Inactive", &inactive))
            return KERN_FAILURE;
        std::uint64_t wired = 0, x = 0;
        const char* wiredKeys[] = {"Unevictable", "KernelStack", "PageTables", "SUnreclaim"};
        for (const char* k : wiredKeys)
            if (meminfo(mi, k, &x)) wired += x;
        std::memset(info, 0, sizeof *info);
        auto pages = [page](std::uint64_t b) {
            std::uint64_t p = b / static_cast<std::uint64_t>(page);
            return static_cast<std::uint32_t>(p > UINT32_MAX ? UINT32_MAX : p);
        };
        info->free_count = pages(freeB);
        info->active_count = pages(active);
        info->inactive_count = pages(inactive);
        info->wire_count = pages(wired);
        const std::string vm = readText("/proc/vmstat");
        const struct {
            const char* key;
            std::uint32_t* field;
        } counters[] = {
            {"pgfault", &info->faults}, {"pswpin", &info->pageins}, {"pswpout", &info->pageouts}};
        for (const auto& c : counters) {
            std::uint64_t v;
            if (linuxfacts::vmstatValue(vm, c.key, &v)) *c.field = static_cast<std::uint32_t>(v);
        }
        return KERN_SUCCESS;
    }

    bool mounts(Statfs** out, int* count) override {
        std::string table;
        if (!readMountTable(g_mountTable, &table) &&
            !(std::strcmp(g_mountTable, "/proc/self/mounts") == 0 &&
              readMountTable("/etc/mtab", &table)))
            return false;
        m_mounts.clear();
        for (const linuxfacts::Mount& m : linuxfacts::parseMounts(table)) {
            struct {
                const char* mnt_type;
                const char* mnt_dir;
                const char* mnt_fsname;
            } ent = {m.type.c_str(), m.on.c_str(), m.from.c_str()};
            Statfs s{};
            std::string type = darwinFsType(ent.mnt_type);
            copyField(s.f_fstypename, sizeof s.f_fstypename, type.c_str());
            copyField(s.f_mntonname, PATH_LEN, ent.mnt_dir);
            copyField(s.f_mntfromname, PATH_LEN, ent.mnt_fsname);
            struct statvfs sv;
            int rc = -1;
            if (type != "devfs") {
                if (isNetworkFs(ent.mnt_type)) {
                    rc = boundedStatvfs(ent.mnt_dir, &sv, g_remoteTimeoutMs);
                    if (rc == -2)
                        getCcLogHw()->traceMIN(
                            __LINE__, "./../../../src/common/host/host_linux", "mounts()",
                            "hardware %s [%s] did not answer within %u ms: sizes 0", ent.mnt_type,
                            ent.mnt_dir, g_remoteTimeoutMs);
                } else {
                    rc = g_statvfs(ent.mnt_dir, &sv);
                }
            }
            if (rc == 0) {
                // statfs counts in f_bsize units; statvfs counts in f_frsize units.
                unsigned long unit = sv.f_frsize ? sv.f_frsize : sv.f_bsize;
                s.f_bsize = static_cast<std::uint32_t>(unit);
                s.f_iosize = static_cast<std::int32_t>(sv.f_bsize);
                s.f_blocks = sv.f_blocks;
                s.f_bfree = sv.f_bfree;
                s.f_bavail = sv.f_bavail;
                s.f_files = sv.f_files;
                s.f_ffree = sv.f_ffree;
                s.f_flags = static_cast<std::uint32_t>(sv.f_flag & 1); // MNT_RDONLY
            }
            m_mounts.push_back(s);
        }
        *out = m_mounts.empty() ? nullptr : &m_mounts[0];
        *count = static_cast<int>(m_mounts.size());
        return true;
    }

    std::FILE* popen(const char* command) override {
        if (isInterfaceCommand(command)) return m_commands.open(ifconfigText(readInterfaces()), 0);
        return PosixBackend::popen(command);
    }

    int pclose(std::FILE* stream) override {
        int rc = m_commands.close(stream);
        if (rc == -1 && errno == ECHILD) return PosixBackend::pclose(stream);
        return rc;
    }

private:
    std::vector<Statfs> m_mounts;
    bundle::CommandFiles m_commands;
};

} // namespace

void setLinuxMountSource(const char* mountTable, StatvfsFn fn, unsigned remoteTimeoutMs) {
    g_mountTable = mountTable ? mountTable : "/proc/self/mounts";
    g_statvfs = fn ? fn : ::statvfs;
    g_remoteTimeoutMs = remoteTimeoutMs ? remoteTimeoutMs : 1000;
}

Backend* liveBackend() {
    static LinuxBackend b;
    return &b;
}

} // namespace host
