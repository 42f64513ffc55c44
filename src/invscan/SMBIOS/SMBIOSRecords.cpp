#include "invscan/SMBIOSRecords.h"

#include <cstdlib>
#include <cstring>

namespace {

void line2(FILE* out, int w, const char* name, unsigned v) {
    std::fprintf(out, "\n   %-*s: x%02X", w, name, v);
}
void line4(FILE* out, int w, const char* name, unsigned long v) {
    std::fprintf(out, "\n   %-*s: x%04lX", w, name, v);
}
void lineStr(FILE* out, int w, const char* name, const char* v) {
    if (!v) {
        std::fprintf(out, "\n   %-*s: ><", w, name);
        return;
    }
    char* clean = new char[std::strlen(v) + 1];
    SMBIOSTableData::removeInvalidChars(clean, v);
    std::fprintf(out, "\n   %-*s: >%s<", w, name, clean);
    delete[] clean;
}

} // namespace

// ---- type 0 -----------------------------------------------------------------------

int SMBIOSTable0Data::readBlock(const unsigned char* bytes, int offset, int size) {
    SMBIOSTableData::readBlock(bytes, offset, size);
    vendor = rd8(0x04);
    version = rd8(0x05);
    startAddrSeg = rd16(0x06);
    releaseDate = rd8(0x08);
    romSize = rd8(0x09);
    charLow = rd32(0x0A);
    charHigh = rd32(0x0E);
    extByte1 = rd8(0x12);
    return finishBlock(bytes, offset, size);
}

char* SMBIOSTable0Data::normaliseDate(const char* date) {
    if (!date) return nullptr;
    char s[16];
    std::strncpy(s, date, 15);
    s[15] = '\0';
    char* blank = std::strchr(s, ' ');
    if (blank) *blank = '\0';
    size_t n = std::strlen(s);
    // The positions are fixed: MM/DD/YYYY, MM/DD/YY and YY.MM.D. are the forms the
    // firmware of the time wrote. A two-digit year takes "20" only when it starts
    // with 0, so 10 and later read as 19xx; that narrow century rule is kept.
    char r[16];
    std::strcpy(r, "1900-MM-DD");
    if (n == 10) {
        std::memcpy(r, s + 6, 4);
        std::memcpy(r + 5, s, 2);
        std::memcpy(r + 8, s + 3, 2);
    } else if (n == 8 && s[7] == '.') {
        r[0] = '1';
        r[1] = '9';
        r[2] = s[0];
        r[3] = s[1];
        r[4] = '-';
        r[5] = s[3];
        r[6] = s[4];
        r[7] = '-';
        r[8] = '0';
        r[9] = s[6];
        r[10] = '\0';
    } else if (n == 8) {
        r[0] = s[6] == '0' ? '2' : '1';
        r[1] = s[6] == '0' ? '0' : '9';
        r[2] = s[6];
        r[3] = s[7];
        std::memcpy(r + 5, s, 2);
        std::memcpy(r + 8, s + 3, 2);
    } else {
        std::strcpy(r, s);
    }
    char* result = static_cast<char*>(std::malloc(std::strlen(r) + 1));
    if (result) std::strcpy(result, r);
    return result;
}

char* SMBIOSTable0Data::getReleaseDateAsYYYYMMDD() const {
    return normaliseDate(getReleaseDate());
}

time_t SMBIOSTable0Data::getReleaseDateAsTimeT() const {
    char* d = getReleaseDateAsYYYYMMDD();
    if (!d) return 0;
    // Digits by position, whatever the text holds; missing positions count as '0'.
    char p[11];
    size_t n = std::strlen(d);
    for (size_t i = 0; i < 10; ++i)
        p[i] = i < n ? d[i] : '0';
    p[10] = '\0';
    std::free(d);
    auto dig = [&](int i) { return p[i] - '0'; };
    struct tm t;
    std::memset(&t, 0, sizeof t);
    t.tm_year = dig(0) * 1000 + dig(1) * 100 + dig(2) * 10 + dig(3) - 1900;
    t.tm_mon = dig(5) * 10 + dig(6) - 1;
    t.tm_mday = dig(8) * 10 + dig(9);
    t.tm_isdst = -1;
    return std::mktime(&t);
}

