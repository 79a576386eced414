// This file writes a loaded tree down as the real-node floor's plan, and
// builds it again from the plan.
#include "NodePlan.h"

#include <Core/Interfaces/internal/SerializerAccess.h>

#include <cstring>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

using namespace Tarsel;
using namespace Tarsel::Core;

namespace TarselBench {

namespace {

using Access = SerializerAccess;

// A ratio is kept as its bytes and copied back, never made again from its
// two numbers: that would normalise it, work a load does but the node does
// not need.
static_assert(std::is_trivially_copyable_v<Ratio>, "ratios are planned as their bytes");

// --- The step stream ---------------------------------------------------------
// A step: the type's byte, the parent's depth and the name's length as counts
// (seven bits a byte, low bits first), the name's bytes, then the value: a
// byte for a bool, the bytes of a double, integer or ratio, a count and the
// bytes of a string; a container or an empty node has none.

void PutCount(std::string& steps, std::size_t count) {
    for (; count >= 0x80; count >>= 7) {
        steps += static_cast<char>((count & 0x7F) | 0x80);
    }
    steps += static_cast<char>(count);
}

template <class T>
void PutBytes(std::string& steps, const T& value) {
    steps.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void PutText(std::string& steps, const std::string& text) {
    PutCount(steps, text.size());
    steps += text;
}

class StepReader {
public:
    explicit StepReader(const std::string& steps) : m_at(steps.data()), m_end(steps.data() + steps.size()) {}

    bool AtEnd() const { return m_at == m_end; }

    std::size_t Count() {
        std::size_t count = 0;
        for (unsigned shift = 0;; shift += 7) {
            const auto byte = static_cast<unsigned char>(*m_at++);
            count |= std::size_t{byte & 0x7Fu} << shift;
            if (byte < 0x80) {
                return count;
            }
        }
    }

    template <class T>
    T Bytes() {
        T value;
        std::memcpy(&value, m_at, sizeof value);
        m_at += sizeof value;
        return value;
    }

    std::string_view Text() {
        const std::size_t length = Count();
        const std::string_view text(m_at, length);
        m_at += length;
        return text;
    }

private:
    const char* m_at;
    const char* const m_end;
};

bool SameBits(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// Whether the children of a and b are the same, at every depth: the same
// names, types and values (exactly), in the same order.
bool SameChildren(const Property& a, const Property& b) {
    std::vector<std::pair<const Property*, const Property*>> pending{{&a, &b}};
    while (!pending.empty()) {
        const auto [left, right] = pending.back();
        pending.pop_back();
        const Property::ChildListType& lefts = Access::Children(*left);
        const Property::ChildListType& rights = Access::Children(*right);
        if (lefts.size() != rights.size()) {
            return false;
        }
        for (auto l = lefts.begin(), r = rights.begin(); l != lefts.end(); ++l, ++r) {
            if (l->GetName() != r->GetName() || l->GetType() != r->GetType()) {
                return false;
            }
            switch (l->GetType()) {
            case TypeBool:
                if (Access::Bool(*l) != Access::Bool(*r)) {
                    return false;
                }
                break;
            case TypeDouble:
                if (!SameBits(Access::Double(*l), Access::Double(*r))) {
                    return false;
                }
                break;
            case TypeInt64:
                if (Access::Int64(*l) != Access::Int64(*r)) {
                    return false;
                }
                break;
            case TypeString:
                if (Access::String(*l) != Access::String(*r)) {
                    return false;
                }
                break;
            case TypeRatio:
                if (Access::RatioValue(*l) != Access::RatioValue(*r)) {
                    return false;
                }
                break;
            case TypeEmpty:
            case TypeArray:
                break;
            }
            pending.push_back({&*l, &*r});
        }
    }
    return true;
}

}  // namespace

NodePlan::NodePlan(const Property& tree) {
    Write(tree);
    Property rebuilt("root");
    Build(rebuilt);
    if (!SameChildren(tree, rebuilt)) {
        throw std::logic_error("the node plan does not build the tree it was taken from");
    }
}

void NodePlan::Write(const Property& tree) {
    struct Pending {
        const Property* node;
        std::size_t parentDepth;
    };
    std::vector<Pending> pending;
    const auto pushChildren = [&pending](const Property& parent, std::size_t depth) {
        const Property::ChildListType& children = Access::Children(parent);
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            pending.push_back({&*child, depth});
        }
    };
    pushChildren(tree, 0);
    while (!pending.empty()) {
        const auto [node, depth] = pending.back();
        pending.pop_back();
        const PropertyTypes type = node->GetType();
        m_steps += static_cast<char>(type);
        PutCount(m_steps, depth);
        PutText(m_steps, node->GetName());
        switch (type) {
        case TypeBool:
            m_steps += static_cast<char>(Access::Bool(*node));
            break;
        case TypeDouble:
            PutBytes(m_steps, Access::Double(*node));
            break;
        case TypeInt64:
            PutBytes(m_steps, Access::Int64(*node));
            break;
        case TypeString:
            PutText(m_steps, Access::String(*node));
            break;
        case TypeRatio:
            PutBytes(m_steps, Access::RatioValue(*node));
            break;
        case TypeArray:
            if (depth + 1 >= m_parents.size()) {
                throw std::length_error("the node plan holds trees as deep as documents, no deeper");
            }
            pushChildren(*node, depth + 1);
            break;
        case TypeEmpty:
            break;
        }
    }
}

void NodePlan::Build(Property& root) {
    m_parents[0] = &root;
    StepReader steps(m_steps);
    while (!steps.AtEnd()) {
        const auto type = static_cast<PropertyTypes>(steps.Bytes<char>());
        const std::size_t depth = steps.Count();
        Property& parent = *m_parents[depth];
        const std::string_view name = steps.Text();
        switch (type) {
        case TypeBool:
            Access::Append<bool>(parent, name, steps.Bytes<char>() != 0);
            break;
        case TypeDouble:
            Access::Append<double>(parent, name, steps.Bytes<double>());
            break;
        case TypeInt64:
            Access::Append<long long>(parent, name, steps.Bytes<long long>());
            break;
        case TypeString: {
            // As the reader makes it: from the characters and their count.
            const std::string_view text = steps.Text();
            Access::Append<std::string>(parent, name, text.data(), text.size());
            break;
        }
        case TypeRatio:
            Access::Append<Ratio>(parent, name, steps.Bytes<Ratio>());
            break;
        case TypeArray:
            m_parents[depth + 1] = &Access::Append<Access::Container>(parent, name);
            break;
        case TypeEmpty:
            Access::Append<std::monostate>(parent, name);
            break;
        }
    }
}

}  // namespace TarselBench
