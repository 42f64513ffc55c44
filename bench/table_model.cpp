// Cost of building and walking a table of typed attributes, the work every group
// does for each row it reports.
#include <benchmark/benchmark.h>

#include "invscan/ZelTable.h"
#include "invscan/ZelTableRow.h"

static void BuildAndWalkTable(benchmark::State& state) {
    const long rows = state.range(0);
    for (auto _ : state) {
        ZelTable table(44UL, 1UL);
        for (long r = 0; r < rows; ++r) {
            auto* row = new ZelTableRow();
            row->addAttrib(
                new ZelTableAttrib(1UL, "Intel(R) Core(TM)2 Duo CPU     T7700  @ 2.40GHz"));
            row->addAttrib(new ZelTableAttrib(2UL, 2UL));
            row->addAttrib(new ZelTableAttrib(5UL, 1234567890123ULL));
            row->addAttrib(new ZelTableAttrib(6UL, 1000000000L));
            table.addRow(row);
        }
        unsigned long sum = 0;
        table.reset();
        while (ZelTableRow* row = table.getNext()) {
            row->reset();
            while (ZelTableAttrib* a = row->getNext())
                sum += a->getType();
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * rows);
}
BENCHMARK(BuildAndWalkTable)->Arg(1)->Arg(64)->Arg(1024);
