// Locale and time zone as the C library gives them, through the host layer so that
// a recorded host replays its own zone rather than the replaying machine's.
#include "invscan/RegionalGroup.h"

#include "invscan/CcLog.h"
#include "invscan/ZelTableRow.h"
#include "invscan/host.h"

#include <clocale>
#include <string>

namespace {
const char* const SRC = "./../../../src/invscan/macos/RegionalGroup";
const char* const OP = "getTable()";
#define REG_TRACE(...) getCcLogHw()->traceMAX(__LINE__, SRC, OP, __VA_ARGS__)
} // namespace

ZelTable* RegionalGroup::getTable() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC, OP, "hardware %s", "RegionalGroup");
    ZelTable* table = new ZelTable(getGroupId(), getGroupVersion());

    host::tzset();
    const char* ctype = host::setlocale(LC_CTYPE, "");
    if (!ctype) {
        REG_TRACE("hardware %s", "setlocale returned NULL");
        ctype = "";
    }
    std::string locale = ctype; // the next setlocale may reuse the C library's buffer
    REG_TRACE("hardware %s %s", "LC_CTYPE locale=", locale.c_str());

    host::TimeZoneInfo tz;
    host::timeZone(&tz); // zeroed when nothing is known
    long seconds = tz.gmtoff;
    unsigned long sign = 1;
    if (seconds < 0) {
        seconds = -seconds;
        sign = 2;
    }
    unsigned long daylight = tz.daylight ? 1 : 2;
    REG_TRACE("hardware %s %ld", "Timezone seconds=", seconds);
    REG_TRACE("hardware %s %s", "Timezone plus/minus=", sign == 1 ? "+" : "-");
    REG_TRACE("hardware %s %d", "Timezone daylight=", tz.daylight);
    REG_TRACE("hardware %s %s", "Timezone tzname=", tz.stdName);
    REG_TRACE("hardware %s %s", "Timezone tzname daylight=", tz.dstName);

    ZelTableRow* row = new ZelTableRow();
    row->addAttrib(new ZelTableAttrib(1UL, locale.c_str()));
    row->addAttrib(new ZelTableAttrib(2UL, static_cast<unsigned long>(seconds)));
    row->addAttrib(new ZelTableAttrib(3UL, sign));
    row->addAttrib(new ZelTableAttrib(4UL, daylight));
    row->addAttrib(new ZelTableAttrib(5UL, tz.stdName));
    row->addAttrib(new ZelTableAttrib(6UL, tz.dstName));
    table->addRow(row);

    log->traceMidExit(__LINE__, SRC, OP, "hardware %s", "RegionalGroup");
    return table;
}
