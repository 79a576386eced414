#include <Core/Interfaces/PropertySerializer.h>

#include "support/Clip.h"
#include "support/Describe.h"
#include "support/DoubleText.h"
#include "support/SmallStack.h"

#include <boost/exception/get_error_info.hpp>
#include <boost/filesystem.hpp>
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>
#include <random>
#include <thread>

using namespace Tarsel;
using namespace Tarsel::Core;
using TarselTest::Clip;
using TarselTest::Describe;
using TarselTest::RunOnSmallStack;

namespace {

std::string Serialize(const Property& p, bool wrap = false) {
    const auto out = MemoryDataOutput::Create();
    PropertySerializer::Serialize(p, out, wrap);
    return out->GetData();
}

void Deserialize(Property& p, const std::string& text, bool wrap = false) {
    PropertySerializer::Deserialize(p, MemoryDataInput::Create(text), wrap);
}

Property Load(const std::string& text, bool wrap = false) {
    Property p("root");
    Deserialize(p, text, wrap);
    return p;
}

class RecordingOutput : public RefCounted<IDataOutput> {
public:
    std::size_t Write(const void* data, std::size_t size) override {
        writes.emplace_back(static_cast<const char*>(data), size);
        return size;
    }
    std::vector<std::string> writes;
};

// Reports size, then delivers the given bytes (or throws for "throw") and
// returns their count, or the count it is told to report instead.
class ScriptedInput : public RefCounted<IDataInput> {
public:
    ScriptedInput(std::size_t size, std::string delivered)
        : m_size(size), m_delivered(std::move(delivered)), m_returned(m_delivered.size()) {}
    ScriptedInput(std::size_t size, std::string delivered, std::size_t returned)
        : m_size(size), m_delivered(std::move(delivered)), m_returned(returned) {}
    std::size_t GetSize() const override { return m_size; }
    std::size_t Read(void* data, std::size_t) override {
        if (m_delivered == "throw") {
            throw std::runtime_error("read failed");
        }
        std::memcpy(data, m_delivered.data(), m_delivered.size());
        return m_returned;
    }

private:
    std::size_t m_size;
    std::string m_delivered;
    std::size_t m_returned;
};

std::string Nested(std::size_t depth, const std::string& open, const std::string& close, const char* inner = "") {
    std::string text;
    for (std::size_t i = 0; i < depth; ++i) {
        text += open;
    }
    text += inner;
    for (std::size_t i = 0; i < depth; ++i) {
        text += close;
    }
    return text;
}

void ExpectParseError(Property& target, const std::string& text) {
    const std::string before = Describe(target);
    try {
        Deserialize(target, text);
        ADD_FAILURE() << "accepted: " << text.substr(0, 80);
    } catch (const JsonException& e) {
        EXPECT_EQ(*boost::get_error_info<JsonException::TagParseError>(e), "Parse error");
        EXPECT_EQ(boost::get_error_info<TagCallStack>(e), nullptr);
        EXPECT_STREQ(*boost::get_error_info<boost::throw_function>(e),
                     "static void Tarsel::Core::PropertySerializer::Deserialize(Core::Property &, "
                     "boost::intrusive_ptr<Tarsel::Core::IDataInput>, bool)");
    }
    EXPECT_EQ(Describe(target), before) << text.substr(0, 80);
}

}  // namespace

TEST(PropertySerializer, ClipExampleRoundTripsByteForByte) {
    const std::string inner = R"({"width":1920,"fps":29.9700,"title":"clip","frameRateRatio":"30000/1001"})";
    EXPECT_EQ(Serialize(Clip()), inner);
    EXPECT_EQ(Serialize(Clip(), true), R"({"cfg":)" + inner + "}");
    for (bool wrap : {false, true}) {
        const Property back = Load(Serialize(Clip(), wrap), wrap);
        EXPECT_EQ(Describe(back), std::string(wrap ? "cfg" : "root") +
                                      "<6>{width<3>1920,fps<2>29.97,title<4>clip,frameRateRatio<5>30000/1001}");
        EXPECT_EQ(Serialize(back, wrap), Serialize(Clip(), wrap));
    }
    // Only one key reads back as a ratio.
    EXPECT_EQ(Describe(Load(R"({"rate":"30000/1001"})")), "root<6>{rate<4>30000/1001}");
}

