// Scaling of the property tree's child operations: appending, path lookup and
// whole-tree comparison.
#include <Core/Interfaces/Property.h>

#include <benchmark/benchmark.h>

#include <string>

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

// Appending with Add: linear overall if Add is O(1) apart from naming.
void BM_AddChildren(benchmark::State& state) {
    const Property element("element", 42);
    for (auto _ : state) {
        Property array("array");
        for (int64_t i = 0; i < state.range(0); ++i) {
            array.Add(element);
        }
        benchmark::DoNotOptimize(&array);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_AddChildren)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

// A 6-level path whose every level also holds 20 siblings before the one the
// path takes, so each step scans like a real settings group.
Property MakePathTree(std::string* path) {
    Property root("root");
    Property* level = &root;
    for (int depth = 0; depth < 6; ++depth) {
        for (int s = 0; s < 20; ++s) {
            level->CreateChildT<long long>("sibling" + std::to_string(s), s);
        }
        const std::string name = "level" + std::to_string(depth);
        *path += "/" + name;
        level = &level->SetChild(name);
    }
    level->SetChildT<double>("fps", 29.97);
    *path += "/fps";
    return root;
}

void BM_ChildByPath6Levels(benchmark::State& state) {
    std::string path;
    const Property root = MakePathTree(&path);
    for (auto _ : state) {
        benchmark::DoNotOptimize(&root.ChildByPath(path));
    }
}
BENCHMARK(BM_ChildByPath6Levels);

void BM_ChildExistsByPath6Levels(benchmark::State& state) {
    std::string path;
    const Property root = MakePathTree(&path);
    for (auto _ : state) {
        benchmark::DoNotOptimize(root.ChildExistsByPath(path));
    }
}
BENCHMARK(BM_ChildExistsByPath6Levels);

// 10,000 nodes: 100 groups of 99 values; the second tree lists every group's
// children in reverse order, so the comparison has to pair them by name.
Property MakeCompareTree(bool reversed) {
    Property root("root");
    for (int g = 0; g < 100; ++g) {
        Property& group = root.SetChild("group" + std::to_string(g));
        for (int i = 0; i < 99; ++i) {
            const int c = reversed ? 98 - i : i;
            group.CreateChildT<double>("value" + std::to_string(c), c * 0.5);
        }
    }
    return root;
}

void BM_CompareTrees10k(benchmark::State& state) {
    const Property a = MakeCompareTree(false);
    const Property b = MakeCompareTree(true);
    for (auto _ : state) {
        benchmark::DoNotOptimize(a == b);
    }
    state.SetItemsProcessed(state.iterations() * 10001);
}
BENCHMARK(BM_CompareTrees10k)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
