// Time per brand-string lookup over a mix of real brand strings: hits settled by the
// first pass, by later passes, and misses that run every pass over the whole table.
#include "invscan/cpuid_intel_table_new.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace {

struct Sample {
    const char* brand;
    uint32_t signature;
};

const Sample kMix[] = {
    {"Intel(R) Core(TM)2 CPU         T7200  @ 2.00GHz", 0x6F6},
    {"Intel(R) Core(TM)2 Duo CPU     P7550  @ 2.26GHz", 0x1067A},
    {"Intel(R) Xeon(R) CPU            5150  @ 2.66GHz", 0x6F6},
    {"Intel(R) Xeon(R) CPU           E5462  @ 2.80GHz", 0x10676},
    {"Intel(R) Core(TM) i7 CPU         920  @ 2.67GHz", 0x106A5},
    {"Intel(R) Core(TM) i5 CPU       M 520  @ 2.40GHz", 0x20652},
    {"Intel(R) Core(TM) i7 CPU       M 620  @ 2.67GHz", 0x20655},
    {"Genuine Intel(R) CPU           T2600  @ 2.16GHz", 0x6E8},
    {"Intel(R) Pentium(R) M processor 1.73GHz", 0x6D8},
    {"Intel(R) Pentium(R) 4 CPU 3.00GHz", 0xF43},
    {"Intel(R) Core(TM) i7-4980HQ CPU @ 2.80GHz", 0x40661},
    {"Apple M1", 0},
};

std::vector<PhysicalProcessor> records(const Sample* begin, const Sample* end) {
    std::vector<PhysicalProcessor> out;
    for (const Sample* s = begin; s != end; ++s) {
        PhysicalProcessor p;
        p.setBrand(s->brand);
        p.signature = s->signature;
        out.push_back(p);
    }
    return out;
}

void BM_IntelLookupMix(benchmark::State& state) {
    std::vector<PhysicalProcessor> procs = records(std::begin(kMix), std::end(kMix));
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(IntelLookupNewTable(procs[i]));
        if (++i == procs.size()) i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_IntelLookupMix);

// The slowest kind: a modern brand that no row names, through every pass.
void BM_IntelLookupMiss(benchmark::State& state) {
    std::vector<PhysicalProcessor> procs = records(&kMix[10], &kMix[11]);
    for (auto _ : state)
        benchmark::DoNotOptimize(IntelLookupNewTable(procs[0]));
}
BENCHMARK(BM_IntelLookupMiss);

void BM_IntelGetMHz(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(IntelGetMHzFromBrandstring(kMix[0].brand));
}
BENCHMARK(BM_IntelGetMHz);

} // namespace
