// This file implements JSON save and load of Property trees.
//
// Both directions are linear in the size of the document and use no
// recursion, so neither the depth nor the breadth of a document can exhaust
// time or stack:
// - loading parses with RapidJSON's iterative reader straight into a fresh
//   tree (no intermediate DOM), refusing nesting beyond kMaxDepth, and only
//   then moves the result into the target, so a syntax error anywhere leaves
//   the target untouched;
// - saving walks the tree with an explicit stack into one string, so nothing
//   reaches the sink unless the whole text could be built.
#include <Core/Interfaces/PropertySerializer.h>

#include <Core/Interfaces/WholeInput.h>

#include <rapidjson/document.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Tarsel::Core {

// The serializer's view of a node's storage: bulk building and reading
// without the per-call checks (and copies) of the public operations.
class SerializerAccess {
public:
    static Property::ChildListType& Children(Property& node) { return node.m_children; }
    static const Property::ChildListType& Children(const Property& node) { return node.m_children; }

    using Container = Property::Container;

    // Appends a child named name holding a T made of args, built in place.
    template <class T, class... Args>
    static Property& Append(Property& parent, std::string_view name, Args&&... args) {
        return parent.m_children.emplace_back(Property::InPlaceKey(), name, std::in_place_type<T>,
                                              std::forward<Args>(args)...);
    }

    // Gives dst the type, value and children of src; names stay.
    static void TakeContent(Property& dst, Property& src) noexcept {
        dst.m_value.swap(src.m_value);
        dst.m_children.swap(src.m_children);
    }

    // Sets the value of a node that has no children, in place: a fresh
    // container becomes a scalar without a temporary copy of the value.
    template <class T, class... Args>
    static void SetValue(Property& node, Args&&... args) {
        node.m_value.template emplace<T>(std::forward<Args>(args)...);
    }

    static const std::string& String(const Property& node) { return std::get<std::string>(node.m_value); }
    static const Ratio& RatioValue(const Property& node) { return std::get<Ratio>(node.m_value); }
    static double Double(const Property& node) { return std::get<double>(node.m_value); }
    static long long Int64(const Property& node) { return std::get<long long>(node.m_value); }
    static bool Bool(const Property& node) { return std::get<bool>(node.m_value); }
};

namespace {

using Access = SerializerAccess;
using JsonValue = PropertySerializer::JsonValue;
using JsonAllocator = PropertySerializer::JsonAllocator;

constexpr const char* kDeserializeFunction = "static void Tarsel::Core::PropertySerializer::Deserialize(Core::Property "
                                             "&, boost::intrusive_ptr<Tarsel::Core::IDataInput>, bool)";
constexpr const char* kLoadFunction =
    "static void Tarsel::Core::PropertySerializer::Load(Core::Property &, const rapidjson::GenericValue<rapidjson::UTF8<char>, "
    "rapidjson::MemoryPoolAllocator<rapidjson::CrtAllocator>> &)";
constexpr const char* kFrameRateRatioName = "frameRateRatio";

// JSON failures carry no call stack: the position in the text, not in the
// code, is what a caller needs, and the parser's own text is not passed on.
[[noreturn]] void ThrowParseError(const ThrowSite& site) {
    ThrowAt(site, JsonException() << JsonException::TagParseError("Parse error"));
}

// An object key is a child name up to its first zero character. Keys are
// short: a plain loop beats a call into the C library.
std::string_view KeyOf(std::string_view name) {
    std::size_t length = 0;
    while (length < name.size() && name[length] != '\0') {
        ++length;
    }
    return name.substr(0, length);
}

std::string_view KeyOf(const Property& node) {
    return KeyOf(std::string_view(node.GetName()));
}

// Writes "0", "1", ... : the name of the index-th element of an array.
std::string_view IndexName(std::size_t index, char (&buffer)[24]) {
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, index);
    return std::string_view(buffer, static_cast<std::size_t>(result.ptr - buffer));
}

// Writes numerator "/" denominator, the text StringFromRatio gives, without
// a formatting stream per value (that was a tenth of the time of saving) and
// whatever the global locale.
std::string_view RatioText(const Ratio& ratio, char (&buffer)[48]) {
    char* end = std::to_chars(buffer, buffer + sizeof buffer, ratio.numerator()).ptr;
    *end++ = '/';
    end = std::to_chars(end, buffer + sizeof buffer, ratio.denominator()).ptr;
    return std::string_view(buffer, static_cast<std::size_t>(end - buffer));
}

