// This file implements JsonText over the library's text index
// (internal/JsonTextIndex.h) and its editing (internal/JsonTextEdit.h).
#include <Core/Interfaces/JsonText.h>

#include <Core/Interfaces/internal/JsonTextEdit.h>
#include <Core/Interfaces/internal/JsonTextIndex.h>
#include <Core/Interfaces/internal/SerializerAccess.h>
#include <Core/Interfaces/internal/ThrowSignatures.h>

#include <charconv>
#include <optional>
#include <stdexcept>
#include <utility>

namespace Tarsel::Core {

struct JsonText::Impl {
    Impl(const std::string& text, PropertySerializer::JsonSyntax syntax, Rules rules)
        : index(text, syntax, rules, TARSEL_THROW_SITE(Signatures::JsonTextConstructor)) {}

    Json::TextIndex index;
};

namespace {

// An array index as a JSON pointer writes one: digits, no sign, no leading
// zero.
std::optional<std::size_t> IndexOf(const std::string& name) {
    if (name.empty() || (name.size() > 1 && name[0] == '0')) {
        return std::nullopt;
    }
    std::size_t index = 0;
    const auto result = std::from_chars(name.data(), name.data() + name.size(), index);
    if (result.ec != std::errc() || result.ptr != name.data() + name.size()) {
        return std::nullopt;
    }
    return index;
}

// The value that names[from...] wrap text in: one object a name.
Json::ValueWriter Nested(const std::vector<std::string>& names, std::size_t from, std::string_view text) {
    if (from == names.size()) {
        return [value = std::string(text)](const Json::Placement&) { return value; };
    }
    return [&names, from, text](const Json::Placement& placement) {
        const std::vector<Json::NewChild> member{
            {Json::JsonStringText(Json::UpToFirstZero(names[from].c_str(), names[from].size())),
             Nested(names, from + 1, text)}};
        return Json::NestedContainerText(member, false, placement);
    };
}

}  // namespace

JsonText::JsonText(const std::string& text, PropertySerializer::JsonSyntax syntax, Rules rules)
    : m_impl(std::make_unique<Impl>(text, syntax, rules)) {}

JsonText::~JsonText() = default;
JsonText::JsonText(JsonText&& other) noexcept = default;
JsonText& JsonText::operator=(JsonText&& other) noexcept = default;

const std::string& JsonText::Text() const noexcept {
    return m_impl->index.Text();
}

JsonText::Kind JsonText::KindOf(Value value) const {
    return m_impl->index.KindOf(value);
}

std::size_t JsonText::Begin(Value value) const {
    return m_impl->index.Begin(value);
}

std::size_t JsonText::End(Value value) const {
    return m_impl->index.End(value);
}

std::string_view JsonText::Spelling(Value value) const {
    const std::size_t begin = Begin(value);
    return std::string_view(Text()).substr(begin, End(value) - begin);
}

JsonText::Children::iterator& JsonText::Children::iterator::operator++() {
    m_value = m_text->NextSibling(m_value);
    return *this;
}

JsonText::Value JsonText::NextSibling(Value value) const {
    return m_impl->index.NextSibling(value);
}

JsonText::Children JsonText::ChildrenOf(Value value) const {
    const Json::TextIndex& index = m_impl->index;
    return Children(this, Json::TextIndex::FirstChild(value), index.SubtreeEnd(value));
}

std::size_t JsonText::Count(Value value) const {
    return m_impl->index.Count(value);
}

bool JsonText::IsMember(Value value) const {
    return m_impl->index.IsMember(value);
}

std::string JsonText::Key(Value value) const {
    return IsMember(value) ? m_impl->index.Key(value) : std::string();
}

std::string_view JsonText::KeySpelling(Value value) const {
    if (!IsMember(value)) {
        return {};
    }
    const std::size_t start = m_impl->index.Start(value);
    return std::string_view(Text()).substr(start, m_impl->index.KeyEnd(value) - start);
}

std::string JsonText::StringValue(Value value) const {
    if (KindOf(value) != Kind::String) {
        throw std::invalid_argument("JsonText::StringValue: the value is not a string");
    }
    return m_impl->index.StringValue(value);
}

JsonText::Value JsonText::Member(Value object, std::string_view name) const {
    return m_impl->index.Member(object, name);
}

JsonText::Value JsonText::Element(Value array, std::size_t index) const {
    return m_impl->index.Element(array, index);
}

JsonText::Reach JsonText::Follow(const std::vector<std::string>& names) const {
    Reach reach{Root(), 0};
    for (const std::string& name : names) {
        Value next = kNone;
        if (KindOf(reach.value) == Kind::Object) {
            next = Member(reach.value, name);
        } else if (const std::optional<std::size_t> index = IndexOf(name)) {
            next = Element(reach.value, *index);
        }
        if (next == kNone) {
            break;
        }
        reach = {next, reach.matched + 1};
    }
    return reach;
}

void JsonText::Apply(const Edit& edit, std::string& text) {
    text.replace(edit.begin, edit.end - edit.begin, edit.text);
}

JsonText::Edit JsonText::Replace(Value value, std::string_view valueText) const {
    return {Begin(value), End(value), std::string(valueText)};
}

JsonText::Edit JsonText::Append(Value container, const std::vector<std::string>& names,
                                std::string_view valueText) const {
    const Json::TextIndex& index = m_impl->index;
    const Kind kind = KindOf(container);
    if (kind != Kind::Object && kind != Kind::Array) {
        throw std::invalid_argument("JsonText::Append: the value is not an object or an array");
    }
    if (kind == Kind::Object && names.empty()) {
        throw std::invalid_argument("JsonText::Append: a member needs a name");
    }
    const Json::DocumentStyle style = Json::StyleOf(index);
    Json::ContainerEdit edit(index, style, container);
    const std::size_t from = kind == Kind::Object ? 1 : 0;
    std::string key;
    if (kind == Kind::Object) {
        key = Json::JsonStringText(Json::UpToFirstZero(names[0].c_str(), names[0].size()));
    }
    edit.Insert(edit.Children().size(), {std::move(key), Nested(names, from, valueText)});
    std::vector<Json::Splice> splices;
    edit.Finish(splices);
    std::size_t begin = std::string::npos;
    std::size_t end = 0;
    for (const Json::Splice& splice : splices) {
        begin = std::min(begin, splice.begin);
        end = std::max(end, splice.end);
    }
    return {begin, end, Json::AppliedWithin(Text(), begin, end, splices)};
}

}  // namespace Tarsel::Core
