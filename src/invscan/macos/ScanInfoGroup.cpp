#include "invscan/ScanInfoGroup.h"

#include "invscan/CcLog.h"
#include "invscan/ZelRender.h"

#include <sys/time.h>

namespace {
const char* const SRC = "./../../../src/invscan/macos/ScanInfoGroup";
}

ZelTable* ScanInfoGroup::getTable() {
    timeval now{};
    gettimeofday(&now, nullptr);
    getCcLogHw()->traceMidEntry(__LINE__, SRC, "getTable()", "hardware %s", "ScanInfoGroup");

    ZelTable* table = new ZelTable(getGroupId(), getGroupVersion());
    ZelTableRow* row = new ZelTableRow();
    row->addAttrib(new ZelTableAttrib(1UL, INVSCAN_VENDOR));
    row->addAttrib(new ZelTableAttrib(2UL, 2UL));
    row->addAttrib(new ZelTableAttrib(3UL, 7UL));
    // Maintenance version and patch level come before the date, as hosts expect.
    row->addAttrib(new ZelTableAttrib(7UL, 0UL));
    row->addAttrib(new ZelTableAttrib(9UL, 6UL));
    row->addAttrib(new ZelTableAttrib(4UL, static_cast<long>(now.tv_sec)));
    row->addAttrib(new ZelTableAttrib(5UL, getBuildDateVMQT()));
    table->addRow(row);

    getCcLogHw()->traceMidExit(__LINE__, SRC, "getTable()", "hardware %s", "ScanInfoGroup");
    return table;
}
