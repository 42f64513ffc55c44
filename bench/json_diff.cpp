// invscan diff over two scans of 10,000 rows each (a partition table of a large
// host, one row in ten changed), the size a fleet's busiest hosts give.
#include "cli/Diff.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

nlohmann::ordered_json bigScan(int rows, int changeEvery) {
    nlohmann::ordered_json rowsJson = nlohmann::ordered_json::array();
    for (int i = 0; i < rows; ++i) {
        nlohmann::ordered_json row = nlohmann::ordered_json::array();
        auto attr = [&row](unsigned id, const char* name, nlohmann::ordered_json v) {
            row.push_back({{"id", id}, {"name", name}, {"type", "ZEL_STRING"}, {"value", v}});
        };
        attr(1, "Index", i + 1);
        attr(4, "Device Name", "/dev/disk" + std::to_string(i));
        attr(7, "FS Access Point", "/dev/disk" + std::to_string(i));
        attr(8, "FS Mount Point", "/Volumes/v" + std::to_string(i));
        attr(9, "FS Total Size", 1000000 + (changeEvery && i % changeEvery == 0 ? 1 : 0));
        attr(10, "FS Free Size", i);
        rowsJson.push_back(row);
    }
    nlohmann::ordered_json scan;
    scan["format"] = 1;
    nlohmann::ordered_json table;
    table["id"] = 27u;
    table["name"] = "Partition";
    table["version"] = 1u;
    table["status"] = "ok";
    table["rows"] = rowsJson;
    scan["tables"] = nlohmann::ordered_json::array();
    scan["tables"].push_back(table);
    return scan;
}

void BM_Diff10000Rows(benchmark::State& state) {
    const auto a = bigScan(10000, 0), b = bigScan(10000, 10);
    std::size_t found = 0;
    for (auto _ : state) {
        auto d = diffScans(a, b, false);
        found = d["differences"].size();
        benchmark::DoNotOptimize(found);
    }
    state.counters["differences"] = static_cast<double>(found);
}
BENCHMARK(BM_Diff10000Rows)->Unit(benchmark::kMillisecond);

} // namespace

namespace {

// The whole of `invscan diff` but the file reads: both outputs parsed, then compared.
void BM_DiffTwoOutputs10000Rows(benchmark::State& state) {
    const std::string a = bigScan(10000, 0).dump(2), b = bigScan(10000, 10).dump(2);
    for (auto _ : state) {
        nlohmann::ordered_json sa, sb;
        std::string why;
        diffReadScan(a, &sa, &why);
        diffReadScan(b, &sb, &why);
        auto d = diffScans(sa, sb, false);
        benchmark::DoNotOptimize(d);
    }
    state.counters["bytes"] = static_cast<double>(a.size());
}
BENCHMARK(BM_DiffTwoOutputs10000Rows)->Unit(benchmark::kMillisecond);

} // namespace
