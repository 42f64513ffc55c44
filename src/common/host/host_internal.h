// Pieces shared by the host backends: the typed sysctl answer, the bundle's text
// encoding and its file access. Not part of the public API.
#ifndef INVSCAN_HOST_INTERNAL_H
#define INVSCAN_HOST_INTERNAL_H

#include "invscan/host.h"

#include <map>
#include <netdb.h>

struct sockaddr;
struct statvfs;
#include <string>
#include <vector>

namespace host {

// One sysctl answer. Type letters as in the bundle: 'i' 32-bit integer, 'q' 64-bit
// integer, 's' NUL-terminated text, 'x' raw bytes.
struct SysctlValue {
    char type = 'x';
    std::int64_t num = 0;
    std::string bytes; // 's' without its NUL, 'x' as is

    static SysctlValue i32(std::int64_t v) {
        SysctlValue s;
        s.type = 'i';
        s.num = v;
        return s;
    }
    static SysctlValue i64(std::int64_t v) {
        SysctlValue s;
        s.type = 'q';
        s.num = v;
        return s;
    }
    static SysctlValue str(const std::string& v) {
        SysctlValue s;
        s.type = 's';
        s.bytes = v;
        return s;
    }
    static SysctlValue raw(const void* p, std::size_t n);
};

// Copies an answer out the way the Darwin kernel does: a null buffer asks for the
// size; a 64-bit integer that fits may be read into 4 bytes; a short buffer gets
// what fits and ENOMEM.
int answerSysctl(const SysctlValue& v, void* oldp, std::size_t* oldlenp);

// Guesses the type of bytes a live call returned (for the recorder).
SysctlValue classifySysctl(const void* p, std::size_t n);

// "6.24" for {6, 24}.
std::string mibKey(const int* name, unsigned namelen);

// Darwin-style locale category names, independent of the C library's numbering.
const char* localeCategoryName(int category);

// The calls that are the same on every POSIX system; the platform backends derive
// from it and add the kernel values and the mount table.
class PosixBackend : public Backend {
public:
    int uname(Utsname* name) override;
    std::FILE* fopen(const char* path) override;
    std::FILE* popen(const char* command) override;
    int pclose(std::FILE* stream) override;
    struct hostent* gethostbyaddr(const void* addr, unsigned len, int type) override;
    void prefetchLookup(const void* addr, unsigned len, int type) override;
    char* setlocale(int category, const char* locale) override;
    void tzset() override;
    int timeZone(TimeZoneInfo* out) override;
};

// What a reverse lookup calls (getnameinfo with NI_NAMEREQD unless a test puts
// another in): 0 with the name in `host`, else non-zero.
typedef int (*ResolverFn)(const struct sockaddr* sa, unsigned saLen, char* host,
                          std::size_t hostLen);
void setResolver(ResolverFn fn); // null: the system's
unsigned lookupTimeout();

// Linux: the mount table file, the statistics call and the bound on a remote
// mount's statistics, replaceable for tests.
typedef int (*StatvfsFn)(const char* path, struct statvfs* out);
void setLinuxMountSource(const char* mountTable, StatvfsFn fn, unsigned remoteTimeoutMs);

// One interface as the kernel lists it, and the text the Mac's "ifconfig -a"
// would print for a list of them (the Linux backend answers that command itself).
struct InterfaceFacts {
    std::string name;
    unsigned index = 0;
    unsigned flags = 0; // IFF_* bits
    unsigned mtu = 0;
    std::string mac; // empty when the interface has none
    struct Address {
        int family; // AF_INET or AF_INET6
        std::string address, netmask, broadcast;
        unsigned prefix = 0;
        unsigned scopeId = 0;
    };
    std::vector<Address> addresses;
};
std::string ifconfigText(const std::vector<InterfaceFacts>& interfaces);

// A hostent answer kept by its backend until the next lookup, as the C library's is.
class HostentStore {
public:
    struct hostent* fill(const std::string& name, const void* addr, unsigned len, int type);

private:
    std::string m_name;
    unsigned char m_addr[16] = {};
    char* m_addrList[2] = {};
    char* m_aliases[1] = {};
    struct hostent m_hostent = {};
};

// Names of the fifteen VmStatistics counters, in field order.
const char* const* vmFieldNames();

// Copies `src` into a fixed field, always terminated.
void copyField(char* dst, std::size_t size, const char* src);
// The same into a string: at most size - 1 bytes of `src`.
void copyField(std::string& dst, std::size_t size, const char* src);

namespace bundle {

const char* const HEADER = "invscan-bundle 1";
// Present while a recording is under way; replay refuses a bundle that has it.
const char* const INCOMPLETE = "incomplete";

// Field escaping for the tab-separated tables: backslash, control bytes and DEL are
// written as \\ \t \n \r or \xHH; everything else (UTF-8 too) stays readable.
std::string escape(const std::string& s);
std::string unescape(const std::string& s);

// Maps a key (command, file path, helper name) to a file name of [A-Za-z0-9._%~-],
// one path component, never "." or ".." or hidden; long keys end in a hash.
std::string safeName(const std::string& key);

// Table files: one record per line, fields separated by TAB, each escaped.
typedef std::vector<std::string> Fields;
std::string formatLine(const Fields& fields);
// The first record for each first field wins; lines without a TAB are ignored.
std::map<std::string, Fields> parseTable(const std::string& text);
std::vector<Fields> parseLines(const std::string& text);
const std::size_t MAX_FIELDS = 16;

// Bounded readers and writers over the bundle directory descriptor. `sub` is one of
// the fixed sub-folder names or null; `name` must be a safe single component.
// Symbolic links and anything but regular files are refused.
// Caps on what one bundle file may hold, applied before its text is taken in: the
// tables stay small on every real host, and their parse costs up to about 40
// bytes per byte, so a cap keeps a hostile one within 8 times its size + 16 MiB.
const std::size_t MAX_FILE = 64u << 20;          // helper output, the largest kind
const std::size_t MAX_TABLE = 256u << 10;        // sysctl.txt, host.txt, uname.txt ...
const std::size_t MAX_MOUNTS_FILE = 32u << 20;   // mounts.txt: 100,000 mounts take 12 MB
const std::size_t MAX_FIXED_FILE = 4u << 20;     // files/: os-release, meminfo ...
const std::size_t MAX_COMMAND_OUTPUT = 8u << 20; // commands/: the interface listing
// False when missing, unreadable or over `cap` (then *tooLarge is set when given).
bool readFile(int dirfd, const char* sub, const std::string& name, std::string* out,
              std::size_t cap = MAX_FILE, bool* tooLarge = nullptr);
// "256 KiB", "4 MiB".
std::string capText(std::size_t cap);
bool writeFile(int dirfd, const char* sub, const std::string& name, const std::string& data);
bool appendFile(int dirfd, const char* sub, const std::string& name, const std::string& data);
bool isSafeComponent(const std::string& name);

// A readable stream over `data` (a temporary file), or null.
std::FILE* memoryFile(const std::string& data);

// Command output served from memory, with the exit status pclose() hands back.
class CommandFiles {
public:
    // A readable stream over `data`, or null.
    std::FILE* open(const std::string& data, int status);
    // The status given to open(), or -1 with ECHILD for a stream it did not make.
    int close(std::FILE* stream);

private:
    std::map<std::FILE*, int> m_status;
};

} // namespace bundle
} // namespace host

#endif
