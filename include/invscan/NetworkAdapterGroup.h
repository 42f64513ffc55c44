// The network adapters: one row per network service of the system profiler snapshot, with a stable
// MD5 identifier of its hardware and interface names.
#ifndef INVSCAN_NETWORKADAPTERGROUP_H
#define INVSCAN_NETWORKADAPTERGROUP_H

#include "invscan_export.h"
#include "ZelTable.h"

class INVSCAN_API NetworkAdapterGroup : public ZelGroup {
public:
    NetworkAdapterGroup() : ZelGroup(ZEL_GROUP_NETWORK_ADAPTER, 1) {}
    ZelTable* getTable() override;
};

#endif
