// Record getters: revision gates, conversions and the release-date forms.
#include "invscan/SMBIOSTable.h"
#include "smbios_builder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace {

std::vector<uint8_t> type17Fields() {
    return cat({le16(0x1000),
                le16(0xFFFE),
                le16(64),
                le16(64),
                le16(0x0800),
                {0x09, 0, 1, 2, 0x18},
                le16(0x0080),
                le16(1333),
                {3, 4, 5, 6}});
}

TEST(SMBIOSRecords, Type17Gate) {
    struct Case {
        int revision;
        bool gated;
    };
    // major = high byte, minor = low byte; the snapshot's revision 0 never passes.
    const Case cases[] = {{0x0203, true},  {0x0207, true}, {0x0202, false},
                          {0x0300, false}, {0x23, false},  {0, false}};
    TableBuilder b;
    b.add(17, type17Fields(), {"DIMM0", "BANK 0", "Maker", "SN1", "AT1", "PN1"});
    for (const Case& c : cases) {
        SMBIOSTable17Data r(c.revision);
        r.readBlock(b.bytes.data(), 0, static_cast<int>(b.bytes.size()));
        EXPECT_STREQ(r.getDeviceLocator(), "DIMM0");
        EXPECT_STREQ(r.getBankLocator(), "BANK 0");
        EXPECT_EQ(r.getSize(), 0x0800u);
        EXPECT_EQ(r.getSizeKB(), 2048u * 1024u);
        EXPECT_EQ(r.getTypeDetail(), 0x80u);
        EXPECT_EQ(r.getSpeed(), c.gated ? 1333u : 0u) << std::hex << c.revision;
        if (c.gated) {
            EXPECT_STREQ(r.getManufacturer(), "Maker");
            EXPECT_STREQ(r.getSerialNumber(), "SN1");
            EXPECT_STREQ(r.getAssetTag(), "AT1");
            EXPECT_STREQ(r.getPartNumber(), "PN1");
        } else {
            EXPECT_EQ(r.getManufacturer(), nullptr);
            EXPECT_EQ(r.getPartNumber(), nullptr);
        }
    }
}

TEST(SMBIOSRecords, Type1And4And9Gates) {
    std::vector<uint8_t> uuid = {0x44, 0x45, 0x4C, 0x4C, 0x35, 0,    0x10, 0x4E,
                                 0x80, 0x48, 0xB2, 0xC0, 0x4F, 0x47, 0x4B, 0x31};
    TableBuilder b1;
    b1.add(1, type1Fields(1, 2, 3, 4, uuid), {"M", "P", "V", "S"});
    TableBuilder b4;
    b4.add(4,
           cat({{1, 3, 0xB3, 2},
                le32(0x000106A5),
                le32(0xBFEBFBFF),
                {3, 0x8C},
                le16(133),
                le16(3200),
                le16(2666),
                {0x41, 0x16},
                le16(1),
                le16(2),
                le16(3),
                {4, 5, 6}}),
           {"CPU 1", "Intel", "Xeon", "SN", "AT", "PN"});
    TableBuilder b9;
    b9.add(9, cat({{1, 0xA6, 0x0B, 4, 4}, le16(7), {0x0C, 0x03}}), {"PCIE1"});
    struct Case {
        int revision;
        bool uuidAndWake, procStrings, slot2;
    };
    const Case cases[] = {{0x0206, true, true, true},
                          {0x0201, true, false, true},
                          {0x0200, false, false, false},
                          {0x0300, false, false, false}};
    for (const Case& c : cases) {
        SMBIOSTable1Data r1(c.revision);
        r1.readBlock(b1.bytes.data(), 0, static_cast<int>(b1.bytes.size()));
        EXPECT_STREQ(r1.getSerialNumber(), "S");
        if (c.uuidAndWake) {
            EXPECT_STREQ(r1.getUUIDAsString(), "44454C4C3500104E8048B2C04F474B31");
            EXPECT_EQ(r1.getWakeUpType(), 6u);
        } else {
            EXPECT_EQ(r1.getUUIDAsString(), nullptr);
            EXPECT_EQ(r1.getWakeUpType(), 0u);
        }
        SMBIOSTable4Data r4(c.revision);
        r4.readBlock(b4.bytes.data(), 0, static_cast<int>(b4.bytes.size()));
        EXPECT_STREQ(r4.getVersion(), "Xeon");
        EXPECT_EQ(r4.getSerialNumber() != nullptr, c.procStrings);
        EXPECT_EQ(r4.getAssetTag() != nullptr, c.procStrings);
        SMBIOSTable9Data r9(c.revision);
        r9.readBlock(b9.bytes.data(), 0, static_cast<int>(b9.bytes.size()));
        EXPECT_EQ(r9.getSlotCharacteristics1(), 0x0Cu);
        EXPECT_EQ(r9.getSlotCharacteristics2(), c.slot2 ? 0x03u : 0u);
    }
    SMBIOSTable4Data r4(0);
    r4.readBlock(b4.bytes.data(), 0, static_cast<int>(b4.bytes.size()));
    EXPECT_EQ(r4.getCPUIDStepping(), 5u);
    EXPECT_EQ(r4.getCPUIDModel(), 0xAu);
    EXPECT_EQ(r4.getCPUIDFamily(), 6u);
    EXPECT_EQ(r4.getEDX(), 0xBFEBFBFFu);
    EXPECT_EQ(r4.getExternalClock(), 133u);
    EXPECT_EQ(r4.getCurrentSpeed(), 2666u);
    EXPECT_TRUE(r4.isPopulated());
    EXPECT_DOUBLE_EQ(r4.getVoltageInVolts(), 12 * 0.1);
}

