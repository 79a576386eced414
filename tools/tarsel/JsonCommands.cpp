// `tarsel show` and `tarsel get`: load a JSON settings file and print all of
// it, or the value at a path.
#include "Command.h"
#include "Failure.h"
#include "Input.h"
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

}  // namespace TarselTool
