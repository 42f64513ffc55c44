#include "cli/Sanitize.h"

#include "invscan/md5.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using Json = nlohmann::ordered_json;

namespace {

const std::size_t MAX_BUNDLE_FILE = 64u << 20; // the largest file a bundle holds
const std::size_t MAX_VALUE = 255;             // a host name's limit, and a serial's

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

std::string hexOf(const std::string& bytes, bool upper) {
    const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string s;
    for (unsigned char b : bytes) {
        s += digits[b >> 4];
        s += digits[b & 15];
    }
    return s;
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
        b += static_cast<char>(std::stoi(s.substr(i, 2), nullptr, 16));
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
    uint32_t v = static_cast<uint32_t>(b[0]) << 24 | b[1] << 16 | b[2] << 8 | b[3];
    return v != 0 && (~v & (~v + 1)) == 0; // ones then zeros
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

bool readFile(const std::string& path, std::string* out) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    char buf[65536];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0 && out->size() <= MAX_BUNDLE_FILE)
        out->append(buf, n);
    bool ok = !std::ferror(f) && out->size() <= MAX_BUNDLE_FILE;
    std::fclose(f);
    return ok;
}

// Replaces a file's bytes, keeping its mode; written beside it and renamed over it.
bool writeFile(const std::string& path, const std::string& data) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return false;
    std::string tmp = path + ".sanitize";
    int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, st.st_mode & 07777);
    if (fd < 0) return false;
    std::size_t done = 0;
    while (done < data.size()) {
        ssize_t k = ::write(fd, data.data() + done, data.size() - done);
        if (k <= 0) break;
        done += static_cast<std::size_t>(k);
    }
    bool ok = done == data.size() && ::close(fd) == 0;
    if (!ok || ::rename(tmp.c_str(), path.c_str()) != 0) {
        ::unlink(tmp.c_str());
        return false;
    }
    return true;
}

void listFiles(const std::string& dir, std::vector<std::string>* out) {
    DIR* d = ::opendir(dir.c_str());
    if (!d) return;
    while (struct dirent* e = ::readdir(d)) {
        if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
        std::string p = dir + "/" + e->d_name;
        struct stat st;
        if (::lstat(p.c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode))
            listFiles(p, out);
        else if (S_ISREG(st.st_mode))
            out->push_back(p);
    }
    ::closedir(d);
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

} // namespace

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

void Sanitizer::addForm(const std::string& from, const std::string& to, Match match) {
    const bool hex = match == ANYWHERE;
    // Short hexadecimal forms would turn up by chance in any data blob.
    if (from.empty() || from == to || (hex && from.size() < 12)) return;
    for (const Form& f : m_forms)
        if (f.from == from) return;
    // Longest first, so that a name is replaced before a part of it.
    auto at = std::find_if(m_forms.begin(), m_forms.end(),
                           [&](const Form& f) { return f.from.size() < from.size(); });
    m_forms.insert(at, Form{from, to, match});
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

std::string Sanitizer::learn(Kind kind, const std::string& raw) {
    std::size_t b = raw.find_first_not_of(" \t"), e = raw.find_last_not_of(" \t");
    // No serial, UUID or name is this long: a longer value is free text of no kind.
    if (b == std::string::npos || e - b >= MAX_VALUE) return raw;
    const std::string value = raw.substr(b, e - b + 1);
    if (kind == HOST) {
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
            if (hostWord(name) && (single || name.find('.') != std::string::npos) &&
                lower(name) != "localhost") {
                // Each label on its own, so that a domain and the names in it agree; the
                // top label (and "local") stays.
                std::string pseudo;
                std::size_t p = 0;
                for (;;) {
                    std::size_t d = name.find('.', p);
                    const std::string l = name.substr(p, d == std::string::npos ? d : d - p);
                    const bool top = d == std::string::npos && p > 0;
                    pseudo += top || lower(l) == "local" ? l : shaped("host|" + lower(l), l, false);
                    if (d == std::string::npos) break;
                    pseudo += '.';
                    p = d + 1;
                }
                const Match m = name.find('.') == std::string::npos ? NAME : WORD;
                addForm(name, pseudo, m);
                if (lower(name) != name) addForm(lower(name), lower(pseudo), m);
                addForm(hexOf(name, true), hexOf(pseudo, true), ANYWHERE);
                addForm(hexOf(name, false), hexOf(pseudo, false), ANYWHERE);
                out += pseudo + word.substr(name.size());
            } else {
                out += word;
            }
            i = j;
        }
        return raw.substr(0, b) + out + raw.substr(e + 1);
    }
    // Placeholders ("Not Specified", "0") hide nothing; a serial has a digit.
    if (value.size() < 3 || std::none_of(value.begin(), value.end(), [](char c) {
            return std::isdigit(static_cast<unsigned char>(c)) != 0;
        }))
        return raw;
    const std::string pseudo =
        shaped(std::string(kind == HEX ? "hex|" : "serial|") + upper(value), value, kind == HEX);
    addForm(value, pseudo, WORD);
    addForm(hexOf(value, true), hexOf(pseudo, true), ANYWHERE);
    addForm(hexOf(value, false), hexOf(pseudo, false), ANYWHERE);
    std::string bytes = uuidBytes(value);
    if (!bytes.empty()) {
        addForm(lower(value), lower(pseudo), WORD);
        addForm(upper(value), upper(pseudo), WORD);
        std::string to = uuidBytes(pseudo);
        for (bool up : {true, false}) {
            addForm(hexOf(bytes, up), hexOf(to, up), ANYWHERE);
            addForm(hexOf(smbiosOrder(bytes), up), hexOf(smbiosOrder(to), up), ANYWHERE);
        }
    }
    return raw.substr(0, b) + pseudo + raw.substr(e + 1);
}

