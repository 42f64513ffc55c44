// Live answers that every POSIX system gives the same way.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64 // 64-bit sizes and inode numbers on 32-bit Linux too
#endif
#include "host_internal.h"

#include <clocale>
#include <cstring>
#include <ctime>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <netdb.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <thread>
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

std::FILE* PosixBackend::fopen(const char* path) {
    return std::fopen(path, "r");
}

std::FILE* PosixBackend::popen(const char* command) {
    return ::popen(command, "r");
}

int PosixBackend::pclose(std::FILE* stream) {
    return ::pclose(stream);
}

namespace {

ResolverFn g_resolver = nullptr;
unsigned g_lookupMs = 0;

int systemResolver(const struct sockaddr* sa, unsigned saLen, char* hostName, std::size_t n) {
    return ::getnameinfo(sa, static_cast<socklen_t>(saLen), hostName, static_cast<socklen_t>(n),
                         nullptr, 0, NI_NAMEREQD);
}

// One lookup, shared with the thread that asks: whichever side finishes last frees it.
struct Pending {
    std::mutex lock;
    std::condition_variable doneCv;
    bool done = false;
    int rc = -1;
    char name[NI_MAXHOST] = "";
};

} // namespace

void setResolver(ResolverFn fn) {
    g_resolver = fn;
}
void setLookupTimeout(unsigned ms) {
    g_lookupMs = ms;
}
unsigned lookupTimeout() {
    return g_lookupMs;
}

struct hostent* PosixBackend::gethostbyaddr(const void* addr, unsigned len, int type) {
    struct sockaddr_storage ss;
    std::memset(&ss, 0, sizeof ss);
    unsigned ssLen = 0;
    if (type == AF_INET && len == 4) {
        auto* in = reinterpret_cast<struct sockaddr_in*>(&ss);
        in->sin_family = AF_INET;
        std::memcpy(&in->sin_addr, addr, 4);
        ssLen = sizeof *in;
    } else if (type == AF_INET6 && len == 16) {
        auto* in6 = reinterpret_cast<struct sockaddr_in6*>(&ss);
        in6->sin6_family = AF_INET6;
        std::memcpy(&in6->sin6_addr, addr, 16);
        ssLen = sizeof *in6;
    } else {
        h_errno = NO_RECOVERY;
        return nullptr;
    }
    ResolverFn fn = g_resolver ? g_resolver : systemResolver;
    auto pending = std::make_shared<Pending>();
    auto ask = [pending, ss, ssLen, fn]() {
        char name[NI_MAXHOST] = "";
        int rc = fn(reinterpret_cast<const struct sockaddr*>(&ss), ssLen, name, sizeof name);
        std::lock_guard<std::mutex> g(pending->lock);
        pending->rc = rc;
        std::memcpy(pending->name, name, sizeof name);
        pending->name[sizeof name - 1] = '\0';
        pending->done = true;
        pending->doneCv.notify_all();
    };
    bool asked = false;
    if (g_lookupMs) {
        // A resolver that never answers must not hold up the scan: ask on a thread
        // of its own and stop waiting at the bound.
        try {
            std::thread(ask).detach();
            asked = true;
        } catch (const std::system_error&) {
        }
    }
    if (!asked) ask();
    std::unique_lock<std::mutex> g(pending->lock);
    if (!pending->doneCv.wait_for(g, std::chrono::milliseconds(g_lookupMs ? g_lookupMs : 1),
                                  [&] { return pending->done; })) {
        h_errno = TRY_AGAIN;
        return nullptr;
    }
    if (pending->rc != 0 || !pending->name[0]) {
        h_errno = HOST_NOT_FOUND;
        return nullptr;
    }
    static std::string name;
    static unsigned char bytes[16];
    static char* addrList[2];
    static char* aliases[1];
    static struct hostent result;
    name = pending->name;
    std::memcpy(bytes, addr, len);
    addrList[0] = reinterpret_cast<char*>(bytes);
    addrList[1] = nullptr;
    aliases[0] = nullptr;
    result.h_name = &name[0];
    result.h_aliases = aliases;
    result.h_addrtype = type;
    result.h_length = static_cast<int>(len);
    result.h_addr_list = addrList;
    return &result;
}

char* PosixBackend::setlocale(int category, const char* locale) {
    return std::setlocale(category, locale);
}

void PosixBackend::tzset() {
    ::tzset();
}

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

} // namespace host
