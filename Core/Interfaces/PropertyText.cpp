// This file implements the text forms of property values: the value text and
// the printed tree.
#include <Core/Interfaces/Property.h>

#include <ostream>
#include <sstream>

namespace Tarsel::Core {

std::string PropertyValueToString(const Property& property) {
    std::ostringstream out;
    switch (property.GetType()) {
    case TypeBool:
        out << property.GetBool();
        break;
    case TypeDouble:
        out << property.GetDouble();
        break;
    case TypeInt64:
        out << property.GetInt64();
        break;
    case TypeString:
        out << property.GetString();
        break;
    case TypeRatio:
        out << StringFromRatio(property.GetRatio());
        break;
    default:
        ThrowWithCallStack(TARSEL_THROW_SITE("std::string Tarsel::Core::PropertyValueToString(const Core::Property &)"),
                           PropertyException(), TagDescription("Wrong property type"));
    }
    return out.str();
}

void PrintPropertyValue(const Property& property, int indent, std::ostream& out, bool printName, bool newLine) {
    for (int i = 0; i < indent; ++i) {
        out << '\t';
    }
    if (printName) {
        out << property.GetName() << ": ";
    }
    switch (property.GetType()) {
    case TypeEmpty:
        out << "Empty";
        break;
    case TypeBool:
        out << property.GetBool();
        break;
    case TypeDouble:
        out << property.GetDouble();
        break;
    case TypeInt64:
        out << property.GetInt64();
        break;
    case TypeString:
        out << property.GetString();
        break;
    case TypeRatio:
        out << property.GetRatio().numerator() << '/' << property.GetRatio().denominator();
        break;
    case TypeArray:
        out << "Array" << std::endl;
        for (const Property& child : property) {
            PrintPropertyValue(child, indent + 1, out, true, true);
        }
        break;
    }
    if (newLine) {
        out << std::endl;
    }
}

}  // namespace Tarsel::Core
