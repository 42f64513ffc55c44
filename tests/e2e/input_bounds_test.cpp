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
#include <iterator>
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

struct Outcome {
    long peakKiB = -1; // peak resident size
    int status = -1;   // exit status
    std::string err;   // standard error
};

// The program run with `args`, standard output discarded. A forked child (not a
// spawned one, which shares its parent's memory until exec) so that the parent's own
// peak does not count.
Outcome runMeasured(const std::vector<std::string>& args) {
    Outcome o;
    char errPath[] = "/tmp/invscan-bounds-err-XXXXXX";
    int errFd = mkstemp(errPath);
    if (errFd < 0) return o;
    std::vector<char*> argv;
    for (const std::string& a : args)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        dup2(errFd, 2);
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    struct rusage ru;
    if (pid >= 0 && wait4(pid, &status, 0, &ru) == pid) {
        o.peakKiB = ru.ru_maxrss;
        o.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        std::ifstream in(errPath);
        o.err.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    close(errFd);
    unlink(errPath);
    return o;
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

// The hostile inputs that once cost seconds and gigabytes, past their caps too: each
// is refused with its reason, or scanned, and never stalls or grows past its bound.
TEST(InputBounds, WorstShapesStayWithinEightTimesTheirSize) {
    char tmpl[] = "/tmp/invscan-bounds-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string dir = tmpl;
    const std::size_t big = 16u << 20; // a quarter of the 64 MiB cap keeps the suite quick
    const std::size_t table = host::bundle::MAX_TABLE;
    const std::size_t config = static_cast<std::size_t>(NodeReader::MAX_FILE_BYTES);
    enum Reader { DUMP, REGISTRY, TABLE, CONFIG, SYSPROF, IOKIT, ZERO };
    // Inputs are made one at a time: a child's peak counts its parent's memory too.
    const struct {
        const char* name;
        Reader reader;
        std::function<std::string()> input;
        int status;          // -1: any
        const char* message; // on standard error, or null
    } cases[] = {
        {"dump: tiny values", DUMP, [&] { return repeat("a:s=b\n", big); }, -1, nullptr},
        {"dump: many siblings", DUMP, [&] { return repeat("(n\n)\n", big); }, -1, nullptr},
        {"dump: 20-byte values", DUMP, [&] { return repeat("abcdefgh:s=12345678\n", big); }, -1,
         nullptr},
        {"dump: one huge line", DUMP, [&] { return "v:s=" + std::string(big, 'x') + "\n"; }, -1,
         nullptr},
        {"dump: deep nesting", DUMP,
         [&] { return repeat("(d\n", 3 * 4096) + repeat(")\n", 2 * 4096); }, -1, nullptr},
        // Past the 64 MiB cap the snapshot fails: nothing produced.
        {"dump: 63 MB of tiny values", DUMP, [&] { return repeat("a:s=b\n", 63u << 20); }, 3,
         nullptr},
        // 80,000 children of one registry node, and no SMBIOS table among them.
        {"registry: 80,000 children", REGISTRY,
         [&] {
             return "(IOKit\n(Root\nIOKitBuildVersion:s=wide\n" + repeat("(n\n)\n", 80000 * 5) +
                    ")\n)\n";
         },
         3, nullptr},
        {"table: tabs", TABLE, [&] { return std::string(table, '\t'); }, -1, nullptr},
        {"table: tiny records", TABLE, [&] { return repeat("k\tv\n", table); }, -1, nullptr},
        {"table: one huge field", TABLE,
         [&] { return "hw.model\ts\t" + std::string(table - 12, 'x') + "\n"; }, -1, nullptr},
        {"table: 63 MB of tabs", TABLE, [&] { return std::string(63u << 20, '\t'); }, 0,
         "bundle file 'sysctl.txt' is larger than its cap of 256 KiB: refused"},
        {"config: empty elements", CONFIG,
         [&] { return "<Hardware>" + repeat("<a/>", config - 24) + "</Hardware>"; }, -1, nullptr},
        {"config: attributes", CONFIG,
         [&] { return "<Hardware " + repeat("a=\"\" ", config / 8) + "/>"; }, -1, nullptr},
        {"config: 15 MB of empty elements", CONFIG,
         [&] { return "<Hardware>" + repeat("<a/>", 15u << 20) + "</Hardware>"; }, 8,
         "is too large (the limit is 256 KiB)"},
        {"plist: tiny tags", SYSPROF, [&] { return plist(repeat("<true/>", big)); }, -1, nullptr},
        {"plist: dictionaries", SYSPROF,
         [&] {
             return plist(repeat(
                 "<dict><key>" + std::string(84, 'k') + "</key><integer>1</integer></dict>", big));
         },
         -1, nullptr},
        {"profiler text: tiny lines", SYSPROF,
         [&] { return "Hardware:\n\n    Hardware Overview:\n\n" + repeat("      a: b\n", big); },
         -1, nullptr},
        {"registry text: tiny entries", IOKIT,
         [&] { return repeat("  | +-o n  <class IOService, id 0x1, retain 1>\n", big); }, -1,
         nullptr},
        // The helper answers in its response: result 1 and the reason.
        {"sysprof --from /dev/zero", ZERO, [&] { return std::string(); }, 0, nullptr},
    };
    const long base = runMeasured({kBin + "invscan", "-g", "20"}).peakKiB;
    const long helperBase = runMeasured({kBin + "sysprof", "--from", "/dev/null"}).peakKiB;
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
            case REGISTRY:
            case TABLE:
                mkdir(bundle.c_str(), 0755);
                mkdir((bundle + "/helpers").c_str(), 0755);
                writeFile(bundle + "/bundle.txt", "invscan-bundle 1\n");
                writeFile(bundle + (c.reader == DUMP       ? "/helpers/sysprof"
                                    : c.reader == REGISTRY ? "/helpers/iokit"
                                                           : "/sysctl.txt"),
                          c.reader == TABLE ? input : "1.0 0\n" + input);
                args = {kBin + "invscan", "--replay", bundle, "-g",
                        c.reader == DUMP       ? "1"
                        : c.reader == REGISTRY ? "24"
                                               : "44"};
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
            case ZERO:
                args = {kBin + "sysprof", "--from", "/dev/zero"};
                start = helperBase;
                size = 64u << 20; // what is read of it before the cap
                break;
            }
        }
        malloc_trim(0);
        const Outcome o = runMeasured(args);
        ASSERT_GT(o.peakKiB, 0) << c.name;
        if (c.status >= 0) {
            EXPECT_EQ(o.status, c.status) << c.name << ": " << o.err;
        }
        if (c.message) {
            EXPECT_NE(o.err.find(c.message), std::string::npos) << c.name << ": " << o.err;
        }
#ifndef INVSCAN_NO_RSS // resident sizes mean nothing under AddressSanitizer
        const long allowed = start + static_cast<long>(size / 1024) * 8 + 16 * 1024;
        EXPECT_LE(o.peakKiB, allowed)
            << c.name << ": " << o.peakKiB << " KiB for " << size / 1024 << " KiB of input";
        std::printf("%-32s %8zu KiB in, %+8ld KiB peak\n", c.name, size / 1024, o.peakKiB - start);
#else
        (void)start;
        (void)size;
#endif
        std::system(("rm -rf " + bundle).c_str());
    }
    std::system(("rm -rf " + dir).c_str());
}
