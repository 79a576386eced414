// tarsel: the command-line face of Tarsel Core. `tarsel COMMAND --help`
// describes each command.
#include "Command.h"

#include <exception>
#include <iostream>

namespace TarselTool {

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"demo", "build a small property tree and show what the library does with it", RunDemo},
        {"show", "load a JSON settings file and print its tree", RunShow},
        {"get", "print the value at a path of a JSON settings file", RunGet},
        {"module", "load a module by short name or path and look up a symbol in it", RunModule},
        {"freename", "find a free file name for an output file", RunFreeName},
        {"group", "group files by the folder that holds them", RunGroup},
        {"md5", "print the MD5 digest of a file, or of its part before a marker", RunMd5},
        {"uuid", "print new random identifiers", RunUuid},
        {"ratio", "approximate a number by a fraction with a bounded denominator", RunRatio},
    };
    return commands;
}

std::optional<po::variables_map> ParseArguments(const std::vector<std::string>& args, const std::string& usage,
                                                po::options_description options,
                                                const po::positional_options_description& positional,
                                                int* status) {
    options.add_options()("help,h", "show this help");
    po::variables_map values;
    try {
        po::store(po::command_line_parser(args).options(options).positional(positional).run(), values);
        if (values.count("help") != 0) {
            std::cout << "usage: " << usage << "\n\n" << options << "\n";
            *status = kSuccess;
            return std::nullopt;
        }
        po::notify(values);
    } catch (const po::error& e) {
        std::cerr << "tarsel: " << e.what() << "\nusage: " << usage << "\n";
        *status = kUsage;
        return std::nullopt;
    }
    return values;
}

namespace {

void PrintOverview(std::ostream& out) {
    out << "usage: tarsel COMMAND [ARGS...]\n\ncommands:\n";
    for (const Command& command : Commands()) {
        out << "  " << command.name << std::string(12 - std::string(command.name).size(), ' ') << command.summary
            << "\n";
    }
    out << "\n`tarsel COMMAND --help` describes a command.\n";
}

}  // namespace

}  // namespace TarselTool

int main(int argc, char** argv) {
    using namespace TarselTool;
    if (argc < 2) {
        PrintOverview(std::cerr);
        return kUsage;
    }
    const std::string name = argv[1];
    if (name == "--help" || name == "-h" || name == "help") {
        PrintOverview(std::cout);
        return kSuccess;
    }
    for (const Command& command : Commands()) {
        if (name == command.name) {
            try {
                return command.run(std::vector<std::string>(argv + 2, argv + argc));
            } catch (const std::exception& e) {
                std::cerr << "tarsel " << name << ": " << e.what() << "\n";
                return kFailure;
            }
        }
    }
    std::cerr << "tarsel: unknown command '" << name << "'\n";
    PrintOverview(std::cerr);
    return kUsage;
}
