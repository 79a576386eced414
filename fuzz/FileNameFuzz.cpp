// Arbitrary names inside a scratch folder: the bytes become a proposed file
// name, an extension and a few names of files that exist (or are reserved),
// given to UpdateFilePathIfExist, and each of them to CheckValidFilename and,
// together, to MakeDirectoryToFileListMap. Checked against the documented
// rules: the free name is neither on disk nor reserved and stays in the
// proposed folder; a refusal is one of the two documented exceptions and
// leaves the proposed path with its new extension; validity follows the
// three rules; the grouping loses, adds and repeats nothing.
#include "FuzzCheck.h"

#include <Core/Interfaces/FileUtils.h>

#include <boost/filesystem.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace Tarsel;
using namespace Tarsel::Core;
namespace fs = boost::filesystem;

// One folder for the whole run, emptied after each input.
const fs::path& Scratch() {
    static const fs::path folder = [] {
        const fs::path made = fs::temp_directory_path() / fs::unique_path("tarsel-fuzz-%%%%-%%%%-%%%%");
        fs::create_directory(made);
        std::atexit([] { fs::remove_all(Scratch()); });
        return made;
    }();
    return folder;
}

// The fields of the input, split at line breaks. A file name cannot hold a
// zero byte, so zero bytes are dropped.
std::vector<std::string> Fields(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> fields(1);
    for (std::size_t i = 0; i < size; ++i) {
        const char c = static_cast<char>(data[i]);
        if (c == '\n') {
            fields.emplace_back();
        } else if (c != '\0') {
            fields.back() += c;
        }
    }
    return fields;
}

// Valid: not empty, at most 1024 bytes, and a file name (boost's, "." for a
// trailing separator) that neither begins with a space nor holds a "/".
bool ReferenceValid(const std::string& text) {
    if (text.empty() || text.size() > 1024) {
        return false;
    }
    const std::string name = fs::path(text).filename().string();
    return !name.empty() && name[0] != ' ' && name.find('/') == std::string::npos;
}

void CheckGrouping(const std::vector<ioPath>& files) {
    const std::map<ioPath, std::vector<ioPath>> groups = MakeDirectoryToFileListMap(files);
    std::size_t listed = 0;
    for (const auto& [folder, list] : groups) {
        TARSEL_FUZZ_CHECK(!list.empty());
        for (std::size_t i = 0; i < list.size(); ++i) {
            TARSEL_FUZZ_CHECK(list[i].parent_path() == folder);
            // Each listed path is the first spelling of its file in the
            // input, in the order of first occurrence, listed once.
            const auto first = std::find(files.begin(), files.end(), list[i]);
            TARSEL_FUZZ_CHECK(first != files.end() && first->utf8string() == list[i].utf8string());
            if (i > 0) {
                TARSEL_FUZZ_CHECK(std::find(files.begin(), files.end(), list[i - 1]) < first);
            }
        }
        listed += list.size();
    }
    // Every input is in its folder's list.
    std::size_t distinct = 0;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const auto group = groups.find(files[i].parent_path());
        TARSEL_FUZZ_CHECK(group != groups.end());
        TARSEL_FUZZ_CHECK(std::find(group->second.begin(), group->second.end(), files[i]) != group->second.end());
        distinct += std::find(files.begin(), files.begin() + static_cast<std::ptrdiff_t>(i), files[i]) ==
                    files.begin() + static_cast<std::ptrdiff_t>(i);
    }
    TARSEL_FUZZ_CHECK(listed == distinct);
}

// Creates the bare names that the system accepts; returns those it made.
std::vector<fs::path> CreateFiles(const std::vector<std::string>& names) {
    std::vector<fs::path> made;
    for (const std::string& name : names) {
        if (name.find('/') != std::string::npos || name == "." || name == ".." || name.size() > 255) {
            continue;
        }
        const fs::path file = Scratch() / name;
        const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd >= 0) {
            ::close(fd);
            made.push_back(file);
        }
    }
    return made;
}

void CheckFreeName(bool numberOnly, bool reserve, const std::string& proposedName, const std::string& extension,
                   const std::vector<std::string>& others) {
    const std::vector<fs::path> made = CreateFiles(others);
    std::set<ioPath> reserved;
    if (reserve) {
        for (const std::string& name : others) {
            reserved.insert(ioPath((Scratch() / name).string()));
        }
    }
    const ioPath proposed((Scratch() / proposedName).string());
    ioPath withExtension = numberOnly ? proposed / "(1)" : proposed;
    withExtension.replace_extension(extension);

    ioPath path = proposed;
    bool refused = false;
    try {
        UpdateFilePathIfExist(reserve ? &reserved : nullptr, numberOnly, extension, &path);
    } catch (const std::out_of_range&) {
        refused = true;
    } catch (const fs::filesystem_error&) {
        refused = true;
    }
    if (refused) {
        TARSEL_FUZZ_CHECK(path.utf8string() == withExtension.utf8string());
    } else {
        TARSEL_FUZZ_CHECK(path.parent_path() == withExtension.parent_path());
        TARSEL_FUZZ_CHECK(reserved.count(path) == 0);
        // A name changed only by dropping its leading spaces is, by design,
        // not tested for existence again.
        const std::string name = withExtension.filename().utf8string();
        if (name.empty() || name[0] != ' ') {
            boost::system::error_code error;
            TARSEL_FUZZ_CHECK(!fs::exists(static_cast<const fs::path&>(path), error) || error);
        }
    }
    for (const fs::path& file : made) {
        ::unlink(file.c_str());
    }
}

}  // namespace

// Byte 0: bit 0 numberOnly, bit 1 the other names reserved too. Then fields
// split at line breaks: the proposed name (inside the scratch folder), the
// extension, and up to six names of files that exist.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::vector<std::string> fields = Fields(data + 1, size - 1);
    fields.resize(std::max<std::size_t>(fields.size(), 2));

    std::vector<ioPath> paths;
    for (const std::string& field : fields) {
        TARSEL_FUZZ_CHECK(CheckValidFilename(ioPath(field)) == ReferenceValid(field));
        paths.emplace_back(field);
    }
    CheckGrouping(paths);

    const std::vector<std::string> others(
        fields.begin() + 2, fields.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(fields.size(), 8)));
    CheckFreeName((data[0] & 1) != 0, (data[0] & 2) != 0, fields[0], fields[1], others);
    return 0;
}
