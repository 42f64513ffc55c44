#include "cli/Sanitize.h"

#include "common/host/host_internal.h"
#include "invscan/SafeFile.h"
#include "invscan/md5.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using Json = nlohmann::ordered_json;

namespace {

const std::size_t MAX_BUNDLE_FILE = 64u << 20; // the largest file a bundle holds
const std::size_t MAX_VALUE = 255;             // a host name's limit, and a serial's
const std::size_t MIN_HEX = 6;                 // bytes: shorter hexadecimal forms turn up by chance
// What the noted values may take, their tries counted: a bundle naming more is refused
// rather than held (a real one takes a few hundred KiB).
const std::size_t MAX_LEARNT = 12u << 20;
const std::size_t EDGE_BYTES = 48; // a trie edge as the hash map holds it
const int MAX_DEPTH = 8;           // folders in a bundle

void hmacMd5(const std::string& key, const std::string& msg, unsigned char out[16]) {
    unsigned char k[64] = {0};
    if (key.size() > 64) {
        md5file c;
        md5file_clear(&c);
        md5file_addn(&c, reinterpret_cast<const unsigned char*>(key.data()), key.size());
        md5file_hash(&c, k);
    } else {
        std::memcpy(k, key.data(), key.size());
    }
    unsigned char pad[64];
    unsigned char inner[16];
    md5file c;
    for (int i = 0; i < 64; ++i)
        pad[i] = static_cast<unsigned char>(k[i] ^ 0x36);
    md5file_clear(&c);
    md5file_addn(&c, pad, 64);
    md5file_addn(&c, reinterpret_cast<const unsigned char*>(msg.data()), msg.size());
    md5file_hash(&c, inner);
    for (int i = 0; i < 64; ++i)
        pad[i] = static_cast<unsigned char>(k[i] ^ 0x5c);
    md5file_clear(&c);
    md5file_addn(&c, pad, 64);
    md5file_addn(&c, inner, 16);
    md5file_hash(&c, out);
}

bool isHex(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}
bool isAlnum(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
int hexValue(char c) {
    return isDigit(c) ? c - '0' : (std::tolower(static_cast<unsigned char>(c)) - 'a' + 10);
}

std::string hexOf(const std::string& bytes, bool upper) {
    const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string s;
    for (unsigned char b : bytes) {
        s += digits[b >> 4];
        s += digits[b & 15];
    }
    return s;
}
std::string bytesOfHex(const std::string& hex) {
    std::string b;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        b += static_cast<char>(hexValue(hex[i]) << 4 | hexValue(hex[i + 1]));
    return b;
}

std::string lower(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}
std::string upper(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}
std::string trim(const std::string& s, const char* blank = " \t\r") {
    std::size_t b = s.find_first_not_of(blank), e = s.find_last_not_of(blank);
    return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}
// A key as its words, whatever their case and separators: "Domain Name", "domain_name"
// and "DomainName" are all "domainname".
std::string keyWords(const std::string& key) {
    std::string k;
    for (char c : key)
        if (isAlnum(c)) k += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return k;
}
// Where `pat` first stands in text[from, to), npos when not: searches that stop at
// the end of their line keep every pass over a text linear.
std::size_t findIn(const std::string& text, const char* pat, std::size_t from, std::size_t to) {
    const std::size_t m = std::strlen(pat);
    to = std::min(to, text.size());
    if (from >= to || to - from < m) return std::string::npos;
    const auto end = text.begin() + static_cast<std::ptrdiff_t>(to);
    const auto at =
        std::search(text.begin() + static_cast<std::ptrdiff_t>(from), end, pat, pat + m);
    return at == end ? std::string::npos : static_cast<std::size_t>(at - text.begin());
}
// Whether a UUID (8-4-4-4-12 hexadecimal digits, either case) starts at text[i], no
// hexadecimal digit touching it.
bool uuidAt(const std::string& text, std::size_t i) {
    if (text.size() - i < 36 || i > text.size() || (i > 0 && isHex(text[i - 1])) ||
        (text.size() > i + 36 && isHex(text[i + 36])))
        return false;
    for (std::size_t k = 0; k < 36; ++k) {
        const bool dash = k == 8 || k == 13 || k == 18 || k == 23;
        if (dash ? text[i + k] != '-' : !isHex(text[i + k])) return false;
    }
    return true;
}
std::string replaced(std::string s, char from, char to) {
    std::replace(s.begin(), s.end(), from, to);
    return s;
}
std::string without(std::string s, char c) {
    s.erase(std::remove(s.begin(), s.end(), c), s.end());
    return s;
}

// The 16 bytes of a UUID text, or empty when it is none.
std::string uuidBytes(const std::string& s) {
    if (s.size() != 36) return std::string();
    std::string b;
    for (std::size_t i = 0; i < 36; ++i) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (s[i] != '-') return std::string();
            continue;
        }
        if (!isHex(s[i]) || !isHex(s[i + 1])) return std::string();
        b += static_cast<char>(hexValue(s[i]) << 4 | hexValue(s[i + 1]));
        ++i;
    }
    return b;
}

// SMBIOS keeps the first three fields of a UUID little-endian.
std::string smbiosOrder(std::string b) {
    std::reverse(b.begin(), b.begin() + 4);
    std::reverse(b.begin() + 4, b.begin() + 6);
    std::reverse(b.begin() + 6, b.begin() + 8);
    return b;
}

bool isMask4(const unsigned char b[4]) {
    uint32_t v = static_cast<uint32_t>(b[0]) << 24 | static_cast<uint32_t>(b[1]) << 16 |
                 static_cast<uint32_t>(b[2]) << 8 | b[3];
    return v != 0 && (~v & (~v + 1)) == 0; // ones then zeros
}
// Addresses that name no machine: unspecified, loopback, masks, multicast, broadcast.
bool plainIpv4(const unsigned char b[4]) {
    return b[0] == 0 || b[0] == 127 || isMask4(b) || b[0] >= 224;
}

// A host-like word: letters, digits, '-' and '.' with a letter somewhere.
bool hostWord(const std::string& s) {
    bool letter = false;
    for (char c : s) {
        if (!isAlnum(c) && c != '-' && c != '.' && c != '_') return false;
        if (std::isalpha(static_cast<unsigned char>(c))) letter = true;
    }
    return letter;
}

// Values firmware and installers write where no serial was set: they name nothing.
bool placeholder(const std::string& value) {
    static const char* const known[] = {"not available",
                                        "to be filled by o.e.m.",
                                        "to be filled by oem",
                                        "0123456789",
                                        "123456789",
                                        "1234567890",
                                        "system serial number",
                                        "chassis serial number",
                                        "base board serial number",
                                        "serial number",
                                        "not specified",
                                        "none",
                                        "default string",
                                        "unknown",
                                        "n/a",
                                        "not applicable",
                                        "invalid",
                                        "empty",
                                        "oem",
                                        "o.e.m.",
                                        "03000200-0400-0500-0006-000700080009"};
    if (value.size() < 3) return true;
    const std::string l = lower(value);
    for (const char* k : known)
        if (l == k) return true;
    // One character over and over ("0000000", "FFFFFFFF-FFFF-..."): no machine's own.
    const std::string bare = without(without(l, '-'), ' ');
    return bare.find_first_not_of(bare[0]) == std::string::npos;
}

