// `tarsel diff A B`: every difference between two JSON texts, compared as
// JSON (objects by key, arrays by position, types and names always), or,
// with --library, the library's equality of the two settings trees and the
// first place where they differ.
#include "Command.h"
#include "Failure.h"
#include "Input.h"
#include "JsonText.h"
#include "ValueText.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <unordered_map>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

// --- diff --library -------------------------------------------------------

struct Difference {
    std::string path;
    std::string left;
    std::string right;
};

// The library's equality; a comparison it refuses (nodes of different
// types) is a difference, as it is between children.
bool Equal(const Property& a, const Property& b) {
    try {
        return a == b;
    } catch (const PropertyException&) {
        return false;
    }
}

// The children in the order the comparison pairs them: by name.
std::vector<const Property*> ByName(const Property& node) {
    std::vector<const Property*> children;
    for (const Property& child : node) {
        children.push_back(&child);
    }
    std::stable_sort(children.begin(), children.end(),
                     [](const Property* a, const Property* b) { return a->GetName() < b->GetName(); });
    return children;
}

std::string Below(const std::string& path, const std::string& name) {
    return path.empty() ? name : path + "/" + name;
}

// A value as the report shows it; with its type when the other side's
// differs, so that 5 and "5" are told apart. Null is the missing side.
std::string Shown(const Property* node, const Property* other) {
    if (node == nullptr) {
        return "(missing)";
    }
    std::string text = ExactValueText(*node);
    if (other != nullptr && other->GetType() != node->GetType()) {
        text += " (" + TypeName(*node) + ")";
    }
    return text;
}

// The first name, in name order, that only one of the two sorted lists has.
std::optional<Difference> NameOnOneSide(const std::string& path, const std::vector<const Property*>& left,
                                        const std::vector<const Property*>& right) {
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < left.size() || j < right.size()) {
        if (i < left.size() && j < right.size() && left[i]->GetName() == right[j]->GetName()) {
            ++i;
            ++j;
        } else if (j == right.size() || (i < left.size() && left[i]->GetName() < right[j]->GetName())) {
            return Difference{Below(path, left[i]->GetName()), Shown(left[i], nullptr), Shown(nullptr, nullptr)};
        } else {
            return Difference{Below(path, right[j]->GetName()), Shown(nullptr, nullptr), Shown(right[j], nullptr)};
        }
    }
    return std::nullopt;
}

// The first difference between a and b, which the library finds unequal:
// descends through the first unequal pair of children until the values, or
// a name that only one side has, show it.
Difference FirstDifference(const Property& a, const Property& b) {
    std::string path;
    const Property* left = &a;
    const Property* right = &b;
    for (;;) {
        if (left->GetType() != TypeArray || right->GetType() != TypeArray) {
            return {path, Shown(left, right), Shown(right, left)};
        }
        const std::vector<const Property*> leftChildren = ByName(*left);
        const std::vector<const Property*> rightChildren = ByName(*right);
        if (auto missing = NameOnOneSide(path, leftChildren, rightChildren)) {
            return *missing;
        }
        const auto unequal = std::mismatch(leftChildren.begin(), leftChildren.end(), rightChildren.begin(),
                                           [](const Property* x, const Property* y) { return Equal(*x, *y); });
        if (unequal.first == leftChildren.end()) {
            return {path, Shown(left, right), Shown(right, left)};
        }
        path = Below(path, (*unequal.first)->GetName());
        left = *unequal.first;
        right = *unequal.second;
    }
}

int LibraryDiff(const std::string& first, const std::string& second) {
    const Document a = LoadDocument(first, false);
    const Document b = LoadDocument(second, false);
    if (Equal(a.tree, b.tree)) {
        return kSuccess;
    }
    const Difference difference = FirstDifference(a.tree, b.tree);
    Out() << (difference.path.empty() ? "(the whole document)" : difference.path) << ": " << difference.left << " vs "
          << difference.right << "\n";
    return kNegative;
}

// --- diff of the JSON texts -----------------------------------------------

struct Tolerance {
    // Integers and doubles compare by value, not type.
    bool numeric = false;
    // Doubles are equal within this absolute difference, or this one
    // relative to the larger magnitude, when given; exactly otherwise.
    std::optional<double> absolute;
    std::optional<double> relative;
};

