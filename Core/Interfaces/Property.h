/// @file
/// The typed, named, ordered value tree in which applications keep settings
/// and media descriptions, with its paths, comparison and text forms.
#pragma once

#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/Export.h>
#include <Core/Interfaces/PropertyTypes.h>

#include <boost/cstdint.hpp>

#include <cstddef>
#include <iosfwd>
#include <list>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <variant>

namespace Tarsel::Core {

class SerializerAccess;

/// A node: a name, and either nothing (TypeEmpty), one scalar (bool, double,
/// 64-bit integer, string, Ratio) or an ordered list of named children
/// (TypeArray). A node owns its subtree by value: copies are deep.
///
/// Every failed call leaves the node as it was: all checks come first. A node
/// is a plain value; concurrent use of one tree needs outside locking.
/// A tree may be of any depth: copying, comparing, printing, saving and
/// destroying it hold their path in the heap, never one stack frame a level.
class TARSEL_API Property {
public:
    /// A node's children, in their order.
    using ChildListType = std::list<Property>;
    /// Iterators over the children.
    ///@{
    using iterator = ChildListType::iterator;
    using const_iterator = ChildListType::const_iterator;
    using reverse_iterator = ChildListType::reverse_iterator;
    using const_reverse_iterator = ChildListType::const_reverse_iterator;
    ///@}

    /// The path separator, "/".
    static const std::string SEPARATOR;
    /// The tolerance operator== allows between doubles, 1e-05.
    static const double DEFAULT_DOUBLE_EPS;

    /// A node made from a name alone is an empty container (TypeArray), not
    /// Empty: that is the common way to start a tree.
    explicit Property(const std::string& name);
    /// A scalar node: a bool, a double, an integer (TypeInt64, whatever its
    /// width), a string (TypeString, from a text too) or a Ratio.
    ///@{
    Property(const std::string& name, bool value);
    Property(const std::string& name, double value);
    Property(const std::string& name, int value);
    Property(const std::string& name, long value);
    Property(const std::string& name, long long value);
    Property(const std::string& name, const char* value);
    Property(const std::string& name, const std::string& value);
    Property(const std::string& name, const Ratio& value);
    ///@}
    /// Copies the name, type and value, and the children of a container. A
    /// node of another type holds children only when AddWithName attached
    /// them; no copy takes those along (CopyDataFrom, assignment, Add,
    /// AddWithName and SetChild neither).
    Property(const Property& src);
    /// Deliberately a copy: the source is left unchanged. Unlike every other
    /// copy, it takes the children of a node of any type along.
    Property(Property&& src);
    /// Destroys the subtree without deep recursion, however deep it is.
    virtual ~Property();

    /// A full copy, the name included.
    Property& operator=(const Property& src);
    /// Exchanges everything with src, which receives this node's old contents.
    Property& operator=(Property&& src) noexcept;

    /// Scalar assignments keep the name, set the type and discard children.
    ///@{
    Property& operator=(bool value);
    Property& operator=(double value);
    Property& operator=(int value);
    Property& operator=(long value);
    Property& operator=(long long value);
    Property& operator=(const char* value);
    Property& operator=(const std::string& value);
    Property& operator=(const Ratio& value);
    ///@}

    /// Copies type and content from src but keeps this node's name; this
    /// node's children are replaced by those a copy of src takes. src may be
    /// this node or lie in its subtree.
    void CopyDataFrom(const Property& src);
    /// Exchanges everything, names included, without copying.
    void Swap(Property& other) noexcept;

    /// Only the JSON reader can make this key: it lets the reader construct a
    /// node's name and value in place, where a public constructor would copy
    /// both out of temporaries, once per value of a document.
    class InPlaceKey {
        friend class SerializerAccess;
        InPlaceKey() {}
    };
    /// A node named name holding the T made of args, for the JSON reader.
    template <class T, class... Args>
    Property(InPlaceKey, std::string_view name, std::in_place_type_t<T> type, Args&&... args)
        : m_name(name), m_value(type, std::forward<Args>(args)...) {}

    /// Only Property can make this key: it copies a node's name and value
    /// without its children, one step of the deep copy.
    class NodeOnlyKey {
        friend class Property;
        NodeOnlyKey() {}
    };
    /// A copy of src's name and value, without its children.
    Property(NodeOnlyKey, const Property& src);

    /// The node's name.
    const std::string& GetName() const noexcept { return m_name; }
    /// What the node holds: TypeEmpty, a scalar type, or TypeArray.
    PropertyTypes GetType() const noexcept { return static_cast<PropertyTypes>(m_value.index()); }

