// Wraps a live backend and writes every answer into a bundle directory, in the
// layout the replay backend reads. Answers are appended as they are given, so a
// scan that stops half way still leaves a usable bundle; within one process each
// key is written once (replay takes the first line of a key anyway).
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64 // 64-bit sizes and inode numbers on 32-bit Linux too
#endif
#include "common/host/host_internal.h"
#include "invscan/SafeFile.h"

#include <arpa/inet.h>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <set>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {
namespace {

std::string hexOf(const std::string& b) {
    static const char H[] = "0123456789abcdef";
    std::string o;
    for (unsigned char c : b) {
        o += H[c >> 4];
        o += H[c & 15];
    }
    return o;
}

std::string readAll(std::FILE* f) {
    std::string s;
    char buf[8192];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0 && s.size() < bundle::MAX_FILE)
        s.append(buf, n);
    return s;
}

class RecordBackend : public Backend {
public:
    RecordBackend(Backend* inner, int dirfd) : m_in(inner), m_dir(dirfd) {
        // The first process of a recording writes the header and marks the bundle
        // incomplete; helper programs that join it find the header and add theirs.
        if (::faccessat(m_dir, "bundle.txt", F_OK, AT_SYMLINK_NOFOLLOW) != 0) {
            char when[64] = "";
            std::time_t now = std::time(nullptr);
            struct tm tmv;
            if (::gmtime_r(&now, &tmv))
                std::strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%SZ", &tmv);
            check(bundle::writeFile(m_dir, nullptr, bundle::INCOMPLETE,
                                    "this bundle's recording has not finished\n"),
                  bundle::INCOMPLETE);
            check(bundle::writeFile(m_dir, nullptr, "bundle.txt",
                                    std::string(bundle::HEADER) + "\n# recorded " + when +
                                        " from the " + inner->name() + " backend\n"),
                  "bundle.txt");
            m_marked = true;
        }
    }
    ~RecordBackend() override { ::close(m_dir); }
    const char* name() const override { return "record"; }

    int sysctlbyname(const char* name, void* oldp, std::size_t* oldlenp) override {
        int r = m_in->sysctlbyname(name, oldp, oldlenp);
        if (r == 0 && oldp) keepSysctl(name, oldp, *oldlenp);
        return r;
    }

    int sysctl(const int* mib, unsigned n, void* oldp, std::size_t* oldlenp) override {
        int r = m_in->sysctl(mib, n, oldp, oldlenp);
        if (r == 0 && oldp) keepSysctl(mibKey(mib, n), oldp, *oldlenp);
        return r;
    }

    kern_return_t hostPageSize(std::size_t* pageSize) override {
        kern_return_t kr = m_in->hostPageSize(pageSize);
        if (kr == KERN_SUCCESS) keep("host.txt", {"page_size", std::to_string(*pageSize)});
        return kr;
    }

    kern_return_t hostStatistics(VmStatistics* info) override {
        kern_return_t kr = m_in->hostStatistics(info);
        if (kr == KERN_SUCCESS) {
            const std::uint32_t* f = &info->free_count;
            for (int i = 0; i < static_cast<int>(VM_INFO_FIELDS); ++i)
                keep("host.txt", {std::string("vm.") + vmFieldNames()[i], std::to_string(f[i])});
        }
        return kr;
    }

    bool mounts(Statfs** out, int* count) override {
        if (!m_in->mounts(out, count)) return false;
        if (m_seen.insert("mounts.txt").second) {
            std::string text =
                "# type\tfrom\ton\tbsize\tiosize\tblocks\tbfree\tbavail\tfiles\tffree\tflags\n";
            for (int i = 0; i < *count; ++i) {
                const Statfs& s = (*out)[i];
                text += bundle::formatLine({s.f_fstypename, s.f_mntfromname, s.f_mntonname,
                                            std::to_string(s.f_bsize), std::to_string(s.f_iosize),
                                            std::to_string(s.f_blocks), std::to_string(s.f_bfree),
                                            std::to_string(s.f_bavail), std::to_string(s.f_files),
                                            std::to_string(s.f_ffree), std::to_string(s.f_flags)});
            }
            check(bundle::writeFile(m_dir, nullptr, "mounts.txt", text), "mounts.txt");
        }
        return true;
    }

    int uname(Utsname* u) override {
        int r = m_in->uname(u);
        if (r == 0) {
            keep("uname.txt", {"sysname", u->sysname});
            keep("uname.txt", {"nodename", u->nodename});
            keep("uname.txt", {"release", u->release});
            keep("uname.txt", {"version", u->version});
            keep("uname.txt", {"machine", u->machine});
        }
        return r;
    }

