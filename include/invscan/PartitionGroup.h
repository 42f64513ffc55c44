// Mounted file systems, one row each: local disk, CD-ROM or remote drive, with sizes and, for
// remote mounts, server and path.
#ifndef INVSCAN_PARTITIONGROUP_H
#define INVSCAN_PARTITIONGROUP_H

#include "invscan_export.h"
#include "ZelTable.h"

#include <string>

class INVSCAN_API PartitionGroup : public ZelGroup {
public:
    PartitionGroup() : ZelGroup(ZEL_GROUP_PARTITION, 1) {}
    ZelTable* getTable() override;
};

// Server and path of a remote mount's source: "host:/path" or "ftp://host" for
// NFS, "//user@host/share" for SMB.
INVSCAN_API void splitRemoteMount(const char* from, const char* type, std::string* hostName,
                                  std::string* path);

// The mount's own file-system type (ext4, xfs, tmpfs, nfs4, ...) of row `index` of the
// last Partition table built for a Linux host, when that row's mount point is
// `mountPoint`; empty otherwise. The row's FS Type is the catalogue's code.
INVSCAN_API std::string partitionFsName(unsigned long index, const char* mountPoint);

#endif