TEST(Serialize, TheWholeTextReachesTheSinkInOneWriteBeforeReturning) {
    const boost::intrusive_ptr<RecordingOutput> sink(new RecordingOutput);
    Property p("p");
    p.SetChildT<long long>("a", 1);
    PropertySerializer::Serialize(p, sink, false);
    EXPECT_EQ(sink->writes, std::vector<std::string>{R"({"a":1})"});
    EXPECT_EQ(sink->GetRefCount(), 1);  // the sink is not kept

    class FailingOutput : public RefCounted<IDataOutput> {
        std::size_t Write(const void*, std::size_t) override { throw std::runtime_error("disk full"); }
    };
    EXPECT_THROW(PropertySerializer::Serialize(Clip(), new FailingOutput, false), std::runtime_error);
}

// The public stream holds nothing back: a client that writes with
// rapidjson's writer and then drops the stream has lost no byte.
TEST(JsonTarselStreamOut, EachCharacterIsOneWriteOfOneByteAtOnce) {
    const boost::intrusive_ptr<RecordingOutput> sink(new RecordingOutput);
    {
        JsonTarselStreamOut stream(sink);
        EXPECT_EQ(sink->GetRefCount(), 2);  // held while the stream lives
        stream.Put('[');
        EXPECT_EQ(sink->writes, std::vector<std::string>{"["});
    }
    EXPECT_EQ(sink->GetRefCount(), 1);

    Property p("p");
    p.SetChildT<long long>("a", 1);
    rapidjson::Document document;
    PropertySerializer::Save(p, document, document.GetAllocator());
    sink->writes.clear();
    JsonTarselStreamOut stream(sink);
    rapidjson::Writer<JsonTarselStreamOut, rapidjson::UTF8<char>, rapidjson::UTF8<char>, PropertySerializer::JsonAllocator>
        writer(stream);
    document.Accept(writer);
    EXPECT_EQ(sink->writes, (std::vector<std::string>{"{", "\"", "a", "\"", ":", "1", "}"}));
}

TEST(Serialize, ValuesMapAsDocumented) {
    Property p("p");
    p.SetChild("empty");
    p.SetChildT<double>("two", 2.0);
    p.SetChildT<long long>("int", -2);
    p.SetChild("yes", Property("", true));
    p.SetChild("text", Property("", std::string("q\"b\\s/\x01\x1f\b\t\n\f\r\x7f\xc3\xa9\0z", 18)));
    p.SetChild("ratio", Property("", Ratio(-1, 2)));
    p.SetChild("lowest", Property("", Ratio(std::numeric_limits<long long>::min())));
    p.AddWithName(std::string("nul\0cut", 7), Property("", 1));  // keys end at a zero character
    p.SetChildT<double>("inf", std::numeric_limits<double>::infinity());
    p.SetChild("list").Add(Property("", 5));
    EXPECT_EQ(Serialize(p), R"({"empty":{},"two":2.00000,"int":-2,"yes":true,)"
                            R"("text":"q\"b\\s/\u0001\u001F\b\t\n\f\r)"
                            "\x7f\xc3\xa9"
                            R"(\u0000z","ratio":"-1/2","lowest":"-9223372036854775808/1","nul":1,"inf":null,"list":{"0":5}})");
    EXPECT_EQ(Serialize(Property("d", 0.1)), "0.100000");  // a bare value without wrapping

    // Children sharing a name write into the first member; later ones stay null.
    Property dup("d");
    for (int i = 0; i < 40; ++i) {  // 40: past the small-container scan
        dup.CreateChildT<long long>("k" + std::to_string(i % 20), i);
    }
    const std::string text = Serialize(dup);
    EXPECT_EQ(text.substr(0, 17), R"({"k0":20,"k1":21,)");
    EXPECT_EQ(text.substr(text.size() - 22), R"("k18":null,"k19":null})");
    // Distinct keys are never taken for repeats, in records checked key by
    // key (up to 32 members) and in larger ones.
    for (const int count : {32, 33}) {
        Property distinct("d");
        for (int i = 0; i < count; ++i) {
            distinct.CreateChildT<long long>("k" + std::to_string(i), i);
        }
        EXPECT_EQ(Serialize(distinct).find("null"), std::string::npos) << count;
    }
}

