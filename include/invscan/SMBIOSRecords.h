// One record class per SMBIOS structure type that the inventory reads. Field offsets
// are those of the DMTF SMBIOS reference, from the start of the structure. String
// getters return the string whose number the field holds, or null.
#ifndef INVSCAN_SMBIOSRECORDS_H
#define INVSCAN_SMBIOSRECORDS_H

#include "SMBIOSTableData.h"

#include <ctime>

// Type 0: BIOS information.
class INVSCAN_API SMBIOSTable0Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable0Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    const char* getVendor() const { return stringFromIndex(vendor); }
    const char* getVersion() const { return stringFromIndex(version); }
    const char* getReleaseDate() const { return stringFromIndex(releaseDate); }
    unsigned getStartAddrSeg() const { return startAddrSeg; }
    unsigned getROMSize() const { return romSize; }
    uint32_t getCharacteristicsLow() const { return charLow; }
    uint32_t getCharacteristicsHigh() const { return charHigh; }
    unsigned getExtensionByte1() const { return extByte1; }

    int getROMSizeKB() const { return (romSize + 1) * 64; }
    // YYYY-MM-DD by the fixed-position rules below; malloc'ed, caller frees; null
    // without a date.
    char* getReleaseDateAsYYYYMMDD() const;
    time_t getReleaseDateAsTimeT() const;

    bool isISASupported() const { return lowBit(4); }
    bool isMCASupported() const { return lowBit(5); }
    bool isEISASupported() const { return lowBit(6); }
    bool isPCISupported() const { return lowBit(7); }
    bool isPCMCIASupported() const { return lowBit(8); }
    bool isPnPSupported() const { return lowBit(9); }
    bool isAPMSupported() const { return lowBit(10); }
    bool isFlashableBIOS() const { return lowBit(11); }
    bool isBIOSShadowing() const { return lowBit(12); }
    bool isVLVESASupported() const { return lowBit(13); }
    bool isESCDSupported() const { return lowBit(14); }
    bool isCDBootSupported() const { return lowBit(15); }
    bool isSelectableBoot() const { return lowBit(16); }
    bool isBIOSROMSocketed() const { return lowBit(17); }
    bool isPCCardBootable() const { return lowBit(18); }
    bool isEnhancedDiskDrive() const { return lowBit(19); }
    bool isACPISupported() const { return extBit(0); }
    bool isUSBLegacySupported() const { return extBit(1); }
    bool isAGPSupported() const { return extBit(2); }
    bool isI2OBootSupported() const { return extBit(3); }
    bool isLS120BootSupported() const { return extBit(4); }
    bool isATAPIZipBootSupported() const { return extBit(5); }
    bool is1394BootSupported() const { return extBit(6); }
    bool isSmartBatteryBIOS() const { return extBit(7); }

    // The date rules on their own, for any text (malloc'ed result, null for null).
    static char* normaliseDate(const char* date);

private:
    bool lowBit(int b) const { return (charLow >> b) & 1u; }
    bool extBit(int b) const { return (extByte1 >> b) & 1u; }
    unsigned vendor = 0, version = 0, releaseDate = 0, romSize = 0, extByte1 = 0;
    unsigned startAddrSeg = 0;
    uint32_t charLow = 0, charHigh = 0;
};

// Type 1: system information.
class INVSCAN_API SMBIOSTable1Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable1Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    const char* getManufacturer() const { return stringFromIndex(manufacturer); }
    const char* getProduct() const { return stringFromIndex(product); }
    const char* getVersion() const { return stringFromIndex(version); }
    const char* getSerialNumber() const { return stringFromIndex(serial); }
    unsigned getWakeUpType() const { return wakeUpType; }
    const unsigned char* getUUID() const { return uuid; }
    // 32 hex digits in stored order, in one buffer shared by all calls; null when zero.
    const char* getUUIDAsString() const;

private:
    unsigned manufacturer = 0, product = 0, version = 0, serial = 0, wakeUpType = 0;
    unsigned char uuid[16] = {};
};

// Type 2: baseboard.
class INVSCAN_API SMBIOSTable2Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable2Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    const char* getManufacturer() const { return stringFromIndex(manufacturer); }
    const char* getProduct() const { return stringFromIndex(product); }
    const char* getVersion() const { return stringFromIndex(version); }
    const char* getSerialNumber() const { return stringFromIndex(serial); }

private:
    unsigned manufacturer = 0, product = 0, version = 0, serial = 0;
};

