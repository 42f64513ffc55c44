// The running operating system in one row: product name, version numbers, install date,
// architecture, kernel mode, description and messages locale.
#ifndef INVSCAN_OPERATINGSYSTEMGROUP_H
#define INVSCAN_OPERATINGSYSTEMGROUP_H

#include "invscan_export.h"
#include "ZelTable.h"

class INVSCAN_API OperatingSystemGroup : public ZelGroup {
public:
    OperatingSystemGroup() : ZelGroup(ZEL_GROUP_OPER_SYS, 1) {}
    ZelTable* getTable() override;
};

#endif
