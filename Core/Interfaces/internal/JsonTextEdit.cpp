// This file changes JSON text in place: it measures how a document and each
// container lay out their children, and plans removals, insertions and
// commas as splices of the original text.
#include <Core/Interfaces/internal/JsonTextEdit.h>

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/internal/SerializerAccess.h>

#include <algorithm>
#include <string>

namespace Tarsel::Core::Json {

namespace {

constexpr std::size_t kNowhere = std::string::npos;

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

bool IsLineEnd(std::string_view text, std::size_t at) {
    return at < text.size() && (text[at] == '\n' || (text[at] == '\r' && at + 1 < text.size() && text[at + 1] == '\n'));
}

std::size_t PastLineEnd(std::string_view text, std::size_t at) {
    return at + (text[at] == '\r' ? 2 : 1);
}

// Whether text holds only white space: no comment, no comma.
bool IsWhiteSpace(std::string_view text) {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

// The start of the line that offset is on, when only blanks stand before it
// there; kNowhere when something else does.
std::size_t StartOfOwnLine(std::string_view text, std::size_t offset) {
    std::size_t at = offset;
    while (at > 0 && IsBlank(text[at - 1])) {
        --at;
    }
    return at == 0 || text[at - 1] == '\n' ? at : kNowhere;
}

// The same, where /* */ comments may stand before offset on its line too:
// they go with what follows them there. Read backwards from offset, so that
// it costs what stands before offset on its line, however long the line.
std::size_t StartOfLineAfterComments(std::string_view text, std::size_t offset) {
    std::size_t at = offset;
    for (;;) {
        while (at > 0 && IsBlank(text[at - 1])) {
            --at;
        }
        if (at == 0 || text[at - 1] == '\n') {
            return at;
        }
        if (at < 2 || text[at - 1] != '/' || text[at - 2] != '*') {
            return kNowhere;
        }
        const std::size_t open = text.rfind("/*", at - 2);
        if (open == std::string_view::npos || text.substr(open, at - open).find('\n') != std::string_view::npos) {
            return kNowhere;
        }
        at = open;
    }
}
}  // namespace

std::string Applied(std::string_view text, std::vector<Splice> splices) {
    std::stable_sort(splices.begin(), splices.end(), [](const Splice& a, const Splice& b) {
        return a.begin < b.begin || (a.begin == b.begin && a.end < b.end);
    });
    std::size_t size = text.size();
    for (const Splice& splice : splices) {
        size += splice.text.size();
        size -= splice.end - splice.begin;
    }
    std::string out;
    out.reserve(size);
    std::size_t at = 0;
    for (const Splice& splice : splices) {
        out.append(text.data() + at, splice.begin - at);
        out += splice.text;
        at = splice.end;
    }
    out.append(text.data() + at, text.size() - at);
    return out;
}

std::string AppliedWithin(std::string_view text, std::size_t begin, std::size_t end,
                          const std::vector<Splice>& splices) {
    std::vector<Splice> inside;
    for (const Splice& splice : splices) {
        if (splice.begin >= begin && splice.end <= end) {
            inside.push_back({splice.begin - begin, splice.end - begin, splice.text});
        }
    }
    return Applied(text.substr(begin, end - begin), std::move(inside));
}

std::string JsonStringText(std::string_view text) {
    return ScalarText(Property(std::string(), std::string(text)), PropertySerializer::DoubleText::SixDigits);
}

// Through the writer's own entry point, so that its inner loop stays where
// every save runs it.
std::string ScalarText(const Property& node, PropertySerializer::DoubleText doubleText) {
    const auto output = MemoryDataOutput::Create();
    PropertySerializer::Serialize(node, output, false, doubleText);
    return output->GetData();
}

DocumentStyle StyleOf(const TextIndex& index) {
    DocumentStyle style;
    const std::string_view text = index.Text();
    const std::size_t firstLineEnd = text.find('\n');
    if (firstLineEnd != std::string_view::npos && firstLineEnd > 0 && text[firstLineEnd - 1] == '\r') {
        style.lineEnd = "\r\n";
    }
    // The first indented line shows one level.
    for (std::size_t end = firstLineEnd; end != std::string_view::npos; end = text.find('\n', end + 1)) {
        const std::size_t start = end + 1;
        const std::size_t content = text.find_first_not_of(" \t", start);
        if (content != std::string_view::npos && content > start && text[content] != '\n' && text[content] != '\r') {
            style.indentUnit = std::string(text.substr(start, content - start));
            break;
        }
    }
    bool colonFound = false;
    bool separatorFound = false;
    for (TextIndex::Value value = 0; value < index.Size() && !(colonFound && separatorFound); ++value) {
        if (!colonFound && index.IsMember(value)) {
            const std::size_t keyEnd = index.KeyEnd(value);
            const std::string_view colon = text.substr(keyEnd, index.Begin(value) - keyEnd);
            if (colon.find_first_of("/\n") == std::string_view::npos) {
                style.colon = std::string(colon);
                colonFound = true;
            }
        }
        if (!separatorFound && index.IsContainer(value)) {
            TextIndex::Value previous = TextIndex::kNone;
            for (TextIndex::Value child = TextIndex::FirstChild(value); child != index.SubtreeEnd(value);
                 child = index.NextSibling(child)) {
                if (previous != TextIndex::kNone) {
                    const std::size_t comma = index.SkipGap(index.End(previous));
                    const std::string_view gap = text.substr(comma + 1, index.Start(child) - comma - 1);
                    if (text[comma] == ',' && gap.find_first_not_of(" \t") == std::string_view::npos) {
                        style.separator = std::string(gap);
                        separatorFound = true;
                        break;
                    }
                }
                previous = child;
            }
        }
    }
    if (!separatorFound && style.colon && style.colon->size() > 1) {
        style.separator = " ";  // spaced after colons, so after commas
    }
    return style;
}

std::string ContainerText(const std::vector<NewChild>& children, bool array, const Placement& inner,
                          const std::string& closeIndent) {
    const char open = array ? '[' : '{';
    const char close = array ? ']' : '}';
    if (children.empty()) {
        return {open, close};
    }
    std::string text(1, open);
    for (std::size_t i = 0; i < children.size(); ++i) {
        if (i > 0) {
            text += ',';
        }
        text += inner.multiLine ? inner.style->lineEnd + inner.indent : (i > 0 ? inner.separator : "");
        if (!array) {
            text += children[i].keyText + inner.colon;
        }
        text += children[i].value(inner);
    }
    if (inner.multiLine) {
        text += inner.style->lineEnd + closeIndent;
    }
    text += close;
    return text;
}

std::string NestedContainerText(const std::vector<NewChild>& children, bool array, const Placement& outer) {
    Placement inner = outer;
    if (outer.multiLine) {
        inner.indent += outer.style->indentUnit;
    }
    return ContainerText(children, array, inner, outer.indent);
}

// One child of the container as its text lays it out.
struct ContainerEdit::Slot {
    std::size_t start;      // its key's quote, or its value
    std::size_t valueEnd;   // just past its value
    std::size_t comma;      // the comma after it, or kNowhere
    std::size_t tailEnd;    // past the comma and the comments on its line
    std::size_t lineStart;  // of its line, when it starts the line; else kNowhere
    bool reachesLineEnd;    // nothing but comments after it on its line
    // Whether it has its line, or lines, to itself.
    bool OwnsLines() const { return lineStart != kNowhere && reachesLineEnd; }
};

namespace {

// Where the comments on the line after offset end, and whether the line
// ends there.
std::pair<std::size_t, bool> TailOf(const TextIndex& index, std::size_t offset) {
    const std::string_view text = index.Text();
    std::size_t tail = offset;
    for (;;) {
        std::size_t at = tail;
        while (at < text.size() && IsBlank(text[at])) {
            ++at;
        }
        if (IsLineEnd(text, at)) {
            return {at, true};
        }
        if (!index.HasComments() || at + 1 >= text.size() || text[at] != '/') {
            return {tail, false};
        }
        if (text[at + 1] == '/') {
            const std::size_t lineEnd = text.find('\n', at);
            const std::size_t end = lineEnd == std::string_view::npos ? text.size() : lineEnd;
            return {end > at && text[end - 1] == '\r' ? end - 1 : end, lineEnd != std::string_view::npos};
        }
        const std::size_t close = text.find("*/", at + 2);
        if (text[at + 1] != '*' || close == std::string_view::npos ||
            text.substr(at, close - at).find('\n') != std::string_view::npos) {
            return {tail, false};
        }
        tail = close + 2;
    }
}

}  // namespace

ContainerEdit::ContainerEdit(const TextIndex& index, const DocumentStyle& style, TextIndex::Value container)
    : m_index(index),
      m_style(style),
      m_container(container),
      m_array(index.KindOf(container) == JsonText::Kind::Array) {
    for (TextIndex::Value child = TextIndex::FirstChild(container); child != index.SubtreeEnd(container);
         child = index.NextSibling(child)) {
        m_children.push_back(child);
    }
}

// Most containers are compared and left as they are: the plan is made only
// for those that change.
void ContainerEdit::MakePlan() {
    if (m_removed.empty()) {
        m_removed.assign(m_children.size(), false);
        m_inserted.resize(m_children.size() + 1);
    }
}

void ContainerEdit::Remove(std::size_t child) {
    MakePlan();
    m_removed[child] = true;
}

void ContainerEdit::Insert(std::size_t child, NewChild added) {
    MakePlan();
    m_inserted[child].push_back(std::move(added));
}

namespace {

// The blanks a line starts with, for the line that offset is on.
std::string IndentationAt(std::string_view text, std::size_t offset) {
    std::size_t start = offset;
    while (start > 0 && text[start - 1] != '\n') {
        --start;
    }
    std::size_t end = start;
    while (end < text.size() && IsBlank(text[end])) {
        ++end;
    }
    return std::string(text.substr(start, end - start));
}

// The deletions of one container, merged where they overlap.
std::vector<Splice> Merged(std::vector<Splice> deletions) {
    std::sort(deletions.begin(), deletions.end(), [](const Splice& a, const Splice& b) { return a.begin < b.begin; });
    std::vector<Splice> merged;
    for (Splice& deletion : deletions) {
        if (!merged.empty() && deletion.begin <= merged.back().end) {
            merged.back().end = std::max(merged.back().end, deletion.end);
        } else {
            merged.push_back(std::move(deletion));
        }
    }
    return merged;
}

bool InsideAny(const std::vector<Splice>& deletions, std::size_t offset) {
    return std::any_of(deletions.begin(), deletions.end(),
                       [offset](const Splice& d) { return d.begin <= offset && offset < d.end; });
}

}  // namespace

const Placement& ContainerEdit::ChildPlacement() const {
    if (m_placement) {
        return *m_placement;
    }
    const std::string_view text = m_index.Text();
    Placement placement{false, std::string(), m_style.colon.value_or(":"), m_style.separator, &m_style};
    const std::size_t open = m_index.Begin(m_container);
    const std::size_t close = m_index.End(m_container) - 1;
    bool indentFound = false;
    TextIndex::Value previous = TextIndex::kNone;
    bool colonFound = false;
    bool separatorFound = false;
    for (const TextIndex::Value child : m_children) {
        const std::size_t start = m_index.Start(child);
        const std::size_t lineStart = StartOfOwnLine(text, start);
        if (lineStart != kNowhere) {
            placement.multiLine = true;
            placement.indent = std::string(text.substr(lineStart, start - lineStart));
            indentFound = true;
        }
        if (!m_array) {
            const std::size_t keyEnd = m_index.KeyEnd(child);
            const std::string_view colon = text.substr(keyEnd, m_index.Begin(child) - keyEnd);
            if (colon.find_first_of("/\n") == std::string_view::npos) {
                placement.colon = std::string(colon);
                colonFound = true;
            }
        }
        if (previous != TextIndex::kNone && !separatorFound) {
            const std::size_t comma = m_index.SkipGap(m_index.End(previous));
            const std::string_view gap = text.substr(comma + 1, start - comma - 1);
            if (gap.find_first_not_of(" \t") == std::string_view::npos) {
                placement.separator = std::string(gap);
                separatorFound = true;
            }
        }
        previous = child;
    }
    if (m_children.empty() && text.substr(open, close - open).find('\n') != std::string_view::npos) {
        placement.multiLine = true;
    }
    if (!colonFound && !m_style.colon && placement.multiLine) {
        placement.colon = ": ";
    }
    if (placement.multiLine && !indentFound) {
        // One level in from the closing bracket, or from the line the
        // container starts on.
        const std::size_t closeLine = StartOfOwnLine(text, close);
        placement.indent = (closeLine != kNowhere ? std::string(text.substr(closeLine, close - closeLine))
                                                  : IndentationAt(text, open)) +
                           m_style.indentUnit;
    }
    m_placement = std::move(placement);
    return *m_placement;
}

Placement ContainerEdit::ValuePlacement(TextIndex::Value child) const {
    Placement placement = ChildPlacement();
    placement.indent = IndentationAt(m_index.Text(), m_index.Start(child));
    return placement;
}

std::string ContainerEdit::NewChildText(const NewChild& child) const {
    const Placement& placement = ChildPlacement();
    return m_array ? child.value(placement) : child.keyText + placement.colon + child.value(placement);
}

void ContainerEdit::Finish(std::vector<Splice>& out) const {
    if (m_inserted.empty()) {
        return;  // nothing planned
    }
    const std::string_view text = m_index.Text();
    const std::size_t count = m_children.size();
    std::vector<Slot> slots;
    slots.reserve(count);
    for (const TextIndex::Value child : m_children) {
        Slot slot{};
        slot.start = m_index.Start(child);
        slot.valueEnd = m_index.End(child);
        const std::size_t next = m_index.SkipGap(slot.valueEnd);
        slot.comma = text[next] == ',' ? next : kNowhere;
        const auto [tailEnd, lineEnds] = TailOf(m_index, slot.comma != kNowhere ? slot.comma + 1 : slot.valueEnd);
        slot.tailEnd = tailEnd;
        slot.reachesLineEnd = lineEnds;
        slot.lineStart = StartOfLineAfterComments(text, slot.start);
        slots.push_back(slot);
    }
    std::size_t lastKept = kNowhere;
    for (std::size_t i = 0; i < count; ++i) {
        if (!m_removed[i]) {
            lastKept = i;
        }
    }
    if (lastKept == kNowhere) {
        FinishWithoutChildren(out);
        return;
    }
    const bool trailing = slots.back().comma != kNowhere;

    // The children that go: their own lines when they have them; else up
    // to the next child; the last one from the end of the last that stays,
    // its comma included.
    std::vector<Splice> deletions;
    for (std::size_t i = 0; i < count; ++i) {
        if (!m_removed[i]) {
            continue;
        }
        const Slot& slot = slots[i];
        if (slot.OwnsLines()) {
            deletions.push_back({slot.lineStart, PastLineEnd(text, slot.tailEnd), {}});
        } else if (i + 1 < count) {
            deletions.push_back({slot.start, slots[i + 1].start, {}});
        } else if (slots[lastKept].reachesLineEnd) {
            // The lines after the last one that stays, which keeps its own.
            const std::size_t end = slot.reachesLineEnd ? PastLineEnd(text, slot.tailEnd) : slot.tailEnd;
            deletions.push_back({PastLineEnd(text, slots[lastKept].tailEnd), end, {}});
        } else {
            deletions.push_back({slots[lastKept].valueEnd, slot.tailEnd, {}});
        }
    }
    deletions = Merged(std::move(deletions));

    std::vector<Splice> insertions;
    const Placement placement = ChildPlacement();
    // New children before one that stays.
    for (std::size_t j = 0; j < count; ++j) {
        if (m_inserted[j].empty() || m_removed[j]) {
            continue;
        }
        const Slot& slot = slots[j];
        const bool ownLines = slot.OwnsLines() && (j == 0 || slots[j - 1].OwnsLines());
        std::size_t at = slot.start;
        if (ownLines) {
            // Above the comments over that child, which stay with it.
            at = j == 0 ? text.find('\n', m_index.Begin(m_container)) + 1 : PastLineEnd(text, slots[j - 1].tailEnd);
        }
        std::string added;
        for (const NewChild& child : m_inserted[j]) {
            added += ownLines ? placement.indent + NewChildText(child) + "," + m_style.lineEnd
                              : NewChildText(child) + "," + placement.separator;
        }
        insertions.push_back({at, at, std::move(added)});
    }

    // Commas: after every child but the last, and after the last too where
    // the container has a trailing comma.
    const std::vector<NewChild>& atEnd = m_inserted[count];
    std::vector<Splice> commaDeletions;
    bool lastKeptHasComma = false;
    for (std::size_t k = 0; k < count; ++k) {
        if (m_removed[k]) {
            continue;
        }
        const Slot& slot = slots[k];
        const bool wanted = k != lastKept || !atEnd.empty() || trailing;
        const bool has = slot.comma != kNowhere && !InsideAny(deletions, slot.comma);
        if (wanted && !has) {
            insertions.push_back({slot.valueEnd, slot.valueEnd, ","});
        } else if (!wanted && has) {
            commaDeletions.push_back({slot.comma, slot.comma + 1, {}});
        }
        if (k == lastKept) {
            lastKeptHasComma = has;
        }
    }

    // New children at the end, after the last child that stays.
    if (!atEnd.empty()) {
        const Slot& last = slots[lastKept];
        // After a child whose line ends with it (a comment there, say), on
        // lines of their own.
        const bool ownLines = last.reachesLineEnd;
        const std::string indent =
            !ownLines || placement.multiLine ? placement.indent : IndentationAt(text, last.start) + m_style.indentUnit;
        std::string added;
        for (std::size_t i = 0; i < atEnd.size(); ++i) {
            const bool comma = i + 1 < atEnd.size() || trailing;
            added += ownLines ? indent + NewChildText(atEnd[i]) + (comma ? "," : "") + m_style.lineEnd
                              : placement.separator + NewChildText(atEnd[i]) + (comma ? "," : "");
        }
        const std::size_t at = ownLines           ? PastLineEnd(text, last.tailEnd)
                               : lastKeptHasComma ? last.comma + 1
                                                  : last.valueEnd;
        insertions.push_back({at, at, std::move(added)});
    }
    out.insert(out.end(), insertions.begin(), insertions.end());
    out.insert(out.end(), deletions.begin(), deletions.end());
    out.insert(out.end(), commaDeletions.begin(), commaDeletions.end());
}

// A container that has, or keeps, no children: its inside is written anew
// around the new ones, on lines of their own when its brackets are on
// different lines.
void ContainerEdit::FinishWithoutChildren(std::vector<Splice>& out) const {
    const std::string_view text = m_index.Text();
    const std::size_t open = m_index.Begin(m_container);
    const std::size_t close = m_index.End(m_container) - 1;
    const std::string_view inside = text.substr(open + 1, close - open - 1);
    std::vector<const NewChild*> added;
    for (const std::vector<NewChild>& group : m_inserted) {
        for (const NewChild& child : group) {
            added.push_back(&child);
        }
    }
    if (!m_children.empty() && added.empty()) {
        out.push_back({open + 1, close, {}});
        return;
    }
    if (added.empty()) {
        return;
    }
    const Placement placement = ChildPlacement();
    std::string joined;
    for (std::size_t i = 0; i < added.size(); ++i) {
        const std::string child = NewChildText(*added[i]);
        if (placement.multiLine) {
            joined += placement.indent + child + (i + 1 < added.size() ? "," : "") + m_style.lineEnd;
        } else {
            joined += (i > 0 ? "," + placement.separator : std::string()) + child;
        }
    }
    const bool blank = IsWhiteSpace(inside);
    if (!placement.multiLine) {
        // "{ }" keeps its spaces around what it now holds.
        out.push_back(blank && m_children.empty()
                          ? Splice{open + 1, close, std::string(inside) + joined + std::string(inside)}
                          : Splice{open + 1, close, joined});
        return;
    }
    const std::size_t closeLine = StartOfOwnLine(text, close);
    if (m_children.empty() && !blank && closeLine != kNowhere) {
        out.push_back({closeLine, closeLine, joined});  // below the comments inside
        return;
    }
    const std::string closeIndent =
        closeLine != kNowhere ? std::string(text.substr(closeLine, close - closeLine)) : IndentationAt(text, open);
    out.push_back({open + 1, close, m_style.lineEnd + joined + closeIndent});
}

}  // namespace Tarsel::Core::Json
