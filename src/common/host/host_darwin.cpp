// The real Darwin calls. Kept to direct calls and field copies: the rest of the
// layer is built and tested on other systems, this file only on a Mac.
#include <mach/mach.h>
#include <mach/mach_host.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <sys/sysctl.h>
#include <sys/types.h>

#include "common/host/host_internal.h"

#include <cerrno>
#include <cstring>

namespace host {
namespace {

// mach_host_self() hands out a send right on every call; one is enough.
mach_port_t hostPort() {
    static mach_port_t port = mach_host_self();
    return port;
}

class DarwinBackend : public PosixBackend {
public:
    const char* name() const override { return "darwin"; }

    int sysctlbyname(const char* name, void* oldp, std::size_t* oldlenp) override {
        return ::sysctlbyname(name, oldp, oldlenp, nullptr, 0);
    }

    int sysctl(const int* name, unsigned namelen, void* oldp, std::size_t* oldlenp) override {
        int mib[CTL_MAXNAME];
        if (namelen > CTL_MAXNAME) {
            errno = EINVAL;
            return -1;
        }
        std::memcpy(mib, name, namelen * sizeof(int)); // sysctl(3) takes a non-const name
        return ::sysctl(mib, namelen, oldp, oldlenp, nullptr, 0);
    }

    kern_return_t hostPageSize(std::size_t* pageSize) override {
        vm_size_t size = 0;
        kern_return_t kr = ::host_page_size(hostPort(), &size);
        if (kr == KERN_SUCCESS) *pageSize = static_cast<std::size_t>(size);
        return kr;
    }

    kern_return_t hostStatistics(VmStatistics* info) override {
        vm_statistics_data_t vs;
        mach_msg_type_number_t count = HOST_VM_INFO_COUNT;
        kern_return_t kr =
            ::host_statistics(hostPort(), HOST_VM_INFO, reinterpret_cast<host_info_t>(&vs), &count);
        if (kr != KERN_SUCCESS) return kr;
        info->free_count = vs.free_count;
        info->active_count = vs.active_count;
        info->inactive_count = vs.inactive_count;
        info->wire_count = vs.wire_count;
        info->zero_fill_count = vs.zero_fill_count;
        info->reactivations = vs.reactivations;
        info->pageins = vs.pageins;
        info->pageouts = vs.pageouts;
        info->faults = vs.faults;
        info->cow_faults = vs.cow_faults;
        info->lookups = vs.lookups;
        info->hits = vs.hits;
        info->purgeable_count = vs.purgeable_count;
        info->purges = vs.purges;
        info->speculative_count = vs.speculative_count;
        return KERN_SUCCESS;
    }

    bool mounts(Statfs** out, int* count) override {
        struct statfs* buf = nullptr;
        int n = ::getmntinfo(&buf, MNT_NOWAIT); // buf belongs to libc, reused next call
        if (n <= 0 || !buf) return false;
        m_mounts.assign(static_cast<std::size_t>(n), Statfs());
        for (int i = 0; i < n; ++i) {
            Statfs& s = m_mounts[static_cast<std::size_t>(i)];
            s = Statfs{};
            s.f_bsize = static_cast<std::uint32_t>(buf[i].f_bsize);
            s.f_iosize = static_cast<std::int32_t>(buf[i].f_iosize);
            s.f_blocks = static_cast<std::uint64_t>(buf[i].f_blocks);
            s.f_bfree = static_cast<std::uint64_t>(buf[i].f_bfree);
            s.f_bavail = static_cast<std::uint64_t>(buf[i].f_bavail);
            s.f_files = static_cast<std::uint64_t>(buf[i].f_files);
            s.f_ffree = static_cast<std::uint64_t>(buf[i].f_ffree);
            s.f_flags = static_cast<std::uint32_t>(buf[i].f_flags);
            copyField(s.f_fstypename, sizeof s.f_fstypename, buf[i].f_fstypename);
            copyField(s.f_mntonname, PATH_LEN, buf[i].f_mntonname);
            copyField(s.f_mntfromname, PATH_LEN, buf[i].f_mntfromname);
        }
        *out = &m_mounts[0];
        *count = n;
        return true;
    }

private:
    std::vector<Statfs> m_mounts;
};

} // namespace

Backend* liveBackend() {
    static DarwinBackend b;
    return &b;
}

} // namespace host
