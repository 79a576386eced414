// JSON load and save throughput of PropertySerializer against RapidJSON's DOM,
// nlohmann::json and boost.property_tree, and loading against its floors, on
// the same documents in one run. Throughput is the size of the source
// document over the time, in every column, so the columns compare the same
// information. Every load, ours and the peers', includes freeing what it
// built, as an application frees the tree it replaces.
#include "BenchSupport.h"
#include "support/JsonDocuments.h"

#include <Core/Interfaces/PropertySerializer.h>

#include <benchmark/benchmark.h>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <vector>

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

// --- Documents -----------------------------------------------------------------

using TarselTest::JsonDocumentMakers;

const std::string& Document(const std::string& name) {
    static std::map<std::string, std::string> cache;
    auto found = cache.find(name);
    if (found == cache.end()) {
        for (const auto& [makerName, make] : JsonDocumentMakers()) {
            if (makerName == name) {
                found = cache.emplace(name, make()).first;
            }
        }
    }
    return found->second;
}

// A client's input over a shared buffer: no copy per read beyond the one the
// serializer makes.
class BufferInput : public RefCounted<IDataInput> {
public:
    explicit BufferInput(const std::string& text) : m_text(text) {}
    std::size_t GetSize() const override { return m_text.size() - m_position; }
    std::size_t Read(void* data, std::size_t size) override {
        const std::size_t count = std::min(size, GetSize());
        std::memcpy(data, m_text.data() + m_position, count);
        m_position += count;
        return count;
    }

private:
    const std::string& m_text;
    std::size_t m_position = 0;
};

// --- Benchmarks ------------------------------------------------------------------

void SetBytes(benchmark::State& state, const std::string& document) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * document.size()));
}

void TarselLoad(benchmark::State& state, const std::string* name) {
    const std::string& document = Document(*name);
    for (auto _ : state) {
        Property tree("root");
        PropertySerializer::Deserialize(tree, new BufferInput(document), false);
        benchmark::DoNotOptimize(&tree);
    }
    SetBytes(state, document);
}

// Saving with the given double text: the default (SixDigits), or the exact
// save beside it.
template <PropertySerializer::DoubleText kDoubleText>
void TarselSave(benchmark::State& state, const std::string* name) {
    const std::string& document = Document(*name);
    Property tree("root");
    PropertySerializer::Deserialize(tree, new BufferInput(document), false);
    for (auto _ : state) {
        const auto out = MemoryDataOutput::Create();
        PropertySerializer::Serialize(tree, out, false, kDoubleText);
        benchmark::DoNotOptimize(out->GetData().data());
    }
    SetBytes(state, document);
}

// Freeing a loaded tree alone: the part of a load row that is the free.
void TarselFree(benchmark::State& state, const std::string* name) {
    const std::string& document = Document(*name);
    for (auto _ : state) {
        state.PauseTiming();
        auto tree = std::make_unique<Property>("root");
        PropertySerializer::Deserialize(*tree, new BufferInput(document), false);
        state.ResumeTiming();
        tree.reset();
    }
    SetBytes(state, document);
}

// --- Floors ------------------------------------------------------------------------
// What no load can go below, measured in the same run: reading the document
// (the parse floor) and the memory a tree of it takes (the node floor).

// The parse floor: the input copied into a buffer, as a load reads it, and
// RapidJSON's reader with the library's flags (iterative, in place, numbers
// handed over as text, which the library then reads itself) feeding a
// handler that does nothing.
void ParseFloor(benchmark::State& state, const std::string* name) {
    const std::string& document = Document(*name);
    std::vector<char> copy(document.size() + 1);
    for (auto _ : state) {
        std::memcpy(copy.data(), document.c_str(), document.size() + 1);
        rapidjson::InsituStringStream stream(copy.data());
        rapidjson::BaseReaderHandler<> nothing;
        rapidjson::Reader reader;
        constexpr unsigned kFlags =
            rapidjson::kParseIterativeFlag | rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag;
        benchmark::DoNotOptimize(reader.Parse<kFlags>(stream, nothing).IsError());
    }
    SetBytes(state, document);
}

