// `tarsel diff A B`: whether two settings files are equal is the library's
// answer (operator==: children in any order, doubles within 1e-05); when
// they are not, this finds and prints the first place where they differ.
#include "Command.h"
#include "Input.h"
#include "ValueText.h"

#include <algorithm>
#include <optional>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

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

}  // namespace

int RunDiff(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("a", po::value<std::string>()->required()->value_name("A"),
                          "a JSON file; - reads standard input")(
        "b", po::value<std::string>()->required()->value_name("B"), "the JSON file to compare it with");
    po::positional_options_description positional;
    positional.add("a", 1).add("b", 1);
    const auto values = ParseOrExit(args, "tarsel diff A B", options, positional);
    const std::string first = values["a"].as<std::string>();
    const std::string second = values["b"].as<std::string>();
    if (first == "-" && second == "-") {
        throw UsageError("standard input can be read only once");
    }
    const Document a = LoadDocument(first, false);
    const Document b = LoadDocument(second, false);
    if (Equal(a.tree, b.tree)) {
        return kSuccess;
    }
    const Difference difference = FirstDifference(a.tree, b.tree);
    Out() << (difference.path.empty() ? "(the whole document)" : difference.path) << ": " << difference.left
          << " vs " << difference.right << "\n";
    return kNegative;
}

}  // namespace TarselTool
