// `tarsel show`, `tarsel get` and `tarsel set`: load a JSON settings file and
// print all of it, print the value at a path, or change one value and save
// the file back atomically.
#include "Command.h"
#include "Failure.h"
#include "Input.h"
#include "ValueText.h"

#include <Core/Interfaces/PropertySerializer.h>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

constexpr const char* kPointerHelp = "PATH is an RFC 6901 JSON pointer, so that a name may hold \"/\": "
                                     "/dependencies/@scope~1name";

po::typed_value<std::string>* FileArgument() {
    return po::value<std::string>()->required()->value_name("FILE");
}

std::vector<std::string> NamesOf(const po::variables_map& values) {
    const std::string& path = values["path"].as<std::string>();
    return values["pointer"].as<bool>() ? PointerSegments(path) : PathSegments(path);
}

// Why names lead nowhere in document: the first name missing, or the value
// the path runs through.
[[noreturn]] void ThrowNoSuchPath(const Document& document, const std::vector<std::string>& names,
                                  std::size_t reached) {
    std::size_t ignored = 0;
    const Property& last = *FindPath(document.tree, {names.begin(), names.begin() + reached}, &ignored);
    const std::string where = reached == 0 ? "the document" : JoinedPath(names, reached);
    const std::string why = last.GetType() == TypeArray ? "'" + names[reached] + "' is not in " + where
                                                         : where + " is " + TypeName(last) + ", not an object";
    throw ToolFailure(kNegative, document.name, "no such path " + JoinedPath(names, names.size()) + ": " + why);
}

// The container that will hold the last of names, made where missing.
Property& ParentFor(Document& document, const std::vector<std::string>& names) {
    Property* parent = &document.tree;
    for (std::size_t i = 0; i + 1 < names.size(); ++i) {
        const auto child = parent->FindChild(names[i]);
        if (child == parent->end()) {
            parent = &parent->SetChild(names[i]);
        } else if (child->GetType() == TypeArray) {
            parent = &*child;
        } else {
            throw ToolFailure(kFailed, document.name,
                              JoinedPath(names, i + 1) + " is " + TypeName(*child) + ", not an object: nothing "
                                                                                     "can be set inside it");
        }
    }
    return *parent;
}

}  // namespace

int RunShow(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("file", FileArgument(), "the JSON file; - reads standard input")(
        "wrap", po::bool_switch(), "the root is wrapped in a one-member object: show that member")(
        "json", po::bool_switch(), "print the library's JSON text of the tree instead of the tree");
    po::positional_options_description positional;
    positional.add("file", 1);
    const auto values = ParseOrExit(args, "tarsel show FILE [--wrap] [--json]", options, positional);
    const Document document = LoadDocument(values["file"].as<std::string>(), values["wrap"].as<bool>());
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
        "child names joined by \"/\", e.g. video/width")("pointer", po::bool_switch(), kPointerHelp);
    po::positional_options_description positional;
    positional.add("file", 1).add("path", 1);
    const auto values = ParseOrExit(args, "tarsel get FILE PATH [--pointer]", options, positional);
    const std::vector<std::string> names = NamesOf(values);
    const Document document = LoadDocument(values["file"].as<std::string>(), false);
    std::size_t reached = 0;
    const Property* node = FindPath(document.tree, names, &reached);
    if (node == nullptr) {
        ThrowNoSuchPath(document, names, reached);
    }
    if (node->GetType() == TypeArray) {
        PrintPropertyValue(*node, 0, Out(), true, true);
    } else {
        Out() << ExactValueText(*node) << "\n";
    }
    return kSuccess;
}

int RunSet(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("file", FileArgument(), "the JSON file, saved back in place")(
        "path", po::value<std::string>()->required()->value_name("PATH"),
        "child names joined by \"/\"; missing containers on the way are made")(
        "value", po::value<std::string>()->required()->value_name("VALUE"),
        "the new value (after -- when it starts with -)")(
        "type", po::value<std::string>()->default_value("")->value_name("TYPE"),
        "bool, int, double, string or ratio; without it the type is inferred from VALUE")(
        "pointer", po::bool_switch(), kPointerHelp);
    po::positional_options_description positional;
    positional.add("file", 1).add("path", 1).add("value", 1);
    const auto values = ParseOrExit(
        args, "tarsel set FILE PATH VALUE [--type bool|int|double|string|ratio] [--pointer]", options, positional);
    const std::string file = values["file"].as<std::string>();
    if (file == "-") {
        throw UsageError("set saves FILE back, so FILE cannot be standard input");
    }
    const std::vector<std::string> names = NamesOf(values);
    if (names.empty()) {
        throw UsageError("PATH names no member to set");
    }
    for (const std::string& name : names) {
        if (name.empty()) {
            throw UsageError("a member name cannot be empty");
        }
    }
    const Property value = ValueFromText(values["value"].as<std::string>(), values["type"].as<std::string>());
    Document document = LoadDocument(file, false);
    ParentFor(document, names).SetChild(names.back(), value);
    try {
        PropertySerializer::SerializeToFile(document.tree, file, false);
    } catch (...) {
        RethrowAbout(document.name, "cannot save");
    }
    return kSuccess;
}

}  // namespace TarselTool
