#include "invscan/SafeFile.h"

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

void splitPath(const std::string& path, std::string* dir, std::string* base) {
    std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        *dir = ".";
        *base = path;
    } else {
        *dir = slash == 0 ? "/" : path.substr(0, slash);
        *base = path.substr(slash + 1);
    }
}

// The target of the link at `path` when the caller may follow it; empty otherwise,
// with the reason. The link is read between two looks at the same inode, and only
// its owner can have written it.
std::string followLink(const std::string& path, std::string* why) {
    std::string dir, base;
    splitPath(path, &dir, &base);
    int d = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (d < 0) {
        *why = errText(errno);
        return std::string();
    }
    struct stat before, after;
    std::string target;
    if (::fstatat(d, base.c_str(), &before, AT_SYMLINK_NOFOLLOW) != 0) {
        *why = errText(errno);
    } else if (!S_ISLNK(before.st_mode)) {
        *why = "changed while it was opened";
    } else if (!trustedOwner(before.st_uid)) {
        *why = "is a symbolic link owned by another user";
    } else {
        std::vector<char> buf(PATH_MAX + 1);
        ssize_t n = ::readlinkat(d, base.c_str(), buf.data(), buf.size() - 1);
        if (n <= 0 || ::fstatat(d, base.c_str(), &after, AT_SYMLINK_NOFOLLOW) != 0 ||
            after.st_ino != before.st_ino || after.st_dev != before.st_dev ||
            after.st_uid != before.st_uid) {
            *why = n <= 0 ? errText(errno) : "changed while it was opened";
        } else {
            target.assign(buf.data(), static_cast<std::size_t>(n));
            if (target[0] != '/') target = (dir == "/" ? "" : dir) + "/" + target;
        }
    }
    ::close(d);
    return target;
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

int openChecked(const char* path, int flags, mode_t mode, Want want, std::string* why) {
    std::string dummy;
    if (!why) why = &dummy;
    if (!path || !*path) {
        *why = "no file name";
        errno = ENOENT;
        return -1;
    }
    std::string cur = path;
    for (int hop = 0; hop <= MAX_LINKS; ++hop) {
        int fd = ::open(cur.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode);
        if (fd >= 0) {
            if (!typeFits(fd, want, why)) {
                ::close(fd);
                errno = EINVAL;
                return -1;
            }
            // Blocking again for the reads and writes that follow: a regular file
            // never waits anyway.
            int fl = ::fcntl(fd, F_GETFL);
            if (fl >= 0) ::fcntl(fd, F_SETFL, fl & ~O_NONBLOCK);
            return fd;
        }
        int e = errno;
        struct stat st;
        // O_NOFOLLOW on a link fails with ELOOP (EMLINK on some BSDs, ENOTDIR with
        // O_DIRECTORY); a FIFO without a reader opened for writing fails with ENXIO.
        bool link = (e == ELOOP || e == EMLINK || e == ENOTDIR) && ::lstat(cur.c_str(), &st) == 0 &&
                    S_ISLNK(st.st_mode);
        if (!link) {
            *why = e == ENXIO ? "is not a regular file" : errText(e);
            errno = e;
            return -1;
        }
        cur = followLink(cur, why);
        if (cur.empty()) {
            errno = EPERM;
            return -1;
        }
    }
    *why = errText(ELOOP);
    errno = ELOOP;
    return -1;
}

} // namespace

bool trustedOwner(uid_t uid) {
    return uid == ::geteuid() || uid == 0;
}

bool privateFolder(int fd, std::string* why) {
    struct stat st;
    std::string dummy;
    if (!why) why = &dummy;
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
    return openChecked(path, O_RDONLY, 0, REGULAR, why);
}

int openReadWrite(const char* path, std::string* why) {
    return openChecked(path, O_RDWR, 0, REGULAR, why);
}

int openAppend(const char* path, mode_t mode, std::string* why) {
    return openChecked(path, O_WRONLY | O_APPEND | O_CREAT, mode, REGULAR, why);
}

int createNew(const char* path, mode_t mode, std::string* why) {
    return createNewAt(AT_FDCWD, path, mode, why);
}

int createNewAt(int dirfd, const char* name, mode_t mode, std::string* why) {
    int fd = ::openat(dirfd, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd < 0 && why) *why = errno == EEXIST ? "is already there" : errText(errno);
    return fd;
}

int openDir(const char* path, std::string* why) {
    return openChecked(path, O_RDONLY | O_DIRECTORY, 0, FOLDER, why);
}

std::string resolveOwnLinks(const char* path, std::string* why) {
    std::string dummy;
    if (!why) why = &dummy;
    std::string cur = path ? path : "";
    for (int hop = 0; hop <= MAX_LINKS && !cur.empty(); ++hop) {
        struct stat st;
        if (::lstat(cur.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return cur;
        cur = followLink(cur, why);
    }
    if (!cur.empty()) *why = errText(ELOOP);
    return std::string();
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