// One bit of 256 for each name seen: a name whose bit is clear is certainly
// new, so distinct names (nearly always the case) are told apart without
// comparing them; only a possible repeat needs an exact check.
class NameFingerprint {
    template <class Word>
    static Word Load(const char* bytes) {
        Word word;
        std::memcpy(&word, bytes, sizeof word);
        return word;
    }

public:
    // Hashes the length and the first and last eight bytes (fewer for short
    // names) with one multiplication: a per-byte hash was a tenth of the
    // time of loading. Names that differ only in between merely share a bit.
    static unsigned Bit(std::string_view name) {
        const char* const text = name.data();
        const std::size_t length = name.size();
        std::uint64_t word;
        if (length >= 8) {
            word = Load<std::uint64_t>(text) ^ (Load<std::uint64_t>(text + length - 8) << 7);
        } else if (length >= 4) {
            word = Load<std::uint32_t>(text) | std::uint64_t{Load<std::uint32_t>(text + length - 4)} << 32;
        } else if (length > 0) {
            word = std::uint64_t{static_cast<unsigned char>(text[0])} << 16 |
                   std::uint64_t{static_cast<unsigned char>(text[length / 2])} << 8 |
                   static_cast<unsigned char>(text[length - 1]);
        } else {
            word = 0;
        }
        word ^= length * 0x9E3779B97F4A7C15ULL;
        return static_cast<unsigned>((word * 0xD6E8FEB86659FD93ULL) >> 56);
    }

    bool Has(unsigned bit) const { return (m_bits[bit / 64] >> (bit % 64) & 1) != 0; }
    void Set(unsigned bit) { m_bits[bit / 64] |= std::uint64_t{1} << (bit % 64); }

    // Returns false when name is certainly new; remembers it either way.
    bool Add(std::string_view name) {
        const unsigned bit = Bit(name);
        const bool maybeSeen = Has(bit);
        Set(bit);
        return maybeSeen;
    }

private:
    std::uint64_t m_bits[4] = {};
};

// --- Saving ------------------------------------------------------------------

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

// printf's "%#g" for a finite double: six significant digits, trailing zeros
// kept, always a decimal point (1.0 gives 1.00000, 1e-05 gives 1.00000e-05),
// at a fraction of snprintf's cost. One deliberate difference: "%#g" ends the
// values of six integer digits with a bare point (192000.), which no JSON
// reader accepts, so those get a zero after it (192000.0) and still read back
// as doubles.
std::size_t FormatDoubleSixDigits(double value, char* out) {
    constexpr int kPrecision = 6;
    char scientific[32];
    const auto sci = std::to_chars(scientific, scientific + sizeof scientific, value,
                                   std::chars_format::scientific, kPrecision - 1);
    const char* e = std::find(scientific, sci.ptr, 'e');
    int exponent = 0;
    std::from_chars(e + (e[1] == '+' ? 2 : 1), sci.ptr, exponent);
    // %g picks fixed notation when the rounded exponent lies in [-4, P).
    if (exponent < -4 || exponent >= kPrecision) {
        const std::size_t length = static_cast<std::size_t>(sci.ptr - scientific);
        std::memcpy(out, scientific, length);
        return length;
    }
    const auto fixed = std::to_chars(out, out + 32, value, std::chars_format::fixed, kPrecision - 1 - exponent);
    std::size_t length = static_cast<std::size_t>(fixed.ptr - out);
    if (std::find(out, fixed.ptr, '.') == fixed.ptr) {
        out[length++] = '.';
        out[length++] = '0';
    }
    return length;
}

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
        char* out = m_out.Reserve(32);
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

// --- Loading -----------------------------------------------------------------

// A JSON string read under this name becomes a ratio when it reads as one.
bool TakesRatio(std::string_view name) {
    return name == kFrameRateRatioName;
}

// Finds and appends the children of one container as a document is loaded.
// A name the fingerprint has not seen (nearly always) is certainly new and
// needs no search; only a possible repeat is looked for, by a scan in small
// containers and through an index in large ones. A container of n members
// thus costs O(n).
class ChildFinder {
public:
    explicit ChildFinder(Property& container) : m_container(&container) {
        for (const Property& child : Access::Children(container)) {
            m_seen.Add(child.GetName());
        }
    }

    // Loads a member: the first child named name, reset, or else a new child
    // at the end, is given a T made of args.
    template <class T, class... Args>
    Property& Member(std::string_view name, Args&&... args) {
        const unsigned bit = NameFingerprint::Bit(name);
        if (m_seen.Has(bit)) {
            if (Property* existing = Find(name)) {
                existing->SetArrayType();
                Access::SetValue<T>(*existing, std::forward<Args>(args)...);
                return *existing;
            }
        }
        m_seen.Set(bit);
        return Append<T>(name, std::forward<Args>(args)...);
    }

