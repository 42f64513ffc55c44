// Live answers that every POSIX system gives the same way.
#include "host_internal.h"

#include <clocale>
#include <cstring>
#include <ctime>
#include <sys/socket.h>
#include <sys/utsname.h>

namespace host {

void copyField(char* dst, std::size_t size, const char* src) {
    if (!size) return;
    std::size_t n = src ? std::strlen(src) : 0;
    if (n >= size) n = size - 1;
    if (n) std::memcpy(dst, src, n);
    dst[n] = '\0';
}

int PosixBackend::uname(Utsname* name) {
    struct utsname u;
    if (::uname(&u) != 0) return -1;
    copyField(name->sysname, sizeof name->sysname, u.sysname);
    copyField(name->nodename, sizeof name->nodename, u.nodename);
    copyField(name->release, sizeof name->release, u.release);
    copyField(name->version, sizeof name->version, u.version);
    copyField(name->machine, sizeof name->machine, u.machine);
    return 0;
}

std::FILE* PosixBackend::fopen(const char* path) { return std::fopen(path, "r"); }

std::FILE* PosixBackend::popen(const char* command) { return ::popen(command, "r"); }

int PosixBackend::pclose(std::FILE* stream) { return ::pclose(stream); }

struct hostent* PosixBackend::gethostbyaddr(const void* addr, unsigned len, int type) {
    return ::gethostbyaddr(addr, static_cast<socklen_t>(len), type);
}

char* PosixBackend::setlocale(int category, const char* locale) {
    return std::setlocale(category, locale);
}

void PosixBackend::tzset() { ::tzset(); }

int PosixBackend::timeZone(TimeZoneInfo* out) {
    std::time_t now = std::time(nullptr);
    struct tm tmv;
    if (!::localtime_r(&now, &tmv)) return -1;
    out->gmtoff = tmv.tm_gmtoff;
    out->daylight = ::daylight;
    copyField(out->stdName, sizeof out->stdName, ::tzname[0]);
    copyField(out->dstName, sizeof out->dstName, ::tzname[1]);
    return 0;
}

}  // namespace host
