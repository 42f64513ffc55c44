// The operating-system calls that the groups make, shaped like the Darwin calls they
// were written against so that group code reads like platform code. One backend
// answers per process: the live one of the build's platform (host_darwin.cpp or
// host_linux.cpp), a recorded bundle (host_replay.cpp), or the live one wrapped by a
// recorder (host_record.cpp). INVSCAN_REPLAY / INVSCAN_RECORD in the environment pick
// replay or record on first use, so helper child processes follow their parent.
//
// Conventions follow Darwin: sysctl* return 0 or -1 with errno; hostPageSize and
// hostStatistics return a kern_return_t (0 = success); getmntinfo returns a count and
// a pointer to records owned by the layer, valid until the next call.
#ifndef INVSCAN_HOST_H
#define INVSCAN_HOST_H

#include "invscan_export.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <netdb.h>
#include <string>
#include <vector>

#if defined(__APPLE__)
// The system's definitions of the constants below come first, so that ours are
// never seen next to theirs.
#include <mach/mach.h>
#include <sys/mount.h>
#include <sys/sysctl.h>
#endif

namespace host {

typedef int kern_return_t;

} // namespace host

// Darwin's constants, with Darwin's values. They are macros there, so they are macros
// here too and defined only where the system headers have not already done so.
#ifndef KERN_SUCCESS
#define KERN_SUCCESS 0
#endif
#ifndef KERN_INVALID_ARGUMENT
#define KERN_INVALID_ARGUMENT 4
#endif
#ifndef KERN_FAILURE
#define KERN_FAILURE 5
#endif
#ifndef CTL_VM
#define CTL_VM 2
#endif
#ifndef CTL_HW
#define CTL_HW 6
#endif
#ifndef VM_SWAPUSAGE
#define VM_SWAPUSAGE 5
#endif
#ifndef HW_NCPU
#define HW_NCPU 3
#endif
#ifndef HW_PHYSMEM
#define HW_PHYSMEM 5
#endif
#ifndef HW_PAGESIZE
#define HW_PAGESIZE 7
#endif
#ifndef HW_BUS_FREQ
#define HW_BUS_FREQ 14
#endif
#ifndef HW_CPU_FREQ
#define HW_CPU_FREQ 15
#endif
#ifndef HW_L2CACHESIZE
#define HW_L2CACHESIZE 20
#endif
#ifndef HW_L3CACHESIZE
#define HW_L3CACHESIZE 22
#endif
#ifndef HW_MEMSIZE
#define HW_MEMSIZE 24
#endif
#ifndef HOST_VM_INFO
#define HOST_VM_INFO 2
#endif
#ifndef HOST_VM_INFO_COUNT
#define HOST_VM_INFO_COUNT 15
#endif
#ifndef MNT_WAIT
#define MNT_WAIT 1
#endif
#ifndef MNT_NOWAIT
#define MNT_NOWAIT 2
#endif

