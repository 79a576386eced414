// Values and paths as the user types and reads them: the exact text of a
// value, the value that a text stands for, and the two spellings of a path.
#pragma once

#include <Core/Interfaces/JsonText.h>
#include <Core/Interfaces/Property.h>

#include <string>
#include <vector>

namespace TarselTool {

// The text of a value node, exact where the library's text rounds: doubles
// in the shortest text that reads back as the same double (52.520008,
// 1700000000.123, 1e+300), booleans as true and false, ratios as n/d,
// strings as they are. A container is described, "an object of 3 members";
// an Empty node is "nothing".
std::string ExactValueText(const Tarsel::Core::Property& node);

// The name of a node's type for a user: "a boolean", "an integer", ...
std::string TypeName(const Tarsel::Core::Property& node);

// The JSON text that `set` writes for VALUE text of type "bool", "int",
// "double", "string" or "ratio"; an empty type infers it: true or false is a
// boolean, null is null, a JSON number of any size its own digits, digits/
// digits a ratio (written as typed, as a string: "12/24"), anything else a
// string (007 and +5 too: JSON has no such numbers). A typed number is
// written as given where it is already a JSON number of its type, else in
// its shortest text ("int" 007 is 7, "double" 3 is 3.0). Throws UsageError
// when text is not of the requested type, or is a ratio with a zero
// denominator.
std::string JsonValueText(const std::string& text, const std::string& type);

// A string as JSON text: quoted, with the library's escaping.
std::string JsonStringText(const std::string& value);

// The names along a path: "/"-separated, empty segments dropped as the
// library's paths do ("/a//b/" is a then b).
std::vector<std::string> PathSegments(const std::string& path);

// The names along an RFC 6901 JSON Pointer: "" is the whole document,
// "/a~1b" the one name "a/b", "~0" a "~". A pointer that starts with '"' is
// given as a JSON string, whose escapes are decoded first: "\"/a\\nb\"" is
// the one name "a", newline, "b". Throws UsageError for a pointer that does
// not start with "/", a "~" followed by neither 0 nor 1, or a '"' that does
// not begin exactly one JSON string.
std::vector<std::string> PointerSegments(const std::string& pointer);

// The node that names lead to from root, each name the first child of that
// name, as the library's paths find it; null when there is none, with
// *reached the number of names that were found before the walk stopped.
const Tarsel::Core::Property* FindPath(const Tarsel::Core::Property& root, const std::vector<std::string>& names,
                                       std::size_t* reached);

// The first count names joined by "/", as messages show a path.
std::string JoinedPath(const std::vector<std::string>& names, std::size_t count);

}  // namespace TarselTool
