// Answers from a recorded bundle directory. Everything is read through the bundle's
// directory descriptor with names this code derives itself, so a hostile bundle can
// make answers wrong but cannot make replay read anywhere else. A missing or
// unreadable entry answers as the live call fails.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64 // 64-bit sizes and inode numbers on 32-bit Linux too
#endif
#include "common/host/host_internal.h"

#include <arpa/inet.h>
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>

namespace host {
namespace {

bool parseInt(const std::string& s, std::int64_t* v) {
    if (s.empty()) return false;
    char* end = nullptr;
    errno = 0;
    long long x = std::strtoll(s.c_str(), &end, 10);
    if (errno || *end) return false;
    *v = x;
    return true;
}

bool parseU64(const std::string& s, std::uint64_t* v) {
    if (s.empty() || s[0] == '-') return false;
    char* end = nullptr;
    errno = 0;
    unsigned long long x = std::strtoull(s.c_str(), &end, 10);
    if (errno || *end) return false;
    *v = x;
    return true;
}

bool parseHex(const std::string& s, std::string* out) {
    if (s.size() % 2) return false;
    out->clear();
    for (std::size_t i = 0; i < s.size(); i += 2) {
        int hi = std::isxdigit(static_cast<unsigned char>(s[i]))
                     ? std::stoi(s.substr(i, 1), nullptr, 16)
                     : -1;
        int lo = std::isxdigit(static_cast<unsigned char>(s[i + 1]))
                     ? std::stoi(s.substr(i + 1, 1), nullptr, 16)
                     : -1;
        if (hi < 0 || lo < 0) return false;
        out->push_back(static_cast<char>(hi * 16 + lo));
    }
    return true;
}

class ReplayBackend : public Backend {
public:
    explicit ReplayBackend(int dirfd) : m_dir(dirfd) {}
    ~ReplayBackend() override {
        if (m_dir >= 0) ::close(m_dir);
    }
    const char* name() const override { return "replay"; }

    int sysctlbyname(const char* name, void* oldp, std::size_t* oldlenp) override {
        return answer(name, oldp, oldlenp);
    }

    int sysctl(const int* mib, unsigned n, void* oldp, std::size_t* oldlenp) override {
        return answer(mibKey(mib, n), oldp, oldlenp);
    }

    kern_return_t hostPageSize(std::size_t* pageSize) override {
        std::uint64_t v;
        if (!number("host.txt", "page_size", &v) || v == 0 || v > 0x40000000u) return KERN_FAILURE;
        *pageSize = static_cast<std::size_t>(v);
        return KERN_SUCCESS;
    }

    kern_return_t hostStatistics(VmStatistics* info) override {
        const auto& t = table("host.txt");
        if (t.find("vm.free_count") == t.end()) return KERN_FAILURE;
        std::uint32_t* fields = &info->free_count;
        for (int i = 0; i < static_cast<int>(VM_INFO_FIELDS); ++i) {
            std::uint64_t v = 0;
            number("host.txt", std::string("vm.") + VM_FIELDS[i], &v);
            fields[i] = static_cast<std::uint32_t>(v);
        }
        return KERN_SUCCESS;
    }

    bool mounts(Statfs** out, int* count) override {
        std::string text;
        if (!read(nullptr, "mounts.txt", &text, bundle::MAX_MOUNTS_FILE)) return false;
        // A record is two kilobytes of fixed fields however short its line: they are
        // counted first and made at once, and a table of more than any host mounts is
        // refused rather than taken at 200 times its size.
        std::size_t rows = 0;
        forEachMount(text, [&rows](const std::string*) { ++rows; });
        if (rows > MAX_MOUNTS) {
            problem("bundle file 'mounts.txt' lists more than " + std::to_string(MAX_MOUNTS) +
                    " mounts: refused");
            return false;
        }
        std::vector<Statfs>().swap(m_mounts);
        m_mounts.reserve(rows);
        forEachMount(text, [this](const std::string* f) {
            Statfs s{};
            copyField(s.f_fstypename, sizeof s.f_fstypename, bundle::unescape(f[0]).c_str());
            copyField(s.f_mntfromname, PATH_LEN, bundle::unescape(f[1]).c_str());
            copyField(s.f_mntonname, PATH_LEN, bundle::unescape(f[2]).c_str());
            std::uint64_t v[8] = {0};
            for (int i = 0; i < 8; ++i)
                parseU64(bundle::unescape(f[3 + i]), &v[i]);
            s.f_bsize = static_cast<std::uint32_t>(v[0]);
            s.f_iosize = static_cast<std::int32_t>(v[1]);
            s.f_blocks = v[2];
            s.f_bfree = v[3];
            s.f_bavail = v[4];
            s.f_files = v[5];
            s.f_ffree = v[6];
            s.f_flags = static_cast<std::uint32_t>(v[7]);
            m_mounts.push_back(s);
        });
        *out = m_mounts.empty() ? nullptr : &m_mounts[0];
        *count = static_cast<int>(m_mounts.size());
        return true;
    }

