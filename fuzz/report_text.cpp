// The text forms: system_profiler text and `ioreg -l` listings, and single ioreg
// values. Whatever converts must print as a dump that the library reads back.
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

static void readBack(const report::Node& root) {
    std::string out = report::renderResponse(0, nullptr, &root);
    VtIStream_Memory in(out.data(), out.size());
    std::unique_ptr<VtExecInfo> info(vtParseProgramOutput(&in));
    if (!info || info->result != 0 || !info->tree) std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* text = reinterpret_cast<const char*>(data);
    report::Node sp, io;
    if (report::sysprofFromText(text, size, &sp)) readBack(sp);
    if (report::iokitFromText(text, size, &io)) readBack(io);
    report::PValue v;
    std::string line(text, size);
    if (report::parseIoregValue(line, &v)) {
        report::Node n;
        report::addPValue(&n, "value", v);
        readBack(n);
    }
    return 0;
}
