// macOS: no unnamed files, so every temporary file of a save has a name;
// renames that refuse to replace (renameatx_np), syncs that reach the
// disk itself (F_FULLFSYNC), and the ACL and extended attributes (Finder
// tags and info, quarantine flags, resource forks) copied by fcopyfile.
#include <Core/Interfaces/internal/PlatformFiles.h>

#include <cerrno>

#include <copyfile.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

namespace Tarsel::Core::Platform {

OpenedFolder OpenFolder(int base, const char* path) noexcept {
    const int fd = ::openat(base, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
#ifdef O_SEARCH
    // The SDKs of macOS 13 and later open a folder for search only.
    if (fd < 0 && errno == EACCES) {
        return {::openat(base, path, O_SEARCH | O_CLOEXEC), false};
    }
#endif
    return {fd, true};
}

int CreateUnnamedFile(int, mode_t) noexcept {
    errno = EOPNOTSUPP;
    return -1;
}

int NameUnnamedFile(int, int, const char*) noexcept {
    errno = EOPNOTSUPP;
    return -1;
}

int RenameWithoutReplacing(int folder, const char* from, const char* to) noexcept {
    return ::renameatx_np(folder, from, folder, to, RENAME_EXCL);
}

int SyncFile(int fd) noexcept {
    // fsync leaves the data in the drive's cache; F_FULLFSYNC does not, on
    // the file systems that offer it.
    if (::fcntl(fd, F_FULLFSYNC) == 0) {
        return 0;
    }
    return ::fsync(fd);
}

int SyncFolder(const OpenedFolder& folder, int) noexcept {
    return ::fsync(folder.fd);
}

int CopyCarriedAttributes(int from, int to, std::string* failed) {
    failed->clear();
    return ::fcopyfile(from, to, nullptr, COPYFILE_ACL | COPYFILE_XATTR) == 0 ? 0 : errno;
}

timespec ModificationTime(const struct stat& info) noexcept {
    return info.st_mtimespec;
}

timespec ChangeTime(const struct stat& info) noexcept {
    return info.st_ctimespec;
}

mode_t CreationMask() noexcept {
    // The system shows the mask only by setting it: stricter for that
    // moment, so that a file another thread creates then is never looser.
    const mode_t mask = ::umask(S_IRWXG | S_IRWXO);
    ::umask(mask);
    return mask;
}

}  // namespace Tarsel::Core::Platform
