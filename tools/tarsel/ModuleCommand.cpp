// `tarsel module NAME [SYMBOL]`: loads a module the way an application does
// and reports what the loader says.
#include "Command.h"

#include <Core/Interfaces/DyLib.h>

#include <iostream>
#include <optional>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

// A name with a "/" is a path; a bare name is looked for in the library
// folders, the application's own folder first.
std::vector<ioPath> Candidates(const std::string& name) {
    if (name.find('/') != std::string::npos) {
        return {name};
    }
    return {GetLibraryPath(SysPathFrameworks) + GetPlatformModuleName(name),
            GetLibraryPath(SysPathLocalLib) + GetPlatformModuleName(name)};
}

// Opens the first candidate that loads and returns its path; prints every
// failure to stderr.
std::optional<ioPath> OpenFirst(DyLib& module, const std::vector<ioPath>& candidates) {
    for (const ioPath& path : candidates) {
        if (module.Open(path)) {
            return path;
        }
        std::cerr << module.GetLastError() << "\n";
    }
    return std::nullopt;
}

}  // namespace

int RunModule(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("name", po::value<std::string>()->required(),
                          "module: a short name such as \"codec\", or a path")(
        "symbol", po::value<std::string>(), "an exported symbol to look up");
    po::positional_options_description positional;
    positional.add("name", 1).add("symbol", 1);
    int status = kSuccess;
    const auto values = ParseArguments(args, "tarsel module NAME [SYMBOL]", options, positional, &status);
    if (!values) {
        return status;
    }
    DyLib module;
    const auto path = OpenFirst(module, Candidates((*values)["name"].as<std::string>()));
    if (!path) {
        return kFailure;
    }
    std::cout << "module " << path->utf8string() << "\n";
    if (values->count("symbol") == 0) {
        return kSuccess;
    }
    const std::string symbol = (*values)["symbol"].as<std::string>();
    const void* address = module.GetProc(symbol);
    if (address == nullptr) {
        std::cerr << module.GetLastError() << "\n";
        return kFailure;
    }
    std::cout << symbol << " " << address << "\n";
    return kSuccess;
}

}  // namespace TarselTool
