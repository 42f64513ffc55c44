// Opening files by a name someone else may have planted. The scan runs as root in
// folders it does not choose: a symbolic link, wherever it stands in the path, is
// followed only when it belongs to the caller (or to root), and a FIFO, device,
// socket or folder where a file is expected is refused without ever waiting on it.
// A path is walked one folder descriptor at a time and every check is made on the
// open descriptor itself, so nothing can be swapped between the check and the use.
#ifndef INVSCAN_SAFEFILE_H
#define INVSCAN_SAFEFILE_H

#include "invscan_export.h"

#include <cstddef>
#include <cstdio>
#include <string>
#include <sys/types.h>

namespace safefile {

// An existing regular file, for reading (or reading and writing). -1 with the reason
// in `why` ("is a symbolic link owned by another user", "is not a regular file", or
// the system's word).
INVSCAN_API int openRead(const char* path, std::string* why);
INVSCAN_API int openReadWrite(const char* path, std::string* why);

// A regular file for appending, made with `mode` when it is not there; one that
// another user owns is refused (that user could read what is written).
INVSCAN_API int openAppend(const char* path, mode_t mode, std::string* why);

// A new file: refused when anything at all stands at the name (O_EXCL).
INVSCAN_API int createNew(const char* path, mode_t mode, std::string* why);
INVSCAN_API int createNewAt(int dirfd, const char* name, mode_t mode, std::string* why);

// A folder, with the same rule for links.
INVSCAN_API int openDir(const char* path, std::string* why);

// As openRead and openReadWrite, and also the folder the file was found in (an open
// descriptor the caller closes) and the file's name there: where a replacement is
// renamed, with no second look-up of the path.
INVSCAN_API int openReadIn(const char* path, int* dir, std::string* name, std::string* why);
INVSCAN_API int openReadWriteIn(const char* path, int* dir, std::string* name, std::string* why);

// A folder, made (mode 0700, with the missing folders above it) when it is not there.
INVSCAN_API int makeDirs(const char* path, std::string* why);

// The whole of a regular file, at most `cap` bytes. False with `why` on a refusal, an
// error or a file past the cap (`*tooLarge` then set).
INVSCAN_API bool readAll(const char* path, std::size_t cap, std::string* out, std::string* why,
                         bool* tooLarge = nullptr);
INVSCAN_API bool readAllFd(int fd, std::size_t cap, std::string* out, bool* tooLarge = nullptr);

// The first line of a file kept by this host (a key, an id), read from `fd` only when
// no one but its owner, the caller or root, can change it. False with the reason
// otherwise (another user's file, group- or world-writable, unreadable, past `cap`).
INVSCAN_API bool readKeptLine(int fd, std::size_t cap, std::string* line, std::string* why);

// Writes all of `data`; false (errno set) on a short or failed write.
INVSCAN_API bool writeAllFd(int fd, const char* data, std::size_t len);

// A stdio stream over a descriptor from the calls above; the descriptor is closed on
// failure.
INVSCAN_API std::FILE* streamOf(int fd, const char* mode);

// A folder only the caller can put files in: the caller owns it, and neither others
// nor a group of other users may write in it. False with the reason in `why`.
INVSCAN_API bool privateFolder(int fd, std::string* why);

// Whether a link owned by `uid` may be followed by this process.
INVSCAN_API bool trustedOwner(uid_t uid);

} // namespace safefile

#endif
