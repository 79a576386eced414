// ioPath, the one path type of the library's interface: a thin value type
// over boost::filesystem::path (filesystem v3 rules). The text is stored as
// given, UTF-8 by convention, never normalised.
#pragma once

#include <Core/Interfaces/Export.h>

#include <boost/filesystem/path.hpp>

#include <string>

namespace Tarsel {

class TARSEL_API ioPath {
public:
    ioPath() = default;
    ioPath(const boost::filesystem::path& path);
    ioPath(const std::string& text);
    ioPath(const char* text);

    ioPath& operator=(const std::string& text);
    ioPath& operator=(const char* text);

    ioPath& clear();
    // Nothing to do where "/" is the preferred separator: a backslash is an
    // ordinary character here.
    ioPath& make_preferred();
    ioPath& remove_filename();
    // boost's rule: a "." is inserted when missing; an empty extension
    // removes the current one.
    ioPath& replace_extension(const ioPath& extension = ioPath());
    void swap(ioPath& other) noexcept;

    ioPath root_path() const;
    ioPath root_name() const;
    ioPath root_directory() const;
    ioPath relative_path() const;
    ioPath parent_path() const;
    // "dir/" has the file name "." (filesystem v3).
    ioPath filename() const;
    ioPath stem() const;
    ioPath extension() const;

    bool empty() const;
    bool has_root_path() const;
    bool has_root_name() const;
    bool has_root_directory() const;
    bool has_relative_path() const;
    bool has_parent_path() const;
    // Any non-empty path has a file name.
    bool has_filename() const;
    bool has_stem() const;
    bool has_extension() const;
    // Absolute means "has a root directory"; a root name alone is not enough.
    bool is_absolute() const;
    bool is_relative() const;

    // Joins with a separator where boost inserts one: "dir" / "x" is "dir/x",
    // and so is "dir/" / "x".
    ioPath operator/(const ioPath& other) const;
    ioPath& operator/=(const ioPath& other);
    // Plain concatenation, never a separator: "report" + " (2)" is
    // "report (2)". This is how suffixes and extensions are glued on.
    ioPath& operator+=(const ioPath& other);

    // Element-wise comparison, byte by byte per element: "a//b" equals "a/b",
    // "a/b/" does not. The order of std::set<ioPath> and std::map keys.
    bool operator<(const ioPath& other) const;

    operator const boost::filesystem::path&() const noexcept { return m_path; }

    // The stored text, unchanged.
    std::string utf8string() const;

private:
    boost::filesystem::path m_path;
};

TARSEL_API ioPath operator+(const ioPath& left, const ioPath& right);
TARSEL_API bool operator==(const ioPath& left, const ioPath& right);
TARSEL_API bool operator!=(const ioPath& left, const ioPath& right);

inline void swap(ioPath& a, ioPath& b) noexcept {
    a.swap(b);
}

}  // namespace Tarsel
