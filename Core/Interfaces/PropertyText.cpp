// This file implements the text forms of property values: the value text and
// the printed tree.
#include <Core/Interfaces/Property.h>

#include <Core/Interfaces/internal/TextStream.h>
#include <Core/Interfaces/internal/ThrowSignatures.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

namespace Tarsel::Core {

namespace {

// Writes a scalar's value in out's formatting (a bool as 1 or 0, a double
// with out's precision, a ratio as n/d); false, writing nothing, for Empty
// and containers.
bool WriteScalar(const Property& property, std::ostream& out) {
    switch (property.GetType()) {
    case TypeBool:
        out << property.GetBool();
        return true;
    case TypeDouble:
        out << property.GetDouble();
        return true;
    case TypeInt64:
        out << property.GetInt64();
        return true;
    case TypeString:
        out << property.GetString();
        return true;
    case TypeRatio:
        out << property.GetRatio().numerator() << '/' << property.GetRatio().denominator();
        return true;
    default:
        return false;
    }
}

}  // namespace

std::string PropertyValueToString(const Property& property) {
    TextStream out;
    if (!WriteScalar(property, out)) {
        ThrowWithCallStack(TARSEL_THROW_SITE(Signatures::PropertyValueToString), PropertyException(),
                           TagDescription("Wrong property type"));
    }
    return out.str();
}

namespace {

// Writes count tabs (none for a count of 0 or less). A few go out one by one
// as the stream formats a character (a field width set beforehand pads the
// first), the cheapest way for the lines of an ordinary tree; the rest of a
// deep line goes out in runs from tabs, which doubles as the tree deepens
// (up to a cap), so that it costs a write or two rather than one per tab.
void WriteIndent(std::ostream& out, long long count, std::string& tabs) {
    constexpr long long kOneByOne = 16;
    constexpr std::size_t kLongestRun = 1 << 20;
    for (long long i = 0; i < count && i < kOneByOne; ++i) {
        out << '\t';
    }
    for (long long left = count - kOneByOne; left > 0;) {
        const std::size_t run = static_cast<std::size_t>(std::min<long long>(left, kLongestRun));
        if (tabs.size() < run) {
            tabs.assign(std::min(kLongestRun, std::max(run, 2 * tabs.size())), '\t');
        }
        out.write(tabs.data(), static_cast<std::streamsize>(run));
        left -= static_cast<long long>(run);
    }
}

// Writes a node's line up to its value: the indentation, the name, then
// "Empty", a scalar's value, or "Array" and its line end. Returns whether the
// node is a container whose children come next.
bool WriteNodeHead(const Property& node, long long indent, bool printName, std::ostream& out, std::string& tabs) {
    WriteIndent(out, indent, tabs);
    if (printName) {
        out << node.GetName() << ": ";
    }
    switch (node.GetType()) {
    case TypeEmpty:
        out << "Empty";
        return false;
    case TypeArray:
        out << "Array" << std::endl;
        return true;
    default:
        WriteScalar(node, out);
        return false;
    }
}

}  // namespace

// The containers still open are held in an explicit stack: a tree may be
// deeper than any thread's stack could recurse. Indentation is counted in
// long long, so that no indent overflows however deep the tree.
void PrintPropertyValue(const Property& property, int indent, std::ostream& out, bool printName, bool newLine) {
    struct Open {
        Property::const_iterator next;
        Property::const_iterator end;
        bool newLine;
    };
    std::vector<Open> open;
    std::string tabs;
    const auto print = [&](const Property& node, bool name, bool lineEnd) {
        const long long nodeIndent = indent + static_cast<long long>(open.size());
        if (WriteNodeHead(node, nodeIndent, name, out, tabs)) {
            open.push_back({node.begin(), node.end(), lineEnd});
        } else if (lineEnd) {
            out << std::endl;
        }
    };
    print(property, printName, newLine);
    while (!open.empty()) {
        Open& top = open.back();
        if (top.next == top.end) {
            const bool lineEnd = top.newLine;
            open.pop_back();
            if (lineEnd) {
                out << std::endl;
            }
            continue;
        }
        print(*top.next++, true, true);  // may invalidate top
    }
}

}  // namespace Tarsel::Core
