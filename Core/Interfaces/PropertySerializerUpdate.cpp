// This file saves a Property tree into an existing JSON text, changing only
// what must change (UpdateText, UpdateFile).
//
// The text is indexed (internal/JsonTextIndex.h) and walked beside the tree.
// Each value is compared with what the tree's node would load as after a
// plain save: the same kind and value (doubles bit for bit, against the
// node's own double, so that a text already holding it exactly keeps it),
// and for containers the same names in the same order. What loads the same
// keeps its bytes; a scalar that differs has its bytes replaced; children
// that come or go are planned per container (ContainerEdit), keeping the
// container's layout; a container whose children changed order, or an array
// whose children are no longer "0", "1", ..., is written anew.
#include <Core/Interfaces/PropertySerializer.h>

#include <Core/Interfaces/internal/JsonNumber.h>
#include <Core/Interfaces/internal/JsonTextEdit.h>
#include <Core/Interfaces/internal/JsonTextIndex.h>
#include <Core/Interfaces/internal/RatioParse.h>
#include <Core/Interfaces/internal/SerializerAccess.h>
#include <Core/Interfaces/internal/ThrowSignatures.h>

#include <boost/filesystem/exception.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace Tarsel::Core::Json {

namespace {

// What a value loads as, on either side: the text's value, or what a
// node's plain save loads as.
struct Meaning {
    enum class Kind : unsigned char { EmptyContainer, Bool, Int, Double, String, Ratio, Container, Unloadable };
    Kind kind = Kind::EmptyContainer;
    long long integer = 0;
    double number = 0.0;
    std::string text;
    Ratio ratio;

    bool operator==(const Meaning& other) const {
        if (kind != other.kind) {
            return false;
        }
        switch (kind) {
        case Kind::Bool:
        case Kind::Int:
            return integer == other.integer;
        case Kind::Double:
            return std::memcmp(&number, &other.number, sizeof number) == 0;
        case Kind::String:
        case Kind::Unloadable:
            return text == other.text;
        case Kind::Ratio:
            return ratio == other.ratio;
        default:
            return true;
        }
    }
};

// A string under the ratio key: a ratio when it reads as one, nothing when
// it does not, and a load that fails for "n/0".
Meaning RatioMeaning(std::string text) {
    Meaning meaning;
    try {
        if (RatioFromText(text, meaning.ratio)) {
            meaning.kind = Meaning::Kind::Ratio;
        }
    } catch (const boost::bad_rational&) {
        meaning.kind = Meaning::Kind::Unloadable;
        meaning.text = std::move(text);
    }
    return meaning;
}

// What node loads as after a plain save, under a key that repeats among its
// siblings or not, that is the ratio key or not.
Meaning TargetMeaning(const Property& node, bool repeated, bool ratioKey) {
    Meaning meaning;
    if (repeated) {
        return meaning;  // the later members of the key are null
    }
    switch (node.GetType()) {
    case TypeBool:
        meaning.kind = Meaning::Kind::Bool;
        meaning.integer = Access::Bool(node);
        break;
    case TypeDouble:
        if (std::isfinite(Access::Double(node))) {
            meaning.kind = Meaning::Kind::Double;
            meaning.number = Access::Double(node);
        }
        break;
    case TypeInt64:
        meaning.kind = Meaning::Kind::Int;
        meaning.integer = Access::Int64(node);
        break;
    case TypeString:
        if (ratioKey) {
            return RatioMeaning(Access::String(node));
        }
        meaning.kind = Meaning::Kind::String;
        meaning.text = Access::String(node);
        break;
    case TypeRatio:
        if (ratioKey) {
            meaning.kind = Meaning::Kind::Ratio;
            meaning.ratio = Access::RatioValue(node);
        } else {
            meaning.kind = Meaning::Kind::String;
            meaning.text = StringFromRatio(Access::RatioValue(node));
        }
        break;
    case TypeArray:
        if (!Access::Children(node).empty()) {
            meaning.kind = Meaning::Kind::Container;
        }
        break;
    default:
        break;
    }
    return meaning;
}

// The children of a container as a plain save writes them: one member per
// key, in the order of each key's first child; a key given to more than
// one child loads as an empty container.
struct TargetChild {
    std::string_view key;
    const Property* node;
    bool repeated;
};

std::vector<TargetChild> TargetChildren(const Property& container) {
    const Property::ChildListType& children = Access::Children(container);
    std::vector<TargetChild> targets;
    targets.reserve(children.size());
    // Keys nearly never repeat: a key whose fingerprint bit is new is
    // certainly new, and only the others are looked for.
    NameFingerprint fingerprint;
    bool repeats = false;
    for (const Property& child : children) {
        const std::string_view key = KeyOf(child);
        // Among many keys, the table below decides.
        if (fingerprint.Add(key) && !repeats) {
            repeats =
                targets.size() > 16 || std::any_of(targets.begin(), targets.end(),
                                                   [key](const TargetChild& target) { return target.key == key; });
        }
        targets.push_back({key, &child, false});
    }
    if (!repeats) {
        return targets;
    }
    std::unordered_map<std::string_view, std::size_t> position;
    std::vector<TargetChild> distinct;
    for (const TargetChild& target : targets) {
        const auto [it, inserted] = position.try_emplace(target.key, distinct.size());
        if (inserted) {
            distinct.push_back(target);
        } else {
            distinct[it->second].repeated = true;
        }
    }
    return distinct;
}

bool IsIndexName(std::string_view key, std::size_t index) {
    char buffer[24];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, index).ptr;
    return key == std::string_view(buffer, static_cast<std::size_t>(end - buffer));
}