TEST(Serialize, DoublesAreWrittenLikePercentHashG) {
    std::mt19937_64 random(20261122);
    std::vector<double> values = {0.0, -0.0, 0.1, 29.97, 1e-05, 1e-4, 123456.0, 999999.5, 1e300, -5e-324, 9.999995};
    std::uniform_real_distribution<double> mantissa(-10, 10);
    std::uniform_int_distribution<int> exponent(-12, 12);
    for (int i = 0; i < 5000; ++i) {
        values.push_back(mantissa(random) * std::pow(10.0, exponent(random)));
        const std::uint64_t bits = random() & 0x7fefffffffffffffULL;  // any finite double
        double raw = 0;
        std::memcpy(&raw, &bits, sizeof raw);
        values.push_back(raw);
    }
    for (double value : values) {
        const std::string text = Serialize(Property("d", value));
        ASSERT_EQ(text, TarselTest::SavedDoubleText(value)) << value;
        ASSERT_EQ(Load("[" + text + "]")[std::size_t{0}].GetType(), TypeDouble) << text;
    }
    EXPECT_EQ(Serialize(Property("d", -192000.0)), "-192000.0");
}

TEST(SerializeToFile, ReplacesTheFileWholeOrLeavesItAsItWas) {
    namespace fs = boost::filesystem;
    const fs::path dir = fs::temp_directory_path() / fs::unique_path("tarsel-save-%%%%-%%%%-%%%%");
    fs::create_directory(dir);
    const std::string file = (dir / "settings.json").string();
    std::ofstream(file) << R"({"old":true})";
    PropertySerializer::SerializeToFile(Clip(), file, true);
    Property back("back");
    PropertySerializer::Deserialize(back, FileDataInput::Create(file), true);
    EXPECT_EQ(Describe(back), "cfg<6>{width<3>1920,fps<2>29.97,title<4>clip,frameRateRatio<5>30000/1001}");
    // A folder in the file's place cannot be replaced: the error names the
    // path, and nothing is left behind.
    const std::string folder = (dir / "folder").string();
    fs::create_directory(folder);
    try {
        PropertySerializer::SerializeToFile(Clip(), folder, false);
        ADD_FAILURE() << "a folder was replaced";
    } catch (const fs::filesystem_error& e) {
        EXPECT_EQ(e.path1().string(), folder);
        EXPECT_EQ(e.code().value(), EISDIR);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 2);
    fs::remove_all(dir);
}

TEST(Deserialize, JsonValuesMapAsDocumented) {
    EXPECT_EQ(Describe(Load(R"({"arr":[10,20],"null":null,"obj":{},"list":[],"b":false,"d":1e2,"f":1.5,)"
                            R"("i":-2147483649,"max":9223372036854775807,"huge":18446744073709551615,)"
                            R"("beyond":18446744073709551616,"s":"a\u0000b","frameRateRatio":"4/8"})")),
              "root<6>{arr<6>{0<3>10,1<3>20},null<6>{},obj<6>{},list<6>{},b<1>0,d<2>100,f<2>1.5,"
              "i<3>-2147483649,max<3>9223372036854775807,huge<6>{},beyond<2>1.84467e+19,s<4>" +
                  std::string("a\0b", 3) + ",frameRateRatio<5>1/2}");
    EXPECT_EQ(Describe(Load(R"({"frameRateRatio":"25"})")), "root<6>{frameRateRatio<6>{}}");
    EXPECT_EQ(Describe(Load("[10,20]")), "root<6>{0<3>10,1<3>20}");
}

