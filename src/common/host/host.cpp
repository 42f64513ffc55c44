// Backend selection and the pieces every backend shares: the sysctl answer rules and
// the bundle's text encoding and file access.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64 // 64-bit sizes and inode numbers on 32-bit Linux too
#endif
#include "invscan/host.h"
#include "common/host/host_internal.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace host {

Backend::~Backend() {}
bool Backend::helperOutput(const char*, std::string*) {
    return false;
}
bool Backend::saveHelperOutput(const char*, const std::string&) {
    return false;
}
void Backend::prefetchLookup(const void*, unsigned, int) {}
const char* Backend::recordError() const {
    return nullptr;
}
bool Backend::finish() {
    return true;
}
const std::vector<std::string>* Backend::problems() const {
    return nullptr;
}

BundleState checkBundle(const char* dir) {
    if (!dir || !*dir) return BUNDLE_UNREADABLE;
    int fd = ::open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return BUNDLE_UNREADABLE;
    std::string head;
    BundleState st = BUNDLE_OK;
    if (::faccessat(fd, "bundle.txt", F_OK, AT_SYMLINK_NOFOLLOW) != 0)
        st = BUNDLE_NO_HEADER;
    else if (!bundle::readFile(fd, nullptr, "bundle.txt", &head, bundle::MAX_TABLE) ||
             head.compare(0, std::strlen(bundle::HEADER), bundle::HEADER) != 0 ||
             (head.size() > std::strlen(bundle::HEADER) &&
              head[std::strlen(bundle::HEADER)] != '\n' &&
              head[std::strlen(bundle::HEADER)] != '\r'))
        st = BUNDLE_BAD_HEADER;
    else if (::faccessat(fd, bundle::INCOMPLETE, F_OK, AT_SYMLINK_NOFOLLOW) == 0)
        st = BUNDLE_INCOMPLETE;
    ::close(fd);
    return st;
}

const char* bundleStateText(BundleState state) {
    switch (state) {
    case BUNDLE_OK:
        return "a bundle";
    case BUNDLE_UNREADABLE:
        return "not a readable folder";
    case BUNDLE_NO_HEADER:
        return "not a bundle: no bundle.txt";
    case BUNDLE_BAD_HEADER:
        return "not a bundle: bundle.txt does not begin with 'invscan-bundle 1'";
    case BUNDLE_INCOMPLETE:
        return "an incomplete bundle: its recording did not finish";
    }
    return "not a bundle";
}

const char* recordError() {
    return backend()->recordError();
}

bool finishRecord() {
    return backend()->finish();
}

std::vector<std::string> replayProblems() {
    const std::vector<std::string>* p = backend()->problems();
    return p ? *p : std::vector<std::string>();
}

namespace {

Backend* g_current = nullptr; // what the free functions use
bool g_chosen = false;

// Replay and record backends made here. One that is replaced stays alive: callers
// may still hold a stream or a mount list it handed out.
void keep(Backend* b) {
    static std::vector<Backend*>* made = new std::vector<Backend*>();
    made->push_back(b);
}

void choose() {
    if (g_chosen) return;
    g_chosen = true;
    g_current = liveBackend();
    const char* replay = std::getenv("INVSCAN_REPLAY");
    const char* record = std::getenv("INVSCAN_RECORD");
    if (replay && *replay) {
        if (Backend* b = newReplayBackend(replay)) keep(g_current = b);
    } else if (record && *record) {
        if (Backend* b = newRecordBackend(liveBackend(), record)) keep(g_current = b);
    }
}

} // namespace

Backend* backend() {
    choose();
    return g_current;
}

const char* mode() {
    Backend* b = backend();
    if (b == liveBackend()) return "live";
    if (std::strcmp(b->name(), "replay") == 0 || std::strcmp(b->name(), "record") == 0)
        return b->name();
    return "live";
}

bool useReplay(const char* dir) {
    if (!dir || !*dir) return false;
    Backend* b = newReplayBackend(dir);
    if (!b) return false;
    g_chosen = true;
    keep(g_current = b);
    ::setenv("INVSCAN_REPLAY", dir, 1);
    ::unsetenv("INVSCAN_RECORD");
    return true;
}

