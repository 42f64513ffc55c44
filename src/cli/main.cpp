// invscan: scans inventory groups through the library and prints their tables as
// the tables' own text dump or as JSON.
#include "invscan/invscan.h"
#include "invscan/host.h"
#include "invscan/host_root.h"
#include "invscan/md5.h"
#include "invscan/HostFacts.h"
#include "invscan/ZelValue.h"
#include "cli/Diff.h"
#include "cli/Glpi.h"
#include "cli/Manual.h"
#include "cli/Ocs.h"
#include "cli/Sanitize.h"
#include "cli/Send.h"
#include "cli/View.h"
#include "common/host/host_internal.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <ctime>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <iostream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>
#ifdef __APPLE__
#include <mach-o/dyld.h>
#endif

namespace {

// Exit statuses; --help and the README list them.
const int EXIT_USAGE = 2;
const int EXIT_NOTHING = 3;
const int EXIT_NOT_A_BUNDLE = 4;
const int EXIT_INCOMPLETE_BUNDLE = 5;
const int EXIT_RECORD_FAILED = 6;
const int EXIT_CONFIG_OPEN = 7;
const int EXIT_CONFIG_TOO_LARGE = 8;
const int EXIT_CONFIG_TOO_DEEP = 9;
const int EXIT_CONFIG_NOT_XML = 10;
const int EXIT_CONFIG_NOT_HARDWARE = 11;

const char* const EXIT_HELP =
    "Exit status: 0 scanned; 1 other trouble; 2 usage error; 3 no group produced a table;\n"
    "4 --replay of a folder that is not a bundle; 5 --replay of a bundle whose recording did\n"
    "not finish; 6 --record failed (folder not empty without --force, or a write failed);\n"
    "configuration file: 7 cannot be opened, 8 too large, 9 nested too deeply, 10 not XML,\n"
    "11 not a hardware configuration; --server: 20 unreachable, 21 no answer in time,\n"
    "22 refused by the server, 23 an answer that is not the server's, 24 TLS or certificate\n"
    "failure, 25 local trouble.";

// Empties the folder open at `dir` for --force: every entry below it, removed by
// descriptor so that a link planted in a sub-folder's place is removed, never
// followed, and never across into another file system.
bool emptyAt(int dir, dev_t dev, std::string* why) {
    int fd = ::dup(dir);
    DIR* d = fd < 0 ? nullptr : ::fdopendir(fd);
    if (!d) {
        if (fd >= 0) ::close(fd);
        *why = std::strerror(errno);
        return false;
    }
    ::rewinddir(d); // the duplicate shares the position of earlier reads
    bool ok = true;
    while (struct dirent* e = ok ? ::readdir(d) : nullptr) {
        if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
        struct stat st;
        if (::fstatat(dir, e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (S_ISDIR(st.st_mode)) {
            if (st.st_dev != dev) {
                *why = std::string(e->d_name) + ": another file system is mounted there";
                ok = false;
                break;
            }
            int sub = ::openat(dir, e->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            ok = sub >= 0 && emptyAt(sub, dev, why);
            if (sub >= 0) ::close(sub);
            if (ok && ::unlinkat(dir, e->d_name, AT_REMOVEDIR) != 0) ok = false;
        } else if (::unlinkat(dir, e->d_name, 0) != 0) {
            ok = false;
        }
        if (!ok && why->empty()) *why = std::string(e->d_name) + ": " + std::strerror(errno);
    }
    ::closedir(d);
    return ok;
}

// A folder that holds anything.
bool nonEmptyAt(int dir) {
    int fd = ::dup(dir);
    DIR* d = fd < 0 ? nullptr : ::fdopendir(fd);
    if (!d) {
        if (fd >= 0) ::close(fd);
        return false;
    }
    ::rewinddir(d);
    bool any = false;
    while (struct dirent* e = ::readdir(d))
        if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) any = true;
    ::closedir(d);
    return any;
}

// The absolute form of a path that may not exist yet: its longest existing part
// resolved, the rest added as written. Empty when not even the current folder
// resolves.
std::string absoluteOf(const std::string& path) {
    std::vector<std::string> rest; // the missing components, last first
    std::string head = path;
    for (;;) {
        char* real = ::realpath(head.empty() ? "." : head.c_str(), nullptr);
        if (real) {
            std::string r = real;
            std::free(real);
            for (auto it = rest.rbegin(); it != rest.rend(); ++it) {
                if (it->empty() || *it == ".") continue;
                if (*it == "..") {
                    std::size_t slash = r.find_last_of('/');
                    r.erase(slash == 0 ? 1 : slash);
                    continue;
                }
                r += (r == "/" ? "" : "/") + *it;
            }
            return r;
        }
        if (head.empty()) return std::string();
        std::size_t slash = head.find_last_of('/');
        rest.push_back(slash == std::string::npos ? head : head.substr(slash + 1));
        head = slash == std::string::npos ? std::string() : head.substr(0, slash == 0 ? 1 : slash);
    }
}

// `inner` is `outer` or lies below it.
bool within(const std::string& inner, const std::string& outer) {
    if (outer == "/") return true;
    return inner.compare(0, outer.size(), outer) == 0 &&
           (inner.size() == outer.size() || inner[outer.size()] == '/');
}

// Why a configuration file was not taken: what the XML layer says of it.
int configFailure(const std::string& path, std::string* why) {
    std::string reason;
    int fd = safefile::openRead(path.c_str(), &reason);
    if (fd < 0) {
        *why = "cannot be opened: " + (reason == "is a folder" ? "it is a folder" : reason);
        return EXIT_CONFIG_OPEN;
    }
    ::close(fd);
    NodeReader reader(nullptr);
    switch (reader.process(String(path.c_str()), 2)) {
    case NodeReader::OPEN_FAILED:
        *why = std::string("cannot be opened: ") + std::strerror(errno);
        return EXIT_CONFIG_OPEN;
    case NodeReader::TOO_LARGE:
        *why = "is too large (the limit is " + std::to_string(NodeReader::MAX_FILE_BYTES >> 10) +
               " KiB)";
        return EXIT_CONFIG_TOO_LARGE;
    case NodeReader::TOO_DEEP:
        *why = "is nested too deeply (the limit is " + std::to_string(NodeReader::MAX_DEPTH) +
               " levels)";
        return EXIT_CONFIG_TOO_DEEP;
    case NodeReader::OK:
        *why = "is not a hardware configuration (its root element is not 'Hardware')";
        return EXIT_CONFIG_NOT_HARDWARE;
    default:
        *why = "is not valid XML";
        return EXIT_CONFIG_NOT_XML;
    }
}

std::string validGroupList() {
    std::string s;
    for (const zelGroupDef* g = GROUPS_DEF; g->id != ZEL_DEF_END; ++g) {
        s += "\n  ";
        s += std::to_string(g->id);
        s += "  ";
        s += g->name;
    }
    return s;
}

// This program's own file, as the system knows it.
std::string selfExe(const char* argv0) {
    char path[PATH_MAX];
#ifdef __APPLE__
    uint32_t size = sizeof path;
    char real[PATH_MAX];
    if (_NSGetExecutablePath(path, &size) == 0 && realpath(path, real)) return real;
#else
    ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    if (n > 0) {
        path[n] = '\0';
        return path;
    }
#endif
    // Only an absolute argv[0]: a relative one would be read against a current
    // folder that someone else may own.
    if (argv0 && argv0[0] == '/' && realpath(argv0, path)) return path;
    return std::string();
}

// The JSON output's own version: it changes when a key is renamed or removed or a
// value changes meaning; new keys and new groups leave it as it is.
const int JSON_FORMAT = 1;

nlohmann::ordered_json valueJson(const ZelValue& v) {
    switch (v.kind) {
    case ZelValue::UNSIGNED:
        return v.u;
    case ZelValue::SIGNED:
        return v.i;
    case ZelValue::REAL:
        return v.d;
    case ZelValue::TEXT:
        return v.text;
    case ZelValue::WORDS:
        return nlohmann::ordered_json(v.words);
    default:
        return nullptr;
    }
}

nlohmann::ordered_json rowJson(ZelTableRow* row, const zelGroupDef* def) {
    nlohmann::ordered_json attrs = nlohmann::ordered_json::array();
    row->reset();
    while (ZelTableAttrib* a = row->getNext()) {
        const unsigned char* block = a->getAttribPtr();
        if (!block) continue;
        ZelValue v;
        zelDecodeValue(block, &v);
        const zelAttribDef* ad = getAttribDefinitionFromId(def, a->getId());
        nlohmann::ordered_json j;
        j["id"] = a->getId();
        j["name"] = ad ? ad->name : "";
        j["type"] = getZelAttribTypeAsString(a->getType());
        j["value"] = valueJson(v);
        if (ad && ad->enumDef && v.kind == ZelValue::UNSIGNED) {
            const char* text = zelEnumText(ad->enumDef, static_cast<unsigned long>(v.u));
            j["text"] = text ? nlohmann::ordered_json(text) : nlohmann::ordered_json(nullptr);
        }
        attrs.push_back(std::move(j));
    }
    return attrs;
}

nlohmann::ordered_json tableJson(ZelTable* table) {
    const zelGroupDef* def = table->getGroupDefinitionFromId();
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    table->reset();
    while (ZelTableRow* row = table->getNext())
        rows.push_back(rowJson(row, def));
    nlohmann::ordered_json t;
    t["id"] = table->getGroupId();
    t["name"] = table->getGroupName();
    t["version"] = table->getGroupVersion();
    t["status"] = "ok";
    t["rows"] = std::move(rows);
    return t;
}

// `text` (a dump without a final newline) with every line moved right by `depth`
// blanks; dumped JSON has no newline inside a string.
void putIndented(const std::string& text, std::size_t depth, std::string* out) {
    out->append(depth, ' ');
    std::size_t p = 0;
    for (std::size_t n; (n = text.find('\n', p)) != std::string::npos; p = n + 1) {
        out->append(text, p, n + 1 - p);
        out->append(depth, ' ');
    }
    out->append(text, p, std::string::npos);
}

// The JSON document written as its tables come, byte for byte what dump(2) of the
// whole document gives, so that a host of 100,000 addresses is never held as JSON:
// one row at a time. Held whole when `hold` (a failed recording prints nothing).
class JsonStream {
public:
    explicit JsonStream(bool hold) : hold_(hold) {}

    // `envelope` has its "tables" empty.
    void begin(const nlohmann::ordered_json& envelope) {
        const std::string d = envelope.dump(2);
        const std::size_t at = d.find(TABLES);
        put(d.substr(0, at == std::string::npos ? d.size() : at + TABLES.size() - 1));
    }

    void table(ZelTable* table) {
        const zelGroupDef* def = table->getGroupDefinitionFromId();
        nlohmann::ordered_json t;
        t["id"] = table->getGroupId();
        t["name"] = table->getGroupName();
        t["version"] = table->getGroupVersion();
        t["status"] = "ok";
        t["rows"] = nlohmann::ordered_json::array();
        const std::string d = t.dump(2);
        const std::size_t at = d.find(ROWS);
        std::string text;
        startTable(&text);
        putIndented(d.substr(0, at + ROWS.size() - 1), 4, &text);
        bool first = true;
        table->reset();
        while (ZelTableRow* row = table->getNext()) {
            text += first ? "\n" : ",\n";
            first = false;
            putIndented(rowJson(row, def).dump(2), 8, &text);
            put(text);
            text.clear();
        }
        text += first ? "]" : "\n      ]";
        for (char c : d.substr(at + ROWS.size()))
            text += c == '\n' ? std::string("\n    ") : std::string(1, c);
        put(text);
    }

    void table(const nlohmann::ordered_json& t) {
        std::string text;
        startTable(&text);
        putIndented(t.dump(2), 4, &text);
        put(text);
    }

    // `envelope` as at the start, with what was added after the tables.
    void end(const nlohmann::ordered_json& envelope) {
        const std::string d = envelope.dump(2);
        const std::size_t at = d.find(TABLES);
        std::string text = tables_ ? "\n  ]" : "]";
        if (at != std::string::npos) text += d.substr(at + TABLES.size());
        put(text + "\n");
        flush();
    }

    void flush() {
        std::fwrite(buf_.data(), 1, buf_.size(), stdout);
        buf_.clear();
    }

private:
    void startTable(std::string* text) { *text += tables_++ ? ",\n" : "\n"; }
    void put(const std::string& s) {
        buf_ += s;
        if (!hold_ && buf_.size() > (1u << 20)) flush();
    }

    const std::string TABLES = "\n  \"tables\": []";
    const std::string ROWS = "\n  \"rows\": []";
    bool hold_;
    std::size_t tables_ = 0;
    std::string buf_;
};

// A bundle is a few folders deep; a copy refuses more, as the sanitiser does.
const int MAX_COPY_DEPTH = 8;

// Copies the folder open at `from` into the one open at `to`, file by file (a
// bundle holds only files and folders): a link, FIFO or device in it is refused and
// never waited on, and every file is made new, readable by its owner only.
bool copyAt(int from, int to, const std::string& where, int depth, std::string* why) {
    if (depth > MAX_COPY_DEPTH) {
        *why = where + ": the bundle is nested more than " + std::to_string(MAX_COPY_DEPTH) +
               " folders deep";
        return false;
    }
    int fd = ::dup(from);
    DIR* d = fd < 0 ? nullptr : ::fdopendir(fd);
    if (!d) {
        if (fd >= 0) ::close(fd);
        *why = where + ": " + std::strerror(errno);
        return false;
    }
    ::rewinddir(d);
    bool ok = true;
    while (struct dirent* e = ok ? ::readdir(d) : nullptr) {
        const char* name = e->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
        if (where.empty() && std::strcmp(name, host::bundle::INCOMPLETE) == 0) continue;
        const std::string path = where.empty() ? name : where + "/" + name;
        struct stat st;
        if (::fstatat(from, name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (S_ISDIR(st.st_mode)) {
            int a = ::openat(from, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            ok = a >= 0 && (::mkdirat(to, name, 0700) == 0 || errno == EEXIST);
            int b = ok ? ::openat(to, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1;
            ok = b >= 0 && copyAt(a, b, path, depth + 1, why);
            if (!ok && why->empty()) *why = path + ": " + std::strerror(errno);
            if (a >= 0) ::close(a);
            if (b >= 0) ::close(b);
        } else if (S_ISREG(st.st_mode)) {
            int in = ::openat(from, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
            std::string data, reason;
            ok = in >= 0 && safefile::readAllFd(in, 64u << 20, &data);
            if (in >= 0) ::close(in);
            int out = ok ? safefile::createNewAt(to, name, 0600, &reason) : -1;
            ok = out >= 0 && safefile::writeAllFd(out, data.data(), data.size());
            if (out >= 0 && ::close(out) != 0) ok = false;
            if (!ok) *why = path + ": " + (reason.empty() ? std::strerror(errno) : reason);
        } else {
            *why = path + ": is not a regular file or folder";
            ok = false;
        }
    }
    ::closedir(d);
    return ok;
}

// Sets or clears the mark that makes replay refuse a bundle.
bool markIncomplete(const std::string& dir, bool on, std::string* why) {
    int d = safefile::openDir(dir.c_str(), why);
    if (d < 0) return false;
    bool ok;
    if (on) {
        int fd = safefile::createNewAt(d, host::bundle::INCOMPLETE, 0600, why);
        const char text[] = "this bundle is being sanitised\n";
        ok = (fd >= 0 && safefile::writeAllFd(fd, text, sizeof text - 1)) ||
             (fd < 0 && errno == EEXIST);
        if (fd >= 0) ::close(fd);
    } else {
        ok = ::unlinkat(d, host::bundle::INCOMPLETE, 0) == 0 || errno == ENOENT;
    }
    if (!ok && why->empty()) *why = std::strerror(errno);
    ::close(d);
    return ok;
}

// The replayed bundle copied into the record folder, marked incomplete until the
// sanitiser has finished with it.
bool copyBundle(const std::string& from, const std::string& to, std::string* why) {
    int a = safefile::openDir(from.c_str(), why);
    if (a < 0) {
        *why = from + ": " + *why;
        return false;
    }
    int b = safefile::makeDirs(to.c_str(), why);
    bool ok = b >= 0 && safefile::privateFolder(b, why);
    if (!ok) *why = to + ": " + *why;
    ok = ok && markIncomplete(to, true, why) && copyAt(a, b, std::string(), 0, why);
    ::close(a);
    if (b >= 0) ::close(b);
    return ok;
}

// The tables' own text dump of one table, as text.
std::string captureDump(ZelTable* table) {
    std::fflush(stdout);
    std::FILE* tmp = std::tmpfile();
    int saved = tmp ? dup(STDOUT_FILENO) : -1;
    if (saved < 0) {
        if (tmp) std::fclose(tmp);
        table->toString();
        return std::string();
    }
    dup2(fileno(tmp), STDOUT_FILENO);
    table->toString();
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    std::string text;
    std::rewind(tmp);
    char buf[65536];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, tmp)) > 0)
        text.append(buf, n);
    std::fclose(tmp);
    return text;
}

// The installation's configuration folder, where KorHWConfig.xml and the sanitise
// key live: /etc/invscan for an installation in /usr, <prefix>/etc/invscan for one
// elsewhere, and the etc folder beside the helpers' bin otherwise (a build folder,
// or a KOR_HOMEDIR of one's own).
std::string configFolder() {
    const std::string home = vtHelperHome();
    if (home.empty()) return std::string();
    const std::string tail = "/" INVSCAN_LIBEXEC "/invscan";
    if (home.size() > tail.size() &&
        home.compare(home.size() - tail.size(), tail.size(), tail) == 0) {
        const std::string prefix = home.substr(0, home.size() - tail.size());
        return (prefix == "/usr" ? std::string() : prefix) + "/etc/invscan";
    }
    return home + "/etc";
}

// The key for --sanitize: this installation's, else the user's when the installation
// cannot keep one.
std::string sanitizeKey(std::string* why) {
    std::vector<std::string> places;
    struct stat st;
    const std::string etc = configFolder();
    if (!etc.empty() && stat(etc.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        places.push_back(etc + "/sanitize.key");
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    const char* user = std::getenv("HOME");
    if (xdg && *xdg)
        places.push_back(std::string(xdg) + "/invscan/sanitize.key");
    else if (user && *user)
        places.push_back(std::string(user) + "/.config/invscan/sanitize.key");
    for (const std::string& p : places) {
        std::string key = sanitizeKeyFromFile(p, why);
        if (!key.empty()) return key;
    }
    if (places.empty()) *why = "no installation etc folder and no HOME to keep one in";
    return std::string();
}

// Why --record may not use `dir`, or empty. The folder must not be the bundle being
// replayed, nor lie inside or above it; an existing one must be the caller's own,
// reached through no other user's link, and take files from no one else; one that
// holds anything is emptied with --force only when it is a bundle.
std::string recordRefusal(const std::string& dir, const std::string& replayDir, bool force) {
    const std::string to = absoluteOf(dir);
    if (to.empty()) return "its absolute path is not known";
    if (!replayDir.empty()) {
        const std::string from = absoluteOf(replayDir);
        if (within(to, from) || within(from, to))
            return to == from ? "it is the bundle replayed"
                              : "it is inside or above the bundle replayed";
    }
    struct stat st;
    if (::lstat(dir.c_str(), &st) != 0) return std::string(); // made by the recording
    std::string why;
    int fd = safefile::openDir(dir.c_str(), &why);
    if (fd < 0) return why;
    if (!safefile::privateFolder(fd, &why)) {
        ::close(fd);
        return why;
    }
    if (nonEmptyAt(fd)) {
        struct stat bt;
        bool bundle =
            ::fstatat(fd, "bundle.txt", &bt, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(bt.st_mode);
        struct stat ft;
        if (to == "/")
            why = "it is the root folder";
        else if (!force)
            why = "the folder is not empty (--force empties it first)";
        else if (!bundle)
            why = "--force empties only an empty folder or a bundle (a folder with bundle.txt)";
        else if (::fstat(fd, &ft) != 0 || !emptyAt(fd, ft.st_dev, &why))
            why = "cannot empty it: " + why;
    }
    ::close(fd);
    return why;
}

// The folder where this host keeps what it keeps (the sanitise key, the device id):
// the installation's configuration folder, else the user's.
std::string keepingFolder(std::string* why, bool userOnly = false) {
    struct stat st;
    const std::string etc = userOnly ? std::string() : configFolder();
    if (!etc.empty() && stat(etc.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return etc;
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    const char* user = std::getenv("HOME");
    std::string dir = xdg && *xdg     ? std::string(xdg) + "/invscan"
                      : user && *user ? std::string(user) + "/.config/invscan"
                                      : std::string();
    if (dir.empty()) {
        *why = "no installation etc folder and no HOME to keep one in";
        return dir;
    }
    int fd = safefile::makeDirs(dir.c_str(), why);
    if (fd < 0) return std::string();
    ::close(fd);
    return dir;
}

bool replaying() {
    return std::strcmp(host::mode(), "replay") == 0;
}

// This host's device id, NAME-YYYY-MM-DD-HH-MM-SS, made once and kept, so that an
// inventory server keeps one computer for it. Empty with the reason when it cannot be
// kept.
std::string keptDeviceId(const nlohmann::ordered_json& scan, std::string* why) {
    std::string dummy;
    if (!why) why = &dummy;
    const std::string folder = keepingFolder(why);
    if (folder.empty()) return folder;
    std::string id = ocsDeviceId(folder, scan.value("host", std::string()), why);
    // Without root, before root has made the id, the user keeps one of their own.
    if (id.empty() && geteuid() != 0 && access((folder + "/ocs-deviceid").c_str(), F_OK) != 0 &&
        access(folder.c_str(), W_OK) != 0) {
        const std::string mine = keepingFolder(why, true);
        if (!mine.empty() && mine != folder)
            id = ocsDeviceId(mine, scan.value("host", std::string()), why);
    }
    return id;
}

// The id of a scan that is not this machine's own scan: a sanitised one (its host
// pseudonym) or a replayed bundle (another host, or this one in the past). Never the
// kept id, which would make it this machine's computer on the server.
std::string fixedDeviceId(const nlohmann::ordered_json& scan) {
    std::string host = scan.value("host", std::string("host"));
    for (char& c : host)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '.') c = '_';
    return (host.empty() ? std::string("host") : host) + "-2000-01-01-00-00-00";
}

// Sends the scan to an inventory server and says what it answered.
int sendToServer(const std::string& url, const std::string& format,
                 const nlohmann::ordered_json& scan, const std::string& glpiId, bool sanitized,
                 const std::string& caCert, double connectTimeout, double totalTimeout) {
    const std::string kind = sendFormatFor(url, format == "ocs" || format == "glpi" ? format : "");
    std::string why, id;
    if (kind == "ocs")
        id = sanitized || replaying() ? fixedDeviceId(scan) : keptDeviceId(scan, &why);
    if (kind == "ocs" && id.empty()) {
        std::fprintf(stderr, "invscan: no device id for the OCS inventory: %s\n", why.c_str());
        return 1;
    }
    const std::string body =
        kind == "ocs" ? ocsInventory(scan, id) : glpiInventory(scan, glpiId).dump();
    // The HTTP client's module: <prefix>/libexec/invscan beside <prefix>/bin, as built.
    const std::string self = selfExe(nullptr);
    const std::size_t slash = self.rfind('/');
    if (slash != std::string::npos)
        setSendModule(self.substr(0, slash) + "/../" INVSCAN_LIBEXEC "/invscan/invscan-send.so");
    SendOptions opts;
    opts.caCert = caCert;
    opts.connectTimeoutMs = static_cast<long>(connectTimeout * 1000);
    opts.totalTimeoutMs = static_cast<long>(totalTimeout * 1000);
    opts.userAgent = "invscan/" INVSCAN_VERSION;
    std::string answer;
    why.clear();
    int rc = sendScan(url, kind, body, opts, &answer, &why);
    if (rc != SEND_OK) {
        std::fprintf(stderr, "invscan: %s\n", why.c_str());
        return rc;
    }
    std::printf("sent to %s (%s): %s\n", url.c_str(), kind.c_str(), answer.c_str());
    return 0;
}

// The host's machine id where it has one (systemd's, readable by every user), through
// the host layer so that a bundle replays it. Empty when there is none.
std::string machineId() {
    for (const char* path : {"/etc/machine-id", "/var/lib/dbus/machine-id"}) {
        std::FILE* f = host::fopen(path, "r");
        if (!f) continue;
        char line[80] = "";
        const bool got = std::fgets(line, sizeof line, f) != nullptr;
        std::fclose(f);
        std::string id = got ? line : "";
        while (!id.empty() && (id.back() == '\n' || id.back() == '\r'))
            id.pop_back();
        bool hex = id.size() == 32;
        for (char c : id)
            hex = hex && std::isxdigit(static_cast<unsigned char>(c));
        if (hex) return id;
    }
    return std::string();
}

// GLPI's deviceid: the node name, followed where the host has a machine id by a digest
// of it, so that two hosts of one name stay two computers while root and every other
// user send the same id whatever groups they ask for.
std::string glpiDeviceId(const std::string& node, const std::string& machine) {
    if (node.empty() || machine.empty()) return node;
    char* digest = md5_checksum(machine.c_str());
    std::string id = node + "-" + (digest ? std::string(digest).substr(0, 12) : "");
    std::free(digest);
    return id;
}

std::string utcNow() {
    char buf[32] = "";
    std::time_t now = std::time(nullptr);
    struct tm tmv;
    if (gmtime_r(&now, &tmv)) std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tmv);
    return buf;
}

// A scan from a file or standard input, at most DIFF_MAX_INPUT bytes and one more.
bool readScanText(const std::string& path, std::string* out, std::string* why) {
    if (path != "-") {
        // Read to the file's exact size: no doubling of the buffer past it.
        bool tooLarge = false;
        if (safefile::readAll(path.c_str(), DIFF_MAX_INPUT, out, why, &tooLarge)) return true;
        if (tooLarge) *why = "larger than " + std::to_string(DIFF_MAX_INPUT >> 20) + " MiB";
        return false;
    }
    char buf[65536];
    std::size_t n;
    while (out->size() <= DIFF_MAX_INPUT && (n = std::fread(buf, 1, sizeof buf, stdin)) > 0)
        out->append(buf, n);
    if (std::ferror(stdin)) *why = "cannot be read";
    return !std::ferror(stdin);
}

int runDiff(const std::string& oldPath, const std::string& newPath, const std::string& format,
            bool all) {
    if (oldPath == "-" && newPath == "-") {
        std::fprintf(stderr, "invscan diff: only one of the scans can come from standard input\n");
        return 2;
    }
    nlohmann::ordered_json scans[2];
    const std::string* paths[2] = {&oldPath, &newPath};
    for (int i = 0; i < 2; ++i) {
        std::string text, why;
        if (!readScanText(*paths[i], &text, &why) || !diffReadScan(text, &scans[i], &why)) {
            std::fprintf(stderr, "invscan diff: '%s': %s\n", paths[i]->c_str(), why.c_str());
            return 2;
        }
    }
    if (scans[0]["format"] != scans[1]["format"]) {
        std::fprintf(stderr, "invscan diff: the scans have different formats (%s and %s)\n",
                     scans[0]["format"].dump().c_str(), scans[1]["format"].dump().c_str());
        return 2;
    }
    // Written as the differences are found: no second copy of the rows in memory.
    return diffWrite(std::cout, scans[0], scans[1], all, format == "json") ? 1 : 0;
}

struct Request {
    unsigned long id;
    std::string name;
};

bool resolveGroup(const std::string& arg, Request& out) {
    // Ids are decimal: "020" is group 20, not an octal 16.
    char* end = nullptr;
    unsigned long id = std::strtoul(arg.c_str(), &end, 10);
    if (!arg.empty() && std::isdigit(static_cast<unsigned char>(arg[0])) && end && *end == '\0') {
        const zelGroupDef* g = getGroupDefinitionFromId(id);
        if (!g) return false;
        out = {g->id, g->name};
        return true;
    }
    // Names as people type them: "scan info" is "Scan Info".
    for (const zelGroupDef* g = GROUPS_DEF; g->id != ZEL_DEF_END; ++g) {
        if (strcasecmp(g->name, arg.c_str()) == 0) {
            out = {g->id, g->name};
            return true;
        }
    }
    return false;
}

void chooseLocale() {
    const char* ctype = std::setlocale(LC_CTYPE, "");
    if (!ctype || std::strcmp(ctype, "C") == 0 || std::strcmp(ctype, "POSIX") == 0)
        std::setlocale(LC_CTYPE, "C.UTF-8");
}

} // namespace

int main(int argc, char** argv) {
    chooseLocale();

    CLI::App app{"invscan: hardware and software inventory scanner"};
    std::vector<std::string> groups;
    std::string format = "text";
    std::string config, trace, recordDir, replayDir;
    std::string sanitizeKeyText;
    bool listGroups = false, version = false, force = false, sanitize = false;
    app.add_option("-g,--group", groups, "Group to scan, by name or id (repeatable)")
        ->type_name("GROUP");
    app.add_option("-f,--format", format,
                   "Output format: text (readable, the default), dump (the tables' own block "
                   "dump), json, glpi")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"text", "dump", "json", "glpi", "ocs"}));
    app.add_option("-c,--config", config, "Hardware configuration file (XML)")->type_name("FILE");
    app.add_option("--trace", trace, "Write the trace to FILE (or 'stderr')")->type_name("FILE");
    app.add_option("--record", recordDir, "Record everything the scan reads into DIR")
        ->type_name("DIR");
    app.add_option("--replay", replayDir, "Scan the host recorded in DIR instead of this one")
        ->type_name("DIR");
    app.add_flag("--sanitize", sanitize,
                 "Replace serial numbers, UUIDs, hardware and IP addresses, host and domain names "
                 "by pseudonyms of the same shape, in the output and in a --record bundle "
                 "(--replay DIR --record NEW --sanitize makes a sanitised copy of a bundle)");
    app.add_option("--sanitize-key", sanitizeKeyText,
                   "The key of the pseudonyms (implies --sanitize); by default one made once and "
                   "kept as sanitize.key in the installation's configuration folder "
                   "(/etc/invscan), else in ~/.config/invscan/")
        ->type_name("KEY");
    app.add_flag("--force", force, "With --record: empty a folder that is not empty first");
    std::string server, caCert;
    double connectTimeout = 10, totalTimeout = 60;
    app.add_option("--server", server,
                   "Send the scan to an inventory server: OCS Inventory NG (an address ending in "
                   "/ocsinventory, or --format ocs) or GLPI (any other, or --format glpi)")
        ->type_name("URL");
    app.add_option("--ca-cert", caCert, "With --server: the certificates of a private CA (PEM)")
        ->type_name("FILE");
    app.add_option("--connect-timeout", connectTimeout,
                   "With --server: seconds to wait for a connection (10)")
        ->type_name("S")
        ->check(CLI::Range(0.001, 3600.0));
    app.add_option("--timeout", totalTimeout, "With --server: seconds for the whole exchange (60)")
        ->type_name("S")
        ->check(CLI::Range(0.001, 3600.0));
    bool noLookup = false;
    app.add_flag("-n,--no-lookup", noLookup,
                 "Do not look addresses up in the name service (no query is sent)");
    app.add_flag("--list-groups", listGroups, "List the inventory groups and exit");
    app.footer(std::string(EXIT_HELP) + "\n\n" + groupsHelp());
    // invscan diff OLD NEW: exit 0 the same, 1 different, 2 trouble, as diff(1).
    std::string diffOld, diffNew, diffFormat = "text";
    bool diffAll = false;
    CLI::App* diff = app.add_subcommand(
        "diff", "Compare two JSON scans (files, or - for standard input); exit 0 when the same, "
                "1 when different, 2 on trouble");
    diff->add_option("old", diffOld, "The earlier scan")->required();
    diff->add_option("new", diffNew, "The later scan")->required();
    diff->add_option("-f,--format", diffFormat, "Output format")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"text", "json"}));
    diff->add_flag("--all", diffAll,
                   "Also compare values that change on every scan: " + diffVolatileList());
    app.add_flag("--version", version, "Print the version and exit");
    bool manual = false;
    app.add_flag("--manual-page", manual, "Print the manual page (roff) and exit")->group("");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int rc = app.exit(e);
        return rc == 0 ? 0 : EXIT_USAGE;
    }

