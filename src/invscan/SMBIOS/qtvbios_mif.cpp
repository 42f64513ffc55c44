#include "invscan/qtvbios_mif.h"

#include "invscan/CcLog.h"
#include "invscan/SMBIOSTable.h"
#include "invscan/SafeFile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static const char* const kFile = "./../../../src/invscan/SMBIOS/qtvbios_mif";
static const char* const kOp = "qtvbios_mif_rewrite()";

static const size_t kMaxLine = 254;
static const size_t kMaxLines = 100;

char* changeFormat(const char* date) {
    if (!date || std::strlen(date) < 10) return nullptr;
    char* out = static_cast<char*>(std::malloc(9));
    if (!out) return nullptr;
    std::snprintf(out, 9, "%.2s/%.2s/%.2s", date + 5, date + 8, date + 2);
    return out;
}

char* extractDate(char* line) {
    if (!line || !*line) return nullptr;
    char* open = std::strchr(line, '"');
    if (!open) return nullptr;
    char* start = open + 1;
    char* close = std::strchr(start, '"');
    if (close) *close = '\0';
    size_t n = std::strlen(start);
    char* out = static_cast<char*>(std::malloc(n + 1));
    if (out) std::memcpy(out, start, n + 1);
    return out;
}

int notBogus(const char* text) {
    if (!text) return 0;
    for (const char** b = bogus_strings; *b; ++b)
        if (std::strstr(text, *b)) return 0;
    return 1;
}

namespace {

// Past this the file has more than kMaxLines lines of kMaxLine bytes anyway.
const size_t kMaxBytes = (kMaxLines + 1) * kMaxLine;

// Lines of at most kMaxLine bytes, line end included, exactly as in the file. False
// when the file has more than kMaxLines of them.
bool splitLines(const std::string& text, std::vector<std::string>& lines) {
    std::string cur;
    for (char c : text) {
        cur.push_back(c);
        if (c == '\n' || cur.size() == kMaxLine) {
            if (lines.size() == kMaxLines) return false;
            lines.push_back(cur);
            cur.clear();
        }
    }
    if (!cur.empty()) {
        if (lines.size() == kMaxLines) return false;
        lines.push_back(cur);
    }
    return true;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string s;
    for (const std::string& l : lines)
        s += l;
    return s;
}

// The file as opened: its descriptor (read-write when the caller may write it), its
// folder and its name there, after the caller's own links.
struct MifFile {
    int fd = -1;
    bool writable = false;
    int dir = -1;
    std::string name;
    struct stat st;
    ~MifFile() {
        if (fd >= 0) close(fd);
        if (dir >= 0) close(dir);
    }
};

// Opens the file without following another user's link anywhere in its path and
// without waiting on a FIFO; the folder it was found in comes with it, so a rename
// lands beside the file that was read.
bool openMif(const char* path, MifFile& m) {
    m.fd = safefile::openReadWriteIn(path, &m.dir, &m.name, nullptr);
    m.writable = m.fd >= 0;
    if (m.fd < 0 && (errno == EACCES || errno == EROFS || errno == ETXTBSY))
        m.fd = safefile::openReadIn(path, &m.dir, &m.name, nullptr);
    return m.fd >= 0 && fstat(m.fd, &m.st) == 0;
}

// The name in the folder still is the file that was read.
bool stillThere(const MifFile& m) {
    struct stat now;
    return fstatat(m.dir, m.name.c_str(), &now, AT_SYMLINK_NOFOLLOW) == 0 &&
           now.st_dev == m.st.st_dev && now.st_ino == m.st.st_ino;
}

// A temporary file beside the target and a rename: the file is either the old one or
// the new one, never half written. Mode and owner are carried over. The temporary is
// made new (O_EXCL), so nothing planted under its name is written through.
bool writeAtomically(const MifFile& m, const std::string& text) {
    if (m.dir < 0) return false;
    std::string tmp;
    int fd = -1;
    for (unsigned i = 0; fd < 0 && i < 16; ++i) {
        tmp = "." + m.name + "." + std::to_string(getpid()) + "." +
              std::to_string(static_cast<unsigned long>(time(nullptr)) + i * 7919u);
        fd = safefile::createNewAt(m.dir, tmp.c_str(), 0600, nullptr);
        if (fd < 0 && errno != EEXIST) return false;
    }
    if (fd < 0) return false;
    // Owner first: a mode given before it would briefly apply to our own file.
    if (fchown(fd, m.st.st_uid, m.st.st_gid) != 0) {
        // Not ours to give away: the new file keeps our owner.
    }
    fchmod(fd, m.st.st_mode & 07777);
    bool ok = safefile::writeAllFd(fd, text.data(), text.size());
    ok = fsync(fd) == 0 && ok;
    ok = close(fd) == 0 && ok;
    if (!ok || !stillThere(m) || renameat(m.dir, tmp.c_str(), m.dir, m.name.c_str()) != 0) {
        unlinkat(m.dir, tmp.c_str(), 0);
        return false;
    }
    return true;
}

// For a folder we may not create files in: rewrite the open file itself, and put the
// old text back if writing the new one fails.
bool writeInPlace(const MifFile& m, const std::string& text, const std::string& original) {
    if (!m.writable) return false;
    bool ok = lseek(m.fd, 0, SEEK_SET) == 0 &&
              safefile::writeAllFd(m.fd, text.data(), text.size()) &&
              ftruncate(m.fd, static_cast<off_t>(text.size())) == 0;
    if (!ok && lseek(m.fd, 0, SEEK_SET) == 0 &&
        safefile::writeAllFd(m.fd, original.data(), original.size()) &&
        ftruncate(m.fd, static_cast<off_t>(original.size())) != 0) {
        // Nothing more can be done; the trace tells the rewrite failed.
    }
    return ok;
}

// Whether the caller may rewrite the file, as a plain rewrite by name would allow: it
// could open it for writing. A file with other names that another user owns may be
// a link to a file of ours planted beside their own: never rewritten.
bool mayWrite(const MifFile& m) {
    return m.writable && (m.st.st_nlink == 1 || safefile::trustedOwner(m.st.st_uid));
}

} // namespace

