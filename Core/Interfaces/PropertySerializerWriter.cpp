// This file writes Property trees as JSON, for Serialize (compact text) and
// Save (RapidJSON values).
//
// - Doubles are written as printf's "%#g" (internal/SavedDouble.h), strings
//   with RapidJSON's escaping, ratios as "n/d", containers as objects.
// - Children that share a name all write into the first member with that
//   name, the last one winning (PlanMembers).
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
#include <utility>
#include <vector>

namespace Tarsel::Core::Json {

namespace {

bool KeysArePositional(const Property::ChildListType& children) {
    std::size_t index = 0;
    for (const Property& child : children) {
        char buffer[24];
        if (KeyOf(child) != IndexName(index++, buffer)) {
            return false;
        }
    }
    return true;
}

// True when the keys are certainly distinct; false means "maybe not". Arrays
// named by position are distinct; so are records whose fingerprints do not
// collide. Records of up to kExactKeys members settle a collision by
// comparing the keys that share the bit, as a quarter of ordinary
// twelve-member records collide somewhere in 256 bits.
bool KeysAreDistinct(const Property::ChildListType& children) {
    if (KeysArePositional(children)) {
        return true;
    }
    constexpr std::size_t kExactKeys = 32;
    const bool exact = children.size() <= kExactKeys;
    std::string_view keys[kExactKeys];
    unsigned bits[kExactKeys];
    std::size_t count = 0;
    NameFingerprint seen;
    for (const Property& child : children) {
        const std::string_view key = KeyOf(child);
        const unsigned bit = NameFingerprint::Bit(key);
        if (seen.Has(bit)) {
            if (!exact) {
                return false;
            }
            for (std::size_t i = 0; i < count; ++i) {
                if (bits[i] == bit && keys[i] == key) {
                    return false;
                }
            }
        }
        seen.Set(bit);
        if (exact) {
            keys[count] = key;
            bits[count++] = bit;
        }
    }
    return true;
}

// Which child's value each member of a container's object holds. Children
// that share a key all write into the first member with that key, the last
// one winning, and leave their own members null. Empty when the keys are
// distinct, which is checked without hashing for the common shapes.
std::vector<const Property*> PlanMembers(const Property::ChildListType& children) {
    const std::size_t count = children.size();
    if (count < 2 || KeysAreDistinct(children)) {
        return {};
    }
    std::unordered_map<std::string_view, std::pair<std::size_t, const Property*>> byKey;
    byKey.reserve(count);
    std::size_t index = 0;
    bool duplicates = false;
    for (const Property& child : children) {
        const auto [it, inserted] = byKey.try_emplace(KeyOf(child), index, &child);
        if (!inserted) {
            it->second.second = &child;
            duplicates = true;
        }
        ++index;
    }
    if (!duplicates) {
        return {};
    }
    std::vector<const Property*> plan(count, nullptr);
    for (const auto& [key, firstAndLast] : byKey) {
        plan[firstAndLast.first] = firstAndLast.second;
    }
    return plan;
}

// Walks a container's members in order, with their planned values.
class MemberCursor {
public:
    explicit MemberCursor(const Property& container)
        : m_it(Access::Children(container).begin()),
          m_end(Access::Children(container).end()),
          m_plan(PlanMembers(Access::Children(container))) {}

    bool Done() const { return m_it == m_end; }
    bool First() const { return m_index == 0; }
    // The member's key, and the node whose value it holds (null: none).
    std::pair<std::string_view, const Property*> Next() {
        const Property& child = *m_it++;
        const Property* source = m_plan.empty() ? &child : m_plan[m_index];
        ++m_index;
        return {KeyOf(child), source};
    }

private:
    Property::const_iterator m_it;
    Property::const_iterator m_end;
    std::vector<const Property*> m_plan;
    std::size_t m_index = 0;
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

// Compact JSON text, with RapidJSON's escaping: control characters, '"' and
// '\' are escaped, every other byte is written as it is.
class JsonTextWriter {
public:
    explicit JsonTextWriter(TextBuffer& out) : m_out(out) {}

    void Write(const Property& root, bool wrapRoot) {
        if (wrapRoot) {
            m_out.Put('{');
            WriteString(KeyOf(root));
            m_out.Put(':');
        }
        WriteValue(root);
        while (!m_stack.empty()) {
            MemberCursor& cursor = m_stack.back();
            if (cursor.Done()) {
                m_out.Put('}');
                m_stack.pop_back();
                continue;
            }
            if (!cursor.First()) {
                m_out.Put(',');
            }
            const auto [key, source] = cursor.Next();
            WriteString(key);
            m_out.Put(':');
            if (source == nullptr) {
                m_out.Append("null");
            } else {
                WriteValue(*source);  // may push, invalidating cursor
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
            m_stack.emplace_back(node);
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
        m_out.Commit(out + FormatDoubleSixDigits(value, out));
    }

    void WriteString(std::string_view text) {
        static constexpr char kHex[] = "0123456789ABCDEF";
        // Six characters at most for each byte ("\u001F"), and the quotes.
        char* out = m_out.Reserve(2 + 6 * text.size());
        *out++ = '"';
        for (const char byte : text) {
            const unsigned char c = static_cast<unsigned char>(byte);
            const char escape = EscapeFor(c);
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

    static char EscapeFor(unsigned char c) {
        if (c >= 0x20) {
            return c == '"' ? '"' : c == '\\' ? '\\' : 0;
        }
        switch (c) {
        case '\b':
            return 'b';
        case '\t':
            return 't';
        case '\n':
            return 'n';
        case '\f':
            return 'f';
        case '\r':
            return 'r';
        default:
            return 'u';
        }
    }

    TextBuffer& m_out;
    std::vector<MemberCursor> m_stack;
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

void WriteJsonText(const Property& root, bool wrapRoot, IDataOutput& output) {
    TextBuffer buffer;
    JsonTextWriter(buffer).Write(root, wrapRoot);
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
        const auto [key, source] = top.cursor.Next();
        JsonValue& object = *top.object;
        object.AddMember(JsonValue(key.data(), static_cast<rapidjson::SizeType>(key.size()), allocator), JsonValue(),
                         allocator);
        if (source != nullptr) {
            save(*source, (object.MemberEnd() - 1)->value);  // may push, invalidating top
        }
    }
}

}  // namespace Tarsel::Core::Json
