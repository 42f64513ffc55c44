// Raw SMBIOS table of the I/O-registry snapshot for the processor summary.
#include "smbios.h"

bool getSmbiosInfo(SmbiosInfo& info) {
    info = SmbiosInfo();
    return false;
}
