// The regional settings in one row: character-type locale, offset from UTC, daylight saving and the
// zone names.
#ifndef INVSCAN_REGIONALGROUP_H
#define INVSCAN_REGIONALGROUP_H

#include "invscan_export.h"
#include "ZelTable.h"

class INVSCAN_API RegionalGroup : public ZelGroup {
public:
    RegionalGroup() : ZelGroup(ZEL_GROUP_REGIONAL, 1) {}
    ZelTable* getTable() override;
};

#endif
