// Command line of the helper programs:
//   sysprof | iokit               live report (or the bundle's, when replaying)
//   sysprof --from FILE           convert a saved report
//   --replay DIR / --record DIR   as INVSCAN_REPLAY / INVSCAN_RECORD
// The output is always a response line and, on success, a variant-tree dump.
#include "helpers/HelperMain.h"

#include "common/report/ReportVt.h"
#include "invscan/host.h"

#include <cstdio>
#include <cstring>
#include <string>

static int usage(const char* helper) {
    std::fprintf(stderr,
                 "usage: %s [--from FILE] [--replay DIR | --record DIR]\n"
                 "Prints the %s snapshot as a response line and a variant-tree dump.\n",
                 helper, std::strcmp(helper, "iokit") == 0 ? "I/O registry" : "system profiler");
    return 2;
}

int helperMain(const char* helper, int argc, char** argv) {
    const char* from = nullptr;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        bool hasArg = i + 1 < argc;
        if (a == "--from" && hasArg) {
            from = argv[++i];
        } else if (a == "--replay" && hasArg) {
            if (!host::useReplay(argv[++i])) {
                std::fprintf(stderr, "%s: cannot replay %s: not a readable directory\n", helper,
                             argv[i]);
                return 2;
            }
        } else if (a == "--record" && hasArg) {
            if (!host::useRecord(argv[++i])) {
                std::fprintf(stderr, "%s: cannot record into %s\n", helper, argv[i]);
                return 2;
            }
        } else if (a == "-h" || a == "--help") {
            usage(helper);
            return 0;
        } else {
            std::fprintf(stderr, "%s: unknown or incomplete option '%s'\n", helper, a.c_str());
            return usage(helper);
        }
    }
    std::string out = report::helperOutput(helper, from);
    if (out.empty()) {
        std::fprintf(stderr, "%s: could not produce output\n", helper);
        return 1;
    }
    if (std::fwrite(out.data(), 1, out.size(), stdout) != out.size()) return 1;
    return std::fflush(stdout) == 0 ? 0 : 1;
}
