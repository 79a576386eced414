#include <Core/Interfaces/Property.h>

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

template <class E, class F>
E CatchAs(F f) {
    try {
        f();
    } catch (const E& e) {
        return e;
    }
    ADD_FAILURE() << "nothing was thrown";
    throw std::logic_error("unreachable");
}

template <class Tag, class E>
auto Info(const E& e) {
    const auto* value = boost::get_error_info<Tag>(e);
    if (value == nullptr) {
        throw std::logic_error("missing error information");
    }
    return *value;
}

std::string ThrowFunction(const boost::exception& e) {
    return *boost::get_error_info<boost::throw_function>(e);
}

// A container "root" holding a=1, b="x" and an inner container "c" with d=2.5.
Property SampleTree() {
    Property root("root");
    root.SetChildT<long long>("a", 1);
    root.SetChild("b", "x");
    root.SetChild("c").SetChildT<double>("d", 2.5);
    return root;
}

// Everything observable of a tree, for "nothing changed" checks.
std::string Dump(const Property& p) {
    std::ostringstream out;
    PrintPropertyValue(p, 0, out, true, true);
    return out.str();
}

}  // namespace

// --- Values --------------------------------------------------------------

TEST(PropertyValues, ConstructorsSetTypeAndValue) {
    EXPECT_EQ(Property("x").GetType(), TypeArray);
    EXPECT_EQ(Property("x").Count(), 0u);
    EXPECT_EQ(Property("x", true).GetBool(), true);
    EXPECT_EQ(Property("x", 2.5).GetDouble(), 2.5);
    EXPECT_EQ(Property("x", 5).GetType(), TypeInt64);
    EXPECT_EQ(Property("x", -5).GetInt64(), -5);
    EXPECT_EQ(Property("x", 1L << 40).GetInt64(), 1LL << 40);
    EXPECT_EQ(Property("x", 9223372036854775807LL).GetInt64(), 9223372036854775807LL);
    EXPECT_EQ(Property("x", "abc").GetType(), TypeString);
    EXPECT_EQ(Property("x", "abc").GetString(), "abc");
    EXPECT_EQ(Property("x", std::string("a\0b", 3)).GetString(), std::string("a\0b", 3));
    EXPECT_EQ(Property("x", Ratio(30000, 1001)).GetRatio(), Ratio(30000, 1001));
    EXPECT_EQ(Property("name", 1).GetName(), "name");
}

TEST(PropertyValues, GettersAreStrict) {
    const Property nodes[] = {Property("a", true), Property("a", 1.0), Property("a", 1), Property("a", "1"),
                              Property("a", Ratio(1)), Property("a")};
    const std::function<void(const Property&)> getters[] = {
        [](const Property& p) { p.GetBool(); },   [](const Property& p) { p.GetDouble(); },
        [](const Property& p) { p.GetInt64(); },  [](const Property& p) { p.GetString(); },
        [](const Property& p) { p.GetRatio(); },
    };
    const PropertyTypes getterTypes[] = {TypeBool, TypeDouble, TypeInt64, TypeString, TypeRatio};
    for (const Property& node : nodes) {
        for (int g = 0; g < 5; ++g) {
            if (node.GetType() == getterTypes[g]) {
                EXPECT_NO_THROW(getters[g](node));
                continue;
            }
            const auto e = CatchAs<WrongTypeIsRequested>([&] { getters[g](node); });
            EXPECT_EQ(Info<PropertyException::TagPropertyType>(e), node.GetType());
            EXPECT_EQ(Info<PropertyException::TagRequestedType>(e), getterTypes[g]);
        }
    }
}

TEST(PropertyValues, GetterSignaturesAreRecorded) {
    const Property node("x");
    EXPECT_EQ(ThrowFunction(CatchAs<WrongTypeIsRequested>([&] { node.GetDouble(); })),
              "double Tarsel::Core::Property::GetDouble() const");
    EXPECT_EQ(ThrowFunction(CatchAs<WrongTypeIsRequested>([&] { node.GetInt64(); })),
              "boost::int64_t Tarsel::Core::Property::GetInt64() const");
    EXPECT_EQ(ThrowFunction(CatchAs<WrongTypeIsRequested>([&] { node.GetString(); })),
              "std::string Tarsel::Core::Property::GetString() const");
    EXPECT_EQ(ThrowFunction(CatchAs<WrongTypeIsRequested>([&] { node.GetRatio(); })),
              "Ratio Tarsel::Core::Property::GetRatio() const");
}

