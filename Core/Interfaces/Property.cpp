// This file implements Property values, children and paths.
#include <Core/Interfaces/Property.h>

#include <Core/Interfaces/internal/ThrowSignatures.h>

#include <boost/core/demangle.hpp>

#include <iterator>
#include <map>
#include <mutex>
#include <type_traits>
#include <typeindex>
#include <utility>
#include <vector>

namespace Tarsel::Core {

const std::string Property::SEPARATOR = "/";
const double Property::DEFAULT_DOUBLE_EPS = 1e-05;

// --- Construction and assignment -----------------------------------------

Property::Property(const std::string& name) : m_name(name), m_value(Container()) {}
Property::Property(const std::string& name, bool value) : m_name(name), m_value(value) {}
Property::Property(const std::string& name, double value) : m_name(name), m_value(value) {}
Property::Property(const std::string& name, int value) : Property(name, static_cast<long long>(value)) {}
Property::Property(const std::string& name, long value) : Property(name, static_cast<long long>(value)) {}
Property::Property(const std::string& name, long long value) : m_name(name), m_value(value) {}
Property::Property(const std::string& name, const char* value) : Property(name, std::string(value)) {}
Property::Property(const std::string& name, const std::string& value) : m_name(name), m_value(value) {}
Property::Property(const std::string& name, const Ratio& value) : m_name(name), m_value(value) {}

Property::Property(const Property& src)
    : m_name(src.m_name), m_value(CopyValue(src.m_value)), m_children(ChildrenForCopy(src)) {}

Property::Property(Property&& src)
    : m_name(src.m_name), m_value(CopyValue(src.m_value)), m_children(CopyChildren(src.m_children)) {}

Property::Property(NodeOnlyKey, const Property& src) : m_name(src.m_name), m_value(CopyValue(src.m_value)) {}

// Built in place from the alternative, so that a failure leaves no half-made
// variant behind; the result is moved, which cannot fail.
Property::Value Property::CopyValue(const Value& value) {
    return std::visit(
        [](const auto& alternative) {
            return Value(std::in_place_type<std::decay_t<decltype(alternative)>>, alternative);
        },
        value);
}

Property::ChildListType Property::ChildrenForCopy(const Property& src) {
    return src.CopiesTakeChildren() ? CopyChildren(src.m_children) : ChildListType();
}

// Level by level with an explicit stack: a tree built through the API may be
// deeper than any thread's stack could recurse.
Property::ChildListType Property::CopyChildren(const ChildListType& children) {
    ChildListType copy;
    if (children.empty()) {
        return copy;
    }
    struct Level {
        const_iterator next;
        const_iterator end;
        ChildListType* into;
    };
    std::vector<Level> levels{{children.begin(), children.end(), &copy}};
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next == level.end) {
            levels.pop_back();
            continue;
        }
        const Property& node = *level.next++;
        Property& added = level.into->emplace_back(NodeOnlyKey(), node);
        if (node.CopiesTakeChildren() && !node.m_children.empty()) {
            levels.push_back({node.m_children.begin(), node.m_children.end(), &added.m_children});
        }
    }
    return copy;
}

namespace {
// Subtrees up to this depth are destroyed recursively, the fast way; deeper
// ones are flattened first so that no nesting can exhaust the stack.
constexpr unsigned kRecursiveDestroyDepth = 64;
thread_local unsigned t_destroyDepth = 0;
}  // namespace

// Flattened: left to itself the compiler calls out, for every node, to
// clear its (nearly always empty) child list and to reset its value; inline,
// a leaf's destruction is a few tests, and freeing a loaded tree a quarter
// faster.
[[gnu::flatten]] Property::~Property() {
    if (m_children.empty()) {
        return;
    }
    if (t_destroyDepth < kRecursiveDestroyDepth) {
        ++t_destroyDepth;
        m_children.clear();
        --t_destroyDepth;
        return;
    }
    // Move every descendant into this one flat list, so that each node is
    // destroyed with no children of its own.
    for (Property& node : m_children) {
        m_children.splice(m_children.end(), node.m_children);
    }
}

Property& Property::operator=(const Property& src) {
    Property copy(src);
    Swap(copy);
    return *this;
}

Property& Property::operator=(Property&& src) noexcept {
    Swap(src);
    return *this;
}

