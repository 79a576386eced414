// Private to the library: the file calls that replacing a file needs and
// that differ between macOS and Linux, implemented once per platform in
// mac/PlatformFiles.cpp and linux/PlatformFiles.cpp. The logic of a save
// (AtomicFileDataOutput.cpp) is portable and calls only these and POSIX.
// Not installed; do not include it outside Core/Interfaces.
#pragma once

#include <string>

#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

namespace Tarsel::Core::Platform {

// A folder opened to work in: its descriptor, or -1 with errno set, and
// whether it was opened for reading. A folder the process may enter and
// write but not list (-wx) can still be worked in where the system opens
// folders for search only (Linux); such a descriptor cannot be listed or
// synced itself.
struct OpenedFolder {
    int fd;
    bool readable;
};
OpenedFolder OpenFolder(int base, const char* path) noexcept;

// Creates a regular file without a name in folder, open for writing with
// the given mode; nobody else can open it, and a crash leaves nothing.
// Returns -1 with errno set; EOPNOTSUPP where neither the system nor the
// file system has such files, or where the file could not later be given
// a name.
int CreateUnnamedFile(int folder, mode_t mode) noexcept;

// Gives the file of CreateUnnamedFile the name in folder. Returns 0, or -1
// with errno set (EEXIST when the name is taken).
int NameUnnamedFile(int fd, int folder, const char* name) noexcept;

// Renames from to to in folder unless to exists. Returns 0, or -1 with
// errno set: EEXIST when to exists, EINVAL or ENOSYS where the file
// system cannot rename so (the caller checks and renames instead).
int RenameWithoutReplacing(int folder, const char* from, const char* to) noexcept;

// Flushes the data and metadata of the open file to the disk itself.
// Returns 0, or -1 with errno set.
int SyncFile(int fd) noexcept;

// Makes the entries of folder durable, renames included. A folder opened
// for search only cannot be synced itself; then the whole file system that
// holds file is, where the system can. Returns 0, or -1 with errno set.
int SyncFolder(const OpenedFolder& folder, int file) noexcept;

// Makes what the file open at to carries besides its bytes, owner, group
// and mode (its extended attributes and its ACL) the same as what the file
// open at from carries. Returns 0, or an error number with *failed naming
// the attribute that could not be given (empty when not one attribute).
// Throws std::bad_alloc.
int CopyCarriedAttributes(int from, int to, std::string* failed);

// The times a save compares to learn that a file was changed in place.
timespec ModificationTime(const struct stat& info) noexcept;
timespec ChangeTime(const struct stat& info) noexcept;

// The process's file mode creation mask, which a new file's mode obeys.
mode_t CreationMask() noexcept;

}  // namespace Tarsel::Core::Platform
