// Placeholder until the full code lists land.
#include "ZelDefs.h"
#define ENUM_END {ZEL_DEF_END, nullptr}
const zelEnumDef ZEL_ATTRIB_SMBIOS_ENCLOSURE_TYPE_ENUM_DEF[] = {ENUM_END};
const zelEnumDef ADAPTER_TYPE_ENUM_DEF[] = {ENUM_END};
const zelEnumDef OS_TYPE_ENUM_DEF[] = {ENUM_END};
const zelEnumDef STORAGE_TYPE_ENUM_DEF[] = {ENUM_END};
const zelEnumDef FILE_SYSTEM_TYPE_ENUM_DEF[] = {ENUM_END};
const zelEnumDef PROCESSOR_FAMILY_ENUM_DEF[] = {ENUM_END};
const zelEnumDef PROCESSOR_INTERFACE_ENUM_DEF[] = {ENUM_END};
const zelEnumDef POINTING_DEVICE_TYPE_ENUM_DEF[] = {ENUM_END};
const zelEnumDef MODEM_DEVTYPE_ENUMS_DEF[] = {ENUM_END};
const zelEnumDef MONITOR_STATUS_ENUMS_DEF[] = {ENUM_END};
const zelEnumDef USB_DEVICE_CLASS_ENUM_DEF[] = {ENUM_END};
const zelEnumDef USB_DEVICE_IS_HUB_ENUM_DEF[] = {ENUM_END};
