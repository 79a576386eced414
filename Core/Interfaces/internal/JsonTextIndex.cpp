// This file builds the index of a JSON text from the reader's events, with
// the rules of loading, and reads values, keys and strings back from the
// text.
#include <Core/Interfaces/internal/JsonTextIndex.h>

#include <Core/Interfaces/internal/JsonNumber.h>
#include <Core/Interfaces/internal/JsonReader.h>
#include <Core/Interfaces/internal/RatioParse.h>
#include <Core/Interfaces/internal/SerializerAccess.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <limits>
#include <optional>
#include <stdexcept>

namespace Tarsel::Core::Json {

namespace {

bool IsNumberKind(std::string_view number) {
    return number.find_first_of(".eE") == std::string_view::npos;
}

}  // namespace

// Records an entry for every value as the reader meets it. With the
// settings rules it also refuses, as loading does, what a load would: a
// single value as the root and a number beyond the doubles stop the reader;
// an empty name or a ratio "n/0" is recorded with its location, and thrown
// once the whole text has parsed, so that a later syntax error wins.
class IndexBuilder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<char>, IndexBuilder> {
public:
    IndexBuilder(TextIndex& index, const LocatingStream& stream, bool settings)
        : m_index(index), m_stream(stream), m_settings(settings) {}

    bool Null() { return Scalar(JsonText::Kind::Null); }
    bool Bool(bool) { return Scalar(JsonText::Kind::Boolean); }
    bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
        const std::string_view number(text, length);
        if (m_settings) {
            const LoadedNumber loaded = ReadNumber(text, length);
            if (loaded.kind == LoadedNumber::Kind::Double && !std::isfinite(loaded.value)) {
                return Refuse(Refusal::NotFinite);
            }
        }
        return Scalar(IsNumberKind(number) ? JsonText::Kind::Integer : JsonText::Kind::Double);
    }
    bool String(const char* text, rapidjson::SizeType length, bool) {
        if (m_settings && !m_frames.empty() && m_frames.back().object && m_keyTakesRatio && !m_failure) {
            CheckRatio(std::string_view(text, length));
        }
        return Scalar(JsonText::Kind::String);
    }
    bool Key(const char* text, rapidjson::SizeType length, bool) {
        m_keyStart = Offset();
        if (m_settings) {
            const std::string_view name = UpToFirstZero(text, length);
            m_keyTakesRatio = name == PropertySerializer::kRatioKey;
            if (name.empty() && !m_failure) {
                MeetEmptyName();
            }
        }
        return true;
    }
    bool StartObject() { return Start(JsonText::Kind::Object); }
    bool StartArray() { return Start(JsonText::Kind::Array); }
    bool EndObject(rapidjson::SizeType) { return End(); }
    bool EndArray(rapidjson::SizeType) { return End(); }

    Refusal Refused() const { return m_refusal; }
    const std::exception_ptr& Failure() const { return m_failure; }

private:
    struct Frame {
        TextIndex::Value container;
        bool object;
        std::size_t children = 0;
    };

    std::size_t Offset() const { return static_cast<std::size_t>(m_stream.tokenStart - m_stream.Text()); }

    bool Refuse(Refusal refusal) {
        m_refusal = refusal;
        return false;
    }

    bool Scalar(JsonText::Kind kind) {
        if (m_settings && m_frames.empty()) {
            return Refuse(Refusal::ScalarRoot);
        }
        Add(kind);
        return true;
    }

    bool Start(JsonText::Kind kind) {
        if (m_frames.size() == PropertySerializer::kMaxDepth) {
            return Refuse(Refusal::TooDeep);
        }
        const TextIndex::Value container = Add(kind);
        m_frames.push_back({container, kind == JsonText::Kind::Object});
        return true;
    }

    bool End() {
        const TextIndex::Value container = m_frames.back().container;
        m_index.m_entries[container].extent = static_cast<std::uint32_t>(m_index.m_entries.size() - container);
        m_frames.pop_back();
        return true;
    }

