#include "invscan/SM_HWSecurity.h"

#include "invscan/CcLog.h"
#include "invscan/SMBIOSTable.h"

static const char* const kFile = "./../../../src/invscan/SMBIOS/SM_HWSecurity";

uint32_t SM_HWSecurity(uint16_t* powerOn, uint16_t* keyboard) {
    return SM_HWSecurityOf(globalSMBIOSTable, powerOn, keyboard);
}

uint32_t SM_HWSecurityOf(const SMBIOSTable* t, uint16_t* powerOn, uint16_t* keyboard) {
    getCcLogHw()->traceMidEntry(__LINE__, kFile, "SM_HWSecurity()", "hardware %s", "SM_HWSecurity");
    uint16_t p = 3, k = 3;
    uint32_t rc = 1;
    SMBIOSTable24Data* r = (t && t->isAvailable()) ? t->getTable24() : nullptr;
    if (r) {
        int16_t s = static_cast<signed char>(static_cast<unsigned char>(r->getHWSecStatus()));
        uint16_t u = static_cast<uint16_t>(s);
        p = static_cast<uint16_t>(u >> 6);
        k = static_cast<uint16_t>(u >> 2);
        rc = 0;
    }
    if (powerOn) *powerOn = p;
    if (keyboard) *keyboard = k;
    getCcLogHw()->traceMidExit(__LINE__, kFile, "SM_HWSecurity()", "hardware powerOn=%u rc=%u",
                               static_cast<unsigned>(p), static_cast<unsigned>(rc));
    return rc;
}
