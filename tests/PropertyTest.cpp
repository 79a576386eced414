#include <Core/Interfaces/Property.h>

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/PropertySerializer.h>

#include "support/CatchAs.h"
#include "support/SmallStack.h"

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <functional>
#include <sstream>
#include <streambuf>
#include <string>
#include <tuple>

using namespace Tarsel;
using namespace Tarsel::Core;
using TarselTest::CatchAs;
using P = PropertyException;

namespace {

using Op = std::function<void(Property&)>;

template <class Tag>
typename Tag::value_type Info(const boost::exception& e) {
    const auto* value = boost::get_error_info<Tag>(e);
    return value != nullptr ? *value : throw std::logic_error("missing error information");
}

// A container "root" holding a=1, b="x" and an inner container "c" with d=2.5.
Property SampleTree() {
    Property root("root");
    root.SetChildT<long long>("a", 1);
    root.SetChild("b", "x");
    root.SetChild("c").SetChildT<double>("d", 2.5);
    return root;
}

// Everything observable of a tree but the value types, for "nothing changed" checks.
std::string Dump(const Property& p) {
    std::ostringstream out;
    PrintPropertyValue(p, 0, out, true, true);
    return out.str();
}

// The number of children of a node of any type: a leaf's children, which
// only AddWithName can attach, are counted by the refusal of an index past
// them all.
std::size_t ChildCountOfAnyType(const Property& p) {
    return Info<P::TagChildCount>(CatchAs<IndexIsOutOfBound>([&] { p.GetItemIterator(SIZE_MAX); }));
}

}  // namespace

// --- Values --------------------------------------------------------------