TEST(Deserialize, SyntaxErrorsAndScalarRootsLeaveTheTargetUntouched) {
    Property target("target");
    target.SetChildT<long long>("kept", 1);
    for (const char* text : {"", " ", "5", "\"s\"", "true", "null", "{} x", "{}{}", "[1,]", "{\"a\" 1}", "{\"a\":1",
                             "[01]", "\"\\x\"", "{'a':1}", "nul", "[1 2]", "{\"a\":1,\"b\":{\"c\":[}]}", "\x01",
                             // Beyond the doubles, whether RapidJSON refuses the number or reads infinity.
                             "[1e309]", "[2e308]", "{\"a\":-1.8e308}"}) {
        ExpectParseError(target, text);
    }
    // A failure that loading would meet first does not hide a later syntax error.
    ExpectParseError(target, R"({"a":{"":1},"b":[)");
}

TEST(Deserialize, InputIsReadWholeOnceAndItsFailuresPassThrough) {
    EXPECT_EQ(Describe(Load(std::string("{\"a\":1}\0garbage", 15))), "root<6>{a<3>1}");  // ends at a zero byte
    Property p("p");
    PropertySerializer::Deserialize(p, new ScriptedInput(12, R"({"a":2})"), false);  // short read: zeros
    EXPECT_EQ(Describe(p), "p<6>{a<3>2}");
    // What Read returns is not looked at: the bytes it wrote are the text.
    for (const std::size_t returned : {std::size_t{0}, std::size_t{3}, SIZE_MAX}) {
        Property q("q");
        EXPECT_NO_THROW(PropertySerializer::Deserialize(q, new ScriptedInput(7, R"({"a":1})", returned), false))
            << returned;
        EXPECT_EQ(Describe(q), "q<6>{a<3>1}") << returned;
    }
    EXPECT_THROW(PropertySerializer::Deserialize(p, new ScriptedInput(SIZE_MAX, ""), false), std::bad_alloc);
    EXPECT_THROW(PropertySerializer::Deserialize(p, new ScriptedInput(8, "throw"), false), std::runtime_error);
    EXPECT_EQ(Describe(p), "p<6>{a<3>2}");
}

TEST(Deserialize, NestingIsLimitedTo512LevelsWithoutRecursion) {
    const auto run = [] {
        const std::size_t limit = PropertySerializer::kMaxDepth;
        const std::string deepest = Nested(limit, "{\"a\":", "}", "1");
        EXPECT_EQ(Serialize(Load(deepest)), deepest);  // accepted, saved and reloaded
        EXPECT_EQ(Load(Nested(limit, "[", "]")).Count(), 1u);
        for (Property target : {Property("fresh"), Load(R"({"kept":1})")}) {
            ExpectParseError(target, Nested(limit + 1, "[", "]"));
            ExpectParseError(target, Nested(limit + 1, "{\"a\":", "}", "1"));
            ExpectParseError(target, Nested(100000, "[", "]"));
            ExpectParseError(target, Nested(100000, "{\"a\":", "}", "1"));
            ExpectParseError(target, Nested(100000, "[", ""));
        }
    };
    run();
    RunOnSmallStack(run);
}

