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

// --- Children --------------------------------------------------------------

TEST(PropertyChildren, OperationsOnANonContainerAreRefusedWithTheirNamesAndLeaveItUnchanged) {
    using Op = std::function<void(Property&)>;
    const struct {
        const char* method;
        const char* function;
        Op op;
    } cases[] = {
        {"SetChild", "Tarsel::Core::Property &Tarsel::Core::Property::SetChild(const std::string &)",
         [](Property& p) { p.SetChild("n"); }},
        {"SetChild",
         "Tarsel::Core::Property &Tarsel::Core::Property::SetChild(const std::string &, const Tarsel::Core::Property &)",
         [](Property& p) { p.SetChild("n", Property("v", 1)); }},
        {"SetChildT",
         "Tarsel::Core::Property &Tarsel::Core::Property::SetChildT(const std::string &, const std::basic_string<char> "
         "&)",
         [](Property& p) { p.SetChild("n", "v"); }},
        {"SetChildT", "Tarsel::Core::Property &Tarsel::Core::Property::SetChildT(const std::string &, const long long &)",
         [](Property& p) { p.SetChildT<long long>("n", 1); }},
        {"SetChildT", "Tarsel::Core::Property &Tarsel::Core::Property::SetChildT(const std::string &, const double &)",
         [](Property& p) { p.SetChildT<double>("n", 1); }},
        {"CreateChildT",
         "Tarsel::Core::Property &Tarsel::Core::Property::CreateChildT(const std::string &, const long long &)",
         [](Property& p) { p.CreateChildT<long long>("n", 1); }},
        {"CreateChildT",
         "Tarsel::Core::Property &Tarsel::Core::Property::CreateChildT(const std::string &, const std::basic_string<char> "
         "&)",
         [](Property& p) { p.CreateChildT<std::string>("n", "v"); }},
        {"Add", "Tarsel::Core::Property &Tarsel::Core::Property::Add(const Tarsel::Core::Property &)",
         [](Property& p) { p.Add(Property("v", 1)); }},
        {"RemoveChild", "void Tarsel::Core::Property::RemoveChild(const std::string &)",
         [](Property& p) { p.RemoveChild("n"); }},
        {"RemoveChild", "void Tarsel::Core::Property::RemoveChild(size_t)", [](Property& p) { p.RemoveChild(0); }},
        {"Count", "size_t Tarsel::Core::Property::Count() const", [](Property& p) { p.Count(); }},
        {"RemoveAll", "void Tarsel::Core::Property::RemoveAll()", [](Property& p) { p.RemoveAll(); }},
        {"ChildExists", "bool Tarsel::Core::Property::ChildExists(const std::string &) const",
         [](Property& p) { p.ChildExists("n"); }},
        {"operator[]", "const Tarsel::Core::Property &Tarsel::Core::Property::operator[](const std::string &) const",
         [](Property& p) { p["n"]; }},
        {"operator[]", "const Tarsel::Core::Property &Tarsel::Core::Property::operator[](size_t) const",
         [](Property& p) { std::as_const(p)[0]; }},
        {"begin", "Property::iterator Tarsel::Core::Property::begin()", [](Property& p) { p.begin(); }},
        {"begin", "Property::const_iterator Tarsel::Core::Property::begin() const",
         [](Property& p) { std::as_const(p).begin(); }},
        {"end", "Property::iterator Tarsel::Core::Property::end()", [](Property& p) { p.end(); }},
        {"end", "Property::const_iterator Tarsel::Core::Property::end() const",
         [](Property& p) { std::as_const(p).end(); }},
        {"rbegin", "Property::reverse_iterator Tarsel::Core::Property::rbegin()", [](Property& p) { p.rbegin(); }},
        {"rbegin", "Property::const_reverse_iterator Tarsel::Core::Property::rbegin() const",
         [](Property& p) { std::as_const(p).rbegin(); }},
        {"rend", "Property::reverse_iterator Tarsel::Core::Property::rend()", [](Property& p) { p.rend(); }},
        {"rend", "Property::const_reverse_iterator Tarsel::Core::Property::rend() const",
         [](Property& p) { std::as_const(p).rend(); }},
    };
    for (const auto& c : cases) {
        Property node("leaf", "text");
        const auto e = CatchAs<MethodIsNotApplicable>([&] { c.op(node); });
        EXPECT_EQ(Info<PropertyException::TagMethodName>(e), c.method);
        EXPECT_EQ(Info<PropertyException::TagPropertyName>(e), "leaf");
        EXPECT_EQ(Info<PropertyException::TagPropertyType>(e), TypeString);
        EXPECT_EQ(ThrowFunction(e), c.function);
        EXPECT_NE(boost::get_error_info<TagCallStack>(e), nullptr);
        EXPECT_EQ(node.GetString(), "text");
    }
}

