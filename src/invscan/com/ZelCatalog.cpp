// GROUPS_DEF, the scanned groups' attribute and key tables, their small
// enumerations and the catalogue look-ups. The long code lists live in
// ZelCatalogEnums.cpp, the tables of groups this platform does not scan in
// ZelCatalogOther.cpp.
#include "invscan/ZelDefs.h"

#include <cstring>

#define S(n) ZEL_STRING, n
#define U ZEL_ULONG, 0
#define DT ZEL_DATETIME, 0
#define ULL ZEL_ULONGLONG, 0
#define ATTR_END                                                                                   \
    { ZEL_DEF_END, nullptr, 0, 0, nullptr }
#define ENUM_END                                                                                   \
    { ZEL_DEF_END, nullptr }

const zelEnumDef HWSEC_POP_ENUM_DEF[] = {
    {0, "Disabled"}, {1, "Enabled"}, {2, "Unsupported"}, {3, "Unknown"}, ENUM_END};
const zelEnumDef STORAGE_SECURITY_ENABLED_ENUM_DEF[] = {
    {0, "Yes"}, {1, "No"}, {2, "Unsupported"}, {3, "Unknown"}, ENUM_END};
const zelEnumDef PART_TYPE_ENUM_DEF[] = {
    {0, "Unknown"}, {1, "Logical Drive"}, {2, "Remote Drive"}, {3, "Logical Volume"}, ENUM_END};
const zelEnumDef PART_MEDIA_TYPE_ENUM_DEF[] = {{0, "Unknown"},        {1, "No Root Directory"},
                                               {2, "Removable Disk"}, {3, "Local Disk"},
                                               {4, "Remote Drive"},   {5, "CD-ROM"},
                                               {6, "RAM Disk"},       ENUM_END};
const zelEnumDef REGIONAL_TZ_PLUS_MINUS[] = {{1, "+"}, {2, "-"}, ENUM_END};
const zelEnumDef REGIONAL_TZ_DAYLIGHT[] = {{1, "T"}, {2, "F"}, ENUM_END};

const zelAttribDef COMPONENTID_ATTRS_DEF[] = {{1, "Manufacturer", S(64), nullptr},
                                              {2, "Product", S(128), nullptr},
                                              {3, "Version", S(64), nullptr},
                                              {4, "Serial Number", S(64), nullptr},
                                              {5, "Installation", S(64), nullptr},
                                              {6, "Verify", S(64), nullptr},
                                              {7, "Type", S(32), nullptr},
                                              {8, "Model Class", S(64), nullptr},
                                              {9, "UUID", S(64), nullptr},
                                              {10, "Plant", S(64), nullptr},
                                              {11, "Sequence Code", S(64), nullptr},
                                              {12, "Model", S(64), nullptr},
                                              {13, "HW Serial", S(128), nullptr},
                                              {14, "Platform", S(128), nullptr},
                                              ATTR_END};

const zelAttribDef SCAN_INFO_ATTRS_DEF[] = {
    {1, "Manufacturer", S(64), nullptr}, {2, "Major Version", U, nullptr},
    {3, "Minor Version", U, nullptr},    {7, "Maintenance Version", U, nullptr},
    {9, "Patch Level", U, nullptr},      {4, "Scan Date", DT, nullptr},
    {5, "Build", S(64), nullptr},        {6, "Uptime", U, nullptr},
    {8, "MobilityFlag", U, nullptr},     ATTR_END};

const zelAttribDef OPER_SYS_ATTRS_DEF[] = {{1, "Name", S(128), nullptr},
                                           {2, "Type", U, OS_TYPE_ENUM_DEF},
                                           {3, "Major Version", U, nullptr},
                                           {4, "Minor Version", U, nullptr},
                                           {5, "Sub Version", S(64), nullptr},
                                           {6, "Install Date", DT, nullptr},
                                           {7, "Registered Organization", S(255), nullptr},
                                           {8, "Registered Owner", S(255), nullptr},
                                           {9, "Product ID", S(64), nullptr},
                                           {10, "OS Arch", S(24), nullptr},
                                           {11, "OS Kernel Mode", S(24), nullptr},
                                           {12, "Description String", S(255), nullptr},
                                           {13, "OS Language Version", S(64), nullptr},
                                           {14, "OS Locale ID", S(64), nullptr},
                                           {15, "OS Messages Locale", S(64), nullptr},
                                           {16, "Last Boot Up Time", DT, nullptr},
                                           {17, "Current User Locale ID", S(64), nullptr},
                                           {18, "OS Name", S(64), nullptr},
                                           {19, "OS Version", S(64), nullptr},
                                           {20, "ServicePack Version Major", U, nullptr},
                                           {21, "ServicePack Version Minor", U, nullptr},
                                           ATTR_END};