TEST(Deserialize, LoadingFailuresKeepWhatWasLoadedBefore) {
    Property p("p");
    try {
        Deserialize(p, R"({"first":1,"group":{"a":1,"":2,"c":3},"last":4})");
        FAIL() << "an empty key must be refused";
    } catch (const std::invalid_argument& e) {
        EXPECT_EQ(std::string(e.what()).rfind("name is empty\n", 0), 0u);
    }
    EXPECT_EQ(Describe(p), "p<6>{first<3>1,group<6>{a<3>1}}");

    Property r("r");
    EXPECT_THROW(Deserialize(r, R"({"x":1,"v":{"frameRateRatio":"1/0"},"y":2})"), boost::bad_rational);
    EXPECT_EQ(Describe(r), "r<6>{x<3>1,v<6>{frameRateRatio<6>{}}}");

    Property leaf("leaf", 1);
    EXPECT_THROW(Deserialize(leaf, R"({"a":1})"), MethodIsNotApplicable);
    EXPECT_NO_THROW(Deserialize(leaf, "{}"));
    try {
        Deserialize(leaf, "[1]");
        FAIL() << "a leaf cannot take elements";
    } catch (const MethodIsNotApplicable& e) {
        EXPECT_EQ(*boost::get_error_info<PropertyException::TagMethodName>(e), "Count");
    }
    EXPECT_EQ(Describe(leaf), "leaf<3>1");
    Property wrapped("w");
    EXPECT_THROW(Deserialize(wrapped, "{}", true), IndexIsOutOfBound);
}

TEST(Deserialize, MergesIntoExistingChildrenAsSetChildDoes) {
    Property p = Load(R"({"keep":1,"replace":{"old":1},"dup":1})");
    p.CreateChildT<long long>("dup", 2);
    Deserialize(p, R"({"replace":{"new":2},"dup":3,"added":true,"added":false})");
    EXPECT_EQ(Describe(p), "root<6>{keep<3>1,replace<6>{new<3>2},dup<3>3,dup<3>2,added<1>0}");

    // Elements are named by the current count, reusing a child of that name.
    Property a("a");
    a.SetChildT<long long>("1", 9);
    Deserialize(a, "[5,6,7]");
    EXPECT_EQ(Describe(a), "a<6>{1<3>7}");
    // Duplicate keys in one object: the last value, in the first one's place.
    EXPECT_EQ(Describe(Load(R"({"k":{"x":1},"j":0,"k":[2]})")), "root<6>{k<6>{0<3>2},j<3>0}");
}

TEST(PropertySerializer, SaveAndLoadAgreeWithSerializeAndDeserialize) {
    Property p = Clip();
    p.RemoveChild("fps");  // rapidjson's writer spells doubles its own way
    p.CreateChildT<long long>("x", 1);
    p.CreateChildT<long long>("x", 2);
    p.SetChild("nested").Add(Property("", true));
    p.SetChild("empty");

    rapidjson::Document document;
    PropertySerializer::Save(p, document, document.GetAllocator());
    const auto out = MemoryDataOutput::Create();
    {
        JsonTarselStreamOut stream(out);
        rapidjson::Writer<JsonTarselStreamOut> writer(stream);
        document.Accept(writer);
    }
    EXPECT_EQ(out->GetData(), Serialize(p));

    Property viaLoad("v");
    PropertySerializer::Load(viaLoad, document);
    Property viaDeserialize("v");
    Deserialize(viaDeserialize, Serialize(p));
    EXPECT_EQ(Describe(viaLoad), Describe(viaDeserialize));

    // Scalars load into the target itself; null assigns nothing.
    Property ratio("frameRateRatio");
    PropertySerializer::Load(ratio, rapidjson::Value("30/1"));
    PropertySerializer::Load(ratio, rapidjson::Value(rapidjson::kNullType));
    EXPECT_EQ(ratio.GetRatio(), Ratio(30));
}

