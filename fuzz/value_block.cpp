// The value printers over arbitrary blocks: the input is the block, its length
// word capped at the input's size, so a read past the declared end is a fault.
#include "invscan/ZelRender.h"
#include "invscan/ZelTableRow.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The dump goes to standard output.
    if (!std::freopen("/dev/null", "w", stdout)) return 0;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    std::vector<unsigned char> block(data, data + size);
    if (zelGet32(block.data()) > size) zelPut32(block.data(), static_cast<uint32_t>(size));
    block.resize(zelGet32(block.data()) < 4 ? 4 : zelGet32(block.data()));
    block.shrink_to_fit();

    static std::FILE* sink = std::fopen("/dev/null", "w");
    if (sink) PrintZelAttribValueToFile(sink, block.data());
    PrintZelAttribValue(block.data());
    return 0;
}