const zelAttribDef SMBIOS_ATTRS_DEF[] = {
    {1, "BIOS Vendor", S(64), nullptr},
    {2, "BIOS Version", S(64), nullptr},
    {3, "BIOS Date", S(16), nullptr},
    {4, "BIOS Size", S(8), nullptr},
    {5, "System Manufacturer", S(64), nullptr},
    {6, "System Product Name", S(64), nullptr},
    {7, "System Version", S(64), nullptr},
    {8, "System Serial Number", S(64), nullptr},
    {9, "System UUID", S(36), nullptr},
    {10, "Board Manufacturer", S(64), nullptr},
    {11, "Board Product", S(64), nullptr},
    {12, "Board Version", S(64), nullptr},
    {13, "Board Serial Number", S(64), nullptr},
    {14, "Enclosure Manufacturer", S(64), nullptr},
    {15, "Enclosure Type", U, ZEL_ATTRIB_SMBIOS_ENCLOSURE_TYPE_ENUM_DEF},
    {16, "Enclosure Version", S(64), nullptr},
    {17, "Enclosure Serial Number", S(64), nullptr},
    {18, "Enclosure Asset Tag", S(64), nullptr},
    {19, "ID", S(32), nullptr},
    {20, "PowerOn Password", U, HWSEC_POP_ENUM_DEF},
    {21, "BIOS ID Bytes", S(16), nullptr},
    {22, "BIOS ID", S(128), nullptr},
    {23, "BIOS Manufacturer", S(64), nullptr},
    ATTR_END};

const zelAttribDef MEMORY_ATTRS_DEF[] = {
    {1, "Total Physical", U, nullptr},      {2, "Free Physical", U, nullptr},
    {3, "Total Virtual", U, nullptr},       {4, "Free Virtual", U, nullptr},
    {5, "Total Page", U, nullptr},          {6, "Free Page", U, nullptr},
    {7, "Page Size", U, nullptr},           {8, "Max Memory MB", U, nullptr},
    {9, "Num Slots Supported", U, nullptr}, ATTR_END};

const zelAttribDef MEMORY_MODULES_ATTRS_DEF[] = {{1, "Index", U, nullptr},
                                                 {2, "Module Size MB", U, nullptr},
                                                 {3, "Max Module Size MB", U, nullptr},
                                                 {4, "Socket Name", S(24), nullptr},
                                                 {5, "Packaging", S(16), nullptr},
                                                 {6, "Memory Type", S(48), nullptr},
                                                 ATTR_END};

const zelAttribDef STORAGE_ATTRS_DEF[] = {
    {1, "Index", U, nullptr},
    {2, "ID", S(32), nullptr},
    {3, "Type", U, STORAGE_TYPE_ENUM_DEF},
    {4, "Model", S(255), nullptr},
    {5, "Manufacturer", S(128), nullptr},
    {6, "Serial Number", S(64), nullptr},
    {7, "Cylinders", U, nullptr},
    {8, "Sectors", U, nullptr},
    {9, "Heads", U, nullptr},
    {10, "Total Size", U, nullptr},
    {11, "Security Enabled", U, STORAGE_SECURITY_ENABLED_ENUM_DEF},
    ATTR_END};

const zelAttribDef NET_ADPTR_ATTRS_DEF[] = {{1, "Index", U, nullptr},
                                            {2, "ID", S(32), nullptr},
                                            {3, "Permanent Address", S(64), nullptr},
                                            {4, "Current Address", S(64), nullptr},
                                            {5, "Type", U, ADAPTER_TYPE_ENUM_DEF},
                                            {6, "Model", S(255), nullptr},
                                            {7, "Manufacturer", S(128), nullptr},
                                            {8, "Install Date", DT, nullptr},
                                            {9, "Connector Type", S(128), nullptr},
                                            {10, "Physical Type", S(64), nullptr},
                                            {11, "EtherChannel devices", S(128), nullptr},
                                            {12, "Driver Path", S(255), nullptr},
                                            {13, "Driver Version", S(255), nullptr},
                                            {14, "Driver Name", S(255), nullptr},
                                            {15, "Driver Manufacturer", S(255), nullptr},
                                            ATTR_END};

