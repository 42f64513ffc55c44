// The resolver-file reader over any file, served through the host layer.
#include "invscan/IfInfo.h"
#include "common/host/host_internal.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {
class FileHost : public host::PosixBackend {
public:
    const char* name() const override { return "fuzz"; }
    int sysctlbyname(const char*, void*, std::size_t*) override { return -1; }
    int sysctl(const int*, unsigned, void*, std::size_t*) override { return -1; }
    host::kern_return_t hostPageSize(std::size_t*) override { return KERN_FAILURE; }
    host::kern_return_t hostStatistics(host::VmStatistics*) override { return KERN_FAILURE; }
    bool mounts(host::Statfs**, int*) override { return false; }
    std::FILE* fopen(const char*) override { return host::bundle::memoryFile(text); }
    std::string text;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static FileHost h;
    h.text.assign(reinterpret_cast<const char*>(data), size);
    host::useBackend(&h);
    char a[1024], b[1024], d[1024];
    std::memset(a, 0, sizeof a);
    std::memset(b, 0, sizeof b);
    std::memset(d, 0, sizeof d);
    getNameservers(a, b, d);
    if (!std::memchr(a, 0, sizeof a) || !std::memchr(b, 0, sizeof b) ||
        !std::memchr(d, 0, sizeof d))
        std::abort();
    return 0;
}
