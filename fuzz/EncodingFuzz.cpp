// Feeds arbitrary bytes to the text conversions three ways (as UTF-8, as
// UTF-16 units, as wide characters) and checks every answer against small
// codecs written here from the documented rules: what is accepted, what it
// converts to, that it converts back exactly, and which exception each
// refusal raises.
#include "FuzzCheck.h"

#include <Core/Interfaces/Encoding.h>

#include <utf8.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace Tarsel::Core;

enum class Refusal { None, NotEnoughRoom, InvalidUtf8, InvalidCodePoint, InvalidUtf16 };

// What a conversion gave: its value, or the exception it raised and, for
// invalid_utf16, the unit that exception carries.
template <class T>
struct Outcome {
    T value{};
    Refusal refusal = Refusal::None;
    std::uint16_t unit = 0;
};

template <class Convert>
auto Attempt(Convert convert) {
    Outcome<decltype(convert())> outcome;
    try {
        outcome.value = convert();
    } catch (const utf8::not_enough_room&) {
        outcome.refusal = Refusal::NotEnoughRoom;
    } catch (const utf8::invalid_utf8&) {
        outcome.refusal = Refusal::InvalidUtf8;
    } catch (const utf8::invalid_code_point&) {
        outcome.refusal = Refusal::InvalidCodePoint;
    } catch (const utf8::invalid_utf16& e) {
        outcome.refusal = Refusal::InvalidUtf16;
        outcome.unit = e.utf16_word();
    }
    return outcome;
}

// The same answer: the same value, or the same refusal.
template <class T>
bool operator==(const Outcome<T>& a, const Outcome<T>& b) {
    return a.refusal == b.refusal && a.unit == b.unit && (a.refusal != Refusal::None || a.value == b.value);
}

bool IsSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

// Strict UTF-8 as the conversions document it: a sequence cut off by the end
// is NotEnoughRoom; a bad lead or continuation byte, or an overlong form,
// InvalidUtf8; a surrogate or a value above U+10FFFF, InvalidCodePoint. We
// rank the code point above the form, as utf8-cpp does: F0 8D A0 80, an
// overlong U+D800, is an invalid code point.
Outcome<std::u32string> DecodeUtf8(std::string_view bytes) {
    Outcome<std::u32string> out;
    for (std::size_t i = 0; i < bytes.size();) {
        const unsigned char lead = static_cast<unsigned char>(bytes[i]);
        const std::size_t length = lead < 0x80   ? 1
                                   : lead < 0xC0 ? 0
                                   : lead < 0xE0 ? 2
                                   : lead < 0xF0 ? 3
                                   : lead < 0xF8 ? 4
                                                 : 0;
        if (length == 0) {
            out.refusal = Refusal::InvalidUtf8;
            return out;
        }
        char32_t c = length == 1 ? lead : lead & (0x7F >> length);
        for (std::size_t k = 1; k < length; ++k) {
            if (i + k == bytes.size()) {
                out.refusal = Refusal::NotEnoughRoom;
                return out;
            }
            const unsigned char next = static_cast<unsigned char>(bytes[i + k]);
            if ((next & 0xC0) != 0x80) {
                out.refusal = Refusal::InvalidUtf8;
                return out;
            }
            c = c << 6 | (next & 0x3F);
        }
        const std::size_t shortest = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
        if (c > 0x10FFFF || IsSurrogate(c)) {
            out.refusal = Refusal::InvalidCodePoint;
            return out;
        }
        if (shortest != length) {
            out.refusal = Refusal::InvalidUtf8;
            return out;
        }
        out.value.push_back(c);
        i += length;
    }
    return out;
}

// A lead unit must be followed by a trail unit; the refusal carries the unit
// that breaks the rule (the lead itself when it ends the text).
Outcome<std::u32string> DecodeUtf16(const std::vector<std::uint16_t>& units) {
    Outcome<std::u32string> out;
    for (std::size_t i = 0; i < units.size(); ++i) {
        const char32_t unit = units[i];
        if (!IsSurrogate(unit)) {
            out.value.push_back(unit);
            continue;
        }
        const bool lead = unit < 0xDC00;
        const bool trailFollows = i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF;
        if (!lead || !trailFollows) {
            out.refusal = Refusal::InvalidUtf16;
            out.unit = lead && i + 1 < units.size() ? units[i + 1] : units[i];
            return out;
        }
        out.value.push_back(0x10000 + ((unit - 0xD800) << 10) + (units[++i] - 0xDC00));
    }
    return out;
}