TEST(PropertyValues, EachConstructorAndAssignmentSetsTypeAndValueAndGettersAreStrict) {
    const std::tuple<Property, PropertyTypes, std::string> cases[] = {
        {Property("x"), TypeArray, "x: Array\n\n"},  // a name alone: an empty container
        {Property("x", true), TypeBool, "x: 1\n"},
        {Property("x", 2.5), TypeDouble, "x: 2.5\n"},
        {Property("x", -5), TypeInt64, "x: -5\n"},
        {Property("x", 1L << 40), TypeInt64, "x: 1099511627776\n"},
        {Property("x", 9223372036854775807LL), TypeInt64, "x: 9223372036854775807\n"},
        {Property("x", "abc"), TypeString, "x: abc\n"},
        {Property("x", std::string("a\0b", 3)), TypeString, std::string("x: a\0b\n", 7)},
        {Property("x", Ratio(30000, 1001)), TypeRatio, "x: 30000/1001\n"},
        // Assignments keep the name and drop the children.
        {SampleTree() = 3.5, TypeDouble, "root: 3.5\n"},
        {SampleTree() = 7, TypeInt64, "root: 7\n"},
        {SampleTree() = "text", TypeString, "root: text\n"},
        {SampleTree() = Ratio(2, 4), TypeRatio, "root: 1/2\n"},
        {SampleTree() = false, TypeBool, "root: 0\n"},
    };
    const std::tuple<PropertyTypes, const char*, std::function<void(const Property&)>> getters[] = {
        {TypeBool, "bool Tarsel::Core::Property::GetBool() const", [](const Property& p) { p.GetBool(); }},
        {TypeDouble, "double Tarsel::Core::Property::GetDouble() const", [](const Property& p) { p.GetDouble(); }},
        {TypeInt64, "boost::int64_t Tarsel::Core::Property::GetInt64() const", [](const Property& p) { p.GetInt64(); }},
        {TypeString, "std::string Tarsel::Core::Property::GetString() const", [](const Property& p) { p.GetString(); }},
        {TypeRatio, "Ratio Tarsel::Core::Property::GetRatio() const", [](const Property& p) { p.GetRatio(); }},
    };
    for (const auto& [node, type, dump] : cases) {
        EXPECT_EQ(node.GetType(), type) << dump;
        EXPECT_EQ(Dump(node), dump);
        for (const auto& [getterType, function, get] : getters) {
            if (type == getterType) {
                continue;  // GetValue's test reads the values
            }
            const auto e = CatchAs<WrongTypeIsRequested>([&get = get, &node = node] { get(node); });
            EXPECT_EQ(Info<P::TagPropertyType>(e), type);
            EXPECT_EQ(Info<P::TagRequestedType>(e), getterType);
            EXPECT_STREQ(Info<boost::throw_function>(e), function);
        }
    }
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

TEST(PropertyValues, CopiesAreDeepMovesCopyOrSwapAndCopyDataFromKeepsTheName) {
    const Property tree = SampleTree();
    const std::string before = Dump(tree);
    Property a("a", 1);
    a = tree;
    a["c"]["d"] = 9.0;
    EXPECT_EQ(Dump(tree), before);
    Property moved(std::move(a));
    EXPECT_EQ(Dump(a), Dump(moved));  // deliberately a copy: the source is unchanged
    Property scalar("s", 1);
    scalar = std::move(a);  // swaps
    EXPECT_EQ(Dump(scalar), Dump(moved));
    EXPECT_EQ(Dump(a), "s: 1\n");
    swap(a, scalar);
    EXPECT_EQ(Dump(scalar), "s: 1\n");

    Property target("target", 1);
    target.CopyDataFrom(tree);
    EXPECT_EQ(Dump(target), "target" + before.substr(4));
    target.CopyDataFrom(Property("other", "s"));
    EXPECT_EQ(Dump(target), "target: s\n");
    Property self = SampleTree();
    self.CopyDataFrom(self["c"]);  // a source inside the target's own subtree
    EXPECT_EQ(Dump(self), "root: Array\n\td: 2.5\n\n");
}

// A copy carries children only when it is a container: the children that
// AddWithName attached to a leaf stay behind, however the copy is made. The
// move constructor alone copies them along.
TEST(PropertyValues, CopiesOfALeafLeaveItsChildrenBehindButTheMoveConstructorTakesThem) {
    Property leaf("flag", true);
    leaf.AddWithName("kid", Property("", 1));
    const struct {
        const char* how;
        std::function<std::size_t(Property&)> childrenOfCopy;
        std::size_t expected;
    } cases[] = {
        {"copy constructor", [](Property& src) { return ChildCountOfAnyType(Property(src)); }, 0},
        {"copy assignment",
         [](Property& src) {
             Property target("target");
             target.SetChild("old");
             target = src;
             return ChildCountOfAnyType(target);
         },
         0},
        {"CopyDataFrom",
         [](Property& src) {
             Property target("target", 1);
             target.CopyDataFrom(src);
             return ChildCountOfAnyType(target);
         },
         0},
        {"Add", [](Property& src) { return ChildCountOfAnyType(Property("r").Add(src)); }, 0},
        {"AddWithName", [](Property& src) { return ChildCountOfAnyType(Property("r").AddWithName("x", src)); }, 0},
        {"AddWithName of a moved node",
         [](Property& src) { return ChildCountOfAnyType(Property("r").AddWithName("x", std::move(src))); }, 0},
        {"SetChild, new child", [](Property& src) { return ChildCountOfAnyType(Property("r").SetChild("x", src)); }, 0},
        {"SetChild, existing child",
         [](Property& src) {
             Property parent("r");
             parent.SetChild("x").SetChild("grandchild");
             return ChildCountOfAnyType(parent.SetChild("x", src));
         },
         0},
        {"move constructor", [](Property& src) { return ChildCountOfAnyType(Property(std::move(src))); }, 1},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.childrenOfCopy(leaf), c.expected) << c.how;
        EXPECT_EQ(ChildCountOfAnyType(leaf), 1u) << c.how << " changed the source";
    }
    Property moved(std::move(leaf));
    EXPECT_EQ(moved.GetItemIterator(0)->GetName(), "kid");
    EXPECT_EQ(moved.GetItemIterator(0)->GetInt64(), 1);
    // Deeper in a copied tree, the same.
    Property tree("tree");
    tree.SetChild("flag", Property("", true)).AddWithName("kid", Property("", 1));
    EXPECT_EQ(ChildCountOfAnyType(Property(tree)["flag"]), 0u);

    // Copying a node onto itself: a leaf drops its hidden children and keeps
    // its value; a child overwritten with itself stays as it was.
    leaf.CopyDataFrom(leaf);
    EXPECT_EQ(ChildCountOfAnyType(leaf), 0u);
    EXPECT_TRUE(leaf.GetBool());
    Property root = SampleTree();
    const std::string before = Dump(root);
    root.SetChild("c", root["c"]);
    EXPECT_EQ(Dump(root), before);
}

