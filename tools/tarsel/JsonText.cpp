// This file parses JSON text into values that know their bytes, with
// RapidJSON's reader reading from a stream whose position the handler sees.
#include "JsonText.h"

#include "Command.h"
#include "Failure.h"

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <rapidjson/reader.h>

#include <cstdint>
#include <utility>

namespace TarselTool {

using namespace Tarsel::Core;

namespace {

// A stream the reader works on in place (no copy of it is made, as for the
// stock string stream), so that the handler sees where the reader stands;
// SkipWhitespace below marks where each token starts.
class PositionStream : public rapidjson::StringStream {
public:
    explicit PositionStream(const char* text) : rapidjson::StringStream(text), tokenStart(text) {}
    std::size_t Offset(const char* at) const { return static_cast<std::size_t>(at - head_); }
    const char* tokenStart;
};

// Found by argument-dependent lookup from the reader, and preferred to its
// template.
void SkipWhitespace(PositionStream& stream) {
    const char* p = stream.src_;
    while (*p == ' ' || *p == '\n' || *p == '\r' || *p == '\t') {
        ++p;
    }
    stream.src_ = p;
    stream.tokenStart = p;
}

// Builds the values from the reader's events. Containers being filled wait
// on a stack, each moved into its parent when it closes.
class Builder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<char>, Builder> {
public:
    explicit Builder(const PositionStream& stream) : m_stream(stream) {}

    bool Null() { return Scalar(JsonValue::Kind::Null, "null"); }
    bool Bool(bool b) { return Scalar(JsonValue::Kind::Boolean, b ? "true" : "false"); }
    bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
        const std::string number(text, length);
        const bool integer = number.find_first_of(".eE") == std::string::npos;
        return Scalar(integer ? JsonValue::Kind::Integer : JsonValue::Kind::Double, number);
    }
    bool String(const char* text, rapidjson::SizeType length, bool) {
        return Scalar(JsonValue::Kind::String, std::string(text, length));
    }
    bool Key(const char* text, rapidjson::SizeType length, bool) {
        Frame& frame = m_frames.back();
        frame.key.assign(text, length);
        frame.keyBegin = m_stream.Offset(m_stream.tokenStart);
        frame.keyEnd = m_stream.Tell();
        return true;
    }
    // The reader announces a container before it takes its bracket, and its
    // end before it takes the closing one.
    bool StartObject() { return Open(JsonValue::Kind::Object); }
    bool StartArray() { return Open(JsonValue::Kind::Array); }
    bool EndObject(rapidjson::SizeType) { return Close(); }
    bool EndArray(rapidjson::SizeType) { return Close(); }

    JsonValue TakeRoot() { return std::move(m_root); }

private:
    struct Frame {
        JsonValue value;
        std::string key;
        std::size_t keyBegin = 0;
        std::size_t keyEnd = 0;
    };

    bool Scalar(JsonValue::Kind kind, std::string text) {
        JsonValue value;
        value.kind = kind;
        value.begin = m_stream.Offset(m_stream.tokenStart);
        value.end = m_stream.Tell();
        value.text = std::move(text);
        Place(std::move(value));
        return true;
    }

    bool Open(JsonValue::Kind kind) {
        if (m_frames.size() == PropertySerializer::kMaxDepth) {
            return false;
        }
        Frame& frame = m_frames.emplace_back();
        frame.value.kind = kind;
        frame.value.begin = m_stream.Offset(m_stream.tokenStart);
        return true;
    }

    bool Close() {
        JsonValue value = std::move(m_frames.back().value);
        m_frames.pop_back();
        value.end = m_stream.Tell() + 1;
        Place(std::move(value));
        return true;
    }

    void Place(JsonValue value) {
        if (m_frames.empty()) {
            m_root = std::move(value);
            return;
        }
        Frame& frame = m_frames.back();
        if (frame.value.kind == JsonValue::Kind::Object) {
            frame.value.members.push_back(
                JsonMember{std::move(frame.key), frame.keyBegin, frame.keyEnd, std::move(value)});
        } else {
            frame.value.elements.push_back(std::move(value));
        }
    }

    const PositionStream& m_stream;
    std::vector<Frame> m_frames;
    JsonValue m_root;
};

// What the library says of text that does not parse: the same reader finds
// the same error, and the library words it and says where.
[[noreturn]] void ThrowLibraryRefusal(const std::string& text) {
    Property scratch("scratch");
    PropertySerializer::Deserialize(scratch, MemoryDataInput::Create(text), false);
    throw ToolFailure(kFailed, "", "not valid JSON");
}

}  // namespace

const JsonMember* FindMember(const JsonValue& object, const std::string& key) {
    for (auto member = object.members.rbegin(); member != object.members.rend(); ++member) {
        if (member->key == key) {
            return &*member;
        }
    }
    return nullptr;
}

const char* KindWord(JsonValue::Kind kind) {
    switch (kind) {
    case JsonValue::Kind::Null:
        return "null";
    case JsonValue::Kind::Boolean:
        return "boolean";
    case JsonValue::Kind::Integer:
        return "integer";
    case JsonValue::Kind::Double:
        return "double";
    case JsonValue::Kind::String:
        return "string";
    case JsonValue::Kind::Object:
        return "object";
    case JsonValue::Kind::Array:
        return "array";
    }
    return "value";
}

std::string KindName(JsonValue::Kind kind) {
    const std::string word = KindWord(kind);
    if (kind == JsonValue::Kind::Null) {
        return word;
    }
    const bool vowel = word[0] == 'a' || word[0] == 'i' || word[0] == 'o';
    return (vowel ? "an " : "a ") + word;
}

JsonValue ParseJsonText(const std::string& text) {
    PositionStream stream(text.c_str());
    Builder builder(stream);
    rapidjson::Reader reader;
    if (reader.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag>(stream, builder)
            .IsError()) {
        ThrowLibraryRefusal(text);
    }
    return builder.TakeRoot();
}

}  // namespace TarselTool
