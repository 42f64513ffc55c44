// Command line of the helper programs:
//   sysprof | iokit               live report (or the bundle's, when replaying)
//   sysprof --from FILE           convert a saved report
//   --replay DIR / --record DIR   as INVSCAN_REPLAY / INVSCAN_RECORD
// The output is always a response line and, on success, a variant-tree dump. Exit 0
// only when a report was written; otherwise 1 (2 for usage and a folder that cannot
// be replayed or recorded into), with one line on standard error.
#include "helpers/HelperMain.h"

#include "common/report/ReportVt.h"
#include "invscan/host.h"

#include <cerrno>
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
            const char* dir = argv[++i];
            const host::BundleState st = host::checkBundle(dir);
            if (st != host::BUNDLE_OK || !host::useReplay(dir)) {
                std::fprintf(
                    stderr, "%s: cannot replay '%s': %s\n", helper, dir,
                    host::bundleStateText(st == host::BUNDLE_OK ? host::BUNDLE_UNREADABLE : st));
                return 2;
            }
        } else if (a == "--record" && hasArg) {
            if (!host::useRecord(argv[++i])) {
                std::fprintf(stderr, "%s: cannot record into '%s'\n", helper, argv[i]);
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
    std::string failure;
    std::string out = report::helperOutput(helper, from, &failure);
    if (out.empty() && failure.empty()) failure = "could not produce output";
    // The response line goes out on a failure too: the library reads its reason.
    const bool written =
        std::fwrite(out.data(), 1, out.size(), stdout) == out.size() && std::fflush(stdout) == 0;
    if (!failure.empty()) {
        std::fprintf(stderr, "%s: %s\n", helper, failure.c_str());
        return 1;
    }
    if (!written) {
        std::fprintf(stderr, "%s: cannot write the report: %s\n", helper, std::strerror(errno));
        return 1;
    }
    return 0;
}
