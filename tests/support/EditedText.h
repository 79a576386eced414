// A settings text as people write one by hand, and an application's changes
// to the tree loaded from it, both made at random from a source of choices;
// and the promises of PropertySerializer::UpdateText checked on them: the
// updated text loads to exactly what a plain exact save of the changed tree
// loads to, and every value that the changes did not touch keeps its bytes
// (its key's too). Shared by UpdateTextFuzz, which draws the choices from
// its input, and a seeded test of the suite.
#pragma once

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/JsonText.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <list>
#include <random>
#include <string>
#include <vector>

namespace TarselTest {

// Choices read from bytes, and past their end from a generator seeded by
// them, so that any input makes a whole case.
class Choices {
public:
    Choices(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size), m_random(Seed(data, size)) {}
    explicit Choices(std::uint64_t seed) : m_random(seed) {}

    // A number below count (at least 1).
    unsigned Below(unsigned count) {
        const unsigned drawn = m_at < m_size ? m_data[m_at++] : static_cast<unsigned>(m_random() & 0xFF);
        return drawn % count;
    }
    bool OneIn(unsigned count) { return Below(count) == 0; }
    template <class T, std::size_t N>
    const T& Pick(const T (&items)[N]) {
        return items[Below(N)];
    }

private:
    static std::uint64_t Seed(const std::uint8_t* data, std::size_t size) {
        std::uint64_t seed = 0x9E3779B97F4A7C15ULL;
        for (std::size_t i = 0; i < size; ++i) {
            seed = (seed ^ data[i]) * 0x100000001B3ULL;
        }
        return seed;
    }

    const std::uint8_t* m_data = nullptr;
    std::size_t m_size = 0;
    std::size_t m_at = 0;
    std::mt19937_64 m_random;
};

// Writes a random document in a random hand-made layout.
class HandWritten {
public:
    HandWritten(Choices& choices, bool comments) : m_choices(choices), m_comments(comments) {
        static const char* const kIndents[] = {"", "  ", "    ", "\t", "  "};
        static const char* const kColons[] = {":", ": ", " : ", ": "};
        m_indent = m_choices.Pick(kIndents);
        m_lineEnd = m_choices.OneIn(4) ? "\r\n" : "\n";
        m_colon = m_choices.Pick(kColons);
        m_separator = m_colon.size() > 1 ? " " : "";
    }

    std::string Document() {
        std::string text = Gap(true);
        text += m_choices.OneIn(4) ? Array(0, "") : Object(0, "");
        return text + Gap(true) + (m_choices.OneIn(2) ? m_lineEnd : "");
    }

private:
    std::string Value(int depth, const std::string& indent, const std::string& key) {
        if (key == "frameRateRatio" && m_choices.OneIn(2)) {
            static const char* const kRatios[] = {"\"12/24\"", "\"30000/1001\"", "\"0/5\"", "\"25\""};
            return m_choices.Pick(kRatios);
        }
        switch (m_choices.Below(depth < 3 ? 8 : 5)) {
        case 0: {
            static const char* const kLiterals[] = {"null", "true", "false"};
            return m_choices.Pick(kLiterals);
        }
        case 1: {
            static const char* const kIntegers[] = {"0",
                                                    "-0",
                                                    "7",
                                                    "-42",
                                                    "9223372036854775807",
                                                    "9223372036854775808",
                                                    "18446744073709551615",
                                                    "18446744073709551616",
                                                    "123456789012345678901234567890"};
            return m_choices.Pick(kIntegers);
        }
        case 2: {
            static const char* const kDoubles[] = {"1.5",   "1.50",      "15e-1", "0.1",      "0.10000000000000001",
                                                   "1e5",   "1E+2",      "-0.0",  "2.5e-308", "1.7976931348623157e308",
                                                   "29.97", "52.520008", "0e400"};
            return m_choices.Pick(kDoubles);
        }
        case 3:
        case 4: {
            static const char* const kStrings[] = {"\"x\"",        "\"caf\\u00e9\"", "\"\xC3\xA9t\xC3\xA9\"",
                                                   "\"a\\\"b\"",   "\"tab\\t\"",     "\"\"",
                                                   "\"\\u0000z\"", "\"12/24\"",      "\"\\/\""};
            return m_choices.Pick(kStrings);
        }
        case 5:
        case 6:
            return Object(depth + 1, indent);
        default:
            return Array(depth + 1, indent);
        }
    }

