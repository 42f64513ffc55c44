#include "invscan/PhysicalProcessorGroup.h"

#include "common/host/linux_facts.h"
#include "invscan/CcLog.h"
#include "invscan/HostFacts.h"
#include "invscan/MacInfo.h"
#include "invscan/ZelTableRow.h"
#include "invscan/cpuid_intel_table_new.h"
#include "invscan/host.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

const char* const SRC = "./../../../src/invscan/macos/PhysicalProcessorGroup";
const char* const OP = "getTable()";
const char* const HW_OVERVIEW = "SystemProfiler.SPHardwareDataType.hardware_overview";

// A bundle or a broken kernel may claim any package count; rows beyond this would
// only exhaust memory.
const int MAX_PACKAGES = 4096;

#define PP_TRACE(...) getCcLogHw()->traceMAX(__LINE__, SRC, OP, __VA_ARGS__)

unsigned long nonNegative(int v) {
    return v < 0 ? 0UL : static_cast<unsigned long>(v);
}

// What Linux says of the processor beyond the sysctl answers: the clock and, on ARM,
// the implementer. Read through the host layer, so a recording keeps the files.
struct LinuxCpu {
    linuxfacts::CpuInfo info;
    std::string maxFreq; // cpuinfo_max_freq, kHz
};

LinuxCpu readLinuxCpu() {
    LinuxCpu c;
    std::string text;
    if (hostfacts::readHostFile("/proc/cpuinfo", &text, linuxfacts::MAX_FILE))
        c.info = linuxfacts::parseCpuinfo(text);
    hostfacts::readHostFile("/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq", &c.maxFreq,
                            64);
    return c;
}

} // namespace

int PhysicalProcessorGroup::getIntValue(const char* name) {
    int32_t value = 0;
    std::size_t len = sizeof value;
    if (!name || host::sysctlbyname(name, &value, &len) != 0) return -1;
    return value;
}

int PhysicalProcessorGroup::getIntValue(int a, int b) {
    const int mib[2] = {a, b};
    int32_t value = 0;
    std::size_t len = sizeof value;
    if (host::sysctl(mib, 2, &value, &len) != 0) return -1;
    return value;
}

std::string PhysicalProcessorGroup::getStringValue(const char* name) {
    std::size_t len = 0;
    if (!name || host::sysctlbyname(name, nullptr, &len) != 0 || len == 0) return std::string();
    std::vector<char> buf(len + 1, '\0');
    if (host::sysctlbyname(name, buf.data(), &len) != 0) return std::string();
    buf[std::min(len, buf.size() - 1)] = '\0';
    return std::string(buf.data());
}

