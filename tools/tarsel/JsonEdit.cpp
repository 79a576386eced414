// This file edits JSON text in place: it finds a value's bytes, or the place
// for a new member, through the spans JsonText.cpp records, and copies the
// layout of the neighbours for what it adds.
#include "JsonEdit.h"

#include "Command.h"
#include "Failure.h"
#include "ValueText.h"

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <charconv>
#include <optional>

namespace TarselTool {

using namespace Tarsel::Core;

namespace {

// How the document lays itself out, for a container that has no member to
// copy: the indentation of one level, the line end, and what stands between
// a key and its value (in a document without members, ":" when compact and
// ": " across lines, as JSON is usually written).
struct Style {
    std::string indentUnit = "  ";
    std::string lineEnd = "\n";
    std::optional<std::string> colon;
    std::string Colon(bool multiLine) const { return colon ? *colon : multiLine ? ": " : ":"; }
};

// The first member of the document in its text's order, if any.
const JsonMember* FirstMember(const JsonValue& root) {
    const JsonMember* first = nullptr;
    std::vector<const JsonValue*> pending{&root};
    while (!pending.empty()) {
        const JsonValue* value = pending.back();
        pending.pop_back();
        if (!value->members.empty() && (first == nullptr || value->members.front().keyBegin < first->keyBegin)) {
            first = &value->members.front();
        }
        for (const JsonMember& member : value->members) {
            pending.push_back(&member.value);
        }
        for (const JsonValue& element : value->elements) {
            pending.push_back(&element);
        }
    }
    return first;
}

Style StyleOf(const std::string& text, const JsonValue& root) {
    Style style;
    const std::size_t lineEnd = text.find('\n');
    if (lineEnd != std::string::npos && lineEnd > 0 && text[lineEnd - 1] == '\r') {
        style.lineEnd = "\r\n";
    }
    // The first indented line shows one level.
    for (std::size_t end = lineEnd; end != std::string::npos; end = text.find('\n', end + 1)) {
        const std::size_t start = end + 1;
        const std::size_t content = text.find_first_not_of(" \t", start);
        if (content != std::string::npos && content > start && text[content] != '\n' && text[content] != '\r') {
            style.indentUnit = text.substr(start, content - start);
            break;
        }
    }
    if (const JsonMember* member = FirstMember(root)) {
        style.colon = text.substr(member->keyEnd, member->value.begin - member->keyEnd);
    }
    return style;
}

std::size_t ChildCount(const JsonValue& container) {
    return container.kind == JsonValue::Kind::Object ? container.members.size() : container.elements.size();
}

// Where child index of container starts (a member's key, an element's
// value) and ends.
std::size_t ChildBegin(const JsonValue& container, std::size_t index) {
    return container.kind == JsonValue::Kind::Object ? container.members[index].keyBegin
                                                     : container.elements[index].begin;
}
std::size_t ChildEnd(const JsonValue& container, std::size_t index) {
    return container.kind == JsonValue::Kind::Object ? container.members[index].value.end
                                                     : container.elements[index].end;
}

// The white space before child index, after the bracket or the comma.
std::string LeadOf(const std::string& text, const JsonValue& container, std::size_t index) {
    const std::size_t after = index == 0 ? container.begin + 1 : text.find(',', ChildEnd(container, index - 1)) + 1;
    return text.substr(after, ChildBegin(container, index) - after);
}

// The indentation a lead ends with; empty for a lead on the same line.
std::string IndentationOf(const std::string& lead) {
    const std::size_t lineEnd = lead.rfind('\n');
    return lineEnd == std::string::npos ? std::string() : lead.substr(lineEnd + 1);
}

// Where a new member or element goes, and how it is laid out.
struct Placement {
    std::size_t at;      // where the new text is inserted
    std::string before;  // what comes before the new child: a comma and its lead
    bool multiLine;      // whether containers made for it span lines
    std::string indent;  // the new child's indentation
    std::string colon;
};

Placement PlacementIn(const std::string& text, const JsonValue& container, const Style& style) {
    const std::size_t count = ChildCount(container);
    if (count > 0) {
        const std::string lead = LeadOf(text, container, count - 1);
        const bool multiLine = lead.find('\n') != std::string::npos;
        std::string colon = style.Colon(multiLine);
        if (container.kind == JsonValue::Kind::Object) {
            const JsonMember& last = container.members.back();
            colon = text.substr(last.keyEnd, last.value.begin - last.keyEnd);
        }
        return {ChildEnd(container, count - 1), "," + lead, multiLine, IndentationOf(lead), colon};
    }
    // An empty container: on its own lines when its brackets are, one level
    // in from the closing one; compact otherwise.
    const std::string inside = text.substr(container.begin + 1, container.end - container.begin - 2);
    if (inside.find('\n') == std::string::npos) {
        return {container.begin + 1, "", false, "", style.Colon(false)};
    }
    const std::string indent = IndentationOf(inside) + style.indentUnit;
    return {container.begin + 1, style.lineEnd + indent, true, indent, style.Colon(true)};
}

// The value that names[from...] wrap valueText in: one object a name,
// spanning lines as the placement does.
std::string NestedText(const std::vector<std::string>& names, std::size_t from, const std::string& valueText,
                       const Placement& placement, const std::string& indent, const Style& style) {
    if (from == names.size()) {
        return valueText;
    }
    const std::string inner = indent + style.indentUnit;
    const std::string member =
        JsonStringText(names[from]) + placement.colon + NestedText(names, from + 1, valueText, placement, inner, style);
    if (!placement.multiLine) {
        return "{" + member + "}";
    }
    return "{" + style.lineEnd + inner + member + style.lineEnd + indent + "}";
}

// An array index as JSON pointers and paths write one: digits, no sign, no
// leading zero.
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

std::string Where(const std::vector<std::string>& names, std::size_t count) {
    return count == 0 ? std::string("the document") : JoinedPath(names, count);
}

// text with a new child of container: the member names[index], or the next
// element, holding what the remaining names wrap valueText in.
std::string Inserted(const std::string& text, const JsonValue& container, const std::vector<std::string>& names,
                     std::size_t index, const std::string& valueText, const Style& style) {
    const Placement placement = PlacementIn(text, container, style);
    std::string child = NestedText(names, index + 1, valueText, placement, placement.indent, style);
    if (container.kind == JsonValue::Kind::Object) {
        child = JsonStringText(names[index]) + placement.colon + child;
    }
    return text.substr(0, placement.at) + placement.before + child + text.substr(placement.at);
}

}  // namespace

std::string JsonStringText(const std::string& value) {
    const auto output = MemoryDataOutput::Create();
    PropertySerializer::Serialize(Property("", value), output, false);
    return output->GetData();
}

std::string SetValueInText(const std::string& text, const JsonValue& root, const std::vector<std::string>& names,
                           const std::string& valueText, const std::string& document) {
    const Style style = StyleOf(text, root);
    const JsonValue* node = &root;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (node->kind == JsonValue::Kind::Object) {
            const JsonMember* member = FindMember(*node, names[i]);
            if (member == nullptr) {
                return Inserted(text, *node, names, i, valueText, style);
            }
            node = &member->value;
        } else if (node->kind == JsonValue::Kind::Array) {
            const std::optional<std::size_t> index = IndexOf(names[i]);
            if (!index) {
                throw ToolFailure(kFailed, document,
                                  Where(names, i) + " is an array: '" + names[i] + "' is not an index of it");
            }
            if (*index == node->elements.size()) {
                return Inserted(text, *node, names, i, valueText, style);
            }
            if (*index > node->elements.size()) {
                throw ToolFailure(kFailed, document,
                                  Where(names, i) + " has " + std::to_string(node->elements.size()) +
                                      " elements: only an index up to " + std::to_string(node->elements.size()) +
                                      " can be set");
            }
            node = &node->elements[*index];
        } else {
            throw ToolFailure(kFailed, document,
                              Where(names, i) + " is " + KindName(node->kind) +
                                  ", not an object: nothing can be set inside it");
        }
    }
    return text.substr(0, node->begin) + valueText + text.substr(node->end);
}

}  // namespace TarselTool
