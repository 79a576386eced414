// `tarsel module NAME [SYMBOL]`: loads a module the way an application does
// and reports what the loader says.
#include "Command.h"
#include "Failure.h"
#include "Input.h"

#include <Core/Interfaces/DyLib.h>

#include <boost/algorithm/string/replace.hpp>
#include <boost/dll/runtime_symbol_info.hpp>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

// A library folder in the loader's notation ("$ORIGIN/",
// "@executable_path/../Frameworks/") with the real folder in place of the
// variable: what the loader looks in, and what a user can go and see.
std::string Expanded(const ioPath& folder) {
    std::string text = folder.utf8string();
    const std::string library =
        boost::dll::symbol_location_ptr(&GetLibraryPath).parent_path().lexically_normal().string();
    boost::algorithm::replace_all(text, "$ORIGIN", library);
    boost::algorithm::replace_all(text, "@loader_path", library);
    boost::algorithm::replace_all(text, "@executable_path",
                                  boost::dll::program_location().parent_path().lexically_normal().string());
    return text;
}

// A name with a "/" is a path. A bare name is looked for in the library
// folders, the application's own first, then wherever the dynamic linker
// itself looks (LD_LIBRARY_PATH, its cache, the system folders).
std::vector<std::string> Candidates(const std::string& name) {
    if (name.find('/') != std::string::npos) {
        return {name};
    }
    const std::string module = GetPlatformModuleName(name).utf8string();
    return {Expanded(GetLibraryPath(SysPathFrameworks)) + module, Expanded(GetLibraryPath(SysPathLocalLib)) + module,
            module};
}

// The loader's own words in a DyLib error text, which puts them last.
std::string LoaderText(const std::string& error) {
    const std::string marker = "additional info: ";
    const std::size_t found = error.find(marker);
    return found == std::string::npos ? error : error.substr(found + marker.size());
}

}  // namespace

int RunModule(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("name", po::value<std::string>()->required()->value_name("NAME"),
                          "module: a short name such as \"codec\", or a path")(
        "symbol", po::value<std::string>()->value_name("SYMBOL"), "an exported symbol to look up");
    po::positional_options_description positional;
    positional.add("name", 1).add("symbol", 1);
    const auto values = ParseOrExit(args, "tarsel module NAME [SYMBOL]", options, positional);
    const std::string name = values["name"].as<std::string>();
    DyLib module;
    std::string failures;
    for (const std::string& candidate : Candidates(name)) {
        if (module.Open(candidate)) {
            Out() << "module " << candidate << "\n";
            break;
        }
        failures += (failures.empty() ? "" : "; ") + LoaderText(module.GetLastError());
    }
    if (!module.IsOpen()) {
        throw ToolFailure(kFailed, "module " + name, "cannot be loaded: " + failures);
    }
    if (values.count("symbol") == 0) {
        return kSuccess;
    }
    const std::string symbol = values["symbol"].as<std::string>();
    const void* address = module.GetProc(symbol);
    if (address == nullptr) {
        throw ToolFailure(kNegative, "module " + name, "does not export " + symbol);
    }
    Out() << symbol << " " << address << "\n";
    return kSuccess;
}

}  // namespace TarselTool