void SMBIOSTable0Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    const int w = 20;
    std::fprintf(out, "\nSMBIOS Table 0 Data - BIOS Information");
    lineStr(out, w, "Vendor", getVendor());
    lineStr(out, w, "BIOSVersion", getVersion());
    line4(out, w, "StartingAddrSegment", startAddrSeg);
    lineStr(out, w, "ReleaseDate", getReleaseDate());
    std::fprintf(out, "\n   %-*s: x%02X (%d KB)", w, "ROMSize", romSize, getROMSizeKB());
    std::fprintf(out, "\n   %-*s: x%08lX", w, "CharacteristicsLow",
                 static_cast<unsigned long>(charLow));
    std::fprintf(out, "\n   %-*s: x%08lX", w, "CharacteristicsHigh",
                 static_cast<unsigned long>(charHigh));
    line2(out, w, "ExtensionByte1", extByte1);
}

// ---- type 1 -----------------------------------------------------------------------

int SMBIOSTable1Data::readBlock(const unsigned char* bytes, int offset, int size) {
    SMBIOSTableData::readBlock(bytes, offset, size);
    manufacturer = rd8(0x04);
    product = rd8(0x05);
    version = rd8(0x06);
    serial = rd8(0x07);
    if (gateMinorNonZero()) {
        for (int i = 0; i < 16; ++i)
            uuid[i] = static_cast<unsigned char>(rd8(0x08 + i));
        wakeUpType = rd8(0x18);
    }
    return finishBlock(bytes, offset, size);
}

const char* SMBIOSTable1Data::getUUIDAsString() const {
    static char buf[33];
    bool any = false;
    for (int i = 0; i < 16; ++i) {
        std::snprintf(buf + 2 * i, 3, "%02X", uuid[i]);
        any = any || uuid[i] != 0;
    }
    return any ? buf : nullptr;
}

void SMBIOSTable1Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    const int w = 13;
    std::fprintf(out, "\nSMBIOS Table 1 Data - System Information");
    lineStr(out, w, "Manufacturer", getManufacturer());
    lineStr(out, w, "ProductName", getProduct());
    lineStr(out, w, "Version", getVersion());
    lineStr(out, w, "SerialNumber", getSerialNumber());
    if (gateMinorNonZero()) {
        const char* u = getUUIDAsString();
        std::fprintf(out, "\n   %-*s: >%s<", w, "UUID", u ? u : "");
        line2(out, w, "WakeUpType", wakeUpType);
    }
}

// ---- type 2 -----------------------------------------------------------------------

int SMBIOSTable2Data::readBlock(const unsigned char* bytes, int offset, int size) {
    SMBIOSTableData::readBlock(bytes, offset, size);
    manufacturer = rd8(0x04);
    product = rd8(0x05);
    version = rd8(0x06);
    serial = rd8(0x07);
    return finishBlock(bytes, offset, size);
}

void SMBIOSTable2Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    const int w = 13;
    std::fprintf(out, "\nSMBIOS Table 2 Data - Base Board Information");
    lineStr(out, w, "Manufacturer", getManufacturer());
    lineStr(out, w, "Product", getProduct());
    lineStr(out, w, "Version", getVersion());
    lineStr(out, w, "SerialNumber", getSerialNumber());
}

// ---- type 3 -----------------------------------------------------------------------

int SMBIOSTable3Data::readBlock(const unsigned char* bytes, int offset, int size) {
    SMBIOSTableData::readBlock(bytes, offset, size);
    manufacturer = rd8(0x04);
    chassisType = rd8(0x05);
    version = rd8(0x06);
    serial = rd8(0x07);
    assetTag = rd8(0x08);
    return finishBlock(bytes, offset, size);
}

void SMBIOSTable3Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    const int w = 13;
    std::fprintf(out, "\nSMBIOS Table 3 Data - System Enclosure or Chassis");
    lineStr(out, w, "Manufacturer", getManufacturer());
    line2(out, w, "Type", chassisType);
    lineStr(out, w, "Version", getVersion());
    lineStr(out, w, "SerialNumber", getSerialNumber());
    lineStr(out, w, "AssetTag", getAssetTag());
}

// ---- type 4 -----------------------------------------------------------------------

int SMBIOSTable4Data::readBlock(const unsigned char* bytes, int offset, int size) {
    SMBIOSTableData::readBlock(bytes, offset, size);
    socket = rd8(0x04);
    procType = rd8(0x05);
    family = rd8(0x06);
    manufacturer = rd8(0x07);
    eax = rd32(0x08);
    edx = rd32(0x0C);
    version = rd8(0x10);
    voltage = rd8(0x11);
    externalClock = rd16(0x12);
    maxSpeed = rd16(0x14);
    currentSpeed = rd16(0x16);
    status = rd8(0x18);
    upgrade = rd8(0x19);
    if (gateMinorAbove2()) {
        serial = rd8(0x20);
        assetTag = rd8(0x21);
    }
    return finishBlock(bytes, offset, size);
}

