// The MIF date rewrite over arbitrary file contents: it must never fault, and a file
// it leaves alone must stay byte for byte as it was.
#include "invscan/qtvbios_mif.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static std::string path = [] {
        char dir[] = "/tmp/fuzz_mif_XXXXXX";
        const char* d = mkdtemp(dir);
        return std::string(d ? d : "/tmp") + "/qtvbios.mif";
    }();
    if (size > 1 << 16) return 0;
    std::string before(reinterpret_cast<const char*>(data), size);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << before;
    int replaced = qtvbios_mif_rewrite_file(path.c_str(), "2003-12-25");
    std::ifstream in(path, std::ios::binary);
    std::string after((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!replaced && after != before) std::abort();
    if (replaced && after.find("Value = \"12/25/03\"") == std::string::npos) std::abort();

    std::string line = before;
    std::free(extractDate(&line[0]));
    std::free(changeFormat(line.c_str()));
    notBogus(line.c_str());
    return 0;
}
