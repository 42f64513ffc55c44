#include "invscan/host_root.h"

#include "invscan/host.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

bool needsRoot(const char* path) {
    if (!path || !*path || std::strcmp(mode(), "replay") == 0 || ::geteuid() == 0) return false;
    struct stat st;
    if (::stat(path, &st) != 0) return false;
    // Opening tells what the mode bits alone do not (ACLs, sysfs handlers); a FIFO
    // planted there must not block.
    const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd >= 0) {
        ::close(fd);
        return false;
    }
    return errno == EACCES || errno == EPERM;
}

std::vector<std::string> missedForWantOfRoot() {
    static const char* const rootOnly[] = {"/sys/class/dmi/id/product_serial",
                                           "/sys/class/dmi/id/product_uuid",
                                           "/sys/firmware/dmi/tables/DMI"};
    std::vector<std::string> out;
    for (const char* p : rootOnly)
        if (needsRoot(p)) out.push_back(p);
    return out;
}

} // namespace host
