// The running program's own path.
#ifndef INVSCAN_DARWIN_MACH_O_DYLD_H
#define INVSCAN_DARWIN_MACH_O_DYLD_H

#include <cstdint>

extern "C" {
int _NSGetExecutablePath(char* buf, std::uint32_t* bufsize);
}

#endif
