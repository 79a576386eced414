// This file writes Property trees as JSON, for Serialize (compact text) and
// Save (RapidJSON values).
//
// - Doubles are written as PropertySerializer::DoubleText says
//   (internal/SavedDouble.h), strings with RapidJSON's escaping, ratios as
//   "n/d", containers as objects.
// - Children that share a name all write into the first member with that
//   name, the last one winning (MemberCursor, PlanMembers).
// - The tree is walked with an explicit stack into one buffer, so neither
//   depth nor breadth can exhaust the stack, and nothing reaches the sink
//   unless the whole text could be built.
#include <Core/Interfaces/PropertySerializer.h>

#include <Core/Interfaces/internal/SavedDouble.h>
#include <Core/Interfaces/internal/SerializerAccess.h>
#include <Core/Interfaces/internal/WholeInput.h>

#include <rapidjson/document.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Tarsel::Core::Json {

namespace {

// Which child's value each member of a container's object holds: children
// that share a key all write into the first member with that key, the last
// one winning, and leave their own members null.
std::vector<const Property*> PlanMembers(const Property::ChildListType& children) {
    std::unordered_map<std::string_view, std::pair<std::size_t, const Property*>> byKey;
    byKey.reserve(children.size());
    std::size_t index = 0;
    for (const Property& child : children) {
        const auto [it, inserted] = byKey.try_emplace(KeyOf(child), index++, &child);
        if (!inserted) {
            it->second.second = &child;
        }
    }
    std::vector<const Property*> plan(children.size(), nullptr);
    for (const auto& [key, firstAndLast] : byKey) {
        plan[firstAndLast.first] = firstAndLast.second;
    }
    return plan;
}

// Walks a container's members in order with the node whose value each
// holds, telling repeated keys apart while it goes: keys are nearly always
// distinct, and a pass over the children before writing them cost a third
// of the time of saving. A repeat found part-way makes the cursor start over
// with the exact plan (PlanMembers); the writer discards what it wrote of
// the container's members and writes them again.
//
// A key is checked the cheapest way its container allows: by its position
// ("0", "1", ... as arrays are named); then by a fingerprint, which tells a
// new key from a possible repeat without comparing; a possible repeat among
// the first kScannedKeys members by comparing with those before it; beyond
// them through a set of all the keys so far.
class MemberCursor {
public:
    explicit MemberCursor(const Property& container)
        : m_children(&Access::Children(container)),
          m_begin(m_children->begin()),
          m_it(m_begin),
          m_end(m_children->end()) {}

    bool Done() const { return m_it == m_end; }
    bool First() const { return m_index == 0; }

    struct Member {
        std::string_view key;
        const Property* source;  // null: the member is null
    };

    // The next member, or false when its key repeats an earlier one: the
    // cursor is then back at the first member, with the exact plan.
    bool Next(Member& member) {
        const Property& child = *m_it;
        const std::string_view key = KeyOf(child);
        if (m_check != Check::Planned && Repeats(key)) {
            m_plan = PlanMembers(*m_children);
            m_check = Check::Planned;
            m_it = m_begin;
            m_index = 0;
            return false;
        }
        member = {key, m_check == Check::Planned ? m_plan[m_index] : &child};
        ++m_it;
        ++m_index;
        return true;
    }

private:
    enum class Check : unsigned char { Positional, Fingerprint, Set, Planned };
    static constexpr std::size_t kScannedKeys = 32;

    // Whether key, the m_index-th, repeats one before it; remembers it.
    bool Repeats(std::string_view key) {
        if (m_check == Check::Positional) {
            if (key == m_indexName.Current()) {
                m_indexName.Advance();
                return false;
            }
            m_check = Check::Fingerprint;
            std::for_each(m_begin, m_it, [this](const Property& earlier) { m_seen.Add(KeyOf(earlier)); });
        }
        if (m_check == Check::Fingerprint) {
            if (!m_seen.Add(key)) {
                return false;
            }
            if (m_index < kScannedKeys) {
                return std::any_of(m_begin, m_it, [key](const Property& earlier) { return KeyOf(earlier) == key; });
            }
            m_check = Check::Set;
            m_keys = std::make_unique<std::unordered_set<std::string_view>>();
            m_keys->reserve(2 * m_index);
            std::for_each(m_begin, m_it, [this](const Property& earlier) { m_keys->insert(KeyOf(earlier)); });
        }
        return !m_keys->insert(key).second;
    }

