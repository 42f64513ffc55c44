// The SMBIOS table file reader over arbitrary text, then the walk over what it read
// and a write-read round trip that must reproduce the bytes.
#include "invscan/SMBIOSTable.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static std::FILE* sink = std::fopen("/dev/null", "w");
    if (size == 0 || size > 1 << 18) return 0;
    std::vector<uint8_t> copy(data, data + size);
    std::FILE* f = fmemopen(copy.data(), copy.size(), "r");
    if (!f) return 0;
    SMBIOSTable t(nullptr, 0, 0, 0);
    bool ok = t.readBytesFromStream(f);
    std::fclose(f);
    if (!ok) return 0;
    t.parseData();
    t.dump(sink);

    char* text = nullptr;
    size_t len = 0;
    std::FILE* out = open_memstream(&text, &len);
    t.writeBytesToStream(out);
    std::fclose(out);
    std::FILE* in = fmemopen(text, len, "r");
    SMBIOSTable back(nullptr, 0, 0, 0);
    if (!back.readBytesFromStream(in) || back.getTotalLength() != t.getTotalLength() ||
        back.getNumTables() != t.getNumTables() || back.getRevision() != t.getRevision() ||
        (t.getTotalLength() > 0 &&
         std::memcmp(back.getData(), t.getData(), static_cast<size_t>(t.getTotalLength())) != 0))
        std::abort();
    std::fclose(in);
    std::free(text);
    return 0;
}
