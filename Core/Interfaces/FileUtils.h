/// @file
/// File and directory helpers on boost filesystem: existence, removal,
/// copying, file-name checks, free output names and grouping by folder.
///
/// Ordinary negative answers come back as false. Failures of the operating
/// system come back as boost::filesystem::filesystem_error, untranslated; only
/// RemoveDir swallows them. Status queries follow symbolic links.
#pragma once

#include <Core/Interfaces/Export.h>
#include <Core/Interfaces/Path.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace Tarsel::Core {

/// True when path names anything, a directory included; false for a missing
/// path or a dangling symbolic link. Throws filesystem_error when the status
/// cannot be taken (permission denied on a parent, say).
TARSEL_API bool FileExists(const ioPath& path);

/// Removes a regular file (or the link that leads to one). Returns false, and
/// touches nothing, for a missing path, a directory or any other type. Throws
/// filesystem_error when the status cannot be taken or the removal fails.
TARSEL_API bool RemoveFile(const ioPath& path);

/// Removes a directory tree; true when something was removed. Returns false
/// for a missing path or a non-directory, and also when the removal itself
/// fails: what was removed before the failure stays removed. Throws
/// filesystem_error only when the status cannot be taken beforehand.
TARSEL_API bool RemoveDir(const ioPath& path);

/// Copies the files of source into target, creating target (one level, never
/// its parents) when it is missing. Returns false when source is not a
/// directory or target cannot be created. Throws filesystem_error when a file
/// already exists in target (nothing is overwritten) or a copy fails.
/// A subdirectory is copied to target / its whole path, not to target / its
/// name: we keep this joining as it is, so "src/sub" goes to "target/src/sub",
/// and the copy throws unless that folder structure already exists in target.
TARSEL_API bool CopyDir(const ioPath& source, const ioPath& target);

/// True when path may be used as a file's path: not empty, at most 1024
/// bytes, and its file name does not begin with a space nor hold a "/".
/// Only the last element is judged: "a/b.txt" is valid, "dir/ x" is not, and
/// "dir/" is valid (its file name is "."). Never throws.
TARSEL_API bool CheckValidFilename(const ioPath& path);

/// Rewrites *path into a path that neither exists nor is in *reserved: gives
/// it the extension (with or without its "."; an empty one removes it) and,
/// when needed, a number " (N)" counted from 1: "/d/report" with "txt" becomes
/// "/d/report (1).txt" when "/d/report.txt" exists. With numberOnly, *path is
/// a directory and the file is named by a number: "/d" with "mp4" gives
/// "/d/(1).mp4", then "/d/(1) (1).mp4" if that exists.
/// Names that CheckValidFilename rejects are repaired: leading spaces are
/// dropped, and a name too long is cut one character at a time before its
/// number or extension. We made two choices here on purpose: a name changed
/// only by dropping its leading spaces is not tested for existence again, and
/// after a two-digit number the cut falls one character further from it.
/// reserved may be null; a null path makes the call do nothing.
/// Throws std::out_of_range ("basic_string::erase...") for a name that cannot
/// be cut short enough, such as one made only of spaces, and filesystem_error
/// when a status cannot be taken; *path then holds the proposed path with its
/// new extension.
TARSEL_API void UpdateFilePathIfExist(const std::set<ioPath>* reserved, bool numberOnly, const std::string& extension,
                                      ioPath* path);

/// Groups files by the folder that holds them (their parent_path; "" for a
/// bare name). Each list keeps the input's order of first occurrence, and a
/// path given twice, or in two spellings that compare equal ("a//b.txt" and
/// "a/b.txt"), is listed once as first spelt. Pure path arithmetic, never
/// touches the disk. Quadratic in the number of files: meant for lists a user
/// picked by hand.
TARSEL_API std::map<ioPath, std::vector<ioPath>> MakeDirectoryToFileListMap(const std::vector<ioPath>& files);

}  // namespace Tarsel::Core
