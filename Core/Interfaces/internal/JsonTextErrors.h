// Private to the library, not installed: why a JSON text fails to load, in
// a user's words, and the failures of a load located where they were met
// (internal/JsonTextStream.h).
#pragma once

#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/internal/JsonTextStream.h>

#include <rapidjson/error/error.h>

#include <cstddef>
#include <exception>
#include <string>
#include <string_view>

namespace Tarsel::Core::Json {

// What the tree builder refuses that the JSON grammar allows.
enum class Refusal : unsigned char {
    None,
    TooDeep,     // nesting beyond PropertySerializer::kMaxDepth
    ScalarRoot,  // a document that is a single value
    NotFinite,   // a number beyond the doubles (2e308)
};

// Why the text does not load, in a user's words: for an error of the reader
// (code, at offset in text, the parsed buffer) or a refusal of the builder.
std::string SyntaxErrorReason(rapidjson::ParseErrorCode code, const char* text, std::size_t offset);
std::string RefusalReason(Refusal refusal);

// A syntax error as a user is shown it: where to look, and why.
struct SyntaxError {
    TextLocation where;
    std::string reason;
};

// The reader's error code at offset, located where a user looks for the
// fault, which is not always where the reader stopped: a string never closed
// at its opening quote, a misspelt or cut literal (tru, nul) at its first
// letter, a bad second half of a surrogate pair at that second escape, an
// unclosed comment at its "/*". Everything else stays where the reader
// stopped. stream is the one the reader stopped in.
SyntaxError LocateSyntaxError(rapidjson::ParseErrorCode code, std::size_t offset, const LocatingStream& stream);

// Throws JsonException "Parse error" with the location and reason records,
// recorded at site; JSON failures carry no call stack: the position in the
// text, not in the code, is what a caller needs.
[[noreturn]] void ThrowParseError(const ThrowSite& site, const TextLocation& where, const std::string& reason);
// The same without a location, for a DOM, which has no text to point into.
[[noreturn]] void ThrowParseError(const ThrowSite& site, const std::string& reason);

// Why loading stopped part-way. path names, with "/" between names, the
// container that holds an empty name (empty at the root) and the ratio's own
// member.
std::string EmptyKeyReason(const std::string& path);
std::string ZeroDenominatorReason(const std::string& path, std::string_view ratioText);

// failure with TagParseOffset, TagParseLine, TagParseColumn and
// TagParseReason attached, its type kept: the exceptions of a load
// failure are thrown through boost::throw_exception, so they carry
// boost::exception already. Returns failure itself.
std::exception_ptr WithLocation(std::exception_ptr failure, const TextLocation& where, const std::string& reason);

}  // namespace Tarsel::Core::Json
