/// @file
/// ioPath, the one path type of the library's interface: a thin value type
/// over boost::filesystem::path (filesystem v3 rules). The text is stored as
/// given, UTF-8 by convention, never normalised.
#pragma once

#include <Core/Interfaces/Export.h>

#include <boost/filesystem/path.hpp>

#include <string>

namespace Tarsel {

/// A path, as text: "settings/video.json". Every path in the library's
/// interface is one. Its operations are boost::filesystem::path's of the same
/// names, under filesystem v3's rules; those whose answer surprises say so.
class TARSEL_API ioPath {
public:
    /// The empty path.
    ioPath() = default;
    /// The path with that text, kept as it is; implicit, so that a text or a
    /// boost path is accepted wherever an ioPath is.
    ///@{
    ioPath(const boost::filesystem::path& path);
    ioPath(const std::string& text);
    ioPath(const char* text);
    ///@}

    /// Replaces the text.
    ///@{
    ioPath& operator=(const std::string& text);
    ioPath& operator=(const char* text);
    ///@}

    /// Empties the path.
    ioPath& clear();
    /// Nothing to do where "/" is the preferred separator: a backslash is an
    /// ordinary character here.
    ioPath& make_preferred();
    /// Removes the last element: "dir/file.txt" becomes "dir".
    ioPath& remove_filename();
    /// boost's rule: a "." is inserted when missing; an empty extension
    /// removes the current one.
    ioPath& replace_extension(const ioPath& extension = ioPath());
    /// Exchanges the texts of the two paths.
    void swap(ioPath& other) noexcept;

    /// The parts of the path, as boost::filesystem::path names them: for
    /// "/dir/report.tar.gz", the root "/", the relative path
    /// "dir/report.tar.gz", the parent "/dir", the stem "report.tar" and the
    /// extension ".gz". "//host/dir" has the root name "//host".
    ///@{
    ioPath root_path() const;
    ioPath root_name() const;
    ioPath root_directory() const;
    ioPath relative_path() const;
    ioPath parent_path() const;
    ///@}
    /// "dir/" has the file name "." (filesystem v3).
    ioPath filename() const;
    /// The file name without its extension.
    ioPath stem() const;
    /// The file name from its last ".": ".gz" for "report.tar.gz", ".profile"
    /// for ".profile", "" for "README".
    ioPath extension() const;

    /// True for the empty text.
    bool empty() const;
    /// Whether the part of the same name is non-empty.
    ///@{
    bool has_root_path() const;
    bool has_root_name() const;
    bool has_root_directory() const;
    bool has_relative_path() const;
    bool has_parent_path() const;
    ///@}
    /// Any non-empty path has a file name.
    bool has_filename() const;
    /// Whether the part of the same name is non-empty.
    ///@{
    bool has_stem() const;
    bool has_extension() const;
    ///@}
    /// Absolute means "has a root directory"; a root name alone is not enough.
    bool is_absolute() const;
    /// Not absolute.
    bool is_relative() const;

    /// Joins with a separator where boost inserts one: "dir" / "x" is "dir/x",
    /// and so is "dir/" / "x".
    ioPath operator/(const ioPath& other) const;
    /// Appends other as operator/ joins it.
    ioPath& operator/=(const ioPath& other);
    /// Plain concatenation, never a separator: "report" + " (2)" is
    /// "report (2)". This is how suffixes and extensions are glued on.
    ioPath& operator+=(const ioPath& other);

    /// Element-wise comparison, byte by byte per element: "a//b" equals "a/b",
    /// "a/b/" does not. The order of std::set<ioPath> and std::map keys.
    bool operator<(const ioPath& other) const;

    /// The path as boost::filesystem takes it.
    operator const boost::filesystem::path&() const noexcept { return m_path; }

    /// The stored text, unchanged.
    std::string utf8string() const;

private:
    boost::filesystem::path m_path;
};

/// Plain concatenation, as ioPath::operator+= glues.
TARSEL_API ioPath operator+(const ioPath& left, const ioPath& right);
/// Equality by elements, as ioPath::operator< orders: "a//b" equals "a/b".
///@{
TARSEL_API bool operator==(const ioPath& left, const ioPath& right);
TARSEL_API bool operator!=(const ioPath& left, const ioPath& right);
///@}

/// Exchanges the texts of the two paths.
inline void swap(ioPath& a, ioPath& b) noexcept {
    a.swap(b);
}

}  // namespace Tarsel
