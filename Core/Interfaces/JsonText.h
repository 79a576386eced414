/// @file
/// A JSON text together with where each of its values lies, for programs that
/// read or change a user's JSON file as the file's own bytes, not as a
/// re-save of what a load made of it.
#pragma once

#include <Core/Interfaces/Export.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Tarsel::Core {

/// A parsed JSON text: every value with the bytes it spans, read by the rules
/// PropertySerializer::Deserialize reads by, so that what a program finds
/// here is what an application loads. A member's name is its key up to the
/// first zero character; where a name repeats in an object, the last member
/// is the one a load keeps (Member); numbers are told apart as a load tells
/// them (Kind). The index is compact: a few offsets a value, no copy of any
/// string, so that a text of any size costs little more than itself.
///
/// Values are numbered in document order, the root first (Root()); a Value
/// stays valid while its JsonText lives. The object is immutable: the Edit
/// functions return a change for the caller to apply to its text.
/// Concurrent reads of one JsonText are safe.
///
/// Example: the width of a settings file, exactly as it is written.
/// @code
/// const std::string text = ...;  // the file's bytes
/// const JsonText json(text, PropertySerializer::JsonSyntax::Strict, JsonText::Rules::Settings);
/// const JsonText::Reach reach = json.Follow({"video", "width"});
/// if (reach.matched == 2) { std::string_view written = json.Spelling(reach.value); }
/// @endcode
class TARSEL_API JsonText {
public:
    /// What a value is, as its text spells it.
    enum class Kind : unsigned char {
        Null,     ///< null
        Boolean,  ///< true or false
        Integer,  ///< a number without fraction or exponent, of any size
        Double,   ///< a number with a fraction or an exponent
        String,   ///< a string
        Object,   ///< an object: its children are members, with keys
        Array,    ///< an array: its children are elements
    };

    /// What the constructor accepts besides the JSON grammar.
    enum class Rules : unsigned char {
        /// Any JSON document: a root of any kind, numbers of any size,
        /// member names of any text.
        Json,
        /// Only what Deserialize loads into an empty container: a root that
        /// is an object or an array, numbers within the doubles' range, no
        /// empty member name, no "frameRateRatio" of "n/0"; refused as
        /// Deserialize refuses them (see the constructor).
        Settings,
    };

    /// A value of the text: an index in document order, the root 0.
    using Value = std::uint32_t;
    /// No value: what Member and Element return when there is none.
    static constexpr Value kNone = ~Value{0};

    /// Parses text, up to its first zero byte as a load reads, nested at
    /// most PropertySerializer::kMaxDepth levels, in syntax. The JsonText
    /// reads text where it is, without a copy: text must outlive it,
    /// unchanged. To change a large text, destroy the JsonText, apply the
    /// edit, and parse again: index and text are then never held twice.
    ///
    /// Throws JsonException with TagParseError "Parse error" and where and
    /// why (TagParseOffset, TagParseLine, TagParseColumn, TagParseReason),
    /// exactly as Deserialize throws it for the same text, for any syntax
    /// error, nesting too deep, and with Rules::Settings a root that is a
    /// single value or a number beyond the doubles (2e308). With
    /// Rules::Settings, an empty member name throws std::invalid_argument
    /// ("name is empty") and a "frameRateRatio" of "n/0" boost::bad_rational,
    /// each with the same location records, as loading would; a syntax error
    /// later in the text is reported first. Throws std::length_error for a
    /// text of 2^56 bytes or more, or of more than 2^32 - 2 values.
    JsonText(const std::string& text, PropertySerializer::JsonSyntax syntax, Rules rules);
    /// A temporary text would be gone before the JsonText that reads it.
    JsonText(std::string&& text, PropertySerializer::JsonSyntax syntax, Rules rules) = delete;
    ~JsonText();
    /// Takes other's index; other can then only be destroyed or assigned.
    JsonText(JsonText&& other) noexcept;
    /// Takes other's index; other can then only be destroyed or assigned.
    JsonText& operator=(JsonText&& other) noexcept;
    JsonText(const JsonText&) = delete;
    JsonText& operator=(const JsonText&) = delete;

    /// The text, whole (past a zero byte too).
    const std::string& Text() const noexcept;

    /// The root value, 0.
    Value Root() const noexcept { return 0; }
    /// The kind of value.
    Kind KindOf(Value value) const;
    /// The offset of the first byte of value in Text().
    std::size_t Begin(Value value) const;
    /// The offset just past the last byte of value (a container's closing
    /// bracket included).
    std::size_t End(Value value) const;
    /// The bytes of value: "52.520008", "\"caf\\u00e9\"", "{ }".
    std::string_view Spelling(Value value) const;