    /// Strict getters: no conversion between types, not even int to double.
    /// A node of another type throws WrongTypeIsRequested.
    ///@{
    bool GetBool() const;
    double GetDouble() const;
    boost::int64_t GetInt64() const;
    std::string GetString() const;
    Ratio GetRatio() const;
    ///@}

    /// Throws ComparedPropertiesHaveDifferentTypes naming this node and other.
    [[noreturn]] void DifferentTypeError(PropertyTypes other) const;

    /// @name Children
    /// Operations on a node that is not TypeArray throw MethodIsNotApplicable;
    /// an empty name where one is required throws std::invalid_argument
    /// ("name is empty", the call stack appended). Lookups by name take the
    /// first child of that name.
    ///@{

    /// The first child of that name, reset to an empty container, or a new
    /// empty container at the end.
    Property& SetChild(const std::string& name);
    /// The first child of that name overwritten with value's content (it keeps
    /// its name and position), or a copy of value named name at the end.
    Property& SetChild(const std::string& name, const Property& value);
    /// The first child of that name assigned the text, or a new string child;
    /// as SetChildT<std::string>, so an empty name is accepted.
    Property& SetChild(const std::string& name, const char* value);

    /// The first child of that name assigned value, or a new child; unlike
    /// SetChild, an empty name is accepted.
    template <class T>
    Property& SetChildT(const std::string& name, const T& value);
    /// Always appends Property(name, value), even when the name is taken.
    template <class T>
    Property& CreateChildT(const std::string& name, const T& value);

    /// Appends a copy of child named by the current count ("0", "1", ...).
    Property& Add(const Property& child);
    /// Appends a copy of child under name. The one child operation that works
    /// on a node of any type: children of a non-container are then reachable
    /// only through FindChild and GetItemIterator, and copies leave them out.
    Property& AddWithName(const std::string& name, Property child);

    /// The first child of that name, or end() when there is none; on a node
    /// of any type, like AddWithName.
    ///@{
    iterator FindChild(const std::string& name);
    const_iterator FindChild(const std::string& name) const;
    ///@}

    /// Turns the node into an empty container.
    void SetArrayType();

    /// Removes the first child of that name (ChildNameIsNotFound if none).
    void RemoveChild(const std::string& name);
    /// IndexIsOutOfBound when index is not below the child count.
    void RemoveChild(std::size_t index);
    /// The child at index, on a node of any type; IndexIsOutOfBound when
    /// index is not below the number of children.
    ///@{
    ChildListType::iterator GetItemIterator(std::size_t index);
    ChildListType::const_iterator GetItemIterator(std::size_t index) const;
    ///@}

    /// The number of children.
    std::size_t Count() const;
    /// Removes every child.
    void RemoveAll();
    /// Whether a child has that name.
    bool ChildExists(const std::string& name) const;

    /// The child of that name, or at that index; ChildNameIsNotFound or
    /// IndexIsOutOfBound when there is no such child.
    ///@{
    const Property& operator[](const std::string& name) const;
    const Property& operator[](std::size_t index) const;
    Property& operator[](const std::string& name);
    Property& operator[](std::size_t index);
    ///@}

    /// The children in their order, and in reverse.
    ///@{
    iterator begin();
    const_iterator begin() const;
    iterator end();
    const_iterator end() const;
    reverse_iterator rbegin();
    const_reverse_iterator rbegin() const;
    reverse_iterator rend();
    const_reverse_iterator rend() const;
    ///@}
    ///@}

    /// @name Paths
    /// A path is child names joined by "/"; empty segments are dropped, there
    /// is no escape and no index syntax. A missing name throws
    /// ChildNameIsNotFound; a path through a leaf throws MethodIsNotApplicable.
    ///@{

    /// The node at path below this one.
    const Property& ChildByPath(const std::string& path) const;
    Property& ChildByPath(const std::string& path);
    /// False at the first missing name; a path through a leaf still throws.
    bool ChildExistsByPath(const std::string& path) const;
    ///@}

    /// @name Comparison
    /// Types must match (else ComparedPropertiesHaveDifferentTypes); doubles
    /// compare within DEFAULT_DOUBLE_EPS; containers compare their names and
    /// their children paired after sorting by name, so child order does not
    /// matter. Two Empty nodes throw MethodIsNotApplicable.
    ///@{