// Tab-separated fields of one bundle line.
std::vector<std::string> fields(const std::string& line) {
    std::vector<std::string> f;
    std::size_t p = 0;
    for (;;) {
        std::size_t t = line.find('\t', p);
        f.push_back(line.substr(p, t == std::string::npos ? std::string::npos : t - p));
        if (t == std::string::npos) return f;
        p = t + 1;
    }
}

std::vector<std::string> words(const std::string& s) {
    std::vector<std::string> w;
    std::size_t p = 0;
    while ((p = s.find_first_not_of(" \t\r", p)) != std::string::npos) {
        std::size_t e = s.find_first_of(" \t\r", p);
        w.push_back(s.substr(p, e == std::string::npos ? std::string::npos : e - p));
        p = e;
    }
    return w;
}

// An address found in a text: its bytes and how it was written.
struct Address {
    enum Type { NONE, IPV4, IPV6, MAC } type = NONE;
    unsigned char b[16] = {0};
    std::size_t n = 0;     // bytes
    char sep = ':';        // a MAC's separator
    bool padded = true;    // every group at full width
    bool upper = false;    // hexadecimal letters in capitals
    bool reversed = false; // IPv4 octets of an in-addr.arpa name, last first
    std::size_t octets = 4;
};

bool anyUpperHex(const std::string& s) {
    return std::any_of(s.begin(), s.end(), [](char c) { return c >= 'A' && c <= 'F'; });
}

// A hardware address: six or eight groups of one or two hexadecimal digits split by
// ':' or '-', or three or four groups of four split by '.'.
bool parseMac(const std::string& t, Address* a) {
    const char sep = t.find('-') != std::string::npos   ? '-'
                     : t.find('.') != std::string::npos ? '.'
                                                        : ':';
    std::size_t width = sep == '.' ? 4 : 2, p = 0;
    std::string bytes;
    bool padded = true;
    for (;;) {
        std::size_t c = t.find(sep, p);
        std::string g = t.substr(p, c == std::string::npos ? std::string::npos : c - p);
        if (g.empty() || g.size() > width || !std::all_of(g.begin(), g.end(), isHex)) return false;
        if (sep == '.') {
            if (g.size() != 4) return false;
            bytes += bytesOfHex(g);
        } else {
            bytes += static_cast<char>(std::strtoul(g.c_str(), nullptr, 16));
            padded = padded && g.size() == 2;
        }
        if (bytes.size() > 8 || c == std::string::npos) break;
        p = c + 1;
    }
    if (bytes.size() != 6 && bytes.size() != 8) return false;
    if (std::count(t.begin(), t.end(), sep) !=
        static_cast<std::ptrdiff_t>(sep == '.' ? bytes.size() / 2 - 1 : bytes.size() - 1))
        return false;
    a->type = Address::MAC;
    a->n = bytes.size();
    std::memcpy(a->b, bytes.data(), bytes.size());
    a->sep = sep;
    a->padded = padded;
    a->upper = anyUpperHex(t);
    return true;
}

// An address token as a whole: IPv4, hardware, IPv6.
bool parseToken(const std::string& t, Address* a) {
    if (t.size() < 7) return false;
    if (std::count(t.begin(), t.end(), '.') == 3 && t.find(':') == std::string::npos &&
        inet_pton(AF_INET, t.c_str(), a->b) == 1) {
        a->type = Address::IPV4;
        a->n = 4;
        return true;
    }
    if (parseMac(t, a)) return true;
    if (std::count(t.begin(), t.end(), ':') >= 2 && t.size() < INET6_ADDRSTRLEN &&
        inet_pton(AF_INET6, t.c_str(), a->b) == 1) {
        a->type = Address::IPV6;
        a->n = 16;
        a->upper = anyUpperHex(t);
        // Written in full ("2001:0db8:0000:..."): the pseudonym is too.
        a->padded = t.size() == 39 && std::count(t.begin(), t.end(), ':') == 7;
        return true;
    }
    return false;
}

bool startsWithNoCase(const std::string& text, std::size_t at, const char* word) {
    std::size_t n = std::strlen(word);
    if (text.size() - at < n || at > text.size()) return false;
    for (std::size_t k = 0; k < n; ++k)
        if (std::tolower(static_cast<unsigned char>(text[at + k])) != word[k]) return false;
    return true;
}

// The address starting at text[i] (which no name character precedes), with its
// length; `runEnd` is where the run of address characters ends, so that a caller
// tries no start inside a run that held none.
bool parseAddressAt(const std::string& text, std::size_t i, Address* a, std::size_t* len,
                    std::size_t* runEnd) {
    const std::size_t n = text.size();
    std::size_t j = i;
    while (j < n && (isHex(text[j]) || text[j] == ':' || text[j] == '.'))
        ++j;
    *runEnd = j;
    auto apart = [&](std::size_t at) { return at >= n || !(isAlnum(text[at]) || text[at] == '_'); };
    // Dashed hardware addresses.
    if (j < n && text[j] == '-' && j - i <= 2) {
        std::size_t k = i;
        while (k < n && (isHex(text[k]) || text[k] == '-'))
            ++k;
        if (apart(k) && parseMac(text.substr(i, k - i), a)) {
            *len = k - i;
            *runEnd = k;
            return true;
        }
        return false;
    }
    std::size_t end = j;
    while (end > i && text[end - 1] == '.')
        --end; // a sentence's full stop
    std::string token = text.substr(i, end - i);
    if (!apart(j) && !startsWithNoCase(text, end, ".in-addr.arpa")) return false;
    // A reverse-lookup name: "5.1.77.10.in-addr.arpa".
    if (end < n && startsWithNoCase(text, end, ".in-addr.arpa") && !token.empty() &&
        token.find(':') == std::string::npos) {
        std::vector<std::string> o;
        std::size_t p = 0;
        for (;;) {
            std::size_t d = token.find('.', p);
            o.push_back(token.substr(p, d == std::string::npos ? d : d - p));
            if (d == std::string::npos) break;
            p = d + 1;
        }
        bool ok = o.size() <= 4;
        for (std::size_t k = 0; ok && k < o.size(); ++k) {
            ok = !o[k].empty() && o[k].size() <= 3 &&
                 std::all_of(o[k].begin(), o[k].end(), isDigit) && std::atoi(o[k].c_str()) <= 255;
            if (ok) a->b[o.size() - 1 - k] = static_cast<unsigned char>(std::atoi(o[k].c_str()));
        }
        if (ok) {
            a->type = Address::IPV4;
            a->n = 4;
            a->reversed = true;
            a->octets = o.size();
            *len = token.size();
            return true;
        }
    }
    if (parseToken(token, a)) {
        *len = token.size();
        return true;
    }
    // "10.77.1.5:/export" and "10.77.1.5:445": the address before the colon.
    std::size_t colon = token.find(':');
    if (colon != std::string::npos && token.find('.') < colon &&
        std::all_of(token.begin() + static_cast<std::ptrdiff_t>(colon) + 1, token.end(), isDigit) &&
        parseToken(token.substr(0, colon), a) && a->type == Address::IPV4) {
        *len = colon;
        return true;
    }
    return false;
}