// A DOM can hold what no JSON text can (Deserialize refuses 2e308 as a parse
// error): every double is assigned as it is, in an object, in an array or
// bare.
TEST(Load, DoublesOfACallersDomLoadAsTheyAreFiniteOrNot) {
    const double inf = std::numeric_limits<double>::infinity();
    rapidjson::Document document;
    auto& allocator = document.GetAllocator();
    document.SetObject();
    document.AddMember("a", inf, allocator);
    document.AddMember("list", rapidjson::Value(rapidjson::kArrayType), allocator);
    document["list"].PushBack(-inf, allocator).PushBack(std::nan(""), allocator).PushBack(0.5, allocator);
    Property loaded("root");
    ASSERT_NO_THROW(PropertySerializer::Load(loaded, document));
    EXPECT_EQ(loaded["a"].GetDouble(), inf);
    EXPECT_EQ(loaded["list"][std::size_t{0}].GetDouble(), -inf);
    EXPECT_TRUE(std::isnan(loaded["list"][1].GetDouble()));
    EXPECT_EQ(loaded["list"][2].GetDouble(), 0.5);
    // Merged into a target that already has children, the same.
    Property merged("root");
    merged.SetChildT<long long>("a", 1);
    ASSERT_NO_THROW(PropertySerializer::Load(merged, document));
    EXPECT_EQ(merged["a"].GetDouble(), inf);

    Property bare("bare", 1);
    PropertySerializer::Load(bare, rapidjson::Value(-inf));
    EXPECT_EQ(bare.GetDouble(), -inf);
}

TEST(PropertySerializer, RandomTreesRoundTrip) {
    std::mt19937 random(7);
    const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    const std::function<void(Property&, int)> fill = [&](Property& node, int depth) {
        for (int i = pick(6); i > 0; --i) {
            const std::string name = "n" + std::to_string(i);
            switch (depth < 4 ? pick(7) : pick(5)) {
            case 0:
                node.SetChild(name, Property("", pick(2) == 1));
                break;
            case 1:
                node.SetChildT<double>(name, (pick(8001) - 4000) / 4.0);  // exact in six digits
                break;
            case 2:
                node.SetChildT<long long>(name, static_cast<long long>(random()) * (1LL << pick(30)) * (pick(2) ? 1 : -1));
                break;
            case 3: {
                std::string text;
                for (int c = pick(12); c > 0; --c) {
                    text += static_cast<char>(pick(256));
                }
                node.SetChild(name, Property("", text));
                break;
            }
            case 4:
                node.SetChild("frameRateRatio", Property("", Ratio(pick(100000), 1 + pick(1000))));
                break;
            case 5:
                fill(node.SetChild(name), depth + 1);
                break;
            default: {
                Property& array = node.SetChild(name);
                for (int k = pick(4); k > 0; --k) {
                    array.Add(Property("", static_cast<long long>(pick(100))));
                }
            }
            }
        }
    };
    for (int round = 0; round < 200; ++round) {
        Property tree("root");
        fill(tree, 0);
        const std::string text = Serialize(tree, true);
        Property back("other");
        Deserialize(back, text, true);
        ASSERT_TRUE(back == tree) << text;
        ASSERT_EQ(Serialize(back, true), text);
    }
}

// Loads and saves of different trees on many threads at once are independent:
// each thread gets exactly the text a lone load and save gives.
TEST(PropertySerializer, ConcurrentLoadsAndSavesOfDifferentTreesAreIndependent) {
    constexpr int kThreads = 6;
    std::vector<std::string> documents;
    std::vector<std::string> expected;
    for (int t = 0; t < kThreads; ++t) {
        Property tree = Clip();
        tree.SetChildT<long long>("thread", t);
        Property& items = tree.SetChild("items");
        for (int i = 0; i < 50; ++i) {
            items.Add(Property("", i * 0.5 + t));
        }
        documents.push_back(Serialize(tree, true));
        expected.push_back(Serialize(Load(documents.back(), true), true));
    }
    std::vector<std::string> saved(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 20; ++round) {
                saved[t] = Serialize(Load(documents[t], true), true);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(saved, expected);
}
