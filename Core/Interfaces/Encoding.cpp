// This file implements the text conversions on utf8-cpp's checked interface;
// its exceptions reach the caller as they are.
#include <Core/Interfaces/Encoding.h>

#include <utf8.h>

#include <iterator>

namespace Tarsel::Core {

namespace {

// utf16to8 masks every unit to 16 bits before use, whatever its type.
template <class Unit>
std::string Utf8FromUnits(const Unit* begin, const Unit* end) {
    std::string utf8;
    utf8::utf16to8(begin, end, std::back_inserter(utf8));
    return utf8;
}

}  // namespace

template <class Iterator>
std::wstring TWstringFromUtf8(Iterator begin, Iterator end) {
    std::wstring wide;
    while (begin != end) {
        wide.push_back(static_cast<wchar_t>(utf8::next(begin, end)));
    }
    return wide;
}

template std::wstring TWstringFromUtf8<const char*>(const char*, const char*);
template std::wstring TWstringFromUtf8<char*>(char*, char*);
template std::wstring TWstringFromUtf8<std::string::const_iterator>(std::string::const_iterator,
                                                                    std::string::const_iterator);
template std::wstring TWstringFromUtf8<std::string::iterator>(std::string::iterator, std::string::iterator);

Utf16String Utf16FromUtf8(const std::string& utf8) {
    Utf16String utf16;
    utf8::utf8to16(utf8.begin(), utf8.end(), std::back_inserter(utf16));
    return utf16;
}

std::string Utf8FromUtf16(const Utf16String& utf16) {
    return Utf8FromUnits(utf16.data(), utf16.data() + utf16.size());
}

std::wstring WstringFromUtf8(const std::string& utf8) {
    return TWstringFromUtf8(utf8.begin(), utf8.end());
}

std::wstring WstringFromUtf8(const char* begin, const char* end) {
    return TWstringFromUtf8(begin, end);
}

std::string Utf8FromWstring(const std::wstring& wide) {
    return Utf8FromUnits(wide.data(), wide.data() + wide.size());
}

std::string Utf8FromWstring(const wchar_t* begin, const wchar_t* end) {
    return Utf8FromUnits(begin, end);
}

}  // namespace Tarsel::Core
