// Physical-memory reader for the legacy F0000-segment scan. This platform gives user
// code no way to map physical memory, so the reader always fails.
#ifndef INVSCAN_BIOSROM_H
#define INVSCAN_BIOSROM_H

#include "invscan_export.h"

#include <cstdint>

class INVSCAN_API BIOSROM {
public:
    // Reads `length` bytes at `physicalAddress` into `buffer`; 0 on success, an errno
    // value otherwise (always EAUTH here: nothing is written).
    static int getPhysMem(unsigned char* buffer, int flags, uint32_t physicalAddress, int length);
};

#endif
