// The disk size scan ("%f %s", clamped to 32 bits) over any text.
#include "invscan/HostFacts.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    std::uint32_t mb = hostfacts::storageSizeMB(text.c_str());
    (void)mb;
    return 0;
}
