// `tarsel set`: changes one value of a user's JSON file. It edits the text
// through the library's JsonText, so that everything the user did not name
// stays byte for byte; it replaces the file atomically, one writer at a
// time, and refuses what a replacement would damage.
#include "Command.h"
#include "Failure.h"
#include "FolderLock.h"
#include "Input.h"
#include "TextDocument.h"
#include "TextPlace.h"
#include "ValueText.h"

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/JsonText.h>
#include <Core/Interfaces/PropertySerializer.h>

#include <boost/filesystem/exception.hpp>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TarselTool {

using namespace Tarsel;
using namespace Tarsel::Core;

namespace {

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

[[noreturn]] void Refuse(const std::string& name, const std::string& reason) {
    throw ToolFailure(kFailed, name, "cannot set: " + reason);
}

// Refuses what replacing the file would damage, or what the user may not
// do, before anything is made: anything but a regular file (a FIFO's
// writer would lose its data to a file); a file with other hard links,
// which a replacement would split off; a file the user may not read or
// write, or in a folder the user may not write, saying which. A missing
// file is left to the read, which reports it. The owner and group are the
// library's to keep (OpenReplacement).
void RequireReplaceable(const std::string& file, const boost::filesystem::path& folder, const std::string& name) {
    struct stat info {};
    if (::stat(file.c_str(), &info) != 0) {
        return;
    }
    if (!S_ISREG(info.st_mode)) {
        Refuse(name, std::string("it is ") + FileKind(info.st_mode) + ", not a regular file");
    }
    if (info.st_nlink > 1) {
        const auto others = static_cast<unsigned long long>(info.st_nlink - 1);
        Refuse(name, "it has " + std::to_string(others) + (others == 1 ? " other hard link" : " other hard links") +
                         ", which replacing it would split off");
    }
    if (::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        Refuse(name, errno == EROFS ? SystemReason(errno) : "you may not write in its folder " + folder.string());
    }
    if (::faccessat(AT_FDCWD, file.c_str(), R_OK, AT_EACCESS) != 0) {
        Refuse(name, "you may not read this file");
    }
    if (::faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) != 0) {
        Refuse(name, errno == EROFS ? SystemReason(errno) : "you may not write this file");
    }
}

// Interrupts (Ctrl-C, a closed terminal, kill) wait while set replaces the
// file, and take effect once the save has ended or been abandoned: where
// the temporary file has a name, none is left behind.
class HeldSignals {
public:
    HeldSignals() {
        sigset_t held;
        sigemptyset(&held);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
            sigaddset(&held, signal);
        }
        ::sigprocmask(SIG_BLOCK, &held, &m_previous);
    }
    ~HeldSignals() { ::sigprocmask(SIG_SETMASK, &m_previous, nullptr); }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

private:
    sigset_t m_previous{};
};

// Removes the temporary files that saves of file killed before they ended
// left in its folder (where they have names); only safe while the lock
// keeps every other set of the folder away.
void RemoveLeftovers(const std::string& file, const std::string& name) {
    try {
        AtomicFileDataOutput::RemoveLeftovers(file);
    } catch (...) {
        RethrowAbout(name, "cannot set");
    }
}

// Opens the replacement of file: the library resolves it once, records
// the file it found and refuses what it cannot keep. The file must be
// unchanged at the rename, since its text is edited.
boost::intrusive_ptr<AtomicFileDataOutput> OpenReplacement(const std::string& file, const std::string& name) {
    try {
        return AtomicFileDataOutput::Create(file, AtomicFileDataOutput::TargetCheck::Unchanged);
    } catch (const boost::filesystem::filesystem_error& e) {
        if (e.code() == SaveError::OwnerCannotBeKept) {
            Refuse(name, "it belongs to another user, and replacing it would make it yours");
        }
        if (e.code() == SaveError::GroupCannotBeKept) {
            Refuse(name, "its group is one you are not in, and replacing it would give it yours");
        }
        RethrowAbout(name, "cannot set");
    }
}

// The test suite's way to act between set's write and its rename (swap the
// file, change it in place, look at the folder): when TARSEL_TEST_PAUSE
// names a FIFO, set waits there until the test writes to it or closes it.
void PauseForTests() {
    const char* fifo = std::getenv("TARSEL_TEST_PAUSE");
    if (fifo == nullptr) {
        return;
    }
    const int fd = ::open(fifo, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        char byte;
        while (::read(fd, &byte, 1) < 0 && errno == EINTR) {
        }
        ::close(fd);
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

void Save(AtomicFileDataOutput& output, const std::string& name, const std::string& text) {
    output.Write(text.data(), text.size());
    PauseForTests();
    try {
        output.Commit();
    } catch (const boost::filesystem::filesystem_error& e) {
        if (e.code() == SaveError::TargetReplaced || e.code() == SaveError::TargetChanged) {
            throw ToolFailure(kFailed, name, "changed while it was being edited; nothing written");
        }
        RethrowAbout(name, "cannot save");
    } catch (...) {
        RethrowAbout(name, "cannot save");
    }
}

// The --wait option's whole seconds; anything else is a usage error.
unsigned WaitSeconds(const std::string& text) {
    const bool digits = !text.empty() && text.size() <= 5 && text.find_first_not_of("0123456789") == std::string::npos;
    const unsigned long seconds = digits ? std::stoul(text) : kMaxWaitSeconds + 1UL;
    if (seconds > kMaxWaitSeconds) {
        throw UsageError("--wait takes whole seconds from 0 to " + std::to_string(kMaxWaitSeconds) + ", not '" + text +
                         "'");
    }
    return static_cast<unsigned>(seconds);
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
        "pointer", po::bool_switch(), kPointerHelp)("comments", po::bool_switch(), kCommentsHelp)(
        "wait", po::value<std::string>()->default_value("10")->value_name("SECONDS"),
        "how long to wait for another process's lock on the file's folder, from 0 to a day");
    po::positional_options_description positional;
    positional.add("file", 1).add("path", 1).add("value", 1);
    const auto values = ParseOrExit(args,
                                    "tarsel set FILE PATH VALUE [--type bool|int|double|string|ratio] [--pointer] "
                                    "[--comments] [--wait SECONDS]",
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

    const unsigned wait = WaitSeconds(values["wait"].as<std::string>());

    const std::string name = DisplayName(file);
    const FolderLock lock(file, name, wait);
    RemoveLeftovers(file, name);
    RequireReplaceable(file, lock.Folder(), name);
    const HeldSignals held;
    const auto output = OpenReplacement(file, name);
    // The file must load as it is before it is changed. It is read from the
    // file the replacement found, not through its path again, and its index
    // is freed before the edit is made, so that a large file is never held
    // twice.
    const std::shared_ptr<std::string> text = ReadDocumentText(file, output->ReadTarget());
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
    Save(*output, name, *text);
    return kSuccess;
}

}  // namespace TarselTool
