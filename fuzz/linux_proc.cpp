// The Linux parsers over any text: /proc/cpuinfo, cache sizes, the mount table,
// meminfo, processor makers and clocks, byte counts and sizes, the route tables, the resolver file,
// a VPD page and a device path never read out of bounds or throw.
#include "common/host/linux_facts.h"
#include "invscan/HostFacts.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 20)) return 0;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const linuxfacts::CpuInfo cpu = linuxfacts::parseCpuinfo(text);
    linuxfacts::cpuMaker(cpu.vendor, cpu.implementer);
    linuxfacts::cpuMaker(text, text);
    linuxfacts::cpuMHz(text, cpu);
    std::uint64_t bytes;
    linuxfacts::parseByteCount(text, &bytes);
    linuxfacts::parseDecimalSize(text, &bytes);
    linuxfacts::parseCacheSize(text);
    linuxfacts::parseMounts(text);
    linuxfacts::defaultRouter4(text, "eth0");
    linuxfacts::defaultRouter6(text, "eth0");
    linuxfacts::parseResolvConf(text);
    linuxfacts::parseVpdSerial(text);
    linuxfacts::pciBefore(text, size / 2);
    std::uint64_t v;
    linuxfacts::vmstatValue(text, "pgfault", &v);
    std::uint64_t kb;
    hostfacts::meminfoKB(text.data(), text.size(), "MemTotal", &kb);
    return 0;
}
