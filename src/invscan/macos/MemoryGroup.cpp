// Kernel values by name and by number, with the fallbacks the kernel versions
// need. All sizes are KB in unsigned 32 bits, as the host agent has always read
// them; the odd Free Physical formula is the one hosts expect and is kept. On a
// Linux host that formula gives 0 wherever there is no swap, and the Mac's 32-bit
// page products wrap past 4 GB, so there the values come from /proc/meminfo in 64
// bits: Free Physical is MemAvailable, Free Virtual MemAvailable plus SwapFree, each
// held at the field's maximum (4 TiB) instead of wrapping.
#include "invscan/MemoryGroup.h"

#include "common/host/linux_facts.h"
#include "invscan/CcLog.h"
#include "invscan/HostFacts.h"
#include "invscan/ZelTableRow.h"
#include "invscan/host.h"

#include <cstdint>
#include <cstring>

namespace {

const char* const SRC = "./../../../src/invscan/macos/MemoryGroup";
const char* const OP = "getTable()";

#define MEM_TRACE(...) getCcLogHw()->traceMAX(__LINE__, SRC, OP, __VA_ARGS__)

int readMib(int a, int b, void* buf, std::size_t len) {
    const int mib[2] = {a, b};
    std::size_t l = len;
    return host::sysctl(mib, 2, buf, &l);
}

int readName(const char* name, void* buf, std::size_t len) {
    std::size_t l = len;
    return host::sysctlbyname(name, buf, &l);
}

} // namespace

