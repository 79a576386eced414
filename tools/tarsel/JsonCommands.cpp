// `tarsel show` and `tarsel get`: load a JSON settings file and print all of
// it, or the value at a path.
#include "Command.h"

#include <Core/Interfaces/Tarsel.h>

#include <boost/exception/get_error_info.hpp>
#include <boost/filesystem/exception.hpp>

#include <iostream>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

// Loads file into settings; on failure prints one line and sets *status.
bool LoadSettings(const std::string& file, bool wrap, Property* settings, int* status) {
    try {
        PropertySerializer::Deserialize(*settings, FileDataInput::Create(file), wrap);
        return true;
    } catch (const JsonException& e) {
        const std::string* text = boost::get_error_info<JsonException::TagParseError>(e);
        std::cerr << "tarsel: " << file << ": " << (text != nullptr ? *text : "invalid JSON") << "\n";
        *status = kParseError;
    } catch (const boost::filesystem::filesystem_error& e) {
        std::cerr << "tarsel: " << file << ": " << e.code().message() << "\n";
        *status = kFailure;
    } catch (const PropertyException&) {
        std::cerr << "tarsel: " << file << ": the document does not fit a settings tree\n";
        *status = kFailure;
    }
    return false;
}

}  // namespace

int RunShow(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("file", po::value<std::string>()->required(), "the JSON file")(
        "wrap", po::bool_switch(), "the root is wrapped in a one-member object: show that member");
    po::positional_options_description positional;
    positional.add("file", 1);
    int status = kSuccess;
    const auto values = ParseArguments(args, "tarsel show FILE [--wrap]", options, positional, &status);
    if (!values) {
        return status;
    }
    Property settings("settings");
    if (!LoadSettings((*values)["file"].as<std::string>(), (*values)["wrap"].as<bool>(), &settings, &status)) {
        return status;
    }
    PrintPropertyValue(settings, 0, std::cout, true, true);
    return kSuccess;
}

int RunGet(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("file", po::value<std::string>()->required(), "the JSON file")(
        "path", po::value<std::string>()->required(), "child names joined by \"/\", e.g. video/width");
    po::positional_options_description positional;
    positional.add("file", 1).add("path", 1);
    int status = kSuccess;
    const auto values = ParseArguments(args, "tarsel get FILE PATH", options, positional, &status);
    if (!values) {
        return status;
    }
    const std::string file = (*values)["file"].as<std::string>();
    const std::string path = (*values)["path"].as<std::string>();
    Property settings("settings");
    if (!LoadSettings(file, false, &settings, &status)) {
        return status;
    }
    try {
        const Property& node = settings.ChildByPath(path);
        if (node.GetType() == TypeArray) {
            PrintPropertyValue(node, 0, std::cout, true, true);
        } else {
            std::cout << PropertyValueToString(node) << "\n";
        }
    } catch (const ChildNameIsNotFound& e) {
        std::cerr << "tarsel: " << file << ": no '" << *boost::get_error_info<PropertyException::TagRequestedChildName>(e)
                  << "' on the path " << path << "\n";
        return kFailure;
    } catch (const MethodIsNotApplicable& e) {
        std::cerr << "tarsel: " << file << ": the path " << path << " runs through the value '"
                  << *boost::get_error_info<PropertyException::TagPropertyName>(e) << "'\n";
        return kFailure;
    }
    return kSuccess;
}

}  // namespace TarselTool
