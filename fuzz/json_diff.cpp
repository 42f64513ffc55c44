// The reader and comparison behind `invscan diff`: any text as a scan, compared
// with itself and with a real one, never reads out of bounds or throws.
#include "cli/Diff.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 20)) return 0;
    std::string text(reinterpret_cast<const char*>(data), size), why;
    nlohmann::ordered_json scan;
    if (!diffReadScan(text, &scan, &why)) return 0;
    static const nlohmann::ordered_json empty = {{"format", 1},
                                                 {"tables", nlohmann::ordered_json::array()}};
    for (bool all : {false, true}) {
        nlohmann::ordered_json same = diffScans(scan, scan, all);
        if (!same["differences"].empty()) std::abort(); // a scan is its own equal
        diffText(diffScans(scan, empty, all));
        diffText(diffScans(empty, scan, all));
    }
    return 0;
}
