// This file reads JSON into Property trees, for Deserialize (from text) and
// Load (from RapidJSON values).
//
// - Text is parsed by RapidJSON's iterative reader straight into a fresh tree
//   (TreeBuilder, no intermediate DOM), refusing nesting beyond kMaxDepth;
//   only then is the result moved into the target, so a syntax error
//   anywhere leaves the target untouched. Each number is read as the
//   nearest double to its text (internal/JsonNumber.h).
// - The reader's stream keeps its line (internal/JsonTextStream.h), so a
//   failure is located where it is met, with no second reading.
// - Members that repeat a name load into the first child of that name, as
//   SetChild does (ChildLoader); a target that already has children has the
//   document merged in the same way (ApplyItems).
// - A string under PropertySerializer::kRatioKey becomes a ratio.
#include <Core/Interfaces/PropertySerializer.h>

#include <Core/Interfaces/internal/JsonNumber.h>
#include <Core/Interfaces/internal/JsonReader.h>
#include <Core/Interfaces/internal/JsonTextErrors.h>
#include <Core/Interfaces/internal/JsonTextStream.h>
#include <Core/Interfaces/internal/RatioParse.h>
#include <Core/Interfaces/internal/SerializerAccess.h>
#include <Core/Interfaces/internal/SiblingNames.h>

#include <rapidjson/document.h>
#include <rapidjson/reader.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tarsel::Core::Json {

namespace {

// In place, so that strings and keys are decoded where they stand; numbers
// as their text, which ReadNumber reads to the nearest double: RapidJSON's
// own reading lands 1 to 3 ulp off for about one decimal in twelve, and its
// full-precision one misreads some numbers of more than 19 digits.
constexpr unsigned kInPlace = rapidjson::kParseInsituFlag;

bool TakesRatio(std::string_view name) {
    return name == PropertySerializer::kRatioKey;
}

// The children of one container as a document loads into it: a member
// loads into the first child of its name, reset, or else into a new child
// at the end; an element, or an item collected for a merge, is appended
// without looking.
class ChildLoader {
public:
    explicit ChildLoader(Property& container, std::size_t existing = 0)
        : m_container(&container), m_names(Access::Children(container), existing) {}

    // The child that member name loads into, given a T made of args.
    template <class T, class... Args>
    Property& Member(std::string_view name, Args&&... args) {
        if (Property* existing = m_names.Find(name)) {
            existing->SetArrayType();
            Access::SetValue<T>(*existing, std::forward<Args>(args)...);
            return *existing;
        }
        return Append<T>(name, std::forward<Args>(args)...);
    }

    // A new child named name holding a T made of args. After a Member that
    // found no child, it is the child of that name.
    template <class T, class... Args>
    Property& Append(std::string_view name, Args&&... args) {
        return Access::Append<T>(*m_container, name, std::forward<Args>(args)...);
    }

    Property& Container() const { return *m_container; }

private:
    Property* m_container;
    SiblingNames<Property::ChildListType, ByName> m_names;
};

// Builds a fresh tree from parser events (RapidJSON's reader, or a walk of a
// DOM value) with the semantics of loading into an empty container.
//
// In items mode the top level only collects the root's members or elements,
// in order and unmerged, to be merged into a target that already has
// children (see ApplyItems). The first failure of loading (an empty key, a
// ratio of "n/0") is recorded with the top-level item it occurred
// in, and building stops there, but the events are still followed so that a
// later syntax error or excess depth is still reported as such. Given the
// stream the events come from, failures are located in its text.
//
// Every value event passes one test (m_building: inside the root and not
// stopped) before the container's kind, decided once when it opened, says
// where the value goes.
//
// Keys must stay valid until the next event and be zero-terminated, as
// RapidJSON leaves them both in in-situ parsing and in a DOM.
class TreeBuilder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<char>, TreeBuilder> {
public:
    TreeBuilder(Property& root, bool itemsMode, const LocatingStream* stream = nullptr)
        : m_root(root), m_itemsMode(itemsMode), m_stream(stream) {
        // Grown a frame at a time, the vector freed blocks of a frame's size
        // among the new tree's nodes, and glibc then took a tenth longer to
        // merge the freed nodes of the previous tree (flat documents, as
        // measured); few documents nest deeper than this.
        m_frames.reserve(kReservedFrames);
    }

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
    // ratio key: there it is a ratio, or nothing when the text is none, and
    // "n/0" fails the load with boost::bad_rational.
    bool String(const char* text, rapidjson::SizeType length, bool) {
        if (!m_building) {
            return m_depth != 0 || Refuse(Refusal::ScalarRoot);
        }
        if (m_frames.back().kind != Kind::Array && TakesRatio(m_key)) {
            PlaceRatio(std::string_view(text, length));
        } else {
            AddChild<std::string>(text, length);
        }
        return true;
    }

