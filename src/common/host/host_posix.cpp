// Live answers that every POSIX system gives the same way.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64 // 64-bit sizes and inode numbers on 32-bit Linux too
#endif
#include "common/host/host_internal.h"

#include <clocale>
#include <cstring>
#include <ctime>
#include <chrono>
#include <condition_variable>
#include <map>
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

void copyField(std::string& dst, std::size_t size, const char* src) {
    dst.assign(src ? src : "", src && size ? strnlen(src, size - 1) : 0);
}

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
// No lookup waits without a bound: unset, 0 or past it, a lookup waits this long.
const unsigned MAX_LOOKUP_MS = 5000;
unsigned g_lookupMs = MAX_LOOKUP_MS;

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
    std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
};

// Lookups asked ahead or under way, by family and address bytes; a minute old, an
// entry is asked again.
std::mutex g_tableLock;
std::map<std::string, std::shared_ptr<Pending>>& pendingTable() {
    static auto* t = new std::map<std::string, std::shared_ptr<Pending>>();
    return *t;
}

bool toSockaddr(const void* addr, unsigned len, int type, struct sockaddr_storage* ss,
                unsigned* ssLen) {
    std::memset(ss, 0, sizeof *ss);
    if (type == AF_INET && len == 4) {
        auto* in = reinterpret_cast<struct sockaddr_in*>(ss);
        in->sin_family = AF_INET;
        std::memcpy(&in->sin_addr, addr, 4);
        *ssLen = sizeof *in;
        return true;
    }
    if (type == AF_INET6 && len == 16) {
        auto* in6 = reinterpret_cast<struct sockaddr_in6*>(ss);
        in6->sin6_family = AF_INET6;
        std::memcpy(&in6->sin6_addr, addr, 16);
        *ssLen = sizeof *in6;
        return true;
    }
    return false;
}

// The lookup of an address, started on a thread of its own unless one is under
// way or fresh; null when the address cannot be asked.
std::shared_ptr<Pending> startLookup(const void* addr, unsigned len, int type) {
    struct sockaddr_storage ss;
    unsigned ssLen = 0;
    if (!toSockaddr(addr, len, type, &ss, &ssLen)) return nullptr;
    const std::string key = std::to_string(type) + std::string(static_cast<const char*>(addr), len);
    const auto now = std::chrono::steady_clock::now();
    std::lock_guard<std::mutex> g(g_tableLock);
    auto& table = pendingTable();
    auto it = table.find(key);
    if (it != table.end() && now - it->second->started < std::chrono::minutes(1)) return it->second;
    for (auto i = table.begin(); i != table.end();)
        i = now - i->second->started >= std::chrono::minutes(1) ? table.erase(i) : std::next(i);
    auto pending = std::make_shared<Pending>();
    ResolverFn fn = g_resolver ? g_resolver : systemResolver;
    auto ask = [pending, ss, ssLen, fn]() {
        char name[NI_MAXHOST] = "";
        int rc = fn(reinterpret_cast<const struct sockaddr*>(&ss), ssLen, name, sizeof name);
        std::lock_guard<std::mutex> lk(pending->lock);
        pending->rc = rc;
        std::memcpy(pending->name, name, sizeof name);
        pending->name[sizeof name - 1] = '\0';
        pending->done = true;
        pending->doneCv.notify_all();
    };
    table[key] = pending;
    // A resolver that never answers must not hold up the scan: each lookup has a
    // thread of its own, and whoever waits for it stops at the bound.
    try {
        std::thread(ask).detach();
    } catch (const std::system_error&) {
        ask();
    }
    return pending;
}

} // namespace

void setResolver(ResolverFn fn) {
    g_resolver = fn;
    std::lock_guard<std::mutex> g(g_tableLock);
    pendingTable().clear(); // answers of another resolver
}
void setLookupTimeout(unsigned ms) {
    g_lookupMs = ms == 0 || ms > MAX_LOOKUP_MS ? MAX_LOOKUP_MS : ms;
}
unsigned lookupTimeout() {
    return g_lookupMs;
}

void PosixBackend::prefetchLookup(const void* addr, unsigned len, int type) {
    startLookup(addr, len, type);
}

struct hostent* PosixBackend::gethostbyaddr(const void* addr, unsigned len, int type) {
    std::shared_ptr<Pending> pending = startLookup(addr, len, type);
    if (!pending) {
        h_errno = NO_RECOVERY;
        return nullptr;
    }
    std::unique_lock<std::mutex> g(pending->lock);
    // The bound runs from when the lookup was asked, ahead of time or now.
    const auto deadline = pending->started + std::chrono::milliseconds(g_lookupMs);
    if (!pending->doneCv.wait_until(g, deadline, [&] { return pending->done; })) {
        h_errno = TRY_AGAIN;
        return nullptr;
    }
    if (pending->rc != 0 || !pending->name[0]) {
        h_errno = HOST_NOT_FOUND;
        return nullptr;
    }
    static HostentStore result;
    return result.fill(pending->name, addr, len, type);
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
