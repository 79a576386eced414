/// @file
/// Conversions between the library's UTF-8 strings and the wide forms its
/// callers use: UTF-16 in Utf16String (a string of short units), and
/// std::wstring (32-bit wchar_t). Invalid input raises utf8-cpp's own exceptions, untranslated:
/// utf8::not_enough_room, utf8::invalid_utf8, utf8::invalid_code_point and
/// utf8::invalid_utf16, all derived from utf8::exception (a std::exception).
#pragma once

#include <Core/Interfaces/Export.h>

#include <cstddef>
#include <cstring>
#include <cwchar>
#include <ios>
#include <string>

namespace Tarsel::Core {

/// Character traits for UTF-16 units held as short. The standard defines
/// std::char_traits only for the character types, and libc++ has dropped the
/// generic template that std::basic_string<short> used to fall back on, so we
/// bring our own. Units compare as unsigned 16-bit values, the way they are
/// read everywhere else: the unit 0xD800 (the short -10240) sorts after 'A'.
struct TARSEL_API Utf16Traits {
    /// The types std::basic_string asks of its traits.
    ///@{
    using char_type = short;
    using int_type = int;
    using off_type = std::streamoff;
    using pos_type = std::streampos;
    using state_type = std::mbstate_t;
    ///@}

    /// The unsigned 16-bit value a unit stands for.
    static constexpr unsigned short Unit(char_type c) noexcept { return static_cast<unsigned short>(c); }

    /// The operations std::basic_string asks of its traits, as
    /// std::char_traits defines them, on units compared as Unit reads them.
    ///@{
    static constexpr void assign(char_type& to, const char_type& from) noexcept { to = from; }
    static constexpr bool eq(char_type a, char_type b) noexcept { return a == b; }
    static constexpr bool lt(char_type a, char_type b) noexcept { return Unit(a) < Unit(b); }

    static constexpr int compare(const char_type* a, const char_type* b, std::size_t count) noexcept {
        for (std::size_t i = 0; i < count; ++i) {
            if (lt(a[i], b[i])) {
                return -1;
            }
            if (lt(b[i], a[i])) {
                return 1;
            }
        }
        return 0;
    }
    static constexpr std::size_t length(const char_type* s) noexcept {
        std::size_t count = 0;
        while (s[count] != 0) {
            ++count;
        }
        return count;
    }
    static constexpr const char_type* find(const char_type* s, std::size_t count, const char_type& c) noexcept {
        for (std::size_t i = 0; i < count; ++i) {
            if (s[i] == c) {
                return s + i;
            }
        }
        return nullptr;
    }
    /// The ranges may overlap.
    static char_type* move(char_type* to, const char_type* from, std::size_t count) noexcept {
        return count == 0 ? to : static_cast<char_type*>(std::memmove(to, from, count * sizeof(char_type)));
    }
    static char_type* copy(char_type* to, const char_type* from, std::size_t count) noexcept {
        return count == 0 ? to : static_cast<char_type*>(std::memcpy(to, from, count * sizeof(char_type)));
    }
    static char_type* assign(char_type* to, std::size_t count, char_type c) noexcept {
        for (std::size_t i = 0; i < count; ++i) {
            to[i] = c;
        }
        return to;
    }

    static constexpr int_type eof() noexcept { return -1; }
    /// Every unit widens to a value in 0..0xFFFF, so eof() is never a unit.
    static constexpr int_type to_int_type(char_type c) noexcept { return Unit(c); }
    static constexpr char_type to_char_type(int_type i) noexcept { return static_cast<char_type>(i); }
    static constexpr bool eq_int_type(int_type a, int_type b) noexcept { return a == b; }
    static constexpr int_type not_eof(int_type i) noexcept { return i == eof() ? 0 : i; }
    ///@}
};

/// UTF-16 code units. Units are read as unsigned 16-bit values: the short
/// -10240 is the unit 0xD800.
using Utf16String = std::basic_string<short, Utf16Traits>;

/// A code point above U+FFFF becomes a surrogate pair. Throws
/// utf8::not_enough_room for a sequence cut off by the end of the input,
/// utf8::invalid_utf8 for a bad lead or continuation byte or an overlong form,
/// utf8::invalid_code_point for an encoded surrogate or a value above U+10FFFF.
TARSEL_API Utf16String Utf16FromUtf8(const std::string& utf8);

/// Surrogate pairs are joined. Throws utf8::invalid_utf16 for a lone trail
/// unit, a lead unit at the end, or a lead unit followed by a non-trail unit
/// (carrying that following unit).
TARSEL_API std::string Utf8FromUtf16(const Utf16String& utf16);

/// One wchar_t per code point (UTF-32). Throws as Utf16FromUtf8.
///@{
TARSEL_API std::wstring WstringFromUtf8(const std::string& utf8);
TARSEL_API std::wstring WstringFromUtf8(const char* begin, const char* end);
///@}

/// Reads the wide string as UTF-16 units, each cut to its low 16 bits, and
/// throws as Utf8FromUtf16. We keep this asymmetric with WstringFromUtf8 on
/// purpose, for callers that hold UTF-16 in a wstring: a single element
/// U+1F600 comes back as the UTF-8 of U+F600, while the two elements
/// 0xD83D 0xDE00 give the UTF-8 of U+1F600.
///@{
TARSEL_API std::string Utf8FromWstring(const std::wstring& wide);
TARSEL_API std::string Utf8FromWstring(const wchar_t* begin, const wchar_t* end);
///@}

/// Decodes a UTF-8 range into one wchar_t per code point; throws as
/// Utf16FromUtf8. Instantiated in the library for the iterators below only.
template <class Iterator>
TARSEL_API std::wstring TWstringFromUtf8(Iterator begin, Iterator end);

/// The instantiations of TWstringFromUtf8 that the library holds.
///@{
extern template std::wstring TWstringFromUtf8<const char*>(const char*, const char*);
extern template std::wstring TWstringFromUtf8<char*>(char*, char*);
extern template std::wstring TWstringFromUtf8<std::string::const_iterator>(std::string::const_iterator,
                                                                           std::string::const_iterator);
extern template std::wstring TWstringFromUtf8<std::string::iterator>(std::string::iterator, std::string::iterator);
///@}

}  // namespace Tarsel::Core