    bool StartObject() { return Start(true); }
    bool StartArray() { return Start(false); }
    bool EndObject(rapidjson::SizeType) { return End(); }
    bool EndArray(rapidjson::SizeType) { return End(); }

    bool Key(const char* text, rapidjson::SizeType length, bool) {
        if (!m_building) {
            return true;
        }
        m_key = UpToFirstZero(text, length);
        if (m_key.empty()) {
            MeetEmptyKey();
        }
        return true;
    }

    bool RootIsObject() const { return m_rootIsObject; }
    const std::exception_ptr& Failure() const { return m_failure; }
    // The top-level item the failure occurred in.
    std::size_t FailureItem() const { return m_failureItem; }
    // Why the events were refused, if they were.
    Refusal Refused() const { return m_refusal; }

    // failure, the refusal of an empty name merged from the top level,
    // located at the first such name.
    std::exception_ptr AtEmptyItemKey(std::exception_ptr failure) const {
        return m_emptyItemKey ? WithLocation(std::move(failure), *m_emptyItemKey, EmptyKeyReason(std::string()))
                              : failure;
    }

protected:
    // Stops the parser: it reports a termination, which Refused() explains.
    bool Refuse(Refusal refusal) {
        m_refusal = refusal;
        return false;
    }

private:
    // Where a container's values go: an array's are appended, named by
    // position; an object's go into the first member of their key; the
    // items collected at the top level in items mode are appended by key.
    enum class Kind : unsigned char { Array, Object, Items };

    // Built in place: a frame is opened for every container of a document.
    struct Frame {
        Frame(Property& container, Kind containerKind) : children(container), kind(containerKind) {}
        ChildLoader children;
        Kind kind;
        IndexNames elementNames;  // an array's
    };

    bool Start(bool isObject) {
        if (m_depth == PropertySerializer::kMaxDepth) {
            return Refuse(Refusal::TooDeep);
        }
        ++m_depth;
        if (m_failure) {
            return true;
        }
        Kind kind = isObject ? Kind::Object : Kind::Array;
        if (m_frames.empty()) {
            m_rootIsObject = isObject;
            if (isObject && m_itemsMode) {
                kind = Kind::Items;
            }
            m_frames.emplace_back(m_root, kind);
        } else {
            Property& child = AddChild<Access::Container>();
            m_frames.emplace_back(child, kind);
        }
        m_building = true;
        return true;
    }

    bool End() {
        --m_depth;
        if (m_building) {
            m_frames.pop_back();
            m_building = !m_frames.empty();
        }
        return true;
    }

    // Loads the next value as a T made of args. A scalar at the root is
    // refused: only objects and arrays are documents.
    template <class T, class... Args>
    bool Place(Args&&... args) {
        if (!m_building) {
            return m_depth != 0 || Refuse(Refusal::ScalarRoot);
        }
        AddChild<T>(std::forward<Args>(args)...);
        return true;
    }