// --- Children --------------------------------------------------------------

TEST(PropertyChildren, OperationsOnANonContainerAreRefusedWithTheirNamesAndLeaveItUnchanged) {
    const struct {
        const char* method;
        Op op;
        const char* function = nullptr;  // the function text recorded, where a case checks it
    } cases[] = {
        {"SetChild", [](Property& p) { p.SetChild("n"); }},
        {"SetChild", [](Property& p) { p.SetChild("n", Property("v", 1)); }},
        {"SetChildT", [](Property& p) { p.SetChild("n", "v"); },
         "Tarsel::Core::Property &Tarsel::Core::Property::SetChildT(const std::string &, const std::basic_string<char> "
         "&)"},
        {"SetChildT", [](Property& p) { p.SetChildT<long long>("n", 1); },
         "Tarsel::Core::Property &Tarsel::Core::Property::SetChildT(const std::string &, const long long &)"},
        {"SetChildT", [](Property& p) { p.SetChildT<double>("n", 1); },
         "Tarsel::Core::Property &Tarsel::Core::Property::SetChildT(const std::string &, const double &)"},
        // Any other value type is named as the demangler spells it.
        {"SetChildT", [](Property& p) { p.SetChildT<bool>("n", true); },
         "Tarsel::Core::Property &Tarsel::Core::Property::SetChildT(const std::string &, const bool &)"},
        {"CreateChildT", [](Property& p) { p.CreateChildT<long long>("n", 1); },
         "Tarsel::Core::Property &Tarsel::Core::Property::CreateChildT(const std::string &, const long long &)"},
        {"CreateChildT", [](Property& p) { p.CreateChildT<std::string>("n", "v"); },
         "Tarsel::Core::Property &Tarsel::Core::Property::CreateChildT(const std::string &, const "
         "std::basic_string<char> &)"},
        {"Add", [](Property& p) { p.Add(Property("v", 1)); }},
        {"RemoveChild", [](Property& p) { p.RemoveChild("n"); }},
        {"RemoveChild", [](Property& p) { p.RemoveChild(0); }, "void Tarsel::Core::Property::RemoveChild(size_t)"},
        {"Count", [](Property& p) { p.Count(); }, "size_t Tarsel::Core::Property::Count() const"},
        {"RemoveAll", [](Property& p) { p.RemoveAll(); }, "void Tarsel::Core::Property::RemoveAll()"},
        {"ChildExists", [](Property& p) { p.ChildExists("n"); }},
        {"operator[]", [](Property& p) { p["n"]; }},
        {"operator[]", [](Property& p) { std::as_const(p)[0]; }},
        {"begin", [](Property& p) { p.begin(); }},
        {"begin", [](Property& p) { std::as_const(p).begin(); }},
        {"end", [](Property& p) { p.end(); }},
        {"end", [](Property& p) { std::as_const(p).end(); }},
        {"rbegin", [](Property& p) { p.rbegin(); }},
        {"rbegin", [](Property& p) { std::as_const(p).rbegin(); }},
        {"rend", [](Property& p) { p.rend(); }},
        {"rend", [](Property& p) { std::as_const(p).rend(); }},
    };
    for (const auto& c : cases) {
        Property node("leaf", "text");
        const auto e = CatchAs<MethodIsNotApplicable>([&] { c.op(node); });
        EXPECT_EQ(Info<P::TagMethodName>(e), c.method);
        EXPECT_EQ(Info<P::TagPropertyName>(e), "leaf");
        EXPECT_EQ(Info<P::TagPropertyType>(e), TypeString);
        EXPECT_NE(boost::get_error_info<TagCallStack>(e), nullptr);
        if (c.function != nullptr) {
            EXPECT_STREQ(Info<boost::throw_function>(e), c.function);
        }
        EXPECT_EQ(Dump(node), "leaf: text\n");
    }
}

