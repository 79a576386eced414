// Private to the library, not installed: what the serializer's entry points
// (PropertySerializer.cpp), its writer (PropertySerializerWriter.cpp) and its
// reader (PropertySerializerReader.cpp) share. The serializer's access to Property's storage, the text of keys,
// array indexes and ratios, and the fingerprint by which both tell distinct
// names apart without comparing them.
#pragma once

#include <Core/Interfaces/Property.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>
#include <variant>

namespace Tarsel::Core {

// The serializer's view of a node's storage: bulk building and reading
// without the per-call checks (and copies) of the public operations.
class SerializerAccess {
public:
    static Property::ChildListType& Children(Property& node) { return node.m_children; }
    static const Property::ChildListType& Children(const Property& node) { return node.m_children; }

    using Container = Property::Container;

    // Appends a child named name holding a T made of args, built in place.
    template <class T, class... Args>
    static Property& Append(Property& parent, std::string_view name, Args&&... args) {
        return parent.m_children.emplace_back(Property::InPlaceKey(), name, std::in_place_type<T>,
                                              std::forward<Args>(args)...);
    }

    // Gives dst the type, value and children of src; names stay.
    static void TakeContent(Property& dst, Property& src) noexcept { dst.SwapContent(src); }

    // Sets the value of a node that has no children, in place: a fresh
    // container becomes a scalar without a temporary copy of the value.
    template <class T, class... Args>
    static void SetValue(Property& node, Args&&... args) {
        node.m_value.template emplace<T>(std::forward<Args>(args)...);
    }

    static const std::string& String(const Property& node) { return std::get<std::string>(node.m_value); }
    static const Ratio& RatioValue(const Property& node) { return std::get<Ratio>(node.m_value); }
    static double Double(const Property& node) { return std::get<double>(node.m_value); }
    static long long Int64(const Property& node) { return std::get<long long>(node.m_value); }
    static bool Bool(const Property& node) { return std::get<bool>(node.m_value); }
};

namespace Json {

using Access = SerializerAccess;
using JsonValue = PropertySerializer::JsonValue;
using JsonAllocator = PropertySerializer::JsonAllocator;

// text up to its first zero character; text[length] must be zero. Zeros
// inside a key are rare (only an escape makes one), so the common case is
// decided by one or two overlapping word loads and a single branch: both a
// loop per byte (its end mispredicted at every key) and the C library's scan
// (a call per key) cost a tenth of a load.
inline std::string_view UpToFirstZero(const char* text, std::size_t length) {
    constexpr std::uint64_t kLow = 0x0101010101010101ULL;
    constexpr std::uint64_t kHigh = 0x8080808080808080ULL;
    const auto load = [text](std::size_t at, auto word) {
        std::memcpy(&word, text + at, sizeof word);
        return std::uint64_t{word};
    };
    const auto hasZero = [](std::uint64_t word) { return ((word - kLow) & ~word & kHigh) != 0; };
    bool zero;
    if (length > 16) {
        zero = std::memchr(text, 0, length) != nullptr;
    } else if (length >= 8) {
        zero = hasZero(load(0, std::uint64_t{})) || hasZero(load(length - 8, std::uint64_t{}));
    } else if (length >= 4) {
        zero = hasZero(load(0, std::uint32_t{}) | load(length - 4, std::uint32_t{}) << 32);
    } else {
        // Lengths 1 to 3: the first, middle and last bytes are all of them.
        zero = length > 0 && (text[0] == 0 || text[length / 2] == 0 || text[length - 1] == 0);
    }
    return std::string_view(text, zero ? std::strlen(text) : length);
}

// An object key is a child name up to its first zero character.
inline std::string_view KeyOf(const Property& node) {
    const std::string& name = node.GetName();
    return UpToFirstZero(name.c_str(), name.size());
}

// The names of an array's elements in turn, "0", "1", "2", ...: counting in
// text takes a few instructions a step, converting each index tens.
class IndexNames {
public:
    // Zeros to the left of the digits let Advance carry into a new digit.
    IndexNames() { std::memset(m_digits, '0', kDigits); }
    std::string_view Current() const { return std::string_view(End() - m_length, m_length); }
    void Advance() {
        char* digit = End() - 1;
        while (*digit == '9') {
            *digit-- = '0';
        }
        ++*digit;
        if (digit < End() - m_length) {
            ++m_length;
        }
    }

private:
    static constexpr std::size_t kDigits = 24;  // more than any index has
    const char* End() const { return m_digits + kDigits; }
    char* End() { return m_digits + kDigits; }