const zelAttribDef IP_ADDR_ATTRS_DEF[] = {{1, "Index", U, nullptr},
                                          {2, "Address", S(40), nullptr},
                                          {9, "DHCP Enabled", S(1), nullptr},
                                          {3, "Hostname", S(64), nullptr},
                                          {4, "Domain", S(64), nullptr},
                                          {5, "Subnet", S(40), nullptr},
                                          {6, "Gateway", S(40), nullptr},
                                          {7, "Primary DNS", S(40), nullptr},
                                          {8, "Secondary DNS", S(40), nullptr},
                                          {10, "Permanent Mac Address", S(64), nullptr},
                                          {11, "IPV6Address", S(64), nullptr},
                                          ATTR_END};

const zelAttribDef IPV6_ADDR_ATTRS_DEF[] = {{1, "Index", U, nullptr},
                                            {2, "Address", S(40), nullptr},
                                            {3, "Hostname", S(64), nullptr},
                                            {4, "Domain", S(64), nullptr},
                                            {5, "Subnet", S(40), nullptr},
                                            {6, "Gateway", S(40), nullptr},
                                            {7, "Primary DNS", S(40), nullptr},
                                            {8, "Secondary DNS", S(40), nullptr},
                                            {9, "Permanent Mac Address", S(64), nullptr},
                                            {10, "Scope", S(24), nullptr},
                                            {11, "Adapter Name", S(128), nullptr},
                                            ATTR_END};

const zelAttribDef PART_ATTRS_DEF[] = {{1, "Index", U, nullptr},
                                       {2, "Type", U, PART_TYPE_ENUM_DEF},
                                       {3, "Media Type", U, PART_MEDIA_TYPE_ENUM_DEF},
                                       {4, "Device Name", S(64), nullptr},
                                       {5, "Physical Size", ULL, nullptr},
                                       {6, "FS Type", U, FILE_SYSTEM_TYPE_ENUM_DEF},
                                       {7, "FS Access Point", S(255), nullptr},
                                       {8, "FS Mount Point", S(255), nullptr},
                                       {9, "FS Total Size", ULL, nullptr},
                                       {10, "FS Free Size", ULL, nullptr},
                                       {11, "Server Hostname", S(255), nullptr},
                                       {12, "Server Path", S(255), nullptr},
                                       ATTR_END};

const zelAttribDef REGIONAL_ATTRS_DEF[] = {{1, "Local", S(32), nullptr},
                                           {2, "Time Zone Seconds", U, nullptr},
                                           {3, "Time Zone Plus Minus", U, REGIONAL_TZ_PLUS_MINUS},
                                           {4, "Daylight", U, REGIONAL_TZ_DAYLIGHT},
                                           {5, "Time Zone Name", S(64), nullptr},
                                           {6, "Time Zone Daylight Name", S(64), nullptr},
                                           ATTR_END};

const zelAttribDef PHYS_PROC_ATTRS_DEF[] = {{1, "Id", S(64), nullptr},
                                            {4, "Manufacturer", S(64), nullptr},
                                            {5, "Family", S(64), nullptr},
                                            {6, "Type", S(64), nullptr},
                                            {2, "Core Per Package Count", U, nullptr},
                                            {3, "Logical Proc Per Core", U, nullptr},
                                            {7, "CpuFreq", U, nullptr},
                                            {8, "L2 Cache Size", U, nullptr},
                                            {9, "L3 Cache Size", U, nullptr},
                                            {10, "Brandname", S(128), nullptr},
                                            {11, "Signature", S(128), nullptr},
                                            {12, "Is64BitSupported", S(1), nullptr},
                                            {13, "Active Processor Count", U, nullptr},
                                            {14, "Active Core Count", U, nullptr},
                                            ATTR_END};

const uint32_t MEMORY_MODULES_KEYS_DEF[] = {1, ZEL_DEF_END};
const uint32_t STORAGE_KEYS_DEF[] = {1, 2, ZEL_DEF_END};
const uint32_t NETWORK_ADAPTER_KEYS_DEF[] = {2, ZEL_DEF_END};
const uint32_t IP_ADDRESS_KEYS_DEF[] = {2, ZEL_DEF_END};
const uint32_t IPV6_ADDRESS_KEYS_DEF[] = {2, ZEL_DEF_END};
const uint32_t PARTITION_KEYS_DEF[] = {1, 7, 8, ZEL_DEF_END};
const uint32_t PHYS_PROC_KEYS_DEF[] = {1, ZEL_DEF_END};