// Type 3: enclosure.
class INVSCAN_API SMBIOSTable3Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable3Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    const char* getManufacturer() const { return stringFromIndex(manufacturer); }
    unsigned getType() const { return chassisType; }
    const char* getVersion() const { return stringFromIndex(version); }
    const char* getSerialNumber() const { return stringFromIndex(serial); }
    const char* getAssetTag() const { return stringFromIndex(assetTag); }

private:
    unsigned manufacturer = 0, chassisType = 0, version = 0, serial = 0, assetTag = 0;
};

// Type 4: processor.
class INVSCAN_API SMBIOSTable4Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable4Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    const char* getSocket() const { return stringFromIndex(socket); }
    unsigned getType() const { return procType; }
    unsigned getFamily() const { return family; }
    const char* getManufacturer() const { return stringFromIndex(manufacturer); }
    uint32_t getEAX() const { return eax; }
    uint32_t getEDX() const { return edx; }
    const char* getVersion() const { return stringFromIndex(version); }
    unsigned getVoltage() const { return voltage; }
    unsigned getExternalClock() const { return externalClock; }
    unsigned getMaxSpeed() const { return maxSpeed; }
    unsigned getCurrentSpeed() const { return currentSpeed; }
    unsigned getStatus() const { return status; }
    unsigned getUpgrade() const { return upgrade; }
    const char* getSerialNumber() const { return stringFromIndex(serial); }
    const char* getAssetTag() const { return stringFromIndex(assetTag); }

    bool isPopulated() const { return (status >> 6) & 1u; }
    unsigned getCPUIDStepping() const { return eax & 0xFu; }
    unsigned getCPUIDModel() const { return (eax >> 4) & 0xFu; }
    unsigned getCPUIDFamily() const { return (eax >> 8) & 0xFu; }
    double getVoltageInVolts() const;

private:
    unsigned socket = 0, procType = 0, family = 0, manufacturer = 0, version = 0, voltage = 0;
    unsigned externalClock = 0, maxSpeed = 0, currentSpeed = 0, status = 0, upgrade = 0;
    unsigned serial = 0, assetTag = 0;
    uint32_t eax = 0, edx = 0;
};

// Type 5: memory controller. Has no string set of its own.
class INVSCAN_API SMBIOSTable5Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable5Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    unsigned getErrorDetectingMethod() const { return errDetect; }
    unsigned getErrorCorrectingCapability() const { return errCorrect; }
    unsigned getSupportedInterleave() const { return supInterleave; }
    unsigned getCurrentInterleave() const { return curInterleave; }
    unsigned getMaximumMemoryModuleSize() const { return maxModuleSize; }
    unsigned getSupportedSpeeds() const { return supSpeeds; }
    unsigned getSupportedMemoryTypes() const { return supTypes; }
    unsigned getMemoryModuleVoltage() const { return voltage; }
    unsigned getNumAssocMemorySlots() const { return numSlots; }

private:
    unsigned errDetect = 0, errCorrect = 0, supInterleave = 0, curInterleave = 0;
    unsigned maxModuleSize = 0, supSpeeds = 0, supTypes = 0, voltage = 0, numSlots = 0;
};

// Type 6: memory module.
class INVSCAN_API SMBIOSTable6Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable6Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    const char* getSocketDesignation() const { return stringFromIndex(socket); }
    unsigned getBankConnections() const { return bankConnections; }
    unsigned getCurrentSpeed() const { return currentSpeed; }
    unsigned getMemoryType() const { return memoryType; }
    unsigned getInstalledSize() const { return installedSize; }
    unsigned getEnabledSize() const { return enabledSize; }
    unsigned getErrorStatus() const { return errorStatus; }

    int getInstalledSizeMB() const { return sizeMB(installedSize); }
    int getEnabledSizeMB() const { return sizeMB(enabledSize); }
    static int sizeMB(unsigned code);

private:
    unsigned socket = 0, bankConnections = 0, currentSpeed = 0, memoryType = 0;
    unsigned installedSize = 0, enabledSize = 0, errorStatus = 0;
};

// Type 8: port connector.
class INVSCAN_API SMBIOSTable8Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable8Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    const char* getInternalDesignator() const { return stringFromIndex(intDesignator); }
    unsigned getInternalConnectorType() const { return intType; }
    const char* getExternalDesignator() const { return stringFromIndex(extDesignator); }
    unsigned getExternalConnectorType() const { return extType; }
    unsigned getPortType() const { return portType; }

private:
    unsigned intDesignator = 0, intType = 0, extDesignator = 0, extType = 0, portType = 0;
};