TEST(PropertyChildren, EmptyNamesAreRefusedBeforeTheTypeIsChecked) {
    for (const auto& op :
         {Op([](Property& p) { p.SetChild(""); }), Op([](Property& p) { p.SetChild("", Property("v")); }),
          Op([](Property& p) { p.AddWithName("", Property("v", 1)); })}) {
        for (Property node : {SampleTree(), Property("leaf", true)}) {
            const std::string before = Dump(node);
            // The call stack follows the text, after a line break.
            const std::string message = CatchAs<std::invalid_argument>([&] { op(node); }).what();
            EXPECT_EQ(message.rfind("name is empty\n", 0), 0u) << message;
            EXPECT_EQ(Dump(node), before);
        }
    }
    try {
        Property("x").AddWithName("", Property("v", 1));
        ADD_FAILURE() << "nothing was thrown";
    } catch (const boost::exception& e) {
        EXPECT_STREQ(
            Info<boost::throw_function>(e),
            "Tarsel::Core::Property &Tarsel::Core::Property::AddWithName(const std::string &, Tarsel::Core::Property)");
    }
    // The value-setting templates accept an empty name.
    Property root("root");
    root.SetChild("", "x");
    root.SetChildT<long long>("", 1);
    root.CreateChildT<double>("", 2.5);
    EXPECT_EQ(Dump(root), "root: Array\n\t: 1\n\t: 2.5\n\n");
}

TEST(PropertyChildren, MissingNamesAndIndicesAreRefusedAndLeaveTheTreeUnchanged) {
    Property root = SampleTree();
    const std::string before = Dump(root);
    for (const auto& op : {Op([](Property& p) { p.RemoveChild("zz"); }), Op([](Property& p) { p["zz"]; }),
                           Op([](Property& p) { std::as_const(p)["zz"]; })}) {
        const auto e = CatchAs<ChildNameIsNotFound>([&] { op(root); });
        EXPECT_EQ(Info<P::TagPropertyName>(e), "root");
        EXPECT_EQ(Info<P::TagRequestedChildName>(e), "zz");
    }
    const auto byIndex = CatchAs<IndexIsOutOfBound>([&] { root[3]; });  // reported by the walk it uses
    EXPECT_STREQ(Info<boost::throw_function>(byIndex),
                 "Property::ChildListType::const_iterator Tarsel::Core::Property::GetItemIterator(size_t) const");
    const auto removal = CatchAs<IndexIsOutOfBound>([&] { root.RemoveChild(7); });
    EXPECT_STREQ(Info<boost::throw_function>(removal),
                 "Property::ChildListType::iterator Tarsel::Core::Property::GetItemIterator(size_t)");
    EXPECT_EQ(Info<P::TagRequestedChildIndex>(byIndex), 3u);
    EXPECT_EQ(Info<P::TagRequestedChildIndex>(removal), 7u);
    EXPECT_EQ(Info<P::TagChildCount>(removal), 3u);
    EXPECT_EQ(Dump(root), before);
    const auto empty = CatchAs<IndexIsOutOfBound>([] { Property("e").GetItemIterator(0); });
    EXPECT_EQ(Info<P::TagChildCount>(empty), 0u);
    EXPECT_EQ(Info<P::TagRequestedChildIndex>(empty), 0u);
}