const zelGroupDef GROUPS_DEF[] = {
    {1, "ComponentID", COMPONENTID_ATTRS_DEF, nullptr, 0, 1, 0},
    {20, "Scan Info", SCAN_INFO_ATTRS_DEF, nullptr, 0, 1, 0},
    {4, "Operating System", OPER_SYS_ATTRS_DEF, nullptr, 0, 1, 0},
    {24, "SMBIOS", SMBIOS_ATTRS_DEF, nullptr, 0, 1, 0},
    {3, "Memory", MEMORY_ATTRS_DEF, nullptr, 0, 1, 0},
    {31, "Memory Modules", MEMORY_MODULES_ATTRS_DEF, MEMORY_MODULES_KEYS_DEF, 1, 1, 0},
    {5, "Storage", STORAGE_ATTRS_DEF, STORAGE_KEYS_DEF, 2, 1, 0},
    {7, "Network Adapter", NET_ADPTR_ATTRS_DEF, NETWORK_ADAPTER_KEYS_DEF, 1, 1, 0},
    {6, "IP Address", IP_ADDR_ATTRS_DEF, IP_ADDRESS_KEYS_DEF, 1, 1, 0},
    {51, "IPv6 Address", IPV6_ADDR_ATTRS_DEF, IPV6_ADDRESS_KEYS_DEF, 1, 1, 0},
    {27, "Partition", PART_ATTRS_DEF, PARTITION_KEYS_DEF, 3, 1, 0},
    {15, "Regional", REGIONAL_ATTRS_DEF, nullptr, 0, 1, 0},
    {44, "PhysicalProcessor", PHYS_PROC_ATTRS_DEF, PHYS_PROC_KEYS_DEF, 1, 1, 0},
    {ZEL_DEF_END, nullptr, nullptr, nullptr, 0, 0, 0}};

const char* getGroupNameFromId(unsigned long id) {
    const zelGroupDef* g = getGroupDefinitionFromId(id);
    return g ? g->name : "Unknown";
}

unsigned long getGroupIdFromName(const String& name) {
    std::string narrow = name.toMultiByte();
    for (const zelGroupDef* g = GROUPS_DEF; g->name; ++g)
        if (std::strcmp(g->name, narrow.c_str()) == 0) return g->id;
    return 0;
}

unsigned long getDebugMaskFromName(const char* name) {
    if (!name) return 0;
    for (const zelGroupDef* g = GROUPS_DEF; g->id != ZEL_DEF_END; ++g)
        if (g->name && std::strcmp(g->name, name) == 0) return g->debugMask;
    return 0;
}

const zelGroupDef* getGroupDefinitionFromId(unsigned long id) {
    for (const zelGroupDef* g = GROUPS_DEF; g->id != ZEL_DEF_END; ++g)
        if (g->id == id) return g;
    return nullptr;
}

const zelAttribDef* getAttribDefinitionFromId(const zelGroupDef* group, unsigned long attribId) {
    if (!group || !group->attribs) return nullptr;
    for (const zelAttribDef* a = group->attribs; a->id != ZEL_DEF_END; ++a)
        if (a->id == attribId) return a;
    return nullptr;
}

const char* getAttribNameFromId(const zelGroupDef* group, unsigned long attribId) {
    const zelAttribDef* a = getAttribDefinitionFromId(group, attribId);
    return a ? a->name : nullptr;
}

const char* getEnumAsciiValue(const zelGroupDef* group, unsigned long attribId,
                              unsigned long value) {
    if (!group || !group->attribs) return nullptr;
    // The value is looked up in the enumeration of the group's first attribute,
    // whichever attribute matched: long-standing behaviour that hosts rely on.
    const zelEnumDef* first = group->attribs[0].enumDef;
    for (const zelAttribDef* a = group->attribs; a->id != ZEL_DEF_END; ++a) {
        if (a->id != attribId) continue;
        const char* text = zelEnumText(first, value);
        if (text) return text;
    }
    return nullptr;
}

void PrintZelEnumToFile(std::FILE* file, const zelAttribDef* attrib) {
    if (!file || !attrib || !attrib->enumDef) return;
    for (const zelEnumDef* e = attrib->enumDef; e->value != ZEL_DEF_END; ++e)
        std::fprintf(file, "\n\t\t%d = \"%s\"", static_cast<int>(e->value), e->name);
}

unsigned long zelEnumCount(const zelEnumDef* e) {
    unsigned long n = 0;
    if (e)
        while (e[n].value != ZEL_DEF_END)
            ++n;
    return n;
}

unsigned long zelAttribCount(const zelAttribDef* a) {
    unsigned long n = 0;
    if (a)
        while (a[n].id != ZEL_DEF_END)
            ++n;
    return n;
}

const char* zelEnumText(const zelEnumDef* e, unsigned long value) {
    if (!e) return nullptr;
    for (; e->value != ZEL_DEF_END; ++e)
        if (e->value == value) return e->name;
    return nullptr;
}