class Updater {
public:
    Updater(const TextIndex& index, PropertySerializer::DoubleText doubleText)
        : m_index(index), m_text(index.Text()), m_doubleText(doubleText), m_style(StyleOf(index)) {}

    void Root(const Property& property, bool wrapRoot, std::vector<Splice>& out) {
        const TextIndex::Value root = 0;
        const Placement placement = RootPlacement();
        if (wrapRoot) {
            const std::string_view key = KeyOf(property);
            if (m_index.KindOf(root) == JsonText::Kind::Object && m_index.Count(root) > 0 &&
                m_index.KeyIs(TextIndex::FirstChild(root), key)) {
                const TextIndex::Value member = m_index.Member(root, key);
                Value(member, property, false, IsRatioKey(key), At(root, member), out);
                return;
            }
            const std::vector<NewChild> wrapped{{JsonStringText(key), Writer(property, false)}};
            out.push_back({m_index.Begin(root), m_index.End(root), NestedContainerText(wrapped, false, placement)});
            return;
        }
        if (property.GetType() == TypeArray && m_index.IsContainer(root)) {
            Container(root, property, PlacementOf(placement), out);
            return;
        }
        Value(root, property, false, false, PlacementOf(placement), out);
    }

private:
    Placement RootPlacement() const {
        const bool lines = m_text.find('\n') != std::string_view::npos;
        return {lines, std::string(), m_style.colon.value_or(lines ? ": " : ":"), m_style.separator, &m_style};
    }

    PlacementOf At(TextIndex::Value container, TextIndex::Value child) const {
        return PlacementOf(m_index, m_style, container, child);
    }

    // Makes the text value value load as node does.
    void Value(TextIndex::Value value, const Property& node, bool repeated, bool ratioKey, const PlacementOf& where,
               std::vector<Splice>& out) {
        const JsonText::Kind kind = m_index.KindOf(value);
        const bool textContainer = kind == JsonText::Kind::Object || kind == JsonText::Kind::Array;
        const bool nodeContainer = node.GetType() == TypeArray && !Access::Children(node).empty();
        if (!repeated && textContainer && nodeContainer) {
            Container(value, node, where, out);
            return;
        }
        if (LoadsAs(value, node, repeated, ratioKey)) {
            return;
        }
        const std::string fresh =
            !repeated && nodeContainer ? Fresh(node, false, where.Get()) : Fresh(node, repeated, {});
        out.push_back({m_index.Begin(value), m_index.End(value), fresh});
    }

    // Makes the text container value hold node's children. The common case,
    // the same names in the same order, is walked without a plan.
    void Container(TextIndex::Value value, const Property& node, const PlacementOf& where, std::vector<Splice>& out) {
        const Property::ChildListType& children = Access::Children(node);
        if (m_index.KindOf(value) == JsonText::Kind::Array) {
            std::size_t index = 0;
            for (const Property& child : children) {
                if (!IsIndexName(KeyOf(child), index++)) {
                    Rewrite(value, TargetChildren(node), where, out);
                    return;
                }
            }
            Array(value, children, out);
        } else if (!SameNamesInOrder(value, children)) {
            Object(value, TargetChildren(node), where, out);
            return;
        } else {
            auto child = children.begin();
            for (TextIndex::Value member = TextIndex::FirstChild(value); member != m_index.SubtreeEnd(value);
                 member = m_index.NextSibling(member), ++child) {
                Value(member, *child, false, IsRatioKey(KeyOf(*child)), At(value, member), out);
            }
        }
    }

