#include <Core/Interfaces/Property.h>

#include <boost/exception/get_error_info.hpp>
#include <boost/rational.hpp>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <iomanip>
#include <limits>
#include <sstream>
#include <tuple>
#include <utility>

using namespace Tarsel;
using namespace Tarsel::Core;

TEST(RatioText, StringFromRatioPutsTheSignOnTheNumerator) {
    EXPECT_EQ(StringFromRatio(Ratio(30000, 1001)), "30000/1001");
    EXPECT_EQ(StringFromRatio(Ratio(2, -4)), "-1/2");
    EXPECT_EQ(StringFromRatio(Ratio(0, 5)), "0/1");
    EXPECT_EQ(StringFromRatio(Ratio(LLONG_MIN + 1, 1)), "-9223372036854775807/1");
}

TEST(RatioText, RatioFromStringAcceptsOnlyDigitsSlashDigitsAndLeavesTheRatioOnFailure) {
    const std::pair<const char*, Ratio> good[] = {{"30000/1001", Ratio(30000, 1001)},
                                                  {"4/8", Ratio(1, 2)},
                                                  {"0/7", Ratio(0, 1)},
                                                  {"007/010", Ratio(7, 10)},
                                                  {"9223372036854775807/1", Ratio(LLONG_MAX, 1)}};
    for (const auto& [text, expected] : good) {
        Ratio ratio(42, 43);
        EXPECT_TRUE(RatioFromString(text, ratio)) << text;
        EXPECT_EQ(ratio, expected) << text;
    }
    // The first two lie beyond long long.
    for (const char* text : {"9223372036854775808/1", "1/99999999999999999999", "-1/2", "+1/2", " 1/2", "1/2 ", "1 /2",
                             "1.5/2", "25", "1/", "/2", "1/2/3", ""}) {
        Ratio ratio(42, 43);
        EXPECT_FALSE(RatioFromString(text, ratio)) << '"' << text << '"';
        EXPECT_EQ(ratio, Ratio(42, 43)) << '"' << text << '"';
    }
    Ratio untouched(5);
    EXPECT_THROW(RatioFromString("1/0", untouched), boost::bad_rational);
    EXPECT_EQ(untouched, Ratio(5));
}

TEST(RatioFromDoubleApprox, BestApproximationWithinTheBound) {
    const std::tuple<double, long long, Ratio> cases[] = {
        {29.97, 1001, Ratio(2997, 100)},
        {30000.0 / 1001, 1001, Ratio(30000, 1001)},
        {0.75, 2, Ratio(1, 1)},
        {-0.75, 100, Ratio(-3, 4)},
        {2.9, 1, Ratio(2, 1)},  // bound 1 or less: truncated
        {-2.9, -5, Ratio(-2, 1)},
        {3.14159265358979, 10, Ratio(22, 7)},
        {3.14159265358979, 7, Ratio(22, 7)},  // a semiconvergent may reach the bound
        {3.14159265358979, 6, Ratio(19, 6)},
        {3.14159265358979, 1000, Ratio(355, 113)},
        {0.8, 3, Ratio(2, 3)},  // [0; 1, 4]: a factor of exactly half the term still wins
        {-0.0, 10, Ratio(0, 1)},
        {5.0, 10, Ratio(5, 1)},
        {0.001, 10000, Ratio(1, 1000)},  // needs more than 62 fraction bits
        {0.001, 10, Ratio(0, 1)},
        {1e-300, LLONG_MAX, Ratio(0, 1)},
        {0.1, LLONG_MAX, Ratio(3602879701896397, 36028797018963968)},  // the double's exact value
        {9.2e18, LLONG_MAX, Ratio(9200000000000000000LL, 1)},
        {-0x1p62, 10, Ratio(-(1LL << 62), 1)},
    };
    for (const auto& [number, bound, expected] : cases) {
        EXPECT_EQ(RatioFromDoubleApprox(number, bound), expected) << number << " bound " << bound;
    }
    const double inf = std::numeric_limits<double>::infinity();
    for (double outside : {std::nan(""), inf, -inf, 0x1p63, -0x1p63, 1e300}) {
        EXPECT_THROW(RatioFromDoubleApprox(outside, 1001), std::invalid_argument) << outside;
        EXPECT_THROW(RatioFromDoubleApprox(outside, 0), std::invalid_argument) << outside;
    }
}

TEST(PropertyValueToString, ScalarsUseTheStreamDefaultsAndContainersAreRefused) {
    EXPECT_EQ(PropertyValueToString(Property("x", true)), "1");
    EXPECT_EQ(PropertyValueToString(Property("x", 2.0)), "2");
    EXPECT_EQ(PropertyValueToString(Property("x", 1234567.0)), "1.23457e+06");
    EXPECT_EQ(PropertyValueToString(Property("x", -42)), "-42");
    EXPECT_EQ(PropertyValueToString(Property("x", "a b")), "a b");
    EXPECT_EQ(PropertyValueToString(Property("x", Ratio(-3, 4))), "-3/4");
    try {
        PropertyValueToString(Property("container"));
        ADD_FAILURE() << "a container has no value text";
    } catch (const PropertyException& e) {
        EXPECT_EQ(*boost::get_error_info<TagDescription>(e), "Wrong property type");
        EXPECT_NE(boost::get_error_info<TagCallStack>(e), nullptr);
        EXPECT_STREQ(*boost::get_error_info<boost::throw_function>(e),
                     "std::string Tarsel::Core::PropertyValueToString(const Core::Property &)");
    }
}

TEST(PrintPropertyValue, NestedTreeText) {
    Property root("root");
    root.SetChildT<long long>("a", 1);
    root.SetChild("b", "x");
    Property& inner = root.SetChild("inner");
    inner.SetChild("r", Property("", Ratio(30000, 1001)));
    inner.SetChild("f", Property("", true));
    root.SetChildT<double>("d", 0.25);
    std::ostringstream out;
    PrintPropertyValue(root, 0, out, true, true);
    // A container's line ends after "Array" and again after its last child.
    EXPECT_EQ(out.str(), "root: Array\n\ta: 1\n\tb: x\n\tinner: Array\n\t\tr: 30000/1001\n\t\tf: 1\n\n\td: 0.25\n\n");

    std::ostringstream bare;
    // No name, no indent, no line end; the stream's own formatting applies.
    bare << std::boolalpha;
    PrintPropertyValue(Property("flag", true), -3, bare, false, false);
    EXPECT_EQ(bare.str(), "true");

    // A field width set beforehand applies to the first insertion, the first tab.
    std::ostringstream padded;
    padded << std::setw(3) << std::setfill('.');
    PrintPropertyValue(Property("n", 1), 2, padded, true, false);
    EXPECT_EQ(padded.str(), "..\t\tn: 1");
}
