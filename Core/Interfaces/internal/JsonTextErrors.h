// Private to the library, not installed: where and why a JSON text fails to
// load, found in the one parse that loads it. The reader parses from a
// LocatingStream, which keeps the line it stands on as it goes; a failure
// is then located without reading the text a second time.
#pragma once

#include <rapidjson/error/error.h>
#include <rapidjson/stream.h>

#include <cstddef>
#include <exception>
#include <string>
#include <string_view>

namespace Tarsel::Core::Json {

// A place in a text: the byte offset, and the 1-based line and column, the
// column counting the bytes of its line.
struct TextLocation {
    std::size_t offset;
    std::size_t line;
    std::size_t column;
};

// The in-situ stream documents are parsed from. Outside strings, where a
// line end is white space, the reader passes line ends only in
// SkipWhitespace below; so the lines counted there, and the start of the
// last one, locate every offset from the last token on. A line end inside a
// string is an error at the line end itself, and an escaped one, which
// parsing in place writes into the buffer, is never counted.
class LocatingStream : public rapidjson::InsituStringStream {
public:
    explicit LocatingStream(char* text) : rapidjson::InsituStringStream(text), lineStart(text), tokenStart(text) {}

    // offset must not lie before the current line: any error offset the
    // reader reports, or the start of the last token.
    TextLocation Locate(std::size_t offset) const {
        const std::size_t lineOffset = static_cast<std::size_t>(lineStart - head_);
        return {offset, lineEnds + 1, offset - lineOffset + 1};
    }
    // Where the token the reader is at, or has just read, starts.
    TextLocation TokenLocation() const { return Locate(static_cast<std::size_t>(tokenStart - head_)); }
    const char* Text() const { return head_; }

    std::size_t lineEnds = 0;
    const char* lineStart;
    const char* tokenStart;
};

// Skips white space as RapidJSON's own does, counting line ends, and marks
// where the next token starts. The reader's unqualified calls find it by
// argument-dependent lookup and prefer it to RapidJSON's template.
inline void SkipWhitespace(LocatingStream& stream) {
    char* p = stream.src_;
    // Compact text has no white space at all: one comparison per token.
    while (static_cast<unsigned char>(*p) <= ' ') {
        if (*p == '\n') {
            ++stream.lineEnds;
            stream.lineStart = p + 1;
        } else if (*p != ' ' && *p != '\t' && *p != '\r') {
            break;
        }
        ++p;
    }
    stream.src_ = p;
    stream.tokenStart = p;
}

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

namespace rapidjson {
// The reader may work on a copy of the stream, as it does with its own
// in-situ stream, and write it back.
template <>
struct StreamTraits<Tarsel::Core::Json::LocatingStream> {
    enum { copyOptimization = 1 };
};
}  // namespace rapidjson