    // Whether the object's members have children's names, in their order,
    // each once.
    bool SameNamesInOrder(TextIndex::Value object, const Property::ChildListType& children) const {
        NameFingerprint fingerprint;
        TextIndex::Value member = TextIndex::FirstChild(object);
        std::size_t count = 0;
        for (auto child = children.begin(); child != children.end(); ++child, ++count) {
            if (member == m_index.SubtreeEnd(object)) {
                return false;
            }
            const std::string_view key = KeyOf(*child);
            if (!m_index.KeyIs(member, key)) {
                return false;
            }
            // A name seen before is certainly not, when its fingerprint bit
            // is new; among many names, the plan decides.
            if (fingerprint.Add(key) && (count > 16 || std::any_of(children.begin(), child, [key](const Property& p) {
                                             return KeyOf(p) == key;
                                         }))) {
                return false;
            }
            member = m_index.NextSibling(member);
        }
        return member == m_index.SubtreeEnd(object);
    }

    // An array stays one while the children are "0", "1", ... in order, as
    // an array loads: elements are changed, removed from the end or
    // appended.
    void Array(TextIndex::Value array, const Property::ChildListType& children, std::vector<Splice>& out) {
        std::optional<ContainerEdit> edit;
        std::size_t index = 0;
        TextIndex::Value element = TextIndex::FirstChild(array);
        auto child = children.begin();
        for (; element != m_index.SubtreeEnd(array) || child != children.end(); ++index) {
            if (child == children.end()) {
                Plan(edit, array).Remove(index);
                element = m_index.NextSibling(element);
            } else if (element == m_index.SubtreeEnd(array)) {
                Plan(edit, array).Insert(Plan(edit, array).Children().size(), {std::string(), Writer(*child, false)});
                ++child;
            } else {
                Value(element, *child, false, false, At(array, element), out);
                element = m_index.NextSibling(element);
                ++child;
            }
        }
        if (edit) {
            edit->Finish(out);
        }
    }

    ContainerEdit& Plan(std::optional<ContainerEdit>& edit, TextIndex::Value container) const {
        if (!edit) {
            edit.emplace(m_index, m_style, container);
        }
        return *edit;
    }

    void Object(TextIndex::Value object, const std::vector<TargetChild>& targets, const PlacementOf& where,
                std::vector<Splice>& out) {
        ContainerEdit edit(m_index, m_style, object);
        const std::vector<TextIndex::Value>& members = edit.Children();
        // Each key of the text: where it first stands, and its last member,
        // the one a load keeps.
        struct TextKey {
            std::size_t first;
            std::size_t last;
        };
        std::vector<std::string> keys(members.size());
        std::unordered_map<std::string_view, TextKey> byKey;
        for (std::size_t i = 0; i < members.size(); ++i) {
            keys[i] = m_index.Key(members[i]);
        }
        for (std::size_t i = 0; i < members.size(); ++i) {
            byKey.try_emplace(keys[i], TextKey{i, i}).first->second.last = i;
        }
        std::unordered_set<std::string_view> wanted;
        std::size_t previousFirst = 0;
        for (const TargetChild& target : targets) {
            wanted.insert(target.key);
            const auto found = byKey.find(target.key);
            if (found != byKey.end()) {
                if (found->second.first < previousFirst) {
                    Rewrite(object, targets, where, out);
                    return;
                }
                previousFirst = found->second.first;
            }
        }
        for (std::size_t i = 0; i < members.size(); ++i) {
            if (wanted.count(keys[i]) == 0) {
                edit.Remove(i);
            }
        }
        // New keys go before the first member of the next key that stays,
        // or at the end.
        std::vector<const TargetChild*> pending;
        for (const TargetChild& target : targets) {
            const auto found = byKey.find(target.key);
            if (found == byKey.end()) {
                pending.push_back(&target);
                continue;
            }
            InsertAll(edit, found->second.first, pending);
            const std::size_t last = found->second.last;
            Value(members[last], *target.node, target.repeated, IsRatioKey(target.key), At(object, members[last]), out);
        }
        InsertAll(edit, members.size(), pending);
        edit.Finish(out);
    }

    void InsertAll(ContainerEdit& edit, std::size_t before, std::vector<const TargetChild*>& pending) {
        for (const TargetChild* target : pending) {
            edit.Insert(before, {JsonStringText(target->key), Writer(*target->node, target->repeated)});
        }
        pending.clear();
    }

