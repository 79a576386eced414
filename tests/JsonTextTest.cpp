// JsonText: a JSON text with the bytes of every value, read by the rules
// loading reads by, and the edits an editor would make to it.
#include <Core/Interfaces/JsonText.h>

#include "support/CatchAs.h"
#include "support/Describe.h"

#include <boost/exception/get_error_info.hpp>
#include <boost/rational.hpp>
#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

using namespace Tarsel;
using namespace Tarsel::Core;
using TarselTest::CatchAs;
using Kind = JsonText::Kind;
using Syntax = PropertySerializer::JsonSyntax;

namespace {

// The texts the JsonTexts of the tests read, kept while the tests run.
const std::string& Kept(const std::string& text) {
    static std::list<std::string> texts;
    return texts.emplace_back(text);
}

JsonText Parse(const std::string& text, JsonText::Rules rules = JsonText::Rules::Json, Syntax syntax = Syntax::Strict) {
    return JsonText(Kept(text), syntax, rules);
}

// Every value in document order as "kind:spelling", a member's key before it.
std::string Values(const JsonText& json) {
    static const char* const kKinds[] = {"null", "bool", "int", "double", "string", "object", "array"};
    std::string shown;
    std::vector<JsonText::Value> pending{json.Root()};
    while (!pending.empty()) {
        const JsonText::Value value = pending.back();
        pending.pop_back();
        if (!shown.empty()) {
            shown += " ";
        }
        if (json.IsMember(value)) {
            shown += std::string(json.KeySpelling(value)) + "=";
        }
        shown += kKinds[static_cast<int>(json.KindOf(value))] + std::string(":") + std::string(json.Spelling(value));
        std::vector<JsonText::Value> children(json.ChildrenOf(value).begin(), json.ChildrenOf(value).end());
        pending.insert(pending.end(), children.rbegin(), children.rend());
    }
    return shown;
}

std::string Load(const std::string& text, Syntax syntax = Syntax::Strict) {
    Property loaded("root");
    PropertySerializer::Deserialize(loaded, MemoryDataInput::Create(text), false, syntax);
    return TarselTest::Describe(loaded);
}

std::string Edited(const JsonText& json, const JsonText::Edit& edit) {
    std::string text = json.Text();
    JsonText::Apply(edit, text);
    return text;
}

}  // namespace

TEST(JsonText, EveryValueSpansItsOwnBytes) {
    const struct {
        std::string text;
        std::string values;
    } cases[] = {
        {"{}", "object:{}"},
        {" [ ] ", "array:[ ]"},
        {R"({"a": 1, "b" : [true, null, -0.5e3, "x\"y"], "c":{}})",
         R"(object:{"a": 1, "b" : [true, null, -0.5e3, "x\"y"], "c":{}} "a"=int:1 )"
         R"("b"=array:[true, null, -0.5e3, "x\"y"] bool:true null:null double:-0.5e3 string:"x\"y" "c"=object:{})"},
        // Any root under the plain JSON rules, a number of any size.
        {"18446744073709551616", "int:18446744073709551616"},
        {" \"s\" ", "string:\"s\""},
        {"[2e308]", "array:[2e308] double:2e308"},
        // The text ends at its first zero byte, as a load reads it.
        {std::string("{\"a\":1}\0{", 9), "object:{\"a\":1} \"a\"=int:1"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Values(Parse(c.text)), c.values) << c.text;
    }
    const JsonText comments =
        Parse("/* c */ {\"a\" /* k */ : // v\n [1 /* x */,], }", JsonText::Rules::Json, Syntax::WithComments);
    EXPECT_EQ(Values(comments), "object:{\"a\" /* k */ : // v\n [1 /* x */,], } \"a\"=array:[1 /* x */,] int:1");
}

// A member's name is its key decoded and cut at its first zero character;
// the last member of a name is the one a load keeps.
TEST(JsonText, NamesAndMembersFollowTheLoad) {
    const JsonText json = Parse(R"({"a":1,"a\u0000b":5,"caf\u00e9":2,"\ud83d\ude00":3,"k":[7,8]})");
    std::vector<std::string> keys;
    for (const JsonText::Value member : json.ChildrenOf(json.Root())) {
        keys.push_back(json.Key(member));
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"a", "a", "caf\xC3\xA9", "\xF0\x9F\x98\x80", "k"}));
    EXPECT_EQ(json.Spelling(json.Member(json.Root(), "a")), "5");
    EXPECT_EQ(json.Spelling(json.Member(json.Root(), "caf\xC3\xA9")), "2");
    EXPECT_EQ(json.Member(json.Root(), std::string("a\0b", 3)), JsonText::kNone);
    EXPECT_EQ(json.Member(json.Member(json.Root(), "k"), "0"), JsonText::kNone);
    EXPECT_EQ(json.Spelling(json.Element(json.Member(json.Root(), "k"), 1)), "8");
    EXPECT_EQ(json.Element(json.Member(json.Root(), "k"), 2), JsonText::kNone);
    EXPECT_EQ(Load(json.Text()), "root<6>{a<3>5,caf\xC3\xA9<3>2,\xF0\x9F\x98\x80<3>3,k<6>{0<3>7,1<3>8}}");
    EXPECT_EQ(json.Count(json.Root()), 5u);
    EXPECT_EQ(json.KeySpelling(json.Root()), "");
    EXPECT_EQ(json.Key(json.Root()), "");
}