    const Property::ChildListType* m_children;
    Property::const_iterator m_begin;
    Property::const_iterator m_it;
    Property::const_iterator m_end;
    std::size_t m_index = 0;
    Check m_check = Check::Positional;
    IndexNames m_indexName;  // of the m_index-th member, while Positional
    NameFingerprint m_seen;
    std::unique_ptr<std::unordered_set<std::string_view>> m_keys;
    std::vector<const Property*> m_plan;
};

// A growable text buffer written through a cursor: one capacity check per
// value rather than one per character. It grows with realloc, which can
// extend a large block in place or remap it instead of copying the text.
class TextBuffer {
public:
    // Room for n more characters; returns where they go. Commit the end.
    char* Reserve(std::size_t n) {
        if (static_cast<std::size_t>(m_end - m_cursor) < n) {
            Grow(n);
        }
        return m_cursor;
    }
    void Commit(char* end) { m_cursor = end; }

    void Append(std::string_view text) {
        char* out = Reserve(text.size());
        std::memcpy(out, text.data(), text.size());
        m_cursor = out + text.size();
    }
    void Put(char c) { *Reserve(1) = c, ++m_cursor; }

    std::size_t Size() const { return static_cast<std::size_t>(m_cursor - m_data.get()); }
    // Drops what was written after the first size characters.
    void Truncate(std::size_t size) { m_cursor = m_data.get() + size; }

    std::string_view Text() const {
        return std::string_view(m_data.get(), static_cast<std::size_t>(m_cursor - m_data.get()));
    }

private:
    void Grow(std::size_t needed) {
        const std::size_t size = static_cast<std::size_t>(m_cursor - m_data.get());
        const std::size_t capacity = std::max({std::size_t{4096}, 2 * static_cast<std::size_t>(m_end - m_data.get()),
                                               size + needed});
        char* data = static_cast<char*>(std::realloc(m_data.get(), capacity));
        if (data == nullptr) {
            throw std::bad_alloc();  // the text so far stays as it was
        }
        m_data.release();
        m_data.reset(data);
        m_cursor = data + size;
        m_end = data + capacity;
    }

    std::unique_ptr<char[], FreeBytes> m_data;
    char* m_cursor = nullptr;
    char* m_end = nullptr;
};

// The letter after the backslash for each byte that is escaped, zero for
// the others: one load per byte instead of a chain of comparisons.
struct EscapeTable {
    char of[256] = {};
    constexpr EscapeTable() {
        for (int c = 0; c < 0x20; ++c) {
            of[c] = 'u';
        }
        of[static_cast<int>('\b')] = 'b';
        of[static_cast<int>('\t')] = 't';
        of[static_cast<int>('\n')] = 'n';
        of[static_cast<int>('\f')] = 'f';
        of[static_cast<int>('\r')] = 'r';
        of[static_cast<int>('"')] = '"';
        of[static_cast<int>('\\')] = '\\';
    }
};
constexpr EscapeTable kEscapes{};

// Compact JSON text, with RapidJSON's escaping: control characters, '"' and
// '\' are escaped, every other byte is written as it is.
class JsonTextWriter {
public:
    JsonTextWriter(TextBuffer& out, PropertySerializer::DoubleText doubleText)
        : m_out(out), m_roundTrip(doubleText == PropertySerializer::DoubleText::RoundTrip) {}

    void Write(const Property& root, bool wrapRoot) {
        if (wrapRoot) {
            m_out.Put('{');
            WriteString(KeyOf(root));
            m_out.Put(':');
        }
        WriteValue(root);
        while (!m_stack.empty()) {
            Frame& frame = m_stack.back();
            if (frame.cursor.Done()) {
                m_out.Put('}');
                m_stack.pop_back();
                continue;
            }
            const bool first = frame.cursor.First();
            MemberCursor::Member member;
            if (!frame.cursor.Next(member)) {
                m_out.Truncate(frame.membersStart);  // written again with the plan
                continue;
            }
            if (!first) {
                m_out.Put(',');
            }
            WriteString(member.key);
            m_out.Put(':');
            if (member.source == nullptr) {
                m_out.Append("null");
            } else {
                WriteValue(*member.source);  // may push, invalidating frame
            }
        }
        if (wrapRoot) {
            m_out.Put('}');
        }
    }

private:
    void WriteValue(const Property& node) {
        switch (node.GetType()) {
        case TypeBool:
            m_out.Append(Access::Bool(node) ? "true" : "false");
            break;
        case TypeDouble:
            WriteDouble(Access::Double(node));
            break;
        case TypeInt64: {
            char* out = m_out.Reserve(24);
            m_out.Commit(std::to_chars(out, out + 24, Access::Int64(node)).ptr);
            break;
        }
        case TypeString:
            WriteString(Access::String(node));
            break;
        case TypeRatio: {
            char buffer[48];
            WriteString(RatioText(Access::RatioValue(node), buffer));
            break;
        }
        case TypeArray:
            m_out.Put('{');
            m_stack.push_back(Frame{MemberCursor(node), m_out.Size()});
            break;
        default:
            m_out.Append("null");
        }
    }