    /// The children of a container, in the text's order, repeated keys
    /// included; iterated as a range of Value.
    class Children {
    public:
        /// A forward iterator over the children, each a Value.
        class iterator {
        public:
            using iterator_category = std::forward_iterator_tag;  ///< forward only
            using value_type = Value;                             ///< a child
            using difference_type = std::ptrdiff_t;               ///< a count of children
            using pointer = const Value*;                         ///< unused: children are values
            using reference = Value;                              ///< a child, by value

            /// An iterator that belongs to no range.
            iterator() = default;
            /// The child.
            Value operator*() const noexcept { return m_value; }
            /// To the next child.
            iterator& operator++();
            /// To the next child, giving the one before.
            iterator operator++(int) {
                iterator previous = *this;
                ++*this;
                return previous;
            }
            /// Whether both stand at the same child (or both at the end).
            bool operator==(const iterator& other) const noexcept { return m_value == other.m_value; }
            /// Whether they stand at different children.
            bool operator!=(const iterator& other) const noexcept { return m_value != other.m_value; }

        private:
            friend class Children;
            iterator(const JsonText* text, Value value) : m_text(text), m_value(value) {}
            const JsonText* m_text = nullptr;
            Value m_value = 0;
        };

        /// At the first child.
        iterator begin() const noexcept { return iterator(m_text, m_first); }
        /// Past the last child.
        iterator end() const noexcept { return iterator(m_text, m_last); }
        /// Whether there are none.
        bool empty() const noexcept { return m_first == m_last; }

    private:
        friend class JsonText;
        Children(const JsonText* text, Value first, Value last) : m_text(text), m_first(first), m_last(last) {}
        const JsonText* m_text;
        Value m_first;
        Value m_last;
    };

    /// The children of value: an object's members or an array's elements;
    /// none for any other value.
    Children ChildrenOf(Value value) const;
    /// How many children value has, repeated keys included.
    std::size_t Count(Value value) const;

    /// Whether value is an object's member, with a key before it.
    bool IsMember(Value value) const;
    /// The name a load gives the member value: its key decoded, up to its
    /// first zero character. Empty for a value that is no member.
    std::string Key(Value value) const;
    /// The bytes of the member's key, quotes included; empty for a value
    /// that is no member.
    std::string_view KeySpelling(Value value) const;
    /// The decoded text of a string value, zero characters included, as a
    /// load reads it. Throws std::invalid_argument for a value that is not a
    /// string.
    std::string StringValue(Value value) const;

    /// The member of object that a load keeps under name: the last of that
    /// name; kNone when there is none or object is no object.
    Value Member(Value object, std::string_view name) const;
    /// The element at index of array; kNone when there is none or array is
    /// no array.
    Value Element(Value array, std::size_t index) const;

    /// How far a path leads from the root.
    struct Reach {
        /// The last value reached: the one names lead to when all matched.
        Value value;
        /// How many names matched, from the first.
        std::size_t matched;
    };
    /// Follows names from the root: in an object a name is a member's name
    /// (Member), in an array an element's index as a JSON pointer writes it
    /// (digits without a sign or a leading zero). Stops at the first name
    /// that leads nowhere, or at a value that is no container.
    Reach Follow(const std::vector<std::string>& names) const;

    /// A change of the text: the bytes [begin, end) replaced by text.
    struct Edit {
        std::size_t begin;  ///< the first byte replaced
        std::size_t end;    ///< just past the last byte replaced; begin for an insertion
        std::string text;   ///< what stands there instead
    };
    /// Applies edit to text in place: an edit of a JsonText to its text, once
    /// the JsonText is gone, or to a copy of the text.
    static void Apply(const Edit& edit, std::string& text);

    /// The edit that replaces value's bytes with valueText (a JSON value's
    /// text, which it does not check), and nothing else.
    Edit Replace(Value value, std::string_view valueText) const;
    /// The edit that adds a last child to container, an object or an array,
    /// as an editor would: the member names[0] of an object, or the next
    /// element of an array, holding valueText wrapped in one object for each
    /// further name (names[1...] for an object, names for an array). It is laid out as the container's children are
    /// (indentation, line ends, separators, a trailing comma where the
    /// others have one); in a container of one child on one line, or none,
    /// as the document's other containers are. Names are written with the
    /// library's escaping, each up to its first zero character. A member is
    /// added after the last one, even where a member of the same name exists:
    /// the caller decides whether to Replace that one instead. Throws
    /// std::invalid_argument when container is no object or array, or when
    /// names is empty for an object.
    Edit Append(Value container, const std::vector<std::string>& names, std::string_view valueText) const;

private:
    TARSEL_HIDDEN Value NextSibling(Value value) const;

    struct TARSEL_HIDDEN Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace Tarsel::Core
