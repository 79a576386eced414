// Private to the library, not installed: the one reading of JSON text that
// loading (PropertySerializerReader.cpp) and the text index (JsonText.cpp)
// share, so that both accept the same texts and refuse the others with the
// same located reasons.
//
// - RapidJSON's iterative reader runs over a LocatingStream (or, for JSON
//   with comments, a CommentLocatingStream), which marks where each token
//   starts and keeps the line.
// - Numbers are scanned here, not by the reader: the reader refuses some
//   numbers that a double holds (0e400, or 1 followed by 309 zeros and
//   e-309) on guards of its own arithmetic. Their value is read by
//   internal/JsonNumber.h; only a value beyond the doubles is refused, by the
//   handler that reads it.
// - A failure is located where the user should look (LocateSyntaxError) and
//   thrown as one JsonException.
#pragma once

#include <Core/Interfaces/PropertySerializer.h>
#include <Core/Interfaces/internal/JsonTextErrors.h>
#include <Core/Interfaces/internal/JsonTextStream.h>

#include <rapidjson/reader.h>

#include <cstddef>

namespace Tarsel::Core::Json {

// The reader's flags: iterative, so that no depth exhausts the stack;
// numbers as text; comments and trailing commas for JSON with comments.
constexpr unsigned kReadFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag;
constexpr unsigned kWithCommentsFlags = rapidjson::kParseCommentsFlag | rapidjson::kParseTrailingCommasFlag;

// The stream type of a syntax.
template <PropertySerializer::JsonSyntax syntax>
using SyntaxStream =
    std::conditional_t<syntax == PropertySerializer::JsonSyntax::Strict, LocatingStream, CommentLocatingStream>;
template <PropertySerializer::JsonSyntax syntax>
constexpr unsigned kSyntaxFlags = syntax == PropertySerializer::JsonSyntax::Strict ? 0 : kWithCommentsFlags;

// Scans the number at the stream's position, as JSON spells one:
// -?(0|[1-9][0-9]*)(.[0-9]+)?([eE][+-]?[0-9]+)?, and hands its text to
// handler.RawNumber. Returns kParseErrorNone, or the reader's code for the
// failure with *offset where the reader would report it; a handler that
// stops gives kParseErrorTermination at the number's start.
template <class Stream, class Handler>
rapidjson::ParseErrorCode ScanNumber(Stream& stream, Handler& handler, std::size_t* offset) {
    const auto digit = [](char c) { return static_cast<unsigned char>(c - '0') < 10; };
    const char* const start = stream.src_;
    const char* p = start;
    const auto fail = [&](rapidjson::ParseErrorCode code) {
        *offset = static_cast<std::size_t>(p - stream.head_);
        return code;
    };
    if (*p == '-') {
        ++p;
    }
    if (*p == '0') {
        ++p;
    } else if (digit(*p)) {
        while (digit(*p)) {
            ++p;
        }
    } else {
        return fail(rapidjson::kParseErrorValueInvalid);
    }
    if (*p == '.') {
        ++p;
        if (!digit(*p)) {
            return fail(rapidjson::kParseErrorNumberMissFraction);
        }
        while (digit(*p)) {
            ++p;
        }
    }
    if (*p == 'e' || *p == 'E') {
        ++p;
        if (*p == '+' || *p == '-') {
            ++p;
        }
        if (!digit(*p)) {
            return fail(rapidjson::kParseErrorNumberMissExponent);
        }
        while (digit(*p)) {
            ++p;
        }
    }
    stream.src_ = const_cast<char*>(p);
    if (!handler.RawNumber(start, static_cast<rapidjson::SizeType>(p - start), false)) {
        *offset = static_cast<std::size_t>(start - stream.head_);
        return rapidjson::kParseErrorTermination;
    }
    return rapidjson::kParseErrorNone;
}

// Reads text from stream into handler with the reader's flags and
// extraFlags. A refusal of the handler (its Refused() is not
// Refusal::None) is located at the token it refused; a syntax error where
// LocateSyntaxError puts it. Either throws JsonException, recorded at site.
template <unsigned extraFlags, class Stream, class Handler>
void ReadJson(Stream& stream, Handler& handler, const ThrowSite& site) {
    rapidjson::Reader reader;
    const rapidjson::ParseResult result = reader.Parse<kReadFlags | extraFlags>(stream, handler);
    if (!result.IsError()) {
        return;
    }
    const Refusal refusal = handler.Refused();
    if (refusal != Refusal::None) {
        ThrowParseError(site, stream.TokenLocation(), RefusalReason(refusal));
    }
    const SyntaxError error = LocateSyntaxError(result.Code(), result.Offset(), stream);
    ThrowParseError(site, error.where, error.reason);
}

}  // namespace Tarsel::Core::Json

// Routes the reader's numbers through ScanNumber, for one handler with the
// flags of ReadJson<extraFlags>: an explicit specialization, which must be
// seen before the handler's ReadJson is instantiated.
#define TARSEL_JSON_SCAN_NUMBERS(extraFlags, Stream, Handler)                                            \
    namespace rapidjson {                                                                                \
    template <>                                                                                          \
    template <>                                                                                          \
    inline void GenericReader<UTF8<char>, UTF8<char>, CrtAllocator>::ParseNumber<                        \
        Tarsel::Core::Json::kReadFlags | (extraFlags), Stream, Handler>(Stream & is, Handler& handler) { \
        std::size_t offset = 0;                                                                          \
        const ParseErrorCode code = Tarsel::Core::Json::ScanNumber(is, handler, &offset);                \
        if (code != kParseErrorNone) {                                                                   \
            RAPIDJSON_PARSE_ERROR_NORETURN(code, offset);                                                \
        }                                                                                                \
    }                                                                                                    \
    }
