// The server and path split of a remote mount's source over any name.
#include "invscan/PartitionGroup.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const char* type = (data[0] & 1) ? "nfs" : "smbfs";
    std::string from(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::string hostName, path;
    splitRemoteMount(from.c_str(), type, &hostName, &path);
    if (hostName.size() + path.size() > from.size() + 9) std::abort(); // "localhost"
    return 0;
}
