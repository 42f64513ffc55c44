// Every reader of outside input over its worst shapes, run the way a person meets
// it (the programs themselves, in fresh processes): it either refuses the input or
// stays within 8 times its size plus 16 MiB of memory over the program's own.
#include <gtest/gtest.h>

#include "invscan/XmlKorParser.h"
#include "common/host/host_internal.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <malloc.h>
#include <fstream>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

#if defined(__SANITIZE_ADDRESS__)
#define INVSCAN_NO_RSS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define INVSCAN_NO_RSS 1
#endif
#endif

const std::string kBin = std::string(INVSCAN_BINARY_DIR) + "/bin/";

// Peak resident size in KiB of the program run with `args`, output discarded.
// Peak resident size in KiB of the program run with `args`, output discarded. A
// forked child (not a spawned one, which shares its parent's memory until exec) so
// that the parent's own peak does not count.
long peakKiB(const std::vector<std::string>& args) {
    std::vector<char*> argv;
    for (const std::string& a : args)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        dup2(null, 2);
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    struct rusage ru;
    if (pid < 0 || wait4(pid, &status, 0, &ru) != pid) return -1;
    return ru.ru_maxrss;
}

std::string repeat(const std::string& unit, std::size_t size) {
    std::string s;
    s.reserve(size + unit.size());
    while (s.size() < size)
        s += unit;
    return s;
}

std::string plist(const std::string& items) {
    return "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><dict><key>_items</key><array>" +
           items + "</array></dict></array></plist>";
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

} // namespace

TEST(InputBounds, WorstShapesStayWithinEightTimesTheirSize) {
#ifdef INVSCAN_NO_RSS
    GTEST_SKIP() << "resident sizes mean nothing under AddressSanitizer";
#endif
    char tmpl[] = "/tmp/invscan-bounds-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string dir = tmpl;
    const std::size_t big = 16u << 20; // a quarter of the 64 MiB cap keeps the suite quick
    const std::size_t table = host::bundle::MAX_TABLE;
    const std::size_t config = static_cast<std::size_t>(NodeReader::MAX_FILE_BYTES);
    enum Reader { DUMP, TABLE, CONFIG, SYSPROF, IOKIT };
    // Inputs are made one at a time: a child's peak counts its parent's memory too.
    const struct {
        const char* name;
        Reader reader;
        std::function<std::string()> input;
    } cases[] = {
        {"dump: tiny values", DUMP, [&] { return repeat("a:s=b\n", big); }},
        {"dump: many siblings", DUMP, [&] { return repeat("(n\n)\n", big); }},
        {"dump: 20-byte values", DUMP, [&] { return repeat("abcdefgh:s=12345678\n", big); }},
        {"dump: one huge line", DUMP, [&] { return "v:s=" + std::string(big, 'x') + "\n"; }},
        {"dump: deep nesting", DUMP,
         [&] { return repeat("(d\n", 3 * 4096) + repeat(")\n", 2 * 4096); }},
        {"table: tabs", TABLE, [&] { return std::string(table, '\t'); }},
        {"table: tiny records", TABLE, [&] { return repeat("k\tv\n", table); }},
        {"table: one huge field", TABLE,
         [&] { return "hw.model\ts\t" + std::string(table - 12, 'x') + "\n"; }},
        {"config: empty elements", CONFIG,
         [&] { return "<Hardware>" + repeat("<a/>", config - 24) + "</Hardware>"; }},
        {"config: attributes", CONFIG,
         [&] { return "<Hardware " + repeat("a=\"\" ", config / 8) + "/>"; }},
        {"plist: tiny tags", SYSPROF, [&] { return plist(repeat("<true/>", big)); }},
        {"plist: dictionaries", SYSPROF,
         [&] {
             return plist(repeat(
                 "<dict><key>" + std::string(84, 'k') + "</key><integer>1</integer></dict>", big));
         }},
        {"profiler text: tiny lines", SYSPROF,
         [&] { return "Hardware:\n\n    Hardware Overview:\n\n" + repeat("      a: b\n", big); }},
        {"registry text: tiny entries", IOKIT,
         [&] { return repeat("  | +-o n  <class IOService, id 0x1, retain 1>\n", big); }},
    };
    const long base = peakKiB({kBin + "invscan", "-g", "20"});
    const long helperBase = peakKiB({kBin + "sysprof", "--from", "/dev/null"});
    for (const auto& c : cases) {
        std::string bundle = dir + "/b";
        std::vector<std::string> args;
        long start = base;
        std::size_t size = 0;
        {
            const std::string input = c.input();
            size = input.size();
            switch (c.reader) {
            case DUMP:
            case TABLE:
                mkdir(bundle.c_str(), 0755);
                mkdir((bundle + "/helpers").c_str(), 0755);
                writeFile(bundle + "/bundle.txt", "invscan-bundle 1\n");
                writeFile(bundle + (c.reader == DUMP ? "/helpers/sysprof" : "/sysctl.txt"),
                          c.reader == DUMP ? "1.0 0\n" + input : input);
                args = {kBin + "invscan", "--replay", bundle, "-g", c.reader == DUMP ? "1" : "44"};
                break;
            case CONFIG:
                writeFile(dir + "/KorHWConfig.xml", input);
                args = {kBin + "invscan", "--config", dir + "/KorHWConfig.xml", "-g", "20"};
                break;
            case SYSPROF:
            case IOKIT:
                writeFile(dir + "/report", input);
                args = {kBin + (c.reader == IOKIT ? "iokit" : "sysprof"), "--from",
                        dir + "/report"};
                start = helperBase;
                break;
            }
        }
        malloc_trim(0);
        const long peak = peakKiB(args);
        ASSERT_GT(peak, 0) << c.name;
        const long allowed = start + static_cast<long>(size / 1024) * 8 + 16 * 1024;
        EXPECT_LE(peak, allowed) << c.name << ": " << peak << " KiB for " << size / 1024
                                 << " KiB of input";
        std::printf("%-28s %8zu KiB in, %+8ld KiB peak\n", c.name, size / 1024, peak - start);
        std::system(("rm -rf " + bundle).c_str());
    }
    std::system(("rm -rf " + dir).c_str());
}
