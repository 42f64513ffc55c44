#include "invscan/SMBIOSGroup.h"

#include "invscan/CcLog.h"
#include "invscan/SMBIOSTable.h"
#include "invscan/SM_HWSecurity.h"
#include "invscan/md5.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

static const char* const kFile = "./../../../src/invscan/SMBIOS/SMBIOSGroup";

SMBIOSGroup::SMBIOSGroup() : ZelGroup(ZEL_GROUP_SMBIOS, 1) {}
SMBIOSGroup::~SMBIOSGroup() = default;

ZelTable* SMBIOSGroup::getTable() {
    getCcLogHw()->traceMidEntry(__LINE__, kFile, "getTable()", "hardware %s", "SMBIOSGroup Group");
    ZelTable* t = getTableLeg();
    getCcLogHw()->traceMidExit(__LINE__, kFile, "getTable()", "hardware %s", "SMBIOSGroup Group");
    return t;
}

ZelTable* SMBIOSGroup::getTableLeg() {
    return buildTable(globalSMBIOSTable);
}

namespace {

// One run's working state: the row being built and the fingerprint text.
struct RowBuilder {
    ZelTableRow* row;
    std::string fingerprint;
    std::vector<char> value;

    // Cleans `text`, appends it as attribute `id` when non-empty. A fingerprint
    // member contributes the cleaned text, or "|" when it is empty.
    void addString(unsigned long id, const char* text, bool member) {
        CcLogWrapper* log = getCcLogHw();
        log->traceMAX(__LINE__, kFile, "getTableLeg()", "hardware %s %2i %s", "[",
                      static_cast<int>(id), "]");
        value.assign(text ? std::strlen(text) + 1 : 1, '\0');
        SMBIOSTable::validateString(text, value.data());
        const char* v = value.data();
        if (*v) {
            log->traceMAX(__LINE__, kFile, "getTableLeg()", "hardware >%s<", v);
            row->addAttrib(new ZelTableAttrib(id, v));
        } else {
            log->traceMAX(__LINE__, kFile, "getTableLeg()", "hardware %s", "-none-");
        }
        if (member) fingerprint += *v ? v : "|";
    }
};

} // namespace

ZelTable* SMBIOSGroup::buildTable(const SMBIOSTable* st) {
    CcLogWrapper* log = getCcLogHw();
    const char* op = "getTableLeg()";
    if (!st || !st->isAvailable()) {
        log->traceMidExit(__LINE__, kFile, op, "hardware %s", "no SMBIOS data");
        return nullptr;
    }
    const SMBIOSTable0Data* t0 = st->getTable0();
    const SMBIOSTable1Data* t1 = st->getTable1();
    const SMBIOSTable2Data* t2 = st->getTable2();
    const SMBIOSTable3Data* t3 = st->getTable3();
    if (t0) log->traceMAX(__LINE__, kFile, op, "hardware %s", "SMBIOS TABLE 0 IS AVAILABLE");
    if (t1) log->traceMAX(__LINE__, kFile, op, "hardware %s", "SMBIOS TABLE 1 IS AVAILABLE");
    if (t2) log->traceMAX(__LINE__, kFile, op, "hardware %s", "SMBIOS TABLE 2 IS AVAILABLE");
    if (t3) log->traceMAX(__LINE__, kFile, op, "hardware %s", "SMBIOS TABLE 3 IS AVAILABLE");

    ZelTable* table = new ZelTable(getGroupId(), getGroupVersion());
    RowBuilder b{new ZelTableRow(), std::string(), std::vector<char>()};

    if (t0) {
        b.addString(1, t0->getVendor(), true);
        b.addString(2, t0->getVersion(), true);
        char* date = t0->getReleaseDateAsYYYYMMDD();
        b.addString(3, date, false);
        std::free(date);
        char size[16];
        std::snprintf(size, sizeof size, "%iK", t0->getROMSizeKB());
        b.row->addAttrib(new ZelTableAttrib(4, size));
        b.fingerprint += size;
    }
    if (t1) {
        b.addString(5, t1->getManufacturer(), true);
        b.addString(6, t1->getProduct(), true);
        b.addString(7, t1->getVersion(), true);
        b.addString(8, t1->getSerialNumber(), false);
        b.addString(9, t1->getUUIDAsString(), false);
    }
    if (t2) {
        b.addString(10, t2->getManufacturer(), true);
        b.addString(11, t2->getProduct(), true);
        b.addString(12, t2->getVersion(), true);
        b.addString(13, t2->getSerialNumber(), false);
    }
    if (t3) {
        b.addString(14, t3->getManufacturer(), true);
        unsigned chassis = t3->getType() & 0x7Fu; // bit 7 is the chassis lock
        log->traceMAX(__LINE__, kFile, op, "hardware %s %u", "Chassis type:", chassis);
        if (chassis >= 1 && chassis <= 25) {
            b.row->addAttrib(new ZelTableAttrib(15, static_cast<unsigned long>(chassis)));
            b.fingerprint += std::to_string(chassis);
        }
        b.addString(16, t3->getVersion(), true);
        b.addString(17, t3->getSerialNumber(), false);
        b.addString(18, t3->getAssetTag(), false);
    }
    // The fingerprint names the model and firmware, not the single machine: serial
    // numbers, UUID, date and asset tag stay out of it.
    if (b.row->getNumAttribs() > 0) {
        log->traceMAX(__LINE__, kFile, op, "hardware %s %d",
                      "MD5 PK input len:", static_cast<int>(b.fingerprint.size()));
        char* digest = md5_checksum(b.fingerprint.c_str());
        if (digest) {
            b.row->addAttrib(new ZelTableAttrib(19, digest));
            std::free(digest);
        }
    }
    uint16_t powerOn = 3, keyboard = 3;
    SM_HWSecurityOf(st, &powerOn, &keyboard);
    log->traceMAX(__LINE__, kFile, op, "hardware %s %u",
                  "PowerOn PW:", static_cast<unsigned>(powerOn));
    // 1022 and 1023 (not implemented, unknown) both read as unsupported.
    unsigned long state = powerOn > 3 ? 2ul : powerOn;
    b.row->addAttrib(new ZelTableAttrib(20, state));
    table->addRow(b.row);
    log->traceMidExit(__LINE__, kFile, op, "hardware %s", "SMBIOSGroup Group");
    return table;
}
