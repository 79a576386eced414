// Places in a user's text as an editor shows them: the characters of UTF-8,
// the first byte that is not, and lines and columns counted in characters.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace TarselTool {

// The character that begins at offset in text, and its length in bytes.
// Besides UTF-8, a surrogate (U+D800 to U+DFFF) in its three-byte form is
// decoded as such, since a JSON text's escapes ("\udc00") decode to one;
// length is 0 where no character begins (a stray byte, an overlong form, a
// code point beyond U+10FFFF, a sequence cut short).
struct Utf8Character {
    char32_t code;
    std::size_t length;
};
Utf8Character CharacterAt(std::string_view text, std::size_t offset);

inline bool IsSurrogate(char32_t code) {
    return code >= 0xD800 && code <= 0xDFFF;
}

// The offset of the first byte of text that is not part of valid UTF-8 (a
// surrogate included), up to its first zero byte; npos when there is none.
std::size_t FirstInvalidUtf8(const std::string& text);

// The 1-based line and column, in characters, of offset in text.
struct TextPlace {
    std::size_t line;
    std::size_t column;
};
TextPlace PlaceOf(const std::string& text, std::size_t offset);

}  // namespace TarselTool
