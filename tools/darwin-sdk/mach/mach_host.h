// The host calls (generated interface in the SDK).
#ifndef INVSCAN_DARWIN_MACH_HOST_H
#define INVSCAN_DARWIN_MACH_HOST_H

#include <mach/mach.h>

extern "C" {
kern_return_t host_statistics(host_t host_priv, host_flavor_t flavor, host_info_t host_info_out,
                              mach_msg_type_number_t* host_info_outCnt);
kern_return_t host_page_size(host_t host, vm_size_t* out_page_size);
}

#endif