TEST(SMBIOSRecords, Voltage) {
    const std::pair<uint8_t, double> cases[] = {{0x8C, 1.2}, {0x02, 3.3}, {0x07, 5.0},
                                                {0x04, 2.9}, {0x00, 0.0}, {0x80, 0.0}};
    for (const auto& c : cases) {
        TableBuilder b;
        b.add(4, cat({{0, 3, 0, 0}, le32(0), le32(0), {0, c.first}}));
        SMBIOSTable4Data r(0);
        r.readBlock(b.bytes.data(), 0, static_cast<int>(b.bytes.size()));
        EXPECT_NEAR(r.getVoltageInVolts(), c.second, 1e-9) << int(c.first);
    }
}

TEST(SMBIOSRecords, MemorySizes) {
    const std::pair<unsigned, int> t6[] = {{0x8A, 1024}, {0x0A, 1024}, {0x7F, -1},     {0x7D, -1},
                                           {0x7E, -1},   {0x00, 1},    {0x1E, 1 << 30}};
    for (const auto& c : t6)
        EXPECT_EQ(SMBIOSTable6Data::sizeMB(c.first), c.second) << c.first;
    const std::pair<unsigned, uint32_t> t17[] = {
        {0x8200, 512}, {0x0200, 524288}, {0xFFFF, 0}, {0, 0}, {0x7FFF, 32767u * 1024u}};
    for (const auto& c : t17)
        EXPECT_EQ(SMBIOSTable17Data::sizeKB(c.first), c.second) << c.first;
}

TEST(SMBIOSRecords, ReleaseDateForms) {
    struct Case {
        const char* in;
        const char* out;
    };
    const Case cases[] = {
        {"12/25/2003", "2003-12-25"},
        {"12/25/03", "2003-12-25"},
        {"12/25/13", "1913-12-25"},
        {"12/25/99", "1999-12-25"},
        {"2013/12/25", "2/25-20-3/"},
        {"03.12.5.", "1903-12-05"},
        {"12/25/2003 10:11:12", "2003-12-25"},
        {"v1.2", "v1.2"},
        {"", ""},
        {"0123456789ABCDEFGHIJ", "0123456789ABCDE"},
    };
    for (const Case& c : cases) {
        char* d = SMBIOSTable0Data::normaliseDate(c.in);
        EXPECT_STREQ(d, c.out) << c.in;
        std::free(d);
    }
    EXPECT_EQ(SMBIOSTable0Data::normaliseDate(nullptr), nullptr);
}