    void WriteDouble(double value) {
        if (!std::isfinite(value)) {
            m_out.Append("null");
            return;
        }
        char* out = m_out.Reserve(kMaxSavedDoubleLength);
        m_out.Commit(out + (m_roundTrip ? FormatDoubleRoundTrip(value, out) : FormatDoubleSixDigits(value, out)));
    }

    void WriteString(std::string_view text) {
        static constexpr char kHex[] = "0123456789ABCDEF";
        // Six characters at most for each byte ("\u001F"), and the quotes.
        char* out = m_out.Reserve(2 + 6 * text.size());
        *out++ = '"';
        for (const char byte : text) {
            const unsigned char c = static_cast<unsigned char>(byte);
            const char escape = kEscapes.of[c];
            if (escape == 0) {
                *out++ = byte;
                continue;
            }
            *out++ = '\\';
            *out++ = escape;
            if (escape == 'u') {
                *out++ = '0';
                *out++ = '0';
                *out++ = kHex[c >> 4];
                *out++ = kHex[c & 0xF];
            }
        }
        *out++ = '"';
        m_out.Commit(out);
    }

    // A container being written, and where the text of its members starts.
    struct Frame {
        MemberCursor cursor;
        std::size_t membersStart;
    };

    TextBuffer& m_out;
    const bool m_roundTrip;
    std::vector<Frame> m_stack;
};

void SaveScalar(const Property& node, JsonValue& value, JsonAllocator& allocator) {
    switch (node.GetType()) {
    case TypeBool:
        value.SetBool(Access::Bool(node));
        break;
    case TypeDouble:
        value.SetDouble(Access::Double(node));
        break;
    case TypeInt64:
        value.SetInt64(Access::Int64(node));
        break;
    case TypeString: {
        const std::string& text = Access::String(node);
        value.SetString(text.data(), static_cast<rapidjson::SizeType>(text.size()), allocator);
        break;
    }
    case TypeRatio: {
        char buffer[48];
        const std::string_view text = RatioText(Access::RatioValue(node), buffer);
        value.SetString(text.data(), static_cast<rapidjson::SizeType>(text.size()), allocator);
        break;
    }
    default:
        break;  // Empty: the value stays as it was
    }
}

}  // namespace

void WriteJsonText(const Property& root, bool wrapRoot, PropertySerializer::DoubleText doubleText,
                   IDataOutput& output) {
    TextBuffer buffer;
    JsonTextWriter(buffer, doubleText).Write(root, wrapRoot);
    const std::string_view text = buffer.Text();
    output.Write(text.data(), text.size());
}

void SaveJsonValue(const Property& root, JsonValue& value, JsonAllocator& allocator) {
    struct Frame {
        MemberCursor cursor;
        JsonValue* object;
    };
    std::vector<Frame> stack;
    const auto save = [&](const Property& node, JsonValue& target) {
        if (node.GetType() == TypeArray) {
            target.SetObject();
            stack.push_back(Frame{MemberCursor(node), &target});
        } else {
            SaveScalar(node, target, allocator);
        }
    };
    save(root, value);
    while (!stack.empty()) {
        Frame& top = stack.back();
        if (top.cursor.Done()) {
            stack.pop_back();
            continue;
        }
        MemberCursor::Member member;
        JsonValue& object = *top.object;
        if (!top.cursor.Next(member)) {
            object.SetObject();  // filled again with the plan
            continue;
        }
        object.AddMember(JsonValue(member.key.data(), static_cast<rapidjson::SizeType>(member.key.size()), allocator),
                         JsonValue(), allocator);
        if (member.source != nullptr) {
            save(*member.source, (object.MemberEnd() - 1)->value);  // may push, invalidating top
        }
    }
}

}  // namespace Tarsel::Core::Json
