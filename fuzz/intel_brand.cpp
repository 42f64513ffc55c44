// The brand-string functions of the processor model table over arbitrary bytes. The
// input up to its first NUL is the brand string, the rest the model number; the brand
// also goes into the lookup record unterminated when it fills the whole array.
#include "invscan/cpuid_intel_table_new.h"

#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* bytes = reinterpret_cast<const char*>(data);
    const size_t brandLen = strnlen(bytes, size);
    // Exact-size heap copies, so that a read past the terminator is caught.
    std::unique_ptr<char[]> brand(new char[brandLen + 1]);
    std::memcpy(brand.get(), bytes, brandLen);
    brand[brandLen] = '\0';
    const size_t rest = brandLen < size ? size - brandLen - 1 : 0;
    std::unique_ptr<char[]> model(new char[rest + 1]);
    std::memcpy(model.get(), bytes + size - rest, rest);
    model[rest] = '\0';

    const int mhz = IntelGetMHzFromBrandstring(brand.get());
    if (mhz != -1 && mhz < 1) __builtin_trap();
    IntelCheckModelNumber(brand.get(), model.get());
    const std::string stripped = stripModel(model.get());
    if (!stripped.empty() && (stripped.size() >= std::strlen(model.get()) ||
                              std::strncmp(stripped.c_str(), model.get(), stripped.size()) != 0))
        __builtin_trap();
    for (int code = -1; code <= 10; ++code)
        IntelCheckBrand(brand.get(), code);

    PhysicalProcessor proc;
    std::memcpy(proc.brandString, bytes, std::min(size, sizeof proc.brandString));
    if (size < sizeof proc.brandString) proc.brandString[size] = '\0';
    uint32_t sig = 0;
    if (size >= 4) std::memcpy(&sig, data + size - 4, 4);
    proc.signature = sig;
    proc.logicalPerCore = size > 0 ? static_cast<int>(data[0]) - 8 : -1;
    proc.logicalPerCoreKnown = size > 1 && (data[1] & 1);
    proc.logicalPerCoreKnownCount = size > 2 ? data[2] : -1;
    if (IntelLookupNewTable(proc) && proc.familyName == "Unknown") __builtin_trap();
    return 0;
}