    TextIndex::Value Add(JsonText::Kind kind) {
        if (m_index.m_entries.size() >= JsonText::kNone - 1) {
            throw std::length_error("a JSON text of more than 4294967294 values cannot be indexed");
        }
        const std::size_t value = Offset();
        const bool member = !m_frames.empty() && m_frames.back().object;
        const std::size_t start = member ? m_keyStart : value;
        const std::size_t distance = value - start;
        std::uint64_t word = static_cast<std::uint64_t>(start) | std::uint64_t{static_cast<unsigned char>(kind)}
                                                                     << TextIndex::kKindShift;
        if (member) {
            word |= TextIndex::kMemberBit;
        }
        const auto valueOffset =
            distance < TextIndex::kFarValue ? static_cast<std::uint32_t>(distance) : TextIndex::kFarValue;
        if (!m_frames.empty()) {
            ++m_frames.back().children;
        }
        m_index.m_entries.push_back({word, valueOffset, 1});
        return static_cast<TextIndex::Value>(m_index.m_entries.size() - 1);
    }

    // The names of the open containers below the root, joined by "/", as a
    // load names them in its reasons.
    std::string Path() const {
        std::string path;
        for (std::size_t i = 1; i < m_frames.size(); ++i) {
            const TextIndex::Value container = m_frames[i].container;
            const std::string name =
                m_index.IsMember(container) ? m_index.Key(container) : std::to_string(m_frames[i - 1].children - 1);
            path += (i > 1 ? "/" : "") + name;
        }
        return path;
    }

    [[gnu::cold]] void MeetEmptyName() {
        try {
            Property scratch{std::string()};
            scratch.SetChild(std::string());
        } catch (...) {
            m_failure = WithLocation(std::current_exception(), m_stream.TokenLocation(), EmptyKeyReason(Path()));
        }
    }

    void CheckRatio(std::string_view text) {
        try {
            Ratio ratio;
            RatioFromText(text, ratio);
        } catch (...) {
            const std::string path = Path();
            const std::string member = (path.empty() ? "" : path + "/") + PropertySerializer::kRatioKey;
            m_failure =
                WithLocation(std::current_exception(), m_stream.TokenLocation(), ZeroDenominatorReason(member, text));
        }
    }

    TextIndex& m_index;
    const LocatingStream& m_stream;
    const bool m_settings;
    std::vector<Frame> m_frames;
    std::size_t m_keyStart = 0;
    bool m_keyTakesRatio = false;
    Refusal m_refusal = Refusal::None;
    std::exception_ptr m_failure;
};

}  // namespace Tarsel::Core::Json

TARSEL_JSON_SCAN_NUMBERS(0, Tarsel::Core::Json::LocatingStream, Tarsel::Core::Json::IndexBuilder)
TARSEL_JSON_SCAN_NUMBERS(Tarsel::Core::Json::kWithCommentsFlags, Tarsel::Core::Json::CommentLocatingStream,
                         Tarsel::Core::Json::IndexBuilder)

