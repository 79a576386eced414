// This file implements the tool's reading of UTF-8 and of places in a text.
#include "TextPlace.h"

namespace TarselTool {

Utf8Character CharacterAt(std::string_view text, std::size_t offset) {
    const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
    const unsigned lead = byte(offset);
    if (lead < 0x80) {
        return {lead, 1};
    }
    // The length of the sequence, its lead's bits, and the range its second
    // byte must lie in, which excludes overlong forms and code points beyond
    // U+10FFFF.
    std::size_t length = 0;
    char32_t code = 0;
    unsigned low = 0x80;
    unsigned high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        code = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        code = lead & 0x0F;
        low = lead == 0xE0 ? 0xA0 : 0x80;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        code = lead & 0x07;
        low = lead == 0xF0 ? 0x90 : 0x80;
        high = lead == 0xF4 ? 0x8F : 0xBF;
    } else {
        return {0, 0};
    }
    if (byte(offset + 1) < low || byte(offset + 1) > high) {
        return {0, 0};
    }
    for (std::size_t k = 1; k < length; ++k) {
        const unsigned next = byte(offset + k);
        if (next < 0x80 || next > 0xBF) {
            return {0, 0};
        }
        code = code << 6 | (next & 0x3F);
    }
    return {code, length};
}

std::size_t FirstInvalidUtf8(const std::string& text) {
    for (std::size_t i = 0; i < text.size() && text[i] != '\0';) {
        const Utf8Character character = CharacterAt(text, i);
        if (character.length == 0 || IsSurrogate(character.code)) {
            return i;
        }
        i += character.length;
    }
    return std::string::npos;
}

TextPlace PlaceOf(const std::string& text, std::size_t offset) {
    TextPlace place{1, 1};
    for (std::size_t i = 0; i < offset && i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte == '\n') {
            ++place.line;
            place.column = 1;
        } else if ((byte & 0xC0) != 0x80) {
            ++place.column;
        }
    }
    return place;
}

}  // namespace TarselTool
