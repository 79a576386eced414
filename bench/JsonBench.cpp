// JSON load and save throughput of PropertySerializer against RapidJSON's DOM,
// nlohmann::json and boost.property_tree, and loading against its floors, on
// the same documents in one run. Throughput is the size of the source
// document over the time, in every column, so the columns compare the same
// information. Every load, ours and the peers', includes freeing what it
// built, as an application frees the tree it replaces.
//
// The floors are what no load of ours can go below: reading the text
// (parse_floor) and the tree of real nodes that the public interface fixes,
// built and freed as a load does (node_floor). With --count=... the program
// runs chosen operations for an instruction count instead (see the end);
// with --check, every benchmark once, unmeasured, for what they check.
#include "BenchSupport.h"
#include "NodePlan.h"
#include "support/JsonDocuments.h"

#include <Core/Interfaces/PropertySerializer.h>
#include <Core/Interfaces/internal/JsonTextStream.h>

#include <benchmark/benchmark.h>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

// Callgrind's requests, when valgrind's headers are installed: they only
// speed the instruction count up (see StartInstrumentation).
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#define TARSEL_BENCH_CALLGRIND_REQUESTS 1
#else
#define TARSEL_BENCH_CALLGRIND_REQUESTS 0
#endif

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

// --- The measured operations ----------------------------------------------------
// Each is set up once from a document, outside what is measured, and then run
// as often as asked: by a benchmark's timed loop (Measure), or by the count of
// instructions (Count, at the end), which so counts exactly what a row times.

// A load into a fresh tree, and the tree freed, as an application frees the
// tree it replaces.
class Load {
public:
    explicit Load(const std::string& document) : m_document(document) {}
    void operator()() const {
        Property tree("root");
        PropertySerializer::Deserialize(tree, new BufferInput(m_document), false);
        benchmark::DoNotOptimize(&tree);
    }

private:
    const std::string& m_document;
};

// Saving with the given double text: the default (SixDigits), or the exact
// save beside it.
template <PropertySerializer::DoubleText kDoubleText>
class Save {
public:
    explicit Save(const std::string& document) : m_tree("root") {
        PropertySerializer::Deserialize(m_tree, new BufferInput(document), false);
    }
    void operator()() const {
        const auto out = MemoryDataOutput::Create();
        PropertySerializer::Serialize(m_tree, out, false, kDoubleText);
        benchmark::DoNotOptimize(out->GetData().data());
    }

private:
    Property m_tree;
};

// --- Floors ------------------------------------------------------------------------
// What no load can go below, measured in the same run: reading the document
// (the parse floor) and building and freeing the tree of it (the node floor).

// The parse floor: the input copied into a buffer, as a load reads it, and
// RapidJSON's reader with the library's flags (iterative, in place, numbers
// handed over as text, which the library then reads itself) feeding a
// handler that does nothing.
class ParseFloor {
public:
    explicit ParseFloor(const std::string& document) : m_document(document), m_copy(document.size() + 1) {}
    void operator()() {
        std::memcpy(m_copy.data(), m_document.c_str(), m_document.size() + 1);
        rapidjson::InsituStringStream stream(m_copy.data());
        rapidjson::BaseReaderHandler<> nothing;
        rapidjson::Reader reader;
        constexpr unsigned kFlags =
            rapidjson::kParseIterativeFlag | rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag;
        benchmark::DoNotOptimize(reader.Parse<kFlags>(stream, nothing).IsError());
    }

private:
    const std::string& m_document;
    std::vector<char> m_copy;
};

Property LoadedTree(const std::string& document) {
    Property tree("root");
    PropertySerializer::Deserialize(tree, new BufferInput(document), false);
    return tree;
}

