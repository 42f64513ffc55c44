// The operating system group's readers: os-release (unterminated input, as a file
// is read), the version scan of what it names, and the install log line.
#include "invscan/HostFacts.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* text = reinterpret_cast<const char*>(data);
    hostfacts::OsRelease r = hostfacts::parseOsRelease(text, size);
    hostfacts::Version v = hostfacts::scanVersion(r.versionId.c_str());
    if (v.sub.size() > 11) std::abort();
    std::uint64_t kb;
    hostfacts::meminfoKB(text, size, "MemAvailable", &kb);
    std::string line(text, size);
    std::string date;
    hostfacts::installDate(line.c_str(), &date);
    if (date.size() > 511) std::abort();
    return 0;
}
