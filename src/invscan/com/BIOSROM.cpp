#include "invscan/BIOSROM.h"

#include "invscan/CcLog.h"

static const char* const kFile = "./../../../src/invscan/com/BIOSROM";

int BIOSROM::getPhysMem(unsigned char* /*buffer*/, int /*flags*/, uint32_t /*physicalAddress*/,
                        int /*length*/) {
    getCcLogHw()->traceMidEntry(__LINE__, kFile, "getPhysMem()", "hardware %s", "getPhysMem()");
    // 37 is the value the original platform's failing call reported; keep it.
    const int rc = 37;
    getCcLogHw()->traceMidExit(__LINE__, kFile, "getPhysMem()", "hardware return %d", rc);
    return rc;
}