// A JSON text and its values.
struct Text {
    std::string name;
    std::shared_ptr<const std::string> bytes;
    JsonValue root;
};

Text ParseDocument(const std::string& file) {
    Text text{DisplayName(file), ReadDocumentText(file), {}};
    try {
        text.root = ParseJsonText(*text.bytes);
    } catch (...) {
        RethrowAbout(text.name, "", text.bytes);
    }
    return text;
}

// The members of an object that a load keeps: where a key repeats, the last.
std::vector<const JsonMember*> KeptMembers(const JsonValue& object) {
    std::unordered_map<std::string_view, const JsonMember*> last;
    for (const JsonMember& member : object.members) {
        last[member.key] = &member;
    }
    std::vector<const JsonMember*> kept;
    for (const JsonMember& member : object.members) {
        if (last[member.key] == &member) {
            kept.push_back(&member);
        }
    }
    return kept;
}

// Finds and words every difference between two texts.
class TextDiff {
public:
    TextDiff(const Text& a, const Text& b, const Tolerance& tolerance, std::size_t shown)
        : m_a(a), m_b(b), m_tolerance(tolerance), m_shown(shown) {}

    void Compare(const std::string& path, const JsonValue& a, const JsonValue& b) {
        using Kind = JsonValue::Kind;
        if (a.kind == Kind::Object && b.kind == Kind::Object) {
            CompareObjects(path, a, b);
        } else if (a.kind == Kind::Array && b.kind == Kind::Array) {
            const std::size_t common = std::min(a.elements.size(), b.elements.size());
            for (std::size_t i = 0; i < common; ++i) {
                Compare(Below(path, std::to_string(i)), a.elements[i], b.elements[i]);
            }
            for (std::size_t i = common; i < a.elements.size(); ++i) {
                Report("only in A: " + Below(path, std::to_string(i)));
            }
            for (std::size_t i = common; i < b.elements.size(); ++i) {
                Report("only in B: " + Below(path, std::to_string(i)));
            }
        } else if (!SameValue(a, b)) {
            Report((path.empty() ? std::string("(the whole document)") : path) + ": " + Shown(a, m_a, b) + " vs " +
                   Shown(b, m_b, a));
        }
    }

    // The differences found, up to the number shown, then how many more.
    void Print(std::ostream& out) const {
        for (const std::string& line : m_lines) {
            out << line << "\n";
        }
        if (m_count > m_lines.size()) {
            out << "\u2026 and " << m_count - m_lines.size() << " more\n";
        }
    }

    std::size_t Count() const { return m_count; }

private:
    void CompareObjects(const std::string& path, const JsonValue& a, const JsonValue& b) {
        const std::vector<const JsonMember*> left = KeptMembers(a);
        const std::vector<const JsonMember*> right = KeptMembers(b);
        std::unordered_map<std::string_view, const JsonMember*> rightByKey;
        for (const JsonMember* member : right) {
            rightByKey[member->key] = member;
        }
        std::unordered_map<std::string_view, bool> leftKeys;
        for (const JsonMember* member : left) {
            leftKeys[member->key] = true;
            const auto match = rightByKey.find(member->key);
            if (match == rightByKey.end()) {
                Report("only in A: " + Below(path, member->key));
            } else {
                Compare(Below(path, member->key), member->value, match->second->value);
            }
        }
        for (const JsonMember* member : right) {
            if (leftKeys.count(member->key) == 0) {
                Report("only in B: " + Below(path, member->key));
            }
        }
    }

    bool SameValue(const JsonValue& a, const JsonValue& b) const {
        using Kind = JsonValue::Kind;
        const bool numbers =
            (a.kind == Kind::Integer || a.kind == Kind::Double) && (b.kind == Kind::Integer || b.kind == Kind::Double);
        if (a.kind != b.kind && !(numbers && m_tolerance.numeric)) {
            return false;
        }
        if (a.kind == Kind::Integer && b.kind == Kind::Integer) {
            return IntegerText(a.text) == IntegerText(b.text);  // any size, exactly
        }
        if (numbers) {
            return SameDouble(std::strtod(a.text.c_str(), nullptr), std::strtod(b.text.c_str(), nullptr));
        }
        return a.text == b.text;
    }