// What loading a document allocates, in the order a load allocates it: for
// each node of the tree, the node of std::list<Property> (the Property and
// the list's two links), then its name and its string value where they do
// not fit inside the string object.
std::vector<std::size_t> LoadAllocations(const std::string& document) {
    const std::size_t nodeSize = sizeof(Property) + 2 * sizeof(void*);
    const std::size_t inPlace = std::string().capacity();
    Property tree("root");
    PropertySerializer::Deserialize(tree, new BufferInput(document), false);
    std::vector<std::size_t> sizes;
    std::vector<const Property*> pending{&tree};
    while (!pending.empty()) {
        const Property& node = *pending.back();
        pending.pop_back();
        if (node.GetType() == TypeArray) {
            for (auto child = node.rbegin(); child != node.rend(); ++child) {
                pending.push_back(&*child);
            }
        }
        if (&node == &tree) {
            continue;  // the caller's, not the load's
        }
        sizes.push_back(nodeSize);
        if (node.GetName().size() > inPlace) {
            sizes.push_back(node.GetName().size() + 1);
        }
        if (node.GetType() == TypeString && node.GetString().size() > inPlace) {
            sizes.push_back(node.GetString().size() + 1);
        }
    }
    return sizes;
}

// The node floor: memory used the way a load uses it. A zeroed buffer of the
// document's size, then every allocation of the tree, each written whole,
// then the buffer freed, then the tree's blocks; so the cost of glibc
// merging the previous tree's freed nodes when the next buffer is allocated
// is in the floor too.
void NodeFloor(benchmark::State& state, const std::string* name) {
    const std::string& document = Document(*name);
    const std::vector<std::size_t> sizes = LoadAllocations(document);
    std::vector<void*> blocks(sizes.size());
    for (auto _ : state) {
        void* const buffer = std::calloc(document.size() + 1, 1);
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            blocks[i] = std::malloc(sizes[i]);
            std::memset(blocks[i], 0, sizes[i]);
        }
        benchmark::DoNotOptimize(buffer);
        std::free(buffer);
        for (void* block : blocks) {
            std::free(block);
        }
    }
    SetBytes(state, document);
}

void RapidJsonLoad(benchmark::State& state, const std::string* name) {
    const std::string& document = Document(*name);
    for (auto _ : state) {
        rapidjson::Document dom;
        dom.Parse(document.c_str(), document.size());
        benchmark::DoNotOptimize(&dom);
    }
    SetBytes(state, document);
}

void RapidJsonSave(benchmark::State& state, const std::string* name) {
    const std::string& document = Document(*name);
    rapidjson::Document dom;
    dom.Parse(document.c_str(), document.size());
    for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        dom.Accept(writer);
        benchmark::DoNotOptimize(buffer.GetString());
    }
    SetBytes(state, document);
}

// The same DOM built by RapidJSON's iterative parser, the one the library
// loads with (it needs no stack in proportion to the depth).
void RapidJsonIterativeLoad(benchmark::State& state, const std::string* name) {
    const std::string& document = Document(*name);
    for (auto _ : state) {
        rapidjson::Document dom;
        dom.Parse<rapidjson::kParseIterativeFlag>(document.c_str(), document.size());
        benchmark::DoNotOptimize(&dom);
    }
    SetBytes(state, document);
}

void NlohmannLoad(benchmark::State& state, const std::string* name) {
    const std::string& document = Document(*name);
    for (auto _ : state) {
        nlohmann::json dom = nlohmann::json::parse(document);
        benchmark::DoNotOptimize(&dom);
    }
    SetBytes(state, document);
}