    if (manual) {
        std::fputs(manualPage(app, INVSCAN_VERSION).c_str(), stdout);
        return 0;
    }
    if (*diff) return runDiff(diffOld, diffNew, diffFormat, diffAll);
    if (version) {
        std::printf("invscan %s (build %s)\n", INVSCAN_VERSION, getBuildDateVMQT());
        return 0;
    }
    if (!trace.empty() && !getCcLogHw()->setOutput(trace.c_str())) {
        std::string why;
        int fd = safefile::openAppend(trace.c_str(), 0600, &why);
        if (fd >= 0) ::close(fd);
        std::fprintf(stderr, "invscan: cannot open trace file '%s': %s\n", trace.c_str(),
                     why.c_str());
        return 1;
    }
    const struct {
        const char* option;
        const std::string& value;
        const char* what;
    } paths[] = {{"--replay", replayDir, "folder"},
                 {"--record", recordDir, "folder"},
                 {"--config", config, "file"},
                 {"--trace", trace, "file or 'stderr'"}};
    for (const auto& p : paths) {
        if (app.count(p.option) && p.value.empty()) {
            std::fprintf(stderr, "invscan: %s needs a %s, not an empty argument\n", p.option,
                         p.what);
            return EXIT_USAGE;
        }
    }
    if (force && recordDir.empty()) {
        std::fprintf(stderr, "invscan: --force goes with --record\n");
        return EXIT_USAGE;
    }
    if (app.count("--sanitize-key")) sanitize = true;
    if (app.count("--sanitize-key") && sanitizeKeyText.empty()) {
        std::fprintf(stderr, "invscan: --sanitize-key needs a key, not an empty argument\n");
        return EXIT_USAGE;
    }
    if (!replayDir.empty() && !recordDir.empty() && !sanitize) {
        std::fprintf(stderr, "invscan: --replay and --record go together only with --sanitize "
                             "(a sanitised copy of the bundle)\n");
        return EXIT_USAGE;
    }
    // The trace writes every value as it is read: it would keep what --sanitize hides.
    if (sanitize && getCcLogHw()->isOn()) {
        std::fprintf(stderr, "invscan: --sanitize cannot go with a trace (--trace or "
                             "INVSCAN_TRACE): the trace would keep the original values\n");
        return EXIT_USAGE;
    }
    std::unique_ptr<Sanitizer> sanitizer;
    if (sanitize) {
        std::string why;
        std::string key = sanitizeKeyText.empty() ? sanitizeKey(&why) : sanitizeKeyText;
        if (key.empty()) {
            std::fprintf(stderr,
                         "invscan: no key for --sanitize (%s); give one with --sanitize-key\n",
                         why.c_str());
            return 1;
        }
        sanitizer.reset(new Sanitizer(key));
    }
    // A sanitised recording is scanned once to learn what to hide, then replayed from
    // the sanitised bundle, so that its output is exactly what the bundle gives.
    const bool sanitizedCopy = sanitizer && !recordDir.empty();
    const bool copyReplayed = sanitizedCopy && !replayDir.empty();
    if (!replayDir.empty()) {
        host::BundleState st = host::checkBundle(replayDir.c_str());
        if (st != host::BUNDLE_OK) {
            std::fprintf(stderr, "invscan: cannot replay '%s': %s\n", replayDir.c_str(),
                         host::bundleStateText(st));
            return st == host::BUNDLE_INCOMPLETE ? EXIT_INCOMPLETE_BUNDLE : EXIT_NOT_A_BUNDLE;
        }
        if (!host::useReplay(replayDir.c_str())) {
            std::fprintf(stderr, "invscan: cannot replay '%s': not a readable folder\n",
                         replayDir.c_str());
            return EXIT_NOT_A_BUNDLE;
        }
    }
    if (!recordDir.empty()) {
        std::string why = recordRefusal(recordDir, replayDir, force);
        if (!why.empty()) {
            std::fprintf(stderr, "invscan: cannot record into '%s': %s\n", recordDir.c_str(),
                         why.c_str());
            return EXIT_RECORD_FAILED;
        }
        if (copyReplayed) {
            // Filled from the replayed bundle once the scan has run.
        } else if (!host::useRecord(recordDir.c_str())) {
            std::fprintf(stderr, "invscan: cannot record into '%s': %s\n", recordDir.c_str(),
                         std::strerror(errno ? errno : EACCES));
            return EXIT_RECORD_FAILED;
        }
        if (const char* e = host::recordError()) {
            std::fprintf(stderr, "invscan: cannot record into '%s': %s\n", recordDir.c_str(), e);
            return EXIT_RECORD_FAILED;
        }
    }
    // The helpers run from this installation only; the helpers it starts and the
    // sanitise key's place follow the same folder.
    {
        std::string why;
        std::string home = vtHelperHome(&why);
        if (home.empty() && std::getenv("KOR_HOMEDIR")) {
            std::fprintf(stderr, "invscan: %s\n", why.c_str());
            return EXIT_USAGE;
        }
        if (!home.empty()) setenv("KOR_HOMEDIR", home.c_str(), 0);
    }