bool useRecord(const char* dir) {
    if (!dir || !*dir) return false;
    Backend* b = newRecordBackend(liveBackend(), dir);
    if (!b) return false;
    g_chosen = true;
    keep(g_current = b);
    ::setenv("INVSCAN_RECORD", dir, 1);
    ::unsetenv("INVSCAN_REPLAY");
    return true;
}

void useLive() {
    g_chosen = true;
    g_current = liveBackend();
    ::unsetenv("INVSCAN_REPLAY");
    ::unsetenv("INVSCAN_RECORD");
}

void useBackend(Backend* b) {
    if (b) {
        g_chosen = true;
        g_current = b;
    } else {
        g_chosen = false;
        choose();
    }
}

int sysctlbyname(const char* name, void* oldp, std::size_t* oldlenp, const void* newp,
                 std::size_t newlen) {
    if (!name || !oldlenp) {
        errno = EINVAL;
        return -1;
    }
    if (newp || newlen) { // the scanner only reads
        errno = EPERM;
        return -1;
    }
    return backend()->sysctlbyname(name, oldp, oldlenp);
}

int sysctl(const int* name, unsigned namelen, void* oldp, std::size_t* oldlenp, const void* newp,
           std::size_t newlen) {
    if (!name || namelen < 2 || namelen > 12 || !oldlenp) {
        errno = EINVAL;
        return -1;
    }
    if (newp || newlen) {
        errno = EPERM;
        return -1;
    }
    return backend()->sysctl(name, namelen, oldp, oldlenp);
}

kern_return_t hostPageSize(std::size_t* pageSize) {
    if (!pageSize) return KERN_INVALID_ARGUMENT;
    return backend()->hostPageSize(pageSize);
}

kern_return_t hostStatistics(int flavor, VmStatistics* info, unsigned* count) {
    if (flavor != HOST_VM_INFO || !info || !count || *count < VM_INFO_FIELDS) return KERN_FAILURE;
    kern_return_t kr = backend()->hostStatistics(info);
    if (kr == KERN_SUCCESS) *count = VM_INFO_FIELDS;
    return kr;
}

int getmntinfo(Statfs** mntbufp, int flags) {
    (void)flags; // every backend answers from its own snapshot of the table
    if (!mntbufp) {
        errno = EINVAL;
        return 0;
    }
    *mntbufp = nullptr;
    Statfs* list = nullptr;
    int n = 0;
    if (!backend()->mounts(&list, &n) || n <= 0) return 0;
    *mntbufp = list;
    return n;
}

int uname(Utsname* name) {
    if (!name) {
        errno = EFAULT;
        return -1;
    }
    return backend()->uname(name);
}

std::FILE* fopen(const char* path, const char* mode) {
    if (!path || !mode || (std::strcmp(mode, "r") != 0 && std::strcmp(mode, "rb") != 0)) {
        errno = EINVAL;
        return nullptr;
    }
    return backend()->fopen(path);
}

std::FILE* popen(const char* command, const char* mode) {
    if (!command || !mode || std::strcmp(mode, "r") != 0) {
        errno = EINVAL;
        return nullptr;
    }
    return backend()->popen(command);
}

int pclose(std::FILE* stream) {
    if (!stream) {
        errno = ECHILD;
        return -1;
    }
    return backend()->pclose(stream);
}

void prefetchLookup(const void* addr, unsigned len, int type) {
    if (addr) backend()->prefetchLookup(addr, len, type);
}

struct hostent* gethostbyaddr(const void* addr, unsigned len, int type) {
    if (!addr) return nullptr;
    return backend()->gethostbyaddr(addr, len, type);
}

char* setlocale(int category, const char* locale) {
    return backend()->setlocale(category, locale);
}

void tzset() {
    backend()->tzset();
}

int timeZone(TimeZoneInfo* out) {
    if (!out) return -1;
    std::memset(out, 0, sizeof *out);
    return backend()->timeZone(out);
}

// ---- shared helpers ----

SysctlValue SysctlValue::raw(const void* p, std::size_t n) {
    SysctlValue s;
    s.type = 'x';
    if (p && n) s.bytes.assign(static_cast<const char*>(p), n);
    return s;
}

