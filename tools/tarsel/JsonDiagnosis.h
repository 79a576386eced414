// Finding where and why a JSON text fails to load, for a user who edits a
// settings file by hand. The library's own exception deliberately says only
// "Parse error"; this reads the same bytes again to say more.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace TarselTool {

struct JsonProblem {
    // 1-based; the column counts characters (UTF-8 sequences), not bytes.
    std::size_t line;
    std::size_t column;
    // "missing a comma or '}' after an object member",
    // "playback/frameRateRatio: the ratio 1/0 has a zero denominator".
    std::string reason;
};

// The first reason the library refuses to load text, found with the
// library's parser and parse flags so that the two agree on what fails: a
// syntax error, nesting deeper than 512 levels, a root that is not an object
// or an array, a number beyond a double's range, or, when the syntax is
// sound, the first member with an empty name or "frameRateRatio" with a zero
// denominator. Nothing when the library would load the text. Like the
// library, reads text up to its first zero byte.
std::optional<JsonProblem> DiagnoseJson(std::string_view text);

}  // namespace TarselTool
