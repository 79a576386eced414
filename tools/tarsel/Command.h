// The tarsel tool's subcommands and the option parsing they share.
#pragma once

#include <boost/program_options.hpp>

#include <optional>
#include <string>
#include <vector>

namespace TarselTool {

namespace po = boost::program_options;

// Exit statuses of the tool.
enum ExitStatus { kSuccess = 0, kFailure = 1, kUsage = 2, kParseError = 3 };

struct Command {
    const char* name;
    const char* summary;
    int (*run)(const std::vector<std::string>& args);
};

// Every subcommand, in the order `tarsel --help` lists them.
const std::vector<Command>& Commands();

// Parses a subcommand's arguments. Returns the values, or nothing when the
// caller should exit with *status: after --help (kSuccess) or on a usage error
// (kUsage, the error printed to stderr).
std::optional<po::variables_map> ParseArguments(const std::vector<std::string>& args, const std::string& usage,
                                                po::options_description options,
                                                const po::positional_options_description& positional,
                                                int* status);

int RunDemo(const std::vector<std::string>& args);
int RunShow(const std::vector<std::string>& args);
int RunGet(const std::vector<std::string>& args);
int RunModule(const std::vector<std::string>& args);
int RunFreeName(const std::vector<std::string>& args);
int RunGroup(const std::vector<std::string>& args);
int RunMd5(const std::vector<std::string>& args);
int RunUuid(const std::vector<std::string>& args);
int RunRatio(const std::vector<std::string>& args);

}  // namespace TarselTool
