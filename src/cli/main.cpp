// invscan: scans inventory groups through the library and prints their tables as
// the tables' own text dump or as JSON.
#include "invscan/invscan.h"
#include "invscan/host.h"
#include "invscan/HostFacts.h"
#include "invscan/ZelValue.h"
#include "cli/Diff.h"
#include "cli/Glpi.h"
#include "cli/Manual.h"
#include "cli/Sanitize.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cctype>
#include <cerrno>
#include <climits>
#include <ctime>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <ftw.h>
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
    "11 not a hardware configuration.";

// Empties a folder for --force: every entry below it, links not followed, and
// never across into another file system.
bool emptyFolder(const std::string& dir, std::string* why) {
    struct Walk {
        static int remove(const char* path, const struct stat*, int, struct FTW* ftw) {
            if (ftw->level == 0) return 0;
            if (::remove(path) != 0) {
                failed() = std::string(path) + ": " + std::strerror(errno);
                return 1;
            }
            return 0;
        }
        static std::string& failed() {
            static std::string f;
            return f;
        }
    };
    Walk::failed().clear();
    if (nftw(dir.c_str(), Walk::remove, 16, FTW_DEPTH | FTW_PHYS | FTW_MOUNT) != 0) {
        *why = Walk::failed().empty() ? std::string(std::strerror(errno)) : Walk::failed();
        return false;
    }
    return true;
}

// A folder that exists and holds anything.
bool nonEmptyFolder(const std::string& dir) {
    DIR* d = opendir(dir.c_str());
    if (!d) return false;
    bool any = false;
    while (struct dirent* e = readdir(d))
        if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) any = true;
    closedir(d);
    return any;
}

// Why a configuration file was not taken: what the XML layer says of it.
int configFailure(const std::string& path, std::string* why) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        *why = std::string("cannot be opened: ") + std::strerror(errno);
        return EXIT_CONFIG_OPEN;
    }
    if (S_ISDIR(st.st_mode)) {
        *why = "cannot be opened: it is a folder";
        return EXIT_CONFIG_OPEN;
    }
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
    if (argv0 && realpath(argv0, path)) return path;
    return std::string();
}

