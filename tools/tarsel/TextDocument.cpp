// This file implements reading a JSON file through the library's text layer.
#include "TextDocument.h"

#include "Failure.h"
#include "Input.h"

#include <unordered_map>

namespace TarselTool {

using namespace Tarsel::Core;

TextDocument ReadTextDocument(const std::string& file, PropertySerializer::JsonSyntax syntax) {
    std::string name = DisplayName(file);
    std::shared_ptr<const std::string> text = ReadDocumentText(file);
    try {
        // The text stays where it is, and stays whole for a report of where
        // it fails.
        JsonText json(*text, syntax, JsonText::Rules::Json);
        return TextDocument{std::move(name), std::move(text), std::move(json)};
    } catch (...) {
        if (syntax == PropertySerializer::JsonSyntax::Strict) {
            ExplainComments(*text, JsonText::Rules::Json);
        }
        RethrowAbout(name, "", text);
    }
}

std::vector<std::pair<std::string, JsonText::Value>> KeptMembers(const JsonText& json, JsonText::Value object) {
    std::vector<std::pair<std::string, JsonText::Value>> kept;
    if (json.KindOf(object) != JsonText::Kind::Object) {
        return kept;
    }
    // Where each name stands in kept.
    std::unordered_map<std::string, std::size_t> place;
    for (const JsonText::Value member : json.ChildrenOf(object)) {
        std::string name = json.Key(member);
        const auto [at, added] = place.emplace(name, kept.size());
        if (added) {
            kept.emplace_back(std::move(name), member);
        } else {
            kept[at->second].second = member;
        }
    }
    return kept;
}

const char* KindWord(JsonText::Kind kind) {
    switch (kind) {
    case JsonText::Kind::Null:
        return "null";
    case JsonText::Kind::Boolean:
        return "boolean";
    case JsonText::Kind::Integer:
        return "integer";
    case JsonText::Kind::Double:
        return "double";
    case JsonText::Kind::String:
        return "string";
    case JsonText::Kind::Object:
        return "object";
    case JsonText::Kind::Array:
        return "array";
    }
    return "value";
}

std::string KindName(JsonText::Kind kind) {
    const std::string word = KindWord(kind);
    if (kind == JsonText::Kind::Null) {
        return word;
    }
    const bool vowel = word[0] == 'a' || word[0] == 'i' || word[0] == 'o';
    return (vowel ? "an " : "a ") + word;
}

}  // namespace TarselTool