std::string Sanitizer::address(const std::string& token) const {
    // IPv4: the first octet kept (so loopback, private and link-local stay what they are).
    unsigned char b4[4];
    if (std::count(token.begin(), token.end(), '.') == 3 &&
        inet_pton(AF_INET, token.c_str(), b4) == 1) {
        if (b4[0] == 0 || b4[0] == 127 || isMask4(b4) || b4[0] >= 224) return token;
        std::string r = stream("ipv4|" + std::string(reinterpret_cast<char*>(b4), 4), 3);
        b4[1] = static_cast<unsigned char>(r[0]);
        b4[2] = static_cast<unsigned char>(r[1]);
        b4[3] = static_cast<unsigned char>(1 + static_cast<unsigned char>(r[2]) % 254);
        char text[INET_ADDRSTRLEN];
        return inet_ntop(AF_INET, b4, text, sizeof text) ? std::string(text) : token;
    }
    // A hardware address: six (or, EUI-64, eight) groups of one or two hexadecimal
    // digits, in the original's case and padding; the multicast and local bits kept.
    {
        unsigned vals[8];
        int n = 0;
        std::size_t p = 0;
        bool padded = true, ok = true;
        while (ok && n < 8 && p <= token.size()) {
            std::size_t c = token.find(':', p);
            std::string g = token.substr(p, c == std::string::npos ? std::string::npos : c - p);
            if (g.empty() || g.size() > 2 || !std::all_of(g.begin(), g.end(), isHex))
                ok = false;
            else {
                vals[n++] = static_cast<unsigned>(std::stoul(g, nullptr, 16));
                padded = padded && g.size() == 2;
            }
            if (c == std::string::npos) break;
            p = c + 1;
        }
        if (ok && (n == 6 || n == 8) && std::count(token.begin(), token.end(), ':') == n - 1) {
            std::string bytes;
            for (int i = 0; i < n; ++i)
                bytes += static_cast<char>(vals[i]);
            if (bytes.find_first_not_of('\0') == std::string::npos ||
                bytes.find_first_not_of('\xff') == std::string::npos)
                return token;
            std::string r = stream("mac|" + bytes, bytes.size());
            r[0] = static_cast<char>((r[0] & 0xFC) | (bytes[0] & 0x03));
            bool up = std::any_of(token.begin(), token.end(),
                                  [](char c) { return c >= 'A' && c <= 'F'; });
            std::string out;
            for (int i = 0; i < n; ++i) {
                char g[4];
                std::snprintf(g, sizeof g, padded ? (up ? "%02X" : "%02x") : (up ? "%X" : "%x"),
                              static_cast<unsigned char>(r[static_cast<std::size_t>(i)]));
                if (i) out += ':';
                out += g;
            }
            return out;
        }
    }
    // IPv6: the first 16 bits kept, every other non-zero byte changed, so that a
    // compressed form stays compressed.
    unsigned char b6[16];
    if (std::count(token.begin(), token.end(), ':') >= 2 &&
        inet_pton(AF_INET6, token.c_str(), b6) == 1) {
        static const unsigned char zero[16] = {0};
        unsigned char one[16] = {0};
        one[15] = 1;
        if (std::memcmp(b6, zero, 16) == 0 || std::memcmp(b6, one, 16) == 0 || b6[0] == 0xff)
            return token;
        // An IPv4-mapped address keeps the IPv4 rule.
        std::string r = stream("ipv6|" + std::string(reinterpret_cast<char*>(b6), 16), 16);
        for (int i = 2; i < 16; ++i)
            if (b6[i])
                b6[i] = static_cast<unsigned char>(
                    1 + static_cast<unsigned char>(r[static_cast<std::size_t>(i)]) % 255);
        char text[INET6_ADDRSTRLEN];
        if (!inet_ntop(AF_INET6, b6, text, sizeof text)) return token;
        bool up =
            std::any_of(token.begin(), token.end(), [](char c) { return c >= 'A' && c <= 'F'; });
        return up ? upper(text) : std::string(text);
    }
    return token;
}

