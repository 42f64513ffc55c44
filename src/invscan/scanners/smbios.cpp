#include "invscan/smbios.h"
#include "invscan/SafeFile.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <string>
#include <unistd.h>

namespace {

int debugLevel() {
    static int level = [] {
        const char* e = std::getenv("INVSCAN_SMBIOS_DEBUG");
        return e ? std::atoi(e) : 0;
    }();
    return level;
}
int g_override = -1;
int dbg() {
    return g_override >= 0 ? g_override : debugLevel();
}

void logprefix(const char* fn, int line) {
    std::fprintf(stderr, "%s(%d) - ", fn, line);
}

#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
void logprintf(const char* fmt, ...) {
    std::va_list ap;
    va_start(ap, fmt);
    std::vfprintf(stderr, fmt, ap);
    va_end(ap);
}

#define SMB_LOG(...)                                                                               \
    do {                                                                                           \
        if (dbg()) {                                                                               \
            logprefix(__func__, __LINE__);                                                         \
            logprintf(__VA_ARGS__);                                                                \
        }                                                                                          \
    } while (0)

// Reads within the structure's formatted area only; beyond it a field is 0.
struct Fields {
    const unsigned char* p;
    unsigned len;
    unsigned u8(unsigned off) const { return off < len ? p[off] : 0u; }
    unsigned u16(unsigned off) const { return off + 1 < len ? p[off] | (p[off + 1] << 8) : 0u; }
    unsigned long u32(unsigned off) const {
        return off + 3 < len ? static_cast<unsigned long>(p[off]) |
                                   (static_cast<unsigned long>(p[off + 1]) << 8) |
                                   (static_cast<unsigned long>(p[off + 2]) << 16) |
                                   (static_cast<unsigned long>(p[off + 3]) << 24)
                             : 0ul;
    }
};

bool versionAtLeast(const SmbiosInfo& info, int major, int minor) {
    return info.version[0] > major || (info.version[0] == major && info.version[1] >= minor);
}

std::string str(const unsigned char* s, const unsigned char* end, unsigned index) {
    char buf[256];
    getString(s, end, static_cast<int>(index), buf, sizeof buf);
    return buf;
}

// The formatted area of the structure at `s`, cut at `end`.
Fields fieldsOf(const unsigned char* s, const unsigned char* end) {
    if (!s || end - s < 2) return Fields{s, 0};
    unsigned avail = static_cast<unsigned>(end - s < 0xFF ? end - s : 0xFF);
    return Fields{s, s[1] < avail ? s[1] : avail};
}

void parseSystemStruct(const unsigned char* s, const unsigned char* end, SmbiosInfo& info) {
    if (!versionAtLeast(info, 2, 0)) {
        SMB_LOG("parseSystemStruct(): SBIOS version %d.%d < 2.0, skipping System table.\n",
                info.version[0], info.version[1]);
        return;
    }
    Fields f = fieldsOf(s, end);
    SmbiosInfo::System& sys = info.system;
    sys.present = true;
    sys.manufacturer = str(s, end, f.u8(0x04));
    sys.product = str(s, end, f.u8(0x05));
    sys.version = str(s, end, f.u8(0x06));
    sys.serial = str(s, end, f.u8(0x07));
    sys.family = str(s, end, f.u8(0x1A));
    if (f.len >= 0x18) {
        const unsigned char* u = s + 8;
        char buf[40];
        if (!versionAtLeast(info, 2, 6)) {
            std::snprintf(buf, sizeof buf,
                          "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                          u[0], u[1], u[2], u[3], u[4], u[5], u[6], u[7], u[8], u[9], u[10], u[11],
                          u[12], u[13], u[14], u[15]);
        } else {
            std::snprintf(buf, sizeof buf, "%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                          f.u32(8), f.u16(12), f.u16(14), u[8], u[9], u[10], u[11], u[12], u[13],
                          u[14], u[15]);
        }
        sys.uuid = buf;
    }
}

// End of the string set that starts at `p`: the byte after its double NUL, or `end`.
const unsigned char* skipStrings(const unsigned char* p, const unsigned char* end) {
    while (p + 1 < end && !(p[0] == 0 && p[1] == 0))
        ++p;
    return p + 1 < end ? p + 2 : end;
}

} // namespace

void setSmbiosDebug(int level) {
    g_override = level;
}

int getSmbiosDebug() {
    return dbg();
}

