// Scaling of the property tree's child operations: appending, path lookup,
// and the whole-tree walks (copy, comparison, destruction, printing) on a
// settings-sized tree of 10,000 nodes.
#include <Core/Interfaces/Property.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <ostream>
#include <streambuf>
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

// The copy alone: the previous copy is destroyed with the clock stopped.
void BM_CopyTree10k(benchmark::State& state) {
    const Property source = MakeCompareTree(false);
    std::unique_ptr<Property> copy;
    for (auto _ : state) {
        state.PauseTiming();
        copy.reset();
        state.ResumeTiming();
        copy = std::make_unique<Property>(source);
        benchmark::DoNotOptimize(copy.get());
    }
    state.SetItemsProcessed(state.iterations() * 10001);
}
BENCHMARK(BM_CopyTree10k)->Unit(benchmark::kMicrosecond);

// The destruction alone: the tree to destroy is copied with the clock stopped.
void BM_DestroyTree10k(benchmark::State& state) {
    const Property source = MakeCompareTree(false);
    for (auto _ : state) {
        state.PauseTiming();
        auto copy = std::make_unique<Property>(source);
        state.ResumeTiming();
        copy.reset();
        benchmark::DoNotOptimize(copy.get());
    }
    state.SetItemsProcessed(state.iterations() * 10001);
}
BENCHMARK(BM_DestroyTree10k)->Unit(benchmark::kMicrosecond);

// Printing into a stream that discards its text through a fixed buffer, so
// that the figure is the walk and the formatting, not a growing string.
class DiscardingBuffer : public std::streambuf {
public:
    DiscardingBuffer() { setp(m_data, m_data + sizeof m_data); }

private:
    int_type overflow(int_type c) override {
        setp(m_data, m_data + sizeof m_data);
        return traits_type::not_eof(c);
    }
    char m_data[4096];
};

void BM_PrintTree10k(benchmark::State& state) {
    const Property tree = MakeCompareTree(false);
    DiscardingBuffer buffer;
    std::ostream out(&buffer);
    for (auto _ : state) {
        PrintPropertyValue(tree, 0, out, true, true);
    }
    state.SetItemsProcessed(state.iterations() * 10001);
}
BENCHMARK(BM_PrintTree10k)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
