// Single facts answered from the shared SMBIOS table: memory module limits, the first
// processor, processor counts and the BIOS password state. Each returns its "nothing
// known" value when there is no usable table.
#ifndef INVSCAN_SMMEMORY_H
#define INVSCAN_SMMEMORY_H

#include "invscan_export.h"

#include <cstdint>

INVSCAN_API bool isPowerOf2(uint32_t v);
INVSCAN_API int32_t SM_getBiggestMemoryModule_17();
INVSCAN_API int32_t SM_getBiggestMemoryModule_6();
INVSCAN_API uint32_t getMemorySpecs(uint32_t* maxModuleSizeMB, uint32_t* slots);
INVSCAN_API uint32_t SM_Processor(uint16_t* currentSpeed, uint16_t* externalClock,
                                  uint16_t* upgrade, uint32_t* featureFlags = nullptr);

extern "C" {
INVSCAN_API uint32_t SM_ProcessorFamily();
INVSCAN_API uint32_t SM_ProcessorCount();
INVSCAN_API uint32_t SM_PopulatedProcessorCount();
}

#endif
