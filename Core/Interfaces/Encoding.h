// Conversions between the library's UTF-8 strings and the wide forms its
// callers use: UTF-16 in std::basic_string<short>, and std::wstring (32-bit
// wchar_t). Invalid input raises utf8-cpp's own exceptions, untranslated:
// utf8::not_enough_room, utf8::invalid_utf8, utf8::invalid_code_point and
// utf8::invalid_utf16, all derived from utf8::exception (a std::exception).
#pragma once

#include <string>

namespace Tarsel::Core {

// UTF-16 code units. Units are read as unsigned 16-bit values: the short
// -10240 is the unit 0xD800.
using Utf16String = std::basic_string<short>;

// A code point above U+FFFF becomes a surrogate pair. Throws
// utf8::not_enough_room for a sequence cut off by the end of the input,
// utf8::invalid_utf8 for a bad lead or continuation byte or an overlong form,
// utf8::invalid_code_point for an encoded surrogate or a value above U+10FFFF.
Utf16String Utf16FromUtf8(const std::string& utf8);

// Surrogate pairs are joined. Throws utf8::invalid_utf16 for a lone trail
// unit, a lead unit at the end, or a lead unit followed by a non-trail unit
// (carrying that following unit).
std::string Utf8FromUtf16(const Utf16String& utf16);

// One wchar_t per code point (UTF-32). Throws as Utf16FromUtf8.
std::wstring WstringFromUtf8(const std::string& utf8);
std::wstring WstringFromUtf8(const char* begin, const char* end);

// Reads the wide string as UTF-16 units, each cut to its low 16 bits, and
// throws as Utf8FromUtf16. We keep this asymmetric with WstringFromUtf8 on
// purpose, for callers that hold UTF-16 in a wstring: a single element
// U+1F600 comes back as the UTF-8 of U+F600, while the two elements
// 0xD83D 0xDE00 give the UTF-8 of U+1F600.
std::string Utf8FromWstring(const std::wstring& wide);
std::string Utf8FromWstring(const wchar_t* begin, const wchar_t* end);

// Decodes a UTF-8 range into one wchar_t per code point; throws as
// Utf16FromUtf8. Instantiated in the library for the iterators below only.
template <class Iterator>
std::wstring TWstringFromUtf8(Iterator begin, Iterator end);

extern template std::wstring TWstringFromUtf8<const char*>(const char*, const char*);
extern template std::wstring TWstringFromUtf8<char*>(char*, char*);
extern template std::wstring TWstringFromUtf8<std::string::const_iterator>(std::string::const_iterator,
                                                                           std::string::const_iterator);
extern template std::wstring TWstringFromUtf8<std::string::iterator>(std::string::iterator, std::string::iterator);

}  // namespace Tarsel::Core
