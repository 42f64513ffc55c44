// The exported definition catalogue: groups, their attributes, keys and the texts
// of enumerated values. Every table is an array of 32-bit words (pointers are
// words on the system's own 32-bit platform) ended by a row whose first word is
// ZEL_DEF_END.
#ifndef INVSCAN_ZELDEFS_H
#define INVSCAN_ZELDEFS_H

#include "invscan_export.h"
#include "String.h"

#include <cstdint>
#include <cstdio>

#define ZEL_DEF_END 0xFFFFFFFFu

// Attribute type codes.
enum {
    ZEL_UCHAR = 1,
    ZEL_USHORT = 2,
    ZEL_ULONG = 3,
    ZEL_UQUAD = 4,
    ZEL_FLOAT = 5,
    ZEL_DOUBLE = 6,
    ZEL_STRING = 7,
    ZEL_OCTETSTRING = 8,
    ZEL_DATETIME = 9,
    ZEL_ULONGLONG = 10,
    ZEL_LONGLONG = 11,
};

struct zelEnumDef {
    uint32_t value;
    const char* name;
};

struct zelAttribDef {
    uint32_t id;
    const char* name;
    uint32_t type;
    uint32_t maxLength; // characters, for strings; 0 otherwise
    const zelEnumDef* enumDef;
};

struct zelGroupDef {
    uint32_t id;
    const char* name;
    const zelAttribDef* attribs;
    const uint32_t* keys;
    uint32_t keyCount;
    uint32_t version;
    uint32_t debugMask;
};

// Group ids of GROUPS_DEF.
enum {
    ZEL_GROUP_COMPONENTID = 1,
    ZEL_GROUP_MEMORY = 3,
    ZEL_GROUP_OPER_SYS = 4,
    ZEL_GROUP_STORAGE = 5,
    ZEL_GROUP_IP_ADDRESS = 6,
    ZEL_GROUP_NETWORK_ADAPTER = 7,
    ZEL_GROUP_REGIONAL = 15,
    ZEL_GROUP_SCAN_INFO = 20,
    ZEL_GROUP_SMBIOS = 24,
    ZEL_GROUP_PARTITION = 27,
    ZEL_GROUP_MEMORY_MODULES = 31,
    ZEL_GROUP_PHYS_PROC = 44,
    ZEL_GROUP_IPV6_ADDRESS = 51,
};

#define INVSCAN_DEF extern INVSCAN_API const

INVSCAN_DEF zelGroupDef GROUPS_DEF[];

// Attribute and key tables of the scanned groups.
INVSCAN_DEF zelAttribDef COMPONENTID_ATTRS_DEF[];
INVSCAN_DEF zelAttribDef SCAN_INFO_ATTRS_DEF[];
INVSCAN_DEF zelAttribDef OPER_SYS_ATTRS_DEF[];
INVSCAN_DEF zelAttribDef SMBIOS_ATTRS_DEF[];
INVSCAN_DEF zelAttribDef MEMORY_ATTRS_DEF[];
INVSCAN_DEF zelAttribDef MEMORY_MODULES_ATTRS_DEF[];
INVSCAN_DEF zelAttribDef STORAGE_ATTRS_DEF[];
INVSCAN_DEF zelAttribDef NET_ADPTR_ATTRS_DEF[];
INVSCAN_DEF zelAttribDef IP_ADDR_ATTRS_DEF[];
INVSCAN_DEF zelAttribDef IPV6_ADDR_ATTRS_DEF[];
INVSCAN_DEF zelAttribDef PART_ATTRS_DEF[];
INVSCAN_DEF zelAttribDef REGIONAL_ATTRS_DEF[];
INVSCAN_DEF zelAttribDef PHYS_PROC_ATTRS_DEF[];

INVSCAN_DEF uint32_t MEMORY_MODULES_KEYS_DEF[];
INVSCAN_DEF uint32_t STORAGE_KEYS_DEF[];
INVSCAN_DEF uint32_t NETWORK_ADAPTER_KEYS_DEF[];
INVSCAN_DEF uint32_t IP_ADDRESS_KEYS_DEF[];
INVSCAN_DEF uint32_t IPV6_ADDRESS_KEYS_DEF[];
INVSCAN_DEF uint32_t PARTITION_KEYS_DEF[];
INVSCAN_DEF uint32_t PHYS_PROC_KEYS_DEF[];

// Enumerations of the scanned groups.
INVSCAN_DEF zelEnumDef HWSEC_POP_ENUM_DEF[];
INVSCAN_DEF zelEnumDef STORAGE_SECURITY_ENABLED_ENUM_DEF[];
INVSCAN_DEF zelEnumDef PART_TYPE_ENUM_DEF[];
INVSCAN_DEF zelEnumDef PART_MEDIA_TYPE_ENUM_DEF[];
INVSCAN_DEF zelEnumDef REGIONAL_TZ_PLUS_MINUS[];
INVSCAN_DEF zelEnumDef REGIONAL_TZ_DAYLIGHT[];
INVSCAN_DEF zelEnumDef ZEL_ATTRIB_SMBIOS_ENCLOSURE_TYPE_ENUM_DEF[];
INVSCAN_DEF zelEnumDef ADAPTER_TYPE_ENUM_DEF[];
INVSCAN_DEF zelEnumDef OS_TYPE_ENUM_DEF[];
INVSCAN_DEF zelEnumDef STORAGE_TYPE_ENUM_DEF[];
INVSCAN_DEF zelEnumDef FILE_SYSTEM_TYPE_ENUM_DEF[];

// Enumerations used by the tables of groups this platform does not scan.
INVSCAN_DEF zelEnumDef PROCESSOR_FAMILY_ENUM_DEF[];
INVSCAN_DEF zelEnumDef PROCESSOR_INTERFACE_ENUM_DEF[];
INVSCAN_DEF zelEnumDef POINTING_DEVICE_TYPE_ENUM_DEF[];
INVSCAN_DEF zelEnumDef MODEM_DEVTYPE_ENUMS_DEF[];
INVSCAN_DEF zelEnumDef MONITOR_STATUS_ENUMS_DEF[];
INVSCAN_DEF zelEnumDef USB_DEVICE_CLASS_ENUM_DEF[];
INVSCAN_DEF zelEnumDef USB_DEVICE_IS_HUB_ENUM_DEF[];

// Catalogue look-ups: linear searches that stop at the terminator.
INVSCAN_API const char* getGroupNameFromId(unsigned long id);
INVSCAN_API unsigned long getGroupIdFromName(const String& name);
INVSCAN_API unsigned long getDebugMaskFromName(const char* name);
INVSCAN_API const zelGroupDef* getGroupDefinitionFromId(unsigned long id);
INVSCAN_API const char* getAttribNameFromId(const zelGroupDef* group, unsigned long attribId);
INVSCAN_API const zelAttribDef* getAttribDefinitionFromId(const zelGroupDef* group,
                                                          unsigned long attribId);
INVSCAN_API const char* getEnumAsciiValue(const zelGroupDef* group, unsigned long attribId,
                                          unsigned long value);
INVSCAN_API void PrintZelEnumToFile(std::FILE* file, const zelAttribDef* attrib);

// Number of rows before the terminator (enumerations and attribute tables).
INVSCAN_API unsigned long zelEnumCount(const zelEnumDef* e);
INVSCAN_API unsigned long zelAttribCount(const zelAttribDef* a);
// Text of a value in an enumeration, or null.
INVSCAN_API const char* zelEnumText(const zelEnumDef* e, unsigned long value);

#endif