    static bool IsRatioKey(std::string_view key) { return key == PropertySerializer::kRatioKey; }

    // The container written anew in its own layout, in the order of the
    // node's children; what the text held of a child that stays keeps its
    // key's bytes and its value's, changes included.
    void Rewrite(TextIndex::Value container, const std::vector<TargetChild>& targets, const PlacementOf& where,
                 std::vector<Splice>& out) {
        const ContainerEdit edit(m_index, m_style, container);
        const Placement inner = edit.ChildPlacement();
        // What the text holds under each name: a member (the last of its
        // name), or an element under its index.
        const bool object = m_index.KindOf(container) == JsonText::Kind::Object;
        std::vector<std::string> names;
        names.reserve(edit.Children().size());
        std::unordered_map<std::string_view, TextIndex::Value> held;
        for (const TextIndex::Value child : edit.Children()) {
            names.push_back(object ? m_index.Key(child) : std::to_string(names.size()));
        }
        for (std::size_t i = 0; i < names.size(); ++i) {
            held[names[i]] = edit.Children()[i];
        }
        std::vector<NewChild> children;
        for (const TargetChild& target : targets) {
            const auto found = held.find(target.key);
            if (found == held.end()) {
                children.push_back({JsonStringText(target.key), Writer(*target.node, target.repeated)});
                continue;
            }
            const TextIndex::Value child = found->second;
            std::vector<Splice> changes;
            Value(child, *target.node, target.repeated, IsRatioKey(target.key), PlacementOf(inner), changes);
            const std::size_t keyStart = m_index.Start(child);
            std::string keyText = object ? std::string(m_text.substr(keyStart, m_index.KeyEnd(child) - keyStart))
                                         : JsonStringText(target.key);
            std::string valueText = AppliedWithin(m_text, m_index.Begin(child), m_index.End(child), changes);
            children.push_back({std::move(keyText), [valueText](const Placement&) { return valueText; }});
        }
        const Placement placement = where.Get();
        const std::string closeIndent = placement.multiLine ? placement.indent : std::string();
        out.push_back(
            {m_index.Begin(container), m_index.End(container), ContainerText(children, false, inner, closeIndent)});
    }

    // Whether value loads as node does after a plain save. The common
    // scalars are compared where they stand, without a copy of either.
    bool LoadsAs(TextIndex::Value value, const Property& node, bool repeated, bool ratioKey) const {
        const JsonText::Kind kind = m_index.KindOf(value);
        if (!repeated) {
            switch (node.GetType()) {
            case TypeString:
                if (!ratioKey) {
                    return kind == JsonText::Kind::String && m_index.StringIs(value, Access::String(node));
                }
                break;
            case TypeInt64:
            case TypeDouble:
                if (kind != JsonText::Kind::Integer && kind != JsonText::Kind::Double) {
                    return false;
                }
                break;
            case TypeBool:
                return kind == JsonText::Kind::Boolean && (m_text[m_index.Begin(value)] == 't') == Access::Bool(node);
            default:
                break;
            }
        }
        return TextMeaning(value, ratioKey) == TargetMeaning(node, repeated, ratioKey);
    }

    Meaning TextMeaning(TextIndex::Value value, bool ratioKey) const {
        Meaning meaning;
        const std::size_t begin = m_index.Begin(value);
        switch (m_index.KindOf(value)) {
        case JsonText::Kind::Boolean:
            meaning.kind = Meaning::Kind::Bool;
            meaning.integer = m_text[begin] == 't';
            break;
        case JsonText::Kind::Integer:
        case JsonText::Kind::Double: {
            const std::size_t end = ScalarEnd(m_text, begin);
            const LoadedNumber number = ReadNumber(m_text.data() + begin, end - begin);
            if (number.kind == LoadedNumber::Kind::Integer) {
                meaning.kind = Meaning::Kind::Int;
                meaning.integer = number.integer;
            } else if (number.kind == LoadedNumber::Kind::Double) {
                meaning.kind = std::isfinite(number.value) ? Meaning::Kind::Double : Meaning::Kind::Unloadable;
                meaning.number = number.value;
            }
            break;
        }
        case JsonText::Kind::String:
            if (ratioKey) {
                return RatioMeaning(m_index.StringValue(value));
            }
            meaning.kind = Meaning::Kind::String;
            meaning.text = m_index.StringValue(value);
            break;
        case JsonText::Kind::Object:
        case JsonText::Kind::Array:
            if (m_index.SubtreeEnd(value) != value + 1) {
                meaning.kind = Meaning::Kind::Container;
            }
            break;
        default:
            break;
        }
        return meaning;
    }

