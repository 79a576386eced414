// This file implements Property comparison: values by value, doubles within a
// tolerance, containers regardless of child order.
#include <Core/Interfaces/Property.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace Tarsel::Core {

namespace {

// Strict: a difference equal to eps is unequal, and NaN is never equal.
bool WithinTolerance(double x, double y, double eps) {
    return eps > std::fabs(x - y);
}

std::vector<const Property*> ChildrenSortedByName(const Property& node) {
    std::vector<const Property*> children;
    children.reserve(node.Count());
    for (const Property& child : node) {
        children.push_back(&child);
    }
    // Only the name is the key: children of equal names (the elements of an
    // array built by hand, say) keep whatever order the sort gives them, the
    // same algorithm running on both sides.
    std::sort(children.begin(), children.end(),
              [](const Property* a, const Property* b) { return a->GetName() < b->GetName(); });
    return children;
}

// Children of different types, or two Empty children, make their containers
// unequal rather than incomparable. Those are exactly the cases in which
// operator== would throw, so they are answered here without paying for a
// throw and its call stack.
bool ChildrenEqual(const Property& a, const Property& b) {
    if (a.GetType() != b.GetType() || a.GetType() == TypeEmpty) {
        return false;
    }
    return a == b;
}

}  // namespace

bool Property::operator==(const Property& other) const {
    if (other.GetType() != GetType()) {
        DifferentTypeError(other.GetType());
    }
    switch (GetType()) {
    case TypeBool:
        return GetBool() == other.GetBool();
    case TypeDouble:
        return IsEqual(other, DEFAULT_DOUBLE_EPS);
    case TypeInt64:
        return GetInt64() == other.GetInt64();
    case TypeString:
        return std::get<std::string>(m_value) == std::get<std::string>(other.m_value);
    case TypeRatio:
        return std::get<Ratio>(m_value) == std::get<Ratio>(other.m_value);
    case TypeArray:
        return ContainerEquals(other);
    default:
        // Two Empty nodes have nothing to compare; saying "equal" would hide a
        // tree that was never filled.
        ThrowMethodIsNotApplicable(
            "operator==",
            TARSEL_THROW_SITE("bool Tarsel::Core::Property::operator==(const Tarsel::Core::Property &) const"));
    }
}

bool Property::ContainerEquals(const Property& other) const {
    if (m_children.size() != other.m_children.size() || m_name != other.m_name) {
        return false;
    }
    const std::vector<const Property*> mine = ChildrenSortedByName(*this);
    const std::vector<const Property*> theirs = ChildrenSortedByName(other);
    for (std::size_t i = 0; i < mine.size(); ++i) {
        if (!ChildrenEqual(*mine[i], *theirs[i])) {
            return false;
        }
    }
    return true;
}

bool Property::operator!=(const Property& other) const {
    return !(*this == other);
}

bool Property::IsEqual(double number, double eps) const {
    if (GetType() != TypeDouble) {
        DifferentTypeError(TypeDouble);
    }
    return WithinTolerance(std::get<double>(m_value), number, eps);
}

bool Property::IsEqual(const Property& other, double eps) const {
    if (GetType() != TypeDouble) {
        return *this == other;
    }
    return WithinTolerance(std::get<double>(m_value), other.GetDouble(), eps);
}

}  // namespace Tarsel::Core
