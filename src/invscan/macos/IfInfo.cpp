#include "invscan/IfInfo.h"

#include "invscan/host.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

char StdErrRedir[64] = " 2>/dev/null";

namespace {

bool isWhite(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

void replace(char*& field, const char* value) {
    delete[] field;
    field = x_strdup(value);
}

// The ten text fields, in declaration order.
template <typename Info, typename F> void eachField(Info& a, Info& b, F fn) {
    fn(a.name, b.name);
    fn(a.description, b.description);
    fn(a.flags, b.flags);
    fn(a.ipv4, b.ipv4);
    fn(a.ipv6, b.ipv6);
    fn(a.mac, b.mac);
    fn(a.netmask, b.netmask);
    fn(a.broadcast, b.broadcast);
    fn(a.media, b.media);
    fn(a.status, b.status);
}

// The keyword's first occurrence in `from`, when white space precedes it in the line.
const char* keyword(const char* line, const char* from, const char* word) {
    const char* k = std::strstr(from, word);
    if (!k || k == line || !isWhite(k[-1])) return nullptr;
    return k;
}

void parseInet(char* k, IfInfo& cur) {
    char* p = k + 4;
    bool v4 = isWhite(*p);
    bool v6 = *p == '6';
    if (v6) ++p;
    while (*p && isWhite(*p))
        ++p;
    // "inet subnet a.b.c.d": the address sits past the word.
    char* addr = std::strstr(p, "subnet ") ? p + 7 : p;
    char* end = addr;
    while (*end && !isWhite(*end))
        ++end;
    bool more = *end != '\0';
    *end = '\0';
    if (char* pct = std::strchr(addr, '%')) *pct = '\0';
    if (v4) {
        replace(cur.ipv4, addr);
    } else if (v6) {
        replace(cur.ipv6, addr);
        IPv6_entry e;
        e.address = addr;
        e.scope = getScope(addr);
        e.index = -1;
        if (more) {
            if (const char* pl = std::strstr(end + 1, "prefixlen")) {
                pl += 9;
                while (*pl && isWhite(*pl))
                    ++pl;
                const char* d = pl;
                while (*d >= '0' && *d <= '9')
                    ++d;
                e.prefixLength.assign(pl, static_cast<std::size_t>(d - pl));
            }
        }
        cur.ipv6List.push_back(e);
    }
}

void parseEther(char* line, const char* k, IfInfo& cur) {
    std::size_t len = std::strlen(line);
    if (len && isWhite(line[len - 1])) line[len - 1] = '\0';
    char buf[20];
    std::memset(buf, 0, sizeof buf);
    const char* src = k + 6;
    if (src > line + std::strlen(line)) src = line + std::strlen(line);
    std::strncpy(buf, src, sizeof buf - 1);
    convertMacToCanonical(buf);
    replace(cur.mac, buf);
}

} // namespace

char* x_strdup(const char* s) {
    if (!s) return nullptr;
    std::size_t n = std::strlen(s);
    char* d = new char[n + 1];
    std::memcpy(d, s, n + 1);
    return d;
}

IfInfo::IfInfo(const IfInfo& o) {
    *this = o;
}

IfInfo& IfInfo::operator=(const IfInfo& o) {
    if (this == &o) return *this;
    eachField(*this, const_cast<IfInfo&>(o),
              [](char*& mine, char*& theirs) { replace(mine, theirs); });
    ipv6List = o.ipv6List;
    return *this;
}

void IfInfo::clear() {
    IfInfo& self = *this;
    eachField(self, self, [](char*& f, char*&) {
        delete[] f;
        f = nullptr;
    });
    ipv6List.clear();
}

IfInfoList::~IfInfoList() {
    for (int i = 0; i < m_count; ++i)
        delete m_items[i];
    delete[] m_items;
}

int IfInfoList::add(const IfInfo& info) {
    if (!info.name && !info.mac && !info.ipv4 && !info.ipv6) return 0;
    auto found = info.name ? m_byName.find(info.name) : m_byName.end();
    if (found != m_byName.end()) {
        IfInfo* e = m_items[found->second];
        eachField(*e, const_cast<IfInfo&>(info), [](char*& mine, char*& theirs) {
            if (theirs) replace(mine, theirs);
        });
        if (!info.ipv6List.empty()) e->ipv6List = info.ipv6List;
        return 0;
    }
    if (m_count == m_capacity) {
        // Grown by half again, so that a list of thousands stays linear to build.
        int capacity = m_capacity < 8 ? 8 : m_capacity + m_capacity / 2;
        IfInfo** grown = new IfInfo*[capacity];
        for (int i = 0; i < m_count; ++i)
            grown[i] = m_items[i];
        delete[] m_items;
        m_items = grown;
        m_capacity = capacity;
    }
    m_items[m_count] = new IfInfo(info);
    if (info.name) m_byName.emplace(info.name, m_count);
    ++m_count;
    return 1;
}

IfInfo* IfInfoList::get(int i) const {
    return i < 0 || i >= m_count ? nullptr : m_items[i];
}

IfInfo* IfInfoList::find(const char* name) const {
    if (!name) return nullptr;
    auto it = m_byName.find(name);
    return it == m_byName.end() ? nullptr : m_items[it->second];
}

int parse_ifconfig_unix(std::FILE* in, IfInfoList& list) {
    if (!in) return -1;
    IfInfo cur;
    char line[512];
    for (;;) {
        std::memset(line, 0, sizeof line);
        if (!std::fgets(line, sizeof line, in)) break;
        if (!line[0]) continue;
        if (!isWhite(line[0])) {
            std::size_t n = 0;
            while (std::isalnum(static_cast<unsigned char>(line[n])) || line[n] == ':')
                ++n;
            if (n && line[n - 1] == ':') --n;
            if (cur.name) list.add(cur);
            cur.clear();
            cur.name = new char[n + 1];
            std::memcpy(cur.name, line, n);
            cur.name[n] = '\0';
            continue;
        }
        char* rest = line;
        while (*rest && isWhite(*rest))
            ++rest;
        // Both keywords are looked for in the line as read; each is then taken
        // apart on its own copy, since taking one apart cuts the line.
        char* inet = const_cast<char*>(keyword(line, rest, "inet"));
        const char* ether = keyword(line, rest, "ether ");
        char copy[sizeof line];
        std::memcpy(copy, line, sizeof line);
        if (inet) parseInet(inet, cur);
        if (ether) parseEther(copy, copy + (ether - line), cur);
    }
    if (cur.name) list.add(cur);
    return 0;
}

int populateIfInfoList(IfInfoList& list) {
    // A 50-byte command, as hosts have always had it: a longer suffix is cut.
    char command[50];
    if (std::snprintf(command, sizeof command, "ifconfig -a%s", StdErrRedir) < 0) command[0] = '\0';
    std::FILE* first = host::popen(command, "r");
    std::FILE* second = nullptr;
    if (first) {
        if (std::snprintf(command, sizeof command, "/sbin/ifconfig -a%s", StdErrRedir) < 0)
            command[0] = '\0';
        second = host::popen(command, "r");
    }
    parse_ifconfig_unix(first ? second : nullptr, list);
    if (second) host::pclose(second);
    // Closed only after the parse, so the two commands run in their old order, and
    // closed all the same: an agent that scans every hour must not leak a child.
    if (first) host::pclose(first);
    return -1;
}

IfInfo* find_if(const char* name, const IfInfoList& list) {
    if (!name) return nullptr;
    for (int i = 0; i < list.getCount(); ++i) {
        IfInfo* e = list.get(i);
        if (e->name && std::strcmp(e->name, name) == 0) return e;
    }
    return nullptr;
}

IfInfo* findIPv4(IfInfoList& list, const char* address) {
    if (!address || !*address) return nullptr;
    for (int i = 0; i < list.getCount(); ++i) {
        IfInfo* e = list.get(i);
        if (std::strcmp(e->ipv4 ? e->ipv4 : "", address) == 0) return e;
    }
    return nullptr;
}

int fixDigit(char* c) {
    if (*c >= '0' && *c <= '9') return 0;
    // G and H pass as digits: hosts have always seen them that way.
    if (*c >= 'a' && *c <= 'h') {
        *c = static_cast<char>(*c - 'a' + 'A');
        return 0;
    }
    if (*c >= 'A' && *c <= 'H') return 0;
    return 1;
}

int convertMacToCanonical(char* mac) {
    if (!mac || std::strlen(mac) > 127) return 1;
    char copy[128];
    std::strcpy(copy, mac);
    std::string out;
    int parts = 0;
    bool failed = false;
    char* save = nullptr;
    for (char* t = strtok_r(copy, ":", &save); t; t = strtok_r(nullptr, ":", &save)) {
        std::size_t n = std::strlen(t);
        char two[2];
        if (n == 1) {
            two[0] = '0';
            two[1] = t[0];
        } else if (n == 2) {
            two[0] = t[0];
            two[1] = t[1];
        } else {
            failed = true;
            break;
        }
        if (fixDigit(&two[0]) || fixDigit(&two[1])) failed = true;
        if (parts) out += ':';
        out.append(two, 2);
        ++parts;
    }
    if (failed || parts != 6) return 1;
    std::strcpy(mac, out.c_str());
    return 0;
}

std::string getScope(const char* s) {
    if (!s) return std::string();
    std::size_t n = std::strlen(s);
    if (n > 2 && (s[0] == '2' || s[0] == '3')) return "global";
    auto lower = [](char c) {
        return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    };
    if (n > 4 && lower(s[0]) == 'f' && lower(s[1]) == 'e' && s[2] == '8' && s[3] == '0')
        return "link";
    if (n >= 4 && lower(s[0]) == 'f' && lower(s[1]) == 'e' &&
        (lower(s[2]) == 'c' || lower(s[2]) == 'd' || lower(s[2]) == 'e' || lower(s[2]) == 'f'))
        return "site";
    return std::string();
}

int getNameservers(char* first, char* second, char* domain) {
    std::FILE* f = host::fopen("/etc/resolv.conf", "r");
    if (!f) return -1;
    int result = -1, servers = 0;
    char line[1024];
    while (std::fgets(line, 1023, f)) {
        char* save = nullptr;
        char* tok = strtok_r(line, " \t\n", &save);
        if (!tok) continue;
        if (std::strcmp(tok, "nameserver") == 0) {
            char* value = strtok_r(nullptr, " \t\n", &save);
            if (servers < 2) {
                std::strcpy(servers == 0 ? first : second, value ? value : "");
                ++servers;
                result = 0;
            }
        } else if (std::strcmp(tok, "domain") == 0 && domain[0] == '\0') {
            char* value = strtok_r(nullptr, " \t\n#", &save);
            std::strcpy(domain, value ? value : "");
            result = 0;
        }
    }
    std::fclose(f);
    return result;
}