double SMBIOSTable4Data::getVoltageInVolts() const {
    if (voltage & 0x80u) return (voltage & 0x7Fu) * 0.1;
    if (voltage & 0x01u) return 5.0;
    if (voltage & 0x02u) return 3.3;
    if (voltage & 0x04u) return 2.9;
    return 0.0;
}

void SMBIOSTable4Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    const int w = 18;
    std::fprintf(out, "\nSMBIOS Table 4 Data - Processor Information");
    lineStr(out, w, "SocketDesignation", getSocket());
    line2(out, w, "ProcessorType", procType);
    line2(out, w, "ProcessorFamily", family);
    lineStr(out, w, "Manufacturer", getManufacturer());
    std::fprintf(out, "\n   %-*s: x%08lX x%08lX", w, "ProcessorID", static_cast<unsigned long>(eax),
                 static_cast<unsigned long>(edx));
    lineStr(out, w, "Version", getVersion());
    std::fprintf(out, "\n   %-*s: x%02X (%.1f V)", w, "Voltage", voltage, getVoltageInVolts());
    line4(out, w, "ExternalClock", externalClock);
    line4(out, w, "MaxSpeed", maxSpeed);
    line4(out, w, "CurrentSpeed", currentSpeed);
    line2(out, w, "Status", status);
    line2(out, w, "Upgrade", upgrade);
    if (gateMinorAbove2()) {
        lineStr(out, w, "SerialNumber", getSerialNumber());
        lineStr(out, w, "AssetTag", getAssetTag());
    }
}

// ---- type 5 -----------------------------------------------------------------------

int SMBIOSTable5Data::readBlock(const unsigned char* bytes, int offset, int size) {
    int end = SMBIOSTableData::readBlock(bytes, offset, size);
    errDetect = rd8(0x04);
    errCorrect = rd8(0x05);
    supInterleave = rd8(0x06);
    curInterleave = rd8(0x07);
    maxModuleSize = rd8(0x08);
    supSpeeds = rd16(0x09);
    supTypes = rd16(0x0B);
    voltage = rd8(0x0D);
    numSlots = rd8(0x0E);
    // No string set is read. A non-zero byte right after the formatted area is taken
    // for the next structure (some firmware writes no terminator); otherwise the run of
    // zero bytes is passed over.
    if (end >= 0 && end < size && bytes[end] != 0) return end;
    while (end >= 0 && end < size && bytes[end] == 0)
        ++end;
    return end;
}

void SMBIOSTable5Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    const int w = 25;
    std::fprintf(out, "\nSMBIOS Table 5 Data - Memory Controller Information");
    line2(out, w, "ErrorDetectingMethod", errDetect);
    line2(out, w, "ErrorCorrectingCapability", errCorrect);
    line2(out, w, "SupportedInterleave", supInterleave);
    line2(out, w, "CurrentInterleave", curInterleave);
    line2(out, w, "MaxMemoryModuleSize", maxModuleSize);
    line4(out, w, "SupportedSpeeds", supSpeeds);
    line4(out, w, "SupportedMemoryTypes", supTypes);
    line2(out, w, "MemoryModuleVoltage", voltage);
    line2(out, w, "NumAssocMemorySlots", numSlots);
}

// ---- type 6 -----------------------------------------------------------------------

int SMBIOSTable6Data::readBlock(const unsigned char* bytes, int offset, int size) {
    SMBIOSTableData::readBlock(bytes, offset, size);
    socket = rd8(0x04);
    bankConnections = rd8(0x05);
    currentSpeed = rd8(0x06);
    memoryType = rd16(0x07);
    installedSize = rd8(0x09);
    enabledSize = rd8(0x0A);
    errorStatus = rd8(0x0B);
    return finishBlock(bytes, offset, size);
}

int SMBIOSTable6Data::sizeMB(unsigned code) {
    unsigned n = code & 0x7Fu; // bit 7 (double bank) does not change the size
    // 125..127 mean not determinable, not enabled, not installed; exponents that do
    // not fit the result are just as unusable.
    if (n >= 31) return -1;
    return static_cast<int>(1u << n);
}

