#include "invscan/HostFacts.h"

#include "invscan/host.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace hostfacts {
namespace {

bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

const char* skipSpace(const char* p) {
    while (*p && isSpace(*p))
        ++p;
    return p;
}

// scanf's %d: blanks, a sign, digits. Saturates instead of the undefined overflow.
bool scanInt(const char*& p, std::int32_t* out) {
    const char* q = skipSpace(p);
    bool neg = false;
    if (*q == '+' || *q == '-') neg = *q++ == '-';
    if (!std::isdigit(static_cast<unsigned char>(*q))) return false;
    std::int64_t v = 0;
    for (; std::isdigit(static_cast<unsigned char>(*q)); ++q)
        if (v <= INT32_MAX) v = v * 10 + (*q - '0');
    if (neg) v = -v;
    if (v > INT32_MAX) v = INT32_MAX;
    if (v < INT32_MIN) v = INT32_MIN;
    *out = static_cast<std::int32_t>(v);
    p = q;
    return true;
}

// scanf's %s: blanks, then a word up to the next blank; `max` bounds what is kept.
bool scanWord(const char*& p, std::string* out, std::size_t max) {
    const char* q = skipSpace(p);
    const char* b = q;
    while (*q && !isSpace(*q))
        ++q;
    if (q == b) return false;
    out->assign(b, std::min(static_cast<std::size_t>(q - b), max));
    p = q;
    return true;
}

bool isGB(const std::string& unit) {
    return unit.size() == 2 && std::toupper(static_cast<unsigned char>(unit[0])) == 'G' &&
           std::toupper(static_cast<unsigned char>(unit[1])) == 'B';
}

} // namespace

std::uint32_t moduleSizeMB(const char* text) {
    if (!text) return 0;
    const char* p = text;
    std::int32_t n = 0;
    std::string unit;
    if (!scanInt(p, &n) || !scanWord(p, &unit, 16)) return 0;
    std::uint32_t size = static_cast<std::uint32_t>(n);
    return isGB(unit) ? size * 1024u : size;
}

std::uint32_t storageSizeMB(const char* text) {
    if (!text) return 0;
    const char* p = skipSpace(text);
    char* end = nullptr;
    float f = std::strtof(p, &end);
    if (end == p) return 0;
    p = end;
    std::string unit;
    if (!scanWord(p, &unit, 16)) return 0;
    if (isGB(unit)) f *= 1024.0f;
    double d = static_cast<double>(f);
    if (std::isnan(d) || d <= 0) return 0;
    if (d >= 4294967296.0) return 4294967295u;
    return static_cast<std::uint32_t>(d);
}

Version scanVersion(const char* text, std::size_t subMax) {
    Version v;
    if (!text) return v;
    const char* p = text;
    if (!scanInt(p, &v.major)) return v;
    v.fields = 1;
    if (*p != '.') return v;
    ++p;
    if (!scanInt(p, &v.minor)) return v;
    v.fields = 2;
    if (*p != '.') return v;
    ++p;
    if (scanWord(p, &v.sub, subMax)) v.fields = 3;
    return v;
}

bool installDate(const char* line, std::string* date) {
    static const char PHRASE[] = "Native install completed";
    const std::size_t phrase = sizeof PHRASE - 1; // 24
    date->clear();
    if (!line) return false;
    std::string l(line, strnlen(line, 511));
    if (!l.empty() && l.back() == '\n') l.pop_back();
    if (!l.empty() && l.back() == '.') l.pop_back();
    if (l.compare(0, phrase, PHRASE) != 0) return false;
    if (l.size() > phrase + 1) date->assign(l, phrase + 1, std::string::npos);
    return true;
}

OsRelease parseOsRelease(const char* data, std::size_t size) {
    OsRelease r;
    if (!data) return r;
    std::size_t pos = 0;
    while (pos < size) {
        const char* nl = static_cast<const char*>(std::memchr(data + pos, '\n', size - pos));
        std::size_t end = nl ? static_cast<std::size_t>(nl - data) : size;
        std::string line(data + pos, end - pos);
        pos = end + 1;
        std::size_t b = line.find_first_not_of(" \t");
        if (b == std::string::npos || line[b] == '#') continue;
        std::size_t eq = line.find('=', b);
        if (eq == std::string::npos) continue;
        std::string key = line.substr(b, eq - b);
        std::string raw = line.substr(eq + 1);
        while (!raw.empty() && (raw.back() == '\r' || raw.back() == ' ' || raw.back() == '\t'))
            raw.pop_back();
        std::string value;
        if (!raw.empty() && (raw[0] == '"' || raw[0] == '\'')) {
            char q = raw[0];
            for (std::size_t i = 1; i < raw.size() && raw[i] != q; ++i) {
                if (q == '"' && raw[i] == '\\' && i + 1 < raw.size()) ++i;
                value += raw[i];
            }
        } else {
            value = raw;
        }
        std::string* slot = key == "NAME"          ? &r.name
                            : key == "PRETTY_NAME" ? &r.prettyName
                            : key == "VERSION_ID"  ? &r.versionId
                                                   : nullptr;
        if (slot) *slot = value;
    }
    return r;
}

bool meminfoKB(const char* data, std::size_t size, const char* key, std::uint64_t* kb) {
    if (!data || !key || !kb) return false;
    const std::size_t klen = std::strlen(key);
    std::size_t pos = 0;
    while (pos < size) {
        const char* nl = static_cast<const char*>(std::memchr(data + pos, '\n', size - pos));
        std::size_t end = nl ? static_cast<std::size_t>(nl - data) : size;
        if (end - pos > klen && std::memcmp(data + pos, key, klen) == 0 &&
            data[pos + klen] == ':') {
            std::uint64_t v = 0;
            std::size_t i = pos + klen + 1;
            while (i < end && (data[i] == ' ' || data[i] == '\t'))
                ++i;
            std::size_t digits = 0;
            for (; i < end && data[i] >= '0' && data[i] <= '9'; ++i, ++digits) {
                if (v > (UINT64_MAX - 9) / 10) return false;
                v = v * 10 + static_cast<unsigned>(data[i] - '0');
            }
            if (!digits) return false;
            *kb = v;
            return true;
        }
        pos = end + 1;
    }
    return false;
}

bool readHostFile(const char* path, std::string* out, std::size_t limit) {
    out->clear();
    std::FILE* f = host::fopen(path, "r");
    if (!f) return false;
    char buf[4096];
    std::size_t n;
    while (out->size() < limit && (n = std::fread(buf, 1, sizeof buf, f)) > 0)
        out->append(buf, std::min(n, limit - out->size()));
    std::fclose(f);
    return true;
}

std::string kernelName() {
    host::Utsname u;
    std::memset(&u, 0, sizeof u);
    if (host::uname(&u) != 0) return std::string();
    return std::string(u.sysname, strnlen(u.sysname, sizeof u.sysname));
}

bool scannedHostIsLinux() {
    return kernelName() == "Linux";
}

} // namespace hostfacts