TEST(PropertyValues, GetValueNarrowsIntegersToTheirLow32Bits) {
    EXPECT_EQ(GetValue<unsigned int>(Property("x", -1)), 4294967295u);
    EXPECT_EQ(GetValue<int>(Property("x", 4294967296LL)), 0);
    EXPECT_EQ(GetValue<int>(Property("x", 4294967295LL)), -1);
    EXPECT_EQ(GetValue<long long>(Property("x", 4294967296LL)), 4294967296LL);
    EXPECT_EQ(GetValue<bool>(Property("x", true)), true);
    EXPECT_EQ(GetValue<double>(Property("x", 0.5)), 0.5);
    EXPECT_EQ(GetValue<std::string>(Property("x", "s")), "s");
    EXPECT_EQ(GetValue<Ratio>(Property("x", Ratio(1, 3))), Ratio(1, 3));
    EXPECT_THROW(GetValue<double>(Property("x", 1)), WrongTypeIsRequested);
}

TEST(PropertyValues, ScalarAssignmentKeepsNameAndDropsChildren) {
    Property node = SampleTree();
    node = 3.5;
    EXPECT_EQ(node.GetName(), "root");
    EXPECT_EQ(node.GetDouble(), 3.5);
    EXPECT_THROW(node.Count(), MethodIsNotApplicable);
    node = 7;
    EXPECT_EQ(node.GetType(), TypeInt64);
    node = "text";
    EXPECT_EQ(node.GetString(), "text");
    node = Ratio(2, 4);
    EXPECT_EQ(node.GetRatio(), Ratio(1, 2));
    node = false;
    EXPECT_EQ(node.GetBool(), false);
}

TEST(PropertyValues, CopiesAreDeepAndCopyDataFromKeepsTheName) {
    Property a("a", 1);
    const Property b = SampleTree();
    a = b;
    EXPECT_EQ(a.GetName(), "root");
    EXPECT_EQ(Dump(a), Dump(b));
    a["c"]["d"] = 9.0;
    EXPECT_EQ(b["c"]["d"].GetDouble(), 2.5);

    Property target("target", 1);
    target.CopyDataFrom(b);
    EXPECT_EQ(target.GetName(), "target");
    EXPECT_EQ(target.Count(), 3u);
    EXPECT_EQ(target["a"].GetName(), "a");
    target.CopyDataFrom(Property("other", "s"));
    EXPECT_EQ(target.GetString(), "s");
    EXPECT_EQ(target.GetName(), "target");

    // A source inside the target's own subtree.
    Property tree = SampleTree();
    tree.CopyDataFrom(tree["c"]);
    EXPECT_EQ(tree.GetName(), "root");
    EXPECT_EQ(tree.Count(), 1u);
    EXPECT_EQ(tree["d"].GetDouble(), 2.5);
}

TEST(PropertyValues, MoveConstructionCopiesAndMoveAssignmentSwaps) {
    Property d = SampleTree();
    const std::string before = Dump(d);
    Property c(std::move(d));
    EXPECT_EQ(Dump(c), before);
    EXPECT_EQ(Dump(d), before);  // deliberately left unchanged

    Property a("a", 1);
    Property b = SampleTree();
    a = std::move(b);
    EXPECT_EQ(Dump(a), before);
    EXPECT_EQ(b.GetName(), "a");
    EXPECT_EQ(b.GetInt64(), 1);

    swap(a, b);
    EXPECT_EQ(a.GetInt64(), 1);
    EXPECT_EQ(Dump(b), before);
}

TEST(PropertyValues, DifferentTypeErrorNamesBothTypes) {
    const Property k("k", true);
    const auto e = CatchAs<ComparedPropertiesHaveDifferentTypes>([&] { k.DifferentTypeError(TypeString); });
    EXPECT_EQ(Info<PropertyException::TagPropertyName>(e), "k");
    EXPECT_EQ(Info<PropertyException::TagPropertyType>(e), TypeBool);
    EXPECT_EQ(Info<PropertyException::TagOtherPropertyType>(e), TypeString);
    EXPECT_EQ(ThrowFunction(e), "void Tarsel::Core::Property::DifferentTypeError(Tarsel::PropertyTypes) const");
}