void SMBIOSTable6Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    const int w = 17;
    std::fprintf(out, "\nSMBIOS Table 6 Data - Memory Module Information");
    lineStr(out, w, "SocketDesignation", getSocketDesignation());
    line2(out, w, "BankConnections", bankConnections);
    line2(out, w, "CurrentSpeed", currentSpeed);
    line4(out, w, "MemoryType", memoryType);
    std::fprintf(out, "\n   %-*s: x%02X (%d MB)", w, "InstalledSize", installedSize,
                 getInstalledSizeMB());
    std::fprintf(out, "\n   %-*s: x%02X (%d MB)", w, "EnabledSize", enabledSize,
                 getEnabledSizeMB());
    line2(out, w, "ErrorStatus", errorStatus);
}

// ---- type 8 -----------------------------------------------------------------------

int SMBIOSTable8Data::readBlock(const unsigned char* bytes, int offset, int size) {
    SMBIOSTableData::readBlock(bytes, offset, size);
    intDesignator = rd8(0x04);
    intType = rd8(0x05);
    extDesignator = rd8(0x06);
    extType = rd8(0x07);
    portType = rd8(0x08);
    return finishBlock(bytes, offset, size);
}

void SMBIOSTable8Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    const int w = 21;
    std::fprintf(out, "\nSMBIOS Table 8 Data - Port Connector Information");
    lineStr(out, w, "InternalDesignator", getInternalDesignator());
    line2(out, w, "InternalConnectorType", intType);
    lineStr(out, w, "ExternalDesignator", getExternalDesignator());
    line2(out, w, "ExternalConnectorType", extType);
    line2(out, w, "PortType", portType);
}

// ---- type 9 -----------------------------------------------------------------------

int SMBIOSTable9Data::readBlock(const unsigned char* bytes, int offset, int size) {
    SMBIOSTableData::readBlock(bytes, offset, size);
    designation = rd8(0x04);
    slotType = rd8(0x05);
    busWidth = rd8(0x06);
    currentUsage = rd8(0x07);
    slotLength = rd8(0x08);
    slotID = rd16(0x09);
    char1 = rd8(0x0B);
    if (gateMinorNonZero()) char2 = rd8(0x0C);
    return finishBlock(bytes, offset, size);
}

void SMBIOSTable9Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    const int w = 20;
    std::fprintf(out, "\nSMBIOS Table 9 Data - System Slots");
    lineStr(out, w, "SlotDesignation", getSlotDesignation());
    line2(out, w, "SlotType", slotType);
    line2(out, w, "SlotDataBusWidth", busWidth);
    line2(out, w, "CurrentUsage", currentUsage);
    line2(out, w, "SlotLength", slotLength);
    line4(out, w, "SlotID", slotID);
    line2(out, w, "SlotCharacteristics1", char1);
    if (gateMinorNonZero()) line2(out, w, "SlotCharacteristics2", char2);
}

// ---- type 10 ----------------------------------------------------------------------

int SMBIOSTable10Data::readBlock(const unsigned char* bytes, int offset, int size) {
    SMBIOSTableData::readBlock(bytes, offset, size);
    deviceType = rd8(0x04);
    description = rd8(0x05);
    return finishBlock(bytes, offset, size);
}

void SMBIOSTable10Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    const int w = 11;
    std::fprintf(out, "\nSMBIOS Table 10 Data - On Board Devices Information");
    std::fprintf(out, "\n   %-*s: x%02X (type %u, %s)", w, "DeviceType", deviceType,
                 getDeviceTypeActual(), isEnabled() ? "enabled" : "disabled");
    lineStr(out, w, "Description", getDescription());
}

// ---- type 11 ----------------------------------------------------------------------

int SMBIOSTable11Data::readBlock(const unsigned char* bytes, int offset, int size) {
    SMBIOSTableData::readBlock(bytes, offset, size);
    count = rd8(0x04);
    return finishBlock(bytes, offset, size);
}

void SMBIOSTable11Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    const int w = 9;
    std::fprintf(out, "\nSMBIOS Table 11 Data - OEM Strings");
    line2(out, w, "Count", count);
    for (int i = 1; i <= static_cast<int>(count) && i <= kStringSlots; ++i) {
        char name[16];
        std::snprintf(name, sizeof name, "String%d", i);
        lineStr(out, w, name, getString(i));
    }
}

// ---- type 16 ----------------------------------------------------------------------

int SMBIOSTable16Data::readBlock(const unsigned char* bytes, int offset, int size) {
    int end = SMBIOSTableData::readBlock(bytes, offset, size);
    location = rd8(0x04);
    use = rd8(0x05);
    errCorrection = rd8(0x06);
    maxCapacity = rd32(0x07);
    errHandle = rd16(0x0B);
    numDevices = rd16(0x0D);
    // No string set is read: every zero byte after the formatted area is passed over.
    while (end >= 0 && end < size && bytes[end] == 0)
        ++end;
    return end;
}

