// Changing one value of a JSON text the way an editor would: only the bytes
// of that value change, or, for a value that is not there yet, a new member
// or element is written in the style of its neighbours.
#pragma once

#include "JsonText.h"

#include <string>
#include <vector>

namespace TarselTool {

// text with the value that names lead to from root (root being text
// parsed) replaced by valueText, a JSON value's text. Names are object keys
// (where a key repeats, the last occurrence, the one a load keeps) or, in an
// array, element indexes; an index one past the last element appends. A
// missing key is added at the end of the innermost object the path reaches,
// with objects made for the names after it: indented as the object's last
// member is, or compact when the object is. names must not be empty.
//
// Throws ToolFailure (exit status kFailed) naming document when the path
// runs through a value that is not a container, or names an array element
// that is neither there nor next.
std::string SetValueInText(const std::string& text, const JsonValue& root, const std::vector<std::string>& names,
                           const std::string& valueText, const std::string& document);

// A string as JSON text: quoted, with the library's escaping.
std::string JsonStringText(const std::string& value);

}  // namespace TarselTool
