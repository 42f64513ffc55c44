// The six system groups from a replayed Mac bundle, snapshots already taken (as
// every group after the first finds them): time per getTable().
#include "invscan/ComponentIDGroup.h"
#include "invscan/MacInfo.h"
#include "invscan/MemoryGroup.h"
#include "invscan/MemoryModulesGroup.h"
#include "invscan/OperatingSystemGroup.h"
#include "invscan/RegionalGroup.h"
#include "invscan/StorageGroup.h"
#include "invscan/VtProcess.h"
#include "invscan/VtStream.h"
#include "invscan/host.h"

#include <benchmark/benchmark.h>

#include <fstream>
#include <iterator>
#include <string>

namespace {

const std::string kBundle = std::string(INVSCAN_TEST_DATA) + "/bundles/macmini3-1-10.6.8";

void setUp() {
    static bool done = false;
    if (done) return;
    done = true;
    host::useReplay(kBundle.c_str());
    std::ifstream in(kBundle + "/helpers/sysprof", std::ios::binary);
    std::string out((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    VtIStream_Memory mem(out.data(), out.size());
    MacInfo::setSysProf(vtParseProgramOutput(&mem));
    // An I/O registry snapshot of the same shape as the Mac's root.
    const char reg[] =
        "1.0 0\n(IOKit\n(Root\nIOKitBuildVersion:s=Darwin Kernel Version 10.8.0\n)\n)\n";
    VtIStream_Memory regMem(reg, sizeof reg - 1);
    MacInfo::setIoKit(vtParseProgramOutput(&regMem));
}

template <typename Group> void BM_Group(benchmark::State& state) {
    setUp();
    for (auto _ : state) {
        Group group;
        ZelTable* table = group.getTable();
        benchmark::DoNotOptimize(table);
        delete table;
    }
}

} // namespace

BENCHMARK_TEMPLATE(BM_Group, OperatingSystemGroup);
BENCHMARK_TEMPLATE(BM_Group, MemoryGroup);
BENCHMARK_TEMPLATE(BM_Group, MemoryModulesGroup);
BENCHMARK_TEMPLATE(BM_Group, StorageGroup);
BENCHMARK_TEMPLATE(BM_Group, RegionalGroup);
BENCHMARK_TEMPLATE(BM_Group, ComponentIDGroup);
