// `tarsel freename` and `tarsel group`: the free-name finder and the
// grouping of files by folder, on real paths given on the command line.
#include "Command.h"
#include "Failure.h"
#include "Input.h"

#include <Core/Interfaces/FileUtils.h>

#include <stdexcept>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

int RunFreeName(const std::vector<std::string>& args) {
    std::string path;
    std::string extension;
    bool numberOnly = false;
    std::vector<std::string> reserved;
    po::options_description options("options");
    options.add_options()("path", po::value(&path)->required()->value_name("PATH"),
                          "the proposed path")("ext", po::value(&extension)->required()->value_name("EXT"),
                                               "the extension to give it, with or without its \".\"; \"\" removes it")(
        "number-only", po::bool_switch(&numberOnly), "PATH is a folder: name the file by a number alone")(
        "reserve", po::value(&reserved)->value_name("PATH"),
        "a path that counts as taken though it may not exist; repeatable");
    po::positional_options_description positional;
    positional.add("path", 1);
    ParseOrExit(args, "tarsel freename PATH --ext EXT [--number-only] [--reserve PATH]...", options, positional);
    if (path.empty()) {
        throw UsageError("PATH must not be empty");
    }
    if (extension.find('/') != std::string::npos) {
        throw UsageError("EXT is an extension, which cannot hold \"/\"");
    }
    const std::set<ioPath> taken(reserved.begin(), reserved.end());
    ioPath result = path;
    try {
        UpdateFilePathIfExist(&taken, numberOnly, extension, &result);
    } catch (const std::out_of_range&) {
        // The library cuts a name too long or starting with spaces until it
        // is valid; nothing is left of a name that cannot be.
        throw ToolFailure(kFailed, "'" + path + "'", "no valid file name can be made from this name");
    }
    Out() << result.utf8string() << "\n";
    return kSuccess;
}

int RunGroup(const std::vector<std::string>& args) {
    std::vector<std::string> files;
    po::options_description options("options");
    options.add_options()("file", po::value(&files)->required()->value_name("FILE"), "a file to group");
    po::positional_options_description positional;
    positional.add("file", -1);
    ParseOrExit(args, "tarsel group FILE...", options, positional);
    for (const auto& [folder, list] : MakeDirectoryToFileListMap(std::vector<ioPath>(files.begin(), files.end()))) {
        // Bare file names share the empty folder, shown as "".
        Out() << (folder.empty() ? std::string("\"\"") : folder.utf8string()) << "\n";
        for (const ioPath& file : list) {
            Out() << "  " << file.utf8string() << "\n";
        }
    }
    return kSuccess;
}

}  // namespace TarselTool
