// Throughput of the dump reader (and, for comparison, the writer) on a dump of about
// 12 MB shaped like a large system-profiler and I/O-registry snapshot.
#include "invscan/VtProcess.h"
#include "invscan/VtStream.h"
#include "invscan/vtree.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// One hardware overview as a real MacBook Pro reports it, repeated with the kind of
// per-item variation that USB, disk and registry listings have.
VtNode* buildSnapshot() {
    VtNode* root = new VtNode("");
    VtNode* sp = root->addNode("SystemProfiler");
    VtNode* hw = sp->addNode("SPHardwareDataType");
    VtNode* usb = sp->addNode("SPUSBDataType");
    char name[64];
    for (int i = 0; i < 24000; ++i) {
        std::snprintf(name, sizeof name, "hardware_overview_%d", i);
        VtNode* item = (i % 2 ? usb : hw)->addNode(name);
        item->addString("SMC_version_system", "2.19f7");
        item->addString("boot_rom_version", "MBP112.0138.B07");
        item->addString("cpu_type", "Intel Core i7");
        item->addString("current_processor_speed", "2.3 GHz");
        item->addString("l2_cache_core", "256 KB");
        item->addString("l3_cache", "6 MB");
        item->addString("machine_model", "MacBookPro11,3");
        item->addString("machine_name", "MacBook Pro");
        item->addInt("number_processors", 4 + i % 8);
        item->addInt("packages", 1);
        item->addString("physical_memory", "16 GB");
        item->addString("platform_UUID", "24A95B44-2444-59CF-9D9B-A42CF82590AE");
        item->addString("serial_number", "C02MQ15KFD57");
        item->addReal("completion_interval", 0.012148 * (i % 100));
        item->addUnicode("localized_name", L"Hardware Overview");
        static const unsigned char uuid[16] = {0x24, 0xa9, 0x5b, 0x44, 0x24, 0x44, 0x59, 0xcf,
                                               0x9d, 0x9b, 0xa4, 0x2c, 0xf8, 0x25, 0x90, 0xae};
        item->addData("IOPlatformUUID", uuid, sizeof uuid);
        VtNode* child = item->addNode("IOKitDiagnostics");
        child->addInt("AppleSMBIOS", 1);
        child->addInt("AppleACPIPlatformExpert", 1);
    }
    return root;
}

const std::string& snapshotText() {
    static std::string text;
    if (text.empty()) {
        VtNode* root = buildSnapshot();
        char* buf = nullptr;
        size_t size = 0;
        std::FILE* out = open_memstream(&buf, &size);
        vtDumpResponse(out, 0, "ok");
        vtDumpTree(out, root);
        std::fclose(out);
        text.assign(buf, size);
        std::free(buf);
        delete root;
    }
    return text;
}

void BM_ReadDump(benchmark::State& state) {
    const std::string& text = snapshotText();
    for (auto _ : state) {
        VtIStream_Memory mem(text.data(), text.size(), 65536); // pipe-sized reads
        VtExecInfo* info = vtParseProgramOutput(&mem);
        if (!info->tree) state.SkipWithError("dump did not parse");
        benchmark::DoNotOptimize(info->tree);
        // Trees read by the scanner live until the process ends: freeing is not
        // part of reading.
        state.PauseTiming();
        delete info;
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
    state.counters["dump_MB"] = static_cast<double>(text.size()) / 1e6;
}
BENCHMARK(BM_ReadDump)->Unit(benchmark::kMillisecond);

void BM_WriteDump(benchmark::State& state) {
    const std::string& text = snapshotText();
    size_t body = text.find('\n') + 1; // after the header line
    VtNode* root = vtParseDumpBuffer(text.data() + body, text.size() - body);
    std::FILE* sink = std::fopen("/dev/null", "w");
    for (auto _ : state)
        vtDumpTree(sink, root);
    std::fclose(sink);
    delete root;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_WriteDump)->Unit(benchmark::kMillisecond);

} // namespace

// A node of a million children walked by index, as the groups walk a section.
void BM_WalkChildrenByIndex(benchmark::State& state) {
    VtNode root("Root");
    for (int i = 0; i < 1000000; ++i)
        root.addNode("child");
    for (auto _ : state) {
        int n = 0;
        for (VtNode* c; (c = root.getChild(nullptr, n)) != nullptr;)
            ++n;
        benchmark::DoNotOptimize(n);
    }
}
BENCHMARK(BM_WalkChildrenByIndex)->Unit(benchmark::kMillisecond);
