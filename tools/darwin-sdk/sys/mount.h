// File system statistics with the 64-bit-inode layout.
#ifndef INVSCAN_DARWIN_SYS_MOUNT_H
#define INVSCAN_DARWIN_SYS_MOUNT_H

#include <cstdint>
#include <sys/param.h>
#include <sys/types.h>

#define MFSTYPENAMELEN 16
#ifndef MAXPATHLEN
#define MAXPATHLEN 1024
#endif
#define MNT_WAIT 1
#define MNT_NOWAIT 2

typedef struct {
    std::int32_t val[2];
} darwin_fsid_t;

struct statfs {
    std::uint32_t f_bsize;
    std::int32_t f_iosize;
    std::uint64_t f_blocks;
    std::uint64_t f_bfree;
    std::uint64_t f_bavail;
    std::uint64_t f_files;
    std::uint64_t f_ffree;
    darwin_fsid_t f_fsid;
    uid_t f_owner;
    std::uint32_t f_type;
    std::uint32_t f_flags;
    std::uint32_t f_fssubtype;
    char f_fstypename[MFSTYPENAMELEN];
    char f_mntonname[MAXPATHLEN];
    char f_mntfromname[MAXPATHLEN];
    std::uint32_t f_reserved[8];
};

extern "C" {
int getmntinfo(struct statfs** mntbufp, int mode);
}

#endif
