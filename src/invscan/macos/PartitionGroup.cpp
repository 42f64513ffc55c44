// Mounted file systems from getmntinfo without waiting on remote servers. Pseudo
// file systems and automounter placeholders are passed over; remote mounts may be
// left out with the group attribute "skipRemote". On a Linux host (the scanned
// host's kernel name decides) the list is what df lists by default: mounts of no
// size are left out, a mount point mounted over is listed once, and disk file
// systems without a code of their own take "Linux native".
#include "invscan/PartitionGroup.h"

#include "invscan/CcLog.h"
#include "invscan/HostFacts.h"
#include "invscan/String.h"
#include "invscan/ZelTableRow.h"
#include "invscan/host.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <strings.h>
#include <unordered_map>
#include <vector>

namespace {

const char* const SRC = "./../../../src/invscan/macos/PartitionGroup";
const char* const OP = "getTable()";
#define PART_TRACE(...) getCcLogHw()->traceMAX(__LINE__, SRC, OP, __VA_ARGS__)

const unsigned long FS_UNKNOWN = 65535, FS_LINUX_NATIVE = 0x83;

bool isDummy(const char* type, const char* from) {
    return strcasecmp(type, "autofs") == 0 || strcasecmp(type, "devfs") == 0 ||
           strcasecmp(type, "fdesc") == 0 || strcasecmp(type, "volfs") == 0 ||
           std::strncmp(from, "automount", 9) == 0;
}

bool isRemote(const char*, const char* type) {
    return strcasecmp(type, "nfs") == 0 || strcasecmp(type, "smbfs") == 0;
}

unsigned long getFstype(const char* type, bool linuxHost) {
    static const struct {
        const char* name;
        unsigned long code;
    } codes[] = {{"hfs", 256},  {"nfs", 260}, {"cd9660", 264}, {"udf", 264},
                 {"msdos", 14}, {"ntfs", 7},  {"smbfs", 282}};
    for (const auto& c : codes)
        if (strcasecmp(type, c.name) == 0) return c.code;
    if (linuxHost) {
        static const char* const native[] = {"ext2",     "ext3",     "ext4", "xfs", "btrfs",
                                             "jfs",      "reiserfs", "f2fs", "zfs", "nilfs2",
                                             "bcachefs", "squashfs", "erofs"};
        for (const char* n : native)
            if (strcasecmp(type, n) == 0) return FS_LINUX_NATIVE;
    }
    return FS_UNKNOWN;
}

// Linux's names of the file systems that have a Darwin code.
const char* darwinName(const char* type) {
    static const struct {
        const char* linuxName;
        const char* darwin;
    } names[] = {{"nfs4", "nfs"},   {"cifs", "smbfs"}, {"smb3", "smbfs"},  {"iso9660", "cd9660"},
                 {"vfat", "msdos"}, {"fat", "msdos"},  {"hfsplus", "hfs"}, {"ntfs3", "ntfs"}};
    for (const auto& n : names)
        if (std::strcmp(type, n.linuxName) == 0) return n.darwin;
    return type;
}

// Mount point and own type of each row of the last Linux table.
std::vector<std::pair<std::string, std::string>>& fsNames() {
    static std::vector<std::pair<std::string, std::string>> names;
    return names;
}

bool skipRemote(const ZelGroup& g) {
    const wchar_t* v = g.getGroupAttr(L"skipRemote");
    if (!v) return false;
    std::string t = String(v).trim().toLowerCase().toMultiByte();
    return t == "true" || t == "yes" || t == "on";
}

} // namespace

void splitRemoteMount(const char* from, const char* type, std::string* hostName,
                      std::string* path) {
    std::string name = from;
    if (strcasecmp(type, "nfs") == 0) {
        if (name.compare(0, 6, "ftp://") == 0) {
            *hostName = name.substr(6);
            *path = "/";
        } else if (name.find(':') != std::string::npos) {
            std::size_t c = name.find(':');
            *hostName = name.substr(0, c);
            *path = name.substr(c + 1);
        } else {
            *hostName = "localhost";
            *path = name;
        }
        return;
    }
    std::size_t at = name.find('@');
    std::string rest = at != std::string::npos ? name.substr(at + 1)
                       : name.size() >= 2      ? name.substr(2)
                                               : std::string();
    std::size_t slash = rest.find('/');
    *hostName = rest.substr(0, slash);
    *path = slash == std::string::npos ? std::string() : rest.substr(slash);
}

