// The kernel value calls.
#ifndef INVSCAN_DARWIN_SYS_SYSCTL_H
#define INVSCAN_DARWIN_SYS_SYSCTL_H

#include <cstddef>
#include <sys/types.h>

#define CTL_MAXNAME 12
#define CTL_VM 2
#define CTL_HW 6
#define HW_NCPU 3
#define HW_PHYSMEM 5
#define HW_PAGESIZE 7
#define HW_BUS_FREQ 14
#define HW_CPU_FREQ 15
#define HW_L2CACHESIZE 20
#define HW_L3CACHESIZE 22
#define HW_MEMSIZE 24
#define VM_SWAPUSAGE 5

extern "C" {
int sysctl(int* name, u_int namelen, void* oldp, std::size_t* oldlenp, void* newp,
           std::size_t newlen);
int sysctlbyname(const char* name, void* oldp, std::size_t* oldlenp, void* newp,
                 std::size_t newlen);
}

#endif
