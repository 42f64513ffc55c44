// The memory-module size scan ("%d %s", GB counts 1024) over any text.
#include "invscan/HostFacts.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    hostfacts::moduleSizeMB(text.c_str());
    return 0;
}