int answerSysctl(const SysctlValue& v, void* oldp, std::size_t* oldlenp) {
    std::string out;
    if (v.type == 'i' || v.type == 'q') {
        if (v.type == 'i' || (oldp && *oldlenp == 4 && v.num >= INT32_MIN && v.num <= INT32_MAX)) {
            std::int32_t x = static_cast<std::int32_t>(v.num);
            out.assign(reinterpret_cast<const char*>(&x), sizeof x);
        } else {
            std::int64_t x = v.num;
            out.assign(reinterpret_cast<const char*>(&x), sizeof x);
        }
    } else if (v.type == 's') {
        out = v.bytes;
        out.push_back('\0');
    } else {
        out = v.bytes;
    }
    if (!oldp) {
        *oldlenp = out.size();
        return 0;
    }
    if (*oldlenp < out.size()) {
        std::memcpy(oldp, out.data(), *oldlenp);
        errno = ENOMEM;
        return -1;
    }
    std::memcpy(oldp, out.data(), out.size());
    *oldlenp = out.size();
    return 0;
}

SysctlValue classifySysctl(const void* p, std::size_t n) {
    const unsigned char* b = static_cast<const unsigned char*>(p);
    if (n >= 1 && b[n - 1] == 0) {
        bool text = true;
        for (std::size_t i = 0; i + 1 < n && text; ++i)
            text = b[i] >= 0x20 || b[i] == '\t' || b[i] == '\n';
        if (text) return SysctlValue::str(std::string(reinterpret_cast<const char*>(b), n - 1));
    }
    if (n == 4) {
        std::int32_t x;
        std::memcpy(&x, b, 4);
        return SysctlValue::i32(x);
    }
    if (n == 8) {
        std::int64_t x;
        std::memcpy(&x, b, 8);
        return SysctlValue::i64(x);
    }
    return SysctlValue::raw(p, n);
}

std::string mibKey(const int* name, unsigned namelen) {
    std::string k;
    for (unsigned i = 0; i < namelen; ++i) {
        if (i) k += '.';
        k += std::to_string(name[i]);
    }
    return k;
}

const char* localeCategoryName(int category) {
    if (category == LC_CTYPE) return "LC_CTYPE";
    if (category == LC_MESSAGES) return "LC_MESSAGES";
    if (category == LC_ALL) return "LC_ALL";
    if (category == LC_NUMERIC) return "LC_NUMERIC";
    if (category == LC_TIME) return "LC_TIME";
    if (category == LC_COLLATE) return "LC_COLLATE";
    if (category == LC_MONETARY) return "LC_MONETARY";
    return nullptr;
}

namespace bundle {

static const char HEX[] = "0123456789abcdef";

std::string escape(const std::string& s) {
    std::string o;
    o.reserve(s.size());
    for (unsigned char c : s) {
        if (c == '\\')
            o += "\\\\";
        else if (c == '\t')
            o += "\\t";
        else if (c == '\n')
            o += "\\n";
        else if (c == '\r')
            o += "\\r";
        else if (c < 0x20 || c == 0x7f) {
            o += "\\x";
            o += HEX[c >> 4];
            o += HEX[c & 15];
        } else {
            o += static_cast<char>(c);
        }
    }
    return o;
}

static int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string unescape(const std::string& s) {
    std::string o;
    o.reserve(s.size());
    for (std::size_t i = 0; i < s.size(); ++i) {
        char c = s[i];
        if (c != '\\' || i + 1 >= s.size()) {
            o += c;
            continue;
        }
        char n = s[++i];
        if (n == 't')
            o += '\t';
        else if (n == 'n')
            o += '\n';
        else if (n == 'r')
            o += '\r';
        else if (n == 'x' && i + 2 < s.size() && hexDigit(s[i + 1]) >= 0 &&
                 hexDigit(s[i + 2]) >= 0) {
            o += static_cast<char>(hexDigit(s[i + 1]) * 16 + hexDigit(s[i + 2]));
            i += 2;
        } else {
            o += n; // "\\" and anything unknown stand for themselves
        }
    }
    return o;
}

std::string safeName(const std::string& key) {
    std::string o;
    for (std::size_t i = 0; i < key.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(key[i]);
        bool keep = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                    c == '_' || c == '-' || (c == '.' && i > 0);
        if (keep) {
            o += static_cast<char>(c);
        } else {
            o += '%';
            o += static_cast<char>(std::toupper(HEX[c >> 4]));
            o += static_cast<char>(std::toupper(HEX[c & 15]));
        }
    }
    if (o.empty()) o = "%";
    if (o.size() > 180) {
        std::uint64_t h = 1469598103934665603ull; // FNV-1a of the key keeps names distinct
        for (unsigned char c : key) {
            h ^= c;
            h *= 1099511628211ull;
        }
        o.resize(160);
        o += '~';
        for (int s = 60; s >= 0; s -= 4)
            o += HEX[(h >> s) & 15];
    }
    return o;
}

bool isSafeComponent(const std::string& name) {
    if (name.empty() || name.size() > 255 || name[0] == '.') return false;
    for (unsigned char c : name) {
        bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                  c == '_' || c == '-' || c == '.' || c == '%' || c == '~';
        if (!ok) return false;
    }
    return true;
}

std::string formatLine(const Fields& fields) {
    std::string l;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (i) l += '\t';
        l += escape(fields[i]);
    }
    if (!l.empty() && l[0] == '#') l.replace(0, 1, "\\x23"); // else it would read as a comment
    l += '\n';
    return l;
}

