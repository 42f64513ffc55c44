// BIOS password state from the hardware-security structure (type 24).
#ifndef INVSCAN_SM_HWSECURITY_H
#define INVSCAN_SM_HWSECURITY_H

#include "invscan_export.h"

#include <cstdint>

// Both outputs start at 3 (unknown). Returns 0 when a type-24 structure was found.
// Bits 7..6 of the settings byte give powerOn 0, 1, 1022 or 1023: the byte is widened
// as a signed value before the shift. Callers fold values above 3.
INVSCAN_API uint32_t SM_HWSecurity(uint16_t* powerOn, uint16_t* keyboard);

class SMBIOSTable;
// Same over a given table (null or unavailable: nothing found).
INVSCAN_API uint32_t SM_HWSecurityOf(const SMBIOSTable* table, uint16_t* powerOn,
                                     uint16_t* keyboard);

#endif
