// The reader and comparison behind `invscan diff`: any text as a scan, compared
// with itself, with no scan, with itself emptied of rows and with its rows reversed,
// never reads out of bounds or throws, and what is written a difference at a time is
// what the whole result gives.
#include "cli/Diff.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

using Json = nlohmann::ordered_json;

namespace {

void writtenIsWhole(const Json& a, const Json& b, bool all) {
    const Json whole = diffScans(a, b, all);
    for (bool json : {false, true}) {
        std::ostringstream written;
        const std::size_t n = diffWrite(written, a, b, all, json);
        if (n != whole["differences"].size() ||
            written.str() != (json ? whole.dump(2) + "\n" : diffText(whole)))
            std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 20)) return 0;
    std::string text(reinterpret_cast<const char*>(data), size), why;
    Json scan;
    if (!diffReadScan(text, &scan, &why)) return 0;
    static const Json empty = {{"format", 1}, {"tables", Json::array()}};
    Json emptied = scan, reversed = scan;
    for (Json* s : {&emptied, &reversed})
        for (Json& t : (*s)["tables"])
            if (t.is_object() && t.contains("rows") && t["rows"].is_array()) {
                if (s == &emptied)
                    t["rows"] = Json::array();
                else
                    std::reverse(t["rows"].begin(), t["rows"].end());
            }
    for (bool all : {false, true}) {
        if (!diffScans(scan, scan, all)["differences"].empty()) std::abort(); // its own equal
        writtenIsWhole(scan, empty, all);
        writtenIsWhole(empty, scan, all);
        writtenIsWhole(scan, emptied, all);
        writtenIsWhole(scan, reversed, all);
    }
    return 0;
}
