// Checks of the enumeration texts and of the attribute tables of the groups this
// platform does not scan. The spot checks were taken from the published lists (DMTF
// SMBIOS, DMTF CIM, partition-type lists, USB class codes), not from the tables.
#include "invscan/ZelCatalogOther.h"
#include "invscan/ZelDefs.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <set>
#include <string>

// The catalogue is laid out in 32-bit words on the system's own 32-bit platform.
static_assert(sizeof(void*) != 4 || sizeof(zelEnumDef) == 8, "enum row is 2 words");
static_assert(sizeof(void*) != 4 || sizeof(zelAttribDef) == 20, "attribute row is 5 words");
static_assert(sizeof(void*) != 4 || sizeof(zelGroupDef) == 28, "group row is 7 words");

namespace {

struct EnumCase {
    const char* name;
    const zelEnumDef* table;
    unsigned long count;
};

const EnumCase kEnums[] = {
    {"ZEL_ATTRIB_SMBIOS_ENCLOSURE_TYPE_ENUM_DEF", ZEL_ATTRIB_SMBIOS_ENCLOSURE_TYPE_ENUM_DEF, 25},
    {"ADAPTER_TYPE_ENUM_DEF", ADAPTER_TYPE_ENUM_DEF, 18},
    {"OS_TYPE_ENUM_DEF", OS_TYPE_ENUM_DEF, 72},
    {"STORAGE_TYPE_ENUM_DEF", STORAGE_TYPE_ENUM_DEF, 69},
    {"FILE_SYSTEM_TYPE_ENUM_DEF", FILE_SYSTEM_TYPE_ENUM_DEF, 105},
    {"PROCESSOR_FAMILY_ENUM_DEF", PROCESSOR_FAMILY_ENUM_DEF, 126},
    {"PROCESSOR_INTERFACE_ENUM_DEF", PROCESSOR_INTERFACE_ENUM_DEF, 25},
    {"POINTING_DEVICE_TYPE_ENUM_DEF", POINTING_DEVICE_TYPE_ENUM_DEF, 9},
    {"MODEM_DEVTYPE_ENUMS_DEF", MODEM_DEVTYPE_ENUMS_DEF, 5},
    {"MONITOR_STATUS_ENUMS_DEF", MONITOR_STATUS_ENUMS_DEF, 17},
    {"USB_DEVICE_CLASS_ENUM_DEF", USB_DEVICE_CLASS_ENUM_DEF, 19},
    {"USB_DEVICE_IS_HUB_ENUM_DEF", USB_DEVICE_IS_HUB_ENUM_DEF, 2},
};

TEST(CatalogEnums, CountsTerminatorAndOrder) {
    for (const EnumCase& c : kEnums) {
        SCOPED_TRACE(c.name);
        const unsigned long n = zelEnumCount(c.table);
        ASSERT_EQ(n, c.count);
        EXPECT_EQ(c.table[n].name, nullptr);
        for (unsigned long i = 0; i < n; ++i) {
            ASSERT_NE(c.table[i].name, nullptr) << "row " << i;
            EXPECT_GT(std::strlen(c.table[i].name), 0u) << "row " << i;
            // Rows ascend, which also makes every value unique.
            if (i > 0) {
                EXPECT_LT(c.table[i - 1].value, c.table[i].value) << "row " << i;
            }
        }
    }
}

struct Spot {
    const zelEnumDef* table;
    uint32_t value;
    const char* text; // null: the value must be absent
};

const Spot kSpots[] = {
    // Ends of each list, the values left out, and the standard's own spellings.
    {ZEL_ATTRIB_SMBIOS_ENCLOSURE_TYPE_ENUM_DEF, 1, "Other"},
    {ZEL_ATTRIB_SMBIOS_ENCLOSURE_TYPE_ENUM_DEF, 13, "All in One"},
    {ZEL_ATTRIB_SMBIOS_ENCLOSURE_TYPE_ENUM_DEF, 25, "Multi-system chassis"},
    {ZEL_ATTRIB_SMBIOS_ENCLOSURE_TYPE_ENUM_DEF, 0, nullptr},
    {ZEL_ATTRIB_SMBIOS_ENCLOSURE_TYPE_ENUM_DEF, 26, nullptr},
    {ADAPTER_TYPE_ENUM_DEF, 15, "Character Syncronous Adapter"},
    {ADAPTER_TYPE_ENUM_DEF, 18, nullptr},
    {ADAPTER_TYPE_ENUM_DEF, 19, "Loopback Adapter"},
    {OS_TYPE_ENUM_DEF, 37, "LINUX"},
    {OS_TYPE_ENUM_DEF, 64, "Windows Millenium"},
    {OS_TYPE_ENUM_DEF, 72, "Windows 7"},
    {STORAGE_TYPE_ENUM_DEF, 23, "DVD"},
    {STORAGE_TYPE_ENUM_DEF, 67, "Tape - DST Large"},
    {FILE_SYSTEM_TYPE_ENUM_DEF, 0x83, "Linux native"},
    {FILE_SYSTEM_TYPE_ENUM_DEF, 0xEE, "EFI GPT protective"},
    {FILE_SYSTEM_TYPE_ENUM_DEF, 282, "samba file system"},
    {FILE_SYSTEM_TYPE_ENUM_DEF, 65535, "UNKNOWN"},
    {PROCESSOR_FAMILY_ENUM_DEF, 0x2B, "Intel Atom processor"},
    {PROCESSOR_FAMILY_ENUM_DEF, 0xBE, nullptr}, // ambiguous: K7 or Core 2
    {PROCESSOR_FAMILY_ENUM_DEF, 0xBF, "Intel Core 2 Duo Processor"},
    {PROCESSOR_FAMILY_ENUM_DEF, 0xFE, nullptr}, // defers to the two-byte field
    {PROCESSOR_INTERFACE_ENUM_DEF, 0x19, "Socket LGA1366"},
    {POINTING_DEVICE_TYPE_ENUM_DEF, 7, "Touch Pad"},
    {USB_DEVICE_CLASS_ENUM_DEF, 0x04, nullptr},
    {USB_DEVICE_CLASS_ENUM_DEF, 0xFF, "Vendor Specific"},
    {MONITOR_STATUS_ENUMS_DEF, 15, "Power Save - Standby"},
};

TEST(CatalogEnums, SpotChecksAgainstPublishedLists) {
    for (const Spot& s : kSpots) {
        const char* got = zelEnumText(s.table, s.value);
        if (s.text == nullptr) {
            EXPECT_EQ(got, nullptr) << "value " << s.value << " should be absent";
        } else {
            ASSERT_NE(got, nullptr) << "value " << s.value << " missing, expected " << s.text;
            EXPECT_STREQ(got, s.text) << "value " << s.value;
        }
    }
}

struct OtherGroup {
    const char* name;
    const zelAttribDef* attribs;
    const uint32_t* keys;
};

const OtherGroup kOtherGroups[] = {
    {"cluster", CLUSTER_ATTRS_DEF, CLUSTER_KEYS_DEF},
    {"cluster node", CLUSTER_NODE_ATTRS_DEF, CLUSTER_NODE_KEYS_DEF},
    {"CPU meters", CPU_METERS_ATTRS_DEF, CPU_METERS_KEYS_DEF},
    {"disk partition", DISK_PARTITION_ATTRS_DEF, DISK_PARTITION_KEYS_DEF},
    {"enclosure", ENCLOSURE_ATTRS_DEF, ENCLOSURE_KEYS_DEF},
    {"installed patches", INSTALLED_PATCHES_ATTRS_DEF, INSTALLED_PATCHES_KEYS_DEF},
    {"installed packages", INSTALLED_PACKAGES_ATTRS_DEF, INSTALLED_PACKAGES_KEYS_DEF},
    {"IPX address", IPX_ADDR_ATTRS_DEF, IPX_ADDRESS_KEYS_DEF},
    {"keyboard", KEYBOARD_ATTRS_DEF, KEYBOARD_KEYS_DEF},
    {"last user", LAST_USER_ATTRS_DEF, LAST_USER_KEYS_DEF},
    {"logical partition", LOGICAL_PARTITION_ATTRS_DEF, LOGICAL_PARTITION_KEYS_DEF},
    {"logical drive", LOGICAL_DRIVE_ATTRS_DEF, LOGICAL_DRIVE_KEYS_DEF},
    {"modem", MODEM_ATTRS_DEF, MODEM_KEYS_DEF},
    {"monitor", MONITOR_ATTRS_DEF, MONITOR_KEYS_DEF},
    {"parallel port", PARALLEL_PORT_ATTRS_DEF, PARALLEL_PORT_KEYS_DEF},
    {"serial port", SERIAL_PORT_ATTRS_DEF, SERIAL_PORT_KEYS_DEF},
    {"PC card", PC_CARD_ATTRS_DEF, PC_CARD_KEYS_DEF},
    {"PCI device", PCI_DEVICE_ATTRS_DEF, PCI_DEVICE_KEYS_DEF},
    {"pointing device", POINTING_DEVICE_ATTRS_DEF, POINTING_DEVICE_KEYS_DEF},
    {"printer", PRINTER_ATTRS_DEF, PRINTER_KEYS_DEF},
    {"processor", PROCESSOR_ATTRS_DEF, PROCESSOR_KEYS_DEF},
    {"screen saver", SCREEN_SAVER_ATTRS_DEF, SCREEN_SAVER_KEYS_DEF},
    {"service information", SERVICE_INFO_ATTRS_DEF, SERVICE_INFO_KEYS_DEF},
    {"USB", USB_ATTRS_DEF, USB_KEYS_DEF},
};

const zelAttribDef* findAttrib(const zelAttribDef* a, uint32_t id) {
    for (; a->id != ZEL_DEF_END; ++a)
        if (a->id == id) return a;
    return nullptr;
}

TEST(CatalogOtherGroups, AttributeTablesAreWellFormed) {
    for (const OtherGroup& g : kOtherGroups) {
        SCOPED_TRACE(g.name);
        const unsigned long n = zelAttribCount(g.attribs);
        EXPECT_GE(n, 5u);
        EXPECT_LE(n, 15u);
        EXPECT_EQ(g.attribs[n].name, nullptr);
        EXPECT_EQ(g.attribs[n].enumDef, nullptr);
        std::set<uint32_t> ids;
        std::set<std::string> names;
        for (unsigned long i = 0; i < n; ++i) {
            const zelAttribDef& a = g.attribs[i];
            SCOPED_TRACE(a.name ? a.name : "(null)");
            ASSERT_NE(a.name, nullptr);
            EXPECT_GT(std::strlen(a.name), 0u);
            EXPECT_TRUE(ids.insert(a.id).second) << "duplicate id " << a.id;
            EXPECT_TRUE(names.insert(a.name).second) << "duplicate name";
            EXPECT_TRUE(a.id >= 1 && a.id <= n) << "id " << a.id;
            EXPECT_TRUE(a.type >= ZEL_UCHAR && a.type <= ZEL_LONGLONG) << "type " << a.type;
            if (a.type == ZEL_STRING) {
                EXPECT_GT(a.maxLength, 0u);
                EXPECT_LE(a.maxLength, 255u);
                EXPECT_EQ(a.enumDef, nullptr) << "strings are not enumerated";
            } else {
                EXPECT_EQ(a.maxLength, 0u);
            }
            if (a.enumDef != nullptr) {
                EXPECT_GT(zelEnumCount(a.enumDef), 0u);
            }
        }
    }
}

TEST(CatalogOtherGroups, KeysNameExistingAttributes) {
    for (const OtherGroup& g : kOtherGroups) {
        SCOPED_TRACE(g.name);
        unsigned long k = 0;
        std::set<uint32_t> seen;
        for (; k < 16 && g.keys[k] != ZEL_DEF_END; ++k) {
            EXPECT_NE(findAttrib(g.attribs, g.keys[k]), nullptr) << "key " << g.keys[k];
            EXPECT_TRUE(seen.insert(g.keys[k]).second) << "key " << g.keys[k] << " twice";
        }
        EXPECT_GE(k, 1u);
        EXPECT_LT(k, 16u) << "no terminator";
    }
}

} // namespace
