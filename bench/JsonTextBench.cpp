// Reading names and strings back from a JsonText, against copying the bytes
// they are written with: each name or string costs its own length, whatever
// the size of the text around it. The complexity fitted over the sizes shows
// it: N for N members, where a decoding that looked past its string's end
// for an escape showed N^2 (4.5 million keys a second at 256 members, 31
// thousand at 131072).
#include <Core/Interfaces/JsonText.h>

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

}  // namespace

BENCHMARK(BM_Key)->RangeMultiplier(8)->Range(1 << 8, 1 << 17)->Complexity();
BENCHMARK(BM_KeySpelling)->RangeMultiplier(8)->Range(1 << 8, 1 << 17)->Complexity();
BENCHMARK(BM_StringValue)->RangeMultiplier(8)->Range(1 << 8, 1 << 17)->Complexity();
BENCHMARK(BM_Spelling)->RangeMultiplier(8)->Range(1 << 8, 1 << 17)->Complexity();

BENCHMARK_MAIN();
