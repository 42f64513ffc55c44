// The raw SMBIOS structure table of a Linux host, read whole through the host layer.
#ifndef INVSCAN_SMBIOS_HOST_H
#define INVSCAN_SMBIOS_HOST_H

#include <vector>

// The table the Linux kernel exposes (/sys/firmware/dmi/tables/DMI), of any size up to
// 16 MiB, so that a recording keeps it as a file of its own; false when the scanned
// host is not Linux or the table cannot be read (no table, or not root). The
// registry snapshot stays the source everywhere else.
bool linuxSmbiosTable(std::vector<unsigned char>* out);

#endif
