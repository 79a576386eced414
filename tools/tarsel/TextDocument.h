// A JSON file read as the text it is, through the library's text layer
// (Core/Interfaces/JsonText.h): what `get` shows and `diff` compares, by the
// rules a load follows and no others of the tool's own.
#pragma once

#include <Core/Interfaces/JsonText.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TarselTool {

// A file's JSON text and where each of its values lies.
struct TextDocument {
    // How reports name the file.
    std::string name;
    // Declared before json, which reads it and must go first.
    std::shared_ptr<const std::string> text;
    Tarsel::Core::JsonText json;
};

// Reads file ("-": standard input), which must be UTF-8, as any JSON text:
// a root of any kind, numbers of any size, names of any text. Failures are
// reported against file, a syntax error with its line and column (see
// RethrowAbout).
TextDocument ReadTextDocument(const std::string& file, Tarsel::Core::PropertySerializer::JsonSyntax syntax);

// The members of object as a load makes its children: one a name, at the
// place where the name first appears, holding the value of its last
// appearance (JsonText::Member). Nothing for a value that is no object.
std::vector<std::pair<std::string, Tarsel::Core::JsonText::Value>> KeptMembers(const Tarsel::Core::JsonText& json,
                                                                               Tarsel::Core::JsonText::Value object);

// "integer", "object", ... for reports; and with its article, "an integer",
// "an object", ..., but "null".
const char* KindWord(Tarsel::Core::JsonText::Kind kind);
std::string KindName(Tarsel::Core::JsonText::Kind kind);

}  // namespace TarselTool
