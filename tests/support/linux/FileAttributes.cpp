// Linux: extended attributes through the system calls, the ACL as the
// attribute system.posix_acl_access (or _default), in the kernel's binary
// form, so that no ACL library or command is needed.
#include "support/FileAttributes.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fstream>

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace TarselTest {

namespace {

// The kernel's ACL entry tags and its undefined id (linux/posix_acl.h).
enum AclTag : std::uint16_t { kUserObj = 0x01, kUser = 0x02, kGroupObj = 0x04, kMask = 0x10, kOther = 0x20 };
constexpr std::uint32_t kUndefinedId = 0xFFFFFFFF;
constexpr std::uint32_t kAclVersion = 2;

void Append(std::string* blob, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        blob->push_back(static_cast<char>((value >> (8 * i)) & 0xFF));  // little-endian
    }
}

void AppendEntry(std::string* blob, AclTag tag, unsigned permissions, std::uint32_t id) {
    Append(blob, tag, 2);
    Append(blob, permissions, 2);
    Append(blob, id, 4);
}

// An ACL of mode's owner, group and other entries plus read and write for
// uid, its entries in the order the kernel requires (by tag, then id).
std::string AclGranting(mode_t mode, uid_t uid) {
    std::string blob;
    Append(&blob, kAclVersion, 4);
    AppendEntry(&blob, kUserObj, (mode >> 6) & 7, kUndefinedId);
    AppendEntry(&blob, kUser, 6, uid);
    AppendEntry(&blob, kGroupObj, (mode >> 3) & 7, kUndefinedId);
    AppendEntry(&blob, kMask, 6 | ((mode >> 3) & 7), kUndefinedId);
    AppendEntry(&blob, kOther, mode & 7, kUndefinedId);
    return blob;
}

bool Grant(const std::string& path, const char* attribute, uid_t uid) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return false;
    }
    const std::string blob = AclGranting(info.st_mode, uid);
    return ::setxattr(path.c_str(), attribute, blob.data(), blob.size(), 0) == 0;
}

bool WriteTo(const std::string& path, const std::string& text) {
    std::ofstream out(path);
    out << text;
    out.close();
    return static_cast<bool>(out);
}

}  // namespace

bool SetAttribute(const std::string& path, const std::string& name, const std::string& value) {
    return ::setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) == 0;
}

std::optional<std::string> AttributeOf(const std::string& path, const std::string& name) {
    std::string value(65536, '\0');
    const ssize_t size = ::getxattr(path.c_str(), name.c_str(), value.data(), value.size());
    if (size < 0) {
        return std::nullopt;
    }
    value.resize(static_cast<std::size_t>(size));
    return value;
}

bool GrantUserAccess(const std::string& path, uid_t uid) {
    return Grant(path, "system.posix_acl_access", uid);
}

bool GrantUserAccessToNewFiles(const std::string& path, uid_t uid) {
    return Grant(path, "system.posix_acl_default", uid);
}

std::string AclOf(const std::string& path) {
    return AttributeOf(path, "system.posix_acl_access").value_or("");
}

bool MakesUnnamedFiles(const std::string& folder) {
    const int fd = ::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    if (fd < 0) {
        return false;
    }
    ::close(fd);
    return true;
}

bool BecomeRootOfOwnUserNamespace() {
    const uid_t uid = ::geteuid();
    const gid_t gid = ::getegid();
    if (::unshare(CLONE_NEWUSER) != 0) {
        return false;
    }
    return WriteTo("/proc/self/setgroups", "deny") &&
           WriteTo("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") &&
           WriteTo("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
}

}  // namespace TarselTest
