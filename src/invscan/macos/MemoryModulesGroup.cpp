// Memory modules from the profiler's memory section. The section wraps its slots
// in items named like the section itself, so the walk descends through those
// before the first slot. "Packaging" carries the part number: hosts read it there.
// The Linux gathering also gives each size as a number of MB, read in preference to
// the text, and says why a section holds no slot.
#include "invscan/MemoryModulesGroup.h"

#include "common/host/linux_facts.h"
#include "invscan/CcLog.h"
#include "invscan/HostFacts.h"
#include "invscan/MacInfo.h"
#include "invscan/ZelTableRow.h"
#include "invscan/host_root.h"

#include <cstring>

namespace {
const char* const SRC = "./../../../src/invscan/macos/MemoryModulesGroup";
const char* const OP = "getTable()";
const char* const SECTION = "SPMemoryDataType";
} // namespace

ZelTable* MemoryModulesGroup::getTable() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC, OP, "hardware %s", "MemoryModulesGroup Group");

    VtExecInfo* info = MacInfo::getSysProf();
    VtNode* first = nullptr;
    VtNode* node = MacInfo::getSection(info, SECTION);
    const char* why = node ? node->getValue("", "smbios_table", "") : "";
    while (node && node->name && std::strcmp(node->name, SECTION) == 0)
        node = node->getChild(nullptr, 0);
    first = node;
    const bool onLinux = hostfacts::scannedHostIsLinux();
    if (!first && onLinux) {
        // Older recordings do not say why; then only the live host can.
        if (!*why && host::needsRoot(linuxfacts::SMBIOS_TABLE_PATH))
            why = linuxfacts::smbiosStateText(linuxfacts::SMBIOS_NEEDS_ROOT);
        log->traceMAX(__LINE__, SRC, OP, "hardware no memory modules: %s",
                      *why ? why : "the profiler has no memory section");
    }

    ZelTable* table = new ZelTable(getGroupId(), getGroupVersion());
    unsigned long index = 1;
    for (VtNode* m = first; m; m = m->next) {
        const char* size = m->getValue("", "dimm_size", "");
        const char* type = m->getValue("", "dimm_type", "");
        const char* part = m->getValue("", "dimm_part_number", "");
        const int number = onLinux ? m->getValue("", "dimm_size_mb", -1) : -1;
        unsigned long mb =
            number >= 0 ? static_cast<unsigned long>(number) : hostfacts::moduleSizeMB(size);
        ZelTableRow* row = new ZelTableRow();
        row->addAttrib(new ZelTableAttrib(1UL, index++));
        row->addAttrib(new ZelTableAttrib(2UL, mb));
        row->addAttrib(new ZelTableAttrib(3UL, mb));
        row->addAttrib(new ZelTableAttrib(4UL, m->name ? m->name : ""));
        row->addAttrib(new ZelTableAttrib(5UL, part));
        row->addAttrib(new ZelTableAttrib(6UL, type));
        table->addRow(row);
    }

    log->traceMidExit(__LINE__, SRC, OP, "hardware %s", "MemoryModulesGroup Group");
    return table;
}
