// Private to the library, not installed: why a JSON text fails to load, in
// a user's words, and the failures of a load located where they were met
// (internal/JsonTextStream.h).
#pragma once

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
