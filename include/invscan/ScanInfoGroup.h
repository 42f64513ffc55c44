// The scan itself: who made the scanner, its version, when the scan ran and when
// the scanner was built. One table of one row.
#ifndef INVSCAN_SCANINFOGROUP_H
#define INVSCAN_SCANINFOGROUP_H

#include "invscan_export.h"
#include "ZelTable.h"

// Vendor text of attribute 1.
#define INVSCAN_VENDOR "invscan"

class INVSCAN_API ScanInfoGroup : public ZelGroup {
public:
    ScanInfoGroup() : ZelGroup(ZEL_GROUP_SCAN_INFO, 1) {}
    ZelTable* getTable() override;
};

#endif
