// Private to the library, not installed: the stream the JSON reader parses
// a text from, in place. It keeps the line it stands on as it goes, so that
// a failure is located without reading the text a second time, and it lets
// the reader pass over string bytes eight at a time.
#pragma once

#include <rapidjson/reader.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Tarsel::Core::Json {

// How many zero bytes a text read through a LocatingStream must be followed
// by: it reads strings a word at a time, up to seven bytes past their end.
constexpr std::size_t kTextPadding = 8;

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
    // For a reading that is not in place: the reader then only reads through
    // the stream, and never writes where it points.
    explicit LocatingStream(const char* text) : LocatingStream(const_cast<char*>(text)) {}

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

// The stream of JSON with comments: besides white space, its SkipWhitespace
// passes over every complete // and /* */ comment, counting the line ends in
// them, so that a comment is white space to the reader and to locating. A
// '/' that starts no complete comment is left where it is: the reader then
// refuses it, and the token it refuses starts there.
class CommentLocatingStream : public LocatingStream {
public:
    using LocatingStream::LocatingStream;
};

// The end of the comment at p ('/' then '/' or '*'), or null when p starts
// none: a "/*" that is never closed, or a '/' alone.
inline const char* CommentEnd(const char* p, CommentLocatingStream& stream) {
    if (p[1] == '/') {
        p += 2;
        while (*p != '\0' && *p != '\n') {
            ++p;
        }
        return p;  // the line end stays: white space, counted as such
    }
    if (p[1] != '*') {
        return nullptr;
    }
    std::size_t lineEnds = 0;
    const char* lineStart = nullptr;
    for (const char* q = p + 2; *q != '\0'; ++q) {
        if (q[0] == '*' && q[1] == '/') {
            stream.lineEnds += lineEnds;
            if (lineStart != nullptr) {
                stream.lineStart = lineStart;
            }
            return q + 2;
        }
        if (*q == '\n') {
            ++lineEnds;
            lineStart = q + 1;
        }
    }
    return nullptr;
}

inline void SkipWhitespace(CommentLocatingStream& stream) {
    for (;;) {
        SkipWhitespace(static_cast<LocatingStream&>(stream));
        const char* const end = *stream.src_ == '/' ? CommentEnd(stream.src_, stream) : nullptr;
        if (end == nullptr) {
            return;
        }
        stream.src_ = const_cast<char*>(end);
    }
}

}  // namespace Tarsel::Core::Json

namespace Tarsel::Core::Json {

// The bytes of a string before the first that ends it or needs a closer
// look: '"', '\\', or a control character (the text's terminating zero
// among them). Eight at a time: a byte below 0x20 and a byte equal to a
// given one are found in a word by the carries of one subtraction each;
// a carry marks only bytes above the first marked one, so the lowest mark
// is exact.
inline std::size_t UnescapedLength(const char* text) {
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the lowest byte of a word comes first");
    constexpr std::uint64_t kEach = 0x0101010101010101ULL;
    constexpr std::uint64_t kHigh = 0x8080808080808080ULL;
    for (std::size_t length = 0;; length += 8) {
        std::uint64_t word;
        std::memcpy(&word, text + length, sizeof word);
        const std::uint64_t quote = word ^ (kEach * '"');
        const std::uint64_t backslash = word ^ (kEach * '\\');
        const std::uint64_t marks =
            ((word - kEach * 0x20) & ~word) | ((quote - kEach) & ~quote) | ((backslash - kEach) & ~backslash);
        if ((marks & kHigh) != 0) {
            return length + static_cast<std::size_t>(__builtin_ctzll(marks & kHigh)) / 8;
        }
    }
}

}  // namespace Tarsel::Core::Json

namespace rapidjson {

// The reader may work on a copy of the stream, as it does with its own
// in-situ stream, and write it back.
template <>
struct StreamTraits<Tarsel::Core::Json::LocatingStream> {
    enum { copyOptimization = 1 };
};
template <>
struct StreamTraits<Tarsel::Core::Json::CommentLocatingStream> {
    enum { copyOptimization = 1 };
};

// The reader's hook for passing over the plain bytes of a string at once,
// which it leaves empty but for its own streams on SSE2: until a string's
// first escape, decoding in place writes each byte where it already is, so
// there is nothing to write; after one, the bytes move down as a block.
#define TARSEL_JSON_SCAN_UNESCAPED(Stream)                                                                             \
    template <>                                                                                                        \
    template <>                                                                                                        \
    inline void GenericReader<UTF8<char>, UTF8<char>, CrtAllocator>::ScanCopyUnescapedString(Stream& is, Stream& os) { \
        /* In place, is and os are the one stream: its read and write positions. */                                    \
        const std::size_t length = Tarsel::Core::Json::UnescapedLength(is.src_);                                       \
        if (os.dst_ != is.src_) {                                                                                      \
            std::memmove(os.dst_, is.src_, length);                                                                    \
        }                                                                                                              \
        is.src_ += length;                                                                                             \
        os.dst_ += length;                                                                                             \
    }
TARSEL_JSON_SCAN_UNESCAPED(Tarsel::Core::Json::LocatingStream)
TARSEL_JSON_SCAN_UNESCAPED(Tarsel::Core::Json::CommentLocatingStream)
#undef TARSEL_JSON_SCAN_UNESCAPED

}  // namespace rapidjson