// The folder whose bin holds the helper programs: <prefix>/libexec/invscan for an
// installation (<prefix>/bin/invscan), else the parent of this program's folder (a
// build tree, where the helpers sit beside it).
std::string installHome(const char* argv0) {
    std::string exe = selfExe(argv0);
    for (int i = 0; i < 2; ++i) {
        size_t slash = exe.find_last_of('/');
        if (slash == std::string::npos) return std::string();
        exe.erase(slash);
    }
    std::string installed = exe + "/" INVSCAN_LIBEXEC "/invscan";
    if (access((installed + "/bin/sysprof").c_str(), X_OK) == 0) return installed;
    return exe.empty() ? std::string("/") : exe;
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

nlohmann::ordered_json tableJson(ZelTable* table) {
    const zelGroupDef* def = table->getGroupDefinitionFromId();
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    table->reset();
    while (ZelTableRow* row = table->getNext()) {
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
        rows.push_back(std::move(attrs));
    }
    nlohmann::ordered_json t;
    t["id"] = table->getGroupId();
    t["name"] = table->getGroupName();
    t["version"] = table->getGroupVersion();
    t["status"] = "ok";
    t["rows"] = std::move(rows);
    return t;
}

// Copies the folder `from` into `to`, file by file (a bundle holds only files and
// folders).
bool copyTree(const std::string& from, const std::string& to, std::string* why) {
    DIR* d = opendir(from.c_str());
    if (!d) {
        *why = from + ": " + std::strerror(errno);
        return false;
    }
    bool ok = (mkdir(to.c_str(), 0755) == 0 || errno == EEXIST);
    if (!ok) *why = to + ": " + std::strerror(errno);
    while (struct dirent* e = ok ? readdir(d) : nullptr) {
        if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
        std::string a = from + "/" + e->d_name, b = to + "/" + e->d_name;
        struct stat st;
        if (lstat(a.c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode)) {
            ok = copyTree(a, b, why);
        } else if (S_ISREG(st.st_mode)) {
            std::FILE* in = std::fopen(a.c_str(), "rb");
            std::FILE* out = in ? std::fopen(b.c_str(), "wb") : nullptr;
            char buf[65536];
            std::size_t n;
            while (out && (n = std::fread(buf, 1, sizeof buf, in)) > 0)
                if (std::fwrite(buf, 1, n, out) != n) break;
            ok = in && out && !std::ferror(in) && !std::ferror(out);
            if (out && std::fclose(out) != 0) ok = false;
            if (in) std::fclose(in);
            if (!ok) *why = b + ": " + std::strerror(errno ? errno : EIO);
        }
    }
    closedir(d);
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

// The key for --sanitize: this installation's, else the user's when the installation
// cannot keep one.
std::string sanitizeKey(std::string* why) {
    std::vector<std::string> places;
    struct stat st;
    const char* home = std::getenv("KOR_HOMEDIR");
    if (home && *home && stat((std::string(home) + "/etc").c_str(), &st) == 0 &&
        S_ISDIR(st.st_mode))
        places.push_back(std::string(home) + "/etc/sanitize.key");
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

std::string utcNow() {
    char buf[32] = "";
    std::time_t now = std::time(nullptr);
    struct tm tmv;
    if (gmtime_r(&now, &tmv)) std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tmv);
    return buf;
}

// A scan from a file or standard input, at most DIFF_MAX_INPUT bytes and one more.
bool readScanText(const std::string& path, std::string* out, std::string* why) {
    std::FILE* f = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
    if (!f) {
        *why = std::strerror(errno);
        return false;
    }
    char buf[65536];
    std::size_t n;
    while (out->size() <= DIFF_MAX_INPUT && (n = std::fread(buf, 1, sizeof buf, f)) > 0)
        out->append(buf, n);
    bool failed = std::ferror(f) != 0;
    if (f != stdin) std::fclose(f);
    if (failed) *why = "cannot be read";
    return !failed;
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
    nlohmann::ordered_json result = diffScans(scans[0], scans[1], all);
    if (format == "json")
        std::cout << result.dump(2) << std::endl;
    else
        std::cout << diffText(result);
    return result["differences"].empty() ? 0 : 1;
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
    id = getGroupIdFromName(String(arg.c_str()));
    if (!id) return false;
    out = {id, arg};
    return true;
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
    app.add_option("-f,--format", format, "Output format")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"text", "json", "glpi"}));
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
                   "kept in the installation's etc/sanitize.key, else ~/.config/invscan/")
        ->type_name("KEY");
    app.add_flag("--force", force, "With --record: empty a folder that is not empty first");
    app.add_flag("--list-groups", listGroups, "List the inventory groups and exit");
    app.footer(EXIT_HELP);
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
        std::fprintf(stderr, "invscan: cannot open trace file '%s'\n", trace.c_str());
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
        char* realFrom = replayDir.empty() ? nullptr : realpath(replayDir.c_str(), nullptr);
        char* realTo = realpath(recordDir.c_str(), nullptr);
        const bool same = realFrom && realTo && std::strcmp(realFrom, realTo) == 0;
        const bool root = realTo && std::strcmp(realTo, "/") == 0;
        std::free(realFrom);
        std::free(realTo);
        if (same) {
            std::fprintf(stderr, "invscan: cannot record into '%s': it is the bundle replayed\n",
                         recordDir.c_str());
            return EXIT_RECORD_FAILED;
        }
        if (nonEmptyFolder(recordDir)) {
            std::string why;
            if (!force || root) {
                std::fprintf(stderr, "invscan: cannot record into '%s': %s\n", recordDir.c_str(),
                             root ? "it is the root folder"
                                  : "the folder is not empty (--force empties it first)");
                return EXIT_RECORD_FAILED;
            }
            if (!emptyFolder(recordDir, &why)) {
                std::fprintf(stderr, "invscan: cannot empty '%s': %s\n", recordDir.c_str(),
                             why.c_str());
                return EXIT_RECORD_FAILED;
            }
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
    if (!std::getenv("KOR_HOMEDIR")) {
        std::string home = installHome(argc > 0 ? argv[0] : nullptr);
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
        const char* home = std::getenv("KOR_HOMEDIR");
        if (dir && *dir)
            KorCfg::setKey(String("config_dir"), String(dir));
        else if (home && *home)
            KorCfg::setKey(String("config_dir"), String((std::string(home) + "/etc").c_str()));
        if (file && *file) KorCfg::setKey(String("hwscanner.config_file"), String(file));
    }
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

    nlohmann::ordered_json out;
    out["tool"] = "invscan";
    out["version"] = INVSCAN_VERSION;
    out["format"] = JSON_FORMAT;
    out["kernel"] = hostfacts::kernelName();
    out["scan_time"] = utcNow();
    out["tables"] = nlohmann::ordered_json::array();
    int produced = 0;
    std::vector<std::string> dumps; // the text dump, held back to be sanitised
    for (const Request& r : requests) {
        std::unique_ptr<ZelGroup> group(factory->getGroup(String(r.name.c_str())));
        std::unique_ptr<ZelTable> table(group ? group->getTable() : nullptr);
        if (table) ++produced;
        if (format == "json" || format == "glpi" || sanitizer) {
            if (table) {
                out["tables"].push_back(tableJson(table.get()));
                if (format == "text" && !sanitizedCopy)
                    dumps.push_back(captureDump(table.get()) + "\n");
            } else {
                const zelGroupDef* def = getGroupDefinitionFromId(r.id);
                nlohmann::ordered_json t;
                t["id"] = r.id;
                t["name"] = def ? def->name : r.name.c_str();
                t["version"] = def ? def->version : 0;
                t["status"] = group ? "no table" : "not available";
                t["rows"] = nullptr;
                out["tables"].push_back(std::move(t));
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
    if (sanitizer) {
        for (const auto& t : out["tables"])
            sanitizer->learnTable(t);
        host::Utsname u;
        if (host::uname(&u) == 0) sanitizer->learn(Sanitizer::HOST, u.nodename);
        if (!sanitizedCopy) {
            for (auto& t : out["tables"])
                sanitizer->sanitizeTable(t);
            for (std::string& d : dumps)
                d = sanitizer->rewrite(d);
        }
    }
    if (!sanitizedCopy) {
        if (format == "json") std::cout << out.dump(2) << std::endl;
        if (format == "glpi") std::cout << glpiInventory(out).dump(2) << std::endl;
        if (format == "text" && sanitizer)
            for (const std::string& d : dumps)
                std::fwrite(d.data(), 1, d.size(), stdout);
    }
    for (const std::string& p : host::replayProblems())
        std::fprintf(stderr, "invscan: %s\n", p.c_str());
    if (!recordDir.empty() && !copyReplayed && !host::finishRecord()) {
        const char* e = host::recordError();
        std::fprintf(stderr, "invscan: cannot record into '%s': %s\n", recordDir.c_str(),
                     e ? e : "the bundle could not be marked complete");
        return EXIT_RECORD_FAILED;
    }
    if (sanitizedCopy) {
        std::string why;
        if (copyReplayed && !copyTree(replayDir, recordDir, &why)) {
            std::fprintf(stderr, "invscan: cannot record into '%s': %s\n", recordDir.c_str(),
                         why.c_str());
            return EXIT_RECORD_FAILED;
        }
        if (!sanitizer->sanitizeBundle(recordDir, &why)) {
            std::fprintf(stderr, "invscan: cannot sanitise '%s': %s\n", recordDir.c_str(),
                         why.c_str());
            return EXIT_RECORD_FAILED;
        }
        // The output is the sanitised bundle's own scan.
        std::string self = selfExe(argc > 0 ? argv[0] : nullptr);
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
    return produced == 0 && !requests.empty() ? EXIT_NOTHING : 0;
}