    // Appends a child named name holding a T made of args, without looking
    // for its name or remembering it: for containers that are never searched
    // (arrays, and the items collected for a merge).
    template <class T, class... Args>
    Property& Append(std::string_view name, Args&&... args) {
        Property& child = Access::Append<T>(*m_container, name, std::forward<Args>(args)...);
        if (m_index) {
            m_index->emplace(child.GetName(), &child);
        }
        return child;
    }

    Property& Container() const { return *m_container; }

private:
    static constexpr std::size_t kIndexThreshold = 16;

    Property* Find(std::string_view name) {
        Property::ChildListType& children = Access::Children(*m_container);
        if (!m_index && children.size() < kIndexThreshold) {
            for (Property& child : children) {
                if (child.GetName() == name) {
                    return &child;
                }
            }
            return nullptr;
        }
        if (!m_index) {
            // The first child of a name wins, as in a scan.
            m_index = std::make_unique<std::unordered_map<std::string_view, Property*>>();
            m_index->reserve(children.size() * 2);
            for (Property& child : children) {
                m_index->emplace(child.GetName(), &child);
            }
        }
        const auto found = m_index->find(name);
        return found == m_index->end() ? nullptr : found->second;
    }

    Property* m_container;
    NameFingerprint m_seen;
    std::unique_ptr<std::unordered_map<std::string_view, Property*>> m_index;
};

// Builds a fresh tree from parser events (RapidJSON's reader, or a walk of a
// DOM value) with the semantics of loading into an empty container.
//
// In items mode the top level only collects the root's members or elements,
// in order and unmerged, to be merged into a target that already has
// children (see ApplyItems). The first failure of loading (an empty key, a
// "frameRateRatio" of "n/0") is recorded with the top-level item it occurred
// in, and building stops there, but the events are still followed so that a
// later syntax error or excess depth is still reported as such.
//
// Keys must stay valid until the next event: true for in-situ parsing and for
// DOM walks.
class TreeBuilder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<char>, TreeBuilder> {
public:
    TreeBuilder(Property& root, bool itemsMode) : m_root(root), m_itemsMode(itemsMode) {}

    bool Null() { return Place<Access::Container>(); }
    bool Bool(bool b) { return Place<bool>(b); }
    bool Int(int i) { return Int64(i); }
    bool Uint(unsigned u) { return Int64(u); }
    bool Int64(std::int64_t i) { return Place<long long>(i); }
    bool Uint64(std::uint64_t u) {
        // Beyond the signed range: deliberately nothing.
        if (u > static_cast<std::uint64_t>(std::numeric_limits<long long>::max())) {
            return Null();
        }
        return Int64(static_cast<std::int64_t>(u));
    }
    // Any double, infinities and NaN too: a caller's DOM may hold them (text
    // cannot, see TextTreeBuilder).
    bool Double(double d) { return Place<double>(d); }
    // A string is loaded whole, zero characters included, except under the
    // name "frameRateRatio": there it is a ratio, or nothing when the text
    // is none, and "n/0" fails the load with boost::bad_rational.
    bool String(const char* text, rapidjson::SizeType length, bool) {
        if (m_depth == 0 || Stopped() || !m_frames.back().isObject || !TakesRatio(m_key)) {
            return Place<std::string>(text, length);
        }
        Ratio ratio;
        try {
            if (RatioFromString(std::string(text, length), ratio)) {
                return Place<Ratio>(ratio);
            }
        } catch (const boost::bad_rational&) {
            Place<Access::Container>();
            m_failure = std::current_exception();
            m_failureItem = ItemIndex();
            return true;
        }
        return Place<Access::Container>();
    }

    bool StartObject() { return Start(true); }
    bool StartArray() { return Start(false); }
    bool EndObject(rapidjson::SizeType) { return End(); }
    bool EndArray(rapidjson::SizeType) { return End(); }

    bool Key(const char* text, rapidjson::SizeType length, bool) {
        if (Stopped()) {
            return true;
        }
        m_key = KeyOf(std::string_view(text, length));
        if (m_key.empty() && !AtItemLevel()) {
            Fail([](Property& container) { container.SetChild(std::string()); });
        }
        return true;
    }

    bool RootIsObject() const { return m_rootIsObject; }
    const std::exception_ptr& Failure() const { return m_failure; }
    // The top-level item the failure occurred in.
    std::size_t FailureItem() const { return m_failureItem; }

private:
    struct Frame {
        ChildFinder children;
        bool isObject;
    };

    bool Stopped() const { return m_failure != nullptr; }
    bool AtItemLevel() const { return m_itemsMode && m_frames.size() == 1; }