    std::string Key() {
        // Spellings of the same names among them: escaped and not, cut at a
        // zero character.
        static const char* const kKeys[] = {
            "\"a\"",          "\"b\"",           "\"c\"", "\"volume\"", "\"frameRateRatio\"", "\"x\\u0000y\"",
            "\"caf\\u00e9\"", "\"caf\xC3\xA9\"", "\"0\"", "\"1\"",      "\"\\u0061\"",        "\"d/e\""};
        return m_choices.Pick(kKeys);
    }

    std::string Object(int depth, const std::string& indent) { return Container(depth, indent, true); }
    std::string Array(int depth, const std::string& indent) { return Container(depth, indent, false); }

    std::string Container(int depth, const std::string& indent, bool object) {
        const unsigned count = m_choices.Below(depth == 0 ? 6 : 5);
        const bool lines = !m_indent.empty() && m_choices.Below(4) != 0;
        const bool trailing = m_comments && count > 0 && m_choices.OneIn(3);
        const std::string inner = lines ? indent + m_indent : indent;
        std::string text(1, object ? '{' : '[');
        for (unsigned i = 0; i < count; ++i) {
            text += lines ? m_lineEnd + inner : (i > 0 ? m_separator : std::string());
            text += LeadingComment();
            std::string key;
            if (object) {
                key = Key();
                text += key + m_colon + InlineComment();
            }
            text += Value(depth, inner, object ? key.substr(1, key.size() - 2) : std::string());
            if (i + 1 < count || trailing) {
                text += ",";
            }
            if (lines) {
                text += LineComment();
            }
        }
        if (lines && count > 0) {
            text += m_lineEnd + indent;
        }
        return text + (object ? '}' : ']');
    }

    std::string Gap(bool lines) {
        if (!m_comments || !m_choices.OneIn(3)) {
            return "";
        }
        return lines ? "// settings" + m_lineEnd : "/* note */ ";
    }
    std::string LeadingComment() { return m_comments && m_choices.OneIn(6) ? "/* lead */ " : ""; }
    std::string InlineComment() { return m_comments && m_choices.OneIn(8) ? "/* value */ " : ""; }
    std::string LineComment() { return m_comments && m_choices.OneIn(4) ? " // line" : ""; }

    Choices& m_choices;
    const bool m_comments;
    std::string m_indent;
    std::string m_lineEnd;
    std::string m_colon;
    std::string m_separator;
};

// A change of the tree, at a path of names (the names a load gives).
struct Change {
    enum Kind { Set, Remove, Add, Reorder } kind;
    std::vector<std::string> path;  // the node set or removed; the container added to or reordered
};

// Makes random changes to tree, as an application would, and records them.
class Changer {
public:
    explicit Changer(Choices& choices) : m_choices(choices) {}

    std::vector<Change> Make(Tarsel::Core::Property& tree) {
        std::vector<struct Change> changes;
        const unsigned count = m_choices.Below(4);
        for (unsigned i = 0; i < count; ++i) {
            std::vector<std::string> path;
            Tarsel::Core::Property& container = RandomContainer(tree, path);
            ChangeOne(container, path, changes);
        }
        return changes;
    }

private:
    Tarsel::Core::Property& RandomContainer(Tarsel::Core::Property& tree, std::vector<std::string>& path) {
        Tarsel::Core::Property* node = &tree;
        while (node->Count() > 0 && m_choices.OneIn(2)) {
            Tarsel::Core::Property& child = (*node)[std::size_t{m_choices.Below(static_cast<unsigned>(node->Count()))}];
            if (child.GetType() != Tarsel::TypeArray) {
                break;
            }
            path.push_back(child.GetName());
            node = &child;
        }
        return *node;
    }

