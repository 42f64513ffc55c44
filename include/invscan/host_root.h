// Values a scan leaves empty because it is not root, told apart from values the
// machine does not have. On Linux the DMI serial number and UUID and the SMBIOS
// table (memory modules) are readable by root only.
#ifndef INVSCAN_HOST_ROOT_H
#define INVSCAN_HOST_ROOT_H

#include "invscan_export.h"

#include <string>
#include <vector>

namespace host {

// True when `path` exists on the scanned host but this process, not being root, may
// not read it. False for root, for a file that is not there, and on replay (a bundle
// keeps only what its recording could read).
INVSCAN_API bool needsRoot(const char* path);

// The files of the scan that only root may read and this scan could not, among
// /sys/class/dmi/id/product_serial, /sys/class/dmi/id/product_uuid and
// /sys/firmware/dmi/tables/DMI; empty when nothing was missed for want of root.
INVSCAN_API std::vector<std::string> missedForWantOfRoot();

} // namespace host

#endif
