// What --format glpi and --sanitize add to a scan: the GLPI inventory made and
// printed from a scan's tables, and a scan's tables sanitised, over real bundles
// (the scans themselves come from the program, made once).
#include "cli/Glpi.h"
#include "cli/Sanitize.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

namespace {

const char* const BUNDLES[] = {"macbookpro-2011-10.7.5", "macmini3-1-10.6.8",
                               "linux-debian12-netns-ipv6"};

nlohmann::ordered_json scanOf(const char* bundle) {
    std::string cmd = std::string("env -u KOR_HOMEDIR ") + INVSCAN_BINARY_DIR +
                      "/bin/invscan -f json --replay " + INVSCAN_TEST_DATA + "/bundles/" + bundle;
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

void BM_Glpi(benchmark::State& state) {
    const auto scan = scanOf(BUNDLES[state.range(0)]);
    state.SetLabel(BUNDLES[state.range(0)]);
    for (auto _ : state) {
        std::string text = glpiInventory(scan).dump(2);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(BM_Glpi)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);

void BM_Sanitize(benchmark::State& state) {
    const auto scan = scanOf(BUNDLES[state.range(0)]);
    state.SetLabel(BUNDLES[state.range(0)]);
    for (auto _ : state) {
        Sanitizer s("bench");
        auto copy = scan;
        for (const auto& t : copy["tables"])
            s.learnTable(t);
        for (auto& t : copy["tables"])
            s.sanitizeTable(t);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_Sanitize)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);

} // namespace
