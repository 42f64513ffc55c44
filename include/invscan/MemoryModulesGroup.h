// One row per installed memory module, from the memory section of the system profiler snapshot.
#ifndef INVSCAN_MEMORYMODULESGROUP_H
#define INVSCAN_MEMORYMODULESGROUP_H

#include "invscan_export.h"
#include "ZelTable.h"

class INVSCAN_API MemoryModulesGroup : public ZelGroup {
public:
    MemoryModulesGroup() : ZelGroup(ZEL_GROUP_MEMORY_MODULES, 1) {}
    ZelTable* getTable() override;
};

#endif
