// Disks, optical and removable drives from the bus sections of the system profiler snapshot, one
// row each, with a stable MD5 identifier.
#ifndef INVSCAN_STORAGEGROUP_H
#define INVSCAN_STORAGEGROUP_H

#include "invscan_export.h"
#include "ZelTable.h"

class INVSCAN_API StorageGroup : public ZelGroup {
public:
    StorageGroup() : ZelGroup(ZEL_GROUP_STORAGE, 1) {}
    ZelTable* getTable() override;
};

#endif