    ValueWriter Writer(const Property& node, bool repeated) {
        return [this, &node, repeated](const Placement& placement) { return Fresh(node, repeated, placement); };
    }

    // node's value written anew, as a plain save writes it, a container's
    // children laid out for placement.
    std::string Fresh(const Property& node, bool repeated, const Placement& placement) {
        if (repeated) {
            return "null";
        }
        if (node.GetType() != TypeArray) {
            return ScalarText(node, m_doubleText);
        }
        std::vector<NewChild> children;
        for (const TargetChild& target : TargetChildren(node)) {
            children.push_back({JsonStringText(target.key), Writer(*target.node, target.repeated)});
        }
        return NestedContainerText(children, false, placement);
    }

    const TextIndex& m_index;
    const std::string_view m_text;
    const PropertySerializer::DoubleText m_doubleText;
    const DocumentStyle m_style;
};

// Whether text, up to its first zero byte, is only white space and, where
// they are allowed, comments.
bool HoldsNoValue(const std::string& text, bool comments) {
    for (std::size_t at = 0; at < text.size() && text[at] != '\0';) {
        const char c = text[at];
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            ++at;
        } else if (comments && c == '/' && at + 1 < text.size() && text[at + 1] == '/') {
            at = std::min(text.find('\n', at), text.size());
        } else if (comments && c == '/' && at + 1 < text.size() && text[at + 1] == '*' &&
                   text.find("*/", at + 2) != std::string::npos) {
            at = text.find("*/", at + 2) + 2;
        } else {
            return false;
        }
    }
    return true;
}

// The text with the property saved into it; a text with nothing but white
// space and comments has the plain save after them.
std::string UpdateJsonText(const Property& property, const std::string& text, bool wrapRoot,
                           PropertySerializer::DoubleText doubleText, PropertySerializer::JsonSyntax syntax,
                           const ThrowSite& site) {
    if (HoldsNoValue(text, syntax == PropertySerializer::JsonSyntax::WithComments)) {
        const auto output = MemoryDataOutput::Create();
        PropertySerializer::Serialize(property, output, wrapRoot, doubleText);
        // Comments stay, and the document goes below them, past the end of
        // a comment that runs to the end of its line; white space alone goes.
        const bool comments = text.find('/') < text.find('\0');
        if (!comments) {
            return output->GetData();
        }
        return text + (text.back() == '\n' ? "" : "\n") + output->GetData();
    }
    const TextIndex index(text, syntax, JsonText::Rules::Json, site);
    Updater updater(index, doubleText);
    std::vector<Splice> splices;
    updater.Root(property, wrapRoot, splices);
    return Applied(text, std::move(splices));
}

}  // namespace
}  // namespace Tarsel::Core::Json

namespace Tarsel::Core {

std::string PropertySerializer::UpdateText(const Property& property, const std::string& text, bool wrapRoot,
                                           DoubleText doubleText, JsonSyntax syntax) {
    return Json::UpdateJsonText(property, text, wrapRoot, doubleText, syntax,
                                TARSEL_THROW_SITE(Signatures::UpdateText));
}

void PropertySerializer::UpdateFile(const Property& property, const ioPath& path, bool wrapRoot, DoubleText doubleText,
                                    JsonSyntax syntax) {
    // The text is read from the very file the save replaces, which must still
    // be as it was read when it is replaced: a change another program made
    // in between is never overwritten.
    const auto output = AtomicFileDataOutput::Create(path, AtomicFileDataOutput::TargetCheck::Unchanged);
    std::string text;
    try {
        const boost::intrusive_ptr<IDataInput> input = output->ReadTarget();
        text.resize(input->GetSize());
        text.resize(input->Read(text.data(), text.size()));
    } catch (const boost::filesystem::filesystem_error& e) {
        if (e.code() != boost::system::errc::no_such_file_or_directory) {
            throw;
        }
        // No file yet: the plain save.
        Json::WriteJsonText(property, wrapRoot, doubleText, *output);
        output->Commit();
        return;
    }
    const std::string updated =
        Json::UpdateJsonText(property, text, wrapRoot, doubleText, syntax, TARSEL_THROW_SITE(Signatures::UpdateFile));
    output->Write(updated.data(), updated.size());
    output->Commit();
}

}  // namespace Tarsel::Core
