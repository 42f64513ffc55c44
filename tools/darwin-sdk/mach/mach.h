// The Mach types and calls the Darwin backend uses.
#ifndef INVSCAN_DARWIN_MACH_H
#define INVSCAN_DARWIN_MACH_H

#include <cstddef>
#include <cstdint>

typedef int kern_return_t;
typedef unsigned int natural_t;
typedef int integer_t;
typedef natural_t mach_port_t;
typedef mach_port_t host_t;
typedef natural_t mach_msg_type_number_t;
typedef integer_t host_flavor_t;
typedef integer_t* host_info_t;
typedef std::uintptr_t vm_size_t;

#define KERN_SUCCESS 0
#define KERN_INVALID_ARGUMENT 4
#define KERN_FAILURE 5

struct vm_statistics {
    natural_t free_count;
    natural_t active_count;
    natural_t inactive_count;
    natural_t wire_count;
    natural_t zero_fill_count;
    natural_t reactivations;
    natural_t pageins;
    natural_t pageouts;
    natural_t faults;
    natural_t cow_faults;
    natural_t lookups;
    natural_t hits;
    natural_t purgeable_count;
    natural_t purges;
    natural_t speculative_count;
};
typedef struct vm_statistics vm_statistics_data_t;

#define HOST_VM_INFO 2
#define HOST_VM_INFO_COUNT                                                                         \
    ((mach_msg_type_number_t)(sizeof(vm_statistics_data_t) / sizeof(integer_t)))

extern "C" {
mach_port_t mach_host_self(void);
}

#endif