    bool SameDouble(double x, double y) const {
        if (x == y) {
            return true;
        }
        const double difference = std::fabs(x - y);
        return (m_tolerance.absolute && difference <= *m_tolerance.absolute) ||
               (m_tolerance.relative && difference <= *m_tolerance.relative * std::max(std::fabs(x), std::fabs(y)));
    }

    // An integer's text with "-0" taken for "0".
    static std::string IntegerText(const std::string& text) { return text == "-0" ? std::string("0") : text; }

    // A value as its text in the file, a container by its size; with its
    // type in front when the other side's type differs.
    static std::string Shown(const JsonValue& value, const Text& text, const JsonValue& other) {
        using Kind = JsonValue::Kind;
        std::string shown;
        if (value.kind == Kind::Object) {
            shown = "an object of " + Count(value.members.size(), "member");
        } else if (value.kind == Kind::Array) {
            shown = "an array of " + Count(value.elements.size(), "element");
        } else {
            shown = text.bytes->substr(value.begin, value.end - value.begin);
            if (value.kind != other.kind && value.kind != Kind::Null) {
                shown = KindWord(value.kind) + (" " + shown);
            }
        }
        return shown;
    }

    static std::string Count(std::size_t count, const char* noun) {
        return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
    }

    void Report(std::string line) {
        ++m_count;
        if (m_lines.size() < m_shown) {
            m_lines.push_back(std::move(line));
        }
    }

    const Text& m_a;
    const Text& m_b;
    const Tolerance m_tolerance;
    const std::size_t m_shown;
    std::vector<std::string> m_lines;
    std::size_t m_count = 0;
};

// A tolerance as given: a finite number, not negative.
std::optional<double> ToleranceOption(const po::variables_map& values, const char* option) {
    if (values.count(option) == 0) {
        return std::nullopt;
    }
    const double tolerance = values[option].as<double>();
    if (!std::isfinite(tolerance) || tolerance < 0) {
        throw UsageError(std::string("--") + option + " must be a finite number, 0 or more");
    }
    return tolerance;
}

}  // namespace

int RunDiff(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("a", po::value<std::string>()->required()->value_name("A"),
                          "a JSON file; - reads standard input")(
        "b", po::value<std::string>()->required()->value_name("B"), "the JSON file to compare it with")(
        "max", po::value<long long>()->default_value(20)->value_name("N"), "print at most N differences")(
        "tolerance", po::value<double>()->value_name("X"), "doubles are equal when they differ by X at most")(
        "relative", po::value<double>()->value_name("R"),
        "doubles are equal when they differ by R times the larger magnitude at most")(
        "numeric", po::bool_switch(), "an integer and a double of the same value are equal")(
        "library", po::bool_switch(),
        "compare the settings trees the library loads, with its operator==: children in any order, doubles "
        "within 1e-05, and the names of value children not compared; print the first difference");
    po::positional_options_description positional;
    positional.add("a", 1).add("b", 1);
    const auto values = ParseOrExit(
        args, "tarsel diff A B [--max N] [--tolerance X] [--relative R] [--numeric] [--library]", options, positional);
    const std::string first = values["a"].as<std::string>();
    const std::string second = values["b"].as<std::string>();
    if (first == "-" && second == "-") {
        throw UsageError("standard input can be read only once");
    }
    const long long shown = values["max"].as<long long>();
    if (shown < 0) {
        throw UsageError("--max must not be negative");
    }
    Tolerance tolerance;
    tolerance.numeric = values["numeric"].as<bool>();
    tolerance.absolute = ToleranceOption(values, "tolerance");
    tolerance.relative = ToleranceOption(values, "relative");
    if (values["library"].as<bool>()) {
        return LibraryDiff(first, second);
    }
    const Text a = ParseDocument(first);
    const Text b = ParseDocument(second);
    TextDiff diff(a, b, tolerance, static_cast<std::size_t>(shown));
    diff.Compare("", a.root, b.root);
    diff.Print(Out());
    return diff.Count() == 0 ? kSuccess : kNegative;
}

}  // namespace TarselTool
