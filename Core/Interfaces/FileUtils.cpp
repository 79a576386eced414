// This file implements the file and directory helpers on boost filesystem's
// throwing calls; only RemoveDir turns a filesystem_error into false.
#include <Core/Interfaces/FileUtils.h>

#include <boost/filesystem/operations.hpp>
#include <boost/format.hpp>

#include <algorithm>

namespace Tarsel::Core {

namespace fs = boost::filesystem;

namespace {

// The longest path, in bytes, that we hand out as a file's path.
constexpr std::string::size_type kMaxPathBytes = 1024;

// Anything but status_error and file_not_found exists, directories included.
bool Exists(const fs::file_status& status) {
    return status.type() != fs::status_error && status.type() != fs::file_not_found;
}

ioPath NumberText(const char* format, unsigned number) {
    return (boost::format(format) % number).str();
}

std::string::size_type DecimalDigits(unsigned number) {
    std::string::size_type digits = 1;
    for (; number >= 10; number /= 10) {
        ++digits;
    }
    return digits;
}

std::string WithoutLeadingSpaces(std::string text) {
    text.erase(0, text.find_first_not_of(' '));
    return text;
}

// Numbers the name of path, " (N)" after its stem, while the candidate exists
// or a number is forced. The stem never changes, so the numbers replace each
// other: "report (1).txt", "report (2).txt"... Returns whether a number was
// added; *name is then the numbered file name.
bool NumberWhileTaken(const ioPath& path, bool* forceNumber, unsigned* counter, ioPath* name) {
    const ioPath stem = path.stem();
    const ioPath parent = path.parent_path();
    const ioPath extension = path.extension();
    ioPath candidate = path;
    bool numbered = false;
    while (FileExists(candidate) || *forceNumber) {
        *name = stem + NumberText(" (%d)", *counter) + extension;
        candidate = parent / *name;
        ++*counter;
        *forceNumber = false;
        numbered = true;
    }
    return numbered;
}

// Cuts the stem of name one character at a time until the whole path is
// valid. The cut falls just before a number suffix; its width is taken from
// the counter as it stands after the numbering, so once " (9)" moved the
// counter to 10 the cut lands one character further left. We keep that.
// The first test judges the bare name, every later one the full path.
// A stem shorter than the cut puts the position past the end, and
// std::string::erase throws std::out_of_range.
ioPath ShortenUntilValid(const ioPath& parent, const ioPath& extension, std::string::size_type cut, ioPath name,
                         bool* changed) {
    ioPath check = name;
    while (!CheckValidFilename(check)) {
        // The stem of name, not of check's file name: the two agree until the
        // name is cut to nothing, when check is the folder itself and cutting
        // the folder's name would never end. An empty stem throws instead.
        std::string stem = name.stem().utf8string();
        stem.erase(stem.size() - cut, 1);
        name = ioPath(stem) + extension;
        check = parent / name;
        *changed = true;
    }
    return name;
}

// Repairs the file name of path: drops its leading spaces, names a file
// without a stem ("dir/.mp4") "(N)" plus its extension, and shortens a name
// CheckValidFilename rejects. Dropping spaces alone does not count as a
// change, so such a name is not tested for existence again.
ioPath RepairName(const ioPath& path, bool numbered, unsigned counter, bool* changed) {
    const ioPath extension = path.extension();
    if (path.stem().empty()) {
        *changed = true;
        return NumberText("(%d)", counter) + extension;
    }
    const std::string::size_type cut = numbered ? DecimalDigits(counter) + 4 : 1;
    return ShortenUntilValid(path.parent_path(), extension, cut, WithoutLeadingSpaces(path.filename().utf8string()),
                             changed);
}

// Turns proposed into a free, valid path in *result. counter is shared with
// the caller across calls; forceNumber numbers the name even when it is free.
void GenerateCorrectPathFile(const ioPath& proposed, bool forceNumber, unsigned* counter, ioPath* result) {
    const ioPath dir = proposed.parent_path();
    *result = proposed;
    bool changed = true;
    while (changed) {
        ioPath name = result->filename();
        const bool numbered = NumberWhileTaken(*result, &forceNumber, counter, &name);
        changed = numbered;
        *result = dir / name;
        name = RepairName(*result, numbered, *counter, &changed);
        *result = dir / name;
        forceNumber = false;
    }
}

}  // namespace

bool FileExists(const ioPath& path) {
    return Exists(fs::status(path));
}

bool RemoveFile(const ioPath& path) {
    ioPath preferred = path;
    preferred.make_preferred();
    const fs::file_status status = fs::status(preferred);
    if (!Exists(status) || status.type() != fs::regular_file) {
        return false;
    }
    return fs::remove(preferred);
}

bool RemoveDir(const ioPath& path) {
    const fs::file_status status = fs::status(path);
    if (!Exists(status) || status.type() != fs::directory_file) {
        return false;
    }
    try {
        return fs::remove_all(path) != 0;
    } catch (const fs::filesystem_error&) {
        return false;
    }
}

bool CopyDir(const ioPath& source, const ioPath& target) {
    if (fs::status(source).type() != fs::directory_file) {
        return false;
    }
    if (!FileExists(target) && !fs::create_directory(target)) {
        return false;
    }
    for (fs::directory_iterator it(source), end; it != end; ++it) {
        const ioPath entry = it->path();
        if (fs::status(entry).type() == fs::directory_file) {
            if (!CopyDir(entry, target / entry)) {
                return false;
            }
        } else {
            // copy_options::none refuses an existing target (fail_if_exists).
            fs::copy_file(entry, target / entry.filename(), fs::copy_options::none);
        }
    }
    return true;
}

bool CheckValidFilename(const ioPath& path) {
    if (path.empty() || path.utf8string().size() > kMaxPathBytes) {
        return false;
    }
    return fs::native(path.filename().utf8string());
}

void UpdateFilePathIfExist(const std::set<ioPath>* reserved, bool numberOnly, const std::string& extension,
                           ioPath* path) {
    if (path == nullptr) {
        return;
    }
    unsigned counter = 1;
    if (numberOnly) {
        *path = *path / "(1)";
    }
    path->replace_extension(extension);
    ioPath result;
    GenerateCorrectPathFile(*path, false, &counter, &result);
    if (reserved != nullptr) {
        // Each retry starts again from *path; the shared counter moves the
        // number on.
        while (!reserved->empty() && reserved->count(result) != 0) {
            GenerateCorrectPathFile(*path, true, &counter, &result);
        }
    }
    *path = result;
}

std::map<ioPath, std::vector<ioPath>> MakeDirectoryToFileListMap(const std::vector<ioPath>& files) {
    std::map<ioPath, std::vector<ioPath>> groups;
    for (const ioPath& file : files) {
        groups.emplace(file.parent_path(), std::vector<ioPath>());
    }
    // Each folder rescans the whole input: quadratic, and accepted for the
    // short lists a user picks.
    for (auto& [folder, list] : groups) {
        for (const ioPath& file : files) {
            if (file.parent_path() == folder && std::find(list.begin(), list.end(), file) == list.end()) {
                list.push_back(file);
            }
        }
    }
    return groups;
}

}  // namespace Tarsel::Core
