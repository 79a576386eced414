// The free-name finder when a thousand numbered names are taken, against the
// bare status calls it cannot avoid; and the grouping of files by folder
// against a one-pass grouping with the same output.
#include <Core/Interfaces/FileUtils.h>

#include <benchmark/benchmark.h>
#include <boost/filesystem.hpp>

#include <algorithm>
#include <set>

using namespace Tarsel;
using namespace Tarsel::Core;
namespace fs = boost::filesystem;

namespace {

constexpr int kTakenNames = 1000;

// A temporary folder holding "report.txt", "report (1).txt" ...
// "report (999).txt", removed at exit.
class TakenNames {
public:
    TakenNames() : m_dir(fs::temp_directory_path() / fs::unique_path("tarsel-bench-%%%%-%%%%")) {
        fs::create_directory(m_dir);
        for (int i = 0; i < kTakenNames; ++i) {
            m_files.push_back(m_dir / (i == 0 ? "report.txt" : "report (" + std::to_string(i) + ").txt"));
            fs::ofstream(m_files.back()) << "x";
        }
    }
    ~TakenNames() { fs::remove_all(m_dir); }

    const fs::path& Dir() const { return m_dir; }
    const std::vector<fs::path>& Files() const { return m_files; }

private:
    fs::path m_dir;
    std::vector<fs::path> m_files;
};

const TakenNames& Taken() {
    static const TakenNames taken;
    return taken;
}

void BM_UpdateFilePathIfExist_1000Taken(benchmark::State& state) {
    const ioPath proposed = Taken().Dir() / "report";
    const ioPath expected = Taken().Dir() / "report (1000).txt";
    for (auto _ : state) {
        ioPath path = proposed;
        UpdateFilePathIfExist(nullptr, false, "txt", &path);
        if (!(path == expected)) {
            state.SkipWithError("unexpected free name");
            break;
        }
    }
}
BENCHMARK(BM_UpdateFilePathIfExist_1000Taken)->Unit(benchmark::kMicrosecond);

// The floor: the 1,001 status calls the counter walk makes, nothing else.
void BM_StatusCalls_1001(benchmark::State& state) {
    std::vector<fs::path> paths = Taken().Files();
    paths.push_back(Taken().Dir() / "report (1000).txt");
    for (auto _ : state) {
        for (const fs::path& path : paths) {
            benchmark::DoNotOptimize(fs::status(path).type());
        }
    }
}
BENCHMARK(BM_StatusCalls_1001)->Unit(benchmark::kMicrosecond);

using FolderMap = std::map<ioPath, std::vector<ioPath>>;

// The peer: one pass over the input, a set of the files already listed per
// folder. Same keys, same lists, same first spellings.
FolderMap OnePassDirectoryToFileListMap(const std::vector<ioPath>& files) {
    FolderMap groups;
    std::map<ioPath, std::set<ioPath>> listed;
    for (const ioPath& file : files) {
        const ioPath folder = file.parent_path();
        if (listed[folder].insert(file).second) {
            groups[folder].push_back(file);
        }
    }
    return groups;
}

// files paths spread round-robin over folders folders; every tenth one
// repeats the one before it, spelt with "//".
std::vector<ioPath> MakeFiles(int files, int folders) {
    std::vector<ioPath> paths;
    for (int i = 0; i < files; ++i) {
        const int clip = i % 10 == 9 ? i - 1 : i;
        const std::string folder = "/media/project/folder" + std::to_string(clip % folders);
        paths.push_back(folder + (clip == i ? "/" : "//") + "clip" + std::to_string(clip) + ".mov");
    }
    return paths;
}

// Byte-for-byte: the same keys and files, in the same order and spellings.
bool SameText(const FolderMap& a, const FolderMap& b) {
    const auto sameFiles = [](const std::vector<ioPath>& x, const std::vector<ioPath>& y) {
        return std::equal(x.begin(), x.end(), y.begin(), y.end(),
                          [](const ioPath& p, const ioPath& q) { return p.utf8string() == q.utf8string(); });
    };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&](const auto& x, const auto& y) {
        return x.first.utf8string() == y.first.utf8string() && sameFiles(x.second, y.second);
    });
}

template <FolderMap (*Group)(const std::vector<ioPath>&)>
void BM_Group(benchmark::State& state) {
    const std::vector<ioPath> files = MakeFiles(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    if (!SameText(OnePassDirectoryToFileListMap(files), MakeDirectoryToFileListMap(files))) {
        state.SkipWithError("the peer's output differs");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(Group(files));
    }
}
BENCHMARK_TEMPLATE(BM_Group, MakeDirectoryToFileListMap)
    ->Args({500, 50})
    ->Args({2000, 50})
    ->Args({2000, 500})  // the rescan grows with folders times files
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Group, OnePassDirectoryToFileListMap)
    ->Args({500, 50})
    ->Args({2000, 50})
    ->Args({2000, 500})  // the rescan grows with folders times files
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
