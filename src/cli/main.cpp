// invscan: scans inventory groups through the library and prints their tables as
// the tables' own text dump or as JSON.
#include "invscan.h"
#include "host.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <climits>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

const int EXIT_USAGE = 2;

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

// The installation folder: the parent of the folder that holds this program, so
// that <home>/bin/sysprof is found beside it.
std::string installHome(const char* argv0) {
    char path[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    std::string exe;
    if (n > 0) {
        path[n] = '\0';
        exe = path;
    } else if (argv0 && realpath(argv0, path)) {
        exe = path;
    }
    for (int i = 0; i < 2; ++i) {
        size_t slash = exe.find_last_of('/');
        if (slash == std::string::npos) return std::string();
        exe.erase(slash);
    }
    return exe.empty() ? std::string("/") : exe;
}

void appendUtf8(std::string& out, uint32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

uint64_t get64(const unsigned char* p) {
    return static_cast<uint64_t>(zelGet32(p)) | static_cast<uint64_t>(zelGet32(p + 4)) << 32;
}

nlohmann::json blockValue(const unsigned char* block) {
    if (!zelBlockIsComplete(block)) return nullptr;
    uint32_t length = zelGet32(block);
    uint32_t type = zelGet32(block + 8);
    const unsigned char* v = block + ZEL_ATTRIB_HEADER;
    switch (type) {
    case ZEL_UCHAR:
        return v[0];
    case ZEL_USHORT:
        return v[0] | v[1] << 8;
    case ZEL_ULONG:
        return zelGet32(v);
    case ZEL_UQUAD:
        return nlohmann::json::array({zelGet32(v), zelGet32(v + 4)});
    case ZEL_FLOAT: {
        uint32_t bits = zelGet32(v);
        float f;
        std::memcpy(&f, &bits, 4);
        return f;
    }
    case ZEL_DOUBLE: {
        uint64_t bits = get64(v);
        double d;
        std::memcpy(&d, &bits, 8);
        return d;
    }
    case ZEL_STRING: {
        std::string s;
        uint32_t n = zelGet32(v);
        uint32_t room = (length - ZEL_ATTRIB_HEADER - 4) / 4;
        for (uint32_t i = 0; i + 1 < n && i < room; ++i) {
            uint32_t c = zelGet32(v + 4 + 4 * static_cast<size_t>(i));
            if (c == 0) break;
            appendUtf8(s, c);
        }
        return s;
    }
    case ZEL_OCTETSTRING: {
        static const char hex[] = "0123456789ABCDEF";
        std::string s;
        uint32_t n = zelGet32(v);
        for (uint32_t i = 0; i < n; ++i) {
            s += hex[v[4 + i] >> 4];
            s += hex[v[4 + i] & 15];
        }
        return s;
    }
    case ZEL_DATETIME:
        return std::string(reinterpret_cast<const char*>(v), ZEL_DATETIME_LEN);
    case ZEL_ULONGLONG:
        return get64(v);
    case ZEL_LONGLONG:
        return static_cast<int64_t>(get64(v));
    default:
        return nullptr;
    }
}

nlohmann::json tableJson(ZelTable* table) {
    const zelGroupDef* def = table->getGroupDefinitionFromId();
    nlohmann::json rows = nlohmann::json::array();
    table->reset();
    while (ZelTableRow* row = table->getNext()) {
        nlohmann::json attrs = nlohmann::json::array();
        row->reset();
        while (ZelTableAttrib* a = row->getNext()) {
            const unsigned char* block = a->getAttribPtr();
            if (!block) continue;
            nlohmann::json j;
            j["id"] = a->getId();
            const zelAttribDef* ad = getAttribDefinitionFromId(def, a->getId());
            j["name"] = ad ? ad->name : "";
            j["type"] = getZelAttribTypeAsString(a->getType());
            j["value"] = blockValue(block);
            if (ad && ad->enumDef && a->getType() == ZEL_ULONG) {
                const char* text = zelEnumText(ad->enumDef, zelGet32(block + ZEL_ATTRIB_HEADER));
                j["enum"] = text ? text : nullptr;
            }
            attrs.push_back(std::move(j));
        }
        rows.push_back(std::move(attrs));
    }
    return nlohmann::json{{"id", table->getGroupId()},
                          {"name", table->getGroupName()},
                          {"version", table->getGroupVersion()},
                          {"rows", std::move(rows)}};
}

struct Request {
    unsigned long id;
    std::string name;
};

bool resolveGroup(const std::string& arg, Request& out) {
    char* end = nullptr;
    unsigned long id = std::strtoul(arg.c_str(), &end, 0);
    if (!arg.empty() && end && *end == '\0') {
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

}  // namespace

int main(int argc, char** argv) {
    chooseLocale();

    CLI::App app{"invscan: hardware and software inventory scanner"};
    std::vector<std::string> groups;
    std::string format = "text";
    std::string config, trace, recordDir, replayDir;
    bool listGroups = false, version = false;
    app.add_option("-g,--group", groups, "Group to scan, by name or id (repeatable)");
    app.add_option("-f,--format", format, "Output format")
        ->check(CLI::IsMember({"text", "json"}));
    app.add_option("-c,--config", config, "Hardware configuration file (XML)");
    app.add_option("--trace", trace, "Write the trace to FILE (or 'stderr')");
    auto* rec = app.add_option("--record", recordDir, "Record everything the scan reads into DIR");
    app.add_option("--replay", replayDir, "Scan the host recorded in DIR instead of this one")
        ->excludes(rec);
    app.add_flag("--list-groups", listGroups, "List the inventory groups and exit");
    app.add_flag("--version", version, "Print the version and exit");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int rc = app.exit(e);
        return rc == 0 ? 0 : EXIT_USAGE;
    }

    if (version) {
        std::printf("invscan %s (build %s)\n", INVSCAN_VERSION, getBuildDateVMQT());
        return 0;
    }
    if (!trace.empty() && !getCcLogHw()->setOutput(trace.c_str())) {
        std::fprintf(stderr, "invscan: cannot open trace file '%s'\n", trace.c_str());
        return 1;
    }
    if (!replayDir.empty() && !host::useReplay(replayDir.c_str())) {
        std::fprintf(stderr, "invscan: cannot replay '%s': not a readable bundle directory\n",
                     replayDir.c_str());
        return 1;
    }
    if (!recordDir.empty() && !host::useRecord(recordDir.c_str())) {
        std::fprintf(stderr, "invscan: cannot record into '%s'\n", recordDir.c_str());
        return 1;
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
        KorCfg::setKey(String("hwscanner.config_file"),
                       String(slash == std::string::npos ? config.c_str()
                                                         : config.substr(slash + 1).c_str()));
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
        if (rc == 5) {
            std::fprintf(stderr, "invscan: cannot read configuration file '%s'\n", shown.c_str());
            return 1;
        }
        if (rc == 2) {
            std::fprintf(stderr, "invscan: configuration file '%s' is not valid XML\n",
                         shown.c_str());
            return 1;
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

    nlohmann::json out = nlohmann::json::array();
    for (const Request& r : requests) {
        std::unique_ptr<ZelGroup> group(factory->getGroup(String(r.name.c_str())));
        std::unique_ptr<ZelTable> table(group ? group->getTable() : nullptr);
        if (format == "json") {
            if (table) {
                out.push_back(tableJson(table.get()));
            } else {
                out.push_back({{"id", r.id}, {"name", r.name}, {"rows", nullptr},
                               {"status", group ? "no table" : "not available"}});
            }
        } else if (table) {
            table->toString();
            std::printf("\n");
        } else {
            std::printf("\n--------Table %s (%08lX): %s\n", r.name.c_str(), r.id,
                        group ? "no table" : "not available");
        }
        std::fflush(stdout);
    }
    if (format == "json") std::cout << out.dump(2) << std::endl;
    return 0;
}
