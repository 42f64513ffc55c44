// Walking and parsing every real SMBIOS table and building the SMBIOS group from it;
// time is reported per table.
#include "invscan/SMBIOSGroup.h"
#include "invscan/SMBIOSTable.h"
#include "invscan/smbios.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

const std::vector<std::vector<unsigned char>>& corpus() {
    static std::vector<std::vector<unsigned char>> tables = [] {
        std::vector<std::vector<unsigned char>> out;
        std::string dir = std::string(INVSCAN_TEST_DATA) + "/smbios/";
        std::vector<std::string> names;
        if (DIR* d = opendir(dir.c_str())) {
            while (dirent* e = readdir(d)) {
                std::string n = e->d_name;
                if (n.size() > 4 && n.compare(n.size() - 4, 4, ".bin") == 0) names.push_back(n);
            }
            closedir(d);
        }
        std::sort(names.begin(), names.end());
        for (const std::string& n : names) {
            std::ifstream in(dir + n, std::ios::binary);
            out.emplace_back((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
        }
        return out;
    }();
    return tables;
}

void BM_WalkAndGroup(benchmark::State& state) {
    const auto& tables = corpus();
    if (tables.empty()) {
        state.SkipWithError("no corpus tables");
        return;
    }
    SMBIOSGroup group;
    for (auto _ : state) {
        for (const auto& b : tables) {
            SMBIOSTable t(b.data(), static_cast<int>(b.size()), 0, static_cast<int>(b.size() / 4));
            t.parseData();
            ZelTable* z = group.buildTable(&t);
            benchmark::DoNotOptimize(z);
            delete z;
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(tables.size()));
    state.counters["per_table"] =
        benchmark::Counter(static_cast<double>(state.iterations() * tables.size()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_WalkAndGroup)->Unit(benchmark::kMicrosecond);

void BM_WalkOnly(benchmark::State& state) {
    const auto& tables = corpus();
    for (auto _ : state) {
        for (const auto& b : tables) {
            SMBIOSTable t(b.data(), static_cast<int>(b.size()), 0, static_cast<int>(b.size() / 4));
            t.parseData();
            benchmark::DoNotOptimize(t.getTable0());
        }
    }
    state.counters["per_table"] =
        benchmark::Counter(static_cast<double>(state.iterations() * tables.size()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_WalkOnly)->Unit(benchmark::kMicrosecond);

void BM_ProcessorSummary(benchmark::State& state) {
    const auto& tables = corpus();
    for (auto _ : state) {
        for (const auto& b : tables) {
            SmbiosInfo info;
            getSmbiosInfoFromTable(b.data(), b.size(), 2, 4, info);
            benchmark::DoNotOptimize(info.cpuClockMHz);
        }
    }
    state.counters["per_table"] =
        benchmark::Counter(static_cast<double>(state.iterations() * tables.size()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_ProcessorSummary)->Unit(benchmark::kMicrosecond);

} // namespace
