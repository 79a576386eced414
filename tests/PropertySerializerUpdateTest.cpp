// PropertySerializer::UpdateText and UpdateFile: a tree saved into a text a
// person edits by hand, changing only what must change.
#include <Core/Interfaces/PropertySerializer.h>

#include "support/CatchAs.h"
#include "support/EditedText.h"
#include "support/TempFolder.h"

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include <sys/stat.h>

using namespace Tarsel;
using namespace Tarsel::Core;
using TarselTest::CatchAs;
using Syntax = PropertySerializer::JsonSyntax;
using DoubleText = PropertySerializer::DoubleText;

namespace {

Property Load(const std::string& text, Syntax syntax = Syntax::WithComments, bool wrap = false) {
    Property loaded("settings");
    PropertySerializer::Deserialize(loaded, MemoryDataInput::Create(text), wrap, syntax);
    return loaded;
}

std::string Save(const Property& property, DoubleText doubleText = DoubleText::RoundTrip, bool wrap = false) {
    const auto output = MemoryDataOutput::Create();
    PropertySerializer::Serialize(property, output, wrap, doubleText);
    return output->GetData();
}

// A loaded tree exactly: names, types, order and every double's bits.
std::string Exactly(const Property& loaded) {
    return loaded.GetName() + "=" + Save(loaded);
}

std::string Update(const Property& property, const std::string& text, Syntax syntax = Syntax::WithComments,
                   DoubleText doubleText = DoubleText::RoundTrip, bool wrap = false) {
    return PropertySerializer::UpdateText(property, text, wrap, doubleText, syntax);
}

Property Settings(std::initializer_list<std::pair<const char*, long long>> children) {
    Property settings("settings");
    for (const auto& [name, value] : children) {
        settings.CreateChildT(name, value);
    }
    return settings;
}

}  // namespace

