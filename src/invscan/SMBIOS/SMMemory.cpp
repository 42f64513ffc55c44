#include "invscan/SMMemory.h"

#include "invscan/CcLog.h"
#include "invscan/SMBIOSTable.h"

static const char* const kFile = "./../../../src/invscan/SMBIOS/SMMemory";

static SMBIOSTable* usableTable() {
    SMBIOSTable* t = globalSMBIOSTable;
    return (t && t->isAvailable()) ? t : nullptr;
}

bool isPowerOf2(uint32_t v) {
    int bits = 0;
    for (; v && bits < 2; v >>= 1)
        bits += static_cast<int>(v & 1u);
    return bits == 1;
}

int32_t SM_getBiggestMemoryModule_17() {
    SMBIOSTable* t = usableTable();
    if (!t || t->getTable17Total() == 0) return 0;
    getCcLogHw()->traceMAX(__LINE__, kFile, "SM_getBiggestMemoryModule_17()", "hardware %s",
                           "SMBIOS Table 17 is available");
    uint32_t best = 0;
    for (int i = 0; i < t->getTable17Total(); ++i) {
        uint32_t kb = t->getTable17(i)->getSizeKB();
        if (kb == 0xFFFFFFFFu) continue;
        if (kb > best) best = kb;
    }
    return static_cast<int32_t>(best);
}

int32_t SM_getBiggestMemoryModule_6() {
    SMBIOSTable* t = usableTable();
    if (!t || t->getTable6Total() == 0) return 0;
    getCcLogHw()->traceMAX(__LINE__, kFile, "SM_getBiggestMemoryModule_6()", "hardware %s",
                           "SMBIOS Table 6 is available");
    int32_t best = 0;
    for (int i = 0; i < t->getTable6Total(); ++i) {
        int32_t mb = t->getTable6(i)->getInstalledSizeMB();
        if (mb == -1) continue;
        if (mb > best) best = mb;
    }
    return best;
}

uint32_t getMemorySpecs(uint32_t* maxModuleSizeMB, uint32_t* slots) {
    uint32_t maxMB = 0, nSlots = 0;
    CcLogWrapper* log = getCcLogHw();
    const char* op = "getMemorySpecs()";
    if (SMBIOSTable* t = usableTable()) {
        if (SMBIOSTable5Data* r5 = t->getTable5()) {
            log->traceMAX(__LINE__, kFile, op, "hardware %s", "SMBIOS Table 5 is available");
            nSlots = r5->getNumAssocMemorySlots();
            unsigned code = r5->getMaximumMemoryModuleSize();
            maxMB = code == 0 ? 0u : (1u << (code & 31u));
            int32_t b6 = SM_getBiggestMemoryModule_6();
            log->traceMAX(__LINE__, kFile, op, "hardware %s %u %s %u %s %d",
                          "Table 5: Max Module Size:", maxMB, "Slots:", nSlots,
                          "Table 6 MaxModuleSize (calc) found:", b6);
            if (b6 > 0 && static_cast<uint32_t>(b6) > maxMB) maxMB = static_cast<uint32_t>(b6);
        }
        if (SMBIOSTable16Data* r16 = t->getTable16()) {
            log->traceMAX(__LINE__, kFile, op, "hardware %s", "SMBIOS Table 16 is available");
            if (nSlots == 0) nSlots = r16->getNumMemDevices();
            uint32_t raw = r16->getMaxCapacity() / 1024u;
            if (nSlots != 0) {
                uint32_t perSlot = raw / nSlots;
                log->traceMAX(__LINE__, kFile, op, "hardware %s %u %s %u %s",
                              "raw maxModuleSizeMB =", raw, "MB, divided by slots:", perSlot, "MB");
                // The array's capacity counts as a per-slot limit when it does not split
                // evenly into power-of-two modules, or when an installed module is
                // already bigger than the even share.
                uint32_t candidate;
                if (!isPowerOf2(raw)) {
                    candidate = perSlot;
                } else if (isPowerOf2(perSlot)) {
                    uint32_t biggest =
                        static_cast<uint32_t>(SM_getBiggestMemoryModule_17()) / 1024u;
                    log->traceMAX(__LINE__, kFile, op, "hardware %s %u %s",
                                  "biggestModule found (SMB):", biggest, "MB");
                    candidate = perSlot >= biggest ? perSlot : raw;
                } else {
                    candidate = raw;
                }
                if (candidate > maxMB) maxMB = candidate;
            }
            log->traceMAX(__LINE__, kFile, op, "hardware %s %u %s %u",
                          "Table 16: Max Module Size:", maxMB, "Slots:", nSlots);
        }
    }
    if (maxModuleSizeMB) *maxModuleSizeMB = maxMB;
    if (slots) *slots = nSlots;
    return (maxMB + nSlots) != 0 ? 1u : 0u;
}

uint32_t SM_Processor(uint16_t* currentSpeed, uint16_t* externalClock, uint16_t* upgrade,
                      uint32_t* featureFlags) {
    if (currentSpeed) *currentSpeed = 0;
    if (externalClock) *externalClock = 0;
    if (upgrade) *upgrade = 0;
    SMBIOSTable* t = usableTable();
    SMBIOSTable4Data* p = t ? t->getTable4(0) : nullptr;
    if (!p) return 0;
    unsigned clock = p->getExternalClock();
    unsigned up = p->getUpgrade();
    if (currentSpeed) *currentSpeed = static_cast<uint16_t>(p->getCurrentSpeed());
    // Fixed limits: beyond them the values are taken for garbage.
    if (externalClock) *externalClock = static_cast<uint16_t>(clock > 2000 ? 0 : clock);
    if (upgrade) *upgrade = static_cast<uint16_t>(up >= 18 ? 0 : up);
    if (featureFlags) *featureFlags = p->getEDX();
    return 1;
}

extern "C" uint32_t SM_ProcessorFamily() {
    SMBIOSTable* t = usableTable();
    SMBIOSTable4Data* p = t ? t->getTable4(0) : nullptr;
    return p ? p->getFamily() : 0u;
}

extern "C" uint32_t SM_ProcessorCount() {
    SMBIOSTable* t = usableTable();
    return t ? static_cast<uint32_t>(t->getTable4Total()) : 0u;
}

extern "C" uint32_t SM_PopulatedProcessorCount() {
    SMBIOSTable* t = usableTable();
    return t ? static_cast<uint32_t>(t->getTable4PopulatedTotal()) : 0u;
}