TEST(SMBIOSRecords, Type0Conversions) {
    TableBuilder b;
    std::vector<uint8_t> f = type0Fields(0x0F);
    f[6] = 0x80 | 0x10; // characteristics low byte: PCI and ISA
    f[7] = 0x08;        // bit 11: flashable
    f[14] = 0x03;       // extension byte 1: ACPI, USB legacy
    b.add(0, f, {"Vendor", "1.0", "06/15/2004"});
    SMBIOSTable0Data r(0);
    r.readBlock(b.bytes.data(), 0, static_cast<int>(b.bytes.size()));
    EXPECT_EQ(r.getROMSizeKB(), 1024);
    EXPECT_EQ(r.getStartAddrSeg(), 0xE800u);
    EXPECT_TRUE(r.isPCISupported());
    EXPECT_TRUE(r.isISASupported());
    EXPECT_FALSE(r.isMCASupported());
    EXPECT_TRUE(r.isFlashableBIOS());
    EXPECT_TRUE(r.isACPISupported());
    EXPECT_TRUE(r.isUSBLegacySupported());
    EXPECT_FALSE(r.isAGPSupported());
    time_t t = r.getReleaseDateAsTimeT();
    struct tm lt;
    localtime_r(&t, &lt);
    EXPECT_EQ(lt.tm_year, 104);
    EXPECT_EQ(lt.tm_mon, 5);
    EXPECT_EQ(lt.tm_mday, 15);
    EXPECT_EQ(lt.tm_hour, 0);
    SMBIOSTable0Data none(0);
    EXPECT_EQ(none.getReleaseDateAsTimeT(), 0);
    EXPECT_EQ(none.getReleaseDateAsYYYYMMDD(), nullptr);
}

TEST(SMBIOSRecords, Type10OnlyFirstDevice) {
    TableBuilder b;
    b.add(10, {0x83, 1, 0x05, 2}, {"Video", "Sound"});
    SMBIOSTable10Data r(0);
    r.readBlock(b.bytes.data(), 0, static_cast<int>(b.bytes.size()));
    EXPECT_EQ(r.getDeviceType(), 0x83u);
    EXPECT_EQ(r.getDeviceTypeActual(), 3u);
    EXPECT_TRUE(r.isEnabled());
    EXPECT_STREQ(r.getDescription(), "Video");
    SMBIOSTable11Data r11(0);
    TableBuilder b11;
    b11.add(11, {2}, {"one", "two"});
    r11.readBlock(b11.bytes.data(), 0, static_cast<int>(b11.bytes.size()));
    EXPECT_EQ(r11.getCount(), 2u);
    EXPECT_STREQ(r11.getString(2), "two");
}

TEST(SMBIOSRecords, ReadingAgainReplacesTheStrings) {
    // A record object read a second time holds the second structure only.
    struct Case {
        std::vector<std::string> first, second;
    };
    const Case cases[] = {{{"A", "B", "C"}, {"x"}}, {{"A"}, {}}, {{}, {"p", "q"}}};
    for (const Case& c : cases) {
        TableBuilder b1, b2;
        b1.add(2, {1, 2, 3, 0}, c.first);
        b2.add(2, {1, 2, 3, 0}, c.second);
        SMBIOSTable2Data r(0);
        r.readBlock(b1.bytes.data(), 0, static_cast<int>(b1.bytes.size()));
        r.readBlock(b2.bytes.data(), 0, static_cast<int>(b2.bytes.size()));
        for (int i = 1; i <= 3; ++i) {
            const char* s = r.stringFromIndex(i);
            if (static_cast<size_t>(i) <= c.second.size())
                EXPECT_STREQ(s, c.second[i - 1].c_str());
            else
                EXPECT_EQ(s, nullptr) << i;
        }
    }
}

TEST(SMBIOSRecords, FieldsPastTheLengthReadAsZero) {
    // A 2.0-era type 4 of 0x1A bytes: serial and asset tag lie beyond it.
    TableBuilder b;
    b.add(4,
          cat({{1, 3, 0xB3, 2},
               le32(1),
               le32(2),
               {3, 0x8C},
               le16(133),
               le16(3200),
               le16(2666),
               {0x41, 0x16}}),
          {"CPU", "Intel", "Pentium"});
    SMBIOSTable4Data r(0x0203);
    r.readBlock(b.bytes.data(), 0, static_cast<int>(b.bytes.size()));
    EXPECT_EQ(r.getSerialNumber(), nullptr);
    EXPECT_EQ(r.getUpgrade(), 0x16u);
    EXPECT_STREQ(r.getVersion(), "Pentium");
}

} // namespace
