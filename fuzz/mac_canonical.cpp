// Hardware-address canonical form and the IPv6 scope over any text.
#include "invscan/IfInfo.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    std::string before = text.c_str();
    // The canonical form may be longer than the text: the caller's buffer holds 18.
    std::string buf = text;
    buf.resize(buf.size() + 1 < 18 ? 18 : buf.size() + 1);
    int rc = convertMacToCanonical(&buf[0]);
    const char* out = buf.c_str();
    if (rc == 0 && std::strlen(out) != 17) std::abort();
    if (rc != 0 && before != out) std::abort();
    getScope(text.c_str());
    return 0;
}
