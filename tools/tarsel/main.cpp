// tarsel: the command-line face of Tarsel Core. `tarsel COMMAND --help`
// describes each command.
#include "Command.h"
#include "Failure.h"
#include "Input.h"

#include <Core/Interfaces/Version.h>

#include <algorithm>
#include <iostream>
#include <set>

namespace TarselTool {

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"demo", "build a small property tree and show what the library does with it", RunDemo},
        {"show", "load a JSON settings file and print its tree, or its JSON text", RunShow},
        {"get", "print the value at a path of a JSON settings file", RunGet},
        {"set", "change or add one value of a JSON settings file, saved atomically", RunSet},
        {"diff", "compare two JSON settings files as the library does", RunDiff},
        {"module", "load a module by short name or path and look up a symbol in it", RunModule},
        {"freename", "find a free file name for an output file", RunFreeName},
        {"group", "group files by the folder that holds them", RunGroup},
        {"md5", "print the MD5 digest of a file, or of its part before a marker", RunMd5},
        {"uuid", "print new random identifiers", RunUuid},
        {"ratio", "approximate a number by a fraction with a bounded denominator", RunRatio},
    };
    return commands;
}

namespace {

// The option names of the positional arguments.
std::set<std::string> PositionalNames(const po::positional_options_description& positional) {
    std::set<std::string> names;
    const unsigned count = std::min(positional.max_total_count(), 64u);
    for (unsigned i = 0; i < count; ++i) {
        names.insert(positional.name_for_position(i));
    }
    return names;
}

// A positional argument is named as the usage line shows it (FILE), not as
// the option program_options keeps it under (--file).
std::string UsageText(po::error_with_option_name& error, const po::options_description& options,
                      const po::positional_options_description& positional) {
    for (const std::string& name : PositionalNames(positional)) {
        if (error.get_option_name() == "--" + name) {
            error.set_option_name(options.find(name, false).semantic()->name());
            error.set_prefix(0);
        }
    }
    if (dynamic_cast<const po::required_option*>(&error) != nullptr) {
        return "missing " + error.get_option_name();
    }
    return error.what();
}

void PrintOverview(std::ostream& out) {
    out << "usage: tarsel COMMAND [ARGS...] [--verbose]\n       tarsel --version\n\ncommands:\n";
    for (const Command& command : Commands()) {
        out << "  " << command.name << std::string(12 - std::string(command.name).size(), ' ') << command.summary
            << "\n";
    }
    out << "\n`tarsel COMMAND --help` describes a command.\n"
           "Exit status: 0 success, 1 a negative answer (diff: different, get: no such path),\n"
           "2 a usage error, 3 bad data or a failed operation.\n";
}

// --verbose before any "--": the report of a failure needs to know it even
// when the arguments themselves do not parse.
bool WantsVerbose(const std::vector<std::string>& args) {
    const auto end = std::find(args.begin(), args.end(), "--");
    return std::find(args.begin(), end, "--verbose") != end;
}

}  // namespace

po::variables_map ParseOrExit(const std::vector<std::string>& args, const std::string& usage,
                              po::options_description options, const po::positional_options_description& positional) {
    options.add_options()("help,h", "show this help")(
        "verbose", "on failure, also print the full diagnostic information with its call stack");
    po::variables_map values;
    try {
        po::store(po::command_line_parser(args).options(options).positional(positional).run(), values);
        if (values.count("help") != 0) {
            std::cout << "usage: " << usage << "\n\n" << options << "\n";
            throw HelpShown{};
        }
        po::notify(values);
    } catch (po::error_with_option_name& e) {
        throw UsageError(UsageText(e, options, positional) + "; usage: " + usage);
    } catch (const po::too_many_positional_options_error&) {
        throw UsageError("too many arguments; usage: " + usage);
    } catch (const po::error& e) {
        throw UsageError(std::string(e.what()) + "; usage: " + usage);
    }
    return values;
}

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
    if (name == "--version") {
        std::cout << "tarsel " << TARSEL_VERSION_STRING << "\n";
        return kSuccess;
    }
    const std::vector<std::string> args(argv + 2, argv + argc);
    for (const Command& command : Commands()) {
        if (name == command.name) {
            try {
                const int status = command.run(args);
                FinishOutput();
                return status;
            } catch (const HelpShown&) {
                return kSuccess;
            } catch (...) {
                // What was printed before the failure goes out ahead of the report.
                try {
                    FinishOutput();
                } catch (...) {
                }
                return ReportFailure(command.name, WantsVerbose(args));
            }
        }
    }
    std::cerr << "tarsel: unknown command '" << name << "'; `tarsel --help` lists the commands\n";
    return kUsage;
}
