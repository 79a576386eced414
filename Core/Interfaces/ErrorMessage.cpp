// This file turns the exceptions the library throws into one line of plain
// English each, from their records: the one place where records become words.
#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/Property.h>

#include <boost/exception/get_error_info.hpp>
#include <boost/filesystem/exception.hpp>
#include <utf8.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <new>
#include <string>
#include <system_error>

namespace Tarsel {

namespace {

using namespace Core;

const char* TypeName(PropertyTypes type) {
    switch (type) {
    case TypeEmpty:
        return "Empty";
    case TypeBool:
        return "Bool";
    case TypeDouble:
        return "Double";
    case TypeInt64:
        return "Int64";
    case TypeString:
        return "String";
    case TypeRatio:
        return "Ratio";
    case TypeArray:
        return "Array";
    }
    return "an unknown type";
}

template <class Tag>
auto Record(const std::exception& e) -> decltype(boost::get_error_info<Tag>(e)) {
    return boost::get_error_info<Tag>(e);
}

template <class Tag>
std::string Text(const std::exception& e) {
    const auto* value = Record<Tag>(e);
    return value == nullptr ? std::string("?") : *value;
}

template <class Tag>
std::string Number(const std::exception& e) {
    const auto* value = Record<Tag>(e);
    return value == nullptr ? std::string("?") : std::to_string(*value);
}

template <class Tag>
std::string Type(const std::exception& e) {
    const auto* value = Record<Tag>(e);
    return value == nullptr ? std::string("?") : TypeName(*value);
}

std::string Quoted(const std::string& name) {
    return "'" + name + "'";
}

std::string Hex(unsigned value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "%0*X", digits, value);
    return text;
}

std::string FirstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

// The property family: each names the node it concerns.
std::string PropertyMessage(const PropertyException& e) {
    const std::string node = Quoted(Text<PropertyException::TagPropertyName>(e));
    if (dynamic_cast<const WrongTypeIsRequested*>(&e) != nullptr) {
        return "wrong type requested at " + node + ": holds " + Type<PropertyException::TagPropertyType>(e) +
               ", asked for " + Type<PropertyException::TagRequestedType>(e);
    }
    if (dynamic_cast<const ChildNameIsNotFound*>(&e) != nullptr) {
        return "no child " + Quoted(Text<PropertyException::TagRequestedChildName>(e)) + " in " + node;
    }
    if (dynamic_cast<const IndexIsOutOfBound*>(&e) != nullptr) {
        const auto* count = Record<PropertyException::TagChildCount>(e);
        return "no child at index " + Number<PropertyException::TagRequestedChildIndex>(e) + " in " + node +
               ", which has " + Number<PropertyException::TagChildCount>(e) +
               (count != nullptr && *count == 1 ? " child" : " children");
    }
    if (dynamic_cast<const MethodIsNotApplicable*>(&e) != nullptr) {
        return Text<PropertyException::TagMethodName>(e) + " does not apply to " + node + ", which holds " +
               Type<PropertyException::TagPropertyType>(e);
    }
    if (dynamic_cast<const ComparedPropertiesHaveDifferentTypes*>(&e) != nullptr) {
        return "compared properties have different types at " + node + ": " +
               Type<PropertyException::TagPropertyType>(e) + " vs " + Type<PropertyException::TagOtherPropertyType>(e);
    }
    const std::string* description = Record<TagDescription>(e);
    return description != nullptr ? *description : "a property operation failed";
}

// "at 12:5: " where the records say where, "" where they do not.
std::string Where(const std::exception& e) {
    const std::size_t* line = Record<JsonException::TagParseLine>(e);
    const std::size_t* column = Record<JsonException::TagParseColumn>(e);
    if (line == nullptr || column == nullptr) {
        return ": ";
    }
    return " at " + std::to_string(*line) + ":" + std::to_string(*column) + ": ";
}

std::string JsonMessage(const JsonException& e) {
    const std::string* reason = Record<JsonException::TagParseReason>(e);
    if (reason == nullptr) {
        reason = Record<JsonException::TagParseError>(e);
    }
    return "JSON parse error" + (reason == nullptr ? std::string() : Where(e) + *reason);
}

std::string LibraryMessage(const Exception& e) {
    if (const auto* property = dynamic_cast<const PropertyException*>(&e)) {
        return PropertyMessage(*property);
    }
    if (const auto* json = dynamic_cast<const JsonException*>(&e)) {
        return JsonMessage(*json);
    }
    const std::string* description = Record<TagDescription>(e);
    std::string message = description != nullptr ? *description : "an error without a description";
    if (const int* blockSize = Record<MemoryException::TagBlockSize>(e)) {
        message += " (a block of " + std::to_string(*blockSize) + " bytes)";
    }
    return message;
}

std::string Utf8Message(const utf8::exception& e) {
    if (const auto* invalid = dynamic_cast<const utf8::invalid_utf8*>(&e)) {
        return "invalid UTF-8: the byte 0x" + Hex(invalid->utf8_octet(), 2) + " cannot stand there";
    }
    if (const auto* invalid = dynamic_cast<const utf8::invalid_utf16*>(&e)) {
        return "invalid UTF-16: the unit 0x" + Hex(invalid->utf16_word(), 4) + " is an unpaired surrogate";
    }
    // The library meets these decoding UTF-8, where utf8-cpp does not keep
    // the value it refused.
    if (dynamic_cast<const utf8::invalid_code_point*>(&e) != nullptr) {
        return "invalid UTF-8: it encodes a surrogate or a code point above U+10FFFF";
    }
    return "invalid UTF-8: the text ends inside a character";
}

// The words for an error number of the system: "permission denied".
std::string SystemErrorWords(int errorNumber) {
    switch (errorNumber) {
    case ENOENT:
        return "no such file or folder";
    case EACCES:
    case EPERM:
        return "permission denied";
    case EISDIR:
        return "is a folder, not a file";
    case ENOTDIR:
        return "a part of the path is not a folder";
    case ENAMETOOLONG:
        return "the name is too long for the file system";
    case EROFS:
        return "the file system is read-only";
    case ENOSPC:
        return "no space left on the disk";
    case EFBIG:
        return "the file would exceed the allowed size";
    default: {
        std::string text = std::generic_category().message(errorNumber);
        if (!text.empty()) {
            text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
        }
        return text;
    }
    }
}

}  // namespace

