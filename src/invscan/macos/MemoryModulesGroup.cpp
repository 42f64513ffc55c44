// Memory modules from the profiler's memory section. The section wraps its slots
// in items named like the section itself, so the walk descends through those
// before the first slot. "Packaging" carries the part number: hosts read it there.
#include "invscan/MemoryModulesGroup.h"

#include "invscan/CcLog.h"
#include "invscan/HostFacts.h"
#include "invscan/MacInfo.h"
#include "invscan/ZelTableRow.h"

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
    while (node && node->name && std::strcmp(node->name, SECTION) == 0)
        node = node->getChild(nullptr, 0);
    first = node;
    if (!first && hostfacts::scannedHostIsLinux())
        log->traceMAX(
            __LINE__, SRC, OP, "hardware %s",
            "no memory section: the SMBIOS table is unreadable or absent (it needs root)");

    ZelTable* table = new ZelTable(getGroupId(), getGroupVersion());
    unsigned long index = 1;
    for (VtNode* m = first; m; m = m->next) {
        const char* size = m->getValue("", "dimm_size", "");
        const char* type = m->getValue("", "dimm_type", "");
        const char* part = m->getValue("", "dimm_part_number", "");
        unsigned long mb = hostfacts::moduleSizeMB(size);
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