    /// Equality as above, and its negation.
    bool operator==(const Property& other) const;
    bool operator!=(const Property& other) const;
    /// This node's double within eps of number (strictly); a non-double node
    /// throws ComparedPropertiesHaveDifferentTypes.
    bool IsEqual(double number, double eps) const;
    /// As operator==, but a double node compares with tolerance eps; eps is
    /// ignored for every other type.
    bool IsEqual(const Property& other, double eps) const;
    ///@}

private:
    // The JSON serializer builds and walks trees in bulk, past the checks of
    // the public operations.
    friend class SerializerAccess;

    struct Container {};
    // The alternatives stand in the order of PropertyTypes, so the index is
    // the node's type. Holding the type there keeps a node at 104 bytes, and
    // a list node at 120: small enough for the allocator's fastest bins,
    // which is what makes building a large tree cheap.
    using Value = std::variant<std::monostate, bool, double, long long, std::string, Ratio, Container>;
    static_assert(std::is_same_v<std::variant_alternative_t<TypeBool, Value>, bool> &&
                      std::is_same_v<std::variant_alternative_t<TypeDouble, Value>, double> &&
                      std::is_same_v<std::variant_alternative_t<TypeInt64, Value>, long long> &&
                      std::is_same_v<std::variant_alternative_t<TypeString, Value>, std::string> &&
                      std::is_same_v<std::variant_alternative_t<TypeRatio, Value>, Ratio> &&
                      std::is_same_v<std::variant_alternative_t<TypeArray, Value>, Container>,
                  "the value's index must be the node's type");

    // Whether copies of this node take its children along: only a
    // container's, see the copy constructor.
    bool CopiesTakeChildren() const noexcept { return GetType() == TypeArray; }
    // A deep copy of the children that a copy of src takes.
    TARSEL_HIDDEN static ChildListType ChildrenForCopy(const Property& src);
    // A deep copy of children, every level's children by the rule of
    // ChildrenForCopy; built aside, so a failure leaves nothing behind.
    TARSEL_HIDDEN static ChildListType CopyChildren(const ChildListType& children);

    // A copy of value, never by the variant's copy constructor: with
    // libstdc++ 12 that constructor crashes the process while unwinding when
    // copying the alternative throws (a string that cannot be allocated),
    // where std::bad_alloc must reach the caller.
    TARSEL_HIDDEN static Value CopyValue(const Value& value);

    // Exchanges everything but the names: the one place that lists what a
    // node holds besides its name (Swap and the JSON reader build on it).
    TARSEL_HIDDEN void SwapContent(Property& other) noexcept;

    template <class T>
    TARSEL_HIDDEN const T& Get(PropertyTypes required, const ThrowSite& site) const;
    TARSEL_HIDDEN void AssignScalar(Value&& value) noexcept;
    Property& AppendChild(Property& child);
    TARSEL_HIDDEN const Property* FindChildByName(std::string_view name) const noexcept;
    TARSEL_HIDDEN bool ContainerEquals(const Property& other) const;

    // The function text that SetChildT or CreateChildT records: its value's
    // type named where the template has T, "const long long &" for long
    // long. Made once per type and kept, as boost keeps the address.
    enum class ChildTemplate { Set, Create };
    static const char* ChildTFunction(ChildTemplate which, const std::type_info& valueType);

    TARSEL_HIDDEN void RequireArray(const char* method, const ThrowSite& site) const;
    [[noreturn]] void ThrowMethodIsNotApplicable(const char* method, const ThrowSite& site) const;
    TARSEL_HIDDEN static void RequireName(const std::string& name, const ThrowSite& site);
    [[noreturn]] TARSEL_HIDDEN void ThrowChildNameIsNotFound(std::string_view name, const ThrowSite& site) const;
    [[noreturn]] TARSEL_HIDDEN void ThrowIndexIsOutOfBound(std::size_t index, const ThrowSite& site) const;