std::vector<Fields> parseLines(const std::string& text) {
    std::vector<Fields> out;
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(pos, end - pos);
        pos = end + 1;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == '#') continue;
        Fields f;
        std::size_t p = 0;
        // No table has more than a dozen fields; the rest of a longer line is noise
        // that would cost a string per tab.
        while (f.size() < MAX_FIELDS) {
            std::size_t t = line.find('\t', p);
            f.push_back(
                unescape(line.substr(p, t == std::string::npos ? std::string::npos : t - p)));
            if (t == std::string::npos) break;
            p = t + 1;
        }
        out.push_back(f);
    }
    return out;
}

std::map<std::string, Fields> parseTable(const std::string& text) {
    std::map<std::string, Fields> m;
    for (Fields& f : parseLines(text)) {
        if (f.size() < 2) continue;
        std::string key = f[0];
        f.erase(f.begin());
        m.emplace(std::move(key), std::move(f));
    }
    return m;
}

static int openSub(int dirfd, const char* sub, bool create) {
    if (!sub) return ::dup(dirfd);
    if (create) ::mkdirat(dirfd, sub, 0700);
    return ::openat(dirfd, sub, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

bool readFile(int dirfd, const char* sub, const std::string& name, std::string* out,
              std::size_t cap, bool* tooLarge) {
    if (tooLarge) *tooLarge = false;
    if (dirfd < 0 || !isSafeComponent(name)) return false;
    int d = openSub(dirfd, sub, false);
    if (d < 0) return false;
    int fd = ::openat(d, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    ::close(d);
    if (fd < 0) return false;
    struct stat st;
    bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    bool over = ok && static_cast<unsigned long long>(st.st_size) > cap;
    ok = ok && !over;
    out->clear();
    if (ok) out->reserve(static_cast<std::size_t>(st.st_size));
    char buf[65536];
    while (ok) {
        ssize_t n = ::read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) ok = false;
        if (n <= 0) break;
        if (out->size() + static_cast<std::size_t>(n) > cap)
            ok = false, over = true;
        else
            out->append(buf, static_cast<std::size_t>(n));
    }
    ::close(fd);
    if (!ok) out->clear();
    if (tooLarge) *tooLarge = over;
    return ok;
}

std::string capText(std::size_t cap) {
    return cap >= (1u << 20) ? std::to_string(cap >> 20) + " MiB"
                             : std::to_string(cap >> 10) + " KiB";
}

static bool writeAll(int fd, const std::string& data) {
    std::size_t off = 0;
    while (off < data.size()) {
        ssize_t n = ::write(fd, data.data() + off, data.size() - off);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        off += static_cast<std::size_t>(n);
    }
    return true;
}

static bool putFile(int dirfd, const char* sub, const std::string& name, const std::string& data,
                    bool append) {
    if (dirfd < 0 || !isSafeComponent(name)) return false;
    int d = openSub(dirfd, sub, true);
    if (d < 0) return false;
    int fd = ::openat(
        d, name.c_str(),
        O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | (append ? O_APPEND : 0), 0600);
    ::close(d);
    if (fd < 0) return false;
    // Truncated only once it is known to be a file of this bundle alone: never a FIFO,
    // never a second name of another file.
    struct stat st;
    bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_nlink == 1;
    if (!ok) errno = EPERM;
    ok = ok && (append || ::ftruncate(fd, 0) == 0) && writeAll(fd, data);
    int saved = errno;
    // A full disk or a quota may only show when the file is closed.
    if (::close(fd) != 0 && ok) {
        ok = false;
        saved = errno;
    }
    errno = saved;
    return ok;
}

bool writeFile(int dirfd, const char* sub, const std::string& name, const std::string& data) {
    return putFile(dirfd, sub, name, data, false);
}

bool appendFile(int dirfd, const char* sub, const std::string& name, const std::string& data) {
    return putFile(dirfd, sub, name, data, true);
}

} // namespace bundle
} // namespace host

