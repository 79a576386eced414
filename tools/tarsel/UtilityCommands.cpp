// `tarsel md5`, `tarsel uuid` and `tarsel ratio`: the library's digests,
// identifiers and ratio approximation from the command line.
#include "Command.h"
#include "Failure.h"
#include "Input.h"

#include <Core/Interfaces/Digest.h>
#include <Core/Interfaces/Property.h>

#include <boost/algorithm/hex.hpp>

#include <iterator>
#include <stdexcept>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

int RunMd5(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("file", po::value<std::string>()->required()->value_name("FILE"),
                          "the file to digest; - reads standard input")(
        "stop", po::value<std::string>()->default_value("")->value_name("MARKER"),
        "digest only what precedes the first occurrence of MARKER");
    po::positional_options_description positional;
    positional.add("file", 1);
    const auto values = ParseOrExit(args, "tarsel md5 FILE [--stop MARKER]", options, positional);
    const std::string file = values["file"].as<std::string>();
    const boost::intrusive_ptr<IDataInput> input = OpenInput(file);
    std::vector<unsigned char> digest;
    try {
        digest = MD5Generate(input, values["stop"].as<std::string>());
    } catch (...) {
        RethrowAbout(DisplayName(file), "");
    }
    boost::algorithm::hex_lower(digest.begin(), digest.end(), std::ostream_iterator<char>(Out()));
    Out() << "\n";
    return kSuccess;
}

int RunUuid(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("count,n", po::value<int>()->default_value(1)->value_name("N"), "how many identifiers");
    const auto values = ParseOrExit(args, "tarsel uuid [-n N]", options);
    const int count = values["count"].as<int>();
    if (count < 0) {
        throw UsageError("the count must not be negative");
    }
    for (int i = 0; i < count; ++i) {
        Out() << GenerateStringUuid() << "\n";
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
    const auto values = ParseOrExit(args, "tarsel ratio NUMBER [--max DENOMINATOR]", options, positional);
    // The library takes a bound below 1 as 1; a user who typed one meant
    // something else.
    if (values["max"].as<long long>() < 1) {
        throw UsageError("the largest denominator must be 1 or more");
    }
    Ratio ratio;
    try {
        ratio = RatioFromDoubleApprox(values["number"].as<double>(), values["max"].as<long long>());
    } catch (const std::invalid_argument&) {
        throw UsageError("NUMBER must be finite and below 2^63 in magnitude");
    }
    Out() << StringFromRatio(ratio) << "\n";
    return kSuccess;
}

}  // namespace TarselTool
