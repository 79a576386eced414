// Feeds arbitrary doubles to the exact save and back to the load, and holds
// them to their promise: every finite double saved with
// DoubleText::RoundTrip loads back as a double with the same bits. An input
// is read as doubles, eight bytes each (the ones not finite, which any save
// writes as null, are passed over). Before the first input, the doubles
// where text is hardest to get right are checked once: both sides of every
// power of ten, of every six-digit rounding boundary and of every power of
// two, and the ends of the subnormals. At exit it says how many doubles it
// checked.
#include "FuzzCheck.h"
#include "support/DoubleText.h"

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/Property.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using namespace Tarsel;
using namespace Tarsel::Core;

std::size_t g_checked = 0;

void CheckRoundTrip(const std::vector<double>& values) {
    Property saved("batch");
    for (const double value : values) {
        saved.Add(Property("", value));
    }
    const auto output = MemoryDataOutput::Create();
    PropertySerializer::Serialize(saved, output, false, PropertySerializer::DoubleText::RoundTrip);
    Property loaded("batch");
    PropertySerializer::Deserialize(loaded, MemoryDataInput::Create(output->GetData()), false);
    TARSEL_FUZZ_CHECK(loaded.Count() == values.size());
    auto value = values.begin();
    for (const Property& child : loaded) {
        TARSEL_FUZZ_CHECK(child.GetType() == TypeDouble);
        const double back = child.GetDouble();
        TARSEL_FUZZ_CHECK(std::memcmp(&back, &*value, sizeof back) == 0);
        ++value;
    }
    g_checked += values.size();
}

void CheckInBatches(const std::vector<double>& values) {
    constexpr std::size_t kBatch = 4096;
    std::vector<double> batch;
    for (const double value : values) {
        batch.push_back(value);
        if (batch.size() == kBatch) {
            CheckRoundTrip(batch);
            batch.clear();
        }
    }
    if (!batch.empty()) {
        CheckRoundTrip(batch);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    CheckInBatches(TarselTest::BoundaryDoubles(3));
    CheckInBatches(TarselTest::PowerOfTwoDoubles(3));
    std::atexit([] { std::fprintf(stderr, "RoundTripFuzz: %zu doubles loaded back bit for bit\n", g_checked); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<double> values;
    for (std::size_t at = 0; at + sizeof(double) <= size; at += sizeof(double)) {
        double value;
        std::memcpy(&value, data + at, sizeof value);
        if (std::isfinite(value)) {
            values.push_back(value);
        }
    }
    if (!values.empty()) {
        CheckRoundTrip(values);
    }
    return 0;
}