    Tarsel::Core::Property RandomScalar(const std::string& name) {
        switch (m_choices.Below(6)) {
        case 0:
            return Tarsel::Core::Property(name, m_choices.OneIn(2));
        case 1:
            return Tarsel::Core::Property(name, static_cast<long long>(m_choices.Below(200)) - 100);
        case 2:
            return Tarsel::Core::Property(name, (static_cast<double>(m_choices.Below(200)) - 100) / 7.0);
        case 3:
            return Tarsel::Core::Property(name, Tarsel::Ratio(1 + m_choices.Below(60), 1 + m_choices.Below(3)));
        case 4: {
            Tarsel::Core::Property container(name);
            container.SetChildT<long long>("n", m_choices.Below(9));
            return container;
        }
        default:
            return Tarsel::Core::Property(name, std::string(m_choices.OneIn(2) ? "new" : "caf\xC3\xA9"));
        }
    }

    static std::vector<std::string> Below(std::vector<std::string> path, const std::string& name) {
        path.push_back(name);
        return path;
    }

    void ChangeOne(Tarsel::Core::Property& container, const std::vector<std::string>& path,
                   std::vector<struct Change>& changes) {
        static const char* const kNames[] = {"a", "volume", "new", "frameRateRatio", "0", "z"};
        const std::size_t count = container.Count();
        switch (m_choices.Below(5)) {
        case 0:  // a value set, or a new one
        case 1: {
            const std::string name =
                count > 0 && m_choices.OneIn(2)
                    ? container[std::size_t{m_choices.Below(static_cast<unsigned>(count))}].GetName()
                    : std::string(m_choices.Pick(kNames));
            const bool existed = container.ChildExists(name);
            container.SetChild(name, RandomScalar(name));
            changes.push_back({existed ? Change::Set : Change::Add, existed ? Below(path, name) : path});
            break;
        }
        case 2:  // a child removed
            if (count > 0) {
                const std::string name =
                    container[std::size_t{m_choices.Below(static_cast<unsigned>(count))}].GetName();
                container.RemoveChild(name);
                changes.push_back({Change::Remove, Below(path, name)});
            }
            break;
        case 3:  // an element appended, named by the count: a name the
                 // container may hold already, which then loads as nothing
            if (container.ChildExists(std::to_string(count))) {
                changes.push_back({Change::Set, Below(path, std::to_string(count))});
            }
            container.Add(RandomScalar(""));
            changes.push_back({Change::Add, path});
            break;
        default:  // the first child moved to the end
            if (count > 1) {
                Tarsel::Core::Property first = container[std::size_t{0}];
                container.RemoveChild(std::size_t{0});
                container.SetChild(first.GetName(), first);
                changes.push_back({Change::Reorder, path});
            }
        }
    }

