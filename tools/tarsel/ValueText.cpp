// This file implements the tool's value texts and path spellings.
#include "ValueText.h"

#include "Command.h"
#include "Failure.h"
#include "PrintedText.h"

#include <Core/Interfaces/JsonText.h>

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <boost/rational.hpp>
#include <boost/tokenizer.hpp>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <optional>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Skips a run of digits from *position; true when there was at least one.
bool SkipDigits(const std::string& text, std::size_t* position) {
    const std::size_t start = *position;
    while (*position < text.size() && IsDigit(text[*position])) {
        ++*position;
    }
    return *position > start;
}

// An optional exponent at *position: (e|E)[+-]digits; false when one is
// begun and not finished.
bool SkipExponent(const std::string& text, std::size_t* position) {
    if (*position < text.size() && (text[*position] == 'e' || text[*position] == 'E')) {
        ++*position;
        if (*position < text.size() && (text[*position] == '+' || text[*position] == '-')) {
            ++*position;
        }
        return SkipDigits(text, position);
    }
    return true;
}

// [+-] digits, nothing else.
bool IsInteger(const std::string& text) {
    std::size_t position = text.empty() || (text[0] != '+' && text[0] != '-') ? 0 : 1;
    return SkipDigits(text, &position) && position == text.size();
}

// A decimal number as people write one: [+-], digits with an optional
// fraction (or a fraction alone), an optional exponent. No hex, inf or nan.
bool IsDecimal(const std::string& text) {
    std::size_t position = text.empty() || (text[0] != '+' && text[0] != '-') ? 0 : 1;
    bool digits = SkipDigits(text, &position);
    if (position < text.size() && text[position] == '.') {
        ++position;
        digits = SkipDigits(text, &position) || digits;
    }
    return digits && SkipExponent(text, &position) && position == text.size();
}

// A number as JSON spells one: -?(0|[1-9][0-9]*)(.[0-9]+)?([eE][+-]?[0-9]+)?
bool IsJsonNumber(const std::string& text) {
    std::size_t position = !text.empty() && text[0] == '-' ? 1 : 0;
    if (position < text.size() && text[position] == '0') {
        ++position;
    } else if (!SkipDigits(text, &position)) {
        return false;
    }
    if (position < text.size() && text[position] == '.') {
        ++position;
        if (!SkipDigits(text, &position)) {
            return false;
        }
    }
    return SkipExponent(text, &position) && position == text.size();
}

bool IsJsonInteger(const std::string& text) {
    return IsJsonNumber(text) && text.find_first_of(".eE") == std::string::npos;
}

std::optional<long long> IntegerFrom(const std::string& text) {
    if (!IsInteger(text)) {
        return std::nullopt;
    }
    const char* first = text.data() + (text[0] == '+' ? 1 : 0);
    long long value = 0;
    const auto result = std::from_chars(first, text.data() + text.size(), value);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

// Only finite doubles: a saved document could not hold the others.
std::optional<double> DoubleFrom(const std::string& text) {
    if (!IsDecimal(text)) {
        return std::nullopt;
    }
    const double value = std::strtod(text.c_str(), nullptr);
    if (!std::isfinite(value)) {
        return std::nullopt;
    }
    return value;
}

std::optional<Ratio> RatioFrom(const std::string& text) {
    Ratio ratio;
    try {
        if (RatioFromString(text, ratio)) {
            return ratio;
        }
    } catch (const boost::bad_rational&) {
        throw UsageError("the ratio " + text + " has a zero denominator");
    }
    return std::nullopt;
}

std::optional<bool> BoolFrom(const std::string& text) {
    if (text == "true" || text == "false") {
        return text == "true";
    }
    return std::nullopt;
}

template <class T>
T Required(const std::optional<T>& value, const std::string& text, const char* what) {
    if (!value) {
        throw UsageError("'" + text + "' is not " + what);
    }
    return *value;
}

// A pointer given as a JSON string ("\"/a\\nb\""), decoded by the
// library's rules; any other text as it is.
std::string PointerOfJsonString(const std::string& given) {
    if (given.empty() || given[0] != '"') {
        return given;
    }
    try {
        const JsonText json(given, PropertySerializer::JsonSyntax::Strict, JsonText::Rules::Json);
        if (json.KindOf(json.Root()) == JsonText::Kind::String) {
            return json.StringValue(json.Root());
        }
    } catch (const JsonException& e) {
        throw UsageError("the JSON pointer starts with '\"' but is not a JSON string: " + LoadRefusalReason(e));
    }
    throw UsageError("the JSON pointer starts with '\"' but is not a JSON string");
}

}  // namespace