    int uname(Utsname* u) override {
        const auto& t = table("uname.txt");
        if (t.empty()) {
            errno = EFAULT;
            return -1;
        }
        std::memset(u, 0, sizeof *u);
        copyField(u->sysname, sizeof u->sysname, text(t, "sysname").c_str());
        copyField(u->nodename, sizeof u->nodename, text(t, "nodename").c_str());
        copyField(u->release, sizeof u->release, text(t, "release").c_str());
        copyField(u->version, sizeof u->version, text(t, "version").c_str());
        copyField(u->machine, sizeof u->machine, text(t, "machine").c_str());
        return 0;
    }

    std::FILE* fopen(const char* path) override {
        std::string data;
        if (!read("files", bundle::safeName(path), &data, bundle::MAX_FIXED_FILE)) {
            errno = ENOENT;
            return nullptr;
        }
        return bundle::memoryFile(data);
    }

    std::FILE* popen(const char* command) override {
        std::string data;
        if (!read("commands", bundle::safeName(command), &data, bundle::MAX_COMMAND_OUTPUT)) {
            errno = ENOENT;
            return nullptr;
        }
        std::int64_t status = 0;
        const auto& t = table("commands.txt");
        auto it = t.find(command);
        if (it != t.end() && !it->second.empty()) parseInt(it->second[0], &status);
        return m_commands.open(data, static_cast<int>(status));
    }

    int pclose(std::FILE* stream) override { return m_commands.close(stream); }

    struct hostent* gethostbyaddr(const void* addr, unsigned len, int type) override {
        char textAddr[64];
        const char* fam = type == AF_INET ? "inet" : type == AF_INET6 ? "inet6" : nullptr;
        if (!fam || len != (type == AF_INET ? 4u : 16u) ||
            !inet_ntop(type, addr, textAddr, sizeof textAddr)) {
            h_errno = NO_RECOVERY;
            return nullptr;
        }
        const auto& t = table("hosts.txt");
        auto it = t.find(std::string(fam) + " " + textAddr);
        if (it == t.end() || it->second.empty() || it->second[0].empty()) {
            h_errno = HOST_NOT_FOUND;
            return nullptr;
        }
        return m_host.fill(it->second[0], addr, len, type);
    }

    char* setlocale(int category, const char* locale) override {
        if (locale && *locale) return std::setlocale(category, locale); // explicit names are real
        const char* cat = localeCategoryName(category);
        const auto& t = table("locale.txt");
        auto it = cat ? t.find(cat) : t.end();
        if (it == t.end() || it->second.empty()) return nullptr;
        std::string& keep = m_locale[category];
        keep = it->second[0];
        // Follow the recorded locale when this machine has it, so conversions agree.
        if (locale && !std::setlocale(category, keep.c_str())) std::setlocale(category, "C");
        return &keep[0];
    }

    void tzset() override {}

    int timeZone(TimeZoneInfo* out) override {
        const auto& t = table("timezone.txt");
        std::int64_t off = 0, dl = 0;
        auto g = t.find("gmtoff");
        if (g == t.end() || g->second.empty() || !parseInt(g->second[0], &off)) return -1;
        auto d = t.find("daylight");
        if (d != t.end() && !d->second.empty()) parseInt(d->second[0], &dl);
        out->gmtoff = static_cast<long>(off);
        out->daylight = static_cast<int>(dl);
        copyField(out->stdName, sizeof out->stdName, text(t, "std").c_str());
        copyField(out->dstName, sizeof out->dstName, text(t, "dst").c_str());
        return 0;
    }

    bool helperOutput(const char* helper, std::string* out) override {
        return helper && read("helpers", bundle::safeName(helper), out, bundle::MAX_FILE);
    }

    static const char* const VM_FIELDS[VM_INFO_FIELDS];