ZelTable* PhysicalProcessorGroup::getTable() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC, OP, "hardware %s", "PhysicalProcessorGroup");

    std::string manufacturer = "Unknown", family = "Unknown", type = "Unknown";

    VtExecInfo* info = MacInfo::getSysProf();
    if (!info || info->result != 0 || !info->tree) {
        log->traceMIN(__LINE__, SRC, OP, "hardware Failed to exec sysprof command");
        if (info)
            log->traceMIN(__LINE__, SRC, OP, "hardware sysprof command failed with error=%d",
                          info->result);
    }
    const std::string cpuType = info ? vtGetValue(info, HW_OVERVIEW, "cpu_type", "") : "";
    PP_TRACE("hardware cpu_type=%s", cpuType.c_str());

    const std::string vendor = getStringValue("machdep.cpu.vendor");
    PP_TRACE("hardware machdep.cpu.vendor=%s", vendor.c_str());
    if (vendor == "GenuineIntel" || cpuType.find("Intel") != std::string::npos)
        manufacturer = "Intel";

    int logicalCpus = getIntValue("hw.logicalcpu_max");
    PP_TRACE("hardware hw.logicalcpu_max=%d", logicalCpus);
    if (logicalCpus < 0) {
        logicalCpus = getIntValue(CTL_HW, HW_NCPU);
        PP_TRACE("hardware HW_NCPU=%d", logicalCpus);
    }
    int physicalCpus = getIntValue("hw.physicalcpu_max");
    PP_TRACE("hardware hw.physicalcpu_max=%d", physicalCpus);
    int packages = getIntValue("hw.packages");
    PP_TRACE("hardware hw.packages=%d", packages);
    int coresPerPackage = getIntValue("machdep.cpu.cores_per_package");
    PP_TRACE("hardware machdep.cpu.cores_per_package=%d", coresPerPackage);
    int logicalPerPackage = getIntValue("machdep.cpu.logical_per_package");
    PP_TRACE("hardware machdep.cpu.logical_per_package=%d", logicalPerPackage);
    int procsPerCore = (coresPerPackage > 0 && coresPerPackage <= logicalPerPackage)
                           ? logicalPerPackage / coresPerPackage
                           : -1;

    std::string brand = getStringValue("machdep.cpu.brand_string");
    PP_TRACE("hardware machdep.cpu.brand_string=%s", brand.c_str());
    int signature = getIntValue("machdep.cpu.signature");
    PP_TRACE("hardware machdep.cpu.signature=%d", signature);

    // The kernel gives bytes; machdep.cpu.cache.size is already in KB.
    int l2CacheKB = getIntValue(CTL_HW, HW_L2CACHESIZE);
    PP_TRACE("hardware HW_L2CACHESIZE=%d", l2CacheKB);
    if (l2CacheKB >= 1) {
        l2CacheKB >>= 10;
    } else {
        l2CacheKB = getIntValue("machdep.cpu.cache.size");
        PP_TRACE("hardware machdep.cpu.cache.size=%d", l2CacheKB);
    }
    int l3CacheKB = getIntValue(CTL_HW, HW_L3CACHESIZE);
    PP_TRACE("hardware HW_L3CACHESIZE=%d", l3CacheKB);
    if (l3CacheKB >= 1) l3CacheKB >>= 10;

    // Linux: the highest clock the kernel knows comes before the brand string, which
    // AMD and ARM processors do not write a clock into.
    const bool onLinux = hostfacts::scannedHostIsLinux();
    const LinuxCpu linuxCpu = onLinux ? readLinuxCpu() : LinuxCpu();
    int mhz = 0;
    if (onLinux) {
        const std::int64_t linuxMhz = linuxfacts::cpuMHz(linuxCpu.maxFreq, linuxCpu.info);
        mhz = linuxMhz > INT32_MAX ? INT32_MAX : static_cast<int>(linuxMhz);
        PP_TRACE("hardware cpuinfo_max_freq=%s highest cpu MHz=%d", linuxCpu.maxFreq.c_str(),
                 static_cast<int>(linuxCpu.info.maxMhz));
    }
    if (mhz < 1) {
        mhz = IntelGetMHzFromBrandstring(brand.c_str());
        PP_TRACE("hardware IntelGetMHzFromBrandstring=%d", mhz);
    }
    if (mhz < 1) {
        mhz = getIntValue("hw.cpufrequency_max") / 1000000;
        PP_TRACE("hardware hw.cpufrequency_max=%d", mhz);
    }
    if (mhz < 1) {
        mhz = getIntValue(CTL_HW, HW_CPU_FREQ) / 1000000;
        PP_TRACE("hardware HW_CPU_FREQ=%d", mhz);
    }
    const int busFreq = getIntValue(CTL_HW, HW_BUS_FREQ);
    PP_TRACE("hardware HW_BUS_FREQ=%d", busFreq);

    int is64 = getIntValue("hw.cpu64bit_capable");
    PP_TRACE("hardware hw.cpu64bit_capable=%d", is64);
    if (is64 < 0) {
        is64 = getIntValue("hw.optional.x86_64");
        PP_TRACE("hardware hw.optional.x86_64=%d", is64);
    }

    PhysicalProcessor proc;
    proc.setBrand(brand.c_str());
    proc.signature = static_cast<uint32_t>(signature);
    proc.logicalPerCoreKnown = 0;
    proc.logicalPerCore = procsPerCore;
    proc.coresPerPackage = coresPerPackage;
    if (IntelLookupNewTable(proc)) {
        manufacturer = "Intel";
        family = proc.familyName;
        type = proc.modelName;
        if (proc.outCoresPerPackage > 0) coresPerPackage = proc.outCoresPerPackage;
        if (proc.outLogicalPerPackage > 0) logicalPerPackage = proc.outLogicalPerPackage;
        if (proc.outCoresPerPackage >= 1 && proc.outCoresPerPackage <= proc.outLogicalPerPackage)
            procsPerCore = proc.outLogicalPerPackage / proc.outCoresPerPackage;
    }

    const std::size_t ppc = cpuType.find("PowerPC");
    if (ppc != std::string::npos) {
        manufacturer = "Apple Inc.";
        family = "PowerPC";
        std::size_t start = ppc + 7;
        while (start < cpuType.size() && cpuType[start] == ' ')
            ++start;
        const std::size_t end = cpuType.find_first_of(" (", start);
        const std::string word =
            cpuType.substr(start, end == std::string::npos ? end : end - start);
        if (!word.empty()) type = word;
        if (brand.empty()) brand = cpuType;
        // Written per type once; every branch now gives the same answer, and the
        // comparisons stay so that the per-type rules can differ again.
        const bool g5 = type == "G5" || type.find("970") != std::string::npos;
        if (is64 < 0) is64 = g5 ? 1 : 1;
        const int cores = l2CacheKB >= 1024 ? 2 : 1;
        coresPerPackage = logicalPerPackage = g5 ? cores : cores;
        procsPerCore = 1;
        signature = -1;
        if (logicalCpus > 0) {
            physicalCpus = logicalCpus;
            if (packages <= 0) packages = logicalCpus / coresPerPackage;
        }
    }

    if (onLinux && manufacturer == "Unknown") {
        const std::string maker = linuxfacts::cpuMaker(
            vendor.empty() ? linuxCpu.info.vendor : vendor, linuxCpu.info.implementer);
        if (!maker.empty()) manufacturer = maker;
    }

    PP_TRACE("hardware Processor man=%s fam=%s type=%s", manufacturer.c_str(), family.c_str(),
             type.c_str());
    if (coresPerPackage < 1 && packages > 0 && packages <= physicalCpus) {
        coresPerPackage = physicalCpus / packages;
        PP_TRACE("hardware guestimated coresPerPackage=%d", coresPerPackage);
    }
    if (logicalPerPackage < 1 && packages > 0 && packages <= logicalCpus) {
        logicalPerPackage = logicalCpus / packages;
        if (coresPerPackage > 0 && coresPerPackage <= logicalPerPackage)
            procsPerCore = logicalPerPackage / coresPerPackage;
        PP_TRACE("hardware guestimated procsPerPackage=%d procsPerCore=%d", logicalPerPackage,
                 procsPerCore);
    }

    ZelTable* table = new ZelTable(getGroupId(), getGroupVersion());
    const int rows = std::min(std::max(packages, 1), MAX_PACKAGES);
    int logicalLeft = std::max(logicalCpus, 0);
    int coresLeft = std::max(physicalCpus, 0);
    char text[32];
    for (int pkg = 1; pkg <= rows; ++pkg) {
        ZelTableRow* row = new ZelTableRow();
        std::snprintf(text, sizeof text, "%d", pkg);
        PP_TRACE("hardware Adding package ID: %s", text);
        row->addAttrib(new ZelTableAttrib(1UL, text));
        row->addAttrib(new ZelTableAttrib(2UL, nonNegative(coresPerPackage)));
        row->addAttrib(new ZelTableAttrib(3UL, nonNegative(procsPerCore)));
        row->addAttrib(new ZelTableAttrib(4UL, manufacturer.c_str()));
        row->addAttrib(new ZelTableAttrib(5UL, family.c_str()));
        row->addAttrib(new ZelTableAttrib(6UL, type.c_str()));
        row->addAttrib(new ZelTableAttrib(7UL, nonNegative(mhz)));
        row->addAttrib(new ZelTableAttrib(8UL, nonNegative(l2CacheKB)));
        row->addAttrib(new ZelTableAttrib(9UL, nonNegative(l3CacheKB)));
        row->addAttrib(new ZelTableAttrib(10UL, brand.c_str()));
        if (signature != 0 && signature != -1) {
            std::snprintf(text, sizeof text, "%X", static_cast<unsigned>(signature));
            row->addAttrib(new ZelTableAttrib(11UL, text));
        }
        row->addAttrib(new ZelTableAttrib(12UL, is64 == 1 ? "Y" : "N"));
        if (logicalPerPackage > 0) {
            const int active = std::min(logicalPerPackage, logicalLeft);
            logicalLeft -= active;
            row->addAttrib(new ZelTableAttrib(13UL, nonNegative(active)));
        }
        if (coresPerPackage > 0) {
            const int active = std::min(coresPerPackage, coresLeft);
            coresLeft -= active;
            row->addAttrib(new ZelTableAttrib(14UL, nonNegative(active)));
        }
        table->addRow(row);
    }

    log->traceMidExit(__LINE__, SRC, OP, "hardware %s", "PhysicalProcessorGroup");
    return table;
}
