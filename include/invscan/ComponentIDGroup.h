// The machine itself in one row: maker, model, firmware version, serial number and UUID.
#ifndef INVSCAN_COMPONENTIDGROUP_H
#define INVSCAN_COMPONENTIDGROUP_H

#include "invscan_export.h"
#include "ZelTable.h"

class INVSCAN_API ComponentIDGroup : public ZelGroup {
public:
    ComponentIDGroup() : ZelGroup(ZEL_GROUP_COMPONENTID, 1) {}
    ZelTable* getTable() override;
};

#endif
