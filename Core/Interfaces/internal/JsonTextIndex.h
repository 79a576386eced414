// Private to the library, not installed: the index of a JSON text that
// JsonText wraps and PropertySerializer::UpdateText edits by, and the
// scanning of the text between and inside its tokens.
//
// Each value is one entry of 16 bytes in document order: where it starts
// (its key's quote for a member), how far its value lies from there, its
// kind, and how many entries its subtree holds. Everything else (where a
// value ends, a key's text, a string's content) is read again from the text
// when asked, which the text's grammar makes cheap and exact.
#pragma once

#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/JsonText.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Tarsel::Core::Json {

class TextIndex {
public:
    using Value = JsonText::Value;
    using Kind = JsonText::Kind;
    static constexpr Value kNone = JsonText::kNone;

    // Parses text, which must stay where it is, unchanged, while the index
    // lives. Throws as JsonText's constructor documents, parse errors
    // recorded at site.
    TextIndex(const std::string& text, PropertySerializer::JsonSyntax syntax, JsonText::Rules rules,
              const ThrowSite& site);

    const std::string& Text() const noexcept { return *m_text; }
    bool HasComments() const noexcept { return m_comments; }
    // How many values the text holds.
    Value Size() const noexcept { return static_cast<Value>(m_entries.size()); }

    Kind KindOf(Value value) const noexcept { return static_cast<Kind>(m_entries[value].start >> kKindShift & 7); }
    bool IsMember(Value value) const noexcept { return (m_entries[value].start & kMemberBit) != 0; }
    bool IsContainer(Value value) const noexcept {
        return KindOf(value) == Kind::Object || KindOf(value) == Kind::Array;
    }
    // Where value's child starts in the text: its key's quote for a member,
    // else its value.
    std::size_t Start(Value value) const noexcept { return m_entries[value].start & kOffsetMask; }
    std::size_t Begin(Value value) const;
    std::size_t End(Value value) const;

    // The values of value's subtree are [value, SubtreeEnd(value)).
    Value SubtreeEnd(Value value) const noexcept { return value + m_entries[value].extent; }
    // The children of a container are FirstChild(c), NextSibling of it, and
    // so on up to SubtreeEnd(c).
    static Value FirstChild(Value container) noexcept { return container + 1; }
    Value NextSibling(Value value) const noexcept { return SubtreeEnd(value); }
    std::size_t Count(Value container) const;
    // The last child, kNone when there is none.
    Value LastChild(Value container) const;

    // Just past the closing quote of a member's key.
    std::size_t KeyEnd(Value member) const;
    // The member's name as a load makes it: decoded, up to the first zero.
    std::string Key(Value member) const;
    // Whether the member's name is name; cheaper than Key where the key
    // holds no escape.
    bool KeyIs(Value member, std::string_view name) const;
    std::string StringValue(Value string) const;
    // Whether the string value decodes to text; cheaper than StringValue
    // where it holds no escape.
    bool StringIs(Value string, std::string_view text) const;

    // The member of object a load keeps under name (the last); kNone if none.
    Value Member(Value object, std::string_view name) const;
    Value Element(Value array, std::size_t index) const;

    // The offset of the next byte at or after offset that is neither white
    // space nor part of a comment.
    std::size_t SkipGap(std::size_t offset) const;

private:
    static constexpr unsigned kKindShift = 56;
    static constexpr std::uint64_t kMemberBit = std::uint64_t{1} << 60;
    static constexpr std::uint64_t kOffsetMask = (std::uint64_t{1} << kKindShift) - 1;
    // A value that lies too far from its key to say in 32 bits is found by
    // reading past the key.
    static constexpr std::uint32_t kFarValue = ~std::uint32_t{0};

    struct Entry {
        std::uint64_t start;        // offset, kind and member bit
        std::uint32_t valueOffset;  // from start to the value, or kFarValue
        std::uint32_t extent;       // entries in the subtree, itself included
    };

    // The entries in blocks of a fixed size: growing never copies the
    // entries made so far, so that building the index of a large text never
    // holds it twice, as a vector's doubling would.
    class Entries {
    public:
        Entry& operator[](Value value) noexcept { return m_blocks[value >> kShift][value & kMask]; }
        const Entry& operator[](Value value) const noexcept { return m_blocks[value >> kShift][value & kMask]; }
        std::size_t size() const noexcept { return m_size; }
        void push_back(const Entry& entry) {
            if ((m_size & kMask) == 0) {
                m_blocks.push_back(std::make_unique<Entry[]>(kMask + 1));
            }
            m_blocks.back()[m_size & kMask] = entry;
            ++m_size;
        }

    private:
        static constexpr unsigned kShift = 14;
        static constexpr Value kMask = (Value{1} << kShift) - 1;
        std::vector<std::unique_ptr<Entry[]>> m_blocks;
        std::size_t m_size = 0;
    };

    friend class IndexBuilder;

    const std::string* m_text;
    bool m_comments;
    Entries m_entries;
};

// Scanning the text of a valid JSON document, from a token's first byte.
// The end of the string whose opening quote is at quote: just past its
// closing quote.
std::size_t StringEnd(std::string_view text, std::size_t quote) noexcept;
// The decoded content of that string, as the reader decodes it.
std::string DecodeString(std::string_view text, std::size_t quote);
// Just past a scalar (string, number, literal) that starts at begin.
std::size_t ScalarEnd(std::string_view text, std::size_t begin) noexcept;

}  // namespace Tarsel::Core::Json