    const std::vector<std::string>* problems() const override { return &m_problems; }

private:
    typedef std::map<std::string, bundle::Fields> Table;

    // A Linux host mounts at most 100,000 (the kernel's default fs.mount-max).
    static const std::size_t MAX_MOUNTS = 100000;
    static const int MOUNT_FIELDS = 11;

    // Calls `use` with the first eleven fields (still escaped) of each record of the
    // mount table: lines read as the table reader reads them, shorter ones passed over.
    template <class Use> static void forEachMount(const std::string& text, Use use) {
        std::string f[MOUNT_FIELDS];
        for (std::size_t pos = 0; pos < text.size();) {
            std::size_t end = text.find('\n', pos);
            if (end == std::string::npos) end = text.size();
            std::size_t stop = end > pos && text[end - 1] == '\r' ? end - 1 : end;
            const std::size_t line = pos;
            pos = end + 1;
            if (stop == line || text[line] == '#') continue;
            int n = 0;
            for (std::size_t p = line; n < MOUNT_FIELDS;) {
                std::size_t t = text.find('\t', p);
                if (t == std::string::npos || t > stop) t = stop;
                f[n++].assign(text, p, t - p);
                if (t == stop) break;
                p = t + 1;
            }
            if (n == MOUNT_FIELDS) use(f);
        }
    }

    void problem(const std::string& msg) {
        if (std::find(m_problems.begin(), m_problems.end(), msg) == m_problems.end())
            m_problems.push_back(msg);
    }

    // A bundle file, refused with a sentence when it is over its cap.
    bool read(const char* sub, const std::string& name, std::string* out, std::size_t cap) {
        bool tooLarge = false;
        if (bundle::readFile(m_dir, sub, name, out, cap, &tooLarge)) return true;
        if (tooLarge) {
            std::string file = sub ? std::string(sub) + "/" + name : name;
            problem("bundle file '" + file + "' is larger than its cap of " + bundle::capText(cap) +
                    ": refused");
        }
        return false;
    }

    const Table& table(const char* file) {
        auto it = m_tables.find(file);
        if (it != m_tables.end()) return it->second;
        std::string text;
        Table t;
        if (read(nullptr, file, &text, bundle::MAX_TABLE)) t = bundle::parseTable(text);
        return m_tables[file] = std::move(t);
    }

    static std::string text(const Table& t, const char* key) {
        auto it = t.find(key);
        return it == t.end() || it->second.empty() ? std::string() : it->second[0];
    }

    bool number(const char* file, const std::string& key, std::uint64_t* v) {
        const Table& t = table(file);
        auto it = t.find(key);
        return it != t.end() && !it->second.empty() && parseU64(it->second[0], v);
    }

    int answer(const std::string& key, void* oldp, std::size_t* oldlenp) {
        const Table& t = table("sysctl.txt");
        auto it = t.find(key);
        if (it == t.end() || it->second.size() < 2 || it->second[0].size() != 1) {
            errno = ENOENT;
            return -1;
        }
        SysctlValue v;
        v.type = it->second[0][0];
        const std::string& val = it->second[1];
        bool ok = false;
        if (v.type == 'i' || v.type == 'q')
            ok = parseInt(val, &v.num);
        else if (v.type == 's')
            ok = (v.bytes = val, true);
        else if (v.type == 'x')
            ok = parseHex(val, &v.bytes);
        if (!ok) {
            errno = ENOENT;
            return -1;
        }
        return answerSysctl(v, oldp, oldlenp);
    }

    int m_dir;
    std::vector<std::string> m_problems;
    std::map<std::string, Table> m_tables;
    std::vector<Statfs> m_mounts;
    bundle::CommandFiles m_commands;
    std::map<int, std::string> m_locale;
    HostentStore m_host;
};

const char* const ReplayBackend::VM_FIELDS[VM_INFO_FIELDS] = {
    "free_count",    "active_count", "inactive_count",  "wire_count", "zero_fill_count",
    "reactivations", "pageins",      "pageouts",        "faults",     "cow_faults",
    "lookups",       "hits",         "purgeable_count", "purges",     "speculative_count"};

} // namespace

const char* const* vmFieldNames() {
    return ReplayBackend::VM_FIELDS;
}

Backend* newReplayBackend(const char* dir) {
    if (!dir || !*dir) return nullptr;
    int fd = ::open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return nullptr;
    return new ReplayBackend(fd);
}

} // namespace host
