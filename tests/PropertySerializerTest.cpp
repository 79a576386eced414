#include <Core/Interfaces/Digest.h>
#include <Core/Interfaces/PropertySerializer.h>

#include "support/CatchAs.h"
#include "support/Clip.h"
#include "support/Describe.h"
#include "support/DoubleText.h"
#include "support/JsonDocuments.h"
#include "support/SavedJson.h"
#include "support/SmallStack.h"
#include "support/TempFolder.h"

#include <boost/exception/get_error_info.hpp>
#include <boost/filesystem.hpp>
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <limits>
#include <map>
#include <random>
#include <thread>

using namespace Tarsel;
using namespace Tarsel::Core;
using TarselTest::CatchAs;
using TarselTest::Clip;
using TarselTest::Describe;
using TarselTest::RunOnSmallStack;

namespace {

std::string Serialize(const Property& p, bool wrap = false) {
    const auto out = MemoryDataOutput::Create();
    PropertySerializer::Serialize(p, out, wrap);
    return out->GetData();
}

std::string SerializeExactly(const Property& p, bool wrap = false) {
    const auto out = MemoryDataOutput::Create();
    PropertySerializer::Serialize(p, out, wrap, PropertySerializer::DoubleText::RoundTrip);
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
    rapidjson::Writer<JsonTarselStreamOut, rapidjson::UTF8<char>, rapidjson::UTF8<char>,
                      PropertySerializer::JsonAllocator>
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
    EXPECT_EQ(Serialize(p),
              R"({"empty":{},"two":2.00000,"int":-2,"yes":true,)"
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

std::string HexMD5(const std::string& bytes) {
    std::string hex;
    for (const unsigned char byte : MD5Generate(MemoryDataInput::Create(bytes), "")) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        hex += digits;
    }
    return hex;
}

// Every document the benchmarks measure saves as the documented mapping
// says, and exactly as the writer wrote it before its duplicate check and its
// double text were made one-pass: the digests are those of that writer's
// output (commit 908643f), so the benchmark figures compare the same text.
// One case per document, so that CTest runs them side by side. The million-
// element document is left to the benchmark: it has flat_100k's shape and
// would take most of the suite's time under the sanitizers.
class BenchmarkDocument : public testing::TestWithParam<std::string> {};

TEST_P(BenchmarkDocument, SavesByteForByte) {
    const std::map<std::string, std::string> digests = {
        {"settings_20KB", "45e627981145a8620eb38c50aae75b9c"},
        {"media_8MB", "d225e9723504b11f2a640a1ea77e7bf0"},
        {"flat_10k", "17da23288617c2e9056991d32b381580"},
        {"flat_100k", "e47c2aefa885a29880d52b83320794cc"},
    };
    for (const auto& [name, make] : TarselTest::JsonDocumentMakers()) {
        if (name == GetParam()) {
            const Property tree = Load(make());
            const std::string text = Serialize(tree);
            EXPECT_EQ(text, TarselTest::SavedJsonText(tree, false));
            EXPECT_EQ(HexMD5(text), digests.at(name));
            const auto sixDigits = MemoryDataOutput::Create();
            PropertySerializer::Serialize(tree, sixDigits, false, PropertySerializer::DoubleText::SixDigits);
            EXPECT_EQ(sixDigits->GetData(), text);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Serialize, BenchmarkDocument,
                         testing::Values("settings_20KB", "media_8MB", "flat_10k", "flat_100k"),
                         [](const testing::TestParamInfo<std::string>& info) { return info.param; });

// count names: prefix followed by 0, 1, ...
std::vector<std::string> Numbered(const std::string& prefix, std::size_t count) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < count; ++i) {
        names.push_back(prefix + std::to_string(i));
    }
    return names;
}

// A container whose children are named by names, each holding its index.
Property Named(std::initializer_list<std::string> names) {
    Property container("c");
    long long index = 0;
    for (const std::string& name : names) {
        container.AddWithName(name, Property("", index++));
    }
    return container;
}

// Children sharing a key write into the first member of that key, the last
// one winning, and leave their own members null: by name and by position,
// wherever the repeat is found, at any depth, in text and in a DOM alike.
TEST(Serialize, RepeatedKeysWriteTheLastValueIntoTheFirstMember) {
    std::vector<std::pair<Property, std::string>> cases;
    // Two names, the first repeated last.
    cases.emplace_back(Named({"a", "b", "a"}), R"({"a":2,"b":1,"a":null})");
    // Three of one name: the third wins.
    cases.emplace_back(Named({"a", "a", "a"}), R"({"a":2,"a":null,"a":null})");
    // Positional keys, then one of them again.
    cases.emplace_back(Named({"0", "1", "2", "1"}), R"({"0":0,"1":3,"2":2,"1":null})");
    // Positional keys, then a name, then an index seen before the name.
    cases.emplace_back(Named({"0", "1", "x", "0"}), R"({"0":3,"1":1,"x":2,"0":null})");
    // An index seen only after the positional run broke: "2" is new at 3.
    cases.emplace_back(Named({"0", "1", "x", "2", "2"}), R"({"0":0,"1":1,"x":2,"2":4,"2":null})");
    // Keys end at a zero character, so these two are one key.
    cases.emplace_back(Named({std::string("k\0a", 3), "m", std::string("k\0b", 3)}), R"({"k":2,"m":1,"k":null})");
    {
        // Empty keys repeat like any other (SetChildT takes an empty name).
        Property empty("c");
        empty.SetChildT<long long>("", 0);
        empty.CreateChildT<long long>(std::string("\0x", 2), 1);
        cases.emplace_back(empty, R"({"":1,"":null})");
    }
    {
        // A large record (past any small-record shortcut) whose last key
        // repeats its first.
        std::vector<std::string> names;
        std::string expected = "{";
        for (int i = 0; i < 40; ++i) {
            names.push_back("key" + std::to_string(i));
            expected += (i ? ",\"key" : "\"key") + std::to_string(i) + "\":" + (i ? std::to_string(i) : "40");
        }
        Property large("c");
        for (std::size_t i = 0; i < names.size(); ++i) {
            large.AddWithName(names[i], Property("", static_cast<long long>(i)));
        }
        large.AddWithName("key0", Property("", 40LL));
        cases.emplace_back(large, expected + R"(,"key0":null})");
    }
    {
        // Many distinct keys, whose fingerprints must collide, and none
        // taken for a repeat; then fifty positional keys, a name, and one of
        // the positions again.
        Property distinct("c");
        std::string expected = "{";
        for (long long i = 0; i < 300; ++i) {
            distinct.CreateChildT<long long>("key" + std::to_string(i), i);
            expected += (i ? ",\"key" : "\"key") + std::to_string(i) + "\":" + std::to_string(i);
        }
        cases.emplace_back(distinct, expected + "}");
        Property positional("c");
        expected = "{";
        for (long long i = 0; i < 50; ++i) {
            positional.Add(Property("", i));
            expected += (i ? ",\"" : "\"") + std::to_string(i) + "\":" + (i == 7 ? "51" : std::to_string(i));
        }
        positional.CreateChildT<long long>("x", 50);
        positional.CreateChildT<long long>("7", 51);
        cases.emplace_back(positional, expected + R"(,"x":50,"7":null})");
    }
    {
        // However far the lookup of names among siblings has gone when a key
        // comes again (positional, fingerprints, the scan, the table), the
        // repeat is found. Each row: the keys, and which of them comes again.
        const std::pair<std::vector<std::string>, std::size_t> runs[] = {
            {Numbered("", 1), 0},       // "0" twice: an index met before is no longer the next index
            {Numbered("", 2), 1},       // the positional run's last key, once it broke
            {Numbered("", 20), 19},     // a run longer than the scan, its last key
            {Numbered("k", 16), 15},    // as many keys as are scanned, the last one
            {Numbered("k", 17), 16},    // one more, found in the table, the last one
            {Numbered("k", 300), 299},  // so many keys that a fingerprint must repeat once there are
                                        // more than the scan takes (pigeonhole): the table is built
                                        // then, and must take the keys that come after it
        };
        for (const auto& [names, repeated] : runs) {
            Property run("c");
            std::string expected = "{";
            for (std::size_t i = 0; i < names.size(); ++i) {
                run.CreateChildT<long long>(names[i], static_cast<long long>(i));
                const long long value = i == repeated ? -1 : static_cast<long long>(i);
                expected += (i ? ",\"" : "\"") + names[i] + "\":" + std::to_string(value);
            }
            run.CreateChildT<long long>(names[repeated], -1);
            cases.emplace_back(run, expected + ",\"" + names[repeated] + "\":null}");
        }
    }
    {
        // A repeat found after a whole subtree was written: the subtree that
        // loses is not written at all, and the winner's own repeats resolve.
        Property tree("c");
        Property& first = tree.AddWithName("x", Property("x"));
        first.SetChild("deep").SetChild("deeper").SetChildT<long long>("v", 1);
        tree.SetChildT<long long>("y", 2);
        Property& winner = tree.AddWithName("x", Property("x"));
        winner.Add(Property("", 3LL));
        winner.AddWithName("0", Property("", 4LL));
        cases.emplace_back(tree, R"({"x":{"0":4,"0":null},"y":2,"x":null})");
    }
    {
        // An array of records that each repeat a key, inside a record that
        // repeats one too.
        Property tree("c");
        Property& list = tree.SetChild("list");
        for (long long i = 0; i < 3; ++i) {
            Property record("");
            record.SetChildT<long long>("id", i);
            record.CreateChildT<long long>("id", 10 + i);
            list.Add(record);
        }
        tree.CreateChildT<long long>("list", 7);
        cases.emplace_back(tree, R"({"list":7,"list":null})");
        Property kept("c");
        kept.SetChild("list") = list;
        cases.emplace_back(kept, R"({"list":{"0":{"id":10,"id":null},"1":{"id":11,"id":null},)"
                                 R"("2":{"id":12,"id":null}}})");
    }
    for (const auto& [tree, expected] : cases) {
        EXPECT_EQ(Serialize(tree), expected);
        EXPECT_EQ(TarselTest::SavedJsonText(tree, false), expected);
        EXPECT_EQ(Serialize(tree, true), R"({"c":)" + expected + "}");
        // Save fills a DOM with the same members.
        rapidjson::Document document;
        PropertySerializer::Save(tree, document, document.GetAllocator());
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        document.Accept(writer);
        EXPECT_EQ(buffer.GetString(), expected);
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
    // Two ulps around every power of ten and six-digit carry, both signs.
    const std::vector<double> boundaries = TarselTest::BoundaryDoubles(2);
    values.insert(values.end(), boundaries.begin(), boundaries.end());
    for (double value : values) {
        const std::string text = Serialize(Property("d", value));
        ASSERT_EQ(text, TarselTest::SavedDoubleText(value)) << value;
        ASSERT_EQ(Load("[" + text + "]")[std::size_t{0}].GetType(), TypeDouble) << text;
    }
}

// Known answers: C's "%#g" of each double (the exact binary value rounded to
// six digits, ties to even), with a zero after a bare final point.
TEST(Serialize, DoubleTextAtRoundingBoundaries) {
    const std::pair<double, const char*> cases[] = {
        {9.999995, "10.0000"},                   // 9.99999500000000018929: above the tie, carries
        {99999.95, "99999.9"},                   // 99999.9499999999997: below the tie
        {999999.5, "1.00000e+06"},               // an exact tie, to even: carries into a new exponent
        {123456.5, "123456.0"},                  // an exact tie, to even: down
        {999999.4999999999, "999999.0"},         // just below the carry
        {-192000.0, "-192000.0"},                // six integer digits
        {0.0001, "0.000100000"},                 // the smallest exponent of fixed notation
        {9.999999999999999e-05, "0.000100000"},  // below 1e-4, but rounds up to it
        {1e-05, "1.00000e-05"},                  // the first exponent of scientific notation
        {1e21, "1.00000e+21"},
        {0.1, "0.100000"},
        {29.97, "29.9700"},
        {-0.0, "-0.00000"},
        {4.9406564584124654e-324, "4.94066e-324"},  // the smallest subnormal
        {2.2250738585072014e-308, "2.22507e-308"},  // the smallest normal double
        {1.7976931348623157e308, "1.79769e+308"},   // the largest double
    };
    for (const auto& [value, text] : cases) {
        EXPECT_EQ(Serialize(Property("d", value)), text);
    }
}

// Known answers: the shortest text that reads back as the same double, with a
// point or an exponent so that it reads back as a double.
TEST(Serialize, RoundTripTextIsTheShortestThatReadsBackAsADouble) {
    const std::pair<double, const char*> cases[] = {
        {3.0, "3.0"},
        {0.1, "0.1"},
        {1700000000.123, "1700000000.123"},  // "%#g" gives 1.70000e+09
        {1165.7979533993846, "1165.7979533993846"},
        {100.0, "100.0"},
        {-0.0, "-0.0"},
        {0.0, "0.0"},
        {1e300, "1e+300"},
        {1e21, "1e+21"},
        {1e-06, "1e-06"},
        {9007199254740992.0, "9007199254740992.0"},           // 2^53
        {123456789012345680000.0, "1.2345678901234568e+20"},  // fixed, with ".0", would be longer
        {1234567.0, "1234567.0"},
        {4.9406564584124654e-324, "5e-324"},  // the smallest subnormal
        {2.2250738585072014e-308, "2.2250738585072014e-308"},
        {-1.7976931348623157e308, "-1.7976931348623157e+308"},
        {std::numeric_limits<double>::infinity(), "null"},
        {std::numeric_limits<double>::quiet_NaN(), "null"},
    };
    for (const auto& [value, text] : cases) {
        EXPECT_EQ(SerializeExactly(Property("d", value)), text);
    }
    // Everything else is written as SixDigits writes it.
    EXPECT_EQ(SerializeExactly(Clip(), true), R"({"cfg":{"width":1920,"fps":29.97,"title":"clip",)"
                                              R"("frameRateRatio":"30000/1001"}})");
}

namespace {

// Ten million finite doubles in shards: both sides of every power of ten,
// of every six-digit rounding boundary and of every power of two (where the
// spacing of doubles changes), then short decimals, subnormals, and random
// bit patterns. RoundTripFuzz adds the bit patterns a fuzzer finds.
class RoundTripDoubles {
public:
    static constexpr std::size_t kCount = 10'000'000;
    static constexpr std::size_t kShards = 10;

    explicit RoundTripDoubles(std::size_t shard) : m_random(20261124 + shard) {
        if (shard == 0) {
            m_values = TarselTest::BoundaryDoubles(3);
            const std::vector<double> powersOfTwo = TarselTest::PowerOfTwoDoubles(3);
            m_values.insert(m_values.end(), powersOfTwo.begin(), powersOfTwo.end());
        }
        while (m_values.size() < kCount / kShards) {
            m_values.push_back(Random());
        }
    }

    const std::vector<double>& Values() const { return m_values; }

private:
    double Random() {
        switch (m_random() % 4) {
        case 0: {
            // A decimal of up to ten digits, up to ten places after the point.
            const double digits = static_cast<double>(m_random() % 10'000'000'000ULL);
            return digits / std::pow(10.0, static_cast<int>(m_random() % 11));
        }
        case 1:
            return FromBits(m_random() & 0x800FFFFFFFFFFFFFULL);  // a subnormal, or a zero
        default:
            // Any finite double: the exponent field is not all ones.
            for (;;) {
                const std::uint64_t bits = m_random();
                if ((bits & 0x7FF0000000000000ULL) != 0x7FF0000000000000ULL) {
                    return FromBits(bits);
                }
            }
        }
    }

    static double FromBits(std::uint64_t bits) {
        double value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }

    std::mt19937_64 m_random;
    std::vector<double> m_values;
};

class RoundTripShard : public testing::TestWithParam<std::size_t> {};

}  // namespace

// Every finite double saved with RoundTrip loads back as a double with the
// same bits: the writer's shortest text and the reader's nearest double agree.
// Each shard is a test of its own, so that CTest spreads them over the cores.
TEST_P(RoundTripShard, DoublesLoadBackBitForBit) {
    static const std::string kNames[] = {"0", "1", "2",  "3",  "4",  "5",  "6",  "7",
                                         "8", "9", "10", "11", "12", "13", "14", "15"};
    const std::vector<double> values = RoundTripDoubles(GetParam()).Values();
    // Saved in batches of small containers: the values, not the handling of
    // large objects, are what this measures.
    constexpr std::size_t kBatch = 4096;
    for (std::size_t start = 0; start < values.size(); start += kBatch) {
        const std::size_t end = std::min(values.size(), start + kBatch);
        Property saved("batch");
        for (std::size_t i = start; i < end; i += 16) {
            Property& group = saved.Add(Property(""));
            for (std::size_t j = i; j < std::min(end, i + 16); ++j) {
                group.CreateChildT<double>(kNames[j - i], values[j]);
            }
        }
        const Property loaded = Load(SerializeExactly(saved));
        std::size_t i = start;
        for (const Property& group : loaded) {
            for (const Property& child : group) {
                ASSERT_EQ(child.GetType(), TypeDouble) << SerializeExactly(Property("", values[i]));
                const double back = child.GetDouble();
                ASSERT_EQ(std::memcmp(&back, &values[i], sizeof back), 0)
                    << SerializeExactly(Property("", values[i])) << " loaded as " << SerializeExactly(child);
                ++i;
            }
        }
        ASSERT_EQ(i, end);
    }
}

INSTANTIATE_TEST_SUITE_P(Serialize, RoundTripShard, testing::Range(std::size_t{0}, RoundTripDoubles::kShards));

class SerializeToFile : public TarselTest::TempFolderTest {};

TEST_F(SerializeToFile, ReplacesTheFileWholeOrLeavesItAsItWas) {
    namespace fs = boost::filesystem;
    const std::string file = At("settings.json");
    WriteFile("settings.json", R"({"old":true})");
    PropertySerializer::SerializeToFile(Clip(), file, true);
    EXPECT_EQ(ReadFile("settings.json"), Serialize(Clip(), true));
    Property back("back");
    PropertySerializer::Deserialize(back, FileDataInput::Create(file), true);
    EXPECT_EQ(Describe(back), "cfg<6>{width<3>1920,fps<2>29.97,title<4>clip,frameRateRatio<5>30000/1001}");
    PropertySerializer::SerializeToFile(Clip(), file, true, PropertySerializer::DoubleText::RoundTrip);
    EXPECT_EQ(ReadFile("settings.json"), SerializeExactly(Clip(), true));
    // A folder in the file's place cannot be replaced: the error names the
    // path, and nothing is left behind.
    const std::string folder = At("folder");
    fs::create_directory(folder);
    try {
        PropertySerializer::SerializeToFile(Clip(), folder, false);
        ADD_FAILURE() << "a folder was replaced";
    } catch (const fs::filesystem_error& e) {
        EXPECT_EQ(e.path1().string(), folder);
        EXPECT_EQ(e.code().value(), EISDIR);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(m_dir), fs::directory_iterator()), 2);
}

// A null stream is refused by name, with the call stack, before the tree or
// anything else is touched.
TEST(PropertySerializer, NullStreamsAreRefusedBeforeAnythingIsTouched) {
    Property target = Clip();
    const auto refusal = [](const std::function<void()>& call, const char* message, const char* function) {
        try {
            call();
            ADD_FAILURE() << message << ": nothing was thrown";
        } catch (const std::invalid_argument& e) {
            const std::string what = e.what();
            EXPECT_EQ(what.substr(0, what.find('\n')), message);
            EXPECT_NE(what.find('\n'), std::string::npos) << "no call stack: " << what;
            EXPECT_STREQ(*boost::get_error_info<boost::throw_function>(dynamic_cast<const boost::exception&>(e)),
                         function);
        }
    };
    refusal([&] { PropertySerializer::Deserialize(target, nullptr, false); }, "input is null",
            "static void Tarsel::Core::PropertySerializer::Deserialize(Core::Property &, "
            "boost::intrusive_ptr<Tarsel::Core::IDataInput>, bool)");
    refusal([&] { PropertySerializer::Serialize(target, nullptr, true); }, "output is null",
            "static void Tarsel::Core::PropertySerializer::Serialize(const Core::Property &, "
            "boost::intrusive_ptr<Tarsel::Core::IDataOutput>, bool)");
    refusal([&] { PropertySerializer::Serialize(target, nullptr, true, PropertySerializer::DoubleText::RoundTrip); },
            "output is null",
            "static void Tarsel::Core::PropertySerializer::Serialize(const Core::Property &, "
            "boost::intrusive_ptr<Tarsel::Core::IDataOutput>, bool, Tarsel::Core::PropertySerializer::DoubleText)");
    refusal([] { JsonTarselStreamOut stream(nullptr); }, "output is null",
            "Tarsel::Core::JsonTarselStreamOut::JsonTarselStreamOut(boost::intrusive_ptr<IDataOutput>)");
    EXPECT_EQ(Describe(target), Describe(Clip()));
}

TEST(Deserialize, JsonValuesMapAsDocumented) {
    EXPECT_EQ(Describe(Load(R"({"arr":[10,20],"null":null,"obj":{},"list":[],"b":false,"d":1e2,"f":1.5,)"
                            R"("i":-2147483649,"max":9223372036854775807,"over":9223372036854775808,)"
                            R"("huge":18446744073709551615,"beyond":18446744073709551616,"s":"a\u0000b",)"
                            R"("frameRateRatio":"4/8"})")),
              "root<6>{arr<6>{0<3>10,1<3>20},null<6>{},obj<6>{},list<6>{},b<1>0,d<2>100,f<2>1.5,"
              "i<3>-2147483649,max<3>9223372036854775807,over<6>{},huge<6>{},beyond<2>1.84467e+19,s<4>" +
                  std::string("a\0b", 3) + ",frameRateRatio<5>1/2}");
    EXPECT_EQ(Describe(Load(R"({"frameRateRatio":"25"})")), "root<6>{frameRateRatio<6>{}}");
    EXPECT_EQ(Describe(Load("[10,20]")), "root<6>{0<3>10,1<3>20}");
}

// Every number is read as the nearest double to its text, ties to even,
// however many digits it has; integers within 64 bits stay integers.
TEST(Deserialize, NumbersLoadAsTheNearestDoubleToTheirText) {
    // 1 + 2^-53, halfway between 1 and the next double, written out exactly.
    const std::string halfway = "1.00000000000000011102230246251565404236316680908203125";
    const struct {
        std::string text;
        double expected;
    } cases[] = {
        {"0.1", 0.1},
        {"1700000000.123", 1700000000.123},
        {"29.9700", 29.97},
        {"-0.0", -0.0},
        {"1e-400", 0.0},
        {"-1e-400", -0.0},
        {"0e-99999999", 0.0},
        {"1E+2", 100.0},
        {"0.000001e6", 1.0},
        {"9007199254740993.0", 9007199254740992.0},        // 2^53 + 1: a tie, to even
        {"9007199254740995.0", 9007199254740996.0},        // a tie, to even, upwards
        {"18446744073709551616", 18446744073709551616.0},  // 2^64: beyond both integer ranges
        {"-9223372036854775809", -9223372036854775808.0},  // below the signed range
        // 21 significant digits whose first 20 are 2^64 - 1: RapidJSON's own
        // full-precision reading wraps its significand to zero here.
        {"184467440737095516156", 1.8446744073709552e20},
        {"2.2250738585072011e-308", 0x0.fffffffffffffp-1022},          // the largest subnormal
        {"2.4703282292062328e-324", 0x0.0000000000001p-1022},          // just above half the smallest subnormal
        {"2.4703282292062327e-324", 0.0},                              // just below
        {"1.7976931348623158e308", 1.7976931348623157e308},            // rounds down to the largest double
        {halfway, 1.0},                                                // a tie, to even
        {halfway + std::string(800, '0') + "1", 0x1.0000000000001p0},  // past the tie 800 digits on
        {"0." + std::string(400, '0') + "1e400", 0.1},
    };
    for (const auto& c : cases) {
        const Property loaded = Load("[" + c.text + "]");
        const Property& value = loaded[std::size_t{0}];
        ASSERT_EQ(value.GetType(), TypeDouble) << c.text.substr(0, 60);
        const double got = value.GetDouble();
        EXPECT_EQ(std::memcmp(&got, &c.expected, sizeof got), 0)
            << c.text.substr(0, 60) << ": " << SerializeExactly(value) << " instead of "
            << SerializeExactly(Property("", c.expected));
    }
    EXPECT_EQ(Describe(Load("[9007199254740993,-9223372036854775808,-0]")),
              "root<6>{0<3>9007199254740993,1<3>-9223372036854775808,2<3>0}");
}

// Every number whose value a double holds loads, however it is spelt: the
// exponent or the digits alone may lie beyond a double's range.
TEST(Deserialize, NumbersWithinTheDoublesLoadWhateverTheirSpelling) {
    const struct {
        std::string text;
        double expected;
    } cases[] = {
        {"0e400", 0.0},
        {"-0e400", -0.0},
        {"0.0e310", 0.0},
        {"0E+99999999999999999999", 0.0},
        {"1" + std::string(309, '0') + "e-309", 1.0},
        {"0.001e311", 1e308},
        {"1" + std::string(400, '0') + ".5e-400", 1.0},
    };
    for (const auto& c : cases) {
        const Property loaded = Load("[" + c.text + "]");
        ASSERT_EQ(loaded[std::size_t{0}].GetType(), TypeDouble) << c.text.substr(0, 40);
        const double got = loaded[std::size_t{0}].GetDouble();
        EXPECT_EQ(std::memcmp(&got, &c.expected, sizeof got), 0) << c.text.substr(0, 40);
    }
}

// JsonSyntax::WithComments reads what code editors' settings files hold;
// Strict, and every function without the argument, refuses it.
TEST(Deserialize, CommentsAndTrailingCommasOnlyWhenAsked) {
    const std::string text = "// settings\n{\n  \"a\": 1, /* one */\n  \"b\": [2, 3,], // list\n"
                             "  /* \"c\": 4 */\n  \"d\": {\"e\": true,},\n}\n// end";
    Property loaded("root");
    PropertySerializer::Deserialize(loaded, MemoryDataInput::Create(text), false,
                                    PropertySerializer::JsonSyntax::WithComments);
    EXPECT_EQ(Describe(loaded), "root<6>{a<3>1,b<6>{0<3>2,1<3>3},d<6>{e<1>1}}");
    Property strict("root");
    ExpectParseError(strict, text);
    const JsonException e = CatchAs<JsonException>([&] {
        PropertySerializer::Deserialize(strict, MemoryDataInput::Create(text), false,
                                        PropertySerializer::JsonSyntax::Strict);
    });
    EXPECT_EQ(*boost::get_error_info<JsonException::TagParseOffset>(e), 0u);
    EXPECT_STREQ(*boost::get_error_info<boost::throw_function>(e),
                 "static void Tarsel::Core::PropertySerializer::Deserialize(Core::Property &, "
                 "boost::intrusive_ptr<Tarsel::Core::IDataInput>, bool, Tarsel::Core::PropertySerializer::JsonSyntax)");
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

// Where a text stops being JSON (the byte offset, the line and the column in
// bytes, both 1-based) and why, from the one parse that loads it.
TEST(Deserialize, ParseErrorsSayWhereAndWhy) {
    const std::string deep(PropertySerializer::kMaxDepth + 1, '[');
    using Syntax = PropertySerializer::JsonSyntax;
    const struct {
        std::string text;
        std::size_t offset, line, column;
        const char* reason;
        Syntax syntax = Syntax::Strict;
    } cases[] = {
        {"", 0, 1, 1, "the document is empty"},
        {" \n  ", 4, 2, 3, "the document is empty"},
        {"\xEF\xBB\xBF{}", 0, 1, 1, "the file starts with a byte order mark, which JSON does not allow"},
        {"\x01", 0, 1, 1, "not a valid JSON value"},
        {"x", 0, 1, 1, "not a valid JSON value"},
        {"}", 0, 1, 1, "expected an object or an array"},
        {"42", 0, 1, 1, "the document is a single value; a settings file holds an object or an array"},
        {"\n  \"s\"", 3, 2, 3, "the document is a single value; a settings file holds an object or an array"},
        {"{} x", 3, 1, 4, "text after the end of the document"},
        {"{", 1, 1, 2, "missing a member name in double quotes"},
        {R"({"a" 1})", 5, 1, 6, "missing a colon after a member name"},
        {R"({"a":1 "b":2})", 7, 1, 8, "missing a comma or '}' after an object member"},
        {R"({"a":[1,2)", 9, 1, 10, "missing a comma or ']' after an array element"},
        // A misspelt or cut literal at its first letter, not where it breaks off.
        {"[nul]", 1, 1, 2, "not a valid JSON value"},
        {"{\"a\":\n  tru}", 8, 2, 3, "not a valid JSON value"},
        {"[fals", 1, 1, 2, "not a valid JSON value"},
        {R"(["\x"])", 2, 1, 3, "invalid escape character in a string"},
        {"[\"a\tb\"]", 3, 1, 4, "a control character in a string must be escaped"},
        {R"(["\u12G4"])", 2, 1, 3, "bad hex digit in a \\u escape"},
        // A bad second half of a surrogate pair at that second half.
        {R"(["\uD800x"])", 8, 1, 9, "bad surrogate pair in a \\u escape"},
        {R"(["\udbff\u0041"])", 8, 1, 9, "bad surrogate pair in a \\u escape"},
        {R"(["\uD800\uDG00"])", 8, 1, 9, "bad hex digit in a \\u escape"},
        {R"(["\uDC00\uD800"])", 14, 1, 15, "bad surrogate pair in a \\u escape"},  // a low half, then a lone high
        // A string never closed at its opening quote.
        {R"(["abc)", 1, 1, 2, "missing the closing quotation mark of a string"},
        {"{\n \"a\": 1,\n \"b", 12, 3, 2, "missing the closing quotation mark of a string"},
        {"[1.]", 3, 1, 4, "incomplete number"},
        {"[1e309]", 1, 1, 2, "number too large for a double"},
        {"[2e308]", 1, 1, 2, "number too large for a double"},
        {"[0, 1e400]", 4, 1, 5, "number too large for a double"},
        {"[1" + std::string(309, '0') + "]", 1, 1, 2, "number too large for a double"},
        {"[-]", 2, 1, 3, "not a valid JSON value"},
        {"[1e]", 3, 1, 4, "incomplete number"},
        {R"({"a":-1.8e308})", 5, 1, 6, "number too large for a double"},
        {deep, 512, 1, 513, "nesting deeper than 512 levels"},
        {"\n" + deep, 513, 2, 513, "nesting deeper than 512 levels"},
        // Lines end at line feeds, a carriage return is a byte of its line.
        {"{\n  \"a\": 1,\n  \"b\" 2\n}", 18, 3, 7, "missing a colon after a member name"},
        {"{\r\n\"a\":1\r\n\"b\":2}", 10, 3, 1, "missing a comma or '}' after an object member"},
        // An escaped line end inside a string is no line end of the text.
        {R"({"a":"x\ny\u000Az" "b":1})", 19, 1, 20, "missing a comma or '}' after an object member"},
        // The column counts bytes: "é" is two.
        {"{\"\xC3\xA9\":1 x}", 8, 1, 9, "missing a comma or '}' after an object member"},
        // Comments are white space to locating too: their line ends count,
        // and what is wrong inside or after one is located like anything else.
        {"/* a\n b */ {\n// c\n\"x\" 1}", 22, 4, 5, "missing a colon after a member name", Syntax::WithComments},
        {"{\"a\": 1 /* never\n closed", 8, 1, 9, "a comment that is never closed", Syntax::WithComments},
        {"{\"a\": 1,\n  / \"b\": 2}", 11, 2, 3, "a '/' that starts no comment", Syntax::WithComments},
        {"[1,,]", 3, 1, 4, "not a valid JSON value", Syntax::WithComments},
        {"{,}", 1, 1, 2, "missing a member name in double quotes", Syntax::WithComments},
        {"// only a comment", 17, 1, 18, "the document is empty", Syntax::WithComments},
    };
    for (const auto& c : cases) {
        Property target("target");
        target.SetChildT<long long>("kept", 1);
        const JsonException e = CatchAs<JsonException>(
            [&] { PropertySerializer::Deserialize(target, MemoryDataInput::Create(c.text), false, c.syntax); });
        const std::string shown = c.text.substr(0, 40);
        EXPECT_EQ(*boost::get_error_info<JsonException::TagParseError>(e), "Parse error") << shown;
        EXPECT_EQ(*boost::get_error_info<JsonException::TagParseReason>(e), c.reason) << shown;
        EXPECT_EQ(*boost::get_error_info<JsonException::TagParseOffset>(e), c.offset) << shown;
        EXPECT_EQ(*boost::get_error_info<JsonException::TagParseLine>(e), c.line) << shown;
        EXPECT_EQ(*boost::get_error_info<JsonException::TagParseColumn>(e), c.column) << shown;
        EXPECT_EQ(Describe(target), "target<6>{kept<3>1}") << shown;
    }
    // A DOM has no text to point into: only the reason.
    rapidjson::Document dom;
    dom.Parse(Nested(PropertySerializer::kMaxDepth + 1, "[", "]").c_str());
    Property target("target");
    const JsonException e = CatchAs<JsonException>([&] { PropertySerializer::Load(target, dom); });
    EXPECT_EQ(*boost::get_error_info<JsonException::TagParseReason>(e), "nesting deeper than 512 levels");
    EXPECT_EQ(boost::get_error_info<JsonException::TagParseLine>(e), nullptr);
}

// An empty member name and a "frameRateRatio" of "n/0" keep their types for
// every catch, and carry where they stand and which member they concern;
// into an empty target and merged into a filled one alike.
TEST(Deserialize, LoadingFailuresSayWhereAndWhy) {
    const struct {
        const char* text;
        bool emptyKey;  // else a zero denominator
        std::size_t offset, line, column;
        const char* reason;
    } cases[] = {
        {"{\"name\":\"x\",\n \"packages\": {\"\": {\"version\": \"1.0.0\"}}}", true, 27, 2, 15,
         "packages: a member has an empty name, which a settings tree cannot hold"},
        {R"({"a":1,"":2})", true, 7, 1, 8, "a member has an empty name, which a settings tree cannot hold"},
        {R"({"list":[{"":2}]})", true, 10, 1, 11,
         "list/0: a member has an empty name, which a settings tree cannot hold"},
        {R"({"playback":{"frameRateRatio":"1/0"}})", false, 30, 1, 31,
         "playback/frameRateRatio: the ratio 1/0 has a zero denominator"},
        {"{\n\"frameRateRatio\": \"25/0\"}", false, 20, 2, 19, "frameRateRatio: the ratio 25/0 has a zero denominator"},
    };
    for (const auto& c : cases) {
        for (const bool filled : {false, true}) {
            Property target("target");
            if (filled) {
                target.SetChildT<long long>("kept", 1);
            }
            std::exception_ptr failure;
            try {
                Deserialize(target, c.text);
            } catch (const std::invalid_argument&) {
                EXPECT_TRUE(c.emptyKey) << c.text;
                failure = std::current_exception();
            } catch (const boost::bad_rational&) {
                EXPECT_FALSE(c.emptyKey) << c.text;
                failure = std::current_exception();
            }
            ASSERT_TRUE(failure) << c.text;
            try {
                std::rethrow_exception(failure);
            } catch (const boost::exception& e) {
                EXPECT_EQ(*boost::get_error_info<JsonException::TagParseReason>(e), c.reason) << c.text;
                EXPECT_EQ(*boost::get_error_info<JsonException::TagParseOffset>(e), c.offset) << c.text;
                EXPECT_EQ(*boost::get_error_info<JsonException::TagParseLine>(e), c.line) << c.text;
                EXPECT_EQ(*boost::get_error_info<JsonException::TagParseColumn>(e), c.column) << c.text;
                EXPECT_EQ(boost::get_error_info<JsonException::TagParseError>(e), nullptr) << c.text;
            }
        }
    }
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

    // A target whose children look like an array's: "0" is a child already,
    // not the next index.
    Property zero("z");
    zero.SetChildT<long long>("0", 1);
    Deserialize(zero, R"({"0":7,"1":8})");
    EXPECT_EQ(Describe(zero), "z<6>{0<3>7,1<3>8}");
    // More children than are scanned, one name twice: the first of them
    // takes the member, from the table as from a scan.
    Property many("m");
    many.CreateChildT<long long>("dup", 1);
    std::string expected = "m<6>{dup<3>3";
    for (int i = 0; i < 17; ++i) {
        many.CreateChildT<long long>("k" + std::to_string(i), i);
        expected += ",k" + std::to_string(i) + "<3>" + std::to_string(i);
    }
    many.CreateChildT<long long>("dup", 2);
    Deserialize(many, R"({"dup":3})");
    EXPECT_EQ(Describe(many), expected + ",dup<3>2}");
}

namespace {

// An object's members in order, each a key and its value.
using KeyedValues = std::vector<std::pair<std::string, long long>>;

KeyedValues NumberedKeys(const std::string& prefix, std::size_t count, KeyedValues more = {}) {
    KeyedValues members;
    for (std::size_t i = 0; i < count; ++i) {
        members.emplace_back(prefix + std::to_string(i), static_cast<long long>(i));
    }
    members.insert(members.end(), more.begin(), more.end());
    return members;
}

std::string ObjectText(const KeyedValues& members) {
    std::string text = "{";
    for (const auto& [key, value] : members) {
        text += (text.size() > 1 ? ",\"" : "\"") + key + "\":" + std::to_string(value);
    }
    return text + "}";
}

// The children that loading members gives, worked out the plain way: one per
// key, where the key first appears, holding the key's last value.
std::string LoadedChildren(const KeyedValues& members) {
    KeyedValues children;
    for (const auto& [key, value] : members) {
        const auto same = [&key = key](const auto& child) { return child.first == key; };
        const auto found = std::find_if(children.begin(), children.end(), same);
        if (found == children.end()) {
            children.emplace_back(key, value);
        } else {
            found->second = value;
        }
    }
    std::string text;
    for (const auto& [key, value] : children) {
        text += (text.empty() ? "" : ",") + key + "<3>" + std::to_string(value);
    }
    return text;
}

}  // namespace

// However far the lookup of names among siblings has gone when a key comes
// again (still positional, fingerprints, a scan of the first siblings, the
// table), the repeat loads into the first child of its name: from text and
// from a caller's DOM, into an empty target and merged into a filled one.
TEST(Deserialize, RepeatedKeysLoadIntoTheFirstChildWhereverTheRepeatIsMet) {
    const KeyedValues cases[] = {
        // k0 ... k16, more than are scanned, then k0 again, which builds the
        // table; a new key after it, and that key again: the table must
        // take in the keys that come after it was built.
        NumberedKeys("k", 17, {{"k0", 99}, {"n", 1}, {"n", 2}}),
        NumberedKeys("", 1, {{"0", 5}}),            // "0" twice: no longer the next index
        NumberedKeys("", 3, {{"2", 5}}),            // the positional run's last key, once it breaks
        NumberedKeys("", 3, {{"0", 5}}),            // its first
        NumberedKeys("", 20, {{"19", 5}}),          // a run longer than the scan, its last key
        NumberedKeys("", 2, {{"x", 5}, {"1", 6}}),  // a name, then an index met before it
        NumberedKeys("k", 16, {{"k15", 5}}),        // as many keys as are scanned, the last one
        NumberedKeys("k", 17, {{"k16", 5}}),        // one more, found in the table, the last one
        // So many keys that a fingerprint repeats once there are more than
        // are scanned (pigeonhole), which builds the table; the keys after
        // that must reach it.
        NumberedKeys("k", 300, {{"k299", 5}}),
        NumberedKeys("k", 300, {{"n", 1}, {"k150", 5}, {"n", 2}}),
    };
    for (const KeyedValues& members : cases) {
        const std::string text = ObjectText(members);
        const std::string children = LoadedChildren(members);
        const std::string shown = text.size() <= 80 ? text : "..." + text.substr(text.size() - 60);
        EXPECT_EQ(Describe(Load(text)), "root<6>{" + children + "}") << shown;
        rapidjson::Document document;
        document.Parse(text.c_str());
        Property fromDom("root");
        PropertySerializer::Load(fromDom, document);
        EXPECT_EQ(Describe(fromDom), "root<6>{" + children + "}") << shown;
        Property filled("root");
        filled.SetChildT<long long>("before", -1);
        Deserialize(filled, text);
        EXPECT_EQ(Describe(filled), "root<6>{before<3>-1," + children + "}") << shown;
    }
}

// A key is cut at its first zero character before it is matched, and a
// "frameRateRatio" reads its whole string, zero characters included, as an
// object's member (merged into a filled target too) but not as an element:
// from text and from a caller's DOM alike.
TEST(Deserialize, KeysEndAtZeroAndRatiosReadTheWholeString) {
    const std::pair<const char*, const char*> cases[] = {
        // the key "a\0b" names the member "a"
        {R"({"a\u0000b":1})", "root<6>{keep<3>0,a<3>1}"},
        // cut, the key names a ratio
        {R"({"frameRateRatio\u0000x":"3/6"})", "root<6>{keep<3>0,frameRateRatio<5>1/2}"},
        // a zero after the digits: not digits "/" digits, so nothing
        {R"({"frameRateRatio":"1/2\u0000"})", "root<6>{keep<3>0,frameRateRatio<6>{}}"},
        // an element is named by its position: its text stays text
        {R"({"frameRateRatio":["1/2"]})", "root<6>{keep<3>0,frameRateRatio<6>{0<4>1/2}}"},
        // nested, in an object that is not the root
        {R"({"v":{"frameRateRatio":"30000/1001"}})", "root<6>{keep<3>0,v<6>{frameRateRatio<5>30000/1001}}"},
    };
    for (const auto& [json, expected] : cases) {
        Property fromText("root");
        fromText.SetChildT<long long>("keep", 0);
        Deserialize(fromText, json);
        EXPECT_EQ(Describe(fromText), expected) << json;

        rapidjson::Document document;
        document.Parse(json);
        Property fromDom("root");
        fromDom.SetChildT<long long>("keep", 0);
        PropertySerializer::Load(fromDom, document);
        EXPECT_EQ(Describe(fromDom), expected) << json;

        // Into an empty target, the fresh tree is moved in whole.
        Property fresh = Load(json);
        EXPECT_EQ("root<6>{keep<3>0," + Describe(fresh).substr(std::strlen("root<6>{")), expected) << json;
    }
}

// Keys of every length up to 20, with a zero character at every place and
// with none: the zero is found wherever it is, and a key without one is
// never cut, from text and from a DOM.
TEST(Deserialize, KeysOfEveryLengthAreCutAtTheirFirstZeroOnly) {
    for (std::size_t length = 1; length <= 20; ++length) {
        for (std::size_t zeroAt = 1; zeroAt <= length; ++zeroAt) {
            std::string key;
            for (std::size_t i = 0; i < length; ++i) {
                key += i == zeroAt ? std::string("\\u0000") : std::string(1, static_cast<char>('a' + i));
            }
            const std::string json = "{\"" + key + "\":1}";
            const std::string name = key.substr(0, zeroAt);
            EXPECT_EQ(Load(json).begin()->GetName(), name) << json;
            rapidjson::Document document;
            document.Parse(json.c_str());
            Property fromDom("root");
            PropertySerializer::Load(fromDom, document);
            EXPECT_EQ(fromDom.begin()->GetName(), name) << json;
        }
    }
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
                node.SetChildT<long long>(name,
                                          static_cast<long long>(random()) * (1LL << pick(30)) * (pick(2) ? 1 : -1));
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
