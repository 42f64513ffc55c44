// Interface discovery and the four network groups. The parser runs over a made
// output of 1,000 interfaces; the groups over replayed bundles, snapshots already
// taken (as every group after the first finds them), lookups answered from the
// bundle. No Mac bundle holds both a profiler report and the interface command, so
// the IPv6 group runs on the Linux bundle that does.
#include "invscan/IfInfo.h"
#include "invscan/IpAddressGroup.h"
#include "invscan/MacInfo.h"
#include "invscan/NetworkAdapterGroup.h"
#include "invscan/PartitionGroup.h"
#include "invscan/VtProcess.h"
#include "invscan/VtStream.h"
#include "invscan/host.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace {

const std::string kBundles = std::string(INVSCAN_TEST_DATA) + "/bundles/";

std::string ifconfigOf(int interfaces) {
    std::string text;
    for (int i = 0; i < interfaces; ++i) {
        std::string n = std::to_string(i);
        text +=
            "en" + n +
            ": flags=8863<UP,BROADCAST,SMART,RUNNING,SIMPLEX,MULTICAST> mtu 1500\n"
            "\tether 00:1e:c2:0c:" +
            std::to_string(10 + i / 100 % 90) + ":" + std::to_string(10 + i % 90) +
            "\n\tinet6 fe80::21e:c2ff:fe0c:" + n + "%en" + n +
            " prefixlen 64 scopeid 0x4\n"
            "\tinet 10." +
            std::to_string(i / 256) + "." + std::to_string(i % 256) +
            ".1 netmask 0xffffff00 broadcast 10.0.0.255\n\tmedia: autoselect\n\tstatus: active\n";
    }
    return text;
}

void BM_ParseIfconfig1000(benchmark::State& state) {
    const std::string text = ifconfigOf(1000);
    for (auto _ : state) {
        std::FILE* f = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
        IfInfoList list;
        parse_ifconfig_unix(f, list);
        std::fclose(f);
        benchmark::DoNotOptimize(list.getCount());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ParseIfconfig1000)->Unit(benchmark::kMicrosecond);

void useBundle(const std::string& name) {
    host::useReplay((kBundles + name).c_str());
    std::ifstream in(kBundles + name + "/helpers/sysprof", std::ios::binary);
    std::string out((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    VtIStream_Memory mem(out.data(), out.size());
    MacInfo::setSysProf(out.empty() ? nullptr : vtParseProgramOutput(&mem));
}

template <typename Group> void groupBench(benchmark::State& state, const char* bundle) {
    useBundle(bundle);
    for (auto _ : state) {
        Group group;
        ZelTable* table = group.getTable();
        benchmark::DoNotOptimize(table);
        delete table;
    }
}

void BM_NetworkAdapter(benchmark::State& s) {
    groupBench<NetworkAdapterGroup>(s, "imac7-1-10.6.4");
}
void BM_IpAddress(benchmark::State& s) {
    groupBench<IpAddressGroup>(s, "imac7-1-10.6.4");
}
void BM_Ipv6Address(benchmark::State& s) {
    groupBench<Ipv6AddressGroup>(s, "linux-debian12-netns-ipv6");
}
void BM_Partition(benchmark::State& s) {
    groupBench<PartitionGroup>(s, "kbrazil-mac-10.14.6");
}

} // namespace

BENCHMARK(BM_NetworkAdapter);
BENCHMARK(BM_IpAddress);
BENCHMARK(BM_Ipv6Address);
BENCHMARK(BM_Partition);