// Whether the stored file `name` in the folder open at `dir` is a regular file; the
// reason otherwise.
bool regularAt(int dir, const char* name, struct stat* st, std::string* why) {
    if (::fstatat(dir, name, st, AT_SYMLINK_NOFOLLOW) != 0) {
        *why = std::strerror(errno);
        return false;
    }
    if (S_ISLNK(st->st_mode))
        *why = "is a symbolic link";
    else if (!S_ISREG(st->st_mode))
        *why = "is not a regular file";
    return S_ISREG(st->st_mode);
}

struct BundleFile {
    int dir; // a descriptor of Walk::dirs
    std::string name, path;
    mode_t mode;
    std::string data;
};

// The bundle's folders, open for as long as its files are rewritten.
struct Walk {
    std::vector<int> dirs;
    std::vector<BundleFile> files;
    ~Walk() {
        for (int d : dirs)
            ::close(d);
    }

    bool folder(int dir, const std::string& where, int depth, std::string* why) {
        int fd = ::dup(dir);
        DIR* d = fd < 0 ? nullptr : ::fdopendir(fd);
        if (!d) {
            if (fd >= 0) ::close(fd);
            *why = where + ": " + std::strerror(errno);
            return false;
        }
        std::unique_ptr<DIR, int (*)(DIR*)> closer(d, ::closedir);
        while (struct dirent* e = ::readdir(d)) {
            const char* name = e->d_name;
            if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
            if (depth == 0 && std::strcmp(name, host::bundle::INCOMPLETE) == 0) continue;
            const std::string path = where + "/" + name;
            struct stat st;
            std::string reason;
            if (::fstatat(dir, name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode)) {
                int sub = ::openat(dir, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
                if (sub < 0 || depth >= MAX_DEPTH) {
                    if (sub >= 0) ::close(sub);
                    *why = path + ": " + (sub < 0 ? std::strerror(errno) : "is nested too deep");
                    return false;
                }
                dirs.push_back(sub);
                if (!folder(sub, path, depth + 1, why)) return false;
                continue;
            }
            if (!regularAt(dir, name, &st, &reason)) {
                *why = path + ": " + reason;
                return false;
            }
            int in = ::openat(dir, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
            struct stat now {};
            BundleFile f{dir, name, path, st.st_mode, std::string()};
            bool tooLarge = false;
            bool ok = in >= 0 && ::fstat(in, &now) == 0 && S_ISREG(now.st_mode) &&
                      now.st_ino == st.st_ino && now.st_dev == st.st_dev &&
                      safefile::readAllFd(in, MAX_BUNDLE_FILE, &f.data, &tooLarge);
            int err = errno;
            if (in >= 0) ::close(in);
            if (!ok) {
                *why = path + ": " +
                       (tooLarge  ? "is too large"
                        : in >= 0 ? (S_ISREG(now.st_mode) ? "changed while it was read"
                                                          : "is not a regular file")
                                  : std::strerror(err));
                return false;
            }
            files.push_back(std::move(f));
        }
        return true;
    }
};

// Replaces a file's bytes, keeping its mode: written to a new file beside it, made
// in the same folder descriptor (never through anything planted there), and renamed
// over it.
bool rewriteAt(const BundleFile& f, const std::string& data, std::string* why) {
    const std::string tmp = f.name + ".sanitize";
    std::string reason;
    int fd = safefile::createNewAt(f.dir, tmp.c_str(), f.mode & 0777, &reason);
    if (fd < 0) {
        *why = f.path + ".sanitize: " + reason;
        return false;
    }
    bool ok = safefile::writeAllFd(fd, data.data(), data.size());
    int e = errno;
    if (::close(fd) != 0 && ok) {
        ok = false;
        e = errno;
    }
    if (ok && ::renameat(f.dir, tmp.c_str(), f.dir, f.name.c_str()) != 0) {
        ok = false;
        e = errno;
    }
    if (!ok) {
        ::unlinkat(f.dir, tmp.c_str(), 0);
        *why = f.path + ": " + std::strerror(e);
    }
    return ok;
}

} // namespace

std::uint32_t Sanitizer::Trie::step(std::uint32_t node, unsigned char c) const {
    auto it = next.find(static_cast<std::uint64_t>(node) << 8 | c);
    return it == next.end() ? 0 : it->second;
}

std::uint32_t Sanitizer::Trie::add(const std::string& s) {
    std::uint32_t node = 0;
    for (unsigned char c : s) {
        std::uint32_t& to = next[static_cast<std::uint64_t>(node) << 8 | c];
        if (to == 0) {
            to = static_cast<std::uint32_t>(form.size());
            form.push_back(-1);
        }
        node = to;
    }
    return node;
}

Sanitizer::Sanitizer(const std::string& key) : m_key(key) {}

std::string Sanitizer::stream(const std::string& tag, std::size_t n) const {
    std::string out;
    unsigned char block[16];
    for (unsigned counter = 0; out.size() < n; ++counter) {
        hmacMd5(m_key, tag + '|' + std::to_string(counter), block);
        out.append(reinterpret_cast<const char*>(block), 16);
    }
    out.resize(n);
    return out;
}

bool Sanitizer::attributeKind(const std::string& table, const std::string& attribute, Kind* kind) {
    if (attribute.find("Serial") != std::string::npos ||
        attribute.find("Asset Tag") != std::string::npos) {
        *kind = SERIAL;
        return true;
    }
    if (attribute.find("UUID") != std::string::npos ||
        (attribute == "ID" && table == "Storage")) { // a disk's id hashes its serial
        *kind = HEX;
        return true;
    }
    if (attribute == "Hostname" || attribute == "Domain" || attribute == "Server Hostname") {
        *kind = HOST;
        return true;
    }
    return false;
}

void Sanitizer::addForm(const std::string& raw, const std::string& rawTo, Match match) {
    std::string from = raw, to = rawTo;
    if (match != ANYWHERE) {
        // Whole words: the form starts and ends with a name character, so that its
        // edges are where words begin and end (the pseudonym keeps every other
        // character where it was).
        std::size_t b = 0, e = from.size();
        while (b < e && !isAlnum(from[b]))
            ++b;
        while (e > b && !isAlnum(from[e - 1]))
            --e;
        if (from.size() != to.size()) {
            if (b != 0 || e != from.size()) return;
        } else {
            from = from.substr(b, e - b);
            to = to.substr(b, e - b);
        }
    }
    if (from.empty() || from == to || (match == ANYWHERE && from.size() < MIN_HEX)) return;
    if (m_learnt > MAX_LEARNT) {
        m_full = true;
        return;
    }
    Trie& trie = match == ANYWHERE ? m_hex : m_words;
    const std::size_t edges = trie.next.size();
    const std::uint32_t node = trie.add(from);
    m_learnt += (trie.next.size() - edges) * (EDGE_BYTES + sizeof(std::int32_t));
    if (trie.form[node] >= 0) return; // the first pseudonym of a form stays
    trie.form[node] = static_cast<std::int32_t>(m_forms.size());
    m_forms.push_back(Form{from, to, match});
    m_learnt += sizeof(Form) + from.size() + to.size();
}

std::string Sanitizer::shaped(const std::string& tag, const std::string& value, bool hex) const {
    const std::string r = stream(tag, value.size());
    const char* hexDigits = lower(value) == value ? "0123456789abcdef" : "0123456789ABCDEF";
    std::string out = value;
    for (std::size_t c = 0; c < value.size(); ++c) {
        const unsigned char x = static_cast<unsigned char>(r[c]);
        const unsigned char v = static_cast<unsigned char>(value[c]);
        if (hex && std::isxdigit(v))
            out[c] = hexDigits[x & 15];
        else if (std::isdigit(v))
            out[c] = static_cast<char>('0' + x % 10);
        else if (std::isupper(v))
            out[c] = static_cast<char>('A' + x % 26);
        else if (std::islower(v))
            out[c] = static_cast<char>('a' + x % 26);
    }
    return out;
}

std::string Sanitizer::learnHost(const std::string& value) {
    // Free text such as "MN - example.com (ftp.example.com)": every host-like word.
    std::string out;
    std::size_t i = 0;
    while (i < value.size()) {
        std::size_t j = i;
        while (j < value.size() &&
               (isAlnum(value[j]) || value[j] == '-' || value[j] == '.' || value[j] == '_'))
            ++j;
        if (j == i) {
            out += value[i++];
            continue;
        }
        std::string word = value.substr(i, j - i);
        std::string name = word;
        while (!name.empty() && name.back() == '.')
            name.pop_back();
        bool single = word.size() == value.size();
        Address a;
        std::size_t len, runEnd;
        if (hostWord(name) && (single || name.find('.') != std::string::npos) &&
            lower(name) != "localhost" &&
            !(parseAddressAt(name, 0, &a, &len, &runEnd) && len == name.size())) {
            // Each label on its own, so that a domain and the names in it agree; the
            // top label (and "local") stays.
            std::string pseudo;
            std::size_t p = 0;
            for (;;) {
                std::size_t d = name.find('.', p);
                const std::string l = name.substr(p, d == std::string::npos ? d : d - p);
                const bool top = d == std::string::npos && p > 0;
                const std::string pl = shaped("host|" + lower(l), l, false);
                pseudo += top || lower(l) == "local" ? l : pl;
                // A label that names something of its own (a site, a wireless network)
                // stands alone too; short common ones ("www", "mail") do not.
                if (d != std::string::npos && l.size() >= 6) addForm(l, pl, NAME);
                if (d == std::string::npos) break;
                pseudo += '.';
                p = d + 1;
            }
            const Match m = name.find('.') == std::string::npos ? NAME : WORD;
            addForm(name, pseudo, m);
            addForm(lower(name), lower(pseudo), m);
            addForm(name, pseudo, ANYWHERE);
            addForm(lower(name), lower(pseudo), ANYWHERE);
            out += pseudo + word.substr(name.size());
        } else {
            out += word;
        }
        i = j;
    }
    return out;
}

// A name with spaces stands in other places without them or with dashes (the
// Bonjour and Bluetooth names made from it).
std::string Sanitizer::learnComputer(const std::string& value) {
    if (value.find(' ') == std::string::npos) return learnHost(value);
    const std::string pseudo = shaped("computer|" + lower(value), value, false);
    for (const std::string* v : {&value}) {
        addForm(*v, pseudo, WORD);
        addForm(replaced(*v, ' ', '-'), replaced(pseudo, ' ', '-'), WORD);
        addForm(lower(replaced(*v, ' ', '-')), lower(replaced(pseudo, ' ', '-')), WORD);
        addForm(without(*v, ' '), without(pseudo, ' '), WORD);
        addForm(*v, pseudo, ANYWHERE);
    }
    return pseudo;
}

// "Ana Lima (ana)": the full name and the login. The system's own accounts name
// no one.
std::string Sanitizer::learnUser(const std::string& value) {
    static const char* const system[] = {"root",          "daemon",  "nobody",
                                         "admin",         "guest",   "system administrator",
                                         "administrator", "unknown", "shared"};
    auto isSystem = [](const std::string& v) {
        const std::string l = lower(v);
        if (l.empty() || l[0] == '_') return true;
        for (const char* s : system)
            if (l == s) return true;
        return false;
    };
    std::string full = value, login;
    std::size_t open = value.rfind('(');
    if (!value.empty() && value.back() == ')' && open != std::string::npos) {
        full = trim(value.substr(0, open));
        login = trim(value.substr(open + 1, value.size() - open - 2));
    } else if (value.find(' ') == std::string::npos) {
        full.clear();
        login = value;
    }
    std::string out = value;
    if (!full.empty() && !isSystem(full) && full != login) {
        const std::string pseudo = shaped("user|" + lower(full), full, false);
        addForm(full, pseudo, WORD);
        addForm(full, pseudo, ANYWHERE);
        // Run together, as folder and account names make it.
        addForm(without(full, ' '), without(pseudo, ' '), WORD);
        addForm(lower(without(full, ' ')), lower(without(pseudo, ' ')), WORD);
        out = pseudo + (login.empty() ? "" : " (" + login + ")");
    }
    if (!login.empty() && !isSystem(login) && hostWord(login)) {
        const std::string pseudo = shaped("user|" + lower(login), login, false);
        addForm(login, pseudo, NAME);
        addForm(lower(login), lower(pseudo), NAME);
        const std::size_t at = out.rfind("(" + login + ")");
        out = at == std::string::npos ? pseudo : out.substr(0, at) + "(" + pseudo + ")";
    }
    return out;
}

std::string Sanitizer::learn(Kind kind, const std::string& raw) {
    std::size_t b = raw.find_first_not_of(" \t"), e = raw.find_last_not_of(" \t");
    // No serial, UUID or name is this long: a longer value is free text of no kind.
    if (b == std::string::npos || e - b >= MAX_VALUE) return raw;
    const std::string value = raw.substr(b, e - b + 1);
    std::string out;
    if (kind == HOST)
        out = learnHost(value);
    else if (kind == COMPUTER)
        out = learnComputer(value);
    else if (kind == USER)
        out = learnUser(value);
    if (kind == HOST || kind == COMPUTER || kind == USER)
        return raw.substr(0, b) + out + raw.substr(e + 1);
    if (placeholder(value)) return raw;
    const std::string pseudo =
        shaped(std::string(kind == HEX ? "hex|" : "serial|") + upper(value), value, kind == HEX);
    addForm(value, pseudo, WORD);
    addForm(lower(value), lower(pseudo), WORD);
    addForm(upper(value), upper(pseudo), WORD);
    addForm(value, pseudo, ANYWHERE);
    std::string bytes = uuidBytes(value);
    if (!bytes.empty()) {
        std::string to = uuidBytes(pseudo);
        addForm(bytes, to, ANYWHERE);
        addForm(smbiosOrder(bytes), smbiosOrder(to), ANYWHERE);
        addForm(without(value, '-'), without(pseudo, '-'), WORD);
        addForm(lower(without(value, '-')), lower(without(pseudo, '-')), WORD);
    }
    return raw.substr(0, b) + pseudo + raw.substr(e + 1);
}

std::string Sanitizer::macBytes(const std::string& bytes) const {
    if (bytes.find_first_not_of('\0') == std::string::npos ||
        bytes.find_first_not_of('\xff') == std::string::npos)
        return bytes;
    std::string r = stream("mac|" + bytes, bytes.size());
    // The multicast and locally-administered bits stay what they were.
    r[0] = static_cast<char>((r[0] & 0xFC) | (bytes[0] & 0x03));
    return r;
}

void Sanitizer::ipv4Bytes(unsigned char b[4]) const {
    // Private and special ranges keep their prefix; any other keeps its first octet
    // and is kept out of those ranges.
    static const struct {
        unsigned char a, b;
        int bits;
    } ranges[] = {{10, 0, 8}, {172, 16, 12}, {192, 168, 16}, {100, 64, 10}, {169, 254, 16}};
    int bits = 8;
    for (const auto& r : ranges) {
        const unsigned mask2 = r.bits <= 8 ? 0 : (0xFFu << (16 - r.bits)) & 0xFF;
        if (b[0] == r.a && (b[1] & mask2) == r.b) bits = r.bits;
    }
    const std::string r = stream("ipv4|" + std::string(reinterpret_cast<char*>(b), 4), 3);
    const unsigned keep2 = bits <= 8 ? 0 : (0xFFu << (16 - bits)) & 0xFF;
    unsigned char out[4] = {b[0], 0, 0, 0};
    out[1] =
        static_cast<unsigned char>((b[1] & keep2) | (static_cast<unsigned char>(r[0]) & ~keep2));
    out[2] = static_cast<unsigned char>(r[1]);
    out[3] = static_cast<unsigned char>(1 + static_cast<unsigned char>(r[2]) % 254);
    if (bits == 8) {
        if (out[0] == 172 && (out[1] & 0xF0) == 16) out[1] ^= 0x20;
        if (out[0] == 100 && (out[1] & 0xC0) == 64) out[1] ^= 0x40;
        if ((out[0] == 192 && out[1] == 168) || (out[0] == 169 && out[1] == 254)) out[1] ^= 1;
    }
    std::memcpy(b, out, 4);
}

namespace {
std::string formatAddress(const Address& a) {
    char text[INET6_ADDRSTRLEN + 8];
    std::string out;
    if (a.type == Address::IPV4) {
        if (!a.reversed) return inet_ntop(AF_INET, a.b, text, sizeof text) ? text : "";
        for (std::size_t k = 0; k < a.octets; ++k)
            out += (k ? "." : "") + std::to_string(a.b[a.octets - 1 - k]);
        return out;
    }
    if (a.type == Address::IPV6) {
        if (a.padded) {
            for (int g = 0; g < 8; ++g) {
                std::snprintf(text, sizeof text, a.upper ? "%02X%02X" : "%02x%02x", a.b[2 * g],
                              a.b[2 * g + 1]);
                out += (g ? ":" : "") + std::string(text);
            }
            return out;
        }
        if (!inet_ntop(AF_INET6, a.b, text, sizeof text)) return "";
        return a.upper ? upper(text) : std::string(text);
    }
    for (std::size_t i = 0; i < a.n; ++i) {
        if (a.sep == '.') {
            if (i % 2 == 0 && i) out += '.';
            std::snprintf(text, sizeof text, a.upper ? "%02X" : "%02x", a.b[i]);
        } else {
            if (i) out += a.sep;
            std::snprintf(text, sizeof text,
                          a.padded ? (a.upper ? "%02X" : "%02x") : (a.upper ? "%X" : "%x"), a.b[i]);
        }
        out += text;
    }
    return out;
}
} // namespace

std::string Sanitizer::addressAt(const std::string& text, std::size_t i, std::size_t* len) const {
    Address a;
    std::size_t runEnd;
    *len = 0;
    if (!parseAddressAt(text, i, &a, len, &runEnd)) {
        *len = 0;
        return std::string();
    }
    const std::string original = text.substr(i, *len);
    if (a.type == Address::IPV4) {
        unsigned char b[4];
        std::memcpy(b, a.b, 4);
        if (a.reversed) // a zone of fewer octets is the network they start
            std::fill(b + a.octets, b + 4, 0);
        if (plainIpv4(b) && !a.reversed) return original;
        if (b[0] == 0 || b[0] == 127 || b[0] >= 224) return original;
        ipv4Bytes(b);
        std::memcpy(a.b, b, 4);
    } else if (a.type == Address::MAC) {
        const std::string m = macBytes(std::string(reinterpret_cast<char*>(a.b), a.n));
        std::memcpy(a.b, m.data(), a.n);
    } else {
        static const unsigned char zero[16] = {0};
        unsigned char one[16] = {0};
        one[15] = 1;
        if (std::memcmp(a.b, zero, 16) == 0 || std::memcmp(a.b, one, 16) == 0 || a.b[0] == 0xff)
            return original;
        static const unsigned char mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
        if (std::memcmp(a.b, mapped, 12) == 0) {
            if (plainIpv4(a.b + 12)) return original;
            ipv4Bytes(a.b + 12); // an IPv4-mapped address keeps the IPv4 rule
        } else {
            // The first 16 bits kept (fe80::/10, fc00::/7), every other non-zero byte
            // changed, so that a compressed form stays compressed; an interface id
            // made from a MAC (EUI-64) made again from that MAC's pseudonym.
            const bool eui = a.b[11] == 0xff && a.b[12] == 0xfe;
            std::string mac;
            if (eui) {
                const unsigned char m[6] = {static_cast<unsigned char>(a.b[8] ^ 2),
                                            a.b[9],
                                            a.b[10],
                                            a.b[13],
                                            a.b[14],
                                            a.b[15]};
                mac = macBytes(std::string(reinterpret_cast<const char*>(m), 6));
            }
            std::string r = stream("ipv6|" + std::string(reinterpret_cast<char*>(a.b), 16), 16);
            for (int k = 2; k < 16; ++k)
                if (a.b[k])
                    a.b[k] = static_cast<unsigned char>(
                        1 + static_cast<unsigned char>(r[static_cast<std::size_t>(k)]) % 255);
            if (eui) {
                const unsigned char iid[8] = {static_cast<unsigned char>(mac[0] ^ 2),
                                              static_cast<unsigned char>(mac[1]),
                                              static_cast<unsigned char>(mac[2]),
                                              0xff,
                                              0xfe,
                                              static_cast<unsigned char>(mac[3]),
                                              static_cast<unsigned char>(mac[4]),
                                              static_cast<unsigned char>(mac[5])};
                std::memcpy(a.b + 8, iid, 8);
            }
        }
    }
    std::string out = formatAddress(a);
    return out.empty() ? original : out;
}

std::string Sanitizer::address(const std::string& token) const {
    std::size_t len = 0;
    std::string out = addressAt(token, 0, &len);
    return len == token.size() && len ? out : token;
}

std::string Sanitizer::rewrite(const std::string& text) const {
    std::string out;
    out.reserve(text.size() + text.size() / 8);
    const std::size_t n = text.size();
    std::size_t i = 0, noAddressUntil = 0;
    while (i < n) {
        const char c = text[i];
        const bool after = i == 0 || !isAlnum(text[i - 1]); // no name character before
        // Every UUID, noted or not: a UUID names one machine, disk or network.
        if (isHex(c) && i + 8 < n && text[i + 8] == '-' && uuidAt(text, i)) {
            const std::string v = text.substr(i, 36);
            out += placeholder(v) ? v : shaped("hex|" + upper(v), v, true);
            i += 36;
            continue;
        }
        // Addresses: runs of hexadecimal digits, ':', '.' (and '-') that stand alone.
        if ((isHex(c) || c == ':') && i >= noAddressUntil &&
            (after && (i == 0 || text[i - 1] != '_'))) {
            Address a;
            std::size_t len = 0, runEnd = i;
            if (parseAddressAt(text, i, &a, &len, &runEnd)) {
                out += addressAt(text, i, &len);
                i += len;
                continue;
            }
            noAddressUntil = runEnd;
        }
        // The longest noted form starting here: a word or a name where a word starts,
        // the bytes of a hexadecimal form anywhere.
        std::size_t best = 0;
        const Form* form = nullptr;
        if (isAlnum(c) && after && !m_words.next.empty()) {
            const bool nameStart =
                i == 0 || (text[i - 1] != '.' && text[i - 1] != '-' && text[i - 1] != '_');
            std::uint32_t node = 0;
            for (std::size_t j = i; j < n; ++j) {
                node = m_words.step(node, static_cast<unsigned char>(text[j]));
                if (!node) break;
                const std::int32_t f = m_words.form[node];
                if (f < 0 || (j + 1 < n && isAlnum(text[j + 1]))) continue;
                const Form& cand = m_forms[static_cast<std::size_t>(f)];
                const char next = j + 1 < n ? text[j + 1] : ' ';
                if (cand.match == NAME && (!nameStart || next == '.' || next == '-' || next == '_'))
                    continue;
                best = j + 1 - i;
                form = &cand;
            }
        }
        bool hex = false;
        if (isHex(c) && !m_hex.next.empty()) {
            std::uint32_t node = 0;
            for (std::size_t j = i; j + 1 < n && isHex(text[j]) && isHex(text[j + 1]); j += 2) {
                node = m_hex.step(node, static_cast<unsigned char>(hexValue(text[j]) << 4 |
                                                                   hexValue(text[j + 1])));
                if (!node) break;
                const std::int32_t f = m_hex.form[node];
                if (f >= 0 && j + 2 - i > best) {
                    best = j + 2 - i;
                    form = &m_forms[static_cast<std::size_t>(f)];
                    hex = true;
                }
            }
        }
        if (!form) {
            out += c;
            ++i;
            continue;
        }
        if (hex) {
            // In the case of the digits around it.
            bool up = false;
            const std::size_t from = i >= 16 ? i - 16 : 0, to = std::min(n, i + best + 16);
            for (std::size_t k = from; k < to && !up; ++k)
                up = text[k] >= 'A' && text[k] <= 'F';
            out += hexOf(form->to, up);
        } else {
            out += form->to;
        }
        i += best;
    }
    return out;
}

std::vector<std::string> Sanitizer::originals() const {
    std::vector<std::string> v;
    for (const Form& f : m_forms)
        if (f.match != ANYWHERE) v.push_back(f.from);
    return v;
}

void Sanitizer::learnTable(const Json& table) {
    if (!table["rows"].is_array()) return;
    const std::string name = table["name"].get<std::string>();
    for (const Json& row : table["rows"])
        for (const Json& a : row) {
            if (!a["value"].is_string()) continue;
            Kind kind;
            if (attributeKind(name, a["name"].get<std::string>(), &kind))
                learn(kind, a["value"].get<std::string>());
            learnText(a["value"].get<std::string>());
        }
}

void Sanitizer::sanitizeTable(Json& table) const {
    if (!table["rows"].is_array()) return;
    for (Json& row : table["rows"])
        for (Json& a : row)
            if (a["value"].is_string()) a["value"] = rewrite(a["value"].get<std::string>());
}

void Sanitizer::learnDumpKey(const std::string& key, const std::string& parent,
                             const std::string& value) {
    const std::string k = keyWords(key), p = keyWords(parent);
    auto endsWith = [&k](const char* s) {
        const std::size_t n = std::strlen(s);
        return k.size() >= n && k.compare(k.size() - n, n, s) == 0;
    };
    if (k.find("serial") != std::string::npos && value.size() > 2 && value[0] == '<' &&
        value.back() == '>' && value.size() % 2 == 0 &&
        std::all_of(value.begin() + 1, value.end() - 1, isHex)) {
        // Registry data: the serial (and parts of it) between NULs.
        const std::string bytes = bytesOfHex(value.substr(1, value.size() - 2));
        std::string to = bytes;
        for (std::size_t b = 0; b < bytes.size();) {
            std::size_t e = bytes.find('\0', b);
            if (e == std::string::npos) e = bytes.size();
            const std::string chunk = bytes.substr(b, e - b);
            if (std::all_of(chunk.begin(), chunk.end(),
                            [](char c) { return c > ' ' && c < 127; })) {
                const std::string pseudo = learn(SERIAL, chunk);
                if (pseudo.size() == chunk.size()) to.replace(b, chunk.size(), pseudo);
            }
            b = e + 1;
        }
        addForm(bytes, to, ANYWHERE);
    } else if (k.find("serial") != std::string::npos)
        learn(SERIAL, value);
    else if (k.find("uuid") != std::string::npos)
        learn(HEX, value);
    else if (k == "username" || k == "realname" || k == "fullname" || endsWith("usernamekey"))
        learn(USER, value);
    else if (endsWith("hostname") || k == "computername" ||
             (k == "name" && p == "hardwaresettings"))
        learn(COMPUTER, value);
    else if (endsWith("domainname") || k == "domain" || k == "searchdomains" ||
             k == "searchdomain" || k == "dnsdomain")
        learn(HOST, value);
}

// "//ana@nas.local/share", "ana;WORKGROUP@nas/share", "nas:/export", "ana@nas:/home".
void Sanitizer::learnMountSource(const std::string& source) {
    std::string server, user;
    std::size_t slashes = source.find("//");
    if (slashes != std::string::npos) {
        const std::string rest = source.substr(slashes + 2);
        server = rest.substr(0, rest.find('/'));
    } else {
        std::size_t colon = source.find(":/");
        if (colon == std::string::npos) colon = source.find(':');
        if (colon == std::string::npos || source.compare(0, 1, "/") == 0) return;
        server = source.substr(0, colon);
    }
    std::size_t at = server.rfind('@');
    if (at != std::string::npos) {
        user = server.substr(0, at);
        server = server.substr(at + 1);
        if (user.find(';') != std::string::npos) user = user.substr(user.find(';') + 1);
        user = user.substr(0, user.find(':')); // a password written in
    }
    if (!server.empty() && server[0] != '[') learn(HOST, server);
    if (!user.empty()) learn(USER, user);
}

namespace {
// Where a quoted or angle-bracketed value of a registry listing ends.
std::size_t valueEnd(const std::string& text, std::size_t from, char close, std::size_t cap) {
    if (from >= text.size()) return std::string::npos;
    const void* e = std::memchr(text.data() + from, close, std::min(text.size() - from, cap + 1));
    return e ? static_cast<std::size_t>(static_cast<const char*>(e) - text.data())
             : std::string::npos;
}
// The opening quote of a key whose closing one is at text[p], no further back than `cap`.
std::size_t quoteBefore(const std::string& text, std::size_t p, std::size_t cap) {
    for (std::size_t q = p; q-- > 0 && p - q <= cap;)
        if (text[q] == '"') return q;
    return std::string::npos;
}
} // namespace

void Sanitizer::learnText(const std::string& text) {
    const std::size_t n = text.size();
    // Addresses in the forms no separator marks.
    for (std::size_t i = 0, skip = 0; i < n;) {
        const char c = text[i];
        Address a;
        std::size_t len = 0, runEnd = i + 1;
        if ((isHex(c) || c == ':') && i >= skip &&
            (i == 0 || !(isAlnum(text[i - 1]) || text[i - 1] == '_')) &&
            parseAddressAt(text, i, &a, &len, &runEnd)) {
            const std::string original(reinterpret_cast<char*>(a.b), a.n);
            const std::string pseudo = address(text.substr(i, len));
            Address p;
            if (a.type == Address::MAC && parseMac(pseudo, &p)) {
                const std::string to(reinterpret_cast<char*>(p.b), p.n);
                addForm(hexOf(original, false), hexOf(to, false), WORD);
                addForm(hexOf(original, true), hexOf(to, true), WORD);
            } else if (a.type == Address::IPV4 && !a.reversed && !plainIpv4(a.b) &&
                       parseToken(pseudo, &p)) {
                std::string be(reinterpret_cast<char*>(a.b), 4),
                    to(reinterpret_cast<char*>(p.b), 4);
                for (bool up : {false, true}) {
                    addForm("0x" + hexOf(be, up), "0x" + hexOf(to, up), WORD);
                    addForm(hexOf(be, up), hexOf(to, up), WORD);
                    addForm(hexOf(std::string(be.rbegin(), be.rend()), up),
                            hexOf(std::string(to.rbegin(), to.rend()), up), WORD);
                }
            }
            i += len;
            continue;
        }
        if (i >= skip && runEnd > i + 1) skip = runEnd;
        ++i;
    }

    // The helpers' dumps: "key:s=value" lines in nested "(section" ... ")".
    std::vector<std::string> sections;
    for (std::size_t p = 0; p < n;) {
        std::size_t e = text.find('\n', p);
        if (e == std::string::npos) e = n;
        std::size_t k = text.find_first_not_of(' ', p);
        if (k < e && text[k] == '(') {
            const std::string name = text.substr(k + 1, std::min(e - k - 1, MAX_VALUE + 1));
            if (!sections.empty() &&
                keyWords(sections.back()).find("sleepprox") != std::string::npos)
                learn(COMPUTER, name);
            if (sections.size() < 64) sections.push_back(name);
        } else if (k < e && text[k] == ')') {
            if (!sections.empty()) sections.pop_back();
        } else if (k < e) {
            const std::size_t le = std::min(e, k + 4096);
            const std::size_t s = findIn(text, ":s=", k, le), d = findIn(text, ":d=", k, le);
            const std::string parent = sections.empty() ? std::string() : sections.back();
            if (s != std::string::npos) {
                learnDumpKey(text.substr(k, s - k), parent, text.substr(s + 3, e - s - 3));
            } else if (d != std::string::npos) {
                const std::size_t comma = findIn(text, ",", d, e);
                const std::string key = keyWords(text.substr(k, d - k));
                if (comma < e && key.find("serial") != std::string::npos)
                    learnDumpKey("serial data", "",
                                 "<" + text.substr(comma + 1, e - comma - 1) + ">");
            }
        }
        p = e + 1;
    }

    // Registry listings: "Key" = "value" and "Key" = <hexadecimal>, and the same
    // without spaces inside a dictionary: {"Key"="value",...}.
    for (const char* sep : {"\" = ", "\"="}) {
        const std::size_t m = std::strlen(sep);
        for (std::size_t p = 0; (p = text.find(sep, p)) != std::string::npos; p += m) {
            const std::size_t q = quoteBefore(text, p, 128), v = p + m;
            if (q == std::string::npos || v + 1 >= n) continue;
            const std::string key = text.substr(q + 1, p - q - 1);
            const char open = text[v];
            const std::size_t end = open == '"'   ? valueEnd(text, v + 1, '"', MAX_VALUE)
                                    : open == '<' ? valueEnd(text, v + 1, '>', 2048)
                                                  : std::string::npos;
            if (end == std::string::npos) continue;
            if (open == '"')
                learnDumpKey(key, "", text.substr(v + 1, end - v - 1));
            else if (keyWords(key).find("serial") != std::string::npos)
                learnDumpKey("serial data", "", text.substr(v, end - v + 1));
        }
    }

    // Every UUID, whatever names it; and logins by their home folders.
    for (std::size_t i = 0; i + 36 <= n; ++i)
        if (text[i + 8] == '-' && uuidAt(text, i)) {
            learn(HEX, text.substr(i, 36));
            i += 35;
        }
    for (const char* home : {"/Users/", "/home/"}) {
        const std::size_t m = std::strlen(home);
        for (std::size_t p = 0; (p = text.find(home, p)) != std::string::npos; p += m) {
            std::size_t b = p + m, e = b;
            while (e < n && e - b <= 64 &&
                   (isAlnum(text[e]) || text[e] == '-' || text[e] == '_' || text[e] == '.'))
                ++e;
            if (e > b && e - b <= 64 &&
                (e == n || text[e] == '/' || !std::isgraph(static_cast<unsigned char>(text[e]))))
                learn(USER, text.substr(b, e - b));
        }
    }

    // Property lists: <key>Key</key> <string>value</string>.
    for (std::size_t p = 0; (p = text.find("<key>", p)) != std::string::npos; p += 5) {
        const std::size_t ke = valueEnd(text, p + 5, '<', 128);
        if (ke == std::string::npos || text.compare(ke, 6, "</key>") != 0) continue;
        std::size_t v = text.find_first_not_of(" \t\r\n", ke + 6);
        if (v == std::string::npos || text.compare(v, 8, "<string>") != 0) continue;
        const std::size_t ve = valueEnd(text, v + 8, '<', MAX_VALUE);
        if (ve != std::string::npos)
            learnDumpKey(text.substr(p + 5, ke - p - 5), "", text.substr(v + 8, ve - v - 8));
    }

    // Syslog lines: "Dec  3 16:11:37 node-name process[123]: ...".
    for (std::size_t i = 7; i + 9 < n; ++i) {
        const char* t = text.data() + i;
        if (!(isDigit(t[0]) && isDigit(t[1]) && t[2] == ':' && isDigit(t[3]) && isDigit(t[4]) &&
              t[5] == ':' && isDigit(t[6]) && isDigit(t[7]) && t[8] == ' ' && t[-1] == ' ' &&
              isDigit(t[-2]) && (isDigit(t[-3]) || t[-3] == ' ') && t[-4] == ' ' &&
              std::isalpha(static_cast<unsigned char>(t[-5])) &&
              std::isalpha(static_cast<unsigned char>(t[-7]))))
            continue;
        const std::size_t h = i + 9, he = valueEnd(text, h, ' ', 64);
        if (he == std::string::npos) continue;
        const std::size_t pe = valueEnd(text, he + 1, ' ', 63);
        if (pe == std::string::npos || text[pe - 1] != ':') continue;
        const std::string node = text.substr(h, he - h);
        if (hostWord(node)) learn(HOST, node);
    }
}

bool Sanitizer::sanitizeBundle(const std::string& dir, std::string* why) {
    std::string reason;
    int root = safefile::openDir(dir.c_str(), &reason);
    if (root < 0) {
        *why = dir + ": " + reason;
        return false;
    }
    Walk walk;
    walk.dirs.push_back(root);
    // Incomplete until every file is rewritten: a copy left half-way is not replayed.
    const std::string mark = dir + "/" + host::bundle::INCOMPLETE;
    struct stat st;
    if (::fstatat(root, host::bundle::INCOMPLETE, &st, AT_SYMLINK_NOFOLLOW) == 0) {
        if (!S_ISREG(st.st_mode)) {
            *why = mark + ": is not a regular file";
            return false;
        }
    } else {
        int fd = errno == ENOENT
                     ? safefile::createNewAt(root, host::bundle::INCOMPLETE, 0644, &reason)
                     : -1;
        if (fd < 0) {
            *why = mark + ": " + (reason.empty() ? std::strerror(errno) : reason);
            return false;
        }
        const char text[] = "this bundle is being sanitised\n";
        bool ok = safefile::writeAllFd(fd, text, sizeof text - 1);
        if (::close(fd) != 0 || !ok) {
            *why = mark + ": " + std::strerror(errno);
            return false;
        }
    }
    if (!walk.folder(root, dir, 0, why)) return false;
    std::vector<BundleFile>& files = walk.files;
    std::sort(files.begin(), files.end(),
              [](const BundleFile& a, const BundleFile& b) { return a.path < b.path; });
    // Every name is learnt before the first file is rewritten.
    for (const BundleFile& file : files) {
        const std::string& data = file.data;
        const std::string& base = file.name;
        std::size_t p = 0;
        while (p < data.size()) {
            std::size_t e = data.find('\n', p);
            if (e == std::string::npos) e = data.size();
            const std::string line = data.substr(p, std::min(e - p, std::size_t(4096)));
            const std::vector<std::string> f = fields(line);
            if (base == "uname.txt" && f.size() >= 2 && f[0] == "nodename") learn(HOST, f[1]);
            if (base == "sysctl.txt" && f.size() >= 3 &&
                (f[0] == "kern.hostname" || f[0] == "kern.nisdomainname" ||
                 f[0] == "kern.domainname"))
                learn(COMPUTER, f[2]);
            if (base == "hosts.txt" && f.size() >= 2) learn(HOST, f[1]);
            if (base == "mounts.txt" && f.size() >= 2 && line[0] != '#') learnMountSource(f[1]);
            if (base.find("fstab") != std::string::npos ||
                base.find("mounts") != std::string::npos || base.find("mtab") != std::string::npos)
                for (const std::string& w : words(line))
                    if (line[0] != '#' && (w.find("//") == 0 || w.find(":/") != std::string::npos))
                        learnMountSource(w);
            if (base.find("resolv.conf") != std::string::npos) {
                const std::vector<std::string> w = words(line);
                if (!w.empty() && (w[0] == "domain" || w[0] == "search"))
                    for (std::size_t k = 1; k < w.size(); ++k)
                        learn(HOST, w[k]);
            }
            p = e + 1;
        }
        learnText(data);
        if (m_full) {
            *why = file.path + ": names more values to hide than a sanitised copy may hold (" +
                   std::to_string(MAX_LEARNT >> 20) + " MiB of them); refused";
            return false;
        }
    }
    for (const BundleFile& file : files) {
        const std::string clean = rewrite(file.data);
        if (clean != file.data && !rewriteAt(file, clean, why)) return false;
    }
    if (::unlinkat(root, host::bundle::INCOMPLETE, 0) != 0) {
        *why = mark + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

namespace {
// The key in the file open at `fd`, when only its owner (the caller or root) can
// change it.
std::string keyOf(int fd, const std::string& path, std::string* why) {
    std::string key, reason;
    if (!safefile::readKeptLine(fd, 4096, &key, &reason))
        *why = path + ": " + reason;
    else if (key.empty())
        *why = path + ": is empty";
    ::close(fd);
    return key;
}
} // namespace

std::string sanitizeKeyFromFile(const std::string& path, std::string* why) {
    std::string reason;
    int in = safefile::openRead(path.c_str(), &reason);
    if (in >= 0) return keyOf(in, path, why);
    if (errno != ENOENT) {
        *why = path + ": " + reason;
        return std::string();
    }
    unsigned char raw[32];
    int fd = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    bool ok = fd >= 0 && ::read(fd, raw, sizeof raw) == static_cast<ssize_t>(sizeof raw);
    if (fd >= 0) ::close(fd);
    if (!ok) {
        *why = "no random source";
        return std::string();
    }
    const std::string key = hexOf(std::string(reinterpret_cast<char*>(raw), sizeof raw), false);
    // The folder and those above it (~/.config/invscan on a new account), made one
    // descriptor at a time.
    std::size_t slash = path.find_last_of('/');
    if (slash != std::string::npos && slash > 0) {
        int made = safefile::makeDirs(path.substr(0, slash).c_str(), nullptr);
        if (made >= 0) ::close(made);
    }
    // O_EXCL: two first scans at once agree on whichever key was made first.
    int out = safefile::createNew(path.c_str(), 0600, &reason);
    if (out < 0) {
        if (errno == EEXIST) {
            in = safefile::openRead(path.c_str(), &reason);
            if (in >= 0) return keyOf(in, path, why);
        }
        *why = path + ": " + reason;
        return std::string();
    }
    const std::string line = key + "\n";
    ok = safefile::writeAllFd(out, line.data(), line.size());
    if (::close(out) != 0) ok = false;
    if (!ok) {
        *why = path + ": cannot be written";
        ::unlink(path.c_str());
        return std::string();
    }
    return key;
}