// For the snapshot reader beside this file; not part of the interface.
#if defined(__GNUC__)
__attribute__((format(printf, 3, 4)))
#endif
void smbiosTrace(const char* fn, int line, const char* fmt, ...);

void smbiosTrace(const char* fn, int line, const char* fmt, ...) {
    logprefix(fn, line);
    std::va_list ap;
    va_start(ap, fmt);
    std::vfprintf(stderr, fmt, ap);
    va_end(ap);
}

char* getString(const unsigned char* s, const unsigned char* end, int index, char* out,
                size_t outSize) {
    if (outSize == 0) return out;
    out[0] = '\0';
    if (index < 1 || s + 1 >= end || s[1] >= end - s) return out;
    const unsigned char* p = s + s[1];
    for (int i = 1; p < end && *p; ++i) {
        const unsigned char* e = p;
        while (e < end && *e)
            ++e;
        if (i == index) {
            size_t n = static_cast<size_t>(e - p);
            if (n >= outSize) n = outSize - 1;
            std::memcpy(out, p, n);
            out[n] = '\0';
            return out;
        }
        p = e + 1;
    }
    return out;
}

void parseProcStruct(const unsigned char* s, const unsigned char* end, SmbiosInfo& info) {
    // Exported: the caller's structure may claim more bytes than it has.
    Fields f = fieldsOf(s, end);
    if (f.u8(0x05) != 3) {
        SMB_LOG("parseProcStruct(): Proc type %d is not CPU, skipped.\n", f.u8(0x05));
        return;
    }
    SmbiosInfo::Chip c;
    c.status = static_cast<int>(f.u8(0x18));
    c.maxSpeedMHz = static_cast<int>(f.u16(0x14));
    c.bootSpeedMHz = static_cast<int>(f.u16(0x16));
    c.busClockMHz = static_cast<int>(f.u16(0x12));
    c.socket = str(s, end, f.u8(0x04));
    c.manufacturer = str(s, end, f.u8(0x07));
    c.version = str(s, end, f.u8(0x10));
    if (f.len > 37 && (info.version[0] >= 3 || (info.version[0] == 2 && info.version[1] > 4))) {
        c.totalCores = static_cast<int>(f.u8(0x23));
        c.enabledCores = static_cast<int>(f.u8(0x24));
        c.totalThreads = static_cast<int>(f.u8(0x25));
        if (c.totalCores > 0) c.activeThreads = (c.totalThreads / c.totalCores) * c.enabledCores;
    }
    info.chips.push_back(c);
}

int parseSmbiosStructs(const unsigned char* table, unsigned short count, unsigned length,
                       SmbiosInfo& info) {
    if (length == 0) return 1;
    const unsigned char* p = table;
    const unsigned char* end = table + length;
    for (int i = 0; (count == 0 || i < count) && p < end; ++i) {
        unsigned long off = static_cast<unsigned long>(p - table);
        int remaining = static_cast<int>(end - p);
        if (remaining < 4) {
            SMB_LOG("Warning! Structure header at %08lX is too long (%d) to fit in %d bytes\n", off,
                    4, remaining);
            SMB_LOG("parseSmbiosStructs(): invalid structure\n");
            return 0;
        }
        int len = p[1];
        if (len < 4 || len > remaining) {
            SMB_LOG("Warning! Structure at %08lX is too long (%d) to fit in %d bytes\n", off, len,
                    remaining);
            SMB_LOG("parseSmbiosStructs(): invalid structure\n");
            return 0;
        }
        int type = p[0];
        SMB_LOG("parseSmbiosStructs: entry %d of %d: type=%d,length=%d,handle=0x%X\n", i + 1,
                static_cast<int>(count), type, len, p[2] | (p[3] << 8));
        if (type == 1)
            parseSystemStruct(p, end, info);
        else if (type == 4)
            parseProcStruct(p, end, info);
        if (type == 127) break;
        p = skipStrings(p + len, end);
    }
    return 1;
}

