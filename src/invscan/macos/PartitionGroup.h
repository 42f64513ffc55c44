// Mounted file systems, one row each: local disk, CD-ROM or remote drive, with sizes and, for
// remote mounts, server and path.
#ifndef INVSCAN_PARTITIONGROUP_H
#define INVSCAN_PARTITIONGROUP_H

#include "invscan_export.h"
#include "ZelTable.h"

class INVSCAN_API PartitionGroup : public ZelGroup {
public:
    PartitionGroup() : ZelGroup(ZEL_GROUP_PARTITION, 1) {}
    ZelTable* getTable() override;
};

#endif
