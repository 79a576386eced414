/// @file
/// The exception tree that the library and its clients share, the error
/// information tags, and the one throw path that every throw site uses.
///
/// The classes carry their facts as boost error-information records, never as
/// a message: none overrides what(). Catch by library class, by std::exception
/// or by boost::exception, and read records with boost::get_error_info or all
/// of them with boost::diagnostic_information.
#pragma once

#include <Core/Interfaces/Export.h>
#include <Core/Interfaces/PropertyTypes.h>

#include <boost/config.hpp>
#include <boost/exception/exception.hpp>
#include <boost/exception/info.hpp>
#include <boost/throw_exception.hpp>

#include <cstddef>
#include <exception>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace Tarsel {

/// How records name themselves. Boost prints each record of an exception's
/// diagnostic text as "[" + the type name of its tag + "*] = " + value, and
/// clients read a record by its error_info type: Tarsel::TagDescription is that
/// type, so no tag struct can have that name too (a scope cannot hold a struct
/// and an alias of one name). Our tags are therefore Tags::Named<text>, each
/// with the name its records print under, and the to_string below prints them
/// so. Boost builds a record's line with an unqualified to_string(record),
/// which finds this overload by argument-dependent lookup (Tags is associated
/// with every record type, through its tag) and prefers it to its own generic
/// one as the more specialised; the value is rendered as boost renders it.
/// The text is taken by reference, not as a const char*: g++ and clang spell
/// a pointer to an array's first element differently in a type's mangled
/// name, which would make a record a different type in a client built with
/// the other compiler, and unreadable there.
namespace Tags {

/// The tag of the records that print as "[PrintedName*]".
template <const auto& PrintedName>
struct TARSEL_API Named;

/// A record's line in boost::diagnostic_information: "[PrintedName*] = "
/// and the value as boost renders it, then a line feed.
template <const auto& PrintedName, class T>
std::string to_string(const boost::error_info<Named<PrintedName>, T>& record) {
    return std::string("[") + PrintedName + "*] = " + boost::to_string_stub(record.value()) + '\n';
}

/// The printed names: inline, so that each names one object in every module,
/// which keeps each record type one type across the library boundary.
///@{
TARSEL_API inline constexpr char Description[] = "Tarsel::TagDescription";
TARSEL_API inline constexpr char CallStack[] = "Tarsel::TagCallStack";
TARSEL_API inline constexpr char BlockSize[] = "Tarsel::Core::MemoryException::TagBlockSize";
TARSEL_API inline constexpr char PropertyName[] = "Tarsel::Core::PropertyException::TagPropertyName";
TARSEL_API inline constexpr char PropertyType[] = "Tarsel::Core::PropertyException::TagPropertyType";
TARSEL_API inline constexpr char MethodName[] = "Tarsel::Core::PropertyException::TagMethodName";
TARSEL_API inline constexpr char RequestedType[] = "Tarsel::Core::PropertyException::TagRequestedType";
TARSEL_API inline constexpr char OtherPropertyType[] = "Tarsel::Core::PropertyException::TagOtherPropertyType";
TARSEL_API inline constexpr char RequestedChildName[] = "Tarsel::Core::PropertyException::TagRequestedChildName";
TARSEL_API inline constexpr char RequestedChildIndex[] = "Tarsel::Core::PropertyException::TagRequestedChildIndex";
TARSEL_API inline constexpr char ChildCount[] = "Tarsel::Core::PropertyException::TagChildCount";
TARSEL_API inline constexpr char ParseError[] = "Tarsel::Core::JsonException::TagParseError";
TARSEL_API inline constexpr char ParseOffset[] = "Tarsel::Core::JsonException::TagParseOffset";
TARSEL_API inline constexpr char ParseLine[] = "Tarsel::Core::JsonException::TagParseLine";
TARSEL_API inline constexpr char ParseColumn[] = "Tarsel::Core::JsonException::TagParseColumn";
TARSEL_API inline constexpr char ParseReason[] = "Tarsel::Core::JsonException::TagParseReason";
///@}

}  // namespace Tags

/// An error-information record of value type T that prints as "[PrintedName*]".
template <const auto& PrintedName, class T>
using NamedErrorInfo = boost::error_info<Tags::Named<PrintedName>, T>;