static void summarise(SmbiosInfo& info) {
    int packages = 0, activePackages = 0, cores = 0, threads = 0, enabledCores = 0,
        activeThreads = 0;
    for (const SmbiosInfo::Chip& c : info.chips) {
        if (!(c.status & 0x40)) {
            SMB_LOG("SMBIOS skipped empty socket\n");
            continue;
        }
        ++packages;
        if (c.totalCores > 0) cores += c.totalCores;
        if (c.totalThreads > 0) threads += c.totalThreads;
        int st = c.status & 0x47;
        if (st != 0x41 && st != 0x44) {
            SMB_LOG("SMBIOS found disabled physical processor\n");
            continue;
        }
        ++activePackages;
        if (c.enabledCores > 0) enabledCores += c.enabledCores;
        if (c.activeThreads > 0) activeThreads += c.activeThreads;
        if (c.bootSpeedMHz > info.cpuClockMHz) info.cpuClockMHz = c.bootSpeedMHz;
        if (c.busClockMHz > info.busClockMHz) info.busClockMHz = c.busClockMHz;
    }
    if (versionAtLeast(info, 2, 4)) {
        if (packages > 0) info.numTotalPackages = packages;
        if (activePackages > 0) info.numActivePackages = activePackages;
    }
    if (enabledCores > 0) {
        info.numActiveCores = enabledCores;
        if (cores > 0) info.numTotalCores = cores;
        if (threads > 0) info.numTotalProcessors = threads;
        if (activeThreads > 0) info.numActiveProcessors = activeThreads;
    }
    if (dbg()) {
        SMB_LOG("SMBIOS SUMMARY:\n");
        logprintf("\t numTotalPackages = %d\n", info.numTotalPackages);
        logprintf("\t numActivePackages = %d\n", info.numActivePackages);
        logprintf("\t numTotalCores = %d\n", info.numTotalCores);
        logprintf("\t numActiveCores = %d\n", info.numActiveCores);
        logprintf("\t numTotalProcessors = %d\n", info.numTotalProcessors);
        logprintf("\t numActiveProcessors = %d\n", info.numActiveProcessors);
        logprintf("\t cpuClockMHz = %d\n", info.cpuClockMHz);
        logprintf("\t busClockMHz = %d\n", info.busClockMHz);
    }
}

bool getSmbiosInfoFromTable(const unsigned char* table, size_t length, int major, int minor,
                            SmbiosInfo& info) {
    info = SmbiosInfo();
    if (!table || length > 0xFFFFFFFFu) return false;
    info.version[0] = static_cast<unsigned char>(major);
    info.version[1] = static_cast<unsigned char>(minor);
    if (dbg() >= 2) dump_smbios(table, length);
    int ok = parseSmbiosStructs(table, 0, static_cast<unsigned>(length), info);
    // Chips read before a broken structure still count.
    summarise(info);
    return ok != 0;
}

// The diagnostic files are made new (O_EXCL, mode 0600): a name planted in the
// working folder, link or FIFO, is refused rather than written through.
static FILE* newDumpFile(const char* name) {
    std::string why;
    int fd = safefile::createNew(name, 0600, &why);
    if (fd < 0) {
        SMB_LOG("cannot create %s: %s\n", name, why.c_str());
        return nullptr;
    }
    return safefile::streamOf(fd, "wb");
}

void dump_smbios(const unsigned char* table, size_t length) {
    char name[64];
    int pid = static_cast<int>(getpid());
    std::snprintf(name, sizeof name, "smbios_%d.raw", pid);
    if (FILE* f = newDumpFile(name)) {
        std::fwrite(table, 1, length, f);
        std::fclose(f);
    }
    std::snprintf(name, sizeof name, "smbios_%d.txt", pid);
    FILE* f = newDumpFile(name);
    if (!f) return;
    std::fprintf(f, "SMBIOS table, %lu bytes\n", static_cast<unsigned long>(length));
    const unsigned char* p = table;
    const unsigned char* end = table + length;
    for (int i = 1; p + 4 <= end; ++i) {
        unsigned len = p[1];
        std::fprintf(f, "\nentry %d at %08lX: type=%u length=%u handle=0x%04X\n", i,
                     static_cast<unsigned long>(p - table), p[0], len, p[2] | (p[3] << 8));
        if (len < 4 || len > static_cast<unsigned>(end - p)) {
            std::fprintf(f, "invalid structure, dump ends\n");
            break;
        }
        for (unsigned k = 0; k < len; ++k)
            std::fprintf(f, "%s%02X", k % 16 ? " " : (k ? "\n  " : "  "), p[k]);
        std::fputc('\n', f);
        char s[256];
        for (int n = 1; *getString(p, end, n, s, sizeof s); ++n)
            std::fprintf(f, "  string %d: \"%s\"\n", n, s);
        if (p[0] == 127) break;
        p = skipStrings(p + len, end);
    }
    std::fclose(f);
}
