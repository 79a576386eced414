// Feeds arbitrary bytes to the JSON loader, the way a settings file that an
// application does not control reaches it, and holds the loader to what it
// promises:
// - the only exceptions are the documented refusals (any other one escapes,
//   and libFuzzer reports it with the input), and a parse error leaves the
//   target untouched;
// - a refusal of text says where, and its line and column are those of its
//   offset, counted here in the bytes as they were given;
// - the tree and the refusal are those of the plain mapping (each member
//   through SetChild, each scalar through assignment) applied here to a
//   RapidJSON DOM of the same text, and PropertySerializer::Load of that DOM
//   agrees, after a failure part-way too, and also loads the infinities
//   that the text refuses;
// - saving is idempotent after one normalisation, wrapped or not, and the
//   saved text is, byte for byte, the documented mapping's (support/
//   SavedJson.h), also once siblings are made to share keys;
// - saved with DoubleText::RoundTrip, a loaded tree loads back exactly, every
//   double bit for bit;
// - a wrapped load gives the first child of the unwrapped one.
#include "FuzzCheck.h"
#include "support/DoubleText.h"
#include "support/SavedJson.h"

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/Property.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <boost/exception/get_error_info.hpp>
#include <rapidjson/document.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Tarsel;
using namespace Tarsel::Core;

// How a load ended: loaded, or one of the refusals loading documents.
enum class Outcome { Loaded, ParseError, BadRatio, EmptyKey, NoFirstChild };

// The location records of a refusal of text: present, with a reason, and
// its line and column those of its offset in text (where the parse ends, at
// the first zero byte).
void CheckLocation(const boost::exception& e, const std::string& text) {
    const std::size_t* offset = boost::get_error_info<JsonException::TagParseOffset>(e);
    const std::size_t* line = boost::get_error_info<JsonException::TagParseLine>(e);
    const std::size_t* column = boost::get_error_info<JsonException::TagParseColumn>(e);
    const std::string* reason = boost::get_error_info<JsonException::TagParseReason>(e);
    TARSEL_FUZZ_CHECK(offset != nullptr && line != nullptr && column != nullptr && reason != nullptr);
    TARSEL_FUZZ_CHECK(!reason->empty());
    const std::size_t end = std::min(text.size(), std::strlen(text.c_str()));
    TARSEL_FUZZ_CHECK(*offset <= end);
    const auto lineEnds = static_cast<std::size_t>(std::count(text.begin(), text.begin() + *offset, '\n'));
    const std::size_t lineStart = lineEnds == 0 ? 0 : text.rfind('\n', *offset - 1) + 1;
    TARSEL_FUZZ_CHECK(*line == lineEnds + 1 && *column == *offset - lineStart + 1);
}

// text: what was loaded, when it was text; null for a DOM, which has no
// places to point to.
template <class LoadFunction>
Outcome Attempt(LoadFunction load, const std::string* text = nullptr) {
    try {
        load();
        return Outcome::Loaded;
    } catch (const JsonException& e) {
        const std::string* error = boost::get_error_info<JsonException::TagParseError>(e);
        TARSEL_FUZZ_CHECK(error != nullptr && *error == "Parse error");
        if (text != nullptr) {
            CheckLocation(e, *text);
        }
        return Outcome::ParseError;
    } catch (const boost::bad_rational& e) {
        if (text != nullptr) {
            CheckLocation(dynamic_cast<const boost::exception&>(e), *text);
        }
        return Outcome::BadRatio;  // a ratio of "n/0"
    } catch (const std::invalid_argument& e) {
        TARSEL_FUZZ_CHECK(std::strncmp(e.what(), "name is empty", 13) == 0);
        if (text != nullptr) {
            CheckLocation(dynamic_cast<const boost::exception&>(e), *text);
        }
        return Outcome::EmptyKey;
    } catch (const IndexIsOutOfBound&) {
        return Outcome::NoFirstChild;  // wrapped, and nothing was loaded
    }
}

Outcome Deserialize(Property& target, const std::string& bytes, bool wrapRoot) {
    return Attempt([&] { PropertySerializer::Deserialize(target, MemoryDataInput::Create(bytes), wrapRoot); }, &bytes);
}

std::string Serialize(const Property& property, bool wrapRoot,
                      PropertySerializer::DoubleText doubleText = PropertySerializer::DoubleText::SixDigits) {
    const auto output = MemoryDataOutput::Create();
    PropertySerializer::Serialize(property, output, wrapRoot, doubleText);
    return output->GetData();
}

