// `tarsel md5`, `tarsel uuid` and `tarsel ratio`: the library's digests,
// identifiers and ratio approximation from the command line.
#include "Command.h"

#include <Core/Interfaces/Tarsel.h>

#include <boost/algorithm/hex.hpp>

#include <iostream>
#include <iterator>
#include <stdexcept>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

std::string HexFromBytes(const std::vector<unsigned char>& bytes) {
    std::string text;
    boost::algorithm::hex_lower(bytes.begin(), bytes.end(), std::back_inserter(text));
    return text;
}

}  // namespace

int RunMd5(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("file", po::value<std::string>()->required()->value_name("FILE"), "the file to digest")(
        "stop", po::value<std::string>()->default_value("")->value_name("MARKER"),
        "digest only what precedes the first occurrence of MARKER");
    po::positional_options_description positional;
    positional.add("file", 1);
    int status = kSuccess;
    const auto values = ParseArguments(args, "tarsel md5 FILE [--stop MARKER]", options, positional, &status);
    if (!values) {
        return status;
    }
    const auto input = FileDataInput::Create((*values)["file"].as<std::string>());
    std::cout << HexFromBytes(MD5Generate(input, (*values)["stop"].as<std::string>())) << "\n";
    return kSuccess;
}

int RunUuid(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("count,n", po::value<int>()->default_value(1)->value_name("N"), "how many identifiers");
    int status = kSuccess;
    const auto values = ParseArguments(args, "tarsel uuid [-n N]", options, {}, &status);
    if (!values) {
        return status;
    }
    const int count = (*values)["count"].as<int>();
    if (count < 0) {
        std::cerr << "tarsel uuid: the count must not be negative\n";
        return kUsage;
    }
    for (int i = 0; i < count; ++i) {
        std::cout << GenerateStringUuid() << "\n";
    }
    return kSuccess;
}

int RunRatio(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("number", po::value<double>()->required()->value_name("NUMBER"),
                          "the number to approximate (after -- when negative)")(
        "max", po::value<long long>()->default_value(1001)->value_name("DENOMINATOR"), "the largest denominator");
    po::positional_options_description positional;
    positional.add("number", 1);
    int status = kSuccess;
    const auto values =
        ParseArguments(args, "tarsel ratio NUMBER [--max DENOMINATOR]", options, positional, &status);
    if (!values) {
        return status;
    }
    try {
        const Ratio ratio =
            RatioFromDoubleApprox((*values)["number"].as<double>(), (*values)["max"].as<long long>());
        std::cout << StringFromRatio(ratio) << "\n";
    } catch (const std::invalid_argument& e) {
        // The message carries the call stack after its first line; a user
        // needs only the reason.
        const std::string message = e.what();
        std::cerr << "tarsel ratio: " << message.substr(0, message.find('\n')) << "\n";
        return kFailure;
    }
    return kSuccess;
}

}  // namespace TarselTool
