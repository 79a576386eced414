// What the tool prints of a user's file: names and texts reach the terminal
// only as characters it shows as themselves, and a path is one line that
// `tarsel get` reads back as the same value.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace TarselTool {

// Whether text holds a character that must not reach a terminal as it is: a
// control character (C0, DEL, C1), an invisible format character (the
// direction controls that reorder what a terminal shows, zero-width
// characters), the line and paragraph separators, a surrogate, or a byte
// that is not UTF-8.
bool NeedsEscape(std::string_view text);

// text as a JSON string: quoted, with '"', '\' and every character that
// NeedsEscape names escaped as JSON escapes them ("\n", "\u001b", "\u202e",
// a surrogate as "\udc00"); a byte that is not UTF-8 becomes "\ufffd".
std::string JsonQuoted(std::string_view text);

// A JSON value's text as the file spells it, but with the characters that a
// JSON string may hold unescaped and a terminal must not receive escaped:
// "a<DEL>b" becomes "a\u007fb".
std::string TerminalSafe(std::string_view jsonText);

// names as one line that `tarsel get` reads back: "a/b/c" while no name is
// empty or holds "/", "~" or a character that NeedsEscape names, and the
// first does not begin with '"', which would read as a JSON string; otherwise
// the RFC 6901 pointer that `get --pointer` reads ("/a~1b/c~0d", the empty
// name as "/"), and, where a name needs an escape, that pointer as a JSON
// string ("\"/a\\nb\""), which `get --pointer` reads too. No names: "".
std::string PrintedPath(const std::vector<std::string>& names);

// One name in a message: 'name', or, where it needs an escape, the name as a
// JSON string.
std::string PrintedName(const std::string& name);

}  // namespace TarselTool
