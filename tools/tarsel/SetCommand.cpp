// `tarsel set`: changes one value of a user's JSON file. It edits the text
// through the library's JsonText, so that everything the user did not name
// stays byte for byte; it replaces the file atomically, one writer at a
// time, and refuses what a replacement would damage.
#include "Command.h"
#include "Failure.h"
#include "Input.h"
#include "JsonText.h"
#include "ValueText.h"

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/JsonText.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <boost/filesystem/operations.hpp>

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

// An exclusive advisory lock on the folder that holds the file (its link
// followed), held from before the file is read until after it is replaced:
// concurrent sets of one file take turns, and none loses another's change.
// The folder, unlike the file, outlives the rename; the kernel releases the
// lock when the process ends, however it ends, and nothing is left on disk.
class FolderLock {
public:
    FolderLock(const std::string& file, const std::string& name) {
        boost::system::error_code error;
        const boost::filesystem::path real = boost::filesystem::canonical(file, error);
        const boost::filesystem::path folder = (error ? boost::filesystem::path(file) : real).parent_path();
        const std::string folderText = folder.empty() ? std::string(".") : folder.string();
        m_fd = ::open(folderText.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (m_fd < 0) {
            throw ToolFailure(kFailed, name, "cannot lock its folder: " + SystemReason(errno));
        }
        while (::flock(m_fd, LOCK_EX) != 0) {
            if (errno != EINTR) {
                const int lockError = errno;
                ::close(m_fd);
                throw ToolFailure(kFailed, name, "cannot lock its folder: " + SystemReason(lockError));
            }
        }
    }
    ~FolderLock() { ::close(m_fd); }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

private:
    int m_fd;
};

const char* FileKind(mode_t mode) {
    if (S_ISFIFO(mode)) {
        return "a FIFO";
    }
    if (S_ISSOCK(mode)) {
        return "a socket";
    }
    if (S_ISCHR(mode) || S_ISBLK(mode)) {
        return "a device";
    }
    if (S_ISDIR(mode)) {
        return "a folder";
    }
    return "not a file";
}

// Refuses a file that replacing would damage: anything but a regular file
// (a FIFO's writer would lose its data to a file); a file the user may not
// write, or does not own, where the folder would still let it be replaced
// (the replacement would be the user's: root, who can give the owner back,
// may); a file with other hard links, which a replacement would split off.
// A missing file is left to the load, which reports it.
void RequireReplaceable(const std::string& file, const std::string& name) {
    struct stat info {};
    if (::stat(file.c_str(), &info) != 0) {
        return;
    }
    const auto refuse = [&](const std::string& reason) { throw ToolFailure(kFailed, name, "cannot set: " + reason); };
    if (!S_ISREG(info.st_mode)) {
        refuse(std::string("it is ") + FileKind(info.st_mode) + ", not a regular file");
    }
    if (::geteuid() != 0) {
        if (::faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) != 0) {
            refuse(SystemReason(errno));
        }
        if (info.st_uid != ::geteuid()) {
            refuse("it belongs to another user, and replacing it would make it yours");
        }
    }
    if (info.st_nlink > 1) {
        const auto others = static_cast<unsigned long long>(info.st_nlink - 1);
        refuse("it has " + std::to_string(others) + (others == 1 ? " other hard link" : " other hard links") +
               ", which replacing it would split off");
    }
}

// Where names lead in json: the edit that sets the value there to
// valueText, or adds it. Throws ToolFailure naming document when the path
// runs through a value that is not a container, or names an array element
// that is neither there nor next.
JsonText::Edit EditFor(const JsonText& json, const std::vector<std::string>& names, const std::string& valueText,
                       const std::string& document) {
    const JsonText::Reach reach = json.Follow(names);
    if (reach.matched == names.size()) {
        return json.Replace(reach.value, valueText);
    }
    const std::string where = reach.matched == 0 ? std::string("the document") : JoinedPath(names, reach.matched);
    const std::string& next = names[reach.matched];
    const std::vector<std::string> rest(names.begin() + static_cast<std::ptrdiff_t>(reach.matched), names.end());
    switch (json.KindOf(reach.value)) {
    case JsonText::Kind::Object:
        return json.Append(reach.value, rest, valueText);
    case JsonText::Kind::Array: {
        const std::size_t count = json.Count(reach.value);
        if (next != std::to_string(count)) {
            const bool index = !next.empty() && next.find_first_not_of("0123456789") == std::string::npos &&
                               (next.size() == 1 || next[0] != '0');
            throw ToolFailure(kFailed, document,
                              index ? where + " has " + std::to_string(count) + " elements: only an index up to " +
                                          std::to_string(count) + " can be set"
                                    : where + " is an array: '" + next + "' is not an index of it");
        }
        return json.Append(reach.value, {rest.begin() + 1, rest.end()}, valueText);
    }
    default:
        break;
    }
    throw ToolFailure(kFailed, document,
                      where + " is " + KindName(json.KindOf(reach.value)) +
                          ", not an object: nothing can be set inside it");
}