void NlohmannSave(benchmark::State& state, const std::string* name) {
    const std::string& document = Document(*name);
    const nlohmann::json dom = nlohmann::json::parse(document);
    for (auto _ : state) {
        const std::string text = dom.dump();
        benchmark::DoNotOptimize(text.data());
    }
    SetBytes(state, document);
}

void PropertyTreeLoad(benchmark::State& state, const std::string* name) {
    const std::string& document = Document(*name);
    for (auto _ : state) {
        std::istringstream in(document);
        boost::property_tree::ptree tree;
        boost::property_tree::read_json(in, tree);
        benchmark::DoNotOptimize(&tree);
    }
    SetBytes(state, document);
}

void PropertyTreeSave(benchmark::State& state, const std::string* name) {
    const std::string& document = Document(*name);
    std::istringstream in(document);
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(in, tree);
    for (auto _ : state) {
        std::ostringstream out;
        boost::property_tree::write_json(out, tree, false);
        benchmark::DoNotOptimize(out.tellp());
    }
    SetBytes(state, document);
}

const char* const kPeers[] = {"rapidjson", "rj_iterative", "nlohmann", "ptree"};

using Function = void (*)(benchmark::State&, const std::string*);

// Medians of three runs of at least a second each, after half a second of
// warming up.
void Register(const std::string& name, Function function, const std::string* document, double minTime) {
    benchmark::RegisterBenchmark(name.c_str(), function, document)
        ->Unit(benchmark::kMillisecond)
        ->MinTime(minTime)
        ->MinWarmUpTime(0.5)
        ->Repetitions(3)
        ->ReportAggregatesOnly(true);
}

void RegisterAll() {
    const std::pair<const char*, Function> loads[] = {
        {"tarsel", TarselLoad},     {"rapidjson", RapidJsonLoad}, {"rj_iterative", RapidJsonIterativeLoad},
        {"nlohmann", NlohmannLoad}, {"ptree", PropertyTreeLoad},  {"parse_floor", ParseFloor},
        {"node_floor", NodeFloor}};
    using Text = PropertySerializer::DoubleText;
    const std::pair<const char*, Function> saves[] = {{"tarsel", TarselSave<Text::SixDigits>},
                                                      {"tarsel_exact", TarselSave<Text::RoundTrip>},
                                                      {"rapidjson", RapidJsonSave},
                                                      {"nlohmann", NlohmannSave},
                                                      {"ptree", PropertyTreeSave}};
    for (const auto& [name, make] : JsonDocumentMakers()) {
        for (const auto& [library, function] : loads) {
            Register("load/" + name + "/" + library, function, &name, 1.0);
        }
        // Each timed free needs an untimed load before it.
        Register("load/" + name + "/tarsel_free", TarselFree, &name, 0.2);
        for (const auto& [library, function] : saves) {
            Register("save/" + name + "/" + library, function, &name, 1.0);
        }
    }
}