TEST(PropertyChildren, EmptyNamesAreRefusedBeforeTheTypeIsChecked) {
    using Op = std::function<void(Property&)>;
    const struct {
        const char* function;
        Op op;
    } cases[] = {
        {"Tarsel::Core::Property &Tarsel::Core::Property::SetChild(const std::string &)",
         [](Property& p) { p.SetChild(""); }},
        {"Tarsel::Core::Property &Tarsel::Core::Property::SetChild(const std::string &, const Tarsel::Core::Property &)",
         [](Property& p) { p.SetChild("", Property("v", 1)); }},
        {"Tarsel::Core::Property &Tarsel::Core::Property::AddWithName(const std::string &, Tarsel::Core::Property)",
         [](Property& p) { p.AddWithName("", Property("v", 1)); }},
    };
    for (const auto& c : cases) {
        for (Property node : {SampleTree(), Property("leaf", true)}) {
            const std::string before = Dump(node);
            try {
                c.op(node);
                ADD_FAILURE() << "nothing was thrown";
            } catch (const std::invalid_argument& e) {
                const std::string message = e.what();
                EXPECT_EQ(message.rfind("name is empty\n", 0), 0u) << message;
                EXPECT_GT(message.size(), std::string("name is empty\n").size());
                EXPECT_EQ(ThrowFunction(dynamic_cast<const boost::exception&>(e)), c.function);
            }
            EXPECT_EQ(Dump(node), before);
        }
    }
    // The value-setting templates accept an empty name.
    Property root("root");
    root.SetChild("", "x");
    root.SetChildT<long long>("", 1);
    root.CreateChildT<double>("", 2.0);
    ASSERT_EQ(root.Count(), 2u);
    EXPECT_EQ(root[std::string()].GetInt64(), 1);
    EXPECT_EQ(root[1].GetDouble(), 2.0);
}

TEST(PropertyChildren, MissingNamesAndIndicesAreRefusedAndLeaveTheTreeUnchanged) {
    Property root = SampleTree();
    const std::string before = Dump(root);
    for (const auto& op : std::vector<std::function<void()>>{[&] { root.RemoveChild("zz"); },
                                                             [&] { root["zz"]; },
                                                             [&] { std::as_const(root)["zz"]; }}) {
        const auto e = CatchAs<ChildNameIsNotFound>(op);
        EXPECT_EQ(Info<PropertyException::TagPropertyName>(e), "root");
        EXPECT_EQ(Info<PropertyException::TagRequestedChildName>(e), "zz");
    }
    const struct {
        const char* function;
        std::function<void()> op;
    } indexCases[] = {
        // operator[] reports through the const GetItemIterator it walks with.
        {"Property::ChildListType::const_iterator Tarsel::Core::Property::GetItemIterator(size_t) const",
         [&] { root[3]; }},
        {"Property::ChildListType::const_iterator Tarsel::Core::Property::GetItemIterator(size_t) const",
         [&] { std::as_const(root).GetItemIterator(3); }},
        {"Property::ChildListType::iterator Tarsel::Core::Property::GetItemIterator(size_t)",
         [&] { root.GetItemIterator(7); }},
        {"Property::ChildListType::iterator Tarsel::Core::Property::GetItemIterator(size_t)",
         [&] { root.RemoveChild(3); }},
    };
    for (const auto& c : indexCases) {
        const auto e = CatchAs<IndexIsOutOfBound>(c.op);
        EXPECT_EQ(Info<PropertyException::TagChildCount>(e), 3u);
        EXPECT_GE(Info<PropertyException::TagRequestedChildIndex>(e), 3u);
        EXPECT_EQ(ThrowFunction(e), c.function);
    }
    EXPECT_EQ(Dump(root), before);
    const auto empty = CatchAs<IndexIsOutOfBound>([] { Property("e").GetItemIterator(0); });
    EXPECT_EQ(Info<PropertyException::TagChildCount>(empty), 0u);
    EXPECT_EQ(Info<PropertyException::TagRequestedChildIndex>(empty), 0u);
}

TEST(PropertyChildren, SetChildReusesTheFirstChildInPlace) {
    Property root("root");
    Property& a = root.SetChild("a");
    a.SetChildT<long long>("grandchild", 1);
    root.SetChildT<long long>("z", 2);
    Property& again = root.SetChild("a");
    EXPECT_EQ(&again, &a);
    EXPECT_EQ(again.Count(), 0u);

    root.SetChildT<long long>("a", 5);  // now a scalar
    EXPECT_EQ(root.SetChild("a").GetType(), TypeArray);

    // A value overwrites the child's content but keeps its name and place.
    Property& k = root.SetChild("a", Property("other", "v"));
    EXPECT_EQ(&k, &a);
    EXPECT_EQ(k.GetName(), "a");
    EXPECT_EQ(k.GetString(), "v");
    EXPECT_EQ(root[0].GetName(), "a");
    Property& added = root.SetChild("k", Property("other", 3));
    EXPECT_EQ(added.GetName(), "k");
    EXPECT_EQ(&root[2], &added);

    root.SetChildT<long long>("n", 1);
    root.SetChildT<double>("n", 2.5);
    EXPECT_EQ(root.Count(), 4u);
    EXPECT_EQ(root["n"].GetType(), TypeDouble);
}