    Choices& m_choices;
};

// Whether the value at path in the original text was left alone by every
// change: none at it or inside it, none that replaced or removed a node
// around it.
inline bool Untouched(const std::vector<std::string>& path, const std::vector<Change>& changes) {
    for (const Change& change : changes) {
        const std::size_t common = std::min(path.size(), change.path.size());
        if (!std::equal(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(common), change.path.begin())) {
            continue;  // elsewhere
        }
        if (change.path.size() >= path.size()) {
            return false;  // at it or inside it
        }
        if (change.kind == Change::Set || change.kind == Change::Remove) {
            return false;  // around it
        }
    }
    return true;
}

// Loads text; a loaded tree written exactly, names, types, order and doubles
// bit for bit.
inline std::string LoadedExactly(const std::string& text, Tarsel::Core::PropertySerializer::JsonSyntax syntax) {
    Tarsel::Core::Property loaded("settings");
    Tarsel::Core::PropertySerializer::Deserialize(loaded, Tarsel::Core::MemoryDataInput::Create(text), false, syntax);
    const auto output = Tarsel::Core::MemoryDataOutput::Create();
    Tarsel::Core::PropertySerializer::Serialize(loaded, output, false,
                                                Tarsel::Core::PropertySerializer::DoubleText::RoundTrip);
    return output->GetData();
}

// Every value of json with its path of names: members by name, elements by
// index; the last member of a repeated name only, as a load keeps it.
inline void ValuePaths(const Tarsel::Core::JsonText& json, Tarsel::Core::JsonText::Value value,
                       std::vector<std::string>& path,
                       std::vector<std::pair<std::vector<std::string>, Tarsel::Core::JsonText::Value>>& out) {
    out.emplace_back(path, value);
    std::size_t index = 0;
    for (const Tarsel::Core::JsonText::Value child : json.ChildrenOf(value)) {
        const bool member = json.IsMember(child);
        const std::string name = member ? json.Key(child) : std::to_string(index);
        ++index;
        if (member && json.Member(value, name) != child) {
            continue;
        }
        path.push_back(name);
        ValuePaths(json, child, path, out);
        path.pop_back();
    }
}

// One case made from choices: a text, changes, the update, its checks.
// Returns what broke, empty when nothing did.
inline std::string CheckUpdate(Choices& choices) {
    using Tarsel::Core::JsonText;
    using Tarsel::Core::PropertySerializer;
    const PropertySerializer::JsonSyntax syntax =
        choices.OneIn(2) ? PropertySerializer::JsonSyntax::WithComments : PropertySerializer::JsonSyntax::Strict;
    const std::string text = HandWritten(choices, syntax == PropertySerializer::JsonSyntax::WithComments).Document();
    Tarsel::Core::Property tree("settings");
    PropertySerializer::Deserialize(tree, Tarsel::Core::MemoryDataInput::Create(text), false, syntax);
    const std::vector<Change> changes = Changer(choices).Make(tree);
    const std::string updated =
        PropertySerializer::UpdateText(tree, text, false, PropertySerializer::DoubleText::RoundTrip, syntax);
    const std::string unchangedSixDigits =
        changes.empty()
            ? PropertySerializer::UpdateText(tree, text, false, PropertySerializer::DoubleText::SixDigits, syntax)
            : text;
    const auto failure = [&](const std::string& what) {
        return what + "\n--- text:\n" + text + "\n--- updated:\n" + updated + "\n";
    };
    if (changes.empty() && (updated != text || unchangedSixDigits != text)) {
        return failure("an unchanged tree changed the text");
    }
    const auto plain = Tarsel::Core::MemoryDataOutput::Create();
    PropertySerializer::Serialize(tree, plain, false, PropertySerializer::DoubleText::RoundTrip);
    std::string loaded;
    try {
        loaded = LoadedExactly(updated, syntax);
    } catch (const std::exception& e) {
        return failure(std::string("the updated text does not load: ") + e.what());
    }
    if (loaded != LoadedExactly(plain->GetData(), PropertySerializer::JsonSyntax::Strict)) {
        return failure("loads to " + loaded + ", a plain save to " + plain->GetData());
    }
    const JsonText before(text, syntax, JsonText::Rules::Json);
    const JsonText after(updated, syntax, JsonText::Rules::Json);
    std::vector<std::pair<std::vector<std::string>, JsonText::Value>> values;
    std::vector<std::string> path;
    ValuePaths(before, before.Root(), path, values);
    for (const auto& [valuePath, value] : values) {
        if (!Untouched(valuePath, changes)) {
            continue;
        }
        const JsonText::Reach reach = after.Follow(valuePath);
        std::string where;
        for (const std::string& name : valuePath) {
            where += "/" + name;
        }
        if (reach.matched != valuePath.size() || after.Spelling(reach.value) != before.Spelling(value)) {
            return failure("the untouched value at " + where + " lost its bytes");
        }
        if (before.IsMember(value) && after.KeySpelling(reach.value) != before.KeySpelling(value)) {
            return failure("the untouched member at " + where + " lost its key's bytes");
        }
    }
    return {};
}

}  // namespace TarselTest
