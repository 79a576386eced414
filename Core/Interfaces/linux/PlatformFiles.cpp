// Linux: unnamed temporary files (O_TMPFILE) named through /proc when a
// save commits, folders opened for search only (O_PATH), renames that
// refuse to replace (renameat2), and extended attributes, among them the
// ACL (system.posix_acl_access), copied one by one.
#include <Core/Interfaces/internal/PlatformFiles.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <stdio.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace Tarsel::Core::Platform {

namespace {

// The path through which the kernel reaches the file open at fd, whatever
// its name or lack of one.
struct ProcPath {
    explicit ProcPath(int fd) noexcept { std::snprintf(text, sizeof text, "/proc/self/fd/%d", fd); }
    char text[32];
};

bool Unsupported(int error) noexcept {
    // EISDIR: a kernel older than O_TMPFILE takes it for O_DIRECTORY.
    return error == EOPNOTSUPP || error == EISDIR || error == EINVAL;
}

// The names of fd's extended attributes; empty where the file system has
// none. Returns 0 or an error number.
int ListAttributes(int fd, std::vector<std::string>* names) {
    std::vector<char> buffer;
    for (;;) {
        const ssize_t size = ::flistxattr(fd, nullptr, 0);
        if (size < 0) {
            return errno == ENOTSUP ? 0 : errno;
        }
        buffer.resize(static_cast<std::size_t>(size) + 1);
        const ssize_t listed = ::flistxattr(fd, buffer.data(), buffer.size());
        if (listed >= 0) {
            for (ssize_t start = 0; start < listed;) {
                const std::string name(buffer.data() + start);
                start += static_cast<ssize_t>(name.size()) + 1;
                names->push_back(name);
            }
            return 0;
        }
        if (errno != ERANGE) {  // ERANGE: an attribute was added meanwhile
            return errno;
        }
    }
}

// The value of fd's attribute name. Returns 0 or an error number.
int ReadAttribute(int fd, const std::string& name, std::string* value) {
    for (;;) {
        const ssize_t size = ::fgetxattr(fd, name.c_str(), nullptr, 0);
        if (size < 0) {
            return errno;
        }
        value->resize(static_cast<std::size_t>(size) + 1);
        const ssize_t read = ::fgetxattr(fd, name.c_str(), value->data(), value->size());
        if (read >= 0) {
            value->resize(static_cast<std::size_t>(read));
            return 0;
        }
        if (errno != ERANGE) {
            return errno;
        }
    }
}

bool Contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// Gives to the attribute name with value, unless it holds that already: a
// security label the system gave the new file may be one the process may
// not set, yet the right one.
int GiveAttribute(int to, const std::string& name, const std::string& value) {
    std::string present;
    if (ReadAttribute(to, name, &present) == 0 && present == value) {
        return 0;
    }
    return ::fsetxattr(to, name.c_str(), value.data(), value.size(), 0) == 0 ? 0 : errno;
}

}  // namespace

OpenedFolder OpenFolder(int base, const char* path) noexcept {
    const int fd = ::openat(base, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0 || errno != EACCES) {
        return {fd, true};
    }
    return {::openat(base, path, O_PATH | O_DIRECTORY | O_CLOEXEC), false};
}

int CreateUnnamedFile(int folder, mode_t mode) noexcept {
    const int fd = ::openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, mode);
    if (fd < 0) {
        if (Unsupported(errno)) {
            errno = EOPNOTSUPP;
        }
        return -1;
    }
    // Naming it later needs /proc (or a privilege): without it, the caller
    // makes a named file instead of one it could never commit.
    if (::access(ProcPath(fd).text, F_OK) != 0) {
        ::close(fd);
        errno = EOPNOTSUPP;
        return -1;
    }
    return fd;
}

int NameUnnamedFile(int fd, int folder, const char* name) noexcept {
    return ::linkat(AT_FDCWD, ProcPath(fd).text, folder, name, AT_SYMLINK_FOLLOW);
}

int RenameWithoutReplacing(int folder, const char* from, const char* to) noexcept {
    return ::renameat2(folder, from, folder, to, RENAME_NOREPLACE);
}

int SyncFile(int fd) noexcept {
    return ::fsync(fd);
}

int SyncFolder(const OpenedFolder& folder, int file) noexcept {
    return folder.readable ? ::fsync(folder.fd) : ::syncfs(file);
}

int CopyCarriedAttributes(int from, int to, std::string* failed) {
    failed->clear();
    std::vector<std::string> wanted;
    std::vector<std::string> present;
    if (const int error = ListAttributes(from, &wanted)) {
        return error;
    }
    if (const int error = ListAttributes(to, &present)) {
        return error;
    }
    // An ACL inherited from the folder's default ACL is not the file's.
    for (const std::string& name : present) {
        if (!Contains(wanted, name) && ::fremovexattr(to, name.c_str()) != 0) {
            *failed = name;
            return errno;
        }
    }
    for (const std::string& name : wanted) {
        std::string value;
        int error = ReadAttribute(from, name, &value);
        if (error == 0) {
            error = GiveAttribute(to, name, value);
        }
        if (error == ENODATA) {
            continue;  // removed from the original meanwhile
        }
        if (error != 0) {
            *failed = name;
            return error;
        }
    }
    return 0;
}

timespec ModificationTime(const struct stat& info) noexcept {
    return info.st_mtim;
}

timespec ChangeTime(const struct stat& info) noexcept {
    return info.st_ctim;
}

mode_t CreationMask() noexcept {
    // Read where the kernel shows it (Linux 4.7 and later), so that the mask
    // is never changed, not even for a moment another thread could see.
    if (std::FILE* status = std::fopen("/proc/self/status", "re")) {
        char line[256];
        unsigned mask = 0;
        bool found = false;
        while (!found && std::fgets(line, sizeof line, status) != nullptr) {
            found = std::sscanf(line, "Umask: %o", &mask) == 1;
        }
        std::fclose(status);
        if (found) {
            return static_cast<mode_t>(mask);
        }
    }
    // Stricter for that moment, never looser.
    const mode_t mask = ::umask(S_IRWXG | S_IRWXO);
    ::umask(mask);
    return mask;
}

}  // namespace Tarsel::Core::Platform