int qtvbios_mif_rewrite_file(const char* path, const char* date) {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, kFile, kOp, "hardware %s", "Entering qtvbios_mif_rewrite.");
    MifFile mif;
    std::string text;
    if (!path || !openMif(path, mif)) {
        log->traceMidExit(__LINE__, kFile, kOp, "hardware %s", "qtvbios.mif not found.");
        return 0;
    }
    std::vector<std::string> lines;
    bool fits = safefile::readAllFd(mif.fd, kMaxBytes, &text) && splitLines(text, lines);
    if (!fits) {
        log->traceMidExit(__LINE__, kFile, kOp, "hardware %s",
                          "Leaving qtvbios_mif_rewrite [qtvbios.mif not replaced].");
        return 0;
    }
    // State 0: looking for BIOS_DATE; 1: looking for its value line; 2: found.
    int state = 0;
    size_t valueLine = 0;
    for (size_t i = 0; i < lines.size() && state < 2; ++i) {
        const char* l = lines[i].c_str();
        if (state == 0 && std::strstr(l, "BIOS_DATE")) {
            state = 1;
        } else if (state == 1 && std::strstr(l, "Value = \"")) {
            state = 2;
            valueLine = i;
        }
    }
    bool replaced = false;
    if (state == 2) {
        std::string& v = lines[valueLine];
        log->traceMAX(__LINE__, kFile, kOp, "hardware Date is: %s", v.c_str());
        char* newDate = changeFormat(date);
        char* oldDate = nullptr;
        bool unknown = std::strstr(v.c_str(), "UNKNOWN") != nullptr;
        if (!unknown && newDate) {
            std::vector<char> copy(v.begin(), v.end());
            copy.push_back('\0');
            oldDate = extractDate(copy.data());
        }
        if (newDate && (unknown || (oldDate && std::strcmp(oldDate, newDate) != 0))) {
            v = std::string(16, ' ') + "Value = \"" + newDate + "\"\n";
            replaced = true;
            log->traceMAX(__LINE__, kFile, kOp, "hardware Replaced BIOS Date is: %s", v.c_str());
        }
        std::free(newDate);
        std::free(oldDate);
    }
    if (!replaced) {
        log->traceMidExit(__LINE__, kFile, kOp, "hardware %s",
                          "Leaving qtvbios_mif_rewrite [qtvbios.mif not replaced].");
        return 0;
    }
    log->traceMAX(__LINE__, kFile, kOp, "hardware %s", "Rewriting qtvbios.mif file.");
    const std::string rewritten = joined(lines);
    if (!mayWrite(mif) ||
        (!writeAtomically(mif, rewritten) && !writeInPlace(mif, rewritten, text))) {
        log->traceMidExit(__LINE__, kFile, kOp, "hardware %s",
                          "It is not possible to open qtvbios.mif to rewrite.");
        return 0;
    }
    log->traceMidExit(__LINE__, kFile, kOp, "hardware %s", "Rewriting completed.");
    return 1;
}

int qtvbios_mif_rewrite(char* date) {
    return qtvbios_mif_rewrite_file("qtvbios.mif", date);
}