namespace Tarsel::Core::Json {

namespace {

template <PropertySerializer::JsonSyntax syntax>
void Read(const std::string& text, TextIndex& index, bool settings, const ThrowSite& site) {
    SyntaxStream<syntax> stream(text.c_str());
    IndexBuilder builder(index, stream, settings);
    ReadJson<kSyntaxFlags<syntax>>(stream, builder, site);
    if (builder.Failure()) {
        std::rethrow_exception(builder.Failure());
    }
}

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

}  // namespace

TextIndex::TextIndex(const std::string& text, PropertySerializer::JsonSyntax syntax, JsonText::Rules rules,
                     const ThrowSite& site)
    : m_text(&text), m_comments(syntax == PropertySerializer::JsonSyntax::WithComments) {
    if (text.size() > kOffsetMask) {
        throw std::length_error("a JSON text of 2^56 bytes or more cannot be indexed");
    }
    const bool settings = rules == JsonText::Rules::Settings;
    if (m_comments) {
        Read<PropertySerializer::JsonSyntax::WithComments>(text, *this, settings, site);
    } else {
        Read<PropertySerializer::JsonSyntax::Strict>(text, *this, settings, site);
    }
}

std::size_t TextIndex::Begin(Value value) const {
    const Entry& entry = m_entries[value];
    if (entry.valueOffset != kFarValue) {
        return Start(value) + entry.valueOffset;
    }
    // Past the key, the gap, the colon and the gap.
    return SkipGap(SkipGap(KeyEnd(value)) + 1);
}

std::size_t TextIndex::End(Value value) const {
    if (!IsContainer(value)) {
        return ScalarEnd(Text(), Begin(value));
    }
    // Past the last child, a trailing comma and the gaps: the closing
    // bracket.
    const Value last = LastChild(value);
    std::size_t offset = SkipGap(last == kNone ? Begin(value) + 1 : End(last));
    if (Text()[offset] == ',') {
        offset = SkipGap(offset + 1);
    }
    return offset + 1;
}

std::size_t TextIndex::Count(Value container) const {
    std::size_t count = 0;
    for (Value child = FirstChild(container); child != SubtreeEnd(container); child = NextSibling(child)) {
        ++count;
    }
    return count;
}

TextIndex::Value TextIndex::LastChild(Value container) const {
    Value last = kNone;
    for (Value child = FirstChild(container); child != SubtreeEnd(container); child = NextSibling(child)) {
        last = child;
    }
    return last;
}

std::size_t TextIndex::KeyEnd(Value member) const {
    return StringEnd(Text(), Start(member));
}

std::string TextIndex::Key(Value member) const {
    std::string key = DecodeString(Text(), Start(member));
    const std::size_t zero = key.find('\0');
    if (zero != std::string::npos) {
        key.resize(zero);
    }
    return key;
}

namespace {

// Whether the string at quote in text is text's own bytes: true and false
// are certain, an escape in it leaves it undecided (nullopt).
std::optional<bool> PlainStringIs(std::string_view text, std::size_t quote, std::string_view bytes) {
    // The common case: a string without escapes is its own text. Bytes that
    // only an escape can spell are decided by decoding.
    const bool spellable = std::none_of(bytes.begin(), bytes.end(), [](char c) {
        return c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20;
    });
    if (!spellable) {
        return std::nullopt;
    }
    if (text.size() - quote > bytes.size() + 1 && text.compare(quote + 1, bytes.size(), bytes) == 0 &&
        text[quote + 1 + bytes.size()] == '"') {
        return true;
    }
    const std::size_t end = StringEnd(text, quote);
    if (text.substr(quote + 1, end - quote - 2).find('\\') == std::string_view::npos) {
        return false;
    }
    return std::nullopt;
}

}  // namespace

bool TextIndex::KeyIs(Value member, std::string_view name) const {
    const std::optional<bool> plain = PlainStringIs(Text(), Start(member), name);
    return plain ? *plain : Key(member) == name;
}

std::string TextIndex::StringValue(Value string) const {
    return DecodeString(Text(), Begin(string));
}

bool TextIndex::StringIs(Value string, std::string_view bytes) const {
    const std::optional<bool> plain = PlainStringIs(Text(), Begin(string), bytes);
    return plain ? *plain : StringValue(string) == bytes;
}

TextIndex::Value TextIndex::Member(Value object, std::string_view name) const {
    if (KindOf(object) != Kind::Object) {
        return kNone;
    }
    Value found = kNone;
    for (Value child = FirstChild(object); child != SubtreeEnd(object); child = NextSibling(child)) {
        if (KeyIs(child, name)) {
            found = child;
        }
    }
    return found;
}

TextIndex::Value TextIndex::Element(Value array, std::size_t index) const {
    if (KindOf(array) != Kind::Array) {
        return kNone;
    }
    for (Value child = FirstChild(array); child != SubtreeEnd(array); child = NextSibling(child)) {
        if (index-- == 0) {
            return child;
        }
    }
    return kNone;
}

std::size_t TextIndex::SkipGap(std::size_t offset) const {
    const std::string& text = Text();
    for (;;) {
        while (offset < text.size() && IsSpace(text[offset])) {
            ++offset;
        }
        if (!m_comments || offset + 1 >= text.size() || text[offset] != '/') {
            return offset;
        }
        if (text[offset + 1] == '/') {
            const std::size_t lineEnd = text.find('\n', offset);
            offset = lineEnd == std::string::npos ? text.size() : lineEnd;
        } else if (text[offset + 1] == '*') {
            const std::size_t close = text.find("*/", offset + 2);
            offset = close == std::string::npos ? text.size() : close + 2;
        } else {
            return offset;
        }
    }
}

std::size_t StringEnd(std::string_view text, std::size_t quote) noexcept {
    std::size_t offset = quote + 1;
    while (offset < text.size() && text[offset] != '"') {
        offset += text[offset] == '\\' ? 2 : 1;
    }
    return offset + 1;
}

namespace {

unsigned Hex4(std::string_view text, std::size_t at) {
    unsigned value = 0;
    std::from_chars(text.data() + at, text.data() + at + 4, value, 16);
    return value;
}

void AppendUtf8(std::string& out, unsigned codePoint) {
    if (codePoint < 0x80) {
        out += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        out += static_cast<char>(0xC0 | codePoint >> 6);
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        out += static_cast<char>(0xE0 | codePoint >> 12);
        out += static_cast<char>(0x80 | (codePoint >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | codePoint >> 18);
        out += static_cast<char>(0x80 | (codePoint >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (codePoint >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    }
}

char Unescaped(char escape) {
    switch (escape) {
    case 'b':
        return '\b';
    case 'f':
        return '\f';
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    default:
        return escape;  // '"', '\\', '/'
    }
}

}  // namespace

// As the reader decodes: a high surrogate joins the low one after it; a low
// surrogate alone is written as its own three bytes.
std::string DecodeString(std::string_view text, std::size_t quote) {
    const std::size_t end = StringEnd(text, quote) - 1;
    std::string out;
    out.reserve(end - quote - 1);
    for (std::size_t i = quote + 1; i < end;) {
        // Only within the string: a search to the end of the text would
        // cost each string the length of everything after it.
        const std::size_t escape = text.substr(0, end).find('\\', i);
        const std::size_t plain = std::min(escape, end);
        out.append(text.data() + i, plain - i);
        if (plain == end) {
            break;
        }
        const char kind = text[escape + 1];
        if (kind != 'u') {
            out += Unescaped(kind);
            i = escape + 2;
            continue;
        }
        unsigned codePoint = Hex4(text, escape + 2);
        i = escape + 6;
        if (codePoint >= 0xD800 && codePoint <= 0xDBFF) {
            codePoint = 0x10000 + ((codePoint - 0xD800) << 10) + (Hex4(text, i + 2) - 0xDC00);
            i += 6;
        }
        AppendUtf8(out, codePoint);
    }
    return out;
}

std::size_t ScalarEnd(std::string_view text, std::size_t begin) noexcept {
    if (text[begin] == '"') {
        return StringEnd(text, begin);
    }
    std::size_t end = begin + 1;
    // A number's or a literal's characters; the first byte after one is
    // white space, a separator, a bracket or the end.
    while (end < text.size() && (std::isalnum(static_cast<unsigned char>(text[end])) || text[end] == '.' ||
                                 text[end] == '+' || text[end] == '-')) {
        ++end;
    }
    return end;
}

}  // namespace Tarsel::Core::Json
