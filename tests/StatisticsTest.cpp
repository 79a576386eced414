#include <Core/Interfaces/Statistics.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace Tarsel::Core;

TEST(Statistics, ClientOnlyNamesHaveTheirTexts) {
    EXPECT_EQ(PerformanceTimer::IMPL_NAME, "Impl ID");
    EXPECT_EQ(IComputingResource::CPU + IComputingResource::CUDA + IComputingResource::IM, "CPUCUDAIM");
}

TEST(ExtractClassName, CutsBeforeTheLastDoubleColon) {
    const struct {
        const char *name, *expected;
    } cases[] = {
        {"Tarsel::Core::Decoder::Process", "Tarsel::Core::Decoder"},
        {"Decoder", "Decoder"},    // no colon: whole
        {":Decoder", ":Decoder"},  // the only colon at position 0: whole
        {"A:B", ""},               // a single colon cuts one character early
        {"", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ExtractClassName(c.name), c.expected) << c.name;
    }
}

TEST(MakeStatistics, BuildsAFlatRecordInOrder) {
    const Property record = MakeStatistics("Tarsel::Core::Decoder::Process", 2500000, 100);
    const char* names[] = {"Class name", "Working time", "Processed data count", "ms per frame"};
    EXPECT_EQ(record.GetName(), "");
    ASSERT_EQ(record.Count(), 4u);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(record[i].GetName(), names[i]);
    }
    EXPECT_EQ(record[0].GetString(), "Tarsel::Core::Decoder");
    EXPECT_EQ(record[1].GetDouble(), 2.5);
    EXPECT_EQ(record[2].GetInt64(), 100);
    EXPECT_EQ(record[3].GetDouble(), 25.0);
}

TEST(MakeStatistics, ZeroCountStoresInfinityOrNaN) {
    EXPECT_EQ(MakeStatistics("X::Y", 1000, 0)["ms per frame"].GetDouble(), std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(MakeStatistics("X::Y", 0, 0)["ms per frame"].GetDouble()));
}

TEST(GetNoImplItem, HoldsOneItemWithClassNameAndInfo) {
    const Property record = GetNoImplItem("X::Y");
    ASSERT_EQ(record.Count(), 1u);
    const Property& item = record[0];
    ASSERT_EQ(item.Count(), 2u);
    EXPECT_EQ(item[0].GetName(), "Class name");
    EXPECT_EQ(item[0].GetString(), "X");
    EXPECT_EQ(item[1].GetName(), "Info");
    EXPECT_EQ(item[1].GetString(), "Statistic collection not implemented");
}
