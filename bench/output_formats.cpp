// What --format glpi, --format text and --sanitize add to a scan: the GLPI inventory
// made and printed from a scan's tables, the readable view, and a scan's tables
// sanitised, over real bundles and this machine (the scans themselves come from the
// program, made once). The view of this machine's scan should stay under 1 ms.
#include "cli/Glpi.h"
#include "cli/Sanitize.h"
#include "cli/View.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

namespace {

const char* const BUNDLES[] = {"macbookpro-2011-10.7.5", "macmini3-1-10.6.8",
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

void BM_ReadableView(benchmark::State& state) {
    const char* bundle = state.range(0) < 3 ? BUNDLES[state.range(0)] : nullptr;
    const auto scan = scanOf(bundle);
    state.SetLabel(bundle ? bundle : "this machine");
    for (auto _ : state) {
        std::string text = readableView(scan);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(BM_ReadableView)->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);

// A hostile host: 10,000 interfaces, names with tabs and bytes that are not UTF-8. The
// view stays linear in the rows.
void BM_ReadableViewManyRows(benchmark::State& state) {
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (int64_t i = 0; i < state.range(0); ++i) {
        nlohmann::ordered_json row = nlohmann::ordered_json::array();
        row.push_back({{"id", 2}, {"name", "ID"}, {"value", "en\t\xff" + std::to_string(i)}});
        row.push_back({{"id", 5}, {"name", "Type"}, {"value", 3}, {"text", "Ethernet Adapter"}});
        row.push_back({{"id", 6}, {"name", "Model"}, {"value", "Ethernet-en" + std::to_string(i)}});
        rows.push_back(std::move(row));
    }
    nlohmann::ordered_json scan = {
        {"tables",
         {{{"id", 7}, {"name", "Network Adapter"}, {"status", "ok"}, {"rows", std::move(rows)}}}}};
    for (auto _ : state) {
        std::string text = readableView(scan);
        benchmark::DoNotOptimize(text);
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_ReadableViewManyRows)
    ->RangeMultiplier(10)
    ->Range(100, 100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

} // namespace