TEST(PropertyChildren, AppendingNeverLooksForExistingNames) {
    Property root("root");
    root.CreateChildT<long long>("n", 1);
    root.CreateChildT<long long>("n", 2);
    EXPECT_EQ(root.Count(), 2u);
    EXPECT_EQ(root["n"].GetInt64(), 1);
    root.RemoveChild("n");
    EXPECT_EQ(root["n"].GetInt64(), 2);

    Property array("array");
    for (int i = 0; i < 3; ++i) {
        array.Add(Property("ignored", i));
    }
    EXPECT_EQ(array[0].GetName(), "0");
    EXPECT_EQ(array[2].GetName(), "2");
    array.RemoveChild(std::size_t{0});
    EXPECT_EQ(array.Add(Property("x", 9)).GetName(), "2");  // names are counts, not renumbered
    EXPECT_EQ(array[1].GetInt64(), 2);
    EXPECT_EQ(array[2].GetInt64(), 9);

    // AddWithName works on a leaf; the other operations then still refuse it.
    Property leaf("flag", true);
    leaf.AddWithName("hidden", Property("x", 1));
    EXPECT_EQ(leaf.FindChild("hidden")->GetInt64(), 1);
    EXPECT_EQ(leaf.GetItemIterator(0)->GetName(), "hidden");
    const auto e = CatchAs<MethodIsNotApplicable>([&] { leaf.Count(); });
    EXPECT_EQ(Info<PropertyException::TagMethodName>(e), "Count");
    EXPECT_EQ(Info<PropertyException::TagPropertyType>(e), TypeBool);
}

TEST(PropertyChildren, IterationLookupAndRemoval) {
    Property root = SampleTree();
    std::string names;
    for (const Property& child : root) {
        names += child.GetName();
    }
    for (auto it = root.rbegin(); it != root.rend(); ++it) {
        names += it->GetName();
    }
    EXPECT_EQ(names, "abccba");
    EXPECT_TRUE(root.ChildExists("b"));
    EXPECT_FALSE(root.ChildExists("B"));
    EXPECT_EQ(root.FindChild("zz"), root.end());
    EXPECT_EQ(root.GetItemIterator(1)->GetString(), "x");
    root.RemoveChild(1);
    EXPECT_EQ(root[1].GetName(), "c");
    root.RemoveAll();
    EXPECT_EQ(root.Count(), 0u);
    EXPECT_EQ(root.GetType(), TypeArray);
    Property scalar("s", 1);
    scalar.SetArrayType();
    EXPECT_EQ(scalar.Count(), 0u);
}

// --- Paths -----------------------------------------------------------------

TEST(PropertyPaths, EmptySegmentsAreDroppedAndSegmentsAreLiteralNames) {
    Property root = SampleTree();
    root.SetChild("0").SetChild("[0]");
    for (const char* path : {"c/d", "/c/d", "c/d/", "c//d", "///c///d///"}) {
        EXPECT_EQ(&root.ChildByPath(path), &root["c"]["d"]) << path;
        EXPECT_TRUE(root.ChildExistsByPath(path)) << path;
    }
    for (const char* path : {"", "/", "///"}) {
        EXPECT_EQ(&root.ChildByPath(path), &root);
        EXPECT_TRUE(Property("leaf", 1).ChildExistsByPath(path));
        EXPECT_EQ(Property("leaf", 1).ChildByPath(path).GetInt64(), 1);
    }
    EXPECT_EQ(&root.ChildByPath("0/[0]"), &root["0"]["[0]"]);  // names, not positions
    EXPECT_EQ(Property::SEPARATOR, "/");

    root.ChildByPath("c/d") = 7.5;
    EXPECT_EQ(root["c"]["d"].GetDouble(), 7.5);
}

TEST(PropertyPaths, MissingNamesAndLeavesFailDifferently) {
    const Property root = SampleTree();
    EXPECT_FALSE(root.ChildExistsByPath("c/missing/d"));
    const auto missing = CatchAs<ChildNameIsNotFound>([&] { root.ChildByPath("c/missing/d"); });
    EXPECT_EQ(Info<PropertyException::TagRequestedChildName>(missing), "missing");
    EXPECT_EQ(Info<PropertyException::TagPropertyName>(missing), "c");

    // Through a leaf: not "false" but the refusal of the leaf's lookup.
    const auto exists = CatchAs<MethodIsNotApplicable>([&] { root.ChildExistsByPath("b/x"); });
    EXPECT_EQ(Info<PropertyException::TagMethodName>(exists), "ChildExists");
    EXPECT_EQ(Info<PropertyException::TagPropertyName>(exists), "b");
    const auto byPath = CatchAs<MethodIsNotApplicable>([&] { root.ChildByPath("b/x"); });
    EXPECT_EQ(Info<PropertyException::TagMethodName>(byPath), "operator[]");
    EXPECT_EQ(ThrowFunction(byPath),
              "const Tarsel::Core::Property &Tarsel::Core::Property::operator[](const std::string &) const");
}
