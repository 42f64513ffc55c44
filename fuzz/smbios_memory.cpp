// Memory modules from arbitrary SMBIOS table bytes.
#include "common/report/ReportVt.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    report::Node sp("SystemProfiler");
    report::addMemoryModules(&sp, std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