TEST(PropertyChildren, SetChildReusesTheFirstMatchInPlaceAndAppendingNeverLooks) {
    Property root("root");
    Property& a = root.SetChild("a");
    a.SetChildT<long long>("grandchild", 1);
    root.CreateChildT<long long>("n", 1);
    root.CreateChildT<long long>("n", 2);  // a second "n"
    EXPECT_EQ(&root.SetChild("a"), &a);    // reset to an empty container
    EXPECT_EQ(a.Count(), 0u);
    root.SetChildT<long long>("a", 5);
    EXPECT_EQ(root.SetChild("a").GetType(), TypeArray);
    // A value overwrites the child's content but keeps its name and place.
    EXPECT_EQ(&root.SetChild("a", Property("other", "v")), &a);
    root.SetChildT<double>("n", 2.5);
    Property& k = root.SetChild("k", Property("other", 3));
    EXPECT_EQ(&k, &root[3]);
    root.Add(Property("ignored", true));  // named by the count
    EXPECT_EQ(Dump(root), "root: Array\n\ta: v\n\tn: 2.5\n\tn: 2\n\tk: 3\n\t4: 1\n\n");
    root.RemoveChild("n");
    root.RemoveChild(0);
    root.Add(Property("x", 9));  // names are counts, not renumbered
    EXPECT_EQ(Dump(root), "root: Array\n\tn: 2\n\tk: 3\n\t4: 1\n\t3: 9\n\n");
}

TEST(PropertyChildren, IterationLookupAndRemoval) {
    Property root = SampleTree();
    std::string names;
    for (auto it = root.rbegin(); it != root.rend(); ++it) {
        names += it->GetName();
    }
    EXPECT_EQ(names, "cba");
    EXPECT_TRUE(root.ChildExists("b"));
    EXPECT_FALSE(root.ChildExists("B"));
    EXPECT_EQ(root.FindChild("zz"), root.end());
    EXPECT_EQ(root.GetItemIterator(1)->GetString(), "x");
    root.RemoveAll();
    EXPECT_EQ(Dump(root), "root: Array\n\n");
    root = 1;
    root.SetArrayType();
    EXPECT_EQ(Dump(root), "root: Array\n\n");
    // AddWithName works on a leaf; the other operations then still refuse it.
    Property leaf("flag", true);
    leaf.AddWithName("hidden", Property("x", 1));
    EXPECT_EQ(leaf.FindChild("hidden")->GetInt64(), 1);
    EXPECT_EQ(leaf.GetItemIterator(0)->GetName(), "hidden");
    EXPECT_THROW(leaf.Count(), MethodIsNotApplicable);
}

// --- Paths -----------------------------------------------------------------

TEST(PropertyPaths, EmptySegmentsAreDroppedSegmentsAreNamesAndLeavesRefuse) {
    Property root = SampleTree();
    root.SetChild("0").SetChild("[0]");
    for (const char* path : {"c/d", "/c/d", "c/d/", "c//d", "///c///d///"}) {
        EXPECT_EQ(&root.ChildByPath(path), &root["c"]["d"]) << path;
        EXPECT_TRUE(root.ChildExistsByPath(path)) << path;
    }
    for (const char* path : {"", "/", "///"}) {
        EXPECT_EQ(&std::as_const(root).ChildByPath(path), &root);
        EXPECT_TRUE(Property("leaf", 1).ChildExistsByPath(path));
        EXPECT_EQ(Property("leaf", 1).ChildByPath(path).GetInt64(), 1);
    }
    EXPECT_EQ(&root.ChildByPath("0/[0]"), &root["0"]["[0]"]);  // names, not positions

    EXPECT_FALSE(root.ChildExistsByPath("c/missing/d"));
    const auto missing = CatchAs<ChildNameIsNotFound>([&] { root.ChildByPath("c/missing/d"); });
    EXPECT_EQ(Info<P::TagRequestedChildName>(missing), "missing");
    EXPECT_EQ(Info<P::TagPropertyName>(missing), "c");
    // Through a leaf: not "false" but the refusal of the leaf's lookup.
    const auto exists = CatchAs<MethodIsNotApplicable>([&] { root.ChildExistsByPath("b/x"); });
    EXPECT_EQ(Info<P::TagMethodName>(exists), "ChildExists");
    EXPECT_EQ(Info<P::TagPropertyName>(exists), "b");
    const auto byPath = CatchAs<MethodIsNotApplicable>([&] { std::as_const(root).ChildByPath("b/x"); });
    EXPECT_EQ(Info<P::TagMethodName>(byPath), "operator[]");
    EXPECT_STREQ(Info<boost::throw_function>(byPath),
                 "const Tarsel::Core::Property &Tarsel::Core::Property::operator[](const std::string &) const");
}