void Property::AssignScalar(Value&& value) noexcept {
    m_children.clear();
    m_value = std::move(value);
}

Property& Property::operator=(bool value) {
    AssignScalar(Value(value));
    return *this;
}
Property& Property::operator=(double value) {
    AssignScalar(Value(value));
    return *this;
}
Property& Property::operator=(int value) {
    return *this = static_cast<long long>(value);
}
Property& Property::operator=(long value) {
    return *this = static_cast<long long>(value);
}
Property& Property::operator=(long long value) {
    AssignScalar(Value(value));
    return *this;
}
Property& Property::operator=(const char* value) {
    return *this = std::string(value);
}
Property& Property::operator=(const std::string& value) {
    // The copy is made before anything changes, so a failed allocation leaves
    // the node as it was; value may even live inside this node's subtree.
    AssignScalar(Value(value));
    return *this;
}
Property& Property::operator=(const Ratio& value) {
    AssignScalar(Value(value));
    return *this;
}

void Property::CopyDataFrom(const Property& src) {
    // Copy first, commit without failure: src may be this node or lie inside
    // its subtree, and a failed copy must leave this node as it was.
    ChildListType children = ChildrenForCopy(src);
    Value value = CopyValue(src.m_value);
    m_children.swap(children);
    m_value.swap(value);
}

void Property::Swap(Property& other) noexcept {
    m_name.swap(other.m_name);
    SwapContent(other);
}

void Property::SwapContent(Property& other) noexcept {
    m_value.swap(other.m_value);
    m_children.swap(other.m_children);
}

void swap(Property& a, Property& b) noexcept {
    a.Swap(b);
}

// --- Getters -------------------------------------------------------------

template <class T>
const T& Property::Get(PropertyTypes required, const ThrowSite& site) const {
    if (GetType() != required) {
        ThrowWithCallStack(site, WrongTypeIsRequested(), PropertyException::TagPropertyName(m_name),
                           PropertyException::TagPropertyType(GetType()),
                           PropertyException::TagRequestedType(required));
    }
    return std::get<T>(m_value);
}

bool Property::GetBool() const {
    return Get<bool>(TypeBool, TARSEL_THROW_SITE(Signatures::GetBool));
}
double Property::GetDouble() const {
    return Get<double>(TypeDouble, TARSEL_THROW_SITE(Signatures::GetDouble));
}
boost::int64_t Property::GetInt64() const {
    return Get<long long>(TypeInt64, TARSEL_THROW_SITE(Signatures::GetInt64));
}
std::string Property::GetString() const {
    return Get<std::string>(TypeString, TARSEL_THROW_SITE(Signatures::GetString));
}
Ratio Property::GetRatio() const {
    return Get<Ratio>(TypeRatio, TARSEL_THROW_SITE(Signatures::GetRatio));
}

template <>
bool GetValue<bool>(const Property& property) {
    return property.GetBool();
}
template <>
double GetValue<double>(const Property& property) {
    return property.GetDouble();
}
template <>
long long GetValue<long long>(const Property& property) {
    return property.GetInt64();
}
template <>
int GetValue<int>(const Property& property) {
    return static_cast<int>(static_cast<unsigned int>(property.GetInt64()));
}
template <>
unsigned int GetValue<unsigned int>(const Property& property) {
    return static_cast<unsigned int>(property.GetInt64());
}
template <>
std::string GetValue<std::string>(const Property& property) {
    return property.GetString();
}
template <>
Ratio GetValue<Ratio>(const Property& property) {
    return property.GetRatio();
}

void Property::DifferentTypeError(PropertyTypes other) const {
    ThrowWithCallStack(TARSEL_THROW_SITE(Signatures::DifferentTypeError), ComparedPropertiesHaveDifferentTypes(),
                       PropertyException::TagPropertyName(m_name), PropertyException::TagPropertyType(GetType()),
                       PropertyException::TagOtherPropertyType(other));
}

// --- Checks shared by the child operations --------------------------------