namespace host {

// vm.swapusage (struct xsw_usage), 32 bytes on every ABI.
struct XswUsage {
    std::uint64_t xsu_total;
    std::uint64_t xsu_avail;
    std::uint64_t xsu_used;
    std::uint32_t xsu_pagesize;
    std::uint32_t xsu_encrypted;
};

// host_statistics(HOST_VM_INFO): vm_statistics_data_t, fifteen 32-bit counters.
const unsigned VM_INFO_FIELDS = 15;
struct VmStatistics {
    std::uint32_t free_count;
    std::uint32_t active_count;
    std::uint32_t inactive_count;
    std::uint32_t wire_count;
    std::uint32_t zero_fill_count;
    std::uint32_t reactivations;
    std::uint32_t pageins;
    std::uint32_t pageouts;
    std::uint32_t faults;
    std::uint32_t cow_faults;
    std::uint32_t lookups;
    std::uint32_t hits;
    std::uint32_t purgeable_count;
    std::uint32_t purges;
    std::uint32_t speculative_count;
};

// getmntinfo records: the fields of Darwin's struct statfs that callers use, with
// Darwin's field widths.
const unsigned FSTYPE_LEN = 16; // MFSTYPENAMELEN
const unsigned PATH_LEN = 1024; // MAXPATHLEN
struct Statfs {
    std::uint32_t f_bsize;
    std::int32_t f_iosize;
    std::uint64_t f_blocks;
    std::uint64_t f_bfree;
    std::uint64_t f_bavail;
    std::uint64_t f_files;
    std::uint64_t f_ffree;
    std::uint32_t f_flags;
    char f_fstypename[FSTYPE_LEN];
    // Held at their length, not Darwin's 1024 bytes each: a host of 100,000 mounts
    // would need 200 MB for them. Cut at PATH_LEN - 1 bytes as Darwin cuts them.
    std::string f_mntonname;
    std::string f_mntfromname;
};

// uname record with Darwin's field size.
const unsigned SYS_NAMELEN = 256;
struct Utsname {
    char sysname[SYS_NAMELEN];
    char nodename[SYS_NAMELEN];
    char release[SYS_NAMELEN];
    char version[SYS_NAMELEN];
    char machine[SYS_NAMELEN];
};

// Time-zone facts as the C library gives them after tzset() and localtime(time()).
struct TimeZoneInfo {
    long gmtoff;  // seconds east of UTC at this moment
    int daylight; // the C library's daylight
    char stdName[64];
    char dstName[64];
};

INVSCAN_API int sysctlbyname(const char* name, void* oldp, std::size_t* oldlenp,
                             const void* newp = nullptr, std::size_t newlen = 0);
INVSCAN_API int sysctl(const int* name, unsigned namelen, void* oldp, std::size_t* oldlenp,
                       const void* newp = nullptr, std::size_t newlen = 0);
INVSCAN_API kern_return_t hostPageSize(std::size_t* pageSize);
INVSCAN_API kern_return_t hostStatistics(int flavor, VmStatistics* info, unsigned* count);
INVSCAN_API int getmntinfo(Statfs** mntbufp, int flags);
INVSCAN_API int uname(Utsname* name);
// Fixed system files, read only ("r" / "rb").
INVSCAN_API std::FILE* fopen(const char* path, const char* mode);
INVSCAN_API std::FILE* popen(const char* command, const char* mode);
INVSCAN_API int pclose(std::FILE* stream);
INVSCAN_API struct hostent* gethostbyaddr(const void* addr, unsigned len, int type);
// Bound on one live reverse lookup, in milliseconds (0, or more than 5000: 5000). A lookup still
// unanswered then fails with TRY_AGAIN; its answer, if one comes, is dropped.
INVSCAN_API void setLookupTimeout(unsigned ms);
// Asks a reverse lookup ahead, so that several go on at once.
INVSCAN_API void prefetchLookup(const void* addr, unsigned len, int type);
// setlocale for the category names the groups use: the recorded answer on replay.
INVSCAN_API char* setlocale(int category, const char* locale);
INVSCAN_API void tzset();
// Fills `out` after tzset(); 0 on success, -1 when nothing is known.
INVSCAN_API int timeZone(TimeZoneInfo* out);

// The answers one backend gives. Methods mirror the free functions above.
class INVSCAN_API Backend {
public:
    virtual ~Backend();
    virtual const char* name() const = 0;
    virtual int sysctlbyname(const char* name, void* oldp, std::size_t* oldlenp) = 0;
    virtual int sysctl(const int* name, unsigned namelen, void* oldp, std::size_t* oldlenp) = 0;
    virtual kern_return_t hostPageSize(std::size_t* pageSize) = 0;
    virtual kern_return_t hostStatistics(VmStatistics* info) = 0;
    // Fills `out` with the mounts; returns false when the table cannot be read.
    virtual bool mounts(Statfs** out, int* count) = 0;
    virtual int uname(Utsname* name) = 0;
    virtual std::FILE* fopen(const char* path) = 0;
    virtual std::FILE* popen(const char* command) = 0;
    virtual int pclose(std::FILE* stream) = 0;
    virtual struct hostent* gethostbyaddr(const void* addr, unsigned len, int type) = 0;
    // Starts a reverse lookup that a later gethostbyaddr() of the address takes up.
    virtual void prefetchLookup(const void* addr, unsigned len, int type);
    virtual char* setlocale(int category, const char* locale) = 0;
    virtual void tzset() = 0;
    virtual int timeZone(TimeZoneInfo* out) = 0;
    // The exact standard output of a helper program: replay gives it, record keeps it.
    virtual bool helperOutput(const char* helper, std::string* out);
    virtual bool saveHelperOutput(const char* helper, const std::string& out);
    // Recording only: the first failed write, and the end of the recording.
    virtual const char* recordError() const;
    virtual bool finish();
    // Replay only: bundle files refused, one sentence each.
    virtual const std::vector<std::string>* problems() const;
};

// The backend in use (chosen on first use from the environment).
INVSCAN_API Backend* backend();
// "live", "replay" or "record".
INVSCAN_API const char* mode();
// Replay the bundle in `dir`; also sets INVSCAN_REPLAY so that helper programs follow.
// False when `dir` is not a readable directory (the backend is then unchanged).
INVSCAN_API bool useReplay(const char* dir);
// Record into `dir` (created when missing); also sets INVSCAN_RECORD.
INVSCAN_API bool useRecord(const char* dir);

// What a folder is as a bundle. A recording marks its bundle incomplete until
// finishRecord(), so that one stopped half way is never replayed as a host.
enum BundleState {
    BUNDLE_OK = 0,
    BUNDLE_UNREADABLE,
    BUNDLE_NO_HEADER,
    BUNDLE_BAD_HEADER,
    BUNDLE_INCOMPLETE
};
INVSCAN_API BundleState checkBundle(const char* dir);
// The one-line reason for a state, such as "not a bundle: no bundle.txt".
INVSCAN_API const char* bundleStateText(BundleState state);
// The first write of the recording that failed, as "FILE: reason", or null.
INVSCAN_API const char* recordError();
// Marks the recorded bundle complete; false (with recordError() set) when it is not.
INVSCAN_API bool finishRecord();
// Bundle files that replay refused (over their size cap), one sentence each.
INVSCAN_API std::vector<std::string> replayProblems();
// Back to the live backend; clears both environment variables.
INVSCAN_API void useLive();
// Installs a caller-owned backend (tests); null restores the environment's choice.
INVSCAN_API void useBackend(Backend* b);

// The live backend of this platform (never null; owned by the layer).
Backend* liveBackend();
Backend* newReplayBackend(const char* dir);                 // null when dir is unusable
Backend* newRecordBackend(Backend* inner, const char* dir); // null when dir is unusable

} // namespace host

#endif