// Type 9: system slot.
class INVSCAN_API SMBIOSTable9Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable9Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    const char* getSlotDesignation() const { return stringFromIndex(designation); }
    unsigned getSlotType() const { return slotType; }
    unsigned getSlotDataBusWidth() const { return busWidth; }
    unsigned getCurrentUsage() const { return currentUsage; }
    unsigned getSlotLength() const { return slotLength; }
    unsigned getSlotID() const { return slotID; }
    unsigned getSlotCharacteristics1() const { return char1; }
    unsigned getSlotCharacteristics2() const { return char2; }

private:
    unsigned designation = 0, slotType = 0, busWidth = 0, currentUsage = 0, slotLength = 0;
    unsigned slotID = 0, char1 = 0, char2 = 0;
};

// Type 10: on-board devices; only the first device of the structure is read.
class INVSCAN_API SMBIOSTable10Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable10Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    unsigned getDeviceType() const { return deviceType; }
    const char* getDescription() const { return stringFromIndex(description); }
    unsigned getDeviceTypeActual() const { return deviceType & 0x7Fu; }
    bool isEnabled() const { return (deviceType >> 7) & 1u; }

private:
    unsigned deviceType = 0, description = 0;
};

// Type 11: OEM strings. Complete, but the table walk does not collect it.
class INVSCAN_API SMBIOSTable11Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable11Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    unsigned getCount() const { return count; }
    const char* getString(int n) const { return stringFromIndex(n); }

private:
    unsigned count = 0;
};

// Type 16: physical memory array. Has no string set of its own.
class INVSCAN_API SMBIOSTable16Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable16Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    unsigned getLocation() const { return location; }
    unsigned getUse() const { return use; }
    unsigned getMemoryErrorCorrection() const { return errCorrection; }
    uint32_t getMaxCapacity() const { return maxCapacity; }
    unsigned getMemoryErrorHandle() const { return errHandle; }
    unsigned getNumMemDevices() const { return numDevices; }

private:
    unsigned location = 0, use = 0, errCorrection = 0, errHandle = 0, numDevices = 0;
    uint32_t maxCapacity = 0;
};

// Type 17: memory device.
class INVSCAN_API SMBIOSTable17Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable17Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    unsigned getMemoryArrayHandle() const { return arrayHandle; }
    unsigned getMemoryErrorHandle() const { return errHandle; }
    unsigned getTotalWidth() const { return totalWidth; }
    unsigned getDataWidth() const { return dataWidth; }
    unsigned getSize() const { return size_; }
    unsigned getFormFactor() const { return formFactor; }
    unsigned getDeviceSet() const { return deviceSet; }
    const char* getDeviceLocator() const { return stringFromIndex(deviceLocator); }
    const char* getBankLocator() const { return stringFromIndex(bankLocator); }
    unsigned getMemoryType() const { return memoryType; }
    unsigned getTypeDetail() const { return typeDetail; }
    unsigned getSpeed() const { return speed; }
    const char* getManufacturer() const { return stringFromIndex(manufacturer); }
    const char* getSerialNumber() const { return stringFromIndex(serial); }
    const char* getAssetTag() const { return stringFromIndex(assetTag); }
    const char* getPartNumber() const { return stringFromIndex(partNumber); }

    uint32_t getSizeKB() const { return sizeKB(size_); }
    static uint32_t sizeKB(unsigned code);

private:
    unsigned arrayHandle = 0, errHandle = 0, totalWidth = 0, dataWidth = 0, size_ = 0;
    unsigned formFactor = 0, deviceSet = 0, deviceLocator = 0, bankLocator = 0;
    unsigned memoryType = 0, typeDetail = 0, speed = 0;
    unsigned manufacturer = 0, serial = 0, assetTag = 0, partNumber = 0;
};

// Type 22: portable battery.
class INVSCAN_API SMBIOSTable22Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable22Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    const char* getLocation() const { return stringFromIndex(location); }
    const char* getManufacturer() const { return stringFromIndex(manufacturer); }
    const char* getManufactureDate() const { return stringFromIndex(manufactureDate); }
    const char* getSerialNumber() const { return stringFromIndex(serial); }
    const char* getDeviceName() const { return stringFromIndex(deviceName); }

private:
    unsigned location = 0, manufacturer = 0, manufactureDate = 0, serial = 0, deviceName = 0;
};

// Type 24: hardware security.
class INVSCAN_API SMBIOSTable24Data : public SMBIOSTableData {
public:
    explicit SMBIOSTable24Data(int revision) : SMBIOSTableData(revision) {}
    int readBlock(const unsigned char* bytes, int offset, int size) override;
    void dump(FILE* out) const override;
    using SMBIOSTableData::dump;

    unsigned getHWSecStatus() const { return settings; }

private:
    unsigned settings = 0;
};

#endif