    bool Start(bool isObject) {
        if (m_depth == PropertySerializer::kMaxDepth) {
            return false;
        }
        ++m_depth;
        if (Stopped()) {
            return true;
        }
        if (m_frames.empty()) {
            m_rootIsObject = isObject;
            m_frames.push_back(Frame{ChildFinder(m_root), isObject});
            return true;
        }
        Property& child = AddChild<Access::Container>();
        m_frames.push_back(Frame{ChildFinder(child), isObject});
        return true;
    }

    bool End() {
        --m_depth;
        if (!Stopped()) {
            m_frames.pop_back();
        }
        return true;
    }

    // Loads the next value as a T made of args. A scalar at the root is
    // refused: only objects and arrays are documents.
    template <class T, class... Args>
    bool Place(Args&&... args) {
        if (m_depth == 0) {
            return false;
        }
        if (!Stopped()) {
            AddChild<T>(std::forward<Args>(args)...);
        }
        return true;
    }

    // The child the next value goes into, holding a T made of args: the
    // first member of the key's name in an object (except at item level),
    // otherwise a new child, named by its position in an array.
    template <class T, class... Args>
    Property& AddChild(Args&&... args) {
        Frame& frame = m_frames.back();
        if (!frame.isObject) {
            char buffer[24];
            const std::size_t count = Access::Children(frame.children.Container()).size();
            return frame.children.template Append<T>(IndexName(count, buffer), std::forward<Args>(args)...);
        }
        if (AtItemLevel()) {
            return frame.children.template Append<T>(m_key, std::forward<Args>(args)...);
        }
        return frame.children.template Member<T>(m_key, std::forward<Args>(args)...);
    }

    // Records the exception that the public operation raises for the same
    // input, so the caller sees exactly its type, text and throw site.
    template <class Operation>
    void Fail(Operation operation) {
        try {
            operation(m_frames.back().children.Container());
        } catch (...) {
            m_failure = std::current_exception();
            m_failureItem = ItemIndex();
        }
    }

    std::size_t ItemIndex() const {
        const std::size_t items = Access::Children(m_root).size();
        return items == 0 ? 0 : items - 1;
    }

    Property& m_root;
    const bool m_itemsMode;
    std::vector<Frame> m_frames;
    std::string_view m_key;
    unsigned m_depth = 0;
    bool m_rootIsObject = false;
    std::exception_ptr m_failure;
    std::size_t m_failureItem = 0;
};

// The builder for JSON text. RapidJSON refuses 1e309 but reads 2e308 as
// infinity; both are beyond what a JSON number can mean, so text refuses both
// as a parse error.
class TextTreeBuilder : public TreeBuilder {
public:
    using TreeBuilder::TreeBuilder;
    bool Double(double d) { return std::isfinite(d) && TreeBuilder::Double(d); }
};

// Feeds a DOM value's events to a handler in document order, with an
// explicit stack. Returns false when the handler stops.
template <class Handler>
bool WalkValue(const JsonValue& root, Handler& handler) {
    struct Position {
        const JsonValue* container;
        rapidjson::SizeType index;
    };
    std::vector<Position> stack;
    const auto emit = [&](const JsonValue& value) {
        switch (value.GetType()) {
        case rapidjson::kObjectType:
            stack.push_back({&value, 0});
            return handler.StartObject();
        case rapidjson::kArrayType:
            stack.push_back({&value, 0});
            return handler.StartArray();
        case rapidjson::kStringType:
            return handler.String(value.GetString(), value.GetStringLength(), false);
        case rapidjson::kNumberType:
            if (value.IsDouble()) {
                return handler.Double(value.GetDouble());
            }
            return value.IsInt64() ? handler.Int64(value.GetInt64()) : handler.Uint64(value.GetUint64());
        case rapidjson::kTrueType:
            return handler.Bool(true);
        case rapidjson::kFalseType:
            return handler.Bool(false);
        default:
            return handler.Null();
        }
    };
    if (!emit(root)) {
        return false;
    }
    while (!stack.empty()) {
        Position& top = stack.back();
        const JsonValue& container = *top.container;
        bool ok = true;
        if (container.IsObject()) {
            if (top.index == container.MemberCount()) {
                stack.pop_back();
                ok = handler.EndObject(container.MemberCount());
            } else {
                const auto& member = container.MemberBegin()[top.index++];
                ok = handler.Key(member.name.GetString(), member.name.GetStringLength(), false) && emit(member.value);
            }
        } else if (top.index == container.Size()) {
            stack.pop_back();
            ok = handler.EndArray(container.Size());
        } else {
            ok = emit(container[top.index++]);
        }
        if (!ok) {
            return false;
        }
    }
    return true;
}