    char m_digits[kDigits];
    std::size_t m_length = 1;
};

// Writes numerator "/" denominator, the text StringFromRatio gives, without
// a formatting stream per value (that was a tenth of the time of saving) and
// whatever the global locale.
inline std::string_view RatioText(const Ratio& ratio, char (&buffer)[48]) {
    // Each part takes 20 characters at most; the numerator is given a range
    // that leaves room for the slash and the denominator, so that no path,
    // not even to_chars' failure one, writes past the buffer.
    constexpr std::size_t kPartRoom = 21;
    char* const last = buffer + sizeof buffer;
    char* end = std::to_chars(buffer, last - kPartRoom - 1, ratio.numerator()).ptr;
    *end++ = '/';
    end = std::to_chars(end, last, ratio.denominator()).ptr;
    return std::string_view(buffer, static_cast<std::size_t>(end - buffer));
}

// One bit of 256 for each name seen: a name whose bit is clear is certainly
// new, so distinct names (nearly always the case) are told apart without
// comparing them; only a possible repeat needs an exact check.
class NameFingerprint {
    template <class Word>
    static Word Load(const char* bytes) {
        Word word;
        std::memcpy(&word, bytes, sizeof word);
        return word;
    }

public:
    // Hashes the length and the first and last eight bytes (fewer for short
    // names) with one multiplication: a per-byte hash was a tenth of the
    // time of loading. Names that differ only in between merely share a bit.
    static unsigned Bit(std::string_view name) {
        const char* const text = name.data();
        const std::size_t length = name.size();
        std::uint64_t word;
        if (length >= 8) {
            word = Load<std::uint64_t>(text) ^ (Load<std::uint64_t>(text + length - 8) << 7);
        } else if (length >= 4) {
            word = Load<std::uint32_t>(text) | std::uint64_t{Load<std::uint32_t>(text + length - 4)} << 32;
        } else if (length > 0) {
            word = std::uint64_t{static_cast<unsigned char>(text[0])} << 16 |
                   std::uint64_t{static_cast<unsigned char>(text[length / 2])} << 8 |
                   static_cast<unsigned char>(text[length - 1]);
        } else {
            word = 0;
        }
        word ^= length * 0x9E3779B97F4A7C15ULL;
        return static_cast<unsigned>((word * 0xD6E8FEB86659FD93ULL) >> 56);
    }

    bool Has(unsigned bit) const { return (m_bits[bit / 64] >> (bit % 64) & 1) != 0; }
    void Set(unsigned bit) { m_bits[bit / 64] |= std::uint64_t{1} << (bit % 64); }

    // Returns false when name is certainly new; remembers it either way.
    bool Add(std::string_view name) {
        const unsigned bit = Bit(name);
        const bool maybeSeen = Has(bit);
        Set(bit);
        return maybeSeen;
    }

private:
    std::uint64_t m_bits[4] = {};
};

// The serializer's four directions. Each parse error is thrown at
// parseErrorSite, the public entry point's.

// PropertySerializerWriter.cpp: builds the whole text, then writes it to
// output in one Write.
void WriteJsonText(const Property& root, bool wrapRoot, PropertySerializer::DoubleText doubleText, IDataOutput& output);
void SaveJsonValue(const Property& root, JsonValue& value, JsonAllocator& allocator);

// PropertySerializerReader.cpp: text is parsed in place, and ends at a zero
// byte that kTextPadding - 1 more follow (internal/JsonTextStream.h).
void LoadJsonText(Property& target, char* text, PropertySerializer::JsonSyntax syntax, const ThrowSite& parseErrorSite);
void LoadJsonValue(Property& target, const JsonValue& value, const ThrowSite& parseErrorSite);

}  // namespace Json
}  // namespace Tarsel::Core