// Names, types, values and the order of children, all exact: doubles bit
// for bit, where operator== allows a tolerance and ignores child order.
// Recursive; every tree compared here is at most kMaxDepth deep.
bool SameTree(const Property& a, const Property& b) {
    if (a.GetName() != b.GetName() || a.GetType() != b.GetType()) {
        return false;
    }
    switch (a.GetType()) {
    case TypeBool:
        return a.GetBool() == b.GetBool();
    case TypeDouble: {
        const double x = a.GetDouble();
        const double y = b.GetDouble();
        return std::memcmp(&x, &y, sizeof x) == 0;
    }
    case TypeInt64:
        return a.GetInt64() == b.GetInt64();
    case TypeString:
        return a.GetString() == b.GetString();
    case TypeRatio:
        return a.GetRatio() == b.GetRatio();
    case TypeArray:
        return a.Count() == b.Count() && std::equal(a.begin(), a.end(), b.begin(), SameTree);
    default:
        return true;
    }
}

bool Untouched(const Property& target) {
    return SameTree(target, Property("root"));
}

// The mapping as loading documents it, one public operation at a time: each
// member through SetChild (first match), each element named by the current
// Count, scalars assigned, checked in the order array, object, bool, double,
// integer, string. Quadratic and recursive, which inputs of a few KiB nested
// at most kMaxDepth deep can afford.
void ReferenceLoad(Property& target, const rapidjson::Value& value) {
    if (value.IsArray()) {
        for (const rapidjson::Value& element : value.GetArray()) {
            ReferenceLoad(target.SetChild(std::to_string(target.Count())), element);
        }
    } else if (value.IsObject()) {
        for (const auto& member : value.GetObject()) {
            // The key up to its first zero character.
            ReferenceLoad(target.SetChild(std::string(member.name.GetString())), member.value);
        }
    } else if (value.IsBool()) {
        target = value.GetBool();
    } else if (value.IsDouble()) {
        target = value.GetDouble();
    } else if (value.IsInt64()) {
        target = static_cast<long long>(value.GetInt64());
    } else if (value.IsString()) {
        const std::string text(value.GetString(), value.GetStringLength());
        Ratio ratio;
        if (target.GetName() != PropertySerializer::kRatioKey) {
            target = text;
        } else if (RatioFromString(text, ratio)) {
            target = ratio;
        }
    }
}

// What decides whether a parsed DOM is a document the loader accepts.
struct DomShape {
    unsigned depth = 0;  // the deepest nesting of objects and arrays
    bool finite = true;  // no number beyond the doubles (2e308 parses as infinity)
};

// Walked without recursion: the DOM itself may be far deeper than the loader
// accepts.
DomShape Shape(const rapidjson::Value& root) {
    std::vector<std::pair<const rapidjson::Value*, unsigned>> pending{{&root, 1}};
    DomShape shape;
    while (!pending.empty()) {
        const auto [value, depth] = pending.back();
        pending.pop_back();
        if (value->IsArray()) {
            shape.depth = std::max(shape.depth, depth);
            for (const rapidjson::Value& element : value->GetArray()) {
                pending.emplace_back(&element, depth + 1);
            }
        } else if (value->IsObject()) {
            shape.depth = std::max(shape.depth, depth);
            for (const auto& member : value->GetObject()) {
                pending.emplace_back(&member.value, depth + 1);
            }
        } else if (value->IsDouble() && !std::isfinite(value->GetDouble())) {
            shape.finite = false;
        }
    }
    return shape;
}

// The events of a reader, forwarded to a DOM, with each number read from its
// text independently of the library: the C library's strtod, which rounds
// correctly, and strtoll and strtoull for the integers that RapidJSON
// classifies as such (no fraction, no exponent, within 64 bits).
class ExactNumbers : public rapidjson::BaseReaderHandler<rapidjson::UTF8<char>, ExactNumbers> {
public:
    explicit ExactNumbers(rapidjson::Document& dom) : m_dom(dom) {}

    bool Null() { return m_dom.Null(); }
    bool Bool(bool b) { return m_dom.Bool(b); }
    bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
        const std::string number(text, length);
        if (number.find_first_of(".eE") == std::string::npos) {
            errno = 0;
            const long long integer = std::strtoll(number.c_str(), nullptr, 10);
            if (errno == 0) {
                return m_dom.Int64(integer);
            }
            errno = 0;
            const unsigned long long unsignedInteger = std::strtoull(number.c_str(), nullptr, 10);
            if (errno == 0 && number[0] != '-') {
                return m_dom.Uint64(unsignedInteger);
            }
        }
        return m_dom.Double(std::strtod(number.c_str(), nullptr));
    }
    bool String(const char* text, rapidjson::SizeType length, bool copy) { return m_dom.String(text, length, copy); }
    bool StartObject() { return m_dom.StartObject(); }
    bool Key(const char* text, rapidjson::SizeType length, bool copy) { return m_dom.Key(text, length, copy); }
    bool EndObject(rapidjson::SizeType count) { return m_dom.EndObject(count); }
    bool StartArray() { return m_dom.StartArray(); }
    bool EndArray(rapidjson::SizeType count) { return m_dom.EndArray(count); }

