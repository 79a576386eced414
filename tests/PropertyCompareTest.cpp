#include <Core/Interfaces/Property.h>

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <tuple>

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

Property Container(const std::string& name, std::initializer_list<Property> children) {
    Property node(name);
    for (const Property& child : children) {
        node.AddWithName(child.GetName(), child);
    }
    return node;
}

}  // namespace

TEST(PropertyCompare, ValuesCompareByValueIgnoringNames) {
    const std::tuple<Property, Property, bool> cases[] = {
        {Property("a", true), Property("b", true), true},
        {Property("a", true), Property("a", false), false},
        {Property("a", 1), Property("b", 1LL), true},
        {Property("a", 1), Property("a", 2), false},
        {Property("a", "x"), Property("a", "x"), true},
        {Property("a", std::string("x\0y", 3)), Property("a", "x"), false},  // full length
        {Property("a", Ratio(1, 2)), Property("a", Ratio(2, 4)), true},
        {Property("a", Ratio(1, 2)), Property("a", Ratio(-1, 2)), false},
        {Property("a", 1.0), Property("a", 1.000009), true},  // within DEFAULT_DOUBLE_EPS
        {Property("a", 1.0), Property("a", 1.00002), false},
        {Property("a", std::nan("")), Property("a", std::nan("")), false},
    };
    for (const auto& [a, b, equal] : cases) {
        EXPECT_EQ(a == b, equal) << PropertyValueToString(a) << " vs " << PropertyValueToString(b);
        EXPECT_EQ(a != b, !equal);
    }
    EXPECT_EQ(Property::DEFAULT_DOUBLE_EPS, 1e-05);
}

TEST(PropertyCompare, ToleranceIsStrict) {
    const double eps = 0.25;  // exactly representable, so the difference is exactly eps
    EXPECT_FALSE(Property("x", 1.0).IsEqual(1.25, eps));
    EXPECT_TRUE(Property("x", 1.0).IsEqual(1.2, eps));
    EXPECT_FALSE(Property("x", 1.0).IsEqual(Property("y", 0.75), eps));
    EXPECT_TRUE(Property("x", 1.0).IsEqual(Property("y", 0.8), eps));
    EXPECT_FALSE(Property("x", 1.0).IsEqual(std::numeric_limits<double>::quiet_NaN(), 1e300));
    // For other types the tolerance is ignored.
    EXPECT_FALSE(Property("x", 1).IsEqual(Property("y", 2), 5.0));
    EXPECT_THROW(Property("x", 1).IsEqual(1.0, 0.5), ComparedPropertiesHaveDifferentTypes);
    EXPECT_THROW(Property("x", 1.0).IsEqual(Property("y", 1), 0.5), WrongTypeIsRequested);
}

TEST(PropertyCompare, TopLevelTypeMismatchThrows) {
    try {
        (void)(Property("flag", true) == Property("n", 1));
        ADD_FAILURE() << "nothing was thrown";
    } catch (const ComparedPropertiesHaveDifferentTypes& e) {
        EXPECT_EQ(*boost::get_error_info<PropertyException::TagPropertyName>(e), "flag");
        EXPECT_EQ(*boost::get_error_info<PropertyException::TagPropertyType>(e), TypeBool);
        EXPECT_EQ(*boost::get_error_info<PropertyException::TagOtherPropertyType>(e), TypeInt64);
        EXPECT_STREQ(*boost::get_error_info<boost::throw_function>(e),
                     "void Tarsel::Core::Property::DifferentTypeError(Tarsel::PropertyTypes) const");
    }
}

TEST(PropertyCompare, ContainersIgnoreChildOrderButNotTheirOwnNames) {
    const Property ab = Container("c", {Property("a", 1), Property("b", 2)});
    EXPECT_TRUE(ab == Container("c", {Property("b", 2), Property("a", 1)}));
    EXPECT_FALSE(ab == Container("other", {Property("a", 1), Property("b", 2)}));
    EXPECT_FALSE(ab == Container("c", {Property("a", 1)}));
    EXPECT_FALSE(ab == Container("c", {Property("a", 1), Property("b", 3)}));
    EXPECT_TRUE(Property("a") == Property("a"));  // empty containers with equal names
    // Value children are paired by sorted position, their names unread.
    EXPECT_TRUE(ab == Container("c", {Property("a", 1), Property("z", 2)}));
    // Container children must carry equal names.
    EXPECT_FALSE(Container("r", {Container("x", {})}) == Container("r", {Container("y", {})}));
    // Children of different types make the containers unequal, no throw.
    EXPECT_FALSE(Container("c", {Property("a", true)}) == Container("c", {Property("a", 1)}));
    // Deep trees recurse; an explicit eps applies to double nodes only, not to their containers.
    const Property deep1 = Container("r", {Container("g", {Property("x", 1.0), Property("y", "s")})});
    const Property deep2 = Container("r", {Container("g", {Property("y", "s"), Property("x", 1.000001)})});
    EXPECT_TRUE(deep1 == deep2);
    EXPECT_TRUE(deep1.IsEqual(deep2, 0.0));
}
