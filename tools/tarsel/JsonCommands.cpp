// `tarsel show` and `tarsel get`: show prints all of a settings file as the
// library loads it; get prints the value at a path as the file's text holds
// it.
#include "Command.h"
#include "Failure.h"
#include "Input.h"
#include "PrintedText.h"
#include "TextDocument.h"
#include "ValueText.h"

#include <Core/Interfaces/PropertySerializer.h>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

po::typed_value<std::string>* FileArgument() {
    return po::value<std::string>()->required()->value_name("FILE");
}

std::vector<std::string> NamesOf(const po::variables_map& values) {
    const std::string& path = values["path"].as<std::string>();
    return values["pointer"].as<bool>() ? PointerSegments(path) : PathSegments(path);
}

// Why names lead nowhere in document, which reach shows: the first name
// missing, or the value the path runs through.
[[noreturn]] void ThrowNoSuchPath(const TextDocument& document, const std::vector<std::string>& names,
                                  const JsonText::Reach& reach) {
    const std::vector<std::string> reached(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(reach.matched));
    const std::string where = reached.empty() ? "the document" : PrintedPath(reached);
    const JsonText::Kind kind = document.json.KindOf(reach.value);
    const std::string why = kind == JsonText::Kind::Object || kind == JsonText::Kind::Array
                                ? PrintedName(names[reach.matched]) + " is not in " + where
                                : where + " is " + KindName(kind) + ", not an object";
    throw ToolFailure(kNegative, document.name, "no such path " + PrintedPath(names) + ": " + why);
}

// A value as get prints it: a string as its text, raw; an empty container
// as [] or {}; any other value as the file spells it, numbers exactly as
// written. Nothing for a container that has children.
bool PrintScalar(const JsonText& json, JsonText::Value value, std::ostream& out) {
    switch (json.KindOf(value)) {
    case JsonText::Kind::String:
        out << json.StringValue(value);
        return true;
    case JsonText::Kind::Object:
    case JsonText::Kind::Array:
        if (!json.ChildrenOf(value).empty()) {
            return false;
        }
        out << (json.KindOf(value) == JsonText::Kind::Object ? "{}" : "[]");
        return true;
    default:
        out << json.Spelling(value);
        return true;
    }
}

// A container in the tree form show prints: "name: Array", then its
// children one a line, a tab further in, and an empty line after the last
// child. Object members are those a load keeps; array elements are named
// by their index. Nesting is bounded by the parser's limit.
void PrintTree(const JsonText& json, JsonText::Value value, const std::string& name, int depth, std::ostream& out) {
    out << std::string(static_cast<std::size_t>(depth), '\t') << name << ": ";
    if (PrintScalar(json, value, out)) {
        out << "\n";
        return;
    }
    out << "Array\n";
    if (json.KindOf(value) == JsonText::Kind::Object) {
        for (const auto& [key, member] : KeptMembers(json, value)) {
            PrintTree(json, member, key, depth + 1, out);
        }
    } else {
        std::size_t index = 0;
        for (const JsonText::Value element : json.ChildrenOf(value)) {
            PrintTree(json, element, std::to_string(index++), depth + 1, out);
        }
    }
    out << "\n";
}

}  // namespace

int RunShow(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("file", FileArgument(), "the JSON file; - reads standard input")(
        "wrap", po::bool_switch(), "the root is wrapped in a one-member object: show that member")(
        "json", po::bool_switch(),
        "print the library's JSON text of the tree instead of the tree")("comments", po::bool_switch(), kCommentsHelp);
    po::positional_options_description positional;
    positional.add("file", 1);
    const auto values = ParseOrExit(args, "tarsel show FILE [--wrap] [--json] [--comments]", options, positional);
    const std::string& file = values["file"].as<std::string>();
    const Document document =
        LoadDocument(file, values["wrap"].as<bool>(), SyntaxOf(file, values["comments"].as<bool>()));
    if (values["json"].as<bool>()) {
        PropertySerializer::Serialize(document.tree, OutputToOut(), false);
        Out() << "\n";
    } else {
        PrintPropertyValue(document.tree, 0, Out(), true, true);
    }
    return kSuccess;
}

int RunGet(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("file", FileArgument(), "the JSON file; - reads standard input")(
        "path", po::value<std::string>()->required()->value_name("PATH"),
        "child names joined by \"/\", e.g. video/width; in an array, element indexes")(
        "pointer", po::bool_switch(), kPointerHelp)("comments", po::bool_switch(), kCommentsHelp);
    po::positional_options_description positional;
    positional.add("file", 1).add("path", 1);
    const auto values = ParseOrExit(args, "tarsel get FILE PATH [--pointer] [--comments]", options, positional);
    const std::vector<std::string> names = NamesOf(values);
    const std::string& file = values["file"].as<std::string>();
    const TextDocument document = ReadTextDocument(file, SyntaxOf(file, values["comments"].as<bool>()));
    const JsonText& json = document.json;
    const JsonText::Reach reach = json.Follow(names);
    if (reach.matched < names.size()) {
        ThrowNoSuchPath(document, names, reach);
    }
    if (PrintScalar(json, reach.value, Out())) {
        Out() << "\n";
    } else {
        // The whole document is named as show names it.
        PrintTree(json, reach.value, names.empty() ? std::string("settings") : names.back(), 0, Out());
    }
    return kSuccess;
}

}  // namespace TarselTool
