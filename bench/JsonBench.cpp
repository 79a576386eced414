// JSON load and save throughput of PropertySerializer against RapidJSON's DOM,
// nlohmann::json and boost.property_tree, on the same documents in one run.
// Throughput is the size of the source document over the time, in every
// column, so the columns compare the same information.
#include "BenchSupport.h"
#include "support/JsonDocuments.h"

#include <Core/Interfaces/PropertySerializer.h>

#include <benchmark/benchmark.h>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <map>
#include <sstream>

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

void TarselSave(benchmark::State& state, const std::string* name) {
    const std::string& document = Document(*name);
    Property tree("root");
    PropertySerializer::Deserialize(tree, new BufferInput(document), false);
    for (auto _ : state) {
        const auto out = MemoryDataOutput::Create();
        PropertySerializer::Serialize(tree, out, false);
        benchmark::DoNotOptimize(out->GetData().data());
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
// loads with (it needs no stack in proportion to the depth): the floor under
// our own load.
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

const char* const kLibraries[] = {"tarsel", "rapidjson", "rj_iterative", "nlohmann", "ptree"};

void RegisterAll() {
    using Function = void (*)(benchmark::State&, const std::string*);
    const std::pair<const char*, Function> loads[] = {
        {"tarsel", TarselLoad},     {"rapidjson", RapidJsonLoad}, {"rj_iterative", RapidJsonIterativeLoad},
        {"nlohmann", NlohmannLoad}, {"ptree", PropertyTreeLoad}};
    const std::pair<const char*, Function> saves[] = {
        {"tarsel", TarselSave}, {"rapidjson", RapidJsonSave}, {"nlohmann", NlohmannSave}, {"ptree", PropertyTreeSave}};
    for (const auto& [name, make] : JsonDocumentMakers()) {
        for (const auto& [library, function] : loads) {
            benchmark::RegisterBenchmark(("load/" + name + "/" + library).c_str(), function, &name)
                ->Unit(benchmark::kMillisecond)
                ->MinTime(1.0)
                ->MinWarmUpTime(0.5);
        }
        for (const auto& [library, function] : saves) {
            benchmark::RegisterBenchmark(("save/" + name + "/" + library).c_str(), function, &name)
                ->Unit(benchmark::kMillisecond)
                ->MinTime(1.0)
                ->MinWarmUpTime(0.5);
        }
    }
}

// Prints the usual console output and keeps each benchmark's throughput
// (the median when repeated) for the summary table.
class CollectingReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.run_type == Run::RT_Iteration || median) {
                const auto bytes = run.counters.find("bytes_per_second");
                if (bytes != run.counters.end()) {
                    m_megabytesPerSecond[run.run_name.function_name] = bytes->second.value / 1e6;
                }
            }
        }
    }

    // One row per operation and document: each library's MB/s, then ours over
    // each peer's. A dash marks what was not measured (filtered out, or no
    // such variant: rj_iterative only loads).
    void PrintSummary(std::ostream& out) const {
        out << "\nMB/s of the source document (ratio: tarsel / peer)\n"
            << std::left << std::setw(22) << "operation/document" << std::right;
        for (const char* library : kLibraries) {
            out << std::setw(13) << library;
        }
        for (const char* peer : kLibraries) {
            if (std::string(peer) != "tarsel") {
                out << std::setw(16) << "vs " + std::string(peer);
            }
        }
        out << "\n";
        for (const char* operation : {"load", "save"}) {
            for (const auto& [name, make] : JsonDocumentMakers()) {
                const std::string row = std::string(operation) + "/" + name;
                out << std::left << std::setw(22) << row << std::right << std::fixed;
                for (const char* library : kLibraries) {
                    PrintFigure(out, 13, Value(row, library), 1, "");
                }
                const double ours = Value(row, "tarsel");
                for (const char* peer : kLibraries) {
                    if (std::string(peer) != "tarsel") {
                        const double theirs = Value(row, peer);
                        PrintFigure(out, 15, ours > 0 && theirs > 0 ? ours / theirs : 0.0, 2, "x");
                    }
                }
                out << "\n";
            }
        }
    }

private:
    double Value(const std::string& row, const char* library) const {
        const auto found = m_megabytesPerSecond.find(row + "/" + library);
        return found == m_megabytesPerSecond.end() ? 0.0 : found->second;
    }

    static void PrintFigure(std::ostream& out, int width, double value, int precision, const char* unit) {
        if (value > 0) {
            out << std::setw(width) << std::setprecision(precision) << value << unit;
        } else {
            out << std::setw(width + static_cast<int>(std::strlen(unit))) << "-";
        }
    }

    std::map<std::string, double> m_megabytesPerSecond;
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
