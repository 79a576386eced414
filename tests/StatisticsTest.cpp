#include <Core/Interfaces/Statistics.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <utility>

using namespace Tarsel::Core;

TEST(ExtractClassName, CutsBeforeTheLastDoubleColon) {
    const std::pair<const char*, const char*> cases[] = {
        {"Tarsel::Core::Decoder::Process", "Tarsel::Core::Decoder"},
        {"Decoder", "Decoder"},    // no colon: whole
        {":Decoder", ":Decoder"},  // the only colon at position 0: whole
        {"A:B", ""},               // a single colon cuts one character early
        {"", ""},
    };
    for (const auto& [name, expected] : cases) {
        EXPECT_EQ(ExtractClassName(name), expected) << name;
    }
}

TEST(MakeStatistics, BuildsAFlatRecordInOrderWithAnUnguardedDivision) {
    const Property record = MakeStatistics("Tarsel::Core::Decoder::Process", 2500000, 100);
    EXPECT_EQ(record.GetName(), "");
    ASSERT_EQ(record.Count(), 4u);
    const char* names[] = {"Class name", "Working time", "Processed data count", "ms per frame"};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(record[i].GetName(), names[i]);
    }
    EXPECT_EQ(record[0].GetString(), "Tarsel::Core::Decoder");
    EXPECT_EQ(record[1].GetDouble(), 2.5);
    EXPECT_EQ(record[2].GetInt64(), 100);
    EXPECT_EQ(record[3].GetDouble(), 25.0);
    // A count of 0 stores infinity, or NaN when the time is 0 too.
    EXPECT_EQ(MakeStatistics("X::Y", 1000, 0)["ms per frame"].GetDouble(), std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(MakeStatistics("X::Y", 0, 0)["ms per frame"].GetDouble()));
}

TEST(GetNoImplItem, HoldsOneItemWithClassNameAndInfo) {
    const Property record = GetNoImplItem("X::Y");
    ASSERT_EQ(record.Count(), 1u);
    ASSERT_EQ(record[0].Count(), 2u);
    EXPECT_EQ(record[0][0].GetName() + ": " + record[0][0].GetString(), "Class name: X");
    EXPECT_EQ(record[0][1].GetName() + ": " + record[0][1].GetString(), "Info: Statistic collection not implemented");
}