std::string ErrorMessage(const std::exception& e) {
    if (const auto* library = dynamic_cast<const Exception*>(&e)) {
        return LibraryMessage(*library);
    }
    // The two failures a load of text meets part-way carry where they met it.
    if (const std::string* reason = Record<JsonException::TagParseReason>(e)) {
        return "JSON load error" + Where(e) + *reason;
    }
    if (const auto* filesystem = dynamic_cast<const boost::filesystem::filesystem_error*>(&e)) {
        std::string paths = filesystem->path1().string();
        if (!filesystem->path2().empty()) {
            paths += ", " + filesystem->path2().string();
        }
        // A save's own refusals (SaveError) word themselves.
        const boost::system::error_code& code = filesystem->code();
        const bool system =
            code.category() == boost::system::system_category() || code.category() == boost::system::generic_category();
        return (paths.empty() ? std::string() : paths + ": ") +
               (system ? SystemErrorWords(code.value()) : code.message());
    }
    if (const auto* system = dynamic_cast<const std::system_error*>(&e)) {
        const std::error_category& category = system->code().category();
        if (category == std::generic_category() || category == std::system_category()) {
            return SystemErrorWords(system->code().value());
        }
    }
    if (const auto* utf8 = dynamic_cast<const utf8::exception*>(&e)) {
        return Utf8Message(*utf8);
    }
    if (dynamic_cast<const std::bad_alloc*>(&e) != nullptr) {
        return "out of memory";
    }
    // Logic errors carry the call stack after their first line.
    return FirstLine(e.what());
}

}  // namespace Tarsel