// Prints the usual console output and keeps each benchmark's median CPU time
// and throughput for the summary table.
class CollectingReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            const auto bytes = run.counters.find("bytes_per_second");
            if (median && bytes != run.counters.end()) {
                m_results[run.run_name.function_name] = {bytes->second.value / 1e6, run.GetAdjustedCPUTime()};
            }
        }
    }

    // One row per operation and document: each library's MB/s, ours over
    // each peer's; for loads the two floors' MB/s, our time over the sum of
    // theirs, and the share of our time that is freeing the tree. A dash
    // marks what was not measured (filtered out, or no such variant:
    // rj_iterative and the floors only load). Then how the time grows with
    // ten times the elements.
    void PrintSummary(std::ostream& out) const {
        out << "\nMB/s of the source document, medians (ratio: tarsel / peer; floors: tarsel's load time over the sum "
               "of the parse and node floors'; free: the share of tarsel's load that frees the tree)\n"
            << std::left << std::setw(22) << "operation/document" << std::right;
        out << std::setw(13) << "tarsel";
        for (const char* peer : kPeers) {
            out << std::setw(13) << peer;
        }
        for (const char* peer : kPeers) {
            out << std::setw(16) << "vs " + std::string(peer);
        }
        out << std::setw(13) << "parse_floor" << std::setw(13) << "node_floor" << std::setw(13) << "load/floors"
            << std::setw(8) << "free"
            << "\n";
        for (const char* operation : {"load", "save"}) {
            for (const auto& [name, make] : JsonDocumentMakers()) {
                PrintRow(out, std::string(operation) + "/" + name);
            }
        }
        for (const char* operation : {"load", "save"}) {
            const std::string row = std::string(operation) + "/flat_";
            out << "\n" << operation << ", time for ten times the elements:";
            PrintGrowth(out, row + "10k", row + "100k");
            PrintGrowth(out, row + "100k", row + "1M");
        }
        out << "\nsave, time of the exact save (DoubleText::RoundTrip) over the default's:";
        for (const auto& [name, make] : JsonDocumentMakers()) {
            const std::string row = "save/" + name;
            out << "  " << name << " ";
            PrintFigure(out, 0, Ratio(Get(row, "tarsel_exact").milliseconds, Get(row, "tarsel").milliseconds), 2, "x");
        }
        out << "\n";
    }

private:
    struct Result {
        double megabytesPerSecond;
        double milliseconds;
    };

    void PrintRow(std::ostream& out, const std::string& row) const {
        out << std::left << std::setw(22) << row << std::right << std::fixed;
        PrintFigure(out, 13, Get(row, "tarsel").megabytesPerSecond, 1, "");
        for (const char* peer : kPeers) {
            PrintFigure(out, 13, Get(row, peer).megabytesPerSecond, 1, "");
        }
        const double ours = Get(row, "tarsel").milliseconds;
        for (const char* peer : kPeers) {
            PrintFigure(out, 15, Ratio(Get(row, peer).milliseconds, ours), 2, "x");
        }
        const Result parse = Get(row, "parse_floor");
        const Result nodes = Get(row, "node_floor");
        PrintFigure(out, 13, parse.megabytesPerSecond, 1, "");
        PrintFigure(out, 13, nodes.megabytesPerSecond, 1, "");
        PrintFigure(out, 12, parse.milliseconds > 0 && nodes.milliseconds > 0
                                 ? Ratio(ours, parse.milliseconds + nodes.milliseconds) : 0.0, 2, "x");
        PrintFigure(out, 7, 100 * Ratio(Get(row, "tarsel_free").milliseconds, ours), 0, "%");
        out << "\n";
    }

    void PrintGrowth(std::ostream& out, const std::string& smaller, const std::string& larger) const {
        const double growth = Ratio(Get(larger, "tarsel").milliseconds, Get(smaller, "tarsel").milliseconds);
        out << "  " << smaller.substr(smaller.rfind('_') + 1) << " to " << larger.substr(larger.rfind('_') + 1) << " ";
        PrintFigure(out, 0, growth, 1, "x");
    }

    Result Get(const std::string& row, const char* library) const {
        const auto found = m_results.find(row + "/" + library);
        return found == m_results.end() ? Result{0.0, 0.0} : found->second;
    }

    static double Ratio(double numerator, double denominator) {
        return numerator > 0 && denominator > 0 ? numerator / denominator : 0.0;
    }

    static void PrintFigure(std::ostream& out, int width, double value, int precision, const char* unit) {
        if (value > 0) {
            out << std::setw(width) << std::setprecision(precision) << value << unit;
        } else {
            out << std::setw(width + static_cast<int>(std::strlen(unit))) << "-";
        }
    }

    std::map<std::string, Result> m_results;
};

}  // namespace

int main(int argc, char** argv) {
    TarselBench::KeepFreedMemory();
    RegisterAll();
    benchmark::Initialize(&argc, argv);
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintSummary(std::cout);
    benchmark::Shutdown();
    return 0;
}