std::string Sanitizer::rewrite(const std::string& text) const {
    // Addresses first: runs of hexadecimal digits, ':' and '.' that stand alone.
    std::string out;
    out.reserve(text.size());
    const std::size_t n = text.size();
    std::size_t i = 0;
    while (i < n) {
        char c = text[i];
        bool start =
            (isHex(c) || c == ':') && (i == 0 || !(isAlnum(text[i - 1]) || text[i - 1] == '_'));
        if (!start) {
            out += c;
            ++i;
            continue;
        }
        std::size_t j = i;
        while (j < n && (isHex(text[j]) || text[j] == ':' || text[j] == '.'))
            ++j;
        std::size_t end = j;
        while (end > i && text[end - 1] == '.')
            --end; // a sentence's full stop
        bool alone = j >= n || !(isAlnum(text[j]) || text[j] == '_');
        std::string token = text.substr(i, end - i);
        if (alone && token.size() >= 7 &&
            (token.find(':') != std::string::npos || token.find('.') != std::string::npos))
            out += address(token);
        else
            out += token;
        out.append(text, end, j - end);
        i = j;
    }
    // Then the noted values, whole words unless a hexadecimal form.
    for (const Form& f : m_forms) {
        std::size_t p = 0;
        while ((p = out.find(f.from, p)) != std::string::npos) {
            std::size_t q = p + f.from.size();
            auto apart = [&f](char c) {
                return !isAlnum(c) && (f.match != NAME || (c != '.' && c != '-' && c != '_'));
            };
            bool whole = f.match == ANYWHERE ||
                         ((p == 0 || apart(out[p - 1])) && (q >= out.size() || apart(out[q])));
            if (!whole) {
                ++p;
                continue;
            }
            out.replace(p, f.from.size(), f.to);
            p += f.to.size();
        }
    }
    return out;
}

void Sanitizer::learnTable(const Json& table) {
    if (!table["rows"].is_array()) return;
    const std::string name = table["name"].get<std::string>();
    for (const Json& row : table["rows"])
        for (const Json& a : row) {
            Kind kind;
            if (a["value"].is_string() && attributeKind(name, a["name"].get<std::string>(), &kind))
                learn(kind, a["value"].get<std::string>());
        }
}

void Sanitizer::sanitizeTable(Json& table) const {
    if (!table["rows"].is_array()) return;
    for (Json& row : table["rows"])
        for (Json& a : row)
            if (a["value"].is_string()) a["value"] = rewrite(a["value"].get<std::string>());
}

