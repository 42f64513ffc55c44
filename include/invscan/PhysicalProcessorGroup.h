// The processor packages of the machine: one row per package with its cores, logical
// processors, clock, caches and the model found for its brand string. Kernel values
// come through the host layer, so the group runs the same live on a Mac, live on
// Linux, and from a replayed bundle.
#ifndef INVSCAN_PHYSICALPROCESSORGROUP_H
#define INVSCAN_PHYSICALPROCESSORGROUP_H

#include "invscan_export.h"
#include "ZelTable.h"

#include <string>

class INVSCAN_API PhysicalProcessorGroup : public ZelGroup {
public:
    PhysicalProcessorGroup() : ZelGroup(ZEL_GROUP_PHYS_PROC, 1) {}
    ZelTable* getTable() override;

    // Kernel values by name or by {CTL_HW, n}: -1 when the call fails.
    static int getIntValue(const char* name);
    static int getIntValue(int a, int b);
    // Text value by name: empty when the call fails.
    static std::string getStringValue(const char* name);
};

#endif