    std::FILE* fopen(const char* path) override {
        std::FILE* f = m_in->fopen(path);
        if (!f) return nullptr;
        std::string data = readAll(f);
        std::fclose(f);
        std::string file = bundle::safeName(path);
        if (m_seen.insert(std::string("files/") + file).second) {
            check(bundle::writeFile(m_dir, "files", file, data), "files/" + file);
            keep("files.txt", {path, "files/" + file});
        }
        return bundle::memoryFile(data);
    }

    std::FILE* popen(const char* command) override {
        std::FILE* p = m_in->popen(command);
        if (!p) return nullptr;
        std::string data = readAll(p);
        int status = m_in->pclose(p);
        std::string file = bundle::safeName(command);
        if (m_seen.insert(std::string("commands/") + file).second) {
            check(bundle::writeFile(m_dir, "commands", file, data), "commands/" + file);
            keep("commands.txt", {command, std::to_string(status), "commands/" + file});
        }
        return m_commands.open(data, status);
    }

    int pclose(std::FILE* stream) override { return m_commands.close(stream); }

    void prefetchLookup(const void* addr, unsigned len, int type) override {
        m_in->prefetchLookup(addr, len, type);
    }

    struct hostent* gethostbyaddr(const void* addr, unsigned len, int type) override {
        struct hostent* h = m_in->gethostbyaddr(addr, len, type);
        char text[64];
        if (h && h->h_name && (type == AF_INET || type == AF_INET6) &&
            inet_ntop(type, addr, text, sizeof text))
            keep("hosts.txt",
                 {std::string(type == AF_INET ? "inet " : "inet6 ") + text, h->h_name});
        return h;
    }

    char* setlocale(int category, const char* locale) override {
        char* r = m_in->setlocale(category, locale);
        const char* cat = localeCategoryName(category);
        if (r && cat && (!locale || !*locale)) keep("locale.txt", {cat, r});
        return r;
    }

    void tzset() override { m_in->tzset(); }

    int timeZone(TimeZoneInfo* out) override {
        int r = m_in->timeZone(out);
        if (r == 0) {
            keep("timezone.txt", {"gmtoff", std::to_string(out->gmtoff)});
            keep("timezone.txt", {"daylight", std::to_string(out->daylight)});
            keep("timezone.txt", {"std", out->stdName});
            keep("timezone.txt", {"dst", out->dstName});
        }
        return r;
    }

    bool saveHelperOutput(const char* helper, const std::string& out) override {
        if (!helper) return false;
        std::string name = bundle::safeName(helper);
        return check(bundle::writeFile(m_dir, "helpers", name, out), "helpers/" + name);
    }

    const char* recordError() const override { return m_error.empty() ? nullptr : m_error.c_str(); }

    bool finish() override {
        if (!m_error.empty()) return false;
        if (m_marked && ::unlinkat(m_dir, bundle::INCOMPLETE, 0) != 0 && errno != ENOENT)
            return check(false, bundle::INCOMPLETE);
        return true;
    }

private:
    // Keeps the first failure, with the file and the system's reason.
    bool check(bool ok, const std::string& file) {
        if (!ok && m_error.empty()) m_error = file + ": " + std::strerror(errno ? errno : EIO);
        return ok;
    }

    void keep(const char* file, const bundle::Fields& f) {
        if (f.empty() || !m_seen.insert(std::string(file) + '\n' + f[0]).second) return;
        check(bundle::appendFile(m_dir, nullptr, file, bundle::formatLine(f)), file);
    }

    void keepSysctl(const std::string& key, const void* p, std::size_t n) {
        SysctlValue v = classifySysctl(p, n);
        std::string val = v.type == 's'   ? v.bytes
                          : v.type == 'x' ? hexOf(v.bytes)
                                          : std::to_string(v.num);
        keep("sysctl.txt", {key, std::string(1, v.type), val});
    }

    Backend* m_in;
    int m_dir;
    std::set<std::string> m_seen;
    bundle::CommandFiles m_commands;
    std::string m_error;
    bool m_marked = false;
};

} // namespace

Backend* newRecordBackend(Backend* inner, const char* dir) {
    if (!inner || !dir || !*dir) return nullptr;
    // Made and opened one folder at a time: no other user's link on the way is taken.
    int fd = safefile::makeDirs(dir, nullptr);
    if (fd < 0) return nullptr;
    // Only a folder no one else can put anything in: every file of the bundle is
    // then ours, whatever name it has.
    if (!safefile::privateFolder(fd, nullptr)) {
        ::close(fd);
        errno = EPERM;
        return nullptr;
    }
    return new RecordBackend(inner, fd);
}

} // namespace host