// --- Settings with defaults ------------------------------------------------

// A missing name anywhere on the path, or a path through a value, gives the
// fallback; a found value is read as GetValue reads it, an integer read as
// a double being the one conversion; any other mismatch is reported.
TEST(GetValueOr, FallsBackOnlyWhereThePathLeadsNowhere) {
    Property settings("settings");
    Property& playback = settings.SetChild("playback");
    playback.SetChildT<long long>("volume", 1);  // hand-edited, where 0.8 was written
    playback.SetChildT<double>("gain", 0.25);
    playback.SetChildT<long long>("huge", (1LL << 53) + 1);
    playback.SetChild("frameRateRatio", Property("", Ratio(30000, 1001)));
    Property& video = settings.SetChild("video");
    video.SetChildT<long long>("width", 4294967297LL);
    video.SetChild("codec", "h264");
    video.SetChild("hardwareDecoding", Property("", true));

    const struct {
        const char* path;
        double expected;
    } doubles[] = {
        {"playback/gain", 0.25},
        {"playback/volume", 1.0},               // an integer, converted
        {"playback/huge", 9007199254740992.0},  // 2^53 + 1: the nearest double
        {"missing/volume", -1.0},               // the first name missing
        {"playback/missing/x", -1.0},           // a middle one
        {"playback/missing", -1.0},             // the last one
        {"playback/gain/x", -1.0},              // through a value
        {"video/codec/x/y", -1.0},              // through text
        {"/playback//gain/", 0.25},             // empty segments dropped, as paths do
    };
    for (const auto& c : doubles) {
        EXPECT_EQ(GetValueOr(settings, c.path, -1.0), c.expected) << c.path;
    }
    EXPECT_EQ(GetValueOr<long long>(settings, "video/width", 0), 4294967297LL);
    EXPECT_EQ(GetValueOr(settings, "video/width", 0), 1);  // int: the low 32 bits, as GetValue<int>
    EXPECT_EQ(GetValueOr(settings, "video/width", 0u), 1u);
    EXPECT_EQ(GetValueOr(settings, "video/missing", 7), 7);
    EXPECT_EQ(GetValueOr(settings, "video/codec", "av1"), "h264");
    EXPECT_EQ(GetValueOr(settings, "video/label", "none"), "none");
    EXPECT_EQ(GetValueOr(settings, "video/label", std::string("none")), "none");
    EXPECT_TRUE(GetValueOr(settings, "video/hardwareDecoding", false));
    EXPECT_EQ(GetValueOr(settings, "playback/frameRateRatio", Ratio(25)), Ratio(30000, 1001));
    EXPECT_EQ(GetValueOr(settings, "playback/rate", Ratio(25)), Ratio(25));

    // A value of another type is an error to report, not to hide.
    const auto text = CatchAs<WrongTypeIsRequested>([&] { GetValueOr(settings, "video/codec", 0.0); });
    EXPECT_EQ(Info<P::TagPropertyName>(text), "codec");
    EXPECT_EQ(Info<P::TagPropertyType>(text), TypeString);
    EXPECT_EQ(Info<P::TagRequestedType>(text), TypeDouble);
    EXPECT_THROW(GetValueOr<long long>(settings, "playback/gain", 0), WrongTypeIsRequested);
    EXPECT_THROW(GetValueOr(settings, "playback", false), WrongTypeIsRequested);  // a container
    EXPECT_THROW(GetValueOr(settings, "", "x"), WrongTypeIsRequested);            // the root itself
    EXPECT_EQ(GetValueOr(Property("leaf", 2.5), "", 0.0), 2.5);
}