ZelTable* MemoryGroup::getTable() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC, OP, "hardware %s", "MemoryGroup");

    std::uint32_t totalPhys = 0;
    std::uint64_t memsize = 0;
    if (readName("hw.memsize", &memsize, sizeof memsize) == 0 ||
        readMib(CTL_HW, HW_MEMSIZE, &memsize, sizeof memsize) == 0) {
        totalPhys = static_cast<std::uint32_t>(memsize >> 10);
        MEM_TRACE("hardware Data from hw.memsize [%ld]", static_cast<long>(totalPhys));
    } else {
        MEM_TRACE("hardware Can't read data from hw.memsize");
    }
    if (totalPhys == 0) {
        std::int32_t physmem = -1;
        if (readMib(CTL_HW, HW_PHYSMEM, &physmem, sizeof physmem) == 0 ||
            readName("hw.physmem", &physmem, sizeof physmem) == 0) {
            totalPhys = static_cast<std::uint32_t>(physmem / 1024);
            MEM_TRACE("hardware Data from hw.physmem [%ld]", static_cast<long>(physmem / 1024));
        } else {
            MEM_TRACE("hardware Can't read data from hw.physmem");
            totalPhys = 0;
        }
    }

    std::int32_t pageSize = 0;
    if (readMib(CTL_HW, HW_PAGESIZE, &pageSize, sizeof pageSize) == 0 ||
        readName("hw.pagesize", &pageSize, sizeof pageSize) == 0) {
        MEM_TRACE("hardware Pagesize [%d]", pageSize);
    } else {
        MEM_TRACE("hardware Can't read pagesize hw.pagesize");
        pageSize = 0;
    }

    std::uint32_t totalSwap = 0, freeSwap = 0;
    host::XswUsage swap;
    std::memset(&swap, 0, sizeof swap);
    if (readMib(CTL_VM, VM_SWAPUSAGE, &swap, sizeof swap) == 0) {
        totalSwap = static_cast<std::uint32_t>(swap.xsu_total >> 10);
        std::uint32_t usedSwap = static_cast<std::uint32_t>(swap.xsu_used >> 10);
        freeSwap = totalSwap - usedSwap;
        MEM_TRACE("hardware Total swap: %ld", static_cast<long>(totalSwap));
        MEM_TRACE("hardware Used swap: %ld", static_cast<long>(usedSwap));
        MEM_TRACE("hardware Free swap: %ld", static_cast<long>(freeSwap));
    } else {
        MEM_TRACE("hardware Can't read swap info");
    }

    std::size_t kernelPage = 0;
    host::hostPageSize(&kernelPage);
    MEM_TRACE("hardware Kernel page size: %d", static_cast<int>(kernelPage));

    std::uint32_t totalVirtual = 0, freeVirtual = 0;
    bool haveVm = false;
    host::VmStatistics vm;
    std::memset(&vm, 0, sizeof vm);
    unsigned count = HOST_VM_INFO_COUNT;
    if (host::hostStatistics(HOST_VM_INFO, &vm, &count) != KERN_SUCCESS) {
        MEM_TRACE("hardware Can't retrieve host statistics");
    } else {
        haveVm = true;
        // 32-bit products, as the kernel's own counters were read: 4 GB or more of
        // free memory wraps.
        const std::uint32_t p = static_cast<std::uint32_t>(kernelPage);
        std::uint32_t wired = (p * vm.wire_count) >> 10;
        std::uint32_t active = (p * vm.active_count) >> 10;
        std::uint32_t inactive = (p * vm.inactive_count) >> 10;
        std::uint32_t freeMem = (p * vm.free_count) >> 10;
        MEM_TRACE("hardware pw: %d", static_cast<int>(wired));
        MEM_TRACE("hardware pa: %d", static_cast<int>(active));
        MEM_TRACE("hardware pi: %d", static_cast<int>(inactive));
        MEM_TRACE("hardware pf: %d", static_cast<int>(freeMem));
        totalVirtual = totalPhys + totalSwap;
        freeVirtual = freeMem;
    }

    std::uint32_t freePhys = (freeVirtual && freeSwap) ? freeVirtual - freeSwap : 0;
    if (hostfacts::scannedHostIsLinux()) {
        // The sums and products again, in 64 bits.
        const std::uint64_t pageKB = kernelPage >> 10;
        const std::uint64_t swapTotalKB = swap.xsu_total >> 10;
        const std::uint64_t swapFreeKB =
            swap.xsu_used < swap.xsu_total ? (swap.xsu_total - swap.xsu_used) >> 10 : 0;
        if (memsize >> 10) totalPhys = linuxfacts::kbField(memsize >> 10);
        if (haveVm) {
            totalVirtual = linuxfacts::kbField(std::uint64_t(totalPhys) + swapTotalKB);
            // Without MemAvailable (kernels before 3.14): free pages and free swap.
            freePhys = linuxfacts::kbField(pageKB * vm.free_count);
            freeVirtual = linuxfacts::kbField(pageKB * vm.free_count + swapFreeKB);
        }
        std::string meminfo;
        std::uint64_t avail = 0, swapFree = 0;
        if (hostfacts::readHostFile("/proc/meminfo", &meminfo, 64 * 1024) &&
            hostfacts::meminfoKB(meminfo.data(), meminfo.size(), "MemAvailable", &avail)) {
            if (!hostfacts::meminfoKB(meminfo.data(), meminfo.size(), "SwapFree", &swapFree))
                swapFree = 0;
            freePhys = linuxfacts::kbField(avail);
            freeVirtual = linuxfacts::kbField(avail + swapFree);
            MEM_TRACE("hardware MemAvailable: %lu SwapFree: %lu",
                      static_cast<unsigned long>(freePhys),
                      static_cast<unsigned long>(linuxfacts::kbField(swapFree)));
        } else {
            MEM_TRACE("hardware %s", "MemAvailable not readable");
        }
    }

    if (pageSize == 0 && kernelPage != 0) pageSize = static_cast<std::int32_t>(kernelPage);

    ZelTable* table = new ZelTable(getGroupId(), getGroupVersion());
    ZelTableRow* row = new ZelTableRow();
    row->addAttrib(new ZelTableAttrib(1UL, static_cast<unsigned long>(totalPhys)));
    row->addAttrib(new ZelTableAttrib(2UL, static_cast<unsigned long>(freePhys)));
    row->addAttrib(new ZelTableAttrib(3UL, static_cast<unsigned long>(totalVirtual)));
    row->addAttrib(new ZelTableAttrib(4UL, static_cast<unsigned long>(freeVirtual)));
    row->addAttrib(
        new ZelTableAttrib(7UL, static_cast<unsigned long>(static_cast<std::uint32_t>(pageSize))));
    table->addRow(row);

    log->traceMidExit(__LINE__, SRC, OP, "hardware %s", "MemoryGroup");
    return table;
}
