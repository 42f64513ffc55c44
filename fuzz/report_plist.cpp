// XML property lists through both report converters. Whatever converts must print
// as a dump that the library reads back.
#include "common/report/Report.h"
#include "common/report/ReportVt.h"
#include "invscan/VtProcess.h"
#include "invscan/VtStream.h"
#include "invscan/vtree.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

static void convertAndReadBack(const char* helper, const report::PValue& v) {
    report::Node root;
    bool ok = std::string(helper) == "iokit" ? report::iokitFromPlist(v, &root)
                                             : report::sysprofFromPlist(v, &root);
    if (!ok) return;
    std::string out = report::renderResponse(0, nullptr, &root);
    VtIStream_Memory in(out.data(), out.size());
    std::unique_ptr<VtExecInfo> info(vtParseProgramOutput(&in));
    if (!info || info->result != 0 || !info->tree) std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    report::PValue v;
    std::string err;
    if (!report::parsePlist(reinterpret_cast<const char*>(data), size, &v, &err)) return 0;
    convertAndReadBack("sysprof", v);
    convertAndReadBack("iokit", v);
    return 0;
}
