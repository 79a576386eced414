// `tarsel freename` and `tarsel group`: the free-name finder and the
// grouping of files by folder, on real paths given on the command line.
#include "Command.h"

#include <Core/Interfaces/FileUtils.h>

#include <iostream>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

int RunFreeName(const std::vector<std::string>& args) {
    std::string path;
    std::string extension;
    bool numberOnly = false;
    std::vector<std::string> reserved;
    po::options_description options("options");
    options.add_options()("path", po::value(&path)->required(), "the proposed path (PATH)")(
        "ext", po::value(&extension)->required(), "the extension to give it, with or without its \".\"; \"\" removes it")(
        "number-only", po::bool_switch(&numberOnly), "PATH is a folder: name the file by a number alone")(
        "reserve", po::value(&reserved), "a path that counts as taken though it may not exist; repeatable");
    po::positional_options_description positional;
    positional.add("path", 1);
    int status = kSuccess;
    if (!ParseArguments(args, "tarsel freename PATH --ext EXT [--number-only] [--reserve PATH]...", options,
                        positional, &status)) {
        return status;
    }
    const std::set<ioPath> taken(reserved.begin(), reserved.end());
    ioPath result = path;
    UpdateFilePathIfExist(&taken, numberOnly, extension, &result);
    std::cout << result.utf8string() << "\n";
    return kSuccess;
}

int RunGroup(const std::vector<std::string>& args) {
    std::vector<std::string> files;
    po::options_description options("options");
    options.add_options()("file", po::value(&files)->required(), "a file to group (FILE...)");
    po::positional_options_description positional;
    positional.add("file", -1);
    int status = kSuccess;
    if (!ParseArguments(args, "tarsel group FILE...", options, positional, &status)) {
        return status;
    }
    for (const auto& [folder, list] : MakeDirectoryToFileListMap(std::vector<ioPath>(files.begin(), files.end()))) {
        // Bare file names share the empty folder, shown as "".
        std::cout << (folder.empty() ? std::string("\"\"") : folder.utf8string()) << "\n";
        for (const ioPath& file : list) {
            std::cout << "  " << file.utf8string() << "\n";
        }
    }
    return kSuccess;
}

}  // namespace TarselTool
