// What a file carries besides its bytes, set and read as the tests of
// saving need it: extended attributes, ACLs, and the file system's and
// the process's abilities the tests depend on. One implementation per
// platform (support/linux/, support/mac/), picked by tests/CMakeLists.txt.
#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace TarselTest {

// Sets the extended attribute name of the file at path to value. False,
// with errno set, where the file system holds no such attributes
// (ENOTSUP) or this build cannot set them.
bool SetAttribute(const std::string& path, const std::string& name, const std::string& value);

// The value of the extended attribute name of the file at path; nullopt
// when it has none of that name.
std::optional<std::string> AttributeOf(const std::string& path, const std::string& name);

// Gives the file at path an ACL that also lets the user uid read and write
// it. False, with errno set, where the file system holds no ACLs.
bool GrantUserAccess(const std::string& path, uid_t uid);

// Gives the folder at path a default ACL that lets the user uid read and
// write what is made in it. False, with errno set, where unsupported.
bool GrantUserAccessToNewFiles(const std::string& path, uid_t uid);

// The ACL of the file at path as the system keeps it; empty when the file
// has none beyond its mode.
std::string AclOf(const std::string& path);

// Whether files made in folder can be made without a name (so that a
// killed save leaves nothing).
bool MakesUnnamedFiles(const std::string& folder);

// Makes the calling process root of a new user namespace in which only its
// own user and group are mapped, as `unshare -r` does: a file of any other
// user shows as the overflow user, whom no one can give a file to. False,
// with errno set, where the system does not allow it. Call it in a child
// process only: there is no way back.
bool BecomeRootOfOwnUserNamespace();

}  // namespace TarselTest
