// The snapshot source: the SMBIOS bytes of the I/O-registry tree.
#include "SMBIOSTable.h"

bool SMBIOSTable::setDataFromIoRegistry(const VtNode*) { return false; }
bool SMBIOSTable::getDataFromIOKit() { return false; }