    std::string m_name;
    Value m_value;
    ChildListType m_children;
};

/// Exchanges two nodes without copying.
TARSEL_API void swap(Property& a, Property& b) noexcept;

/// Typed reads for generic code. int and unsigned int take the low 32 bits of
/// the stored integer, without a range or sign check (a deliberate narrowing).
///@{
template <class T>
TARSEL_API T GetValue(const Property& property) = delete;
template <>
TARSEL_API bool GetValue<bool>(const Property& property);
template <>
TARSEL_API double GetValue<double>(const Property& property);
template <>
TARSEL_API long long GetValue<long long>(const Property& property);
template <>
TARSEL_API int GetValue<int>(const Property& property);
template <>
TARSEL_API unsigned int GetValue<unsigned int>(const Property& property);
template <>
TARSEL_API std::string GetValue<std::string>(const Property& property);
template <>
TARSEL_API Ratio GetValue<Ratio>(const Property& property);
///@}

/// @defgroup GetValueOr GetValueOr
/// Reading a setting with a default.

/// Reads a setting with a default: the value at path below root (a path as
/// ChildByPath takes it) as GetValue<T> reads it, or fallback when a name on
/// the path is missing, the path runs through a node that is not a container,
/// or it ends at an empty container, which is what a loaded null, {} or
/// integer from 2^63 to 2^64 - 1 is ("volume": null reads as not set). Read as
/// a double, an integer is converted (exactly up to 2^53, to the nearest
/// double beyond), the one conversion made: any other type mismatch, a
/// container with children included, throws WrongTypeIsRequested as GetValue
/// does, since a setting that holds text where a number belongs is an error
/// to report, not to hide.
/// @code
/// GetValueOr(settings, "playback/volume", 0.8)
/// GetValueOr<long long>(settings, "video/width", 1920)
/// GetValueOr(settings, "video/codec", "h264")  // a std::string
/// @endcode
/// @ingroup GetValueOr
///@{
template <class T>
TARSEL_API T GetValueOr(const Property& root, const std::string& path, const T& fallback) = delete;
template <>
TARSEL_API bool GetValueOr<bool>(const Property& root, const std::string& path, const bool& fallback);
template <>
TARSEL_API double GetValueOr<double>(const Property& root, const std::string& path, const double& fallback);
template <>
TARSEL_API long long GetValueOr<long long>(const Property& root, const std::string& path, const long long& fallback);
template <>
TARSEL_API int GetValueOr<int>(const Property& root, const std::string& path, const int& fallback);
template <>
TARSEL_API unsigned int GetValueOr<unsigned int>(const Property& root, const std::string& path,
                                                 const unsigned int& fallback);
template <>
TARSEL_API std::string GetValueOr<std::string>(const Property& root, const std::string& path,
                                               const std::string& fallback);
template <>
TARSEL_API Ratio GetValueOr<Ratio>(const Property& root, const std::string& path, const Ratio& fallback);
///@}
/// A text fallback reads a string.
/// @ingroup GetValueOr
TARSEL_API std::string GetValueOr(const Property& root, const std::string& path, const char* fallback);

// --- Ratios and value text ---------------------------------------------

/// numerator "/" denominator: "30000/1001", "-1/2", "0/1".
TARSEL_API std::string StringFromRatio(const Ratio& ratio);

/// Parses digits "/" digits (nothing else: no sign, no blanks) into ratio,
/// normalised. False, ratio untouched, for any other text or a part beyond the
/// long long range; a zero denominator throws boost::bad_rational.
TARSEL_API bool RatioFromString(const std::string& text, Ratio& ratio);

/// The best continued-fraction approximation of number with a denominator up
/// to maxDenominator: 29.97 with 1001 gives 2997/100. A convergent must stay
/// strictly below the bound, a semiconvergent may reach it and wins when its
/// factor is at least half the term (3.14159265358979 with 7 gives 22/7, with
/// 6 gives 19/6). A bound of 1 or less gives the value truncated over 1.
/// Throws std::invalid_argument for NaN, infinities and |number| >= 2^63.
TARSEL_API Ratio RatioFromDoubleApprox(double number, long long maxDenominator);

/// The value of a scalar node as text ("1" for true, 6 significant digits for
/// doubles); Empty and container nodes throw PropertyException with
/// TagDescription "Wrong property type".
TARSEL_API std::string PropertyValueToString(const Property& property);

/// Writes the node, and a container's whole subtree one child a line with one
/// more tab of indentation, in out's own formatting. A container printed with
/// newLine ends with an empty line after its last child.
TARSEL_API void PrintPropertyValue(const Property& property, int indent, std::ostream& out, bool printName,
                                   bool newLine);

// --- Template definitions ------------------------------------------------

template <class T>
Property& Property::SetChildT(const std::string& name, const T& value) {
    if (GetType() != TypeArray) {
        ThrowMethodIsNotApplicable("SetChildT", TARSEL_THROW_SITE(ChildTFunction(ChildTemplate::Set, typeid(T))));
    }
    const iterator found = FindChild(name);
    if (found == m_children.end()) {
        return CreateChildT(name, value);
    }
    *found = value;
    return *found;
}

template <class T>
Property& Property::CreateChildT(const std::string& name, const T& value) {
    if (GetType() != TypeArray) {
        ThrowMethodIsNotApplicable("CreateChildT", TARSEL_THROW_SITE(ChildTFunction(ChildTemplate::Create, typeid(T))));
    }
    Property child(name, value);
    return AppendChild(child);
}

}  // namespace Tarsel::Core