// The node floor: the tree of the document made of real nodes, Property in
// std::list with its default allocator, exactly as a load makes them (see
// NodePlan), and freed by the tree's own destructor. Around the nodes, the
// memory a load uses besides: first the zeroed buffer of the document's size
// that it reads the text into, freed once the tree is built, so that the cost
// of the allocator reusing the previous tree's freed nodes is in the floor
// too. Copying the text into that buffer is the parse floor's.
class NodeFloor {
public:
    explicit NodeFloor(const std::string& document)
        : m_bufferSize(document.size() + Json::kTextPadding), m_plan(LoadedTree(document)) {}
    void operator()() {
        Property tree("root");
        void* const buffer = std::calloc(m_bufferSize, 1);
        if (buffer == nullptr) {
            throw std::bad_alloc();
        }
        benchmark::DoNotOptimize(buffer);
        m_plan.Build(tree);
        std::free(buffer);
        benchmark::DoNotOptimize(&tree);
    }

private:
    std::size_t m_bufferSize;
    TarselBench::NodePlan m_plan;
};

// --- Benchmarks ------------------------------------------------------------------

void SetBytes(benchmark::State& state, const std::string& document) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * document.size()));
}

template <class Operation>
void Measure(benchmark::State& state, const std::string* name) {
    const std::string& document = Document(*name);
    Operation operation(document);
    for (auto _ : state) {
        operation();
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

// The node floor as it was first written, kept to compare with: bare blocks
// of the sizes a load allocates, in the order it allocates them, written
// whole and freed, with no list, no constructor and no destructor. What
// loading a document allocates: for each node of the tree, the node of
// std::list<Property> (the Property and the list's two links), then its name
// and its string value where they do not fit inside the string object.
std::vector<std::size_t> LoadAllocations(const std::string& document) {
    const std::size_t nodeSize = sizeof(Property) + 2 * sizeof(void*);
    const std::size_t inPlace = std::string().capacity();
    const Property tree = LoadedTree(document);
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

// A zeroed buffer of the document's size, then every block, each written
// whole, then the buffer freed, then the blocks.
void BlockFloor(benchmark::State& state, const std::string* name) {
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

// How the benchmarks run: measured, or checked (--check): the library's own
// operations and the floors once each, one iteration, the fewest Google
// Benchmark runs, so that each is set up and run once, NodePlan's check that
// it builds the load's tree among them. The peers check nothing of ours and
// are left out, and so is flat_1M, which has flat_100k's shape: in the Debug
// build that CI checks with, they took four minutes of the check's five.
enum class Mode { Measure, Check };

bool IsPeer(std::string_view library) {
    return std::find(std::begin(kPeers), std::end(kPeers), library) != std::end(kPeers);
}

// Measured: medians of three runs of at least minTime seconds each, after
// half a second of warming up.
void Register(const std::string& operation, const std::string& document, const char* library, Function function,
              double minTime, Mode mode) {
    if (mode == Mode::Check && (IsPeer(library) || document == "flat_1M")) {
        return;
    }
    const std::string name = operation + "/" + document + "/" + library;
    benchmark::internal::Benchmark* const benchmark =
        benchmark::RegisterBenchmark(name.c_str(), function, &document)->Unit(benchmark::kMillisecond);
    if (mode == Mode::Check) {
        benchmark->Iterations(1);
        return;
    }
    benchmark->MinTime(minTime)->MinWarmUpTime(0.5)->Repetitions(3)->ReportAggregatesOnly(true);
}

void RegisterAll(Mode mode) {
    using Text = PropertySerializer::DoubleText;
    const std::pair<const char*, Function> loads[] = {
        {"tarsel", Measure<Load>},          {"rapidjson", RapidJsonLoad}, {"rj_iterative", RapidJsonIterativeLoad},
        {"nlohmann", NlohmannLoad},         {"ptree", PropertyTreeLoad},  {"parse_floor", Measure<ParseFloor>},
        {"node_floor", Measure<NodeFloor>}, {"block_floor", BlockFloor}};
    const std::pair<const char*, Function> saves[] = {{"tarsel", Measure<Save<Text::SixDigits>>},
                                                      {"tarsel_exact", Measure<Save<Text::RoundTrip>>},
                                                      {"rapidjson", RapidJsonSave},
                                                      {"nlohmann", NlohmannSave},
                                                      {"ptree", PropertyTreeSave}};
    // Each benchmark keeps the address of its document's name, which
    // JsonDocumentMakers holds for the whole run.
    for (const auto& [name, make] : JsonDocumentMakers()) {
        for (const auto& [library, function] : loads) {
            Register("load", name, library, function, 1.0, mode);
        }
        // Each timed free needs an untimed load before it.
        Register("load", name, "tarsel_free", TarselFree, 0.2, mode);
        for (const auto& [library, function] : saves) {
            Register("save", name, library, function, 1.0, mode);
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
    // rj_iterative and the floors only load). Then the load over the floors
    // with the earlier node floor of bare blocks, and how the time grows
    // with ten times the elements.
    void PrintSummary(std::ostream& out) const {
        out << "\nMB/s of the source document, medians (ratio: tarsel / peer; load/floors: tarsel's load time over "
               "the sum of the parse floor's and the node floor's, the node floor being the document's tree of real "
               "nodes, Property in std::list, built and freed as a load does; free: the share of tarsel's load that "
               "frees the tree)\n"
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
        out << "\nload, time over the parse floor and the block floor (bare blocks of a load's sizes, no nodes):";
        for (const auto& [name, make] : JsonDocumentMakers()) {
            out << "  " << name << " ";
            PrintFigure(out, 0, FloorsRatio("load/" + name, "block_floor"), 2, "x");
        }
        out << "\n\nTimes swing between runs on shared machines; scripts/bench-instructions counts the instructions, "
               "which do not.";
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
        PrintFigure(out, 13, Get(row, "parse_floor").megabytesPerSecond, 1, "");
        PrintFigure(out, 13, Get(row, "node_floor").megabytesPerSecond, 1, "");
        PrintFigure(out, 12, FloorsRatio(row, "node_floor"), 2, "x");
        PrintFigure(out, 7, 100 * Ratio(Get(row, "tarsel_free").milliseconds, ours), 0, "%");
        out << "\n";
    }

    // Our load time over the parse floor's and the given node floor's.
    double FloorsRatio(const std::string& row, const char* nodeFloor) const {
        const double parse = Get(row, "parse_floor").milliseconds;
        const double nodes = Get(row, nodeFloor).milliseconds;
        return parse > 0 && nodes > 0 ? Ratio(Get(row, "tarsel").milliseconds, parse + nodes) : 0.0;
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

// --- Counting instructions ------------------------------------------------------------
// bench_Json --count=OPERATION[,OPERATION...] --document=NAME [--times=N] runs
// each operation (load, save, parse_floor, node_floor: the rows of those
// names, save with the default double text) on the document N times, 1
// unless told, after one run that is not counted, and does nothing else.
// The instructions are counted from outside by scripts/bench-instructions:
// under callgrind, told to count only inside RunCounted and to write the
// total out each time CountedPass returns; or under perf, as the difference
// from a run of no times.

// The one function whose instructions are counted.
template <class Operation>
[[gnu::noinline]] void RunCounted(Operation& operation, unsigned long times) {
    for (unsigned long i = 0; i < times; ++i) {
        operation();
    }
}

// One count, whose instructions are written out when it returns: a
// function of its own, since callgrind applies one option to a function.
template <class Operation>
[[gnu::noinline]] void CountedPass(Operation& operation, unsigned long times) {
    RunCounted(operation, times);
}

// Under callgrind started with --instr-atstart=no, only the counted passes
// are instrumented: making the document, setting up and the first run go
// several times faster. Without valgrind's header every instruction is
// instrumented instead (scripts/bench-instructions notices and asks for
// that); the counts are the same either way.
void StartInstrumentation() {
#if TARSEL_BENCH_CALLGRIND_REQUESTS
    CALLGRIND_START_INSTRUMENTATION;
#endif
}

void StopInstrumentation() {
#if TARSEL_BENCH_CALLGRIND_REQUESTS
    CALLGRIND_STOP_INSTRUMENTATION;
#endif
}

// The first run, not counted, leaves the allocator as a timed row's warm-up
// does: the counted runs reuse the memory that the trees before them freed.
template <class Operation>
void Count(const std::string& document, unsigned long times) {
    Operation operation(document);
    operation();
    StartInstrumentation();
    CountedPass(operation, times);
    StopInstrumentation();
}

using Counted = void (*)(const std::string&, unsigned long);

Counted CountedOperation(std::string_view name) {
    const std::pair<std::string_view, Counted> operations[] = {
        {"load", Count<Load>},
        {"save", Count<Save<PropertySerializer::DoubleText::SixDigits>>},
        {"parse_floor", Count<ParseFloor>},
        {"node_floor", Count<NodeFloor>}};
    for (const auto& [operationName, count] : operations) {
        if (operationName == name) {
            return count;
        }
    }
    return nullptr;
}

bool IsDocument(const std::string& name) {
    const auto& makers = JsonDocumentMakers();
    return std::any_of(makers.begin(), makers.end(), [&name](const auto& maker) { return maker.first == name; });
}

// What a count is asked for; empty operations when the arguments ask for no
// count. Throws std::invalid_argument naming what it cannot follow.
struct CountRequest {
    std::vector<Counted> operations;
    std::string document;
    unsigned long times = 1;

    static CountRequest FromArguments(int argc, char** argv) {
        CountRequest request;
        std::string_view operations;
        for (int i = 1; i < argc; ++i) {
            const std::string_view argument(argv[i]);
            if (const auto value = Value(argument, "--count=")) {
                operations = *value;
            } else if (const auto document = Value(argument, "--document=")) {
                request.document = std::string(*document);
            } else if (const auto times = Value(argument, "--times=")) {
                const auto [end, error] = std::from_chars(times->data(), times->data() + times->size(), request.times);
                if (error != std::errc() || end != times->data() + times->size()) {
                    throw std::invalid_argument("--times takes a count, not " + std::string(*times));
                }
            }
        }
        for (std::size_t start = 0; start < operations.size();) {
            const std::size_t comma = std::min(operations.find(',', start), operations.size());
            const std::string_view name = operations.substr(start, comma - start);
            const Counted operation = CountedOperation(name);
            if (operation == nullptr) {
                throw std::invalid_argument("no operation " + std::string(name) +
                                            " to count (load, save, parse_floor, node_floor)");
            }
            request.operations.push_back(operation);
            start = comma + 1;
        }
        if (!request.operations.empty() && !IsDocument(request.document)) {
            throw std::invalid_argument("no document \"" + request.document + "\" (--document=NAME)");
        }
        return request;
    }

private:
    static std::optional<std::string_view> Value(std::string_view argument, std::string_view option) {
        if (argument.substr(0, option.size()) != option) {
            return std::nullopt;
        }
        return argument.substr(option.size());
    }
};

}  // namespace

int main(int argc, char** argv) {
    TarselBench::KeepFreedMemory();
    try {
        const CountRequest count = CountRequest::FromArguments(argc, argv);
        if (!count.operations.empty()) {
            for (const Counted operation : count.operations) {
                operation(Document(count.document), count.times);
            }
            return 0;
        }
    } catch (const std::invalid_argument& refused) {
        std::cerr << argv[0] << ": " << refused.what() << "\n";
        return 2;
    }
    const bool check = std::any_of(argv + 1, argv + argc,
                                   [](const char* argument) { return std::string_view(argument) == "--check"; });
    RegisterAll(check ? Mode::Check : Mode::Measure);
    benchmark::Initialize(&argc, argv);
    if (check) {
        benchmark::RunSpecifiedBenchmarks();
        benchmark::Shutdown();
        return 0;
    }
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintSummary(std::cout);
    benchmark::Shutdown();
    return 0;
}
