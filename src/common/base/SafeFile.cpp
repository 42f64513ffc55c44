#include "invscan/SafeFile.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace safefile {

namespace {

// As many links as the kernel follows in one path.
const int MAX_LINKS = 40;

enum Want { REGULAR, FOLDER };

std::string errText(int e) {
    return std::strerror(e);
}

std::vector<std::string> components(const std::string& path) {
    std::vector<std::string> out;
    std::size_t p = 0;
    while (p <= path.size()) {
        std::size_t slash = path.find('/', p);
        if (slash == std::string::npos) slash = path.size();
        std::string c = path.substr(p, slash - p);
        if (!c.empty() && c != ".") out.push_back(c);
        p = slash + 1;
    }
    return out;
}

int openFolderAt(int dir, const char* name) {
    return ::openat(dir, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

int rootFolder() {
    return ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

// O_NOFOLLOW on a link fails with ELOOP (EMLINK on some BSDs, ENOTDIR with
// O_DIRECTORY).
bool linkError(int e) {
    return e == ELOOP || e == EMLINK || e == ENOTDIR;
}

bool isLinkAt(int dir, const std::string& name) {
    struct stat st;
    return ::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode);
}

// The target of the link `name` in the folder `dir` when the caller may follow it;
// empty otherwise, with the reason. The link is read between two looks at the same
// inode, and only its owner can have written it.
std::string trustedLink(int dir, const std::string& name, std::string* why) {
    struct stat before, after;
    if (::fstatat(dir, name.c_str(), &before, AT_SYMLINK_NOFOLLOW) != 0) {
        *why = errText(errno);
        return std::string();
    }
    if (!S_ISLNK(before.st_mode)) {
        *why = "changed while it was opened";
        return std::string();
    }
    if (!trustedOwner(before.st_uid)) {
        *why = "is a symbolic link owned by another user";
        return std::string();
    }
    std::vector<char> buf(PATH_MAX + 1);
    ssize_t n = ::readlinkat(dir, name.c_str(), buf.data(), buf.size() - 1);
    if (n <= 0 || ::fstatat(dir, name.c_str(), &after, AT_SYMLINK_NOFOLLOW) != 0 ||
        after.st_ino != before.st_ino || after.st_dev != before.st_dev ||
        after.st_uid != before.st_uid) {
        *why = n <= 0 ? errText(errno) : "changed while it was opened";
        return std::string();
    }
    return std::string(buf.data(), static_cast<std::size_t>(n));
}

// Walks every component of `path` but the last from the folder `base` (AT_FDCWD for
// the current one), one folder descriptor at a time, so that no name is looked up
// twice: a link anywhere on the way is followed only when the caller or root owns it.
// Returns the folder holding the last component (the caller closes it) and that
// component; `make` creates missing folders (mode 0700) on the way.
int walk(int base, const std::string& path, std::string* last, int* hops, bool make,
         std::string* why) {
    int dir = !path.empty() && path[0] == '/' ? rootFolder()
                                              : ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (base != AT_FDCWD && !(path.size() && path[0] == '/')) {
        if (dir >= 0) ::close(dir);
        dir = ::dup(base);
    }
    if (dir < 0) {
        *why = errText(errno);
        return -1;
    }
    std::vector<std::string> comps = components(path);
    if (comps.empty()) comps.push_back(".");
    std::size_t i = 0;
    while (i + 1 < comps.size()) {
        const std::string c = comps[i];
        int next = openFolderAt(dir, c.c_str());
        if (next < 0 && errno == ENOENT && make &&
            (::mkdirat(dir, c.c_str(), 0700) == 0 || errno == EEXIST))
            next = openFolderAt(dir, c.c_str());
        if (next >= 0) {
            ::close(dir);
            dir = next;
            ++i;
            continue;
        }
        const int e = errno;
        if (!linkError(e) || !isLinkAt(dir, c)) {
            *why = c + ": " + errText(e);
            ::close(dir);
            errno = e;
            return -1;
        }
        std::string target = ++*hops > MAX_LINKS ? std::string() : trustedLink(dir, c, why);
        if (target.empty()) {
            if (*hops > MAX_LINKS) *why = errText(ELOOP);
            *why = c + ": " + *why;
            ::close(dir);
            errno = EPERM;
            return -1;
        }
        if (target[0] == '/') {
            ::close(dir);
            dir = rootFolder();
            if (dir < 0) {
                *why = errText(errno);
                return -1;
            }
        }
        std::vector<std::string> spliced = components(target);
        spliced.insert(spliced.end(), comps.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                       comps.end());
        comps.swap(spliced);
        if (comps.empty()) comps.push_back(".");
        i = 0;
    }
    *last = comps.back();
    return dir;
}

bool typeFits(int fd, Want want, std::string* why) {
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        *why = errText(errno);
        return false;
    }
    if (want == FOLDER ? S_ISDIR(st.st_mode) : S_ISREG(st.st_mode)) return true;
    *why = want == FOLDER ? "is not a folder"
                          : (S_ISDIR(st.st_mode) ? "is a folder" : "is not a regular file");
    return false;
}

struct Opened {
    int fd = -1;
    int dir = -1; // the folder the file was found in
    std::string name;
};

// Opens `path` with `flags`, following only trusted links anywhere in it.
Opened openChecked(const char* path, int flags, mode_t mode, Want want, std::string* why,
                   bool make = false) {
    Opened o;
    if (!path || !*path) {
        *why = "no file name";
        errno = ENOENT;
        return o;
    }
    int base = AT_FDCWD;
    std::string cur = path;
    int hops = 0;
    for (;;) {
        std::string last;
        int dir = walk(base, cur, &last, &hops, make, why);
        if (base != AT_FDCWD) ::close(base);
        base = AT_FDCWD;
        if (dir < 0) return o;
        if (make && want == FOLDER && ::mkdirat(dir, last.c_str(), 0700) != 0 && errno != EEXIST) {
            *why = errText(errno);
            ::close(dir);
            return o;
        }
        int fd = ::openat(dir, last.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode);
        if (fd >= 0) {
            if (!typeFits(fd, want, why)) {
                ::close(fd);
                ::close(dir);
                errno = EINVAL;
                return o;
            }
            // Blocking again for the reads and writes that follow: a regular file
            // never waits anyway.
            int fl = ::fcntl(fd, F_GETFL);
            if (fl >= 0) ::fcntl(fd, F_SETFL, fl & ~O_NONBLOCK);
            o.fd = fd;
            o.dir = dir;
            o.name = last;
            return o;
        }
        const int e = errno;
        if (!linkError(e) || !isLinkAt(dir, last)) {
            // A FIFO without a reader opened for writing fails with ENXIO.
            *why = e == ENXIO ? "is not a regular file" : errText(e);
            ::close(dir);
            errno = e;
            return o;
        }
        cur = ++hops > MAX_LINKS ? std::string() : trustedLink(dir, last, why);
        if (cur.empty()) {
            if (hops > MAX_LINKS) *why = errText(ELOOP);
            ::close(dir);
            errno = EPERM;
            return o;
        }
        base = dir; // a relative target is read from the link's own folder
    }
}

int fdOnly(Opened o) {
    if (o.dir >= 0) ::close(o.dir);
    return o.fd;
}

int withFolder(Opened o, int* dir, std::string* name) {
    if (o.fd < 0) return -1;
    *dir = o.dir;
    if (name) *name = o.name;
    return o.fd;
}

std::string* orDummy(std::string* why) {
    static thread_local std::string dummy;
    return why ? why : &dummy;
}

} // namespace

bool trustedOwner(uid_t uid) {
    return uid == ::geteuid() || uid == 0;
}

bool privateFolder(int fd, std::string* why) {
    struct stat st;
    why = orDummy(why);
    if (::fstat(fd, &st) != 0) {
        *why = errText(errno);
        return false;
    }
    if (st.st_uid != ::geteuid()) {
        *why = "it belongs to another user";
        return false;
    }
    // A group-writable folder is the caller's own when the group is (a user's private
    // group, as umask 002 makes them).
    if ((st.st_mode & S_IWOTH) || ((st.st_mode & S_IWGRP) && st.st_gid != ::getegid())) {
        *why = "other users may write in it";
        return false;
    }
    return true;
}

int openRead(const char* path, std::string* why) {
    return fdOnly(openChecked(path, O_RDONLY, 0, REGULAR, orDummy(why)));
}

int openReadWrite(const char* path, std::string* why) {
    return fdOnly(openChecked(path, O_RDWR, 0, REGULAR, orDummy(why)));
}

int openReadIn(const char* path, int* dir, std::string* name, std::string* why) {
    return withFolder(openChecked(path, O_RDONLY, 0, REGULAR, orDummy(why)), dir, name);
}

int openReadWriteIn(const char* path, int* dir, std::string* name, std::string* why) {
    return withFolder(openChecked(path, O_RDWR, 0, REGULAR, orDummy(why)), dir, name);
}

int openAppend(const char* path, mode_t mode, std::string* why) {
    why = orDummy(why);
    int fd = fdOnly(openChecked(path, O_WRONLY | O_APPEND | O_CREAT, mode, REGULAR, why));
    // Another user's file would let that user read what is written.
    struct stat st;
    if (fd >= 0 && (::fstat(fd, &st) != 0 || !trustedOwner(st.st_uid))) {
        ::close(fd);
        *why = "belongs to another user";
        errno = EPERM;
        return -1;
    }
    return fd;
}

int createNew(const char* path, mode_t mode, std::string* why) {
    why = orDummy(why);
    std::string last;
    int hops = 0;
    int dir = walk(AT_FDCWD, path ? path : "", &last, &hops, false, why);
    if (dir < 0) return -1;
    int fd = createNewAt(dir, last.c_str(), mode, why);
    const int e = errno;
    ::close(dir);
    errno = e;
    return fd;
}

int createNewAt(int dirfd, const char* name, mode_t mode, std::string* why) {
    int fd = ::openat(dirfd, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd < 0 && why) *why = errno == EEXIST ? "is already there" : errText(errno);
    return fd;
}

int openDir(const char* path, std::string* why) {
    return fdOnly(openChecked(path, O_RDONLY | O_DIRECTORY, 0, FOLDER, orDummy(why)));
}

int makeDirs(const char* path, std::string* why) {
    return fdOnly(openChecked(path, O_RDONLY | O_DIRECTORY, 0, FOLDER, orDummy(why), true));
}

bool readAllFd(int fd, std::size_t cap, std::string* out, bool* tooLarge) {
    if (tooLarge) *tooLarge = false;
    out->clear();
    struct stat st;
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
        if (static_cast<unsigned long long>(st.st_size) > cap) {
            if (tooLarge) *tooLarge = true;
            return false;
        }
        out->reserve(static_cast<std::size_t>(st.st_size));
    }
    char buf[65536];
    for (;;) {
        ssize_t n = ::read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        if (n == 0) return true;
        if (out->size() + static_cast<std::size_t>(n) > cap) {
            out->clear();
            if (tooLarge) *tooLarge = true;
            return false;
        }
        out->append(buf, static_cast<std::size_t>(n));
    }
}