TEST(JsonText, StringsDecodeAsALoadDecodesThem) {
    const JsonText json =
        Parse(R"(["plain", "a\"b\\c\/d\b\f\n\r\t", "\u0041\u00e9\u20ac\ud834\udd1e", "\udc00", "z\u0000z"])");
    const std::vector<std::string> expected = {"plain", "a\"b\\c/d\b\f\n\r\t", "A\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E",
                                               "\xED\xB0\x80",  // a low surrogate alone is kept as its three bytes
                                               std::string("z\0z", 3)};
    std::size_t i = 0;
    for (const JsonText::Value element : json.ChildrenOf(json.Root())) {
        EXPECT_EQ(json.StringValue(element), expected[i++]);
    }
    EXPECT_THROW(json.StringValue(json.Root()), std::invalid_argument);
}

TEST(JsonText, FollowStopsWhereThePathLeadsNowhere) {
    const JsonText json = Parse(R"({"video":{"width":1920},"files":["a","b"],"a/b":1,"":{"x":2}})");
    const struct {
        std::vector<std::string> names;
        std::size_t matched;
        const char* spelling;
    } cases[] = {
        {{}, 0, nullptr},
        {{"video", "width"}, 2, "1920"},
        {{"video", "height"}, 1, R"({"width":1920})"},
        {{"video", "width", "x"}, 2, "1920"},  // through a value
        {{"files", "1"}, 2, R"("b")"},
        {{"files", "2"}, 1, nullptr},
        {{"files", "01"}, 1, nullptr},  // no leading zero in an index
        {{"files", "-1"}, 1, nullptr},
        {{"files", "+1"}, 1, nullptr},
        {{"files", "99999999999999999999999"}, 1, nullptr},
        {{"a/b"}, 1, "1"},
        {{"", "x"}, 2, "2"},
    };
    for (const auto& c : cases) {
        const JsonText::Reach reach = json.Follow(c.names);
        EXPECT_EQ(reach.matched, c.matched) << testing::PrintToString(c.names);
        if (c.spelling != nullptr) {
            EXPECT_EQ(json.Spelling(reach.value), c.spelling) << testing::PrintToString(c.names);
        }
    }
}

// What the settings rules refuse, they refuse as a load does: the same type,
// the same location and reason, a later syntax error first.
TEST(JsonText, SettingsRulesRefuseWhatDeserializeRefuses) {
    const std::string texts[] = {
        "5",
        "\"s\"",
        "[1e400]",
        "{\"a\":{\"\":1}}",
        "{\"list\":[{\"frameRateRatio\":\"1/0\"}]}",
        "{\"p\":{\"frameRateRatio\":\"30/0\"},\"q\":}",
        "[" + std::string(PropertySerializer::kMaxDepth, '[') + std::string(PropertySerializer::kMaxDepth + 1, ']'),
        "{\"a\":1,}",
    };
    const auto describe = [](const std::function<void()>& run) {
        try {
            run();
        } catch (const std::exception& e) {
            const auto* offset = boost::get_error_info<JsonException::TagParseOffset>(e);
            const auto* reason = boost::get_error_info<JsonException::TagParseReason>(e);
            return std::string(typeid(e).name()) + " " + (offset ? std::to_string(*offset) : "-") + " " +
                   (reason ? *reason : "-");
        }
        return std::string("accepted");
    };
    for (const std::string& text : texts) {
        const std::string loaded = describe([&] { Load(text); });
        EXPECT_NE(loaded, "accepted") << text;
        EXPECT_EQ(describe([&] { Parse(text, JsonText::Rules::Settings); }), loaded) << text.substr(0, 60);
    }
    // The plain rules take a document of any root and any numbers.
    EXPECT_NO_THROW(Parse("5", JsonText::Rules::Json));
    EXPECT_NO_THROW(Parse("[1e400, {\"\": 1, \"frameRateRatio\": \"1/0\"}]", JsonText::Rules::Json));
    const JsonException e = CatchAs<JsonException>([] { Parse("{\"a\" 1}"); });
    EXPECT_STREQ(*boost::get_error_info<boost::throw_function>(e),
                 "Tarsel::Core::JsonText::JsonText(const std::string &, Tarsel::Core::PropertySerializer::JsonSyntax, "
                 "Tarsel::Core::JsonText::Rules)");
}

