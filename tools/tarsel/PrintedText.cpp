// This file implements the escaping of what the tool prints and the spellings
// of the paths it prints.
#include "PrintedText.h"

#include "TextPlace.h"

#include <algorithm>
#include <iterator>

namespace TarselTool {

namespace {

// The format characters of Unicode 15 (general category Cf) and the line and
// paragraph separators, first and last of each run: each changes or hides
// what a terminal shows without showing itself.
constexpr char32_t kInvisible[][2] = {
    {0x00AD, 0x00AD},   {0x0600, 0x0605},   {0x061C, 0x061C},   {0x06DD, 0x06DD},   {0x070F, 0x070F},
    {0x0890, 0x0891},   {0x08E2, 0x08E2},   {0x180E, 0x180E},   {0x200B, 0x200F},   {0x2028, 0x202E},
    {0x2060, 0x2064},   {0x2066, 0x206F},   {0xFEFF, 0xFEFF},   {0xFFF9, 0xFFFB},   {0x110BD, 0x110BD},
    {0x110CD, 0x110CD}, {0x13430, 0x1343F}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0001, 0xE0001},
    {0xE0020, 0xE007F},
};

bool IsInvisible(char32_t code) {
    const auto* run = std::lower_bound(std::begin(kInvisible), std::end(kInvisible), code,
                                       [](const char32_t(&range)[2], char32_t c) { return range[1] < c; });
    return run != std::end(kInvisible) && (*run)[0] <= code;
}

bool MustEscape(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code <= 0x9F) || IsSurrogate(code) || IsInvisible(code);
}

void AppendUnit(std::string& out, char32_t unit) {
    static const char kHex[] = "0123456789abcdef";
    out += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4) {
        out += kHex[(unit >> shift) & 0xF];
    }
}

// code as JSON escapes it: the short forms where JSON has one, otherwise
// "\u" and its UTF-16 code units.
void AppendEscape(std::string& out, char32_t code) {
    static const char kShort[][2] = {{'\b', 'b'}, {'\f', 'f'}, {'\n', 'n'}, {'\r', 'r'}, {'\t', 't'}};
    for (const auto& form : kShort) {
        if (code == static_cast<char32_t>(form[0])) {
            out += '\\';
            out += form[1];
            return;
        }
    }
    if (code > 0xFFFF) {
        AppendUnit(out, 0xD800 + ((code - 0x10000) >> 10));
        AppendUnit(out, 0xDC00 + ((code - 0x10000) & 0x3FF));
    } else {
        AppendUnit(out, code);
    }
}

// Copies text to out, each character that must be escaped escaped, and,
// with quotes, '"' and '\' too.
void AppendEscaped(std::string& out, std::string_view text, bool quotes) {
    for (std::size_t i = 0; i < text.size();) {
        const Utf8Character character = CharacterAt(text, i);
        if (character.length == 0) {
            AppendUnit(out, 0xFFFD);
            ++i;
            continue;
        }
        if (MustEscape(character.code)) {
            AppendEscape(out, character.code);
        } else if (quotes && (character.code == '"' || character.code == '\\')) {
            out += '\\';
            out += static_cast<char>(character.code);
        } else {
            out.append(text.substr(i, character.length));
        }
        i += character.length;
    }
}

bool IsPlainName(const std::string& name) {
    return !name.empty() && name.find_first_of("/~") == std::string::npos && !NeedsEscape(name);
}

std::string PointerName(const std::string& name) {
    std::string escaped;
    for (const char c : name) {
        if (c == '~') {
            escaped += "~0";
        } else if (c == '/') {
            escaped += "~1";
        } else {
            escaped += c;
        }
    }
    return escaped;
}

}  // namespace

bool NeedsEscape(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const Utf8Character character = CharacterAt(text, i);
        if (character.length == 0 || MustEscape(character.code)) {
            return true;
        }
        i += character.length;
    }
    return false;
}

std::string JsonQuoted(std::string_view text) {
    std::string quoted = "\"";
    AppendEscaped(quoted, text, true);
    return quoted + "\"";
}

std::string TerminalSafe(std::string_view jsonText) {
    std::string safe;
    AppendEscaped(safe, jsonText, false);
    return safe;
}

std::string PrintedPath(const std::vector<std::string>& names) {
    std::string path;
    // A path that begins with a quote is a pointer given as a JSON string.
    if (std::all_of(names.begin(), names.end(), IsPlainName) && (names.empty() || names[0][0] != '"')) {
        for (const std::string& name : names) {
            path += (path.empty() ? "" : "/") + name;
        }
        return path;
    }
    bool escapes = false;
    for (const std::string& name : names) {
        path += "/" + PointerName(name);
        escapes = escapes || NeedsEscape(name);
    }
    return escapes ? JsonQuoted(path) : path;
}

std::string PrintedName(const std::string& name) {
    return NeedsEscape(name) ? JsonQuoted(name) : "'" + name + "'";
}

}  // namespace TarselTool
