// Private to the library, not installed: changing a JSON text as an editor
// would, for JsonText's edits and PropertySerializer::UpdateText. A change is
// a list of splices of the original text; a container whose children come
// and go keeps its own layout, and what is new is laid out as its neighbours
// are.
#pragma once

#include <Core/Interfaces/internal/JsonTextIndex.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tarsel::Core::Json {

// The bytes [begin, end) of the original text replaced by text.
struct Splice {
    std::size_t begin;
    std::size_t end;
    std::string text;
};

// text with splices applied. Splices must not overlap, but for insertions
// (begin == end) at the edge of another; at one place, they apply in the
// order given.
std::string Applied(std::string_view text, std::vector<Splice> splices);
// The bytes [begin, end) of text with those of splices that lie inside it
// applied (a container's child written anew, its own changes kept).
std::string AppliedWithin(std::string_view text, std::size_t begin, std::size_t end,
                          const std::vector<Splice>& splices);

// How a document writes what it holds, from its first examples: what stands
// between a key and its value, between two children on one line, one level
// of indentation, and a line end.
struct DocumentStyle {
    // In a document without members, ":" on one line and ": " across lines,
    // as JSON is usually written.
    std::optional<std::string> colon;
    std::string separator;  // after the comma
    std::string indentUnit = "  ";
    std::string lineEnd = "\n";
};
DocumentStyle StyleOf(const TextIndex& index);

// Where a new value goes, for writing it: on lines of its own at indent
// (its containers then spread over lines too), or within one line.
struct Placement {
    bool multiLine;
    std::string indent;     // of the line the value starts on
    std::string colon;      // between a key and its value
    std::string separator;  // after a comma, within one line
    const DocumentStyle* style;
};

// Writes a new value's text for its placement.
using ValueWriter = std::function<std::string(const Placement&)>;

// A new member (its key's JSON text and its value) or element (no key).
struct NewChild {
    std::string keyText;  // a member's JSON string, empty for an element
    ValueWriter value;
};
// A new object or array of children placed as inner says (on lines of their
// own at inner.indent, or on one line), its closing bracket on a line of its
// own at closeIndent when they are: "{...}" or "[...]".
std::string ContainerText(const std::vector<NewChild>& children, bool array, const Placement& inner,
                          const std::string& closeIndent);
// The same for a new container value placed as outer says: its children one
// level in.
std::string NestedContainerText(const std::vector<NewChild>& children, bool array, const Placement& outer);

// Plans the change of one container's children: which of its children go,
// which new ones come, and where; Finish turns the plan into splices that
// keep every byte of the children that stay and of the comments around
// them, fix the commas and lay out the new children as the others are.
// Children that stay keep their order (a new order is written anew by the
// caller).
class ContainerEdit {
public:
    ContainerEdit(const TextIndex& index, const DocumentStyle& style, TextIndex::Value container);

    // The children of the container, in the text's order.
    const std::vector<TextIndex::Value>& Children() const { return m_children; }
    void Remove(std::size_t child);
    // A new child before the one at child (the count: at the end).
    void Insert(std::size_t child, NewChild added);

    // How a new child of this container is placed; measured once.
    const Placement& ChildPlacement() const;
    // How a value that replaces the value of child is placed.
    Placement ValuePlacement(TextIndex::Value child) const;

    void Finish(std::vector<Splice>& out) const;

private:
    struct Slot;
    void MakePlan();
    std::string NewChildText(const NewChild& child) const;
    void FinishWithoutChildren(std::vector<Splice>& out) const;

    const TextIndex& m_index;
    const DocumentStyle& m_style;
    TextIndex::Value m_container;
    bool m_array;
    std::vector<TextIndex::Value> m_children;
    // Made by the first Remove or Insert.
    std::vector<bool> m_removed;
    std::vector<std::vector<NewChild>> m_inserted;  // before each child, and at the end
    mutable std::optional<Placement> m_placement;
};

// Where a value stands, for placing what may replace it: measured only when
// a container is written there.
class PlacementOf {
public:
    explicit PlacementOf(const Placement& placement) : m_fixed(&placement) {}
    // The child of container in index's text.
    PlacementOf(const TextIndex& index, const DocumentStyle& style, TextIndex::Value container, TextIndex::Value child)
        : m_index(&index), m_style(&style), m_container(container), m_child(child) {}
    Placement Get() const {
        return m_fixed != nullptr ? *m_fixed : ContainerEdit(*m_index, *m_style, m_container).ValuePlacement(m_child);
    }

private:
    const Placement* m_fixed = nullptr;
    const TextIndex* m_index = nullptr;
    const DocumentStyle* m_style = nullptr;
    TextIndex::Value m_container = 0;
    TextIndex::Value m_child = 0;
};

// The JSON string of text, with the serializer's escaping.
std::string JsonStringText(std::string_view text);
// What Serialize writes for a node that is not a container (null for an
// Empty one).
std::string ScalarText(const Property& node, PropertySerializer::DoubleText doubleText);

}  // namespace Tarsel::Core::Json