// A settings file's null, {}, [] and integers from 2^63 to 2^64 - 1 load as
// an empty container, which reads as a setting not set, whatever type is
// asked for; a container with children, or a value of another type, is still
// reported.
TEST(GetValueOr, EmptyContainersFallBackAsSettingsNotSet) {
    const auto loaded = [](const std::string& volume) {
        Property settings("settings");
        PropertySerializer::Deserialize(settings, MemoryDataInput::Create(R"({"playback":{"volume":)" + volume + "}}"),
                                        false);
        return settings;
    };
    for (const char* volume : {"null", "{}", "[]",
                               "9223372036854775808",      // 2^63, the first beyond long long
                               "18446744073709551615"}) {  // 2^64 - 1, the last within 64 bits
        const Property settings = loaded(volume);
        EXPECT_EQ(GetValueOr(settings, "playback/volume", 0.8), 0.8) << volume;
        EXPECT_EQ(GetValueOr<long long>(settings, "playback/volume", -3), -3) << volume;
        EXPECT_EQ(GetValueOr(settings, "playback/volume", 7), 7) << volume;
        EXPECT_EQ(GetValueOr(settings, "playback/volume", 7u), 7u) << volume;
        EXPECT_TRUE(GetValueOr(settings, "playback/volume", true)) << volume;
        EXPECT_EQ(GetValueOr(settings, "playback/volume", "loud"), "loud") << volume;
        EXPECT_EQ(GetValueOr(settings, "playback/volume", std::string("soft")), "soft") << volume;
        EXPECT_EQ(GetValueOr(settings, "playback/volume", Ratio(4, 5)), Ratio(4, 5)) << volume;
        // The path still ends there: nothing below an empty container either.
        EXPECT_EQ(GetValueOr(settings, "playback/volume/left", 0.5), 0.5) << volume;
    }
    // 2^64 loads as the nearest double, a value like any other.
    EXPECT_EQ(GetValueOr(loaded("18446744073709551616"), "playback/volume", 0.8), 18446744073709551616.0);
    EXPECT_EQ(GetValueOr(loaded("0.25"), "playback/volume", 0.8), 0.25);
    // An empty root is a path that ends at an empty container too.
    EXPECT_EQ(GetValueOr(Property("settings"), "", 0.8), 0.8);

    for (const char* volume : {R"({"left":0.5})", "[0.5]", R"("loud")", "true"}) {
        EXPECT_THROW(GetValueOr(loaded(volume), "playback/volume", 0.8), WrongTypeIsRequested) << volume;
    }
    const auto container = CatchAs<WrongTypeIsRequested>([&] { GetValueOr(loaded("[0]"), "playback", 0.8); });
    EXPECT_EQ(Info<P::TagPropertyName>(container), "playback");
    EXPECT_EQ(Info<P::TagPropertyType>(container), TypeArray);
    EXPECT_EQ(Info<P::TagRequestedType>(container), TypeDouble);
}

// --- Deep trees ------------------------------------------------------------

namespace {

// Counts what is written without keeping it: a tree of a hundred thousand
// levels printed with its indentation is five gigabytes of tabs.
class CountingBuffer : public std::streambuf {
public:
    std::size_t bytes = 0;

private:
    int_type overflow(int_type c) override {
        ++bytes;
        return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char*, std::streamsize n) override {
        bytes += static_cast<std::size_t>(n);
        return n;
    }
};

// The depth of a chain of only children, and its bottom node.
template <class Node>
std::pair<std::size_t, Node*> Bottom(Node& node) {
    std::size_t depth = 0;
    Node* current = &node;
    while (current->GetType() == TypeArray && current->Count() == 1) {
        current = &(*current)[std::size_t{0}];
        ++depth;
    }
    return {depth, current};
}

}  // namespace