    GroupFactory* factory = GroupFactory::getInstance();

    if (listGroups) {
        for (const zelGroupDef* g = GROUPS_DEF; g->id != ZEL_DEF_END; ++g) {
            std::unique_ptr<ZelGroup> probe(factory->getZELGroup(g->id));
            std::printf("%3u  %s%s\n", static_cast<unsigned>(g->id), g->name,
                        probe ? "" : "  (not available)");
        }
        return 0;
    }

    std::vector<Request> requests;
    for (const std::string& g : groups) {
        Request r;
        if (!resolveGroup(g, r)) {
            std::fprintf(stderr, "invscan: unknown group '%s'; valid groups are:%s\n", g.c_str(),
                         validGroupList().c_str());
            return EXIT_USAGE;
        }
        requests.push_back(r);
    }

    // The host configuration store: --config, else INVSCAN_CONFIG_DIR and
    // INVSCAN_CONFIG_FILE, else KorHWConfig.xml in the installation's etc folder.
    if (!config.empty()) {
        size_t slash = config.find_last_of('/');
        KorCfg::setKey(String("config_dir"),
                       String(slash == std::string::npos ? "." : config.substr(0, slash).c_str()));
        KorCfg::setKey(
            String("hwscanner.config_file"),
            String(slash == std::string::npos ? config.c_str() : config.substr(slash + 1).c_str()));
    } else {
        const char* dir = std::getenv("INVSCAN_CONFIG_DIR");
        const char* file = std::getenv("INVSCAN_CONFIG_FILE");
        const std::string etc = configFolder();
        if (dir && *dir)
            KorCfg::setKey(String("config_dir"), String(dir));
        else if (!etc.empty())
            KorCfg::setKey(String("config_dir"), String(etc.c_str()));
        if (file && *file) KorCfg::setKey(String("hwscanner.config_file"), String(file));
    }
    if (noLookup) KorCfg::setKey(String("hwscanner.reverse_lookup"), String("off"));
    factory->initialise();
    const String& path = factory->getHWConfigFile();
    std::string shown = path.toMultiByte();
    bool present = access(shown.c_str(), F_OK) == 0;
    if (!config.empty() || present) {
        int rc = factory->loadNodeFromFile(path, 1);
        if (rc != 0 || !factory->hasHardwareConfig()) {
            std::string why;
            int status = configFailure(shown, &why);
            std::fprintf(stderr, "invscan: configuration file '%s' %s\n", shown.c_str(),
                         why.c_str());
            return status;
        }
        factory->loadNodeFromFile(path, 5);
        factory->loadNodeFromFile(path, 6);
    }