// The edited text must load as a settings file, and the path must lead to
// the value written: what the library reads there is what was asked for.
void RequireReadsBack(const std::string& text, PropertySerializer::JsonSyntax syntax,
                      const std::vector<std::string>& names, const std::string& valueText, const std::string& name) {
    try {
        const JsonText json(text, syntax, JsonText::Rules::Settings);
        const JsonText::Reach reach = json.Follow(names);
        if (reach.matched == names.size() && json.Spelling(reach.value) == valueText) {
            return;
        }
    } catch (const std::exception& e) {
        throw ToolFailure(kFailed, name, "cannot set: the file would no longer load: " + LoadRefusalReason(e));
    }
    throw ToolFailure(kFailed, name, "cannot set: the path would not read back as the value written; nothing written");
}

void Save(const std::string& file, const std::string& name, const std::string& text) {
    try {
        const auto output = AtomicFileDataOutput::Create(file);
        output->Write(text.data(), text.size());
        output->Commit();
    } catch (...) {
        RethrowAbout(name, "cannot save");
    }
}

}  // namespace

int RunSet(const std::vector<std::string>& args) {
    po::options_description options("options");
    options.add_options()("file", po::value<std::string>()->required()->value_name("FILE"),
                          "the JSON file, changed in place")(
        "path", po::value<std::string>()->required()->value_name("PATH"),
        "child names joined by \"/\"; in an array, element indexes; missing objects on the way are made")(
        "value", po::value<std::string>()->required()->value_name("VALUE"),
        "the new value (after -- when it starts with -)")(
        "type", po::value<std::string>()->default_value("")->value_name("TYPE"),
        "bool, int, double, string or ratio; without it the type is inferred from VALUE")(
        "pointer", po::bool_switch(), kPointerHelp)("comments", po::bool_switch(), kCommentsHelp);
    po::positional_options_description positional;
    positional.add("file", 1).add("path", 1).add("value", 1);
    const auto values =
        ParseOrExit(args, "tarsel set FILE PATH VALUE [--type bool|int|double|string|ratio] [--pointer] [--comments]",
                    options, positional);
    const std::string file = values["file"].as<std::string>();
    if (file == "-") {
        throw UsageError("set saves FILE back, so FILE cannot be standard input");
    }
    const std::string& path = values["path"].as<std::string>();
    const std::string& value = values["value"].as<std::string>();
    for (const auto& [argument, text] : {std::pair{"PATH", &path}, std::pair{"VALUE", &value}}) {
        if (FirstInvalidUtf8(*text) != std::string::npos || text->find('\0') != std::string::npos) {
            throw UsageError(std::string(argument) + " is not UTF-8 text, which JSON text must be");
        }
    }
    const std::vector<std::string> names = values["pointer"].as<bool>() ? PointerSegments(path) : PathSegments(path);
    if (names.empty()) {
        throw UsageError("PATH names no member to set");
    }
    for (const std::string& name : names) {
        if (name.empty()) {
            throw UsageError("a member name cannot be empty");
        }
    }
    const std::string valueText = JsonValueText(value, values["type"].as<std::string>());
    const PropertySerializer::JsonSyntax syntax = SyntaxOf(file, values["comments"].as<bool>());

    const std::string name = DisplayName(file);
    const FolderLock lock(file, name);
    RequireReplaceable(file, name);
    // The file must load as it is before it is changed: its index is freed
    // before the edit is made, so that a large file is never held twice.
    const std::shared_ptr<std::string> text = ReadDocumentText(file);
    JsonText::Edit edit;
    try {
        const JsonText json(*text, syntax, JsonText::Rules::Settings);
        edit = EditFor(json, names, valueText, name);
    } catch (const ToolFailure&) {
        throw;
    } catch (...) {
        RethrowAbout(name, "", text);
    }
    JsonText::Apply(edit, *text);
    RequireReadsBack(*text, syntax, names, valueText, name);
    Save(file, name, *text);
    return kSuccess;
}

}  // namespace TarselTool
