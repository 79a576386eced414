// The text a saved tree must have, written from the documented mapping alone
// and through the public operations only, independently of the library's
// writer: the serializer tests and the JSON fuzz target check against it.
#pragma once

#include "support/DoubleText.h"

#include <Core/Interfaces/Property.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TarselTest {

// RapidJSON's escaping: '"', '\' and the control characters, the common ones
// by letter, the others as \u00XX with capital hexadecimal digits.
inline void AppendSavedString(std::string_view text, std::string& out) {
    out += '"';
    for (const char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                char escape[8];
                std::snprintf(escape, sizeof escape, "\\u%04X", static_cast<unsigned>(c));
                out += escape;
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

// A member's key: the child's name up to its first zero character.
inline std::string_view SavedKey(const Tarsel::Core::Property& child) {
    return std::string_view(child.GetName().c_str());
}

// Which child's value each member of a container's object holds (null:
// none). Children sharing a key all write into the first member of that
// key, the last one winning, and leave their own members null.
inline std::vector<const Tarsel::Core::Property*> SavedMemberSources(const Tarsel::Core::Property& container) {
    std::vector<const Tarsel::Core::Property*> children;
    std::vector<std::pair<std::string_view, std::size_t>> keys;
    for (const Tarsel::Core::Property& child : container) {
        keys.emplace_back(SavedKey(child), children.size());
        children.push_back(&child);
    }
    // Sorted by key, and within a key by position.
    std::sort(keys.begin(), keys.end());
    std::vector<const Tarsel::Core::Property*> sources(children.size(), nullptr);
    for (std::size_t first = 0; first < keys.size();) {
        std::size_t last = first;
        while (last + 1 < keys.size() && keys[last + 1].first == keys[first].first) {
            ++last;
        }
        sources[keys[first].second] = children[keys[last].second];
        first = last + 1;
    }
    return sources;
}

// Appends the value of node as saved: a container as an object with one
// member per child, in order. Recursive: for trees of moderate depth.
inline void AppendSavedValue(const Tarsel::Core::Property& node, std::string& out) {
    using namespace Tarsel;
    switch (node.GetType()) {
    case TypeBool:
        out += node.GetBool() ? "true" : "false";
        break;
    case TypeDouble:
        out += std::isfinite(node.GetDouble()) ? SavedDoubleText(node.GetDouble()) : "null";
        break;
    case TypeInt64:
        out += std::to_string(node.GetInt64());
        break;
    case TypeString:
        AppendSavedString(node.GetString(), out);
        break;
    case TypeRatio:
        AppendSavedString(Core::PropertyValueToString(node), out);
        break;
    case TypeArray: {
        const std::vector<const Core::Property*> sources = SavedMemberSources(node);
        std::size_t index = 0;
        out += '{';
        for (const Core::Property& child : node) {
            if (index > 0) {
                out += ',';
            }
            AppendSavedString(SavedKey(child), out);
            out += ':';
            if (sources[index] == nullptr) {
                out += "null";
            } else {
                AppendSavedValue(*sources[index], out);
            }
            ++index;
        }
        out += '}';
        break;
    }
    default:
        out += "null";
    }
}

// What PropertySerializer::Serialize writes for root.
inline std::string SavedJsonText(const Tarsel::Core::Property& root, bool wrapRoot) {
    std::string text;
    if (wrapRoot) {
        text += '{';
        AppendSavedString(SavedKey(root), text);
        text += ':';
    }
    AppendSavedValue(root, text);
    if (wrapRoot) {
        text += '}';
    }
    return text;
}

}  // namespace TarselTest