std::string EncodeUtf8(const std::u32string& codePoints) {
    std::string bytes;
    for (const char32_t c : codePoints) {
        const int trailing = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
        static constexpr unsigned char kLeadMarks[] = {0x00, 0xC0, 0xE0, 0xF0};
        bytes.push_back(static_cast<char>(kLeadMarks[trailing] | c >> (6 * trailing)));
        for (int k = trailing - 1; k >= 0; --k) {
            bytes.push_back(static_cast<char>(0x80 | (c >> (6 * k) & 0x3F)));
        }
    }
    return bytes;
}

Utf16String EncodeUtf16(const std::u32string& codePoints) {
    Utf16String units;
    for (const char32_t c : codePoints) {
        if (c < 0x10000) {
            units.push_back(static_cast<short>(c));
        } else {
            units.push_back(static_cast<short>(0xD800 + ((c - 0x10000) >> 10)));
            units.push_back(static_cast<short>(0xDC00 + ((c - 0x10000) & 0x3FF)));
        }
    }
    return units;
}

// The answer a conversion owes for decoded: value, or decoded's refusal.
template <class T>
Outcome<T> Expected(const Outcome<std::u32string>& decoded, T value) {
    Outcome<T> expected;
    expected.refusal = decoded.refusal;
    expected.unit = decoded.unit;
    if (decoded.refusal == Refusal::None) {
        expected.value = std::move(value);
    }
    return expected;
}

// Utf8FromWstring reads each element as a UTF-16 unit cut to its low 16
// bits, by design.
template <class Units>
Outcome<std::string> ExpectedFromUnits(const Units& units) {
    std::vector<std::uint16_t> cut;
    for (const auto unit : units) {
        cut.push_back(static_cast<std::uint16_t>(unit));
    }
    const Outcome<std::u32string> decoded = DecodeUtf16(cut);
    return Expected(decoded, EncodeUtf8(decoded.value));
}

void CheckUtf8(const std::string& text) {
    const Outcome<std::u32string> decoded = DecodeUtf8(text);
    const auto utf16 = Attempt([&] { return Utf16FromUtf8(text); });
    TARSEL_FUZZ_CHECK(utf16 == Expected(decoded, EncodeUtf16(decoded.value)));
    const Outcome<std::wstring> expectedWide =
        Expected(decoded, std::wstring(decoded.value.begin(), decoded.value.end()));
    const auto wide = Attempt([&] { return WstringFromUtf8(text); });
    TARSEL_FUZZ_CHECK(wide == expectedWide);
    const char* begin = text.data();
    TARSEL_FUZZ_CHECK(Attempt([&] { return WstringFromUtf8(begin, begin + text.size()); }) == expectedWide);
    if (decoded.refusal == Refusal::None) {
        TARSEL_FUZZ_CHECK(Utf8FromUtf16(utf16.value) == text);
        TARSEL_FUZZ_CHECK(Attempt([&] { return Utf8FromWstring(wide.value); }) == ExpectedFromUnits(wide.value));
    }
}

void CheckUtf16(const std::uint8_t* data, std::size_t size) {
    std::vector<std::uint16_t> units;
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        units.push_back(static_cast<std::uint16_t>(data[i] | data[i + 1] << 8));
    }
    const Utf16String utf16(units.begin(), units.end());
    const Outcome<std::string> expected = ExpectedFromUnits(units);
    const auto utf8 = Attempt([&] { return Utf8FromUtf16(utf16); });
    TARSEL_FUZZ_CHECK(utf8 == expected);
    if (expected.refusal == Refusal::None) {
        TARSEL_FUZZ_CHECK(Utf16FromUtf8(utf8.value) == utf16);
    }
}

void CheckWide(const std::uint8_t* data, std::size_t size) {
    std::wstring wide(size / sizeof(wchar_t), L'\0');
    std::memcpy(wide.data(), data, wide.size() * sizeof(wchar_t));
    const Outcome<std::string> expected = ExpectedFromUnits(wide);
    TARSEL_FUZZ_CHECK(Attempt([&] { return Utf8FromWstring(wide); }) == expected);
    const wchar_t* begin = wide.data();
    TARSEL_FUZZ_CHECK(Attempt([&] { return Utf8FromWstring(begin, begin + wide.size()); }) == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CheckUtf8(std::string(reinterpret_cast<const char*>(data), size));
    CheckUtf16(data, size);
    CheckWide(data, size);
    return 0;
}