// Hand-written files, each loaded, changed as an application would change
// its tree, and saved back: the exact text a careful person would have
// written. Every result loads to the tree a plain save of the change loads
// to.
TEST(UpdateText, HandEditedFilesChangeOnlyWhatChanged) {
    const struct {
        const char* title;
        std::string text;
        std::function<void(Property&)> change;
        std::string expected;
    } cases[] = {
        {"compact, a value changed", R"({"a":1,"b":"x"})", [](Property& p) { p.SetChildT<long long>("a", 2); },
         R"({"a":2,"b":"x"})"},
        {"compact, a member added", R"({"a":1,"b":"x"})", [](Property& p) { p.SetChildT<bool>("c", true); },
         R"({"a":1,"b":"x","c":true})"},
        {"two spaces, a member added", "{\n  \"a\": 1\n}\n", [](Property& p) { p.SetChildT<bool>("b", true); },
         "{\n  \"a\": 1,\n  \"b\": true\n}\n"},
        {"four spaces, a member added to an inner object",
         "{\n    \"video\": {\n        \"width\": 1920\n    },\n    \"n\": 1\n}",
         [](Property& p) { p["video"].SetChildT<std::string>("codec", "h264"); },
         "{\n    \"video\": {\n        \"width\": 1920,\n        \"codec\": \"h264\"\n    },\n    \"n\": 1\n}"},
        {"four spaces, an object added", "{\n    \"n\": 1\n}",
         [](Property& p) {
             Property& video = p.SetChild("video");
             video.SetChildT<long long>("width", 1280);
             video.SetChildT<double>("fps", 29.97);
         },
         "{\n    \"n\": 1,\n    \"video\": {\n        \"width\": 1280,\n        \"fps\": 29.97\n    }\n}"},
        {"tabs, the first member removed", "{\n\t\"a\": 1,\n\t\"b\": 2\n}", [](Property& p) { p.RemoveChild("a"); },
         "{\n\t\"b\": 2\n}"},
        {"tabs, the last member removed", "{\n\t\"a\": 1,\n\t\"b\": 2\n}", [](Property& p) { p.RemoveChild("b"); },
         "{\n\t\"a\": 1\n}"},
        {"CRLF, a member added", "{\r\n  \"a\": 1\r\n}\r\n", [](Property& p) { p.SetChildT<long long>("b", 2); },
         "{\r\n  \"a\": 1,\r\n  \"b\": 2\r\n}\r\n"},
        {"one line, a member removed from the middle", R"({"a": 1, "b": 2, "c": 3})",
         [](Property& p) { p.RemoveChild("b"); }, R"({"a": 1, "c": 3})"},
        {"one line, the last two members removed", R"({"a": 1, "b": 2, "c": 3})",
         [](Property& p) {
             p.RemoveChild("b");
             p.RemoveChild("c");
         },
         R"({"a": 1})"},
        {"one member on one line takes the file's separator", R"({"x": {"a": 1}, "y": 2})",
         [](Property& p) { p["x"].SetChildT<long long>("b", 3); }, R"({"x": {"a": 1, "b": 3}, "y": 2})"},
        {"an array stays an array", R"({"files": ["a", "b"], "n": 1})",
         [](Property& p) { p.SetChildT<long long>("n", 2); }, R"({"files": ["a", "b"], "n": 2})"},
        {"an element appended", R"({"files": ["a", "b"]})",
         [](Property& p) { p["files"].Add(Property("", std::string("c"))); }, R"({"files": ["a", "b", "c"]})"},
        {"the last element removed", "{\"files\": [\n  \"a\",\n  \"b\"\n]}",
         [](Property& p) { p["files"].RemoveChild(std::size_t{1}); }, "{\"files\": [\n  \"a\"\n]}"},
        {"an array whose children are no longer indexes becomes an object", R"({"files": ["a", "b"]})",
         [](Property& p) { p["files"].RemoveChild(std::size_t{0}); }, R"({"files": {"1": "b"}})"},
        {"nulls, empty objects and arrays stay while they are empty", R"({"n": null, "e": {}, "a": [], "x": 1})",
         [](Property& p) { p.SetChildT<long long>("x", 2); }, R"({"n": null, "e": {}, "a": [], "x": 2})"},
        {"a null given a value", R"({"n": null})", [](Property& p) { p.SetChildT<long long>("n", 5); }, R"({"n": 5})"},
        {"an empty array given elements", R"({"a": []})",
         [](Property& p) {
             p["a"].Add(Property("", 1LL));
             p["a"].Add(Property("", 2LL));
         },
         R"({"a": [1, 2]})"},
        {"integers beyond 2^63 keep their digits",
         R"({"big": 18446744073709551615, "huge": 1234567890123456789012345678901, "x": 1})",
         [](Property& p) { p.SetChildT<long long>("x", 2); },
         R"({"big": 18446744073709551615, "huge": 1234567890123456789012345678901, "x": 2})"},
        {"17-digit doubles keep their text; a changed one is written shortest",
         R"({"d": 0.10000000000000001, "e": 52.520008, "f": 1E2})", [](Property& p) { p.SetChildT<double>("e", 0.25); },
         R"({"d": 0.10000000000000001, "e": 0.25, "f": 1E2})"},
        {"an integer that becomes a double", R"({"v": 1})", [](Property& p) { p.SetChildT<double>("v", 1.0); },
         R"({"v": 1.0})"},
        {"escapes kept", R"({"caf\u00e9": "\u00e9t\u00e9", "tab\tkey": "a\/b", "n": 1})",
         [](Property& p) { p.SetChildT<long long>("n", 2); },
         R"({"caf\u00e9": "\u00e9t\u00e9", "tab\tkey": "a\/b", "n": 2})"},
        {"a repeated key: the member a load keeps is changed", R"({"a": 1, "b": 2, "a": 3})",
         [](Property& p) { p.SetChildT<long long>("a", 4); }, R"({"a": 1, "b": 2, "a": 4})"},
        {"a repeated key removed goes everywhere", R"({"a": 1, "b": 2, "a": 3})",
         [](Property& p) { p.RemoveChild("a"); }, R"({"b": 2})"},
        {"ratio texts kept while they read as the same ratio", R"({"frameRateRatio": "12/24", "r": "12/24"})",
         [](Property& p) { p.SetChildT<long long>("n", 1); }, R"({"frameRateRatio": "12/24", "r": "12/24", "n": 1})"},
        {"a ratio changed", R"({"frameRateRatio": "12/24"})",
         [](Property& p) { p.SetChildT("frameRateRatio", Ratio(30000, 1001)); }, R"({"frameRateRatio": "30000/1001"})"},
        {"a value that becomes an object", R"({"a": 1, "b": 2})",
         [](Property& p) { p.SetChild("a").SetChildT<long long>("x", 1); }, R"({"a": {"x": 1}, "b": 2})"},
        {"a new member before one that was there", "{\n  \"a\": 1,\n  \"c\": 3\n}",
         [](Property& p) {
             Property ordered("settings");
             ordered.SetChildT<long long>("a", 1);
             ordered.SetChildT<long long>("b", 2);
             ordered.SetChildT<long long>("c", 3);
             p = ordered;
         },
         "{\n  \"a\": 1,\n  \"b\": 2,\n  \"c\": 3\n}"},
        {"children in a new order: the container is written anew", "{\n  \"a\": 1,\n  \"b\": {\"x\": 2}\n}",
         [](Property& p) {
             Property reordered("settings");
             reordered.SetChild("b", p["b"]);
             reordered.SetChildT<long long>("a", 1);
             p = reordered;
         },
         "{\n  \"b\": {\"x\": 2},\n  \"a\": 1\n}"},
        // JSON with comments: comments stay where they are.
        {"comments kept, a value changed",
         "// settings\n{\n  /* the volume */\n  \"volume\": 0.8, // loud\n  \"n\": 1\n}\n",
         [](Property& p) { p.SetChildT<double>("volume", 0.5); },
         "// settings\n{\n  /* the volume */\n  \"volume\": 0.5, // loud\n  \"n\": 1\n}\n"},
        {"a member added after a comment on the last line", "{\n  \"a\": 1 // one\n}",
         [](Property& p) { p.SetChildT<long long>("b", 2); }, "{\n  \"a\": 1, // one\n  \"b\": 2\n}"},
        {"a removed member takes the comment on its line, not the one above",
         "{\n  \"a\": 1,\n  // about b\n  \"b\": 2, // bee\n  \"c\": 3\n}", [](Property& p) { p.RemoveChild("b"); },
         "{\n  \"a\": 1,\n  // about b\n  \"c\": 3\n}"},
        {"the last member removed: the comma before it goes, the comment stays", "{\n  \"a\": 1, // one\n  \"b\": 2\n}",
         [](Property& p) { p.RemoveChild("b"); }, "{\n  \"a\": 1 // one\n}"},
        {"trailing commas kept for new members", "{\n  \"a\": [1, 2,],\n  \"b\": 2,\n}",
         [](Property& p) {
             p["a"].Add(Property("", 3LL));
             p.SetChildT<long long>("c", 3);
         },
         "{\n  \"a\": [1, 2, 3,],\n  \"b\": 2,\n  \"c\": 3,\n}"},
        {"the last member removed with trailing commas", "{\n  \"a\": 1,\n  \"b\": 2,\n}",
         [](Property& p) { p.RemoveChild("b"); }, "{\n  \"a\": 1,\n}"},
        {"every member removed", "{\n  \"a\": 1,\n  \"b\": 2\n}", [](Property& p) { p.RemoveAll(); }, "{}"},
        {"a member added to an empty object", "{\n  \"o\": {},\n  \"p\": { }\n}",
         [](Property& p) {
             p["o"].SetChildT<long long>("a", 1);
             p["p"].SetChildT<long long>("b", 2);
         },
         "{\n  \"o\": {\"a\": 1},\n  \"p\": { \"b\": 2 }\n}"},
    };
    for (const auto& c : cases) {
        Property tree = Load(c.text);
        c.change(tree);
        const std::string updated = Update(tree, c.text);
        EXPECT_EQ(updated, c.expected) << c.title;
        EXPECT_EQ(Exactly(Load(updated)), Exactly(Load(Save(tree)))) << c.title;
    }
}