private:
    rapidjson::Document& m_dom;
};

}  // namespace

// The reader's own number scanner refuses some numbers that a double holds
// (0e400, 1 and 309 zeros then e-309) on guards of its arithmetic; the
// grammar does not, and neither does the loader. The DOM's reader takes each
// number's text by the grammar alone, written here once more.
template <>
template <>
void rapidjson::GenericReader<rapidjson::UTF8<char>, rapidjson::UTF8<char>, rapidjson::CrtAllocator>::ParseNumber<
    rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag, rapidjson::StringStream, ExactNumbers>(
    rapidjson::StringStream& is, ExactNumbers& handler) {
    const auto digits = [&](const char* p) {
        while (*p >= '0' && *p <= '9') {
            ++p;
        }
        return p;
    };
    const char* const start = is.src_;
    const char* p = start + (*start == '-' ? 1 : 0);
    const char* end = *p == '0' ? p + 1 : digits(p);
    if (end == p) {
        RAPIDJSON_PARSE_ERROR(kParseErrorValueInvalid, static_cast<std::size_t>(end - is.head_));
    }
    if (*end == '.') {
        p = end + 1;
        end = digits(p);
        if (end == p) {
            RAPIDJSON_PARSE_ERROR(kParseErrorNumberMissFraction, static_cast<std::size_t>(end - is.head_));
        }
    }
    if (*end == 'e' || *end == 'E') {
        p = end + 1 + (end[1] == '+' || end[1] == '-' ? 1 : 0);
        end = digits(p);
        if (end == p) {
            RAPIDJSON_PARSE_ERROR(kParseErrorNumberMissExponent, static_cast<std::size_t>(end - is.head_));
        }
    }
    is.src_ = end;
    if (!handler.RawNumber(start, static_cast<rapidjson::SizeType>(end - start), false)) {
        RAPIDJSON_PARSE_ERROR(kParseErrorTermination, static_cast<std::size_t>(start - is.head_));
    }
}

