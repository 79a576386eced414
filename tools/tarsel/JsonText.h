// A JSON document as the text it is: every value with the bytes it spans, so
// that a command can change one value of a user's file and leave every other
// byte as it was, and compare two files as JSON (arrays, nulls, numbers of
// any size) rather than as the library's settings trees.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace TarselTool {

struct JsonMember;

struct JsonValue {
    // Integer: a number without fraction or exponent; Double: any other.
    enum class Kind : unsigned char { Null, Boolean, Integer, Double, String, Object, Array };

    Kind kind = Kind::Null;
    // The value's bytes in the text, [begin, end).
    std::size_t begin = 0;
    std::size_t end = 0;
    // A string's decoded bytes; a number's text; "true" or "false".
    std::string text;
    std::vector<JsonMember> members;  // of an object, in the text's order
    std::vector<JsonValue> elements;  // of an array
};

struct JsonMember {
    std::string key;  // decoded
    // The key's bytes, quotes included.
    std::size_t keyBegin = 0;
    std::size_t keyEnd = 0;
    JsonValue value;
};

// The member of object named key that a load keeps: the last of that name;
// null when there is none.
const JsonMember* FindMember(const JsonValue& object, const std::string& key);

// "integer", "object", ... and, with its article, "an integer", "an
// object", ... for messages.
const char* KindWord(JsonValue::Kind kind);
std::string KindName(JsonValue::Kind kind);

// Parses text (up to its first zero byte, as the library reads a file),
// whatever its root, nested at most PropertySerializer::kMaxDepth levels.
// On a syntax error, throws what loading text through the library throws
// for it: a JsonException that says where and why.
JsonValue ParseJsonText(const std::string& text);

}  // namespace TarselTool