    void PlaceRatio(std::string_view text) {
        Ratio ratio;
        try {
            if (RatioFromText(text, ratio)) {
                AddChild<Ratio>(ratio);
                return;
            }
        } catch (const boost::bad_rational&) {
            AddChild<Access::Container>();
            StopAtZeroDenominator(text);
            return;
        }
        AddChild<Access::Container>();
    }

    // The failures are kept out of line, and out of the way of the events
    // that every document sends.
    [[gnu::cold, gnu::noinline]] void MeetEmptyKey() {
        if (m_frames.back().kind == Kind::Object) {
            Fail([](Property& container) { container.SetChild(std::string()); }, EmptyKeyReason(Path()));
        } else if (m_frames.back().kind == Kind::Items && m_stream && !m_emptyItemKey) {
            m_emptyItemKey = m_stream->TokenLocation();
        }
    }

    [[gnu::cold, gnu::noinline]] void StopAtZeroDenominator(std::string_view text) {
        const std::string path = Path();
        const std::string member = path.empty() ? std::string(m_key) : path + "/" + std::string(m_key);
        Stop(std::current_exception(), ZeroDenominatorReason(member, text));
    }

    // The child the next value goes into, holding a T made of args. Every
    // value passes here: flattened, so that the lookup of its name and the
    // building of its node, the name's string included, are one function,
    // where the compiler otherwise called out for the string of each node.
    template <class T, class... Args>
    [[gnu::flatten]] Property& AddChild(Args&&... args) {
        Frame& frame = m_frames.back();
        switch (frame.kind) {
        case Kind::Object:
            return frame.children.template Member<T>(m_key, std::forward<Args>(args)...);
        case Kind::Items:
            return frame.children.template Append<T>(m_key, std::forward<Args>(args)...);
        case Kind::Array:
            break;
        }
        Property& element =
            frame.children.template Append<T>(frame.elementNames.Current(), std::forward<Args>(args)...);
        frame.elementNames.Advance();
        return element;
    }

    // Records the exception that the public operation raises for the same
    // input, so the caller sees exactly its type, text and throw site.
    template <class Operation>
    void Fail(Operation operation, const std::string& reason) {
        try {
            operation(m_frames.back().children.Container());
        } catch (...) {
            Stop(std::current_exception(), reason);
        }
    }

    // Records failure, located at the token just read.
    void Stop(std::exception_ptr failure, const std::string& reason) {
        m_failure = m_stream ? WithLocation(std::move(failure), m_stream->TokenLocation(), reason) : failure;
        m_failureItem = ItemIndex();
        m_building = false;
    }

    // The names of the open containers below the root, joined by "/".
    std::string Path() const {
        std::string path;
        for (std::size_t i = 1; i < m_frames.size(); ++i) {
            path += (i > 1 ? "/" : "") + m_frames[i].children.Container().GetName();
        }
        return path;
    }

    std::size_t ItemIndex() const {
        const std::size_t items = Access::Children(m_root).size();
        return items == 0 ? 0 : items - 1;
    }

    static constexpr std::size_t kReservedFrames = 16;

    Property& m_root;
    const bool m_itemsMode;
    const LocatingStream* const m_stream;
    std::vector<Frame> m_frames;
    std::string_view m_key;
    unsigned m_depth = 0;
    // Inside the root and not stopped by a failure: values are built.
    bool m_building = false;
    bool m_rootIsObject = false;
    std::exception_ptr m_failure;
    std::size_t m_failureItem = 0;
    Refusal m_refusal = Refusal::None;
    // Where the first empty name of a top-level item is, in items mode.
    std::optional<TextLocation> m_emptyItemKey;
};

// The builder for JSON text, which reads numbers from their text. RapidJSON
// refuses 1e309 and lets 2e308 through, which reads as infinity; both are
// beyond what a JSON number can mean, so text refuses both as a parse error.
class TextTreeBuilder : public TreeBuilder {
public:
    TextTreeBuilder(Property& root, bool itemsMode, const LocatingStream& stream)
        : TreeBuilder(root, itemsMode, &stream) {}

    bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
        const LoadedNumber number = ReadNumber(text, length);
        switch (number.kind) {
        case LoadedNumber::Kind::Integer:
            return Int64(number.integer);
        case LoadedNumber::Kind::UnsignedOnly:
            return Null();  // deliberately nothing, as Uint64 does
        case LoadedNumber::Kind::Double:
            break;
        }
        return std::isfinite(number.value) ? Double(number.value) : Refuse(Refusal::NotFinite);
    }
};

}  // namespace
}  // namespace Tarsel::Core::Json

TARSEL_JSON_SCAN_NUMBERS(rapidjson::kParseInsituFlag, Tarsel::Core::Json::LocatingStream,
                         Tarsel::Core::Json::TextTreeBuilder)
TARSEL_JSON_SCAN_NUMBERS(rapidjson::kParseInsituFlag | Tarsel::Core::Json::kWithCommentsFlags,
                         Tarsel::Core::Json::CommentLocatingStream, Tarsel::Core::Json::TextTreeBuilder)

namespace Tarsel::Core::Json {
namespace {

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
    ChildLoader loader(target, Access::Children(target).size());
    std::size_t index = 0;
    for (Property& item : Access::Children(items)) {
        std::string name = item.GetName();
        if (!builder.RootIsObject()) {
            name = std::to_string(target.Count());
        }
        if (name.empty() || target.GetType() != TypeArray) {
            try {
                target.SetChild(name);  // throws the refusal
            } catch (...) {
                std::exception_ptr failure = std::current_exception();
                std::rethrow_exception(name.empty() ? builder.AtEmptyItemKey(std::move(failure)) : failure);
            }
        }
        Access::TakeContent(loader.Member<Access::Container>(name), item);
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
// TreeBuilder made of builderArgs) that parse feeds; parse throws when the
// events are not a document. A target that is an empty container (the usual
// case) receives the fresh tree in one move; any other has the root's items
// merged in.
template <class Builder, class Parse, class... BuilderArgs>
void LoadDocument(Property& target, Parse parse, const BuilderArgs&... builderArgs) {
    const bool emptyContainer = target.GetType() == TypeArray && Access::Children(target).empty();
    Property fresh{std::string()};
    Builder builder(fresh, !emptyContainer, builderArgs...);
    parse(builder);
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
        const std::string_view text(value.GetString(), value.GetStringLength());
        Ratio ratio;
        if (!TakesRatio(target.GetName())) {
            target = std::string(text);
        } else if (RatioFromText(text, ratio)) {
            target = ratio;
        }
    }
}

}  // namespace

namespace {

template <PropertySerializer::JsonSyntax syntax>
void LoadText(Property& target, char* text, const ThrowSite& parseErrorSite) {
    SyntaxStream<syntax> stream(text);
    LoadDocument<TextTreeBuilder>(
        target,
        [&](TextTreeBuilder& builder) { ReadJson<kInPlace | kSyntaxFlags<syntax>>(stream, builder, parseErrorSite); },
        stream);
}

}  // namespace

void LoadJsonText(Property& target, char* text, PropertySerializer::JsonSyntax syntax,
                  const ThrowSite& parseErrorSite) {
    if (syntax == PropertySerializer::JsonSyntax::Strict) {
        LoadText<PropertySerializer::JsonSyntax::Strict>(target, text, parseErrorSite);
    } else {
        LoadText<PropertySerializer::JsonSyntax::WithComments>(target, text, parseErrorSite);
    }
}

void LoadJsonValue(Property& target, const JsonValue& value, const ThrowSite& parseErrorSite) {
    if (!value.IsObject() && !value.IsArray()) {
        LoadScalar(target, value);
        return;
    }
    LoadDocument<TreeBuilder>(target, [&](TreeBuilder& builder) {
        if (!WalkValue(value, builder)) {
            ThrowParseError(parseErrorSite, RefusalReason(builder.Refused()));
        }
    });
}

}  // namespace Tarsel::Core::Json
