// This file implements Property comparison: values by value, doubles within a
// tolerance, containers regardless of child order.
#include <Core/Interfaces/Property.h>

#include <Core/Interfaces/internal/ThrowSignatures.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace Tarsel::Core {

namespace {

// Strict: a difference equal to eps is unequal, and NaN is never equal.
bool WithinTolerance(double x, double y, double eps) {
    return eps > std::fabs(x - y);
}

// Appends pointers to children to out, sorted by name alone: children of
// equal names (the elements of an array built by hand, say) keep whatever
// order the sort gives them, the same algorithm running on both sides.
void AppendSortedByName(const Property::ChildListType& children, std::vector<const Property*>& out) {
    const std::size_t first = out.size();
    for (const Property& child : children) {
        out.push_back(&child);
    }
    std::sort(out.begin() + static_cast<std::ptrdiff_t>(first), out.end(),
              [](const Property* a, const Property* b) { return a->GetName() < b->GetName(); });
}

// Children of different types, or two Empty children, make their containers
// unequal rather than incomparable. Those are exactly the cases in which
// operator== would throw, so they are answered here without paying for a
// throw and its call stack.
bool ComparableChildren(const Property& a, const Property& b) {
    return a.GetType() == b.GetType() && a.GetType() != TypeEmpty;
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
        ThrowMethodIsNotApplicable("operator==", TARSEL_THROW_SITE(Signatures::Equals));
    }
}

// Containers still to compare are held in an explicit stack, their sorted
// children in one shared buffer: a tree may be deeper than any thread's stack
// could recurse. Pairs are compared depth first, in the order a recursive
// comparison would take, and the first unequal pair ends the walk.
bool Property::ContainerEquals(const Property& other) const {
    struct Pending {
        std::size_t mine;    // where this side's sorted children start in the buffer
        std::size_t theirs;  // and the other side's
        std::size_t count;
        std::size_t next;
    };
    std::vector<const Property*> sorted;
    std::vector<Pending> pending;
    // Containers must agree in child count and in their own names.
    const auto open = [&](const Property& a, const Property& b) {
        if (a.m_children.size() != b.m_children.size() || a.m_name != b.m_name) {
            return false;
        }
        const std::size_t mine = sorted.size();
        AppendSortedByName(a.m_children, sorted);
        AppendSortedByName(b.m_children, sorted);
        pending.push_back({mine, mine + a.m_children.size(), a.m_children.size(), 0});
        return true;
    };
    if (!open(*this, other)) {
        return false;
    }
    while (!pending.empty()) {
        Pending& top = pending.back();
        bool descended = false;
        while (!descended && top.next < top.count) {
            const Property& a = *sorted[top.mine + top.next];
            const Property& b = *sorted[top.theirs + top.next];
            ++top.next;
            if (!ComparableChildren(a, b)) {
                return false;
            }
            descended = a.GetType() == TypeArray;
            if (!(descended ? open(a, b) : a == b)) {  // open invalidates top, and the loop ends
                return false;
            }
        }
        if (!descended) {
            sorted.resize(top.mine);
            pending.pop_back();
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
