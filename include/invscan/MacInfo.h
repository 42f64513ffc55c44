// The two machine snapshots that the helper programs produce: the system profiler
// ("sysprof") and the I/O registry ("iokit"). A snapshot is taken once per process
// on success and shared by every group; a failed one is retried on the next call.
#ifndef INVSCAN_MACINFO_H
#define INVSCAN_MACINFO_H

#include "invscan_export.h"
#include "vtree.h"

class INVSCAN_API MacInfo {
public:
    MacInfo() {}

    // The snapshot with result 0 and a tree, or null. The record stays owned by the
    // cache for the life of the process.
    static VtExecInfo* getSysProf();
    static VtExecInfo* getIoKit();

    // Replace a cached snapshot (tests, replays). The cache takes ownership and frees
    // the record it held, so no pointer obtained earlier may be used afterwards; null
    // empties it so the next call runs the helper again.
    static void setSysProf(VtExecInfo* info);

    // The system profiler section of a data type ("SPNetworkDataType"), or null.
    static VtNode* getSection(const VtExecInfo* info, const char* dataType);
    static void setIoKit(VtExecInfo* info);
};

#endif