// A tree loaded from a text and saved back unchanged changes no byte,
// whatever the text's formatting or its doubles' digits.
TEST(UpdateText, AnUnchangedTreeChangesNothing) {
    const std::string texts[] = {
        "{}",
        "[]",
        " [1, 2.50, -0.0, 1e-7, 18446744073709551615, null, {}, [], \"x\"] ",
        "{\"a\"  :  {\"b\":[ [ ], { } ]} , \"a\": 7, \"frameRateRatio\": \"0/5\"}\n",
        "// c\n{ /* k */ \"k\" /* v */ : 1, } // end",
        "{\r\n\t\"d\": 0.30000000000000004,\r\n\t\"e\": 1.7976931348623157e308\r\n}",
    };
    for (const std::string& text : texts) {
        for (const DoubleText doubleText : {DoubleText::SixDigits, DoubleText::RoundTrip}) {
            EXPECT_EQ(Update(Load(text), text, Syntax::WithComments, doubleText), text);
        }
    }
}

// With six digits, a double is written anew only where the text does not
// hold it exactly; what a plain save would round, the text may keep exact.
TEST(UpdateText, SixDigitsRewritesOnlyTheDoublesThatChanged) {
    const std::string text = R"({"kept": 52.520008, "changed": 1.5, "new": 0})";
    Property tree = Load(text);
    tree.SetChildT<double>("changed", 2.25);
    tree.SetChildT<double>("new", 1700000000.123);
    const std::string updated = Update(tree, text, Syntax::Strict, DoubleText::SixDigits);
    EXPECT_EQ(updated, R"({"kept": 52.520008, "changed": 2.25000, "new": 1.70000e+09})");
    EXPECT_DOUBLE_EQ(Load(updated)["kept"].GetDouble(), 52.520008);
}

