// The text of saved doubles, checked and timed: before anything is measured,
// over eleven million doubles, what Serialize writes for each is compared
// with C's snprintf("%#g") (tests/support/DoubleText.h: with a zero after a
// bare final point), and the program fails on the first mismatches. Then the
// cost of a double in saved text against snprintf("%#g") alone.
#include "support/DoubleText.h"

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <benchmark/benchmark.h>

#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

// Any finite double, subnormals included, from uniformly random bits.
double RandomFiniteDouble(std::mt19937_64& random) {
    for (;;) {
        const std::uint64_t bits = random();
        double value;
        std::memcpy(&value, &bits, sizeof value);
        if (std::isfinite(value)) {
            return value;
        }
    }
}

// A value as settings hold them: a few decimal digits at a scale from 1e-25
// to 1e25, read from text, so mostly not exact in binary (29.97, 0.25, 1.5e-7).
double RandomDecimalDouble(std::mt19937_64& random) {
    std::uint64_t limit = 10;
    for (int digits = static_cast<int>(random() % 9); digits > 0; --digits) {
        limit *= 10;
    }
    const std::uint64_t mantissa = random() % limit;
    const int exponent = static_cast<int>(random() % 51) - 25;
    const std::string text = std::to_string(mantissa) + "e" + std::to_string(exponent);
    return std::strtod(text.c_str(), nullptr);
}

// A six-digit tie d.ddddd5 at a random exponent, or one ulp beside it: the
// doubles whose rounding only the exact binary value decides.
double RandomNearTie(std::mt19937_64& random) {
    const std::uint64_t digits = 1000000 + random() % 9000000;
    const int exponent = static_cast<int>(random() % 61) - 30;
    char text[40];
    std::snprintf(text, sizeof text, "%" PRIu64 "5e%d", digits / 10, exponent);
    const double tie = std::strtod(text, nullptr);
    switch (random() % 3) {
    case 0:
        return std::nextafter(tie, 0.0);
    case 1:
        return std::nextafter(tie, HUGE_VAL);
    default:
        return tie;
    }
}

// The doubles compared: the boundaries with a thousand ulps on each side,
// then random ones of three kinds, eleven million in all.
std::vector<double> DoublesToCompare() {
    std::vector<double> values = TarselTest::BoundaryDoubles(1000);
    std::mt19937_64 random(20261123);
    while (values.size() < 11000000) {
        values.push_back(RandomFiniteDouble(random));
        values.push_back(RandomDecimalDouble(random));
        values.push_back(RandomNearTie(random));
    }
    return values;
}

std::string SavedText(double value) {
    const auto output = MemoryDataOutput::Create();
    PropertySerializer::Serialize(Property("d", value), output, false);
    return output->GetData();
}

// Compares every double; prints the count and the first mismatches. Returns
// whether all agreed.
bool SavedDoublesAreThoseOfPercentHashG() {
    const std::vector<double> values = DoublesToCompare();
    std::size_t mismatches = 0;
    std::size_t subnormals = 0;
    for (const double value : values) {
        subnormals += std::fpclassify(value) == FP_SUBNORMAL ? 1 : 0;
        const std::string saved = SavedText(value);
        const std::string expected = TarselTest::SavedDoubleText(value);
        if (saved != expected && ++mismatches <= 10) {
            std::printf("mismatch: %.17g saved as %s, \"%%#g\" gives %s\n", value, saved.c_str(), expected.c_str());
        }
    }
    std::printf("%zu doubles (%zu subnormal) saved and compared with snprintf(\"%%#g\"): %zu mismatches\n",
                values.size(), subnormals, mismatches);
    return mismatches == 0;
}

// --- Timing ----------------------------------------------------------------------

constexpr std::size_t kTimedDoubles = 100000;

const std::vector<double>& TimedDoubles() {
    static const std::vector<double> values = [] {
        std::mt19937_64 random(5);
        std::vector<double> result;
        for (std::size_t i = 0; i < kTimedDoubles; ++i) {
            result.push_back(RandomDecimalDouble(random));
        }
        return result;
    }();
    return values;
}

// Saves list, of kTimedDoubles members, once per iteration.
void TimeSaving(benchmark::State& state, const Property& list) {
    for (auto _ : state) {
        const auto output = MemoryDataOutput::Create();
        PropertySerializer::Serialize(list, output, false);
        benchmark::DoNotOptimize(output->GetData().data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kTimedDoubles));
}

// A container of the doubles, saved: the time of a member with its key.
void BM_SaveContainerOfDoubles(benchmark::State& state) {
    Property list("list");
    for (const double value : TimedDoubles()) {
        list.Add(Property("", value));
    }
    TimeSaving(state, list);
}
BENCHMARK(BM_SaveContainerOfDoubles);

// The same container with integers: the time of a member without a double.
void BM_SaveContainerOfIntegers(benchmark::State& state) {
    Property list("list");
    for (const double value : TimedDoubles()) {
        list.Add(Property("", static_cast<long long>(value)));
    }
    TimeSaving(state, list);
}
BENCHMARK(BM_SaveContainerOfIntegers);

// snprintf("%#g") of the same doubles into one buffer: the C library's cost.
void BM_SnprintfPercentHashG(benchmark::State& state) {
    std::vector<char> buffer(kTimedDoubles * 16);
    for (auto _ : state) {
        char* out = buffer.data();
        for (const double value : TimedDoubles()) {
            out += std::snprintf(out, 16, "%#g", value);
        }
        benchmark::DoNotOptimize(out);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kTimedDoubles));
}
BENCHMARK(BM_SnprintfPercentHashG);

}  // namespace

int main(int argc, char** argv) {
    if (!SavedDoublesAreThoseOfPercentHashG()) {
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