void SMBIOSTable16Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    const int w = 21;
    std::fprintf(out, "\nSMBIOS Table 16 Data - Physical Memory Array");
    line2(out, w, "Location", location);
    line2(out, w, "Use", use);
    line2(out, w, "MemoryErrorCorrection", errCorrection);
    std::fprintf(out, "\n   %-*s: x%08lX (%lu KB)", w, "MaximumCapacity",
                 static_cast<unsigned long>(maxCapacity), static_cast<unsigned long>(maxCapacity));
    line4(out, w, "MemoryErrorHandle", errHandle);
    line4(out, w, "NumMemoryDevices", numDevices);
}

// ---- type 17 ----------------------------------------------------------------------

int SMBIOSTable17Data::readBlock(const unsigned char* bytes, int offset, int size) {
    SMBIOSTableData::readBlock(bytes, offset, size);
    arrayHandle = rd16(0x04);
    errHandle = rd16(0x06);
    totalWidth = rd16(0x08);
    dataWidth = rd16(0x0A);
    size_ = rd16(0x0C);
    formFactor = rd8(0x0E);
    deviceSet = rd8(0x0F);
    deviceLocator = rd8(0x10);
    bankLocator = rd8(0x11);
    memoryType = rd8(0x12);
    typeDetail = rd16(0x13);
    if (gateMinorAbove2()) {
        speed = rd16(0x15);
        manufacturer = rd8(0x17);
        serial = rd8(0x18);
        assetTag = rd8(0x19);
        partNumber = rd8(0x1A);
    }
    return finishBlock(bytes, offset, size);
}

uint32_t SMBIOSTable17Data::sizeKB(unsigned code) {
    if (code == 0xFFFFu) return 0;
    uint32_t v = code & 0x7FFFu;
    return (code & 0x8000u) ? v : v * 1024u;
}

void SMBIOSTable17Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    const int w = 18;
    std::fprintf(out, "\nSMBIOS Table 17 Data - Memory Device Information");
    line4(out, w, "MemoryArrayHandle", arrayHandle);
    line4(out, w, "MemoryErrorHandle", errHandle);
    line4(out, w, "TotalWidth", totalWidth);
    line4(out, w, "DataWidth", dataWidth);
    std::fprintf(out, "\n   %-*s: x%04X (%lu KB)", w, "Size", size_,
                 static_cast<unsigned long>(getSizeKB()));
    line2(out, w, "FormFactor", formFactor);
    line2(out, w, "DeviceSet", deviceSet);
    lineStr(out, w, "DeviceLocator", getDeviceLocator());
    lineStr(out, w, "BankLocator", getBankLocator());
    line2(out, w, "MemoryType", memoryType);
    line4(out, w, "TypeDetail", typeDetail);
    if (gateMinorAbove2()) {
        line4(out, w, "Speed", speed);
        lineStr(out, w, "Manufacturer", getManufacturer());
        lineStr(out, w, "SerialNumber", getSerialNumber());
        lineStr(out, w, "AssetTag", getAssetTag());
        lineStr(out, w, "PartNumber", getPartNumber());
    }
}

// ---- type 22 ----------------------------------------------------------------------

int SMBIOSTable22Data::readBlock(const unsigned char* bytes, int offset, int size) {
    SMBIOSTableData::readBlock(bytes, offset, size);
    location = rd8(0x04);
    manufacturer = rd8(0x05);
    manufactureDate = rd8(0x06);
    serial = rd8(0x07);
    deviceName = rd8(0x08);
    return finishBlock(bytes, offset, size);
}

void SMBIOSTable22Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    const int w = 15;
    std::fprintf(out, "\nSMBIOS Table 22 Data - Portable Battery");
    lineStr(out, w, "Location", getLocation());
    lineStr(out, w, "Manufacturer", getManufacturer());
    lineStr(out, w, "ManufactureDate", getManufactureDate());
    lineStr(out, w, "SerialNumber", getSerialNumber());
    lineStr(out, w, "DeviceName", getDeviceName());
}

// ---- type 24 ----------------------------------------------------------------------

int SMBIOSTable24Data::readBlock(const unsigned char* bytes, int offset, int size) {
    SMBIOSTableData::readBlock(bytes, offset, size);
    settings = rd8(0x04);
    return finishBlock(bytes, offset, size);
}

void SMBIOSTable24Data::dump(FILE* out) const {
    SMBIOSTableData::dump(out);
    std::fprintf(out, "\nSMBIOS Table 24 Data - Hardware Security");
    line2(out, 24, "HardwareSecuritySettings", settings);
}
