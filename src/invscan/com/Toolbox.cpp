#include "invscan/Toolbox.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace {
bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}
bool isDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}
} // namespace

bool Toolbox::str2ulong(const char* s, unsigned long& out, int base) {
    if (!s) return false;
    char* end = nullptr;
    unsigned long v = std::strtoul(s, &end, base);
    if (end == s) return false;
    out = v;
    return true;
}

bool Toolbox::str2long(const char* s, long& out, int base) {
    if (!s) return false;
    char* end = nullptr;
    long v = std::strtol(s, &end, base);
    if (end == s) return false;
    out = v;
    return true;
}

const char* Toolbox::get_token(std::FILE* f) {
    static char buffer[100];
    static int pos = 0;
    if (!f) return nullptr;
    int c;
    while ((c = std::fgetc(f)) != EOF) {
        if (isSpace(static_cast<char>(c))) {
            if (pos > 0) {
                pos = 0;
                return buffer;
            }
            continue;
        }
        if (pos < 0 || pos >= 99) {
            buffer[0] = '\0';
            pos = 0;
            return nullptr;
        }
        buffer[pos++] = static_cast<char>(c);
        buffer[pos] = '\0';
    }
    // End of input: a pending token has no white space after it and is dropped.
    pos = 0;
    return nullptr;
}

std::string Toolbox::get_token(const char* s, int& pos) {
    if (!s || pos < 0) return std::string();
    size_t len = std::strlen(s);
    size_t p = static_cast<size_t>(pos);
    if (p >= len) return std::string();
    while (p < len && isSpace(s[p]))
        ++p;
    pos = static_cast<int>(p);
    if (p >= len) return std::string();
    size_t start = p;
    while (p < len && !isSpace(s[p]))
        ++p;
    pos = static_cast<int>(p);
    return std::string(s + start, p - start);
}

std::string Toolbox::trim(const char* s) {
    if (!s) return std::string();
    size_t len = std::strlen(s);
    size_t b = 0;
    while (b < len && isSpace(s[b]))
        ++b;
    size_t e = len;
    while (e > b && isSpace(s[e - 1]))
        --e;
    return std::string(s + b, e - b);
}

const char* Toolbox::strcasestr(const char* hay, const char* needle) {
    if (!hay || !needle || !*needle) return nullptr;
    for (const char* start = hay; *start; ++start) {
        const char* h = start;
        const char* n = needle;
        while (*n && *h &&
               std::tolower(static_cast<unsigned char>(*h)) ==
                   std::tolower(static_cast<unsigned char>(*n))) {
            ++h;
            ++n;
        }
        if (!*n) return start;
    }
    return nullptr;
}

namespace {
// major * 10000 + minor * 100 + patch; base 0 on purpose (octal for "010"). In 64
// bits so that long components (date-like versions) compare alike on 32-bit hosts.
unsigned long long versionNumber(const char* s) {
    if (!isDigit(s[0])) return 0;
    char* end = nullptr;
    unsigned long long n = std::strtoull(s, &end, 0) * 10000ULL;
    if (end[0] == '.' && isDigit(end[1])) {
        n += std::strtoull(end + 1, &end, 0) * 100ULL;
        if (end[0] == '.' && isDigit(end[1])) n += std::strtoull(end + 1, &end, 0);
    }
    return n;
}
} // namespace

int Toolbox::compareVersions(const char* a, const char* b) {
    if (!a || !b || !*a || !*b) return -1;
    unsigned long long na = versionNumber(a);
    unsigned long long nb = versionNumber(b);
    if (na == 0 || nb == 0) return -1;
    if (na > nb) return 1;
    if (na < nb) return -1;
    return 0;
}

bool Toolbox::match(const char* text, const char* pattern,
                    std::map<std::string, std::string>& fields) {
    if (!text || !pattern) return false;
    std::string t = trim(text);
    std::string p = trim(pattern);
    int tpos = 0, ppos = 0;
    size_t mark = 0;
    bool result = false;
    for (;;) {
        std::string ttok = get_token(t.c_str(), tpos);
        std::string ptok = get_token(p.c_str(), ppos);
        if (ptok.empty()) {
            result = ttok.empty();
            break;
        }
        if (ttok.empty()) break;
        if (ptok[0] == '%') {
            std::string name = ptok.substr(1);
            auto it = fields.find(name);
            if (it == fields.end())
                fields[name] = ttok;
            else
                it->second += " " + ttok;
        } else if (ptok != ttok) {
            break;
        }
        mark = static_cast<size_t>(tpos);
    }
    fields["matched"] = trim(t.substr(0, mark).c_str());
    fields["rest"] = t.substr(mark);
    return result;
}