// Keys of the helpers' dumps ("key:s=value") whose values identify the machine.
void Sanitizer::learnHelperKeys(const std::string& dump) {
    std::size_t p = 0;
    while (p < dump.size()) {
        std::size_t e = dump.find('\n', p);
        if (e == std::string::npos) e = dump.size();
        std::size_t k = dump.find_first_not_of(' ', p);
        std::size_t s = dump.find(":s=", k);
        if (k < e && s != std::string::npos && s < e) {
            std::string key = lower(dump.substr(k, s - k));
            std::string value = dump.substr(s + 3, e - s - 3);
            if (key.find("serial") != std::string::npos)
                learn(SERIAL, value);
            else if (key.find("uuid") != std::string::npos)
                learn(HEX, value);
            else if (key.find("host_name") != std::string::npos ||
                     key.find("hostname") != std::string::npos || key == "domain_name")
                learn(HOST, value);
        }
        p = e + 1;
    }
}

bool Sanitizer::sanitizeBundle(const std::string& dir, std::string* why) {
    std::vector<std::string> paths;
    listFiles(dir, &paths);
    std::sort(paths.begin(), paths.end());
    // Read once: every name must be learnt before the first file is rewritten.
    std::vector<std::string> texts(paths.size());
    for (std::size_t n = 0; n < paths.size(); ++n) {
        const std::string& path = paths[n];
        std::string& data = texts[n];
        if (!readFile(path, &data)) {
            *why = path + ": cannot be read";
            return false;
        }
        const std::string base = path.substr(path.find_last_of('/') + 1);
        std::size_t p = 0;
        while (p < data.size()) {
            std::size_t e = data.find('\n', p);
            if (e == std::string::npos) e = data.size();
            const std::string line = data.substr(p, e - p);
            const std::vector<std::string> f = fields(line);
            if (base == "uname.txt" && f.size() >= 2 && f[0] == "nodename") learn(HOST, f[1]);
            if (base == "sysctl.txt" && f.size() >= 3 &&
                (f[0] == "kern.hostname" || f[0] == "kern.nisdomainname" ||
                 f[0] == "kern.domainname"))
                learn(HOST, f[2]);
            if (base == "hosts.txt" && f.size() >= 2) learn(HOST, f[1]);
            if (base.find("resolv.conf") != std::string::npos)
                for (const char* k : {"domain", "search"})
                    if (line.compare(0, std::strlen(k), k) == 0)
                        learn(HOST, line.substr(std::strlen(k)));
            p = e + 1;
        }
        if (path.find("/helpers/") != std::string::npos) learnHelperKeys(data);
    }
    for (std::size_t n = 0; n < paths.size(); ++n) {
        const std::string clean = rewrite(texts[n]);
        if (clean != texts[n] && !writeFile(paths[n], clean)) {
            *why = paths[n] + ": " + std::strerror(errno ? errno : EIO);
            return false;
        }
    }
    return true;
}

std::string sanitizeKeyFromFile(const std::string& path, std::string* why) {
    std::string key;
    if (readFile(path, &key) && !key.empty()) return key.substr(0, key.find('\n'));
    unsigned char raw[32];
    int fd = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    bool ok = fd >= 0 && ::read(fd, raw, sizeof raw) == static_cast<ssize_t>(sizeof raw);
    if (fd >= 0) ::close(fd);
    if (!ok) {
        *why = "no random source";
        return std::string();
    }
    key = hexOf(std::string(reinterpret_cast<char*>(raw), sizeof raw), false);
    // The folder and its parent (~/.config/invscan on a new account).
    std::size_t slash = path.find_last_of('/');
    if (slash != std::string::npos && slash > 0) {
        std::string folder = path.substr(0, slash);
        std::size_t up = folder.find_last_of('/');
        if (up != std::string::npos && up > 0) ::mkdir(folder.substr(0, up).c_str(), 0700);
        ::mkdir(folder.c_str(), 0700);
    }
    // O_EXCL: two first scans at once agree on whichever key was made first.
    int out = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (out < 0) {
        std::string again;
        if (errno == EEXIST && readFile(path, &again) && !again.empty())
            return again.substr(0, again.find('\n'));
        *why = path + ": " + std::strerror(errno);
        return std::string();
    }
    std::string line = key + "\n";
    ok = ::write(out, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    if (::close(out) != 0) ok = false;
    if (!ok) {
        *why = path + ": cannot be written";
        ::unlink(path.c_str());
        return std::string();
    }
    return key;
}
