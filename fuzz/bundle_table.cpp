// The replay bundle's tables and escaping: any bytes parse, and escaping what was
// read gives text that reads back the same.
#include "common/host/host_internal.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    for (const host::bundle::Fields& f : host::bundle::parseLines(text)) {
        std::string line = host::bundle::formatLine(f);
        auto again = host::bundle::parseLines(line);
        // Only a record of one empty field (a blank line) does not survive.
        if ((again.size() != 1 || again[0] != f) && !(f.size() == 1 && f[0].empty())) std::abort();
    }
    host::bundle::parseTable(text);
    std::string name = host::bundle::safeName(text);
    if (!host::bundle::isSafeComponent(name)) std::abort();
    if (host::bundle::unescape(host::bundle::escape(text)) != text) std::abort();
    return 0;
}