/// Free-text description of a failure.
using TagDescription = NamedErrorInfo<Tags::Description, std::string>;
/// Call stack text of the throw site, one frame a line (see StackTrace).
using TagCallStack = NamedErrorInfo<Tags::CallStack, std::string>;

/// The root of the exception tree the library and its clients share: a
/// std::exception and a boost::exception, both virtual bases.
class TARSEL_API Exception : public virtual std::exception, public virtual boost::exception {
public:
    ~Exception() noexcept override;
};

/// The library's exception tree, one class a line: its name, how it derives
/// from its base (virtual or plain, always public), its base, and the members
/// it adds, if any, to what every class has: an out-of-line destructor, which
/// anchors its type identity in this library. All live in Tarsel::Core.
///
/// The property family, thrown by every Property operation with a call stack;
/// the subclasses name the reason. AddStack is instantiated for each.
#define TARSEL_PROPERTY_EXCEPTIONS(X)                                               \
    X(PropertyException, virtual, CoreException, TARSEL_PROPERTY_EXCEPTION_RECORDS) \
    X(MethodIsNotApplicable, , PropertyException, )                                 \
    X(WrongTypeIsRequested, , PropertyException, )                                  \
    X(ChildNameIsNotFound, , PropertyException, )                                   \
    X(IndexIsOutOfBound, , PropertyException, )                                     \
    X(ComparedPropertiesHaveDifferentTypes, , PropertyException, )

/// IOException and MemoryException are offered to clients: the library itself
/// never throws them. JsonException is thrown by the JSON serializer,
/// deliberately without a call stack.
#define TARSEL_CORE_EXCEPTIONS(X)                                               \
    X(CoreException, virtual, Exception, )                                      \
    X(IOException, virtual, CoreException, )                                    \
    X(MemoryException, virtual, CoreException, TARSEL_MEMORY_EXCEPTION_MEMBERS) \
    TARSEL_PROPERTY_EXCEPTIONS(X)                                               \
    X(JsonException, virtual, CoreException, TARSEL_JSON_EXCEPTION_RECORDS)

/// The records each class carries, nested in it, and MemoryException's
/// constructor, which attaches TagDescription, then TagBlockSize.
#define TARSEL_MEMORY_EXCEPTION_MEMBERS                        \
    using TagBlockSize = NamedErrorInfo<Tags::BlockSize, int>; \
    MemoryException(const std::string& description, int blockSize);
/// The records of the property family: the node, its type, and what was
/// asked of it.
#define TARSEL_PROPERTY_EXCEPTION_RECORDS                                                  \
    using TagPropertyName = NamedErrorInfo<Tags::PropertyName, std::string>;               \
    using TagPropertyType = NamedErrorInfo<Tags::PropertyType, PropertyTypes>;             \
    using TagMethodName = NamedErrorInfo<Tags::MethodName, std::string>;                   \
    using TagRequestedType = NamedErrorInfo<Tags::RequestedType, PropertyTypes>;           \
    using TagOtherPropertyType = NamedErrorInfo<Tags::OtherPropertyType, PropertyTypes>;   \
    using TagRequestedChildName = NamedErrorInfo<Tags::RequestedChildName, std::string>;   \
    using TagRequestedChildIndex = NamedErrorInfo<Tags::RequestedChildIndex, std::size_t>; \
    using TagChildCount = NamedErrorInfo<Tags::ChildCount, std::size_t>;
/// TagParseError is "Parse error" for every text that does not parse; the
/// others say where and why. Offset, line and column (1-based; the column
/// counts bytes) are also attached to the two failures that a load meets
/// part-way, std::invalid_argument for an empty member name and
/// boost::bad_rational for a ratio of "n/0", which keep their types.
#define TARSEL_JSON_EXCEPTION_RECORDS                                      \
    using TagParseError = NamedErrorInfo<Tags::ParseError, std::string>;   \
    using TagParseOffset = NamedErrorInfo<Tags::ParseOffset, std::size_t>; \
    using TagParseLine = NamedErrorInfo<Tags::ParseLine, std::size_t>;     \
    using TagParseColumn = NamedErrorInfo<Tags::ParseColumn, std::size_t>; \
    using TagParseReason = NamedErrorInfo<Tags::ParseReason, std::string>;

