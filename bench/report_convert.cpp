// Conversion speed of saved reports: the largest real plist (42 data types) and the
// largest text profile, from bytes to the printed response.
#include "common/report/Report.h"
#include "common/report/ReportVt.h"

#include <benchmark/benchmark.h>

#include <fstream>
#include <sstream>
#include <string>

static std::string slurp(const std::string& path) {
    std::ifstream f(path.c_str(), std::ios::binary);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

static void convert(benchmark::State& state, const char* helper, const char* file) {
    std::string data = slurp(std::string(INVSCAN_TEST_DATA) + "/macos/" + file);
    for (auto _ : state) {
        report::Node root;
        std::string err;
        bool ok = report::convertReport(helper, data.data(), data.size(), &root, &err);
        std::string out = report::renderResponse(ok ? 0 : 1, nullptr, ok ? &root : nullptr);
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(data.size()));
}

BENCHMARK_CAPTURE(convert, plist_mini_10_7_5, "sysprof", "system_profiler_mini_10.7.5.xml")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(convert, text_10_6_6_intel, "sysprof", "10.6.6-intel")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(convert, ioreg_text_usb, "iokit", "ioreg/IOUSBDevice2")
    ->Unit(benchmark::kMillisecond);