const char* Property::ChildTFunction(ChildTemplate which, const std::type_info& valueType) {
    static std::mutex mutex;
    static std::map<std::pair<ChildTemplate, std::type_index>, std::string> texts;
    const std::lock_guard<std::mutex> lock(mutex);
    const auto [it, made] = texts.try_emplace({which, std::type_index(valueType)});
    if (made) {
        std::string text = which == ChildTemplate::Set ? Signatures::SetChildT : Signatures::CreateChildT;
        // std::string is spelled as clang spells the template it names.
        const std::string type =
            valueType == typeid(std::string) ? "std::basic_string<char>" : boost::core::demangle(valueType.name());
        const std::string placeholder = "const T &";
        it->second = text.replace(text.rfind(placeholder), placeholder.size(), "const " + type + " &");
    }
    return it->second.c_str();
}

void Property::ThrowMethodIsNotApplicable(const char* method, const ThrowSite& site) const {
    ThrowWithCallStack(site, MethodIsNotApplicable(), PropertyException::TagPropertyName(m_name),
                       PropertyException::TagPropertyType(GetType()), PropertyException::TagMethodName(method));
}

void Property::RequireArray(const char* method, const ThrowSite& site) const {
    if (GetType() != TypeArray) {
        ThrowMethodIsNotApplicable(method, site);
    }
}

void Property::RequireName(const std::string& name, const ThrowSite& site) {
    if (name.empty()) {
        ThrowWithCallStack(site, std::invalid_argument("name is empty"));
    }
}

void Property::ThrowChildNameIsNotFound(std::string_view name, const ThrowSite& site) const {
    ThrowWithCallStack(site, ChildNameIsNotFound(), PropertyException::TagPropertyName(m_name),
                       PropertyException::TagRequestedChildName(std::string(name)));
}

void Property::ThrowIndexIsOutOfBound(std::size_t index, const ThrowSite& site) const {
    ThrowWithCallStack(site, IndexIsOutOfBound(), PropertyException::TagPropertyName(m_name),
                       PropertyException::TagChildCount(m_children.size()),
                       PropertyException::TagRequestedChildIndex(index));
}

// --- Children ------------------------------------------------------------

// Appends child by exchanging it into a fresh list node: no deep copy, and a
// failed allocation leaves both the list and child unchanged.
Property& Property::AppendChild(Property& child) {
    Property& appended = m_children.emplace_back(std::string());
    appended.Swap(child);
    return appended;
}

const Property* Property::FindChildByName(std::string_view name) const noexcept {
    for (const Property& child : m_children) {
        if (child.m_name == name) {
            return &child;
        }
    }
    return nullptr;
}

Property::iterator Property::FindChild(const std::string& name) {
    iterator it = m_children.begin();
    while (it != m_children.end() && it->m_name != name) {
        ++it;
    }
    return it;
}

Property::const_iterator Property::FindChild(const std::string& name) const {
    return const_cast<Property*>(this)->FindChild(name);
}

Property& Property::SetChild(const std::string& name) {
    const ThrowSite site = TARSEL_THROW_SITE(Signatures::SetChild);
    RequireName(name, site);
    RequireArray("SetChild", site);
    const iterator found = FindChild(name);
    if (found != m_children.end()) {
        found->SetArrayType();
        return *found;
    }
    Property child(name);
    return AppendChild(child);
}

Property& Property::SetChild(const std::string& name, const Property& value) {
    const ThrowSite site = TARSEL_THROW_SITE(Signatures::SetChildToValue);
    RequireName(name, site);
    RequireArray("SetChild", site);
    const iterator found = FindChild(name);
    if (found != m_children.end()) {
        found->CopyDataFrom(value);
        return *found;
    }
    return AddWithName(name, value);
}

Property& Property::SetChild(const std::string& name, const char* value) {
    return SetChildT<std::string>(name, std::string(value));
}

Property& Property::Add(const Property& child) {
    RequireArray("Add", TARSEL_THROW_SITE(Signatures::Add));
    Property copy(child);
    copy.m_name = std::to_string(m_children.size());
    return AppendChild(copy);
}

Property& Property::AddWithName(const std::string& name, Property child) {
    RequireName(name, TARSEL_THROW_SITE(Signatures::AddWithName));
    child.m_name = name;
    // A child moved in still has a leaf's children (the move constructor
    // copies them along); the appended copy leaves them behind.
    if (!child.CopiesTakeChildren()) {
        child.m_children.clear();
    }
    return AppendChild(child);
}

