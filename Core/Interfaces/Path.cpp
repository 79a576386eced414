// This file implements ioPath on top of boost::filesystem::path.
#include <Core/Interfaces/Path.h>

namespace Tarsel {

ioPath::ioPath(const boost::filesystem::path& path) : m_path(path) {}
ioPath::ioPath(const std::string& text) : m_path(text) {}
ioPath::ioPath(const char* text) : m_path(text) {}

ioPath& ioPath::operator=(const std::string& text) {
    m_path = text;
    return *this;
}

ioPath& ioPath::operator=(const char* text) {
    m_path = text;
    return *this;
}

ioPath& ioPath::clear() {
    m_path.clear();
    return *this;
}

ioPath& ioPath::make_preferred() {
    return *this;
}

ioPath& ioPath::remove_filename() {
    m_path.remove_filename();
    return *this;
}

ioPath& ioPath::replace_extension(const ioPath& extension) {
    m_path.replace_extension(extension.m_path);
    return *this;
}

void ioPath::swap(ioPath& other) noexcept {
    m_path.swap(other.m_path);
}

ioPath ioPath::root_path() const {
    return m_path.root_path();
}
ioPath ioPath::root_name() const {
    return m_path.root_name();
}
ioPath ioPath::root_directory() const {
    return m_path.root_directory();
}
ioPath ioPath::relative_path() const {
    return m_path.relative_path();
}
ioPath ioPath::parent_path() const {
    return m_path.parent_path();
}
ioPath ioPath::filename() const {
    return m_path.filename();
}
ioPath ioPath::stem() const {
    return m_path.stem();
}
ioPath ioPath::extension() const {
    return m_path.extension();
}

bool ioPath::empty() const {
    return m_path.empty();
}
bool ioPath::has_root_path() const {
    return has_root_directory() || has_root_name();
}
bool ioPath::has_root_name() const {
    return !m_path.root_name().empty();
}
bool ioPath::has_root_directory() const {
    return !m_path.root_directory().empty();
}
bool ioPath::has_relative_path() const {
    return !m_path.relative_path().empty();
}
bool ioPath::has_parent_path() const {
    return !m_path.parent_path().empty();
}
bool ioPath::has_filename() const {
    return !m_path.empty();
}
bool ioPath::has_stem() const {
    return !m_path.stem().empty();
}
bool ioPath::has_extension() const {
    return !m_path.extension().empty();
}
bool ioPath::is_absolute() const {
    return has_root_directory();
}
bool ioPath::is_relative() const {
    return !has_root_directory();
}

ioPath ioPath::operator/(const ioPath& other) const {
    boost::filesystem::path joined = m_path;
    joined /= other.m_path;
    return joined;
}

ioPath& ioPath::operator/=(const ioPath& other) {
    m_path /= other.m_path;
    return *this;
}

ioPath& ioPath::operator+=(const ioPath& other) {
    m_path += other.m_path;
    return *this;
}

bool ioPath::operator<(const ioPath& other) const {
    return m_path.compare(other.m_path) < 0;
}

std::string ioPath::utf8string() const {
    return m_path.native();
}

ioPath operator+(const ioPath& left, const ioPath& right) {
    ioPath result = left;
    result += right;
    return result;
}

bool operator==(const ioPath& left, const ioPath& right) {
    return static_cast<const boost::filesystem::path&>(left).compare(right) == 0;
}

bool operator!=(const ioPath& left, const ioPath& right) {
    return !(left == right);
}

}  // namespace Tarsel
