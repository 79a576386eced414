// Private to the serializer, not installed: the one answer to "which sibling
// met so far bears this name?", which saving asks of every key (a repeated
// key, PropertySerializer.h says what it does) and loading of every member
// (the child it loads into), and the writer's walk of a container's members
// over it.
#pragma once

#include <Core/Interfaces/Property.h>
#include <Core/Interfaces/internal/SerializerAccess.h>

#include <cstddef>
#include <iterator>
#include <memory>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Tarsel::Core::Json {

// How siblings are compared: saving by their keys (up to the first zero),
// loading by their whole names, as SetChild compares them.
struct ByKey {
    std::string_view operator()(const Property& node) const { return KeyOf(node); }
};
struct ByName {
    std::string_view operator()(const Property& node) const { return node.GetName(); }
};

// The siblings met so far are the first Count() children of one list, in
// order. A Find that answers null counts the next child of the list in,
// under the name it was asked: the writer's current child, already there,
// or the child the reader appends before it asks again.
//
// Each name costs O(1) on average, and the answer is exact. The checks go
// from the cheapest, and a container moves on to the next only when the
// cheaper one can no longer answer, never back:
// - Positional: every name so far was its index, "0", "1", ..., as arrays
//   are named; a name equal to the next index is new without looking.
// - Fingerprint: a name whose fingerprint bit is clear is new without
//   looking, which is nearly every name while the 256 bits last. A possible
//   repeat among the first kScanned siblings is compared with each of them;
//   among more, it is looked up in
// - Indexed: a hash table of name to first sibling, built when first
//   needed and brought up to date only when a possible repeat is met.
template <class Children, class Name>
class SiblingNames {
public:
    using Node = std::conditional_t<std::is_const_v<Children>, const Property, Property>;

    // The first count children are the siblings so far (a merge's target's).
    explicit SiblingNames(Children& children, std::size_t count = 0) : m_children(&children), m_count(count) {
        if (count != 0) {
            LeavePositional();
        }
    }

    // The first of the siblings so far named name, or null: name is then
    // the next child's. Certainly new names, nearly all of them, are told
    // here; the rest of the work is out of line.
    [[gnu::always_inline]] Node* Find(std::string_view name) {
        if (m_state == State::Positional) {
            if (name == m_index.Current()) {
                m_index.Advance();
                ++m_count;
                return nullptr;
            }
            if (m_count != 0) {
                return FindPossibleRepeat(name);
            }
            m_state = State::Fingerprint;  // the first name, and not "0"
        }
        if (m_state == State::Fingerprint && !m_seen.Add(name)) {
            ++m_count;
            return nullptr;
        }
        return FindPossibleRepeat(name);
    }

private:
    using Iterator = decltype(std::declval<Children&>().begin());
    enum class State : unsigned char { Positional, Fingerprint, Indexed };
    // Below this many siblings, comparing a possible repeat with each costs
    // less than building the table.
    static constexpr std::size_t kScanned = 16;

    // A name that is not the next index while Positional, one whose
    // fingerprint bit is set, or any name once Indexed.
    [[gnu::noinline]] Node* FindPossibleRepeat(std::string_view name) {
        if (m_state != State::Fingerprint) {
            if (m_state == State::Positional) {
                LeavePositional();
            }
            if (!m_seen.Add(name)) {
                ++m_count;
                return nullptr;
            }
        }
        Node* const found = m_state == State::Fingerprint && m_count <= kScanned ? Scan(name) : LookUp(name);
        m_count += found == nullptr;
        return found;
    }

    void LeavePositional() {
        m_state = State::Fingerprint;
        auto sibling = m_children->begin();
        for (std::size_t i = 0; i < m_count; ++i, ++sibling) {
            m_seen.Add(Name()(*sibling));
        }
    }

    Node* Scan(std::string_view name) const {
        auto sibling = m_children->begin();
        for (std::size_t i = 0; i < m_count; ++i, ++sibling) {
            if (Name()(*sibling) == name) {
                return &*sibling;
            }
        }
        return nullptr;
    }

    // Siblings are added to the table in order, and the first of a name
    // stays, as a scan would find it.
    Node* LookUp(std::string_view name) {
        if (!m_table) {
            m_state = State::Indexed;
            m_table = std::make_unique<std::unordered_map<std::string_view, Node*>>();
            m_table->reserve(2 * m_count);
        }
        for (; m_tabled < m_count; ++m_tabled) {
            // The last sibling tabled, not the next one: that may not be in
            // the list yet, and the list's end would not become it.
            m_lastTabled = m_tabled == 0 ? m_children->begin() : std::next(m_lastTabled);
            m_table->emplace(Name()(*m_lastTabled), &*m_lastTabled);
        }
        const auto found = m_table->find(name);
        return found == m_table->end() ? nullptr : found->second;
    }

    Children* m_children;
    std::size_t m_count;
    State m_state = State::Positional;
    IndexNames m_index;  // the next index's name, while Positional
    NameFingerprint m_seen;
    std::unique_ptr<std::unordered_map<std::string_view, Node*>> m_table;
    std::size_t m_tabled = 0;
    Iterator m_lastTabled{};
};

// Which child's value each member of a container's object holds, by the
// rule for repeated keys (PropertySerializer.h); null for a null member.
std::vector<const Property*> PlanMembers(const Property::ChildListType& children);

// Walks a container's members in order with the node whose value each
// holds. Keys are nearly always distinct, and a pass over the children
// before writing them cost a third of the time of saving, so repeats are
// told apart while writing: when a key repeats an earlier one, Next answers
// false and the cursor is back at the first member, with the exact plan
// (PlanMembers); the writer then discards what it wrote of the container's
// members and writes them again.
class MemberCursor {
public:
    explicit MemberCursor(const Property& container)
        : m_children(&SerializerAccess::Children(container)), m_it(m_children->begin()), m_names(*m_children) {}

    bool Done() const { return m_it == m_children->end(); }
    bool First() const { return m_index == 0; }

    struct Member {
        std::string_view key;
        const Property* source;  // null: the member is null
    };

    // The next member, or false when its key repeats an earlier one.
    bool Next(Member& member) {
        const std::string_view key = KeyOf(*m_it);
        if (m_plan.empty()) {
            if (m_names.Find(key) != nullptr) {
                m_plan = PlanMembers(*m_children);
                m_it = m_children->begin();
                m_index = 0;
                return false;
            }
            member = {key, &*m_it};
        } else {
            member = {key, m_plan[m_index]};
        }
        ++m_it;
        ++m_index;
        return true;
    }

private:
    const Property::ChildListType* m_children;
    Property::const_iterator m_it;
    std::size_t m_index = 0;
    SiblingNames<const Property::ChildListType, ByKey> m_names;
    std::vector<const Property*> m_plan;  // empty until a key repeats
};

}  // namespace Tarsel::Core::Json
