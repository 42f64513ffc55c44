// Totals of physical and virtual memory and the page size, in one row, from kernel values and the
// VM statistics.
#ifndef INVSCAN_MEMORYGROUP_H
#define INVSCAN_MEMORYGROUP_H

#include "invscan_export.h"
#include "ZelTable.h"

class INVSCAN_API MemoryGroup : public ZelGroup {
public:
    MemoryGroup() : ZelGroup(ZEL_GROUP_MEMORY, 1) {}
    ZelTable* getTable() override;
};

#endif
