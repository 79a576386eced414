// This file locates JSON load failures: RapidJSON's reader runs over a copy
// of the text with a handler that refuses what the library's loader refuses,
// tracking the path of members and the offset of each token.
#include "JsonDiagnosis.h"

#include <Core/Interfaces/Property.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <boost/rational.hpp>
#include <rapidjson/reader.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

// The library loads with these flags; they decide what is a syntax error.
constexpr unsigned kLibraryParseFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseInsituFlag;

// The stock in-situ stream lets the reader work on a local copy of it, so
// that a handler would see a stale position; a type of our own is read in
// place, and the handler sees where the reader stands.
class LiveStream : public rapidjson::InsituStringStream {
public:
    using rapidjson::InsituStringStream::InsituStringStream;
};

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// The line and column of offset in text.
JsonProblem Locate(std::string_view text, std::size_t offset, std::string reason) {
    JsonProblem problem{1, 1, std::move(reason)};
    for (std::size_t i = 0; i < offset && i < text.size(); ++i) {
        const unsigned char byte = static_cast<unsigned char>(text[i]);
        if (byte == '\n') {
            ++problem.line;
            problem.column = 1;
        } else if ((byte & 0xC0) != 0x80) {
            ++problem.column;
        }
    }
    return problem;
}

std::string SyntaxReason(rapidjson::ParseErrorCode code, std::string_view text, std::size_t offset) {
    if (offset == 0 && text.substr(0, 3) == "\xEF\xBB\xBF") {
        return "the file starts with a byte order mark, which JSON does not allow";
    }
    switch (code) {
    case rapidjson::kParseErrorDocumentEmpty:
        // The reader says "empty" for anything that cannot start a value.
        return offset < text.size() ? "expected an object or an array" : "the document is empty";
    case rapidjson::kParseErrorDocumentRootNotSingular:
        return "text after the end of the document";
    case rapidjson::kParseErrorValueInvalid:
        return "not a valid JSON value";
    case rapidjson::kParseErrorObjectMissName:
        return "missing a member name in double quotes";
    case rapidjson::kParseErrorObjectMissColon:
        return "missing a colon after a member name";
    case rapidjson::kParseErrorObjectMissCommaOrCurlyBracket:
        return "missing a comma or '}' after an object member";
    case rapidjson::kParseErrorArrayMissCommaOrSquareBracket:
        return "missing a comma or ']' after an array element";
    case rapidjson::kParseErrorStringUnicodeEscapeInvalidHex:
        return "bad hex digit in a \\u escape";
    case rapidjson::kParseErrorStringUnicodeSurrogateInvalid:
        return "bad surrogate pair in a \\u escape";
    case rapidjson::kParseErrorStringEscapeInvalid:
        return "invalid escape character in a string";
    case rapidjson::kParseErrorStringMissQuotationMark:
        return "missing the closing quotation mark of a string";
    case rapidjson::kParseErrorStringInvalidEncoding:
        return "invalid UTF-8 in a string";
    case rapidjson::kParseErrorNumberTooBig:
    case rapidjson::kParseErrorNumberMissFraction:
    case rapidjson::kParseErrorNumberMissExponent:
        return code == rapidjson::kParseErrorNumberTooBig ? "number too large for a double"
                                                          : "incomplete number";
    default:
        return "syntax error";
    }
}

// Follows the reader's events as the library's loader does and stops (or, for
// a failure of loading rather than of parsing, records and goes on) where
// the loader fails. Syntax errors take precedence, as in the library.
class Diagnoser : public rapidjson::BaseReaderHandler<rapidjson::UTF8<char>, Diagnoser> {
public:
    Diagnoser(std::string_view text, LiveStream& stream) : m_text(text), m_stream(stream) {}

    bool Null() { return Value(); }
    bool Bool(bool) { return Value(); }
    bool Int(int) { return Value(); }
    bool Uint(unsigned) { return Value(); }
    bool Int64(std::int64_t) { return Value(); }
    bool Uint64(std::uint64_t) { return Value(); }
    bool Double(double d) {
        if (!std::isfinite(d)) {
            return Stop(TokenStart(), "number too large for a double");
        }
        return Value();
    }
    bool String(const char* text, rapidjson::SizeType length, bool) {
        if (!m_frames.empty() && m_frames.back().isObject && m_key == "frameRateRatio") {
            CheckRatio(std::string(text, length));
        }
        return Value();
    }
    bool Key(const char* text, rapidjson::SizeType length, bool) {
        // A name ends at its first zero character, as the library takes it.
        m_key.assign(text, strnlen(text, length));
        if (m_key.empty()) {
            Record(TokenStart(), (Path().empty() ? std::string() : Path() + ": ") +
                                     "a member has an empty name, which a settings tree cannot hold");
        }
        m_lastEnd = m_stream.Tell();
        return true;
    }
    // The reader calls the four below before it takes the bracket.
    bool StartObject() { return Start(true); }
    bool StartArray() { return Start(false); }
    bool EndObject(rapidjson::SizeType) { return End(); }
    bool EndArray(rapidjson::SizeType) { return End(); }