/// Declares one class of the table (undefined after use).
#define TARSEL_DECLARE_EXCEPTION(Name, Derivation, Base, Members) \
    class TARSEL_API Name : public Derivation Base {              \
    public:                                                       \
        Members                                                   \
        ~Name() noexcept override;                                \
    };

namespace Core {
TARSEL_CORE_EXCEPTIONS(TARSEL_DECLARE_EXCEPTION)
}  // namespace Core

#undef TARSEL_DECLARE_EXCEPTION

/// @class Tarsel::Core::CoreException
/// The base of the library's exceptions, offered to clients too; the library
/// throws only the classes below it.

/// @class Tarsel::Core::IOException
/// An input or output failure, for clients to throw; the library's file
/// functions throw boost::filesystem::filesystem_error instead.

/// @class Tarsel::Core::MemoryException
/// A memory block that could not be handled, for clients to throw; the
/// library itself never throws it.

/// @fn Tarsel::Core::MemoryException::MemoryException(const std::string& description, int blockSize)
/// Attaches TagDescription = description, then TagBlockSize = blockSize.

/// @typedef Tarsel::Core::MemoryException::TagBlockSize
/// The size of the block whose handling failed.

/// @class Tarsel::Core::PropertyException
/// A Property operation that cannot be done, with the node's records and the
/// call stack (TagCallStack) of the throw site. Thrown as itself by
/// PropertyValueToString (TagDescription "Wrong property type"), otherwise as
/// the subclass that names the reason.

/// @typedef Tarsel::Core::PropertyException::TagPropertyName
/// The name of the node the operation was asked of.

/// @typedef Tarsel::Core::PropertyException::TagPropertyType
/// That node's type.

/// @typedef Tarsel::Core::PropertyException::TagMethodName
/// The operation that does not apply to that type ("SetChild").

/// @typedef Tarsel::Core::PropertyException::TagRequestedType
/// The type a getter asked for.

/// @typedef Tarsel::Core::PropertyException::TagOtherPropertyType
/// The type of the node or value it was compared with.

/// @typedef Tarsel::Core::PropertyException::TagRequestedChildName
/// The name of the child that is not there.

/// @typedef Tarsel::Core::PropertyException::TagRequestedChildIndex
/// The index of the child that is not there.

/// @typedef Tarsel::Core::PropertyException::TagChildCount
/// How many children the node has.

/// @class Tarsel::Core::MethodIsNotApplicable
/// The operation does not apply to the node's type: a child operation on a
/// node that is not a container, or a comparison of two Empty nodes.

/// @class Tarsel::Core::WrongTypeIsRequested
/// A getter asked for a type the node does not hold.

/// @class Tarsel::Core::ChildNameIsNotFound
/// The node has no child of the requested name.

/// @class Tarsel::Core::IndexIsOutOfBound
/// The node has no child at the requested index.

/// @class Tarsel::Core::ComparedPropertiesHaveDifferentTypes
/// Two nodes, or a node and a number, of different types were compared.

/// @class Tarsel::Core::JsonException
/// JSON text that does not load, thrown by PropertySerializer without a call
/// stack.

/// @typedef Tarsel::Core::JsonException::TagParseError
/// "Parse error", for every text that does not parse.

/// @typedef Tarsel::Core::JsonException::TagParseOffset
/// The offset of the first byte at which the text cannot go on.

/// @typedef Tarsel::Core::JsonException::TagParseLine
/// Its line, counted from 1.

/// @typedef Tarsel::Core::JsonException::TagParseColumn
/// Its column, counted in bytes from 1.

/// @typedef Tarsel::Core::JsonException::TagParseReason
/// Why, in a short English text: "missing a comma or '}' after an object
/// member", "nesting deeper than 512 levels".

/// One line in plain English for any exception a library call throws, built
/// from its records: "wrong type requested at 'volume': holds Int64, asked for
/// Double", "no child 'width' in 'video'", "JSON parse error at 12:5: missing
/// a comma or '}' after an object member", "settings.json: permission denied";
/// what() for an exception the library does not know. Never throws but
/// std::bad_alloc.
TARSEL_API std::string ErrorMessage(const std::exception& e);

