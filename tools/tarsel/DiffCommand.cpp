// `tarsel diff A B`: every difference between two JSON texts, compared as
// JSON (objects by key, arrays by position, types and names always), or,
// with --library, the library's equality of the two settings trees and the
// first place where they differ.
#include "Command.h"
#include "ExactNumber.h"
#include "Failure.h"
#include "Input.h"
#include "PrintedText.h"
#include "TextDocument.h"
#include "ValueText.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

// A path as a report shows it: PrintedPath, the root named.
std::string ShownPath(const std::vector<std::string>& path) {
    return path.empty() ? std::string("(the whole document)") : PrintedPath(path);
}

// --- diff --library -------------------------------------------------------

struct Difference {
    std::vector<std::string> path;
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

std::vector<std::string> Below(std::vector<std::string> path, const std::string& name) {
    path.push_back(name);
    return path;
}

// A value as the report shows it; with its type when the other side's
// differs, so that 5 and "5" are told apart. Null is the missing side.
std::string Shown(const Property* node, const Property* other) {
    if (node == nullptr) {
        return "(missing)";
    }
    std::string text = ExactValueText(*node);
    if (node->GetType() == TypeString && NeedsEscape(text)) {
        text = JsonQuoted(text);
    }
    if (other != nullptr && other->GetType() != node->GetType()) {
        text += " (" + TypeName(*node) + ")";
    }
    return text;
}

// The first name, in name order, that only one of the two sorted lists has.
std::optional<Difference> NameOnOneSide(const std::vector<std::string>& path, const std::vector<const Property*>& left,
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
    std::vector<std::string> path;
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

int LibraryDiff(const std::string& first, const std::string& second, bool comments) {
    const Document a = LoadDocument(first, false, SyntaxOf(first, comments));
    const Document b = LoadDocument(second, false, SyntaxOf(second, comments));
    if (Equal(a.tree, b.tree)) {
        return kSuccess;
    }
    const Difference difference = FirstDifference(a.tree, b.tree);
    Out() << ShownPath(difference.path) << ": " << difference.left << " vs " << difference.right << "\n";
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

bool IsNumber(JsonText::Kind kind) {
    return kind == JsonText::Kind::Integer || kind == JsonText::Kind::Double;
}

// The double a number's text reads as, when it is finite: tolerances apply
// only to the values a double can hold.
std::optional<double> FiniteDouble(std::string_view text) {
    const double value = std::strtod(std::string(text).c_str(), nullptr);
    return std::isfinite(value) ? std::optional<double>(value) : std::nullopt;
}

// Finds and words every difference between two texts.
class TextDiff {
public:
    TextDiff(const JsonText& a, const JsonText& b, const Tolerance& tolerance, std::size_t shown)
        : m_a(a), m_b(b), m_tolerance(tolerance), m_shown(shown) {}

    // Compares a and b, the values at m_path; nesting is bounded by the
    // parser's limit.
    void Compare(JsonText::Value a, JsonText::Value b) {
        const JsonText::Kind kindA = m_a.KindOf(a);
        const JsonText::Kind kindB = m_b.KindOf(b);
        if (kindA == JsonText::Kind::Object && kindB == JsonText::Kind::Object) {
            CompareObjects(a, b);
        } else if (kindA == JsonText::Kind::Array && kindB == JsonText::Kind::Array) {
            CompareArrays(a, b);
        } else if (!SameValue(a, b) && Counted()) {
            m_lines.push_back(ShownPath(m_path) + ": " + Shown(m_a, a, kindB) + " vs " + Shown(m_b, b, kindA));
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
    void CompareObjects(JsonText::Value a, JsonText::Value b) {
        const auto left = KeptMembers(m_a, a);
        const auto right = KeptMembers(m_b, b);
        std::unordered_map<std::string_view, JsonText::Value> rightByName;
        for (const auto& [name, member] : right) {
            rightByName.emplace(name, member);
        }
        std::unordered_set<std::string_view> leftNames;
        for (const auto& [name, member] : left) {
            leftNames.insert(name);
            m_path.push_back(name);
            const auto match = rightByName.find(name);
            if (match == rightByName.end()) {
                ReportOnOneSide("only in A: ");
            } else {
                Compare(member, match->second);
            }
            m_path.pop_back();
        }
        for (const auto& [name, member] : right) {
            if (leftNames.count(name) == 0) {
                m_path.push_back(name);
                ReportOnOneSide("only in B: ");
                m_path.pop_back();
            }
        }
    }

    void CompareArrays(JsonText::Value a, JsonText::Value b) {
        auto left = m_a.ChildrenOf(a).begin();
        auto right = m_b.ChildrenOf(b).begin();
        const auto leftEnd = m_a.ChildrenOf(a).end();
        const auto rightEnd = m_b.ChildrenOf(b).end();
        for (std::size_t index = 0; left != leftEnd || right != rightEnd; ++index) {
            m_path.push_back(std::to_string(index));
            if (right == rightEnd) {
                ReportOnOneSide("only in A: ");
                ++left;
            } else if (left == leftEnd) {
                ReportOnOneSide("only in B: ");
                ++right;
            } else {
                Compare(*left++, *right++);
            }
            m_path.pop_back();
        }
    }

    bool SameValue(JsonText::Value a, JsonText::Value b) const {
        const JsonText::Kind kindA = m_a.KindOf(a);
        const JsonText::Kind kindB = m_b.KindOf(b);
        if (IsNumber(kindA) && IsNumber(kindB) && (kindA == kindB || m_tolerance.numeric)) {
            return SameNumber(m_a.Spelling(a), m_b.Spelling(b),
                              kindA == JsonText::Kind::Integer && kindB == JsonText::Kind::Integer);
        }
        if (kindA != kindB) {
            return false;
        }
        if (kindA == JsonText::Kind::String) {
            return m_a.StringValue(a) == m_b.StringValue(b);
        }
        if (kindA == JsonText::Kind::Boolean) {
            return m_a.Spelling(a) == m_b.Spelling(b);
        }
        return true;  // two nulls
    }

    // Exactly one value, or, but for two integers, within a tolerance given.
    bool SameNumber(std::string_view x, std::string_view y, bool integers) const {
        if (ExactNumberOf(x) == ExactNumberOf(y)) {
            return true;
        }
        if (integers || (!m_tolerance.absolute && !m_tolerance.relative)) {
            return false;
        }
        const std::optional<double> dx = FiniteDouble(x);
        const std::optional<double> dy = FiniteDouble(y);
        if (!dx || !dy) {
            return false;
        }
        const double difference = std::fabs(*dx - *dy);
        return (m_tolerance.absolute && difference <= *m_tolerance.absolute) ||
               (m_tolerance.relative && difference <= *m_tolerance.relative * std::max(std::fabs(*dx), std::fabs(*dy)));
    }

    // A value as its text in the file (what a terminal must not receive
    // escaped), a container by its size; with its type in front when the
    // other side's type differs.
    static std::string Shown(const JsonText& json, JsonText::Value value, JsonText::Kind other) {
        const JsonText::Kind kind = json.KindOf(value);
        if (kind == JsonText::Kind::Object) {
            return "an object of " + Count(json.Count(value), "member");
        }
        if (kind == JsonText::Kind::Array) {
            return "an array of " + Count(json.Count(value), "element");
        }
        std::string shown = TerminalSafe(json.Spelling(value));
        if (kind != other && kind != JsonText::Kind::Null) {
            shown = KindWord(kind) + (" " + shown);
        }
        return shown;
    }

    static std::string Count(std::size_t count, const char* noun) {
        return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
    }

    void ReportOnOneSide(const char* side) {
        if (Counted()) {
            m_lines.push_back(side + PrintedPath(m_path));
        }
    }

    // Counts a difference; true while its line is one of those shown.
    bool Counted() {
        ++m_count;
        return m_lines.size() < m_shown;
    }

    const JsonText& m_a;
    const JsonText& m_b;
    const Tolerance m_tolerance;
    const std::size_t m_shown;
    // The names from the roots to the values compared.
    std::vector<std::string> m_path;
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
        "numeric", po::bool_switch(),
        "an integer and a double of the same value are equal")("comments", po::bool_switch(), kCommentsHelp)(
        "library", po::bool_switch(),
        "compare the settings trees the library loads, with its operator==: children in any order, doubles "
        "within 1e-05, and the names of value children not compared; print the first difference");
    po::positional_options_description positional;
    positional.add("a", 1).add("b", 1);
    const auto values = ParseOrExit(
        args, "tarsel diff A B [--max N] [--tolerance X] [--relative R] [--numeric] [--library] [--comments]", options,
        positional);
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
    const bool comments = values["comments"].as<bool>();
    if (values["library"].as<bool>()) {
        return LibraryDiff(first, second, comments);
    }
    const TextDocument a = ReadTextDocument(first, SyntaxOf(first, comments));
    const TextDocument b = ReadTextDocument(second, SyntaxOf(second, comments));
    TextDiff diff(a.json, b.json, tolerance, static_cast<std::size_t>(shown));
    diff.Compare(a.json.Root(), b.json.Root());
    diff.Print(Out());
    return diff.Count() == 0 ? kSuccess : kNegative;
}

}  // namespace TarselTool