void Property::SetArrayType() {
    m_children.clear();
    m_value = Container();
}

void Property::RemoveChild(const std::string& name) {
    const ThrowSite site = TARSEL_THROW_SITE(Signatures::RemoveChildByName);
    RequireArray("RemoveChild", site);
    const iterator found = FindChild(name);
    if (found == m_children.end()) {
        ThrowChildNameIsNotFound(name, site);
    }
    m_children.erase(found);
}

void Property::RemoveChild(std::size_t index) {
    RequireArray("RemoveChild", TARSEL_THROW_SITE(Signatures::RemoveChildAt));
    m_children.erase(GetItemIterator(index));
}

Property::ChildListType::iterator Property::GetItemIterator(std::size_t index) {
    if (index >= m_children.size()) {
        ThrowIndexIsOutOfBound(index, TARSEL_THROW_SITE(Signatures::GetItemIterator));
    }
    return std::next(m_children.begin(), static_cast<std::ptrdiff_t>(index));
}

Property::ChildListType::const_iterator Property::GetItemIterator(std::size_t index) const {
    if (index >= m_children.size()) {
        ThrowIndexIsOutOfBound(index, TARSEL_THROW_SITE(Signatures::GetItemIteratorConst));
    }
    return std::next(m_children.begin(), static_cast<std::ptrdiff_t>(index));
}

std::size_t Property::Count() const {
    RequireArray("Count", TARSEL_THROW_SITE(Signatures::Count));
    return m_children.size();
}

void Property::RemoveAll() {
    RequireArray("RemoveAll", TARSEL_THROW_SITE(Signatures::RemoveAll));
    m_children.clear();
}

bool Property::ChildExists(const std::string& name) const {
    RequireArray("ChildExists", TARSEL_THROW_SITE(Signatures::ChildExists));
    return FindChildByName(name) != nullptr;
}

const Property& Property::operator[](const std::string& name) const {
    const ThrowSite site = TARSEL_THROW_SITE(Signatures::ChildByName);
    RequireArray("operator[]", site);
    const Property* child = FindChildByName(name);
    if (child == nullptr) {
        ThrowChildNameIsNotFound(name, site);
    }
    return *child;
}

const Property& Property::operator[](std::size_t index) const {
    RequireArray("operator[]", TARSEL_THROW_SITE(Signatures::ChildAt));
    return *GetItemIterator(index);
}

Property& Property::operator[](const std::string& name) {
    return const_cast<Property&>(static_cast<const Property&>(*this)[name]);
}

Property& Property::operator[](std::size_t index) {
    return const_cast<Property&>(static_cast<const Property&>(*this)[index]);
}

Property::iterator Property::begin() {
    RequireArray("begin", TARSEL_THROW_SITE(Signatures::Begin));
    return m_children.begin();
}
Property::const_iterator Property::begin() const {
    RequireArray("begin", TARSEL_THROW_SITE(Signatures::BeginConst));
    return m_children.begin();
}
Property::iterator Property::end() {
    RequireArray("end", TARSEL_THROW_SITE(Signatures::End));
    return m_children.end();
}
Property::const_iterator Property::end() const {
    RequireArray("end", TARSEL_THROW_SITE(Signatures::EndConst));
    return m_children.end();
}
Property::reverse_iterator Property::rbegin() {
    RequireArray("rbegin", TARSEL_THROW_SITE(Signatures::ReverseBegin));
    return m_children.rbegin();
}
Property::const_reverse_iterator Property::rbegin() const {
    RequireArray("rbegin", TARSEL_THROW_SITE(Signatures::ReverseBeginConst));
    return m_children.rbegin();
}
Property::reverse_iterator Property::rend() {
    RequireArray("rend", TARSEL_THROW_SITE(Signatures::ReverseEnd));
    return m_children.rend();
}
Property::const_reverse_iterator Property::rend() const {
    RequireArray("rend", TARSEL_THROW_SITE(Signatures::ReverseEndConst));
    return m_children.rend();
}

// --- Paths ---------------------------------------------------------------