// A new child takes the layout of its neighbours, or of the document where
// it has none to copy; the result loads with the new value in place.
TEST(JsonText, AppendLaysOutAsTheNeighboursAre) {
    const struct {
        const char* title;
        std::string text;
        std::vector<std::string> path;  // the container, then the names to add
        std::size_t containerDepth;
        std::string expected;
    } cases[] = {
        {"compact", R"({"a":1,"b":2})", {"c"}, 0, R"({"a":1,"b":2,"c":3})"},
        {"spaced", R"({"a": 1, "b": 2})", {"c"}, 0, R"({"a": 1, "b": 2, "c": 3})"},
        {"one member on one line takes the document's separator",
         R"({"x": {"a": 1}, "y": 2})",
         {"x", "b"},
         1,
         R"({"x": {"a": 1, "b": 3}, "y": 2})"},
        {"an empty object keeps its inner spaces",
         R"({"x": { }, "y": 2})",
         {"x", "b"},
         1,
         R"({"x": { "b": 3 }, "y": 2})"},
        {"an empty compact object", R"({"x":{},"y":2})", {"x", "b"}, 1, R"({"x":{"b":3},"y":2})"},
        {"two spaces", "{\n  \"a\": 1\n}\n", {"b"}, 0, "{\n  \"a\": 1,\n  \"b\": 3\n}\n"},
        {"tabs and CRLF", "{\r\n\t\"a\": 1\r\n}", {"b"}, 0, "{\r\n\t\"a\": 1,\r\n\t\"b\": 3\r\n}"},
        {"a comment after the last member stays on its line",
         "{\n  \"a\": 1 // one\n}",
         {"b"},
         0,
         "{\n  \"a\": 1, // one\n  \"b\": 3\n}"},
        {"a trailing comma is kept", "{\n  \"a\": 1,\n}", {"b"}, 0, "{\n  \"a\": 1,\n  \"b\": 3,\n}"},
        {"an empty multi-line object, one level in",
         "{\n  \"x\": {\n  },\n  \"y\": 2\n}",
         {"x", "b"},
         1,
         "{\n  \"x\": {\n    \"b\": 3\n  },\n  \"y\": 2\n}"},
        {"nested objects for the names after it, spread as the container is",
         "{\n    \"a\": 1\n}",
         {"p", "q", "r"},
         0,
         "{\n    \"a\": 1,\n    \"p\": {\n        \"q\": {\n            \"r\": 3\n        }\n    }\n}"},
        {"nested objects on one line", R"({"a":1})", {"p", "q"}, 0, R"({"a":1,"p":{"q":3}})"},
        {"an array", R"({"files": ["a", "b"]})", {"files", "2"}, 1, R"({"files": ["a", "b", 3]})"},
        {"an empty array", R"({"files": []})", {"files", "0"}, 1, R"({"files": [3]})"},
        {"a name cut at its first zero, escaped", R"({})", {std::string("\"\n\0x", 4)}, 0, R"({"\"\n":3})"},
    };
    for (const auto& c : cases) {
        const JsonText json = Parse(c.text, JsonText::Rules::Json, Syntax::WithComments);
        const std::vector<std::string> container(c.path.begin(), c.path.begin() + c.containerDepth);
        const JsonText::Reach reach = json.Follow(container);
        ASSERT_EQ(reach.matched, c.containerDepth) << c.title;
        const bool array = json.KindOf(reach.value) == Kind::Array;
        const std::vector<std::string> names(c.path.begin() + c.containerDepth + (array ? 1 : 0), c.path.end());
        EXPECT_EQ(Edited(json, json.Append(reach.value, names, "3")), c.expected) << c.title;
    }
    const JsonText scalar = Parse(R"({"a":1})");
    EXPECT_THROW(scalar.Append(scalar.Member(scalar.Root(), "a"), {"b"}, "1"), std::invalid_argument);
    EXPECT_THROW(scalar.Append(scalar.Root(), {}, "1"), std::invalid_argument);
}

TEST(JsonText, ReplaceChangesOnlyTheValuesBytes) {
    const JsonText json = Parse("{ \"a\" : [1, 2] , \"b\":\"x\" }");
    EXPECT_EQ(Edited(json, json.Replace(json.Member(json.Root(), "a"), "null")), "{ \"a\" : null , \"b\":\"x\" }");
    EXPECT_EQ(Edited(json, json.Replace(json.Member(json.Root(), "b"), "\"y\"")), "{ \"a\" : [1, 2] , \"b\":\"y\" }");
    EXPECT_EQ(json.Text(), "{ \"a\" : [1, 2] , \"b\":\"x\" }");
}
