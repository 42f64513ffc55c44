// On a Mac the reports come from the system's own tools, as XML property lists.
#include "common/report/ReportVt.h"

#include <cstdio>
#include <cstring>

namespace report {

bool gatherLive(const char* helper, Node* root, std::string* err) {
    bool io = std::strcmp(helper, "iokit") == 0;
    // Full detail: the network section carries addresses, routers and DNS only there.
    const char* cmd =
        io ? "/usr/sbin/ioreg -a -l 2>/dev/null"
           : "/usr/sbin/system_profiler -xml -detailLevel full SPHardwareDataType "
             "SPSoftwareDataType SPMemoryDataType SPSerialATADataType "
             "SPParallelATADataType SPUSBDataType SPNVMeDataType SPNetworkDataType 2>/dev/null";
    std::FILE* p = ::popen(cmd, "r");
    if (!p) {
        *err = std::string("cannot run ") + (io ? "ioreg" : "system_profiler");
        return false;
    }
    std::string data;
    char buf[65536];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0)
        data.append(buf, n);
    ::pclose(p);
    PValue v;
    if (!parsePlist(data.data(), data.size(), &v, err)) return false;
    if (io ? iokitFromPlist(v, root) : sysprofFromPlist(v, root)) return true;
    *err = "empty report";
    return false;
}

} // namespace report
