// Readers of the small texts the host groups take apart: memory-module and disk
// sizes, the install log line, version numbers, os-release and meminfo. They are
// pure functions over bounded input, so they are tested and fuzzed on their own;
// the groups only fetch the text.
#ifndef INVSCAN_HOSTFACTS_H
#define INVSCAN_HOSTFACTS_H

#include "invscan_export.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace hostfacts {

// A module size such as "2 GB" or "512 MB", read as "%d %s": GB (any case) counts
// 1024 MB; any other unit leaves the number; text that does not give both a
// number and a word gives 0. The number saturates at the 32-bit range and the
// product wraps as the unsigned 32-bit field it lands in.
INVSCAN_API std::uint32_t moduleSizeMB(const char* text);

// A disk size such as "250.06 GB" or "931.5 MB", read as "%f %s" into a float:
// GB (any case) multiplies by 1024, anything else is MB. Truncated to unsigned 32
// bits; negative or not a number gives 0, 2^32 or more gives 4294967295.
INVSCAN_API std::uint32_t storageSizeMB(const char* text);

// "%d.%d.%s" over `text`: fields the scan does not reach keep their start values
// (0, 0, empty). The third field is at most `subMax` characters (longer is cut).
struct Version {
    std::int32_t major = 0;
    std::int32_t minor = 0;
    std::string sub;
    int fields = 0; // how many of the three the scan filled
};
INVSCAN_API Version scanVersion(const char* text, std::size_t subMax = 11);

// The install date of an "OSInstall.custom" line: one trailing line feed and then
// one trailing full stop dropped; the text after "Native install completed" and
// one separator. False when the line has another wording.
INVSCAN_API bool installDate(const char* line, std::string* date);

// os-release: KEY=value lines, values bare or in single or double quotes (with
// backslash escapes inside double quotes). The keys the groups use.
struct OsRelease {
    std::string name;
    std::string prettyName;
    std::string versionId;
};
INVSCAN_API OsRelease parseOsRelease(const char* data, std::size_t size);

// The kB value of `key` in /proc/meminfo text; false when absent or not a number.
INVSCAN_API bool meminfoKB(const char* data, std::size_t size, const char* key, std::uint64_t* kb);

// Reads a fixed file through the host layer (live, recorded or replayed), at most
// `limit` bytes. False when it cannot be opened.
INVSCAN_API bool readHostFile(const char* path, std::string* out, std::size_t limit = 1u << 20);

// The scanned host's kernel name ("Darwin", "Linux", ...) from uname, empty when
// unknown. Groups branch on this, never on the build platform.
INVSCAN_API std::string kernelName();
INVSCAN_API bool scannedHostIsLinux();

} // namespace hostfacts

#endif