/// The call stack of the caller, one frame a line, without the frames of the
/// capture itself. Throws std::bad_alloc when memory runs out.
TARSEL_API std::string GetCallStack();

/// Publishes the flag Core::StackTrace::s_enabled for clients that consult it.
/// The library itself always captures call stacks, whatever its value.
TARSEL_API void SetCallStackEnabled(bool enabled);

/// Attaches the caller's call stack to e itself as TagCallStack and returns e.
/// Both overloads stay out of line, so that a recorded stack starts at
/// AddStack in every build type, optimised ones included.
template <class E>
TARSEL_API BOOST_NOINLINE std::enable_if_t<std::is_base_of_v<Exception, E>, const E&> AddStack(const E& e) {
    return e << TagCallStack(GetCallStack());
}

/// Standard logic errors carry no records, so the stack goes into the message:
/// returns a new E whose what() is e.what(), a line feed, then the stack.
template <class E>
TARSEL_API BOOST_NOINLINE std::enable_if_t<std::is_base_of_v<std::logic_error, E>, const E> AddStack(const E& e) {
    return E(std::string(e.what()) + "\n" + GetCallStack());
}

/// A throw site: the function text that boost records, and the real file and
/// line. The text is passed explicitly so that every compiler records the same
/// string (clang's spelling).
struct TARSEL_API ThrowSite {
    const char* function;  ///< The throwing function, as clang spells it.
    const char* file;      ///< The source file.
    int line;              ///< The line in it.
};

/// The ThrowSite of the line it is written on, for the function text given.
#define TARSEL_THROW_SITE(functionText) (::Tarsel::ThrowSite{(functionText), __FILE__, __LINE__})

/// Throws e with boost's location records and its cloning wrapper, so that
/// boost::current_exception can copy it. No call stack is attached.
template <class E>
[[noreturn]] void ThrowAt(const ThrowSite& site, const E& e) {
    boost::throw_exception(
        e, boost::source_location(site.file, static_cast<boost::uint_least32_t>(site.line), site.function));
}

/// The library's throw path: attach the records in order, then the call stack
/// (last), then throw at the site.
template <class E, class... Info>
[[noreturn]] void ThrowWithCallStack(const ThrowSite& site, const E& e, const Info&... info) {
    (void)(e << ... << info);
    ThrowAt(site, AddStack(e));
}

/// Declares the AddStack the library holds for one class of the table
/// (undefined after use).
#define TARSEL_DECLARE_ADD_STACK(Name, Derivation, Base, Members) \
    extern template const Core::Name& AddStack(const Core::Name&);
/// The instantiations of AddStack that the library holds: the property
/// family's, std::logic_error's and std::invalid_argument's.
///@{
TARSEL_PROPERTY_EXCEPTIONS(TARSEL_DECLARE_ADD_STACK)
#undef TARSEL_DECLARE_ADD_STACK
extern template const std::logic_error AddStack(const std::logic_error&);
extern template const std::invalid_argument AddStack(const std::invalid_argument&);
///@}

}  // namespace Tarsel

/// One object of each class, built when the library loads, under C names
/// that clients and tools may look up. Nothing reads them, and catching by
/// type across the library boundary does not rest on them: each class's
/// out-of-line destructor makes this library the one home of its type
/// identity (JsonException has no object and is caught like the others).
///@{
extern "C" {
extern TARSEL_API Tarsel::Core::CoreException exportDummyException;
extern TARSEL_API Tarsel::Core::IOException exportDummyException0;
extern TARSEL_API Tarsel::Core::MemoryException exportDummyException1;
extern TARSEL_API Tarsel::Core::PropertyException exportDummyException2;
extern TARSEL_API Tarsel::Core::MethodIsNotApplicable exportDummyException3;
extern TARSEL_API Tarsel::Core::WrongTypeIsRequested exportDummyException4;
extern TARSEL_API Tarsel::Core::IndexIsOutOfBound exportDummyException5;
extern TARSEL_API Tarsel::Core::ChildNameIsNotFound exportDummyException6;
extern TARSEL_API Tarsel::Core::ComparedPropertiesHaveDifferentTypes exportDummyException7;
}
///@}
