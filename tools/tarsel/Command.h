// The tarsel tool's subcommands, their exit statuses and the argument parsing
// they share.
#pragma once

#include <boost/program_options.hpp>

#include <stdexcept>
#include <string>
#include <vector>

namespace TarselTool {

namespace po = boost::program_options;

// Exit statuses of the tool, the same for every command.
enum ExitStatus {
    kSuccess = 0,
    // A negative answer: diff found a difference, get found no such path.
    kNegative = 1,
    kUsage = 2,
    // Bad data or a failed operation.
    kFailed = 3,
};

// The help of the --pointer option of the commands that take a PATH.
inline constexpr const char* kPointerHelp = "PATH is an RFC 6901 JSON pointer, so that a name may hold \"/\": "
                                            "/dependencies/@scope~1name; or that pointer as a JSON string, as diff "
                                            "prints one whose names need escapes: \"/a\\nb\"";

// The help of the --comments option of the commands that read JSON files.
inline constexpr const char* kCommentsHelp =
    "read // and /* */ comments and trailing commas, as a file named *.jsonc is read (set keeps them)";

struct Command {
    const char* name;
    const char* summary;
    int (*run)(const std::vector<std::string>& args);
};

// Every subcommand, in the order `tarsel --help` lists them.
const std::vector<Command>& Commands();

// A command line the command cannot run with; reported with exit status
// kUsage.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Thrown once --help has been printed: nothing failed, the command is done.
struct HelpShown {};

// Parses a command's arguments: options, plus --help and --verbose (which
// every command accepts), with the positional arguments in the order that
// positional gives. Prints the help and throws HelpShown for --help; throws
// UsageError, naming a positional argument by its value name ("missing
// FILE", never "--file") and ending with the usage line, for anything it
// cannot parse.
po::variables_map ParseOrExit(const std::vector<std::string>& args, const std::string& usage,
                              po::options_description options,
                              const po::positional_options_description& positional = {});

int RunDemo(const std::vector<std::string>& args);
int RunShow(const std::vector<std::string>& args);
int RunGet(const std::vector<std::string>& args);
int RunSet(const std::vector<std::string>& args);
int RunDiff(const std::vector<std::string>& args);
int RunModule(const std::vector<std::string>& args);
int RunFreeName(const std::vector<std::string>& args);
int RunGroup(const std::vector<std::string>& args);
int RunMd5(const std::vector<std::string>& args);
int RunUuid(const std::vector<std::string>& args);
int RunRatio(const std::vector<std::string>& args);

}  // namespace TarselTool