namespace {

// The mounts df lists by default: a later mount over the same point hides the
// earlier one, which keeps its place in the list; a device mounted again (a bind
// mount) is listed once, at its shortest mount point.
std::vector<const host::Statfs*> linuxView(host::Statfs* mounts, int n) {
    std::vector<const host::Statfs*> out;
    // The slots holding each mount point and each device, so that a table of many
    // thousand mounts is not compared pair by pair.
    std::unordered_map<std::string, std::vector<std::size_t>> byOn, byFrom;
    auto unlink = [](std::vector<std::size_t>& v, std::size_t k) {
        v.erase(std::remove(v.begin(), v.end(), k), v.end());
    };
    auto place = [&](std::size_t k, const host::Statfs* m) {
        if (out[k] == m) return;
        unlink(byOn[out[k]->f_mntonname], k);
        unlink(byFrom[out[k]->f_mntfromname], k);
        out[k] = m;
        byOn[m->f_mntonname].push_back(k);
        byFrom[m->f_mntfromname].push_back(k);
    };
    for (int i = 0; i < n; ++i) {
        const host::Statfs* m = &mounts[i];
        std::vector<std::size_t> same = byOn[m->f_mntonname];
        std::vector<std::size_t> device;
        if (m->f_mntfromname[0] == '/') device = byFrom[m->f_mntfromname];
        for (std::size_t k : same)
            place(k, m);
        for (std::size_t k : device)
            if (std::find(same.begin(), same.end(), k) == same.end() &&
                m->f_mntonname.size() < out[k]->f_mntonname.size())
                place(k, m);
        if (same.empty() && device.empty()) {
            out.push_back(m);
            byOn[m->f_mntonname].push_back(out.size() - 1);
            byFrom[m->f_mntfromname].push_back(out.size() - 1);
        }
    }
    return out;
}

// Block size times block count as a signed 64-bit product shifted by 10, the
// way the sizes have always been computed; the multiplication wraps instead of
// overflowing on a hostile count.
unsigned long long kilobytes(std::uint64_t bsize, std::uint64_t blocks) {
    const std::int64_t product = static_cast<std::int64_t>(bsize * blocks);
    return static_cast<unsigned long long>(product >> 10);
}

} // namespace

ZelTable* PartitionGroup::getTable() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC, OP, "hardware %s", "PartitionGroup");
    host::Statfs* mounts = nullptr;
    int n = host::getmntinfo(&mounts, MNT_NOWAIT);
    if (n <= 0 || !mounts) {
        log->traceMidExit(__LINE__, SRC, OP, "hardware %s", "no mounts");
        return nullptr;
    }
    const bool linuxHost = hostfacts::scannedHostIsLinux();
    std::vector<const host::Statfs*> list;
    if (linuxHost) {
        list = linuxView(mounts, n);
    } else {
        for (int i = 0; i < n; ++i)
            list.push_back(&mounts[i]);
    }
    const bool skip = skipRemote(*this);
    fsNames().clear();
    ZelTable* table = new ZelTable(getGroupId(), getGroupVersion());
    unsigned long index = 1;
    for (const host::Statfs* m : list) {
        const char* type = linuxHost ? darwinName(m->f_fstypename) : m->f_fstypename;
        const char* from = m->f_mntfromname.c_str();
        const char* on = m->f_mntonname.c_str();
        PART_TRACE("hardware FS [%s] [%s] [%s]", from, on, type);
        if (isDummy(type, from)) {
            PART_TRACE("hardware %s", "Filesystem reported as dummy");
            continue;
        }
        unsigned long partType = 1, media = 3;
        std::string hostName, path;
        bool remote = isRemote(from, type);
        if (remote) {
            PART_TRACE("hardware %s", "Remote filesystem");
            if (skip) continue;
            partType = 2;
            media = 4;
            splitRemoteMount(from, type, &hostName, &path);
        } else {
            if (linuxHost && m->f_blocks == 0) {
                PART_TRACE("hardware %s", "Filesystem of no size");
                continue;
            }
            bool cd = std::strcmp(type, "cd9660") == 0;
            PART_TRACE("hardware %s", cd ? "CD filesystem" : "Local filesystem");
            if (cd) media = 5;
        }
        unsigned long long total = kilobytes(m->f_bsize, m->f_blocks);
        unsigned long long avail = kilobytes(m->f_bsize, m->f_bavail);
        unsigned long fs = getFstype(type, linuxHost);
        PART_TRACE("hardware %s [%d]", "FS type", static_cast<int>(fs));
        ZelTableRow* row = new ZelTableRow();
        row->addAttrib(new ZelTableAttrib(1UL, index++));
        row->addAttrib(new ZelTableAttrib(2UL, partType));
        row->addAttrib(new ZelTableAttrib(3UL, media));
        row->addAttrib(new ZelTableAttrib(4UL, from));
        row->addAttrib(new ZelTableAttrib(5UL, total));
        row->addAttrib(new ZelTableAttrib(6UL, fs));
        row->addAttrib(new ZelTableAttrib(7UL, from));
        row->addAttrib(new ZelTableAttrib(8UL, on));
        row->addAttrib(new ZelTableAttrib(9UL, total));
        row->addAttrib(new ZelTableAttrib(10UL, avail));
        row->addAttrib(new ZelTableAttrib(11UL, hostName.c_str()));
        row->addAttrib(new ZelTableAttrib(12UL, path.c_str()));
        table->addRow(row);
        if (linuxHost) fsNames().emplace_back(on, m->f_fstypename);
    }
    log->traceMidExit(__LINE__, SRC, OP, "hardware %s", "PartitionGroup");
    return table;
}

std::string partitionFsName(unsigned long index, const char* mountPoint) {
    const auto& names = fsNames();
    if (index < 1 || index > names.size() || !mountPoint) return std::string();
    const auto& n = names[index - 1];
    return n.first == mountPoint ? n.second : std::string();
}
