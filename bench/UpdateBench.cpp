// Saving into a file a person edits, against re-saving it whole, in the same
// run: UpdateFile with one value changed, and what an application does
// without it, Deserialize and SerializeToFile. Both read the file and
// replace it through the same atomic save (written, synced, renamed), so
// what differs is the work between: indexing the text and comparing the
// tree with it, against building a tree and writing all of its text.
// The program ends with the ratio of the medians.
#include "support/JsonDocuments.h"

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <benchmark/benchmark.h>
#include <boost/filesystem.hpp>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <vector>

using namespace Tarsel;
using namespace Tarsel::Core;
namespace fs = boost::filesystem;

namespace {

using DoubleText = PropertySerializer::DoubleText;
using Syntax = PropertySerializer::JsonSyntax;

// A file of the media document in a folder of its own, removed at exit.
class MediaFile {
public:
    MediaFile() {
        fs::create_directory(m_folder);
        std::ofstream(m_path.string(), std::ios::binary) << TarselTest::MediaLibraryDocument(40000);
    }
    ~MediaFile() { fs::remove_all(m_folder); }
    const fs::path& Path() const { return m_path; }

private:
    const fs::path m_folder = fs::temp_directory_path() / fs::unique_path("tarsel-bench-%%%%-%%%%");
    const fs::path m_path = m_folder / "media.json";
};

const MediaFile& Media() {
    static const MediaFile file;
    return file;
}

Property Loaded(const fs::path& path) {
    Property tree("media");
    PropertySerializer::Deserialize(tree, FileDataInput::Create(path.string()), false);
    return tree;
}

// The application's tree, one value of it changed at each save, so that
// every save has something to write.
void UpdateFile(benchmark::State& state) {
    Property tree = Loaded(Media().Path());
    Property& value = tree[std::size_t{0}]["width"];
    long long width = 0;
    for (auto _ : state) {
        value = ++width;
        PropertySerializer::UpdateFile(tree, Media().Path().string(), false, DoubleText::RoundTrip, Syntax::Strict);
    }
}

void DeserializeAndSerializeToFile(benchmark::State& state) {
    long long width = 0;
    for (auto _ : state) {
        Property tree = Loaded(Media().Path());
        tree[std::size_t{0}]["width"] = ++width;
        PropertySerializer::SerializeToFile(tree, Media().Path().string(), false, DoubleText::RoundTrip);
    }
}

BENCHMARK(UpdateFile)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(DeserializeAndSerializeToFile)->Unit(benchmark::kMillisecond)->UseRealTime();

// The console's report, and each benchmark's median real time kept for the
// ratio.
class MedianReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                medians[run.run_name.function_name] = run.GetAdjustedRealTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> medians;
};

}  // namespace

int main(int argc, char** argv) {
    // Five runs of each for the medians, unless the command line says how
    // many; make bench-check's run (--benchmark_min_time=0) measures
    // nothing and needs one.
    std::vector<char*> args(argv, argv + argc);
    const auto given = [&](const std::string& flag) {
        return std::any_of(args.begin(), args.end(),
                           [&](const char* arg) { return std::string(arg).rfind(flag, 0) == 0; });
    };
    std::string repetitions = "--benchmark_repetitions=5";
    if (!given("--benchmark_repetitions") && !given("--benchmark_min_time=0")) {
        args.push_back(repetitions.data());
    }
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const auto update = reporter.medians.find("UpdateFile");
    const auto resave = reporter.medians.find("DeserializeAndSerializeToFile");
    if (update != reporter.medians.end() && resave != reporter.medians.end()) {
        std::printf("\nUpdateFile / (Deserialize + SerializeToFile), medians: %.2fx\n",
                    update->second / resave->second);
    }
    return 0;
}
