// Reading names and strings back from a JsonText, against copying the bytes
// they are written with: each name or string costs its own length, whatever
// the size of the text around it. The complexity fitted over the sizes shows
// it: N for N members, where a decoding that looked past its string's end
// for an escape showed N^2 (4.5 million keys a second at 256 members, 31
// thousand at 131072). The same for the edits of a one-line object: adding
// a member costs N, where looking for each member's line from the start of
// the text cost N^2; saving a tree with one member more into the text pairs
// the names through tables, whose misses of the caches make it grow a little
// faster than N (0.08 s at 32768 members, 0.54 s at 131072, 3.1 s at 524288
// on the machine this was written on), never as N^2.
#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/JsonText.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

using namespace Tarsel::Core;

namespace {

// An object of count members, each a name and a string without escapes.
std::string ObjectOf(std::int64_t count) {
    std::string text = "{";
    for (std::int64_t i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        text += (i > 0 ? ",\"member" : "\"member") + number + "\":\"the value of member " + number + "\"";
    }
    return text + "}";
}

// Reads every member of an object of state.range(0) members with read.
template <class Read>
void ReadMembers(benchmark::State& state, Read read) {
    const std::string text = ObjectOf(state.range(0));
    const JsonText json(text, PropertySerializer::JsonSyntax::Strict, JsonText::Rules::Json);
    for (auto _ : state) {
        for (const JsonText::Value member : json.ChildrenOf(json.Root())) {
            benchmark::DoNotOptimize(read(json, member));
        }
    }
    state.SetComplexityN(state.range(0));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_Key(benchmark::State& state) {
    ReadMembers(state, [](const JsonText& json, JsonText::Value member) { return json.Key(member); });
}

void BM_KeySpelling(benchmark::State& state) {
    ReadMembers(state,
                [](const JsonText& json, JsonText::Value member) { return std::string(json.KeySpelling(member)); });
}

void BM_StringValue(benchmark::State& state) {
    ReadMembers(state, [](const JsonText& json, JsonText::Value member) { return json.StringValue(member); });
}

void BM_Spelling(benchmark::State& state) {
    ReadMembers(state, [](const JsonText& json, JsonText::Value member) { return std::string(json.Spelling(member)); });
}

void BM_Append(benchmark::State& state) {
    const std::string text = ObjectOf(state.range(0));
    const JsonText json(text, PropertySerializer::JsonSyntax::Strict, JsonText::Rules::Json);
    for (auto _ : state) {
        benchmark::DoNotOptimize(json.Append(json.Root(), {"new"}, "1"));
    }
    state.SetComplexityN(state.range(0));
}

void BM_UpdateText(benchmark::State& state) {
    const std::string text = ObjectOf(state.range(0));
    Property tree("settings");
    PropertySerializer::Deserialize(tree, MemoryDataInput::Create(text), false);
    tree.SetChildT<long long>("new", 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(PropertySerializer::UpdateText(
            tree, text, false, PropertySerializer::DoubleText::RoundTrip, PropertySerializer::JsonSyntax::Strict));
    }
    state.SetComplexityN(state.range(0));
}

}  // namespace

BENCHMARK(BM_Append)->RangeMultiplier(8)->Range(1 << 8, 1 << 17)->Complexity();
BENCHMARK(BM_UpdateText)->RangeMultiplier(8)->Range(1 << 8, 1 << 17)->Complexity();
BENCHMARK(BM_Key)->RangeMultiplier(8)->Range(1 << 8, 1 << 17)->Complexity();
BENCHMARK(BM_KeySpelling)->RangeMultiplier(8)->Range(1 << 8, 1 << 17)->Complexity();
BENCHMARK(BM_StringValue)->RangeMultiplier(8)->Range(1 << 8, 1 << 17)->Complexity();
BENCHMARK(BM_Spelling)->RangeMultiplier(8)->Range(1 << 8, 1 << 17)->Complexity();

BENCHMARK_MAIN();