std::string ExactValueText(const Property& node) {
    switch (node.GetType()) {
    case TypeBool:
        return node.GetBool() ? "true" : "false";
    case TypeDouble: {
        char buffer[32];
        const auto result = std::to_chars(buffer, buffer + sizeof buffer, node.GetDouble());
        return std::string(buffer, result.ptr);
    }
    case TypeInt64:
        return std::to_string(node.GetInt64());
    case TypeString:
        return node.GetString();
    case TypeRatio:
        return StringFromRatio(node.GetRatio());
    case TypeArray:
        return "an object of " + std::to_string(node.Count()) + (node.Count() == 1 ? " member" : " members");
    default:
        return "nothing";
    }
}

std::string TypeName(const Property& node) {
    static const char* const kNames[] = {"nothing",  "a boolean", "a double", "an integer",
                                         "a string", "a ratio",   "an object"};
    const auto type = static_cast<std::size_t>(node.GetType());
    return type < std::size(kNames) ? kNames[type] : "an unknown type";
}

std::string JsonStringText(const std::string& value) {
    const auto output = MemoryDataOutput::Create();
    PropertySerializer::Serialize(Property("", value), output, false);
    return output->GetData();
}

namespace {

// The shortest text that reads back as the same double, always with a point
// or an exponent.
std::string ShortestDoubleText(double value) {
    const auto output = MemoryDataOutput::Create();
    PropertySerializer::Serialize(Property("", value), output, false, PropertySerializer::DoubleText::RoundTrip);
    return output->GetData();
}

std::string InferredJsonText(const std::string& text) {
    if (text == "true" || text == "false" || text == "null") {
        return text;
    }
    // A double beyond the doubles would no longer load: it is text.
    if (IsJsonInteger(text) || (IsJsonNumber(text) && DoubleFrom(text))) {
        return text;
    }
    RatioFrom(text);  // refuses a ratio with a zero denominator
    return JsonStringText(text);
}

}  // namespace

std::string JsonValueText(const std::string& text, const std::string& type) {
    if (type.empty()) {
        return InferredJsonText(text);
    }
    if (type == "bool") {
        Required(BoolFrom(text), text, "true or false");
        return text;
    }
    if (type == "int") {
        const long long value = Required(IntegerFrom(text), text, "an integer within 64 bits");
        return IsJsonInteger(text) ? text : std::to_string(value);
    }
    if (type == "double") {
        const double value = Required(DoubleFrom(text), text, "a finite decimal number");
        return IsJsonNumber(text) && !IsJsonInteger(text) ? text : ShortestDoubleText(value);
    }
    if (type == "ratio") {
        Required(RatioFrom(text), text, "a ratio n/d of two non-negative integers");
        return JsonStringText(text);
    }
    if (type == "string") {
        return JsonStringText(text);
    }
    throw UsageError("unknown type '" + type + "': use bool, int, double, string or ratio");
}

std::vector<std::string> PathSegments(const std::string& path) {
    const boost::char_separator<char> separator(Property::SEPARATOR.c_str());
    const boost::tokenizer<boost::char_separator<char>> tokens(path, separator);
    return std::vector<std::string>(tokens.begin(), tokens.end());
}

std::vector<std::string> PointerSegments(const std::string& given) {
    const std::string pointer = PointerOfJsonString(given);
    std::vector<std::string> names;
    if (pointer.empty()) {
        return names;
    }
    if (pointer[0] != '/') {
        throw UsageError("the JSON pointer " + PrintedName(pointer) + " must start with '/'");
    }
    for (std::size_t i = 0; i < pointer.size(); ++i) {
        if (pointer[i] == '/') {
            names.emplace_back();
        } else if (pointer[i] != '~') {
            names.back() += pointer[i];
        } else if (i + 1 < pointer.size() && (pointer[i + 1] == '0' || pointer[i + 1] == '1')) {
            names.back() += pointer[++i] == '0' ? '~' : '/';
        } else {
            throw UsageError("the JSON pointer " + PrintedName(pointer) + " has a '~' not followed by 0 or 1");
        }
    }
    return names;
}

const Property* FindPath(const Property& root, const std::vector<std::string>& names, std::size_t* reached) {
    const Property* node = &root;
    for (*reached = 0; *reached < names.size(); ++*reached) {
        if (node->GetType() != TypeArray) {
            return nullptr;
        }
        const auto child = node->FindChild(names[*reached]);
        if (child == node->end()) {
            return nullptr;
        }
        node = &*child;
    }
    return node;
}

std::string JoinedPath(const std::vector<std::string>& names, std::size_t count) {
    std::string path;
    for (std::size_t i = 0; i < count && i < names.size(); ++i) {
        path += (i > 0 ? "/" : "") + names[i];
    }
    return path;
}

}  // namespace TarselTool