    if (requests.empty()) {
        std::list<String> names;
        factory->getAllGroups(names);
        for (const String& n : names) {
            std::string name = n.toMultiByte();
            requests.push_back({getGroupIdFromName(n), name});
        }
    }

    // The tables' own block dump is printed as each table is made; every other format
    // is built from the JSON document.
    const bool blockDump = format == "dump";
    nlohmann::ordered_json out;
    out["tool"] = "invscan";
    out["version"] = INVSCAN_VERSION;
    out["format"] = JSON_FORMAT;
    out["kernel"] = hostfacts::kernelName();
    host::Utsname uts;
    const std::string nodeName = host::uname(&uts) == 0 ? uts.nodename : "";
    out["host"] = nodeName;
    std::string machine = machineId();
    out["scan_time"] = utcNow();
    out["tables"] = nlohmann::ordered_json::array();
    int produced = 0;
    std::vector<std::string> dumps; // the text dump, held back to be sanitised
    // The readable view of an unsanitised scan is printed table by table as they come
    // (held only while a recording may still fail), so that neither a large table's
    // JSON nor the whole view is held; the Operating System table is made first, for
    // the header.
    const bool streamView = format == "text" && !sanitizer && server.empty();
    const bool holdView = !recordDir.empty();
    const bool linuxHost = out["kernel"] == "Linux";
    std::string viewBody;
    std::unique_ptr<ZelGroup> osGroup;
    std::unique_ptr<ZelTable> osTable;
    if (streamView) {
        for (const Request& r : requests) {
            if (r.id != ZEL_GROUP_OPER_SYS) continue;
            osGroup.reset(factory->getGroup(String(r.name.c_str())));
            osTable.reset(osGroup ? osGroup->getTable() : nullptr);
            if (osTable) out["tables"].push_back(tableJson(osTable.get()));
            break;
        }
        viewBody = readableHeader(out);
    }
    auto flushView = [&] {
        if (!streamView || holdView) return;
        std::fwrite(viewBody.data(), 1, viewBody.size(), stdout);
        std::fflush(stdout);
        viewBody.clear();
    };
    flushView();
    // Likewise the JSON document, held only while a recording may still fail.
    std::unique_ptr<JsonStream> json;
    if (format == "json" && !sanitizer && server.empty()) {
        json.reset(new JsonStream(!recordDir.empty()));
        json->begin(out);
    }
    auto keep = [&](unsigned long id, nlohmann::ordered_json&& t) {
        if (json) {
            json->table(t);
            return;
        }
        if (!streamView) {
            out["tables"].push_back(std::move(t));
            return;
        }
        (void)id;
        viewBody += readableGroup(t, linuxHost);
        flushView();
    };
    // A table's view a row at a time: its JSON is never held whole.
    auto view = [&](ZelTable* table) {
        const zelGroupDef* def = table->getGroupDefinitionFromId();
        ViewGroup g(table->getGroupId(), table->getGroupName(), linuxHost);
        table->reset();
        while (ZelTableRow* row = table->getNext())
            g.measureRow(rowJson(row, def));
        g.begin(&viewBody);
        table->reset();
        while (ZelTableRow* row = table->getNext()) {
            g.writeRow(rowJson(row, def), &viewBody);
            if (viewBody.size() > (1u << 20)) flushView();
        }
        flushView();
    };
    for (const Request& r : requests) {
        const bool madeFirst = r.id == ZEL_GROUP_OPER_SYS && osGroup;
        std::unique_ptr<ZelGroup> group(madeFirst ? osGroup.release()
                                                  : factory->getGroup(String(r.name.c_str())));
        std::unique_ptr<ZelTable> table(madeFirst ? osTable.release()
                                        : group   ? group->getTable()
                                                  : nullptr);
        if (table) ++produced;
        if (!blockDump || sanitizer) {
            if (table) {
                if (streamView)
                    view(table.get());
                else if (json)
                    json->table(table.get());
                else
                    keep(r.id, tableJson(table.get()));
                if (blockDump && !sanitizedCopy) dumps.push_back(captureDump(table.get()) + "\n");
            } else {
                const zelGroupDef* def = getGroupDefinitionFromId(r.id);
                nlohmann::ordered_json t;
                t["id"] = r.id;
                t["name"] = def ? def->name : r.name.c_str();
                t["version"] = def ? def->version : 0;
                t["status"] = group ? "no table" : "not available";
                t["rows"] = nullptr;
                keep(r.id, std::move(t));
                char line[160];
                std::snprintf(line, sizeof line, "\n--------Table %s (%08lX): %s\n", r.name.c_str(),
                              r.id, group ? "no table" : "not available");
                dumps.push_back(line);
            }
        } else if (table) {
            table->toString();
            std::printf("\n");
        } else {
            std::printf("\n--------Table %s (%08lX): %s\n", r.name.c_str(), r.id,
                        group ? "no table" : "not available");
        }
        std::fflush(stdout);
        if (const char* e = host::recordError()) {
            std::fprintf(stderr, "invscan: cannot record into '%s': %s\n", recordDir.c_str(), e);
            return EXIT_RECORD_FAILED;
        }
    }
    // Values left empty because this scan is not root, said once, apart from values
    // the machine does not have.
    std::vector<std::string> missed;
    for (const std::string& path : host::missedForWantOfRoot()) {
        const char* what = path.find("/dmi/tables/") != std::string::npos ? "SMBIOS table"
                           : path.find("uuid") != std::string::npos       ? "UUID"
                                                                          : "serial number";
        if (std::find(missed.begin(), missed.end(), what) == missed.end()) missed.push_back(what);
    }
    if (!missed.empty()) {
        out["needs_root"] = missed;
        std::string list;
        for (const std::string& m : missed)
            list += (list.empty() ? "" : ", ") + m;
        std::fprintf(stderr, "invscan: not run as root: %s not read (they need root)\n",
                     list.c_str());
    }
    if (sanitizer) {
        for (const auto& t : out["tables"])
            sanitizer->learnTable(t);
        if (!nodeName.empty()) out["host"] = sanitizer->learn(Sanitizer::HOST, nodeName);
        // The pseudonym alone names a sanitised host; its machine id goes from the copy.
        if (!machine.empty()) sanitizer->learn(Sanitizer::HEX, machine);
        machine.clear();
        if (!sanitizedCopy) {
            for (auto& t : out["tables"])
                sanitizer->sanitizeTable(t);
            for (std::string& d : dumps)
                d = sanitizer->rewrite(d);
        }
    }
    if (!server.empty() && !sanitizedCopy)
        return sendToServer(server, format, out, glpiDeviceId(nodeName, machine), !!sanitizer,
                            caCert, connectTimeout, totalTimeout);
    if (!sanitizedCopy) {
        if (json) json->end(out);
        if (format == "json" && !json) std::cout << out.dump(2) << std::endl;
        if (format == "glpi")
            std::cout << glpiInventory(out, glpiDeviceId(out.value("host", std::string()), machine))
                             .dump(2)
                      << std::endl;
        if (format == "ocs") {
            std::string why,
                id = sanitizer || replaying() ? fixedDeviceId(out) : keptDeviceId(out, &why);
            if (id.empty()) {
                std::fprintf(stderr, "invscan: no device id for the OCS inventory: %s\n",
                             why.c_str());
                return 1;
            }
            std::cout << ocsInventory(out, id);
        }
        if (format == "text")
            std::cout << (streamView ? viewBody + readableFooter(out) : readableView(out));
        if (blockDump && sanitizer)
            for (const std::string& d : dumps)
                std::fwrite(d.data(), 1, d.size(), stdout);
    }
    for (const std::string& p : host::replayProblems())
        std::fprintf(stderr, "invscan: %s\n", p.c_str());
    // A recording to be sanitised stays marked incomplete until the sanitiser is done.
    if (!recordDir.empty() && !copyReplayed &&
        !(sanitizedCopy ? host::recordError() == nullptr : host::finishRecord())) {
        const char* e = host::recordError();
        std::fprintf(stderr, "invscan: cannot record into '%s': %s\n", recordDir.c_str(),
                     e ? e : "the bundle could not be marked complete");
        return EXIT_RECORD_FAILED;
    }
    if (sanitizedCopy) {
        std::string why;
        if (copyReplayed && !copyBundle(replayDir, recordDir, &why)) {
            std::fprintf(stderr, "invscan: cannot record into '%s': %s\n", recordDir.c_str(),
                         why.c_str());
            return EXIT_RECORD_FAILED;
        }
        // Replay refuses the bundle until every file of it is sanitised.
        if (!markIncomplete(recordDir, true, &why) || !sanitizer->sanitizeBundle(recordDir, &why) ||
            !markIncomplete(recordDir, false, &why)) {
            std::fprintf(stderr, "invscan: cannot sanitise '%s': %s\n", recordDir.c_str(),
                         why.c_str());
            return EXIT_RECORD_FAILED;
        }
        // The output is the sanitised bundle's own scan.
        std::string self = selfExe(argc > 0 ? argv[0] : nullptr);
        if (self.empty()) {
            std::fprintf(stderr,
                         "invscan: the sanitised bundle is in '%s'; this program's own "
                         "file is not known, so scan it with --replay\n",
                         recordDir.c_str());
            return 1;
        }
        std::vector<std::string> args = {self, "--replay", recordDir, "--format", format};
        for (const std::string& g : groups)
            args.insert(args.end(), {"--group", g});
        if (!config.empty()) args.insert(args.end(), {"--config", config});
        std::vector<char*> av;
        for (std::string& a : args)
            av.push_back(&a[0]);
        av.push_back(nullptr);
        std::fflush(stdout);
        ::unsetenv("INVSCAN_RECORD");
        ::unsetenv("INVSCAN_REPLAY");
        execv(self.c_str(), av.data());
        std::fprintf(stderr, "invscan: cannot replay the sanitised bundle: %s\n",
                     std::strerror(errno));
        return 1;
    }
    // Nothing at all produced is no scan; a group without data on this host still
    // answers with its table and counts.
    if (produced == 0 && !requests.empty()) {
        std::fprintf(stderr, "invscan: none of the groups asked for produced a table%s\n",
                     replayDir.empty() ? "" : " from this bundle");
        return EXIT_NOTHING;
    }
    return 0;
}
