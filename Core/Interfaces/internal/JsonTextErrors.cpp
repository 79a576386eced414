// This file words the reasons a JSON text does not load, and attaches where
// it fails to the exceptions of a load that stops part-way.
#include <Core/Interfaces/internal/JsonTextErrors.h>

#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <boost/exception/exception.hpp>

namespace Tarsel::Core::Json {

namespace {

bool StartsWithByteOrderMark(const char* text) {
    return text[0] == '\xEF' && text[1] == '\xBB' && text[2] == '\xBF';
}

std::string PathPrefix(const std::string& path) {
    return path.empty() ? std::string() : path + ": ";
}

}  // namespace

std::string SyntaxErrorReason(rapidjson::ParseErrorCode code, const char* text, std::size_t offset) {
    if (offset == 0 && StartsWithByteOrderMark(text)) {
        return "the file starts with a byte order mark, which JSON does not allow";
    }
    switch (code) {
    case rapidjson::kParseErrorDocumentEmpty:
        // The reader says "empty" for anything that cannot start a value.
        return text[offset] != '\0' ? "expected an object or an array" : "the document is empty";
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
        // The reader gives this code to raw control characters too; either
        // byte is still in place at the offset.
        return text[offset] == '\\' ? "invalid escape character in a string"
                                    : "a control character in a string must be escaped";
    case rapidjson::kParseErrorStringMissQuotationMark:
        return "missing the closing quotation mark of a string";
    case rapidjson::kParseErrorStringInvalidEncoding:
        return "invalid UTF-8 in a string";
    case rapidjson::kParseErrorNumberTooBig:
        return "number too large for a double";
    case rapidjson::kParseErrorNumberMissFraction:
    case rapidjson::kParseErrorNumberMissExponent:
        return "incomplete number";
    default:
        return "syntax error";
    }
}

namespace {

bool IsHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Whether text at offset is "\\u" and a high surrogate's four hex digits: the
// first half of a pair, whose second half starts six bytes on.
bool IsHighSurrogateEscape(const char* text, std::size_t offset) {
    const char* p = text + offset;
    if (p[0] != '\\' || p[1] != 'u' || (p[2] != 'd' && p[2] != 'D')) {
        return false;
    }
    const char third = static_cast<char>(p[3] | 0x20);
    return third >= '8' && third <= 'b' && IsHexDigit(p[4]) && IsHexDigit(p[5]);
}

}  // namespace

SyntaxError LocateSyntaxError(rapidjson::ParseErrorCode code, std::size_t offset, const LocatingStream& stream) {
    const char* const text = stream.Text();
    const std::size_t token = static_cast<std::size_t>(stream.tokenStart - text);
    std::size_t at = offset;
    switch (code) {
    case rapidjson::kParseErrorStringMissQuotationMark:
        // A string runs to the end of the text only when no line end stops
        // it first (a raw one is refused where it stands), so its quote is
        // on the line being read.
        at = token;
        break;
    case rapidjson::kParseErrorValueInvalid:
        if (text[token] == 't' || text[token] == 'f' || text[token] == 'n') {
            at = token;
        }
        break;
    case rapidjson::kParseErrorStringUnicodeSurrogateInvalid:
    case rapidjson::kParseErrorStringUnicodeEscapeInvalidHex:
        // The reader reports both halves of a pair at the first one's escape;
        // decoding in place has not yet written over either.
        if (IsHighSurrogateEscape(text, offset)) {
            at = offset + 6;
        }
        break;
    case rapidjson::kParseErrorUnspecificSyntaxError:
        // Only comments give this code: the reader passes over an unclosed
        // one, or a '/' that starts none, to the end of the text.
        if (text[token] == '/') {
            return {stream.Locate(token),
                    text[token + 1] == '*' ? "a comment that is never closed" : "a '/' that starts no comment"};
        }
        break;
    default:
        break;
    }
    return {stream.Locate(at), SyntaxErrorReason(code, text, at)};
}

void ThrowParseError(const ThrowSite& site, const TextLocation& where, const std::string& reason) {
    ThrowAt(site,
            JsonException() << JsonException::TagParseError("Parse error")
                            << JsonException::TagParseOffset(where.offset) << JsonException::TagParseLine(where.line)
                            << JsonException::TagParseColumn(where.column) << JsonException::TagParseReason(reason));
}

void ThrowParseError(const ThrowSite& site, const std::string& reason) {
    ThrowAt(site,
            JsonException() << JsonException::TagParseError("Parse error") << JsonException::TagParseReason(reason));
}

std::string RefusalReason(Refusal refusal) {
    switch (refusal) {
    case Refusal::TooDeep:
        return "nesting deeper than " + std::to_string(PropertySerializer::kMaxDepth) + " levels";
    case Refusal::ScalarRoot:
        return "the document is a single value; a settings file holds an object or an array";
    case Refusal::NotFinite:
        return "number too large for a double";
    case Refusal::None:
        break;
    }
    return "syntax error";
}

std::string EmptyKeyReason(const std::string& path) {
    return PathPrefix(path) + "a member has an empty name, which a settings tree cannot hold";
}

std::string ZeroDenominatorReason(const std::string& path, std::string_view ratioText) {
    return PathPrefix(path) + "the ratio " + std::string(ratioText) + " has a zero denominator";
}

std::exception_ptr WithLocation(std::exception_ptr failure, const TextLocation& where, const std::string& reason) {
    try {
        std::rethrow_exception(failure);
    } catch (boost::exception& e) {
        e << JsonException::TagParseOffset(where.offset) << JsonException::TagParseLine(where.line)
          << JsonException::TagParseColumn(where.column) << JsonException::TagParseReason(reason);
    } catch (...) {
    }
    return failure;
}

}  // namespace Tarsel::Core::Json
