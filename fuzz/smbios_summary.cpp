// The processor summary's own structure walk over arbitrary table bytes; the first
// byte picks the SMBIOS version so that every version-dependent field is reached.
#include "invscan/smbios.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 1 << 20) return 0;
    SmbiosInfo info;
    getSmbiosInfoFromTable(data + 1, size - 1, 2 + (data[0] >> 7), data[0] & 0x0F, info);
    return 0;
}