// Merges the collected top-level items into a target that already has
// children (or is no container), exactly as loading member by member would:
// each item takes the place SetChild gives it; the failures of SetChild and
// Count are those operations' own.
void ApplyItems(Property& target, Property& items, const TreeBuilder& builder) {
    ChildFinder finder(target);
    std::size_t index = 0;
    for (Property& item : Access::Children(items)) {
        std::string name = item.GetName();
        if (!builder.RootIsObject()) {
            name = std::to_string(target.Count());
        }
        if (name.empty() || target.GetType() != TypeArray) {
            target.SetChild(name);  // throws the refusal
        }
        Access::TakeContent(finder.Member<Access::Container>(name), item);
        if (builder.Failure() && index == builder.FailureItem()) {
            std::rethrow_exception(builder.Failure());
        }
        ++index;
    }
    if (builder.Failure()) {
        std::rethrow_exception(builder.Failure());
    }
}

// Loads the events of a whole document into target, through a Builder (a
// TreeBuilder) that parse feeds. A target that is an empty container (the
// usual case) receives the fresh tree in one move; any other has the root's
// items merged in.
template <class Builder, class Parse>
void LoadDocument(Property& target, Parse parse, const ThrowSite& parseErrorSite) {
    const bool emptyContainer = target.GetType() == TypeArray && Access::Children(target).empty();
    Property fresh{std::string()};
    Builder builder(fresh, !emptyContainer);
    if (!parse(builder)) {
        ThrowParseError(parseErrorSite);
    }
    if (emptyContainer) {
        Access::Children(target).swap(Access::Children(fresh));
        if (builder.Failure()) {
            std::rethrow_exception(builder.Failure());
        }
        return;
    }
    ApplyItems(target, fresh, builder);
}

void LoadScalar(Property& target, const JsonValue& value) {
    if (value.IsBool()) {
        target = value.GetBool();
    } else if (value.IsDouble()) {
        target = value.GetDouble();
    } else if (value.IsInt64()) {
        target = static_cast<long long>(value.GetInt64());
    } else if (value.IsString()) {
        const std::string text(value.GetString(), value.GetStringLength());
        Ratio ratio;
        if (!TakesRatio(target.GetName())) {
            target = text;
        } else if (RatioFromString(text, ratio)) {
            target = ratio;
        }
    }
}

}  // namespace

// --- JsonTarselStreamOut -------------------------------------------------------

JsonTarselStreamOut::JsonTarselStreamOut(boost::intrusive_ptr<IDataOutput> output) : m_output(std::move(output)) {}

// --- PropertySerializer ----------------------------------------------------------

void PropertySerializer::Serialize(const Property& property, boost::intrusive_ptr<IDataOutput> output,
                                   bool wrapRoot) {
    TextBuffer buffer;
    JsonTextWriter(buffer).Write(property, wrapRoot);
    const std::string_view text = buffer.Text();
    output->Write(text.data(), text.size());
}

void PropertySerializer::SerializeToFile(const Property& property, const ioPath& path, bool wrapRoot) {
    const auto output = AtomicFileDataOutput::Create(path);
    Serialize(property, output, wrapRoot);
    output->Commit();
}

void PropertySerializer::Save(const Property& property, JsonValue& value, JsonAllocator& allocator) {
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
    save(property, value);
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

void PropertySerializer::Deserialize(Property& property, boost::intrusive_ptr<IDataInput> input, bool wrapRoot) {
    // Zero-terminated: the text ends at the first zero byte.
    const WholeInput text = ReadWholeInput(*input, 1);
    LoadDocument<TextTreeBuilder>(
        property,
        [&](TextTreeBuilder& builder) {
            rapidjson::Reader reader;
            rapidjson::InsituStringStream stream(text.bytes.get());
            return !reader.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseInsituFlag>(stream, builder).IsError();
        },
        TARSEL_THROW_SITE(kDeserializeFunction));
    if (wrapRoot) {
        // The property becomes its first child, moved out rather than copied.
        Property& first = property[std::size_t{0}];
        Property detached{std::string()};
        detached.Swap(first);
        property.Swap(detached);
    }
}

void PropertySerializer::Load(Property& property, const JsonValue& value) {
    if (!value.IsObject() && !value.IsArray()) {
        LoadScalar(property, value);
        return;
    }
    LoadDocument<TreeBuilder>(
        property, [&](TreeBuilder& builder) { return WalkValue(value, builder); }, TARSEL_THROW_SITE(kLoadFunction));
}

}  // namespace Tarsel::Core