namespace {

// The DOM reads the same characters as the loader (up to the first zero
// byte) with the same reader, not in situ, and its numbers as ExactNumbers
// does. Whether it parses is its reader's answer.
bool ParseExactly(rapidjson::Document& dom, const std::string& bytes) {
    bool parsed = false;
    auto generate = [&](rapidjson::Document& target) {
        rapidjson::Reader reader;
        rapidjson::StringStream stream(bytes.c_str());
        ExactNumbers handler(target);
        parsed = !reader.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag>(stream, handler)
                      .IsError();
        return parsed;
    };
    dom.Populate(generate);
    return parsed;
}

// The DOM is ParseExactly's. The text is a document when the DOM parses, its
// root is an object or an array, it is at most kMaxDepth deep and its
// numbers are finite; exactly then the loader must not answer
// "Parse error". Load takes the DOM's infinities (2e308) as they are, so it
// refuses only excess depth, and agrees with the loader whenever the text is
// a document.
void CheckAgainstDom(const std::string& bytes, Outcome outcome, const Property& loaded) {
    rapidjson::Document dom;
    const bool containerRoot = ParseExactly(dom, bytes) && (dom.IsObject() || dom.IsArray());
    const DomShape shape = containerRoot ? Shape(dom) : DomShape();
    const bool shallow = containerRoot && shape.depth <= PropertySerializer::kMaxDepth;
    TARSEL_FUZZ_CHECK((shallow && shape.finite) == (outcome != Outcome::ParseError));
    if (!containerRoot) {
        return;
    }
    Property viaLoad("root");
    const Outcome loadOutcome = Attempt([&] { PropertySerializer::Load(viaLoad, dom); });
    if (!shallow) {
        TARSEL_FUZZ_CHECK(loadOutcome == Outcome::ParseError && Untouched(viaLoad));
        return;
    }
    Property reference("root");
    TARSEL_FUZZ_CHECK(Attempt([&] { ReferenceLoad(reference, dom); }) == loadOutcome);
    TARSEL_FUZZ_CHECK(SameTree(reference, viaLoad));
    if (shape.finite) {
        TARSEL_FUZZ_CHECK(loadOutcome == outcome);
        TARSEL_FUZZ_CHECK(SameTree(viaLoad, loaded));
    }
}

// Calls visit with every double of the tree.
template <class Visit>
void ForEachDouble(const Property& node, Visit& visit) {
    if (node.GetType() == TypeDouble) {
        visit(node.GetDouble());
    } else if (node.GetType() == TypeArray) {
        for (const Property& child : node) {
            ForEachDouble(child, visit);
        }
    }
}

// Every finite double is saved in its documented form.
void CheckSavedDoubles(const Property& tree) {
    auto visit = [](double value) {
        if (std::isfinite(value)) {
            const std::string expected = "{\"d\":" + TarselTest::SavedDoubleText(value) + "}";
            TARSEL_FUZZ_CHECK(Serialize(Property("d", value), true) == expected);
        }
    };
    ForEachDouble(tree, visit);
}

// The tree with every child's name cut to its first character, so that
// siblings share keys (a loaded tree never has two children of one name):
// the writer's handling of repeats, by name and by position, meets the
// shapes the fuzzer finds. Recursive, like SameTree.
Property WithSharedKeys(const Property& node) {
    if (node.GetType() != TypeArray) {
        return node;
    }
    Property copy(node.GetName());
    for (const Property& child : node) {
        copy.AddWithName(child.GetName().substr(0, 1), WithSharedKeys(child));
    }
    return copy;
}

// Saving writes exactly the documented mapping, wrapped or not.
void CheckSavedText(const Property& tree) {
    for (const bool wrapRoot : {false, true}) {
        TARSEL_FUZZ_CHECK(Serialize(tree, wrapRoot) == TarselTest::SavedJsonText(tree, wrapRoot));
    }
}

// Loads text and saves what it gave.
std::string Resave(const std::string& text, bool wrapRoot) {
    Property reloaded("root");
    TARSEL_FUZZ_CHECK(Deserialize(reloaded, text, wrapRoot) == Outcome::Loaded);
    return Serialize(reloaded, wrapRoot);
}

// One save normalises (six significant digits for doubles, reduced ratios,
// empty objects for nulls and dropped numbers); from then on loading and
// saving give the same text back, byte for byte.
void CheckSavingIsIdempotent(const Property& tree, bool wrapRoot) {
    const std::string saved = Serialize(tree, wrapRoot);
    TARSEL_FUZZ_CHECK(Resave(saved, wrapRoot) == saved);
}

// Saved exactly, a loaded tree loads back as it was, doubles bit for bit.
void CheckExactSaveRoundTrips(const Property& tree) {
    Property reloaded("root");
    TARSEL_FUZZ_CHECK(Deserialize(reloaded, Serialize(tree, false, PropertySerializer::DoubleText::RoundTrip), false) ==
                      Outcome::Loaded);
    TARSEL_FUZZ_CHECK(SameTree(reloaded, tree));
}

// Loading wrapped is loading plain and keeping the first child; a document
// that loads no child has none to keep.
void CheckWrappedLoad(const std::string& bytes, Outcome plainOutcome, const Property& plain) {
    Property wrapped("root");
    const Outcome outcome = Deserialize(wrapped, bytes, true);
    if (plainOutcome != Outcome::Loaded) {
        TARSEL_FUZZ_CHECK(outcome == plainOutcome);
        TARSEL_FUZZ_CHECK(outcome != Outcome::ParseError || Untouched(wrapped));
        return;
    }
    if (plain.Count() == 0) {
        TARSEL_FUZZ_CHECK(outcome == Outcome::NoFirstChild);
        return;
    }
    TARSEL_FUZZ_CHECK(outcome == Outcome::Loaded);
    TARSEL_FUZZ_CHECK(SameTree(wrapped, *plain.begin()));
    CheckSavingIsIdempotent(wrapped, true);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    Property loaded("root");
    const Outcome outcome = Deserialize(loaded, bytes, false);
    TARSEL_FUZZ_CHECK(outcome != Outcome::NoFirstChild);
    TARSEL_FUZZ_CHECK(outcome != Outcome::ParseError || Untouched(loaded));
    CheckAgainstDom(bytes, outcome, loaded);
    if (outcome == Outcome::Loaded) {
        CheckSavedDoubles(loaded);
        CheckSavedText(loaded);
        CheckSavedText(WithSharedKeys(loaded));
        CheckSavingIsIdempotent(loaded, false);
        CheckExactSaveRoundTrips(loaded);
    }
    CheckWrappedLoad(bytes, outcome, loaded);
    return 0;
}
