// The cost of the library's throw path against a bare standard throw, and of
// deep-copying a property tree.
#include <Core/Interfaces/Property.h>

#include <benchmark/benchmark.h>

#include <stdexcept>

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

// 10,000 nodes: 100 groups of 99 scalar children, plus the groups and root.
Property MakeTree(int groups, int childrenPerGroup) {
    Property root("root");
    for (int g = 0; g < groups; ++g) {
        Property& group = root.SetChild("group" + std::to_string(g));
        for (int c = 0; c < childrenPerGroup; ++c) {
            switch (c % 3) {
            case 0:
                group.CreateChildT<long long>("int" + std::to_string(c), c);
                break;
            case 1:
                group.CreateChildT<double>("double" + std::to_string(c), c * 0.5);
                break;
            default:
                group.CreateChildT<std::string>("string" + std::to_string(c), "value number " + std::to_string(c));
            }
        }
    }
    return root;
}

void BM_ThrowCatch_WrongTypeIsRequested(benchmark::State& state) {
    const Property node("node");
    for (auto _ : state) {
        try {
            node.GetBool();
        } catch (const WrongTypeIsRequested& e) {
            benchmark::DoNotOptimize(&e);
        }
    }
}
BENCHMARK(BM_ThrowCatch_WrongTypeIsRequested);

[[gnu::noinline]] void ThrowRuntimeError() {
    throw std::runtime_error("wrong type");
}

void BM_ThrowCatch_StdRuntimeError(benchmark::State& state) {
    for (auto _ : state) {
        try {
            ThrowRuntimeError();
        } catch (const std::runtime_error& e) {
            benchmark::DoNotOptimize(&e);
        }
    }
}
BENCHMARK(BM_ThrowCatch_StdRuntimeError);

void BM_CopyTree10k(benchmark::State& state) {
    const Property tree = MakeTree(100, 99);
    for (auto _ : state) {
        Property copy(tree);
        benchmark::DoNotOptimize(&copy);
    }
    state.SetItemsProcessed(state.iterations() * 10001);
}
BENCHMARK(BM_CopyTree10k);

}  // namespace

BENCHMARK_MAIN();
