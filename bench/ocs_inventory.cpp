// What --format ocs adds to a scan: the OCS inventory XML made from a scan's tables,
// over real bundles and this machine (the scans come from the program, made once).
// This machine's should stay under 1 ms.
#include "cli/Ocs.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

namespace {

const char* const SOURCES[] = {nullptr, "macbookpro-2011-10.7.5", "powermac11-2-10.5.8",
                               "linux-debian12-netns-ipv6"};

// The scan of a bundle, or of this machine for a null bundle.
nlohmann::ordered_json scanOf(const char* bundle) {
    std::string cmd =
        std::string("env -u KOR_HOMEDIR ") + INVSCAN_BINARY_DIR + "/bin/invscan -f json" +
        (bundle ? std::string(" --replay ") + INVSCAN_TEST_DATA + "/bundles/" + bundle : "");
    std::string out;
    if (std::FILE* p = popen(cmd.c_str(), "r")) {
        char buf[65536];
        std::size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, p)) > 0)
            out.append(buf, n);
        pclose(p);
    }
    return nlohmann::ordered_json::parse(out, nullptr, false);
}

void BM_OcsInventory(benchmark::State& state) {
    const char* source = SOURCES[state.range(0)];
    const auto scan = scanOf(source);
    state.SetLabel(source ? source : "this host");
    for (auto _ : state) {
        std::string xml = ocsInventory(scan, "host-2026-01-02-03-04-05");
        benchmark::DoNotOptimize(xml);
    }
}
BENCHMARK(BM_OcsInventory)->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);

} // namespace
