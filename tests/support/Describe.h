// The whole of a small tree as one line of text, types included, for tests
// that check a tree is exactly what they expect or unchanged.
#pragma once

#include <Core/Interfaces/Property.h>

#include <string>

namespace TarselTest {

// name<type>value, a container's children in braces: "p<6>{a<3>1,b<4>x}".
// Recursive: for the small trees of tests.
inline std::string Describe(const Tarsel::Core::Property& p) {
    std::string text = p.GetName() + "<" + std::to_string(p.GetType()) + ">";
    if (p.GetType() != Tarsel::TypeArray) {
        return text + Tarsel::Core::PropertyValueToString(p);
    }
    const char* separator = "{";
    for (const Tarsel::Core::Property& child : p) {
        text += separator + Describe(child);
        separator = ",";
    }
    return text + (p.Count() == 0 ? "{}" : "}");
}

}  // namespace TarselTest
