// This file writes Property trees as JSON, for Serialize (compact text) and
// Save (RapidJSON values), in the form PropertySerializer.h describes.
//
// - Doubles are formatted in internal/SavedDouble.cpp, strings with
//   RapidJSON's escaping.
// - Repeated keys are told apart while writing (MemberCursor,
//   internal/SiblingNames.h).
// - The tree is walked with an explicit stack into one buffer, so neither
//   depth nor breadth can exhaust the stack, and nothing reaches the sink
//   unless the whole text could be built.
#include <Core/Interfaces/PropertySerializer.h>

#include <Core/Interfaces/internal/SavedDouble.h>
#include <Core/Interfaces/internal/SerializerAccess.h>
#include <Core/Interfaces/internal/SiblingNames.h>
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

// Keys that repeat are rare, so the exact plan is made only once one is
// met (MemberCursor), with a table of every key.
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

namespace {

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
        const std::size_t capacity =
            std::max({std::size_t{4096}, 2 * static_cast<std::size_t>(m_end - m_data.get()), size + needed});
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

// Writes a tree through a sink, depth first with an explicit stack, so that
// no depth exhausts the stack. Containers become objects, one member per
// child, through MemberCursor; when the cursor meets a repeated key and
// starts over, the sink drops the container's members written so far.
//
// A Sink offers: Value(node), which writes a node that is not a container
// (or null); Open(), which begins an object where the next value goes and
// returns a Mark of it; Key(key, first, mark), a member of that object, and
// then its value, or Null(); Close(mark); and Rewind(mark), which drops the
// object's members written so far.
template <class Sink>
void WriteTree(const Property& root, Sink& sink) {
    struct Frame {
        MemberCursor cursor;
        typename Sink::Mark mark;
    };
    std::vector<Frame> stack;
    const auto write = [&](const Property& node) {
        if (node.GetType() == TypeArray) {
            stack.push_back(Frame{MemberCursor(node), sink.Open()});
        } else {
            sink.Value(node);
        }
    };
    write(root);
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.cursor.Done()) {
            sink.Close(frame.mark);
            stack.pop_back();
            continue;
        }
        const bool first = frame.cursor.First();
        MemberCursor::Member member;
        if (!frame.cursor.Next(member)) {
            sink.Rewind(frame.mark);
            continue;
        }
        sink.Key(member.key, first, frame.mark);
        if (member.source == nullptr) {
            sink.Null();
        } else {
            write(*member.source);  // may push, invalidating frame
        }
    }
}

// Compact JSON text, with RapidJSON's escaping: control characters, '"' and
// '\' are escaped, every other byte is written as it is.
class JsonTextSink {
public:
    using Mark = std::size_t;  // where the object's members start

    JsonTextSink(TextBuffer& out, PropertySerializer::DoubleText doubleText)
        : m_out(out), m_roundTrip(doubleText == PropertySerializer::DoubleText::RoundTrip) {}

    void Value(const Property& node) {
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
            String(Access::String(node));
            break;
        case TypeRatio: {
            char buffer[48];
            String(RatioText(Access::RatioValue(node), buffer));
            break;
        }
        default:
            Null();
        }
    }
    Mark Open() {
        m_out.Put('{');
        return m_out.Size();
    }
    void Key(std::string_view key, bool first, Mark) {
        if (!first) {
            m_out.Put(',');
        }
        String(key);
        m_out.Put(':');
    }
    void Null() { m_out.Append("null"); }
    void Close(Mark) { m_out.Put('}'); }
    void Rewind(Mark membersStart) { m_out.Truncate(membersStart); }

    void String(std::string_view text) {
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

private:
    void WriteDouble(double value) {
        if (!std::isfinite(value)) {
            Null();
            return;
        }
        char* out = m_out.Reserve(kMaxSavedDoubleLength);
        m_out.Commit(out + (m_roundTrip ? FormatDoubleRoundTrip(value, out) : FormatDoubleSixDigits(value, out)));
    }

    TextBuffer& m_out;
    const bool m_roundTrip;
};

// RapidJSON values: each value is written into the slot its member made.
class JsonValueSink {
public:
    using Mark = JsonValue*;  // the object

    JsonValueSink(JsonValue& root, JsonAllocator& allocator) : m_slot(&root), m_allocator(allocator) {}

    void Value(const Property& node) {
        switch (node.GetType()) {
        case TypeBool:
            m_slot->SetBool(Access::Bool(node));
            break;
        case TypeDouble:
            m_slot->SetDouble(Access::Double(node));
            break;
        case TypeInt64:
            m_slot->SetInt64(Access::Int64(node));
            break;
        case TypeString:
            SetString(Access::String(node));
            break;
        case TypeRatio: {
            char buffer[48];
            SetString(RatioText(Access::RatioValue(node), buffer));
            break;
        }
        default:
            break;  // Empty: the value stays as it was
        }
    }
    Mark Open() {
        m_slot->SetObject();
        return m_slot;
    }
    void Key(std::string_view key, bool, Mark object) {
        object->AddMember(JsonValue(key.data(), static_cast<rapidjson::SizeType>(key.size()), m_allocator), JsonValue(),
                          m_allocator);
        m_slot = &(object->MemberEnd() - 1)->value;
    }
    void Null() {}  // the member was made null
    void Close(Mark) {}
    void Rewind(Mark object) { object->SetObject(); }

private:
    void SetString(std::string_view text) {
        m_slot->SetString(text.data(), static_cast<rapidjson::SizeType>(text.size()), m_allocator);
    }

    JsonValue* m_slot;  // where the next value goes
    JsonAllocator& m_allocator;
};

}  // namespace

void WriteJsonText(const Property& root, bool wrapRoot, PropertySerializer::DoubleText doubleText,
                   IDataOutput& output) {
    TextBuffer buffer;
    JsonTextSink sink(buffer, doubleText);
    if (wrapRoot) {
        buffer.Put('{');
        sink.String(KeyOf(root));
        buffer.Put(':');
    }
    WriteTree(root, sink);
    if (wrapRoot) {
        buffer.Put('}');
    }
    const std::string_view text = buffer.Text();
    output.Write(text.data(), text.size());
}

void SaveJsonValue(const Property& root, JsonValue& value, JsonAllocator& allocator) {
    JsonValueSink sink(value, allocator);
    WriteTree(root, sink);
}

}  // namespace Tarsel::Core::Json