namespace host {
namespace bundle {

std::FILE* memoryFile(const std::string& data) {
    std::FILE* f = std::tmpfile();
    if (!f) return nullptr;
    if (!data.empty() && std::fwrite(data.data(), 1, data.size(), f) != data.size()) {
        std::fclose(f);
        return nullptr;
    }
    std::rewind(f);
    return f;
}

std::FILE* CommandFiles::open(const std::string& data, int status) {
    std::FILE* f = memoryFile(data);
    if (f) m_status[f] = status;
    return f;
}

int CommandFiles::close(std::FILE* stream) {
    auto it = m_status.find(stream);
    if (it == m_status.end()) {
        errno = ECHILD;
        return -1;
    }
    int status = it->second;
    m_status.erase(it);
    std::fclose(stream);
    return status;
}

} // namespace bundle
} // namespace host

namespace host {

struct hostent* HostentStore::fill(const std::string& name, const void* addr, unsigned len,
                                   int type) {
    m_name = name;
    std::memcpy(m_addr, addr, len > sizeof m_addr ? sizeof m_addr : len);
    m_addrList[0] = reinterpret_cast<char*>(m_addr);
    m_addrList[1] = nullptr;
    m_aliases[0] = nullptr;
    m_hostent.h_name = &m_name[0];
    m_hostent.h_aliases = m_aliases;
    m_hostent.h_addrtype = type;
    m_hostent.h_length = static_cast<int>(len);
    m_hostent.h_addr_list = m_addrList;
    return &m_hostent;
}

// The Mac's layout: a header per interface, then ether, inet and inet6 lines; a
// link-local IPv6 address carries its zone and scope id.
std::string ifconfigText(const std::vector<InterfaceFacts>& interfaces) {
    static const struct {
        unsigned bit;
        const char* name;
    } flagNames[] = {{0x1, "UP"},          {0x2, "BROADCAST"},    {0x4, "DEBUG"},
                     {0x8, "LOOPBACK"},    {0x10, "POINTOPOINT"}, {0x40, "RUNNING"},
                     {0x80, "NOARP"},      {0x100, "PROMISC"},    {0x200, "ALLMULTI"},
                     {0x1000, "MULTICAST"}};
    std::string out;
    char buf[128];
    for (const InterfaceFacts& i : interfaces) {
        std::string names;
        for (const auto& f : flagNames)
            if (i.flags & f.bit) names += (names.empty() ? "" : ",") + std::string(f.name);
        std::snprintf(buf, sizeof buf, ": flags=%x<", i.flags & 0xffffu);
        out += i.name + buf + names + "> mtu " + std::to_string(i.mtu) + "\n";
        if (!i.mac.empty()) out += "\tether " + i.mac + "\n";
        for (const InterfaceFacts::Address& a : i.addresses) {
            if (a.family == AF_INET) {
                out += "\tinet " + a.address + " netmask " + a.netmask;
                if (!a.broadcast.empty()) out += " broadcast " + a.broadcast;
                out += "\n";
            } else {
                out += "\tinet6 " + a.address;
                if (a.scopeId) out += "%" + i.name;
                out += " prefixlen " + std::to_string(a.prefix);
                if (a.scopeId) {
                    std::snprintf(buf, sizeof buf, " scopeid 0x%x", a.scopeId);
                    out += buf;
                }
                out += "\n";
            }
        }
    }
    return out;
}

} // namespace host