namespace {

// Calls visit(segment) for each non-empty run of non-separator characters,
// in order, without copying the path; stops when visit returns false.
template <class Visit>
bool ForEachPathSegment(const std::string& path, Visit visit) {
    std::string::size_type pos = path.find_first_not_of(Property::SEPARATOR);
    while (pos != std::string::npos) {
        const std::string::size_type end = path.find_first_of(Property::SEPARATOR, pos);
        const std::string_view segment(path.data() + pos, (end == std::string::npos ? path.size() : end) - pos);
        if (!visit(segment)) {
            return false;
        }
        pos = end == std::string::npos ? end : path.find_first_not_of(Property::SEPARATOR, end);
    }
    return true;
}

}  // namespace

const Property& Property::ChildByPath(const std::string& path) const {
    // Each step is operator[](name) of the current node, with its texts.
    const ThrowSite site = TARSEL_THROW_SITE(Signatures::ChildByName);
    const Property* current = this;
    ForEachPathSegment(path, [&](std::string_view segment) {
        current->RequireArray("operator[]", site);
        const Property* child = current->FindChildByName(segment);
        if (child == nullptr) {
            current->ThrowChildNameIsNotFound(segment, site);
        }
        current = child;
        return true;
    });
    return *current;
}

Property& Property::ChildByPath(const std::string& path) {
    return const_cast<Property&>(static_cast<const Property&>(*this).ChildByPath(path));
}

bool Property::ChildExistsByPath(const std::string& path) const {
    // Each step is ChildExists(name) of the current node, with its texts.
    const ThrowSite site = TARSEL_THROW_SITE(Signatures::ChildExists);
    const Property* current = this;
    return ForEachPathSegment(path, [&](std::string_view segment) {
        current->RequireArray("ChildExists", site);
        current = current->FindChildByName(segment);
        return current != nullptr;
    });
}

// --- Settings with defaults ------------------------------------------------

namespace {

// The node at path below root, or null where a name is missing, the path
// runs through a node that is not a container, or it ends at an empty one:
// what a settings file's null, {} and unsigned-only integers load as, and in
// such a file a value that is not set.
const Property* FindSetting(const Property& root, const std::string& path) {
    const Property* current = &root;
    ForEachPathSegment(path, [&](std::string_view segment) {
        if (current->GetType() != TypeArray) {
            current = nullptr;
            return false;
        }
        const Property::const_iterator found = current->FindChild(std::string(segment));
        current = found == current->end() ? nullptr : &*found;
        return current != nullptr;
    });
    const bool emptyContainer = current != nullptr && current->GetType() == TypeArray && current->Count() == 0;
    return emptyContainer ? nullptr : current;
}

template <class T>
T SettingOr(const Property& root, const std::string& path, const T& fallback) {
    const Property* setting = FindSetting(root, path);
    return setting == nullptr ? fallback : GetValue<T>(*setting);
}

}  // namespace

template <>
bool GetValueOr<bool>(const Property& root, const std::string& path, const bool& fallback) {
    return SettingOr(root, path, fallback);
}
template <>
double GetValueOr<double>(const Property& root, const std::string& path, const double& fallback) {
    const Property* setting = FindSetting(root, path);
    if (setting == nullptr) {
        return fallback;
    }
    // A hand-edited "volume": 1 where the application wrote 0.8.
    return setting->GetType() == TypeInt64 ? static_cast<double>(setting->GetInt64()) : setting->GetDouble();
}
template <>
long long GetValueOr<long long>(const Property& root, const std::string& path, const long long& fallback) {
    return SettingOr(root, path, fallback);
}
template <>
int GetValueOr<int>(const Property& root, const std::string& path, const int& fallback) {
    return SettingOr(root, path, fallback);
}
template <>
unsigned int GetValueOr<unsigned int>(const Property& root, const std::string& path, const unsigned int& fallback) {
    return SettingOr(root, path, fallback);
}
template <>
std::string GetValueOr<std::string>(const Property& root, const std::string& path, const std::string& fallback) {
    return SettingOr(root, path, fallback);
}
template <>
Ratio GetValueOr<Ratio>(const Property& root, const std::string& path, const Ratio& fallback) {
    return SettingOr(root, path, fallback);
}
std::string GetValueOr(const Property& root, const std::string& path, const char* fallback) {
    return SettingOr<std::string>(root, path, fallback);
}

}  // namespace Tarsel::Core