    // A refusal that stopped the parser, if any.
    const std::optional<JsonProblem>& Stopped() const { return m_stopped; }
    // The first failure of loading, found while the parse went on.
    const std::optional<JsonProblem>& LoadFailure() const { return m_loadFailure; }

private:
    struct Frame {
        bool isObject;
        std::string name;  // this container's own name in its parent
        std::size_t count;
    };

    bool Start(bool isObject) {
        if (m_frames.size() == PropertySerializer::kMaxDepth) {
            return Stop(m_stream.Tell(), "nesting deeper than " +
                                                 std::to_string(PropertySerializer::kMaxDepth) + " levels");
        }
        std::string name = m_frames.empty() ? std::string() : NextChildName();
        m_frames.push_back(Frame{isObject, std::move(name), 0});
        m_lastEnd = m_stream.Tell() + 1;
        return true;
    }

    bool End() {
        m_frames.pop_back();
        if (!m_frames.empty()) {
            ++m_frames.back().count;
        }
        m_lastEnd = m_stream.Tell() + 1;
        return true;
    }

    bool Value() {
        if (m_frames.empty()) {
            return Stop(TokenStart(), "the document is a single value; a settings file holds an object or an array");
        }
        ++m_frames.back().count;
        m_lastEnd = m_stream.Tell();
        return true;
    }

    // The name the next value takes in the current container.
    std::string NextChildName() const {
        const Frame& frame = m_frames.back();
        return frame.isObject ? m_key : std::to_string(frame.count);
    }

    // The path of the current container, names joined by "/".
    std::string Path() const {
        std::string path;
        for (std::size_t i = 1; i < m_frames.size(); ++i) {
            path += (i > 1 ? "/" : "") + m_frames[i].name;
        }
        return path;
    }

    void CheckRatio(const std::string& text) {
        Ratio ratio;
        try {
            RatioFromString(text, ratio);
        } catch (const boost::bad_rational&) {
            const std::string path = Path();
            Record(TokenStart(), (path.empty() ? "" : path + "/") + m_key + ": the ratio " + text +
                                     " has a zero denominator");
        }
    }

    // Where the token just read began: past the blanks and punctuation that
    // follow the previous token.
    std::size_t TokenStart() const {
        std::size_t offset = m_lastEnd;
        while (offset < m_text.size() && (IsBlank(m_text[offset]) || m_text[offset] == ',' ||
                                          m_text[offset] == ':')) {
            ++offset;
        }
        return offset;
    }

    bool Stop(std::size_t offset, std::string reason) {
        m_stopped = Problem(offset, std::move(reason));
        return false;
    }

    void Record(std::size_t offset, std::string reason) {
        if (!m_loadFailure) {
            m_loadFailure = Problem(offset, std::move(reason));
        }
    }

    JsonProblem Problem(std::size_t offset, std::string reason) const {
        return Locate(m_text, offset, std::move(reason));
    }

    std::string_view m_text;
    LiveStream& m_stream;
    std::vector<Frame> m_frames;
    std::string m_key;
    std::size_t m_lastEnd = 0;
    std::optional<JsonProblem> m_stopped;
    std::optional<JsonProblem> m_loadFailure;
};

}  // namespace

std::optional<JsonProblem> DiagnoseJson(std::string_view text) {
    // The library's text ends at the first zero byte.
    text = text.substr(0, text.find('\0'));
    std::string copy(text);
    LiveStream stream(copy.data());
    Diagnoser diagnoser(text, stream);
    rapidjson::Reader reader;
    const rapidjson::ParseResult result = reader.Parse<kLibraryParseFlags>(stream, diagnoser);
    if (diagnoser.Stopped()) {
        return diagnoser.Stopped();
    }
    if (result.IsError()) {
        return Locate(text, result.Offset(), SyntaxReason(result.Code(), text, result.Offset()));
    }
    return diagnoser.LoadFailure();
}

}  // namespace TarselTool
