// macOS: not implemented for this suite. The macOS SDK headers it is
// compiled against here lack sys/xattr.h, and macOS has no user
// namespaces; every function answers ENOTSUP, so that the tests that need
// them skip and say why.
#include "support/FileAttributes.h"

#include <cerrno>

namespace TarselTest {

namespace {

bool Unsupported() {
    errno = ENOTSUP;
    return false;
}

}  // namespace

bool SetAttribute(const std::string&, const std::string&, const std::string&) {
    return Unsupported();
}

std::optional<std::string> AttributeOf(const std::string&, const std::string&) {
    return std::nullopt;
}

bool GrantUserAccess(const std::string&, uid_t) {
    return Unsupported();
}

bool GrantUserAccessToNewFiles(const std::string&, uid_t) {
    return Unsupported();
}

std::string AclOf(const std::string&) {
    return {};
}

bool MakesUnnamedFiles(const std::string&) {
    return false;
}

bool BecomeRootOfOwnUserNamespace() {
    return Unsupported();
}

}  // namespace TarselTest
