// Attribute and key tables of the groups that this platform does not scan. Each is
// modelled on the DMTF CIM class of the same subject, its property names written as
// words in the style of the scanned groups; ids count from 1 in table order.
#include "invscan/ZelCatalogOther.h"

// One row per line, so that each can be checked against its list.
// clang-format off

// Cluster (after CIM_Cluster).
const zelAttribDef CLUSTER_ATTRS_DEF[] = {
    {1, "Name", ZEL_STRING, 64, nullptr},
    {2, "Description", ZEL_STRING, 255, nullptr},
    {3, "Cluster Type", ZEL_STRING, 64, nullptr},
    {4, "Node Count", ZEL_ULONG, 0, nullptr},
    {5, "Max Number Of Nodes", ZEL_ULONG, 0, nullptr},
    {6, "Interconnect", ZEL_STRING, 64, nullptr},
    {7, "Interconnect Address", ZEL_STRING, 64, nullptr},
    {8, "Cluster State", ZEL_STRING, 32, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t CLUSTER_KEYS_DEF[] = {1, ZEL_DEF_END};

// Cluster node: one member system of a cluster.
const zelAttribDef CLUSTER_NODE_ATTRS_DEF[] = {
    {1, "Cluster Name", ZEL_STRING, 64, nullptr},
    {2, "Node Name", ZEL_STRING, 64, nullptr},
    {3, "Node ID", ZEL_ULONG, 0, nullptr},
    {4, "Node State", ZEL_STRING, 32, nullptr},
    {5, "Node Address", ZEL_STRING, 40, nullptr},
    {6, "Node Weight", ZEL_ULONG, 0, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t CLUSTER_NODE_KEYS_DEF[] = {1, 2, ZEL_DEF_END};

// CPU meters: a load sample per processor (after CIM_Processor.LoadPercentage).
const zelAttribDef CPU_METERS_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Processor ID", ZEL_STRING, 64, nullptr},
    {3, "Load Percentage", ZEL_ULONG, 0, nullptr},
    {4, "User Time Percentage", ZEL_ULONG, 0, nullptr},
    {5, "System Time Percentage", ZEL_ULONG, 0, nullptr},
    {6, "Idle Time Percentage", ZEL_ULONG, 0, nullptr},
    {7, "Interrupts Per Second", ZEL_ULONG, 0, nullptr},
    {8, "Sample Time", ZEL_DATETIME, 0, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t CPU_METERS_KEYS_DEF[] = {1, ZEL_DEF_END};

// Disk partition (after CIM_DiskPartition); the type is the partition-table byte.
const zelAttribDef DISK_PARTITION_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Disk Index", ZEL_ULONG, 0, nullptr},
    {3, "Name", ZEL_STRING, 64, nullptr},
    {4, "Partition Type", ZEL_ULONG, 0, FILE_SYSTEM_TYPE_ENUM_DEF},
    {5, "Primary Partition", ZEL_STRING, 1, nullptr},
    {6, "Bootable", ZEL_STRING, 1, nullptr},
    {7, "Starting Offset", ZEL_ULONGLONG, 0, nullptr},
    {8, "Size", ZEL_ULONGLONG, 0, nullptr},
    {9, "Block Size", ZEL_ULONG, 0, nullptr},
    {10, "Number Of Blocks", ZEL_ULONGLONG, 0, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t DISK_PARTITION_KEYS_DEF[] = {1, ZEL_DEF_END};

// Enclosure (after CIM_Chassis and SMBIOS type 3).
const zelAttribDef ENCLOSURE_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Manufacturer", ZEL_STRING, 64, nullptr},
    {3, "Chassis Type", ZEL_ULONG, 0, ZEL_ATTRIB_SMBIOS_ENCLOSURE_TYPE_ENUM_DEF},
    {4, "Version", ZEL_STRING, 64, nullptr},
    {5, "Serial Number", ZEL_STRING, 64, nullptr},
    {6, "Asset Tag", ZEL_STRING, 64, nullptr},
    {7, "Lock Present", ZEL_STRING, 1, nullptr},
    {8, "Height", ZEL_ULONG, 0, nullptr},
    {9, "Number Of Power Cords", ZEL_ULONG, 0, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t ENCLOSURE_KEYS_DEF[] = {1, ZEL_DEF_END};

// Installed patches (after CIM_SoftwareElement).
const zelAttribDef INSTALLED_PATCHES_ATTRS_DEF[] = {
    {1, "Patch ID", ZEL_STRING, 64, nullptr},
    {2, "Description", ZEL_STRING, 255, nullptr},
    {3, "Install Date", ZEL_DATETIME, 0, nullptr},
    {4, "Installed By", ZEL_STRING, 64, nullptr},
    {5, "Product", ZEL_STRING, 128, nullptr},
    {6, "Service Pack In Effect", ZEL_STRING, 64, nullptr},
    {7, "Status", ZEL_STRING, 32, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t INSTALLED_PATCHES_KEYS_DEF[] = {1, ZEL_DEF_END};

// Installed packages (after CIM_Product).
const zelAttribDef INSTALLED_PACKAGES_ATTRS_DEF[] = {
    {1, "Name", ZEL_STRING, 255, nullptr},
    {2, "Version", ZEL_STRING, 64, nullptr},
    {3, "Vendor", ZEL_STRING, 128, nullptr},
    {4, "Install Date", ZEL_DATETIME, 0, nullptr},
    {5, "Install Location", ZEL_STRING, 255, nullptr},
    {6, "Identifying Number", ZEL_STRING, 64, nullptr},
    {7, "Description", ZEL_STRING, 255, nullptr},
    {8, "Size", ZEL_ULONGLONG, 0, nullptr},
    {9, "Language", ZEL_STRING, 32, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t INSTALLED_PACKAGES_KEYS_DEF[] = {1, 2, ZEL_DEF_END};

// IPX address (after CIM_IPXProtocolEndpoint).
const zelAttribDef IPX_ADDR_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Address", ZEL_STRING, 32, nullptr},
    {3, "Network Number", ZEL_STRING, 8, nullptr},
    {4, "Node Address", ZEL_STRING, 12, nullptr},
    {5, "Frame Type", ZEL_STRING, 32, nullptr},
    {6, "Adapter Name", ZEL_STRING, 128, nullptr},
    {7, "Permanent Mac Address", ZEL_STRING, 64, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t IPX_ADDRESS_KEYS_DEF[] = {2, ZEL_DEF_END};

// Keyboard (after CIM_Keyboard).
const zelAttribDef KEYBOARD_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Description", ZEL_STRING, 255, nullptr},
    {3, "Layout", ZEL_STRING, 64, nullptr},
    {4, "Number Of Function Keys", ZEL_ULONG, 0, nullptr},
    {5, "Manufacturer", ZEL_STRING, 128, nullptr},
    {6, "Interface", ZEL_STRING, 32, nullptr},
    {7, "Is Locked", ZEL_STRING, 1, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t KEYBOARD_KEYS_DEF[] = {1, ZEL_DEF_END};

// Last user logged on.
const zelAttribDef LAST_USER_ATTRS_DEF[] = {
    {1, "User Name", ZEL_STRING, 64, nullptr},
    {2, "Domain", ZEL_STRING, 64, nullptr},
    {3, "Full Name", ZEL_STRING, 128, nullptr},
    {4, "Logon Time", ZEL_DATETIME, 0, nullptr},
    {5, "Logoff Time", ZEL_DATETIME, 0, nullptr},
    {6, "Session Type", ZEL_STRING, 32, nullptr},
    {7, "Host", ZEL_STRING, 64, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t LAST_USER_KEYS_DEF[] = {1, ZEL_DEF_END};

// Logical partition of a partitioned server (after CIM_ComputerSystem).
const zelAttribDef LOGICAL_PARTITION_ATTRS_DEF[] = {
    {1, "Partition Name", ZEL_STRING, 64, nullptr},
    {2, "Partition Number", ZEL_ULONG, 0, nullptr},
    {3, "Partition Type", ZEL_STRING, 32, nullptr},
    {4, "Entitled Capacity", ZEL_ULONG, 0, nullptr},
    {5, "Virtual Processors", ZEL_ULONG, 0, nullptr},
    {6, "Memory MB", ZEL_ULONG, 0, nullptr},
    {7, "Shared Pool ID", ZEL_ULONG, 0, nullptr},
    {8, "Capped", ZEL_STRING, 1, nullptr},
    {9, "Host Serial Number", ZEL_STRING, 64, nullptr},
    {10, "Host Model", ZEL_STRING, 64, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t LOGICAL_PARTITION_KEYS_DEF[] = {2, ZEL_DEF_END};

// Logical drive (after CIM_LogicalDisk).
const zelAttribDef LOGICAL_DRIVE_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Device ID", ZEL_STRING, 64, nullptr},
    {3, "Volume Name", ZEL_STRING, 64, nullptr},
    {4, "Media Type", ZEL_STRING, 32, nullptr},
    {5, "File System", ZEL_ULONG, 0, FILE_SYSTEM_TYPE_ENUM_DEF},
    {6, "Size", ZEL_ULONGLONG, 0, nullptr},
    {7, "Free Space", ZEL_ULONGLONG, 0, nullptr},
    {8, "Volume Serial Number", ZEL_STRING, 32, nullptr},
    {9, "Compressed", ZEL_STRING, 1, nullptr},
    {10, "Mount Point", ZEL_STRING, 255, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t LOGICAL_DRIVE_KEYS_DEF[] = {2, ZEL_DEF_END};

// Modem (after CIM_POTSModem).
const zelAttribDef MODEM_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Name", ZEL_STRING, 128, nullptr},
    {3, "Device Type", ZEL_ULONG, 0, MODEM_DEVTYPE_ENUMS_DEF},
    {4, "Manufacturer", ZEL_STRING, 128, nullptr},
    {5, "Model", ZEL_STRING, 128, nullptr},
    {6, "Attached To", ZEL_STRING, 64, nullptr},
    {7, "Max Baud Rate", ZEL_ULONG, 0, nullptr},
    {8, "Dial Type", ZEL_STRING, 16, nullptr},
    {9, "Country Selected", ZEL_STRING, 64, nullptr},
    {10, "Provider Name", ZEL_STRING, 128, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t MODEM_KEYS_DEF[] = {1, ZEL_DEF_END};

// Monitor (after CIM_DesktopMonitor).
const zelAttribDef MONITOR_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Name", ZEL_STRING, 128, nullptr},
    {3, "Manufacturer", ZEL_STRING, 128, nullptr},
    {4, "Monitor Type", ZEL_STRING, 64, nullptr},
    {5, "Status", ZEL_ULONG, 0, MONITOR_STATUS_ENUMS_DEF},
    {6, "Screen Width", ZEL_ULONG, 0, nullptr},
    {7, "Screen Height", ZEL_ULONG, 0, nullptr},
    {8, "Pixels Per X Logical Inch", ZEL_ULONG, 0, nullptr},
    {9, "Pixels Per Y Logical Inch", ZEL_ULONG, 0, nullptr},
    {10, "Serial Number", ZEL_STRING, 64, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t MONITOR_KEYS_DEF[] = {1, ZEL_DEF_END};

// Parallel port (after CIM_ParallelController).
const zelAttribDef PARALLEL_PORT_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Name", ZEL_STRING, 64, nullptr},
    {3, "Description", ZEL_STRING, 255, nullptr},
    {4, "Protocol Supported", ZEL_STRING, 64, nullptr},
    {5, "DMA Support", ZEL_STRING, 1, nullptr},
    {6, "IO Address", ZEL_STRING, 16, nullptr},
    {7, "IRQ", ZEL_ULONG, 0, nullptr},
    {8, "Max Speed", ZEL_ULONG, 0, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t PARALLEL_PORT_KEYS_DEF[] = {1, ZEL_DEF_END};

// Serial port (after CIM_SerialController).
const zelAttribDef SERIAL_PORT_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Name", ZEL_STRING, 64, nullptr},
    {3, "Description", ZEL_STRING, 255, nullptr},
    {4, "Protocol Supported", ZEL_STRING, 32, nullptr},
    {5, "Max Baud Rate", ZEL_ULONG, 0, nullptr},
    {6, "IO Address", ZEL_STRING, 16, nullptr},
    {7, "IRQ", ZEL_ULONG, 0, nullptr},
    {8, "Device Path", ZEL_STRING, 255, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t SERIAL_PORT_KEYS_DEF[] = {1, ZEL_DEF_END};

// PC card (after CIM_PCMCIAController).
const zelAttribDef PC_CARD_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Socket", ZEL_STRING, 32, nullptr},
    {3, "Card Name", ZEL_STRING, 128, nullptr},
    {4, "Manufacturer", ZEL_STRING, 128, nullptr},
    {5, "Card Type", ZEL_STRING, 32, nullptr},
    {6, "Function", ZEL_STRING, 64, nullptr},
    {7, "Driver", ZEL_STRING, 128, nullptr},
    {8, "Status", ZEL_STRING, 32, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t PC_CARD_KEYS_DEF[] = {1, ZEL_DEF_END};

// PCI device (after CIM_PCIDevice).
const zelAttribDef PCI_DEVICE_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Bus Number", ZEL_ULONG, 0, nullptr},
    {3, "Device Number", ZEL_ULONG, 0, nullptr},
    {4, "Function Number", ZEL_ULONG, 0, nullptr},
    {5, "Vendor ID", ZEL_ULONG, 0, nullptr},
    {6, "Device ID", ZEL_ULONG, 0, nullptr},
    {7, "Subsystem Vendor ID", ZEL_ULONG, 0, nullptr},
    {8, "Subsystem ID", ZEL_ULONG, 0, nullptr},
    {9, "Class Code", ZEL_ULONG, 0, nullptr},
    {10, "Subclass Code", ZEL_ULONG, 0, nullptr},
    {11, "Revision ID", ZEL_ULONG, 0, nullptr},
    {12, "Vendor Name", ZEL_STRING, 128, nullptr},
    {13, "Device Name", ZEL_STRING, 128, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t PCI_DEVICE_KEYS_DEF[] = {2, 3, 4, ZEL_DEF_END};

// Pointing device (after CIM_PointingDevice and SMBIOS type 21).
const zelAttribDef POINTING_DEVICE_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Name", ZEL_STRING, 128, nullptr},
    {3, "Manufacturer", ZEL_STRING, 128, nullptr},
    {4, "Pointing Type", ZEL_ULONG, 0, POINTING_DEVICE_TYPE_ENUM_DEF},
    {5, "Number Of Buttons", ZEL_ULONG, 0, nullptr},
    {6, "Handedness", ZEL_STRING, 16, nullptr},
    {7, "Resolution", ZEL_ULONG, 0, nullptr},
    {8, "Interface", ZEL_STRING, 32, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t POINTING_DEVICE_KEYS_DEF[] = {1, ZEL_DEF_END};

// Printer (after CIM_Printer).
const zelAttribDef PRINTER_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Name", ZEL_STRING, 128, nullptr},
    {3, "Driver Name", ZEL_STRING, 128, nullptr},
    {4, "Port Name", ZEL_STRING, 255, nullptr},
    {5, "Server Name", ZEL_STRING, 64, nullptr},
    {6, "Share Name", ZEL_STRING, 64, nullptr},
    {7, "Location", ZEL_STRING, 255, nullptr},
    {8, "Default", ZEL_STRING, 1, nullptr},
    {9, "Network", ZEL_STRING, 1, nullptr},
    {10, "Horizontal Resolution", ZEL_ULONG, 0, nullptr},
    {11, "Vertical Resolution", ZEL_ULONG, 0, nullptr},
    {12, "Status", ZEL_STRING, 32, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t PRINTER_KEYS_DEF[] = {2, ZEL_DEF_END};

// Processor (after CIM_Processor and SMBIOS type 4).
const zelAttribDef PROCESSOR_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Device ID", ZEL_STRING, 64, nullptr},
    {3, "Manufacturer", ZEL_STRING, 64, nullptr},
    {4, "Family", ZEL_ULONG, 0, PROCESSOR_FAMILY_ENUM_DEF},
    {5, "Model", ZEL_STRING, 128, nullptr},
    {6, "Stepping", ZEL_STRING, 32, nullptr},
    {7, "Current Clock Speed", ZEL_ULONG, 0, nullptr},
    {8, "Max Clock Speed", ZEL_ULONG, 0, nullptr},
    {9, "External Clock", ZEL_ULONG, 0, nullptr},
    {10, "Data Width", ZEL_ULONG, 0, nullptr},
    {11, "L2 Cache Size", ZEL_ULONG, 0, nullptr},
    {12, "Interface Type", ZEL_ULONG, 0, PROCESSOR_INTERFACE_ENUM_DEF},
    {13, "Socket Designation", ZEL_STRING, 64, nullptr},
    {14, "Processor ID", ZEL_STRING, 32, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t PROCESSOR_KEYS_DEF[] = {1, ZEL_DEF_END};

// Screen saver settings per user (after CIM_Desktop).
const zelAttribDef SCREEN_SAVER_ATTRS_DEF[] = {
    {1, "User Name", ZEL_STRING, 64, nullptr},
    {2, "Screen Saver Active", ZEL_STRING, 1, nullptr},
    {3, "Screen Saver Executable", ZEL_STRING, 255, nullptr},
    {4, "Screen Saver Timeout", ZEL_ULONG, 0, nullptr},
    {5, "Screen Saver Secure", ZEL_STRING, 1, nullptr},
    {6, "Wallpaper", ZEL_STRING, 255, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t SCREEN_SAVER_KEYS_DEF[] = {1, ZEL_DEF_END};

// Service information (after CIM_Service).
const zelAttribDef SERVICE_INFO_ATTRS_DEF[] = {
    {1, "Name", ZEL_STRING, 128, nullptr},
    {2, "Display Name", ZEL_STRING, 255, nullptr},
    {3, "Description", ZEL_STRING, 255, nullptr},
    {4, "Start Mode", ZEL_STRING, 16, nullptr},
    {5, "Started", ZEL_STRING, 1, nullptr},
    {6, "State", ZEL_STRING, 32, nullptr},
    {7, "Path Name", ZEL_STRING, 255, nullptr},
    {8, "Start Name", ZEL_STRING, 128, nullptr},
    {9, "Service Type", ZEL_STRING, 32, nullptr},
    {10, "Process ID", ZEL_ULONG, 0, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t SERVICE_INFO_KEYS_DEF[] = {1, ZEL_DEF_END};

// USB device (after CIM_USBDevice).
const zelAttribDef USB_ATTRS_DEF[] = {
    {1, "Index", ZEL_ULONG, 0, nullptr},
    {2, "Name", ZEL_STRING, 128, nullptr},
    {3, "Manufacturer", ZEL_STRING, 128, nullptr},
    {4, "Vendor ID", ZEL_ULONG, 0, nullptr},
    {5, "Product ID", ZEL_ULONG, 0, nullptr},
    {6, "Serial Number", ZEL_STRING, 64, nullptr},
    {7, "Device Class", ZEL_ULONG, 0, USB_DEVICE_CLASS_ENUM_DEF},
    {8, "Device Subclass", ZEL_ULONG, 0, nullptr},
    {9, "Device Protocol", ZEL_ULONG, 0, nullptr},
    {10, "USB Version", ZEL_STRING, 16, nullptr},
    {11, "Is Hub", ZEL_ULONG, 0, USB_DEVICE_IS_HUB_ENUM_DEF},
    {12, "Number Of Ports", ZEL_ULONG, 0, nullptr},
    {13, "Location", ZEL_STRING, 64, nullptr},
    {ZEL_DEF_END, nullptr, 0, 0, nullptr},
};
const uint32_t USB_KEYS_DEF[] = {1, ZEL_DEF_END};
// clang-format on