// Every whole-tree walk holds its path in an explicit stack: none of them may
// recurse once per level, or a thread with a small stack crashes. A hundred
// thousand levels is enough to tell: on a 512 KiB stack, recursion would
// have five bytes a level, less than a return address.
TEST(DeepTree, AHundredThousandLevelsAreCopiedComparedPrintedSavedAndDestroyedOnASmallStack) {
    constexpr std::size_t kDepth = 100000;
    TarselTest::RunOnSmallStack([] {
        // root / a / a / ... / a / leaf=7, built through the public API.
        Property root("root");
        Property* bottom = &root;
        for (std::size_t i = 0; i < kDepth; ++i) {
            bottom = &bottom->SetChild("a");
        }
        bottom->SetChildT<long long>("leaf", 7);

        Property copy(root);
        EXPECT_TRUE(copy == root);
        // The copy is deep: a change at its bottom (to another type, which
        // makes the trees unequal rather than incomparable) is seen, and the
        // original keeps its value.
        *Bottom(copy).second = "7";
        EXPECT_FALSE(copy.IsEqual(root, 0.0));
        EXPECT_EQ(Bottom(root).second->GetInt64(), 7);

        // The other copies, checked by their shape: the deep one above is
        // what the comparison covers. Assigning over the old copy destroys it.
        copy = root;
        Property target("target", 1);
        target.CopyDataFrom(root);
        Property moved(std::move(root));  // a copy as well
        for (const Property* made : {&copy, &target, &moved}) {
            const auto [depth, leaf] = Bottom(*made);
            EXPECT_EQ(depth, kDepth + 1);
            EXPECT_EQ(leaf->GetInt64(), 7);
        }

        EXPECT_THROW(PropertyValueToString(root), PropertyException);

        // A negative indent keeps every line unindented, so the text is small
        // enough to compare whole.
        std::ostringstream printed;
        PrintPropertyValue(root, -static_cast<int>(kDepth) - 1, printed, true, true);
        std::string expectedText = "root: Array\n";
        for (std::size_t i = 0; i < kDepth; ++i) {
            expectedText += "a: Array\n";
        }
        expectedText += "leaf: 7\n" + std::string(kDepth + 1, '\n');
        EXPECT_TRUE(printed.str() == expectedText) << printed.str().size() << " bytes";
        // Indented, the line of level k starts with k tabs.
        CountingBuffer counter;
        std::ostream counted(&counter);
        PrintPropertyValue(root, 0, counted, true, true);
        std::size_t expectedBytes = 0;
        for (std::size_t level = 0; level <= kDepth; ++level) {
            expectedBytes += level + (level == 0 ? 4 : 1) + 8;  // tabs, "root" or "a", ": Array\n"
        }
        expectedBytes += kDepth + 1 + 8 + kDepth + 1;  // tabs, "leaf: 7\n", one line end per container
        EXPECT_EQ(counter.bytes, expectedBytes);

        const auto saved = MemoryDataOutput::Create();
        PropertySerializer::Serialize(root, saved, false);
        std::string expectedJson = "{";
        for (std::size_t i = 0; i < kDepth; ++i) {
            expectedJson += "\"a\":{";
        }
        expectedJson += "\"leaf\":7" + std::string(kDepth + 1, '}');
        EXPECT_TRUE(saved->GetData() == expectedJson) << saved->GetData().size() << " bytes";

        // Dropped by a scalar assignment, a removal, and the destructors.
        copy = 1;
        target.RemoveChild("a");
    });
}

// Each level adds one to the caller's indent: past INT_MAX the count goes on
// instead of overflowing.
TEST(DeepTree, IndentationCountsOnPastTheLargestInt) {
    Property root("r");
    root.SetChild("c").SetChildT<long long>("v", 1);
    CountingBuffer counter;
    std::ostream counted(&counter);
    PrintPropertyValue(root, INT_MAX, counted, true, true);
    const std::size_t tabs = 3 * std::size_t{INT_MAX} + 3;  // INT_MAX, INT_MAX + 1 and INT_MAX + 2
    EXPECT_EQ(counter.bytes, tabs + std::string("r: Array\nc: Array\nv: 1\n\n\n").size());
}
