// Private to the library, not installed. The build puts it ahead of every
// source of the library (-include), before any other header.
//
// The library is built with hidden symbols, which would also hide the type
// identity (typeinfo, virtual table) of the third-party classes that cross
// its boundary without declaring a visibility of their own: utf8-cpp's
// exceptions, boost::bad_rational and boost::filesystem::filesystem_error,
// which the library lets through to its clients, and boost::error_info, the
// type of every record a client reads from our exceptions. A client names
// those types itself; where a platform compares type identities by address
// (macOS on x86_64), a hidden copy in the library would never match the
// client's catch or record lookup. So each is declared here first with
// default visibility, which its definition in the third-party header keeps.
//
// Only the types are made visible, not the headers: a #pragma GCC visibility
// push(default) around utf8.h or rational.hpp would also export every
// function template the library instantiates from them. A visibility given
// after a class's definition is ignored with a warning (an error in our
// builds), which is why this file must come first.
#pragma once

#include <Core/Interfaces/Export.h>

namespace utf8 {
class TARSEL_API exception;
class TARSEL_API invalid_code_point;
class TARSEL_API invalid_utf8;
class TARSEL_API invalid_utf16;
class TARSEL_API not_enough_room;
}  // namespace utf8

namespace boost {
class TARSEL_API bad_rational;
template <class Tag, class T>
class TARSEL_API error_info;
namespace filesystem {
class TARSEL_API filesystem_error;
}  // namespace filesystem
}  // namespace boost