bool readAll(const char* path, std::size_t cap, std::string* out, std::string* why,
             bool* tooLarge) {
    if (tooLarge) *tooLarge = false;
    int fd = openRead(path, why);
    if (fd < 0) return false;
    bool over = false;
    bool ok = readAllFd(fd, cap, out, &over);
    if (!ok && why) *why = over ? "is too large" : errText(errno);
    if (tooLarge) *tooLarge = over;
    ::close(fd);
    return ok;
}

bool readKeptLine(int fd, std::size_t cap, std::string* line, std::string* why) {
    why = orDummy(why);
    line->clear();
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        *why = errText(errno);
    } else if (!trustedOwner(st.st_uid)) {
        *why = "belongs to another user";
    } else if (st.st_mode & (S_IWGRP | S_IWOTH)) {
        *why = "others may change it (it is group- or world-writable)";
    } else if (!readAllFd(fd, cap, line)) {
        *why = "cannot be read";
        line->clear();
    } else {
        line->erase(std::min(line->size(), line->find('\n')));
        return true;
    }
    return false;
}

bool writeAllFd(int fd, const char* data, std::size_t len) {
    std::size_t off = 0;
    while (off < len) {
        ssize_t n = ::write(fd, data + off, len - off);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = EIO;
            return false;
        }
        off += static_cast<std::size_t>(n);
    }
    return true;
}

std::FILE* streamOf(int fd, const char* mode) {
    if (fd < 0) return nullptr;
    std::FILE* f = ::fdopen(fd, mode);
    if (!f) ::close(fd);
    return f;
}

} // namespace safefile
