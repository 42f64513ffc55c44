// The machine's identity from the profiler's hardware overview. On a Linux host the
// firmware's own system information (DMI) answers instead; its serial and UUID are
// readable by root only and stay empty otherwise, which the trace tells apart from a
// machine without them.
#include "invscan/ComponentIDGroup.h"

#include "invscan/CcLog.h"
#include "invscan/HostFacts.h"
#include "invscan/MacInfo.h"
#include "invscan/ZelTableRow.h"
#include "invscan/host_root.h"

#include <string>

namespace {

const char* const SRC = "./../../../src/invscan/macos/ComponentIDGroup";
const char* const HW_OVERVIEW = "SystemProfiler.SPHardwareDataType.hardware_overview";

std::string dmi(const char* field) {
    std::string path = std::string("/sys/class/dmi/id/") + field, text;
    if (!hostfacts::readHostFile(path.c_str(), &text, 4096)) {
        if (host::needsRoot(path.c_str()))
            getCcLogHw()->traceMAX(__LINE__, SRC, "getTable()", "hardware %s needs root", field);
        return std::string();
    }
    std::size_t b = text.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return std::string();
    return text.substr(b, text.find_last_not_of(" \t\r\n") - b + 1);
}

ZelTableRow* makeRow(const char* maker, const char* product, const char* version,
                     const char* serial, const char* uuid) {
    ZelTableRow* row = new ZelTableRow();
    row->addAttrib(new ZelTableAttrib(1UL, maker));
    row->addAttrib(new ZelTableAttrib(2UL, product));
    row->addAttrib(new ZelTableAttrib(3UL, version));
    row->addAttrib(new ZelTableAttrib(4UL, serial));
    row->addAttrib(new ZelTableAttrib(9UL, uuid));
    return row;
}

} // namespace

ZelTable* ComponentIDGroup::getTable() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC, "getTable()", "hardware %s", "ComponentIDGroup");

    ZelTable* table = nullptr;
    if (hostfacts::scannedHostIsLinux()) {
        table = new ZelTable(getGroupId(), getGroupVersion());
        table->addRow(makeRow(dmi("sys_vendor").c_str(), dmi("product_name").c_str(),
                              dmi("product_version").c_str(), dmi("product_serial").c_str(),
                              dmi("product_uuid").c_str()));
    } else if (VtExecInfo* info = MacInfo::getSysProf()) {
        const char* model = vtGetValue(info, HW_OVERVIEW, "machine_model", "");
        const char* version = vtGetValue(info, HW_OVERVIEW, "SMC_version", "");
        const char* serial = vtGetValue(info, HW_OVERVIEW, "serial_number", "");
        const char* uuid = vtGetValue(info, HW_OVERVIEW, "platform_UUID", "");
        if (!version || !*version)
            version = vtGetValue(info, HW_OVERVIEW, "SMC_version_system", "");
        table = new ZelTable(getGroupId(), getGroupVersion());
        table->addRow(makeRow("Apple", model, version ? version : "", serial, uuid));
    }

    // The exit names the function as hosts have always seen it in their logs.
    log->traceMidExit(__LINE__, SRC, "getTableForVM()", "hardware %s", "ComponentIDGroup");
    return table;
}