TEST(UpdateText, WrappedRootsUpdateTheirMember) {
    Property settings = Load(R"({"playback": {"volume": 0.8}, "other": 1})", Syntax::Strict, true);
    EXPECT_EQ(settings.GetName(), "playback");
    settings.SetChildT<double>("volume", 0.5);
    EXPECT_EQ(
        Update(settings, R"({"playback": {"volume": 0.8}, "other": 1})", Syntax::Strict, DoubleText::RoundTrip, true),
        R"({"playback": {"volume": 0.5}, "other": 1})");
    // Another first member: the document is written anew, in its style.
    EXPECT_EQ(Update(settings, R"({"video": 1})", Syntax::Strict, DoubleText::RoundTrip, true),
              R"({"playback": {"volume": 0.5}})");
}

TEST(UpdateText, ATextThatDoesNotParseIsRefusedWhereItFails) {
    const Property tree = Settings({{"a", 1}});
    const JsonException e = CatchAs<JsonException>([&] { Update(tree, "{\n  \"a\": 1,\n  \"b\" 2\n}"); });
    EXPECT_EQ(*boost::get_error_info<JsonException::TagParseLine>(e), 3u);
    EXPECT_EQ(*boost::get_error_info<JsonException::TagParseReason>(e), "missing a colon after a member name");
    EXPECT_THROW(Update(tree, "{\"a\": 1, // c\n}", Syntax::Strict), JsonException);
    // Nothing there yet: the plain save, after what comments there are.
    EXPECT_EQ(Update(tree, "  \n"), R"({"a":1})");
    EXPECT_EQ(Update(tree, "// settings"), "// settings\n{\"a\":1}");
}

class UpdateFile : public TarselTest::TempFolderTest {};

TEST_F(UpdateFile, ChangesTheFileOrWritesANewOneButNeverOverwritesWhatItCannotRead) {
    const Property tree = Settings({{"a", 2}});
    WriteFile("settings.json", "{\n  \"a\": 1, // one\n  \"b\": 3\n}\n");
    PropertySerializer::UpdateFile(tree, At("settings.json"), false, DoubleText::RoundTrip, Syntax::WithComments);
    EXPECT_EQ(ReadFile("settings.json"), "{\n  \"a\": 2 // one\n}\n");

    PropertySerializer::UpdateFile(tree, At("new.json"), false, DoubleText::RoundTrip, Syntax::Strict);
    EXPECT_EQ(ReadFile("new.json"), R"({"a":2})");

    WriteFile("broken.json", "{\"a\": 1,");
    const JsonException e = CatchAs<JsonException>(
        [&] { PropertySerializer::UpdateFile(tree, At("broken.json"), false, DoubleText::RoundTrip, Syntax::Strict); });
    EXPECT_EQ(*boost::get_error_info<JsonException::TagParseOffset>(e), 8u);
    EXPECT_EQ(ReadFile("broken.json"), "{\"a\": 1,");
    EXPECT_THROW(
        PropertySerializer::UpdateFile(tree, At("missing/settings.json"), false, DoubleText::RoundTrip, Syntax::Strict),
        boost::filesystem::filesystem_error);
}

// Hand-written texts and changes made at random (tests/support/EditedText.h,
// the oracle UpdateTextFuzz runs too), from fixed seeds.
TEST(UpdateText, RandomTextsAndChangesKeepEveryPromise) {
    for (std::uint64_t seed = 1; seed <= 3000; ++seed) {
        TarselTest::Choices choices(seed);
        const std::string failure = TarselTest::CheckUpdate(choices);
        ASSERT_EQ(failure, "") << "seed " << seed;
    }
}
