// This file implements the text forms of property values: the value text and
// the printed tree.
#include <Core/Interfaces/Property.h>

#include <ostream>
#include <sstream>

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
    std::ostringstream out;
    if (!WriteScalar(property, out)) {
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
    if (property.GetType() == TypeEmpty) {
        out << "Empty";
    } else if (property.GetType() == TypeArray) {
        out << "Array" << std::endl;
        for (const Property& child : property) {
            PrintPropertyValue(child, indent + 1, out, true, true);
        }
    } else {
        WriteScalar(property, out);
    }
    if (newLine) {
        out << std::endl;
    }
}

}  // namespace Tarsel::Core
