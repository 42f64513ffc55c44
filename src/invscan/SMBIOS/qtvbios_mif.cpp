#include "invscan/qtvbios_mif.h"

#include "invscan/CcLog.h"
#include "invscan/SMBIOSTable.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
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

// Lines of at most kMaxLine bytes, line end included, exactly as in the file. False
// when the file has more than kMaxLines of them.
bool readLines(FILE* f, std::vector<std::string>& lines) {
    std::string cur;
    int c;
    while ((c = std::fgetc(f)) != EOF) {
        cur.push_back(static_cast<char>(c));
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

bool writeAll(FILE* f, const std::vector<std::string>& lines) {
    bool ok = true;
    for (const std::string& l : lines)
        ok = ok && std::fwrite(l.data(), 1, l.size(), f) == l.size();
    return std::fflush(f) == 0 && ok;
}

// A temporary file beside the target and a rename: the file is either the old one or
// the new one, never half written. Mode and owner are carried over.
bool writeAtomically(const std::string& path, const std::vector<std::string>& lines) {
    std::string tmp = path + ".XXXXXX";
    std::vector<char> name(tmp.begin(), tmp.end());
    name.push_back('\0');
    int fd = mkstemp(name.data());
    if (fd < 0) return false;
    struct stat st;
    if (stat(path.c_str(), &st) == 0) {
        fchmod(fd, st.st_mode & 07777);
        if (fchown(fd, st.st_uid, st.st_gid) != 0) {
            // Not ours to give away: the new file keeps our owner.
        }
    }
    FILE* f = fdopen(fd, "w");
    if (!f) {
        close(fd);
        unlink(name.data());
        return false;
    }
    bool ok = writeAll(f, lines);
    ok = fsync(fileno(f)) == 0 && ok;
    ok = std::fclose(f) == 0 && ok;
    if (!ok || std::rename(name.data(), path.c_str()) != 0) {
        unlink(name.data());
        return false;
    }
    return true;
}

// For a folder we may not create files in: rewrite the file itself, and put the old
// text back if writing the new one fails.
bool writeInPlace(const std::string& path, const std::vector<std::string>& lines,
                  const std::vector<std::string>& original) {
    FILE* f = std::fopen(path.c_str(), "r+b");
    if (!f) return false;
    bool ok = writeAll(f, lines);
    long end = std::ftell(f);
    ok = ok && end >= 0 && ftruncate(fileno(f), static_cast<off_t>(end)) == 0;
    if (!ok) {
        std::rewind(f);
        writeAll(f, original);
        long oend = std::ftell(f);
        if (oend >= 0 && ftruncate(fileno(f), static_cast<off_t>(oend)) != 0) {
            // Nothing more can be done; the trace tells the rewrite failed.
        }
    }
    return std::fclose(f) == 0 && ok;
}

// Whether the caller may open the file itself for writing, as a plain rewrite would:
// the rename below needs only the folder, and would replace a file kept read-only.
bool mayWrite(const std::string& path) {
    int fd = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat st;
    bool regular = fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    close(fd);
    return regular;
}

// The file behind `path`: a symbolic link stays a link and its target is rewritten.
std::string resolved(const char* path) {
    char* r = realpath(path, nullptr);
    if (!r) return path;
    std::string s = r;
    std::free(r);
    return s;
}

} // namespace

int qtvbios_mif_rewrite_file(const char* path, const char* date) {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, kFile, kOp, "hardware %s", "Entering qtvbios_mif_rewrite.");
    FILE* f = path ? std::fopen(path, "rb") : nullptr;
    if (!f) {
        log->traceMidExit(__LINE__, kFile, kOp, "hardware %s", "qtvbios.mif not found.");
        return 0;
    }
    std::vector<std::string> lines;
    bool fits = readLines(f, lines);
    std::fclose(f);
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
    const std::vector<std::string> original = lines;
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
    const std::string target = resolved(path);
    if (!mayWrite(target) ||
        (!writeAtomically(target, lines) && !writeInPlace(target, lines, original))) {
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
