// `tarsel set`: changes one value of a user's JSON file. It edits the text
// (JsonEdit.h), so that everything the user did not name stays byte for
// byte; it replaces the file atomically, one writer at a time, and refuses
// what a replacement would damage.
#include "Command.h"
#include "Failure.h"
#include "Input.h"
#include "JsonEdit.h"
#include "JsonText.h"
#include "ValueText.h"

#include <Core/Interfaces/DataStream.h>
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

// The JSON text of value: a scalar, doubles exactly.
std::string ValueText(const Property& value) {
    const auto output = MemoryDataOutput::Create();
    PropertySerializer::Serialize(value, output, false, PropertySerializer::DoubleText::RoundTrip);
    return output->GetData();
}

// A change that would leave a file the library cannot load (the ratio key
// given the string "1/0", say) is refused.
void RequireLoads(const std::string& text, const std::string& name) {
    try {
        Property tree("settings");
        PropertySerializer::Deserialize(tree, MemoryDataInput::Create(text), false);
    } catch (const std::exception& e) {
        throw ToolFailure(kFailed, name, "cannot set: the file would no longer load: " + LoadRefusalReason(e));
    }
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
        "bool, int, double, string or ratio; without it the type is inferred from VALUE")("pointer", po::bool_switch(),
                                                                                          kPointerHelp);
    po::positional_options_description positional;
    positional.add("file", 1).add("path", 1).add("value", 1);
    const auto values = ParseOrExit(
        args, "tarsel set FILE PATH VALUE [--type bool|int|double|string|ratio] [--pointer]", options, positional);
    const std::string file = values["file"].as<std::string>();
    if (file == "-") {
        throw UsageError("set saves FILE back, so FILE cannot be standard input");
    }
    const std::string& path = values["path"].as<std::string>();
    const std::vector<std::string> names = values["pointer"].as<bool>() ? PointerSegments(path) : PathSegments(path);
    if (names.empty()) {
        throw UsageError("PATH names no member to set");
    }
    for (const std::string& name : names) {
        if (name.empty()) {
            throw UsageError("a member name cannot be empty");
        }
    }
    const std::string valueText =
        ValueText(ValueFromText(values["value"].as<std::string>(), values["type"].as<std::string>()));

    const std::string name = DisplayName(file);
    const FolderLock lock(file, name);
    RequireReplaceable(file, name);
    // The file must load as it is before it is changed, and load after.
    const Document document = LoadDocument(file, false);
    const std::string& text = *document.text;
    const std::string edited = SetValueInText(text, ParseJsonText(text), names, valueText, name);
    RequireLoads(edited, name);
    Save(file, name, edited);
    return kSuccess;
}

}  // namespace TarselTool
