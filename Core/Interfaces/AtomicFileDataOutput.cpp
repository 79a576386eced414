// This file implements the atomic replacement of a file: the target is
// resolved once, and every later step works in the folder then opened,
// through its descriptor; the temporary file gets everything the target
// carries before its first byte, and the rename happens only over the file
// that Create found. The calls that differ between macOS and Linux are in
// internal/PlatformFiles.h.
#include <Core/Interfaces/DataStream.h>

#include <Core/Interfaces/internal/PlatformFiles.h>

#include <boost/filesystem/exception.hpp>

#include <cerrno>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tarsel::Core {

// --- Error codes ---------------------------------------------------------

namespace {

class SaveErrorCategoryImpl : public boost::system::error_category {
public:
    const char* name() const noexcept override { return "tarsel save"; }

    std::string message(int value) const override {
        switch (static_cast<SaveError>(value)) {
        case SaveError::TargetIsFifo:
            return "is a FIFO, which a save would replace with a regular file";
        case SaveError::TargetIsDevice:
            return "is a device, which a save would replace with a regular file";
        case SaveError::TargetIsSocket:
            return "is a socket, which a save would replace with a regular file";
        case SaveError::UntrustedLink:
            return "is a link of another user to a file that is not theirs, which a save does not follow";
        case SaveError::OwnerCannotBeKept:
            return "its owner cannot be given to the new file, so a save would change it";
        case SaveError::GroupCannotBeKept:
            return "its group cannot be given to the new file, so a save would change it";
        case SaveError::ModeCannotBeKept:
            return "its permissions cannot be given to the new file, so a save would change them";
        case SaveError::AttributeCannotBeKept:
            return "an extended attribute or its ACL cannot be given to the new file, so a save would lose it";
        case SaveError::TargetReplaced:
            return "another program replaced, removed or created it during the save; nothing was written";
        case SaveError::TargetChanged:
            return "another program changed it during the save; nothing was written";
        case SaveError::NotDurable:
            return "the new content is in place, but its folder could not be synced: it may not survive a power "
                   "loss";
        }
        return "an unknown save error";
    }
};

}  // namespace

const boost::system::error_category& SaveErrorCategory() noexcept {
    static const SaveErrorCategoryImpl category;
    return category;
}

boost::system::error_code make_error_code(SaveError error) noexcept {
    return {static_cast<int>(error), SaveErrorCategory()};
}

namespace {

constexpr const char* kCannotReplace = "AtomicFileDataOutput: cannot replace the file";
// Links followed in a row before the target is taken for a loop (ELOOP),
// as the system itself counts them.
constexpr int kMaxLinks = 40;
// The longest file name most file systems allow, and the part of the
// target's name that a temporary file's name keeps: "." + 240 bytes +
// ".tarsel-" + 6 letters makes 255.
constexpr std::size_t kMaxName = 255;
constexpr const char kTemporaryMark[] = ".tarsel-";
constexpr std::size_t kRandomLetters = 6;
constexpr std::size_t kKeptNameBytes = kMaxName - 1 - (sizeof kTemporaryMark - 1) - kRandomLetters;
constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

boost::system::error_code SystemError(int error) noexcept {
    return {error, boost::system::system_category()};
}

[[noreturn]] void Throw(const ioPath& path, boost::system::error_code code, const char* what = kCannotReplace) {
    throw boost::filesystem::filesystem_error(what, path, code);
}

[[noreturn]] void ThrowErrno(const ioPath& path, int error) {
    Throw(path, SystemError(error));
}

// An open descriptor, closed with its owner.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) noexcept : m_fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~Descriptor() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    int Get() const noexcept { return m_fd; }
    int Release() noexcept { return std::exchange(m_fd, -1); }

private:
    int m_fd = -1;
};

bool SameFile(const struct stat& a, const struct stat& b) noexcept {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool SameTime(const timespec& a, const timespec& b) noexcept {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// The target's entry as Create resolved it: the folder, open, and the name
// in it; what the entry was then, if anything.
struct Resolved {
    Descriptor folder;
    bool folderReadable = false;
    std::string name;
    bool exists = false;
    struct stat entry {};
};

// The text of the link name in folder into *text; false when name is no
// longer a link (another program replaced it since it was looked at).
bool ReadLink(int folder, const std::string& name, const ioPath& target, std::string* text) {
    text->assign(256, '\0');
    for (;;) {
        const ssize_t size = ::readlinkat(folder, name.c_str(), text->data(), text->size());
        if (size < 0) {
            if (errno == EINVAL) {
                return false;
            }
            ThrowErrno(target, errno);
        }
        if (static_cast<std::size_t>(size) < text->size()) {
            text->resize(static_cast<std::size_t>(size));
            return true;
        }
        text->resize(2 * text->size());
    }
}

// Who owns what a save would replace: the file, or, for a new one, the
// folder it would be made in.
uid_t OwnerOf(const Resolved& resolved, const ioPath& target) {
    if (resolved.exists) {
        return resolved.entry.st_uid;
    }
    struct stat folder {};
    if (::fstat(resolved.folder.Get(), &folder) != 0) {
        ThrowErrno(target, errno);
    }
    return folder.st_uid;
}

// Another user's link may not aim a save at a file that is not theirs: a
// link is followed only when it belongs to the user saving, to root, or to
// whoever owns what it leads to (as the kernel's protected_symlinks trusts
// a link in a shared folder only from its follower or the folder's owner).
void RequireTrustedLinks(const std::vector<uid_t>& linkOwners, const Resolved& resolved, const ioPath& target) {
    if (linkOwners.empty()) {
        return;
    }
    const uid_t saver = ::geteuid();
    const uid_t owner = OwnerOf(resolved, target);
    for (const uid_t linkOwner : linkOwners) {
        if (linkOwner != saver && linkOwner != 0 && linkOwner != owner) {
            Throw(target, SaveError::UntrustedLink);
        }
    }
}

// Follows path to the entry a save replaces: the last component's links
// are followed, each relative to the folder that holds it, and the folder
// of the last one is kept open. Throws filesystem_error carrying target.
Resolved Resolve(const ioPath& target) {
    std::string path = static_cast<const boost::filesystem::path&>(target).native();
    Resolved resolved;
    Descriptor base;  // the folder of the previous link, which a relative link starts from
    std::vector<uid_t> linkOwners;
    for (int links = 0;; ++links) {
        if (path.empty()) {
            ThrowErrno(target, ENOENT);
        }
        const std::size_t slash = path.rfind('/');
        const std::string folder = slash == std::string::npos ? std::string(".")
                                   : slash == 0               ? std::string("/")
                                                              : path.substr(0, slash);
        resolved.name = slash == std::string::npos ? path : path.substr(slash + 1);
        // "dir/", "." and "..": a folder, whatever is there.
        if (resolved.name.empty() || resolved.name == "." || resolved.name == "..") {
            ThrowErrno(target, EISDIR);
        }
        const Platform::OpenedFolder opened =
            Platform::OpenFolder(base.Get() >= 0 ? base.Get() : AT_FDCWD, folder.c_str());
        if (opened.fd < 0) {
            ThrowErrno(target, errno);
        }
        resolved.folder = Descriptor(opened.fd);
        resolved.folderReadable = opened.readable;
        if (::fstatat(opened.fd, resolved.name.c_str(), &resolved.entry, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT) {
                ThrowErrno(target, errno);
            }
            resolved.exists = false;
            RequireTrustedLinks(linkOwners, resolved, target);
            return resolved;
        }
        resolved.exists = true;
        if (!S_ISLNK(resolved.entry.st_mode)) {
            RequireTrustedLinks(linkOwners, resolved, target);
            return resolved;
        }
        if (links == kMaxLinks) {
            ThrowErrno(target, ELOOP);
        }
        std::string text;
        if (ReadLink(opened.fd, resolved.name, target, &text)) {
            linkOwners.push_back(resolved.entry.st_uid);
            path = std::move(text);
            base = std::move(resolved.folder);
        }
        // Otherwise the link was replaced meanwhile: the same entry is
        // looked at again.
    }
}

// Refuses an entry that a rename would damage.
void RequireRegularFile(const struct stat& entry, const ioPath& target) {
    if (S_ISREG(entry.st_mode)) {
        return;
    }
    if (S_ISDIR(entry.st_mode)) {
        ThrowErrno(target, EISDIR);
    }
    if (S_ISFIFO(entry.st_mode)) {
        Throw(target, SaveError::TargetIsFifo);
    }
    if (S_ISSOCK(entry.st_mode)) {
        Throw(target, SaveError::TargetIsSocket);
    }
    Throw(target, SaveError::TargetIsDevice);
}

// The target's name as the start of a temporary file's name, cut at a
// character boundary where it is too long: ".<name>.tarsel-".
std::string TemporaryStem(const std::string& name) {
    std::size_t kept = std::min(name.size(), kKeptNameBytes);
    // Inside a UTF-8 sequence (at most four bytes long): keep none of it. A
    // name that is not UTF-8 is cut at most three bytes earlier.
    const std::size_t earliest = kept > 3 ? kept - 3 : 0;
    while (kept < name.size() && kept > earliest && (static_cast<unsigned char>(name[kept]) & 0xC0) == 0x80) {
        --kept;
    }
    return "." + name.substr(0, kept) + kTemporaryMark;
}

bool IsTemporaryOf(const std::string& entry, const std::string& stem) {
    if (entry.size() != stem.size() + kRandomLetters || entry.compare(0, stem.size(), stem) != 0) {
        return false;
    }
    return entry.find_first_not_of(kLetters, stem.size()) == std::string::npos;
}

}  // namespace

// --- The save ------------------------------------------------------------

struct AtomicFileDataOutput::State {
    ioPath target;  // as the caller named it, for errors
    TargetCheck check = TargetCheck::SameFile;
    Descriptor folder;
    Platform::OpenedFolder openedFolder{-1, false};
    std::string name;  // the target's entry in folder
    // The target open for reading, and what it was at Create; -1 for a new
    // file.
    Descriptor original;
    struct stat recorded {};
    // The temporary file: unnamed until Commit, or named temporaryName.
    std::FILE* file = nullptr;
    bool unnamed = false;
    std::string temporaryName;
    bool named = false;  // an entry temporaryName exists that Discard removes
    mode_t newFileMode = 0;
    int writeError = 0;
    std::string failedAttribute;
    std::minstd_rand random;

    ~State() { Discard(); }

    bool Existed() const noexcept { return original.Get() >= 0; }
    int FileFd() const noexcept { return fileno(file); }

    void OpenTemporary();
    boost::system::error_code GiveAttributes(bool committing);
    boost::system::error_code NameTemporary() noexcept;
    boost::system::error_code CheckTarget() const noexcept;
    boost::system::error_code Rename() noexcept;
    void Discard() noexcept;

private:
    void RandomizeName() noexcept;
};

void AtomicFileDataOutput::State::RandomizeName() noexcept {
    std::uniform_int_distribution<std::size_t> pick(0, sizeof kLetters - 2);
    for (std::size_t i = temporaryName.size() - kRandomLetters; i < temporaryName.size(); ++i) {
        temporaryName[i] = kLetters[pick(random)];
    }
}

// The temporary file is made private: unnamed, or 0600 whatever the umask.
// An unnamed file for a new target is made as any new file is, so that the
// umask and the folder's default ACL give it its mode: nobody can open it
// before it is named.
void AtomicFileDataOutput::State::OpenTemporary() {
    temporaryName = TemporaryStem(name) + std::string(kRandomLetters, 'X');
    int fd = Platform::CreateUnnamedFile(folder.Get(), Existed() ? 0600 : 0666);
    unnamed = fd >= 0;
    if (!unnamed && errno != EOPNOTSUPP) {
        ThrowErrno(target, errno);
    }
    if (!unnamed && !Existed()) {
        newFileMode = 0666 & ~Platform::CreationMask();
    }
    for (int attempt = 0; !unnamed && fd < 0; ++attempt) {
        RandomizeName();
        fd = ::openat(folder.Get(), temporaryName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0 && (errno != EEXIST || attempt == 99)) {
            ThrowErrno(target, errno);
        }
    }
    named = !unnamed;
    file = ::fdopen(fd, "wb");
    if (file == nullptr) {
        const int error = errno;
        ::close(fd);
        ThrowErrno(target, error);
    }
}

// Gives the temporary file the target's owner, group, extended attributes
// (the ACL among them) and mode, in that order: a change of owner clears
// the set-user-ID bits and file capabilities that come after it. Then
// checks that the file has them: the system clears what it will not give
// without a word (a set-group-ID bit for a group the process is not in). A
// new target made as a named file stays 0600 until Commit.
boost::system::error_code AtomicFileDataOutput::State::GiveAttributes(bool committing) {
    if (!Existed()) {
        if (committing && newFileMode != 0 && ::fchmod(FileFd(), newFileMode) != 0) {
            return SystemError(errno);
        }
        return {};
    }
    struct stat now {};
    if (::fstat(FileFd(), &now) != 0) {
        return SystemError(errno);
    }
    if (now.st_uid != recorded.st_uid && ::fchown(FileFd(), recorded.st_uid, static_cast<gid_t>(-1)) != 0) {
        return SaveError::OwnerCannotBeKept;
    }
    if (now.st_gid != recorded.st_gid && ::fchown(FileFd(), static_cast<uid_t>(-1), recorded.st_gid) != 0) {
        return SaveError::GroupCannotBeKept;
    }
    if (Platform::CopyCarriedAttributes(original.Get(), FileFd(), &failedAttribute) != 0) {
        return SaveError::AttributeCannotBeKept;
    }
    const mode_t mode = recorded.st_mode & 07777;
    if (::fchmod(FileFd(), mode) != 0 || ::fstat(FileFd(), &now) != 0) {
        return SaveError::ModeCannotBeKept;
    }
    if (now.st_uid != recorded.st_uid) {
        return SaveError::OwnerCannotBeKept;
    }
    if (now.st_gid != recorded.st_gid) {
        return SaveError::GroupCannotBeKept;
    }
    if ((now.st_mode & 07777) != mode) {
        return SaveError::ModeCannotBeKept;
    }
    return {};
}

// An unnamed file gets its name now: the target's own for a new file (taken
// only if still free), otherwise a temporary name for the rename.
boost::system::error_code AtomicFileDataOutput::State::NameTemporary() noexcept {
    if (!unnamed) {
        return {};
    }
    if (!Existed()) {
        if (Platform::NameUnnamedFile(FileFd(), folder.Get(), name.c_str()) != 0) {
            return errno == EEXIST ? make_error_code(SaveError::TargetReplaced) : SystemError(errno);
        }
        return {};
    }
    for (int attempt = 0; attempt < 100; ++attempt) {
        RandomizeName();
        if (Platform::NameUnnamedFile(FileFd(), folder.Get(), temporaryName.c_str()) == 0) {
            named = true;
            return {};
        }
        if (errno != EEXIST) {
            break;
        }
    }
    return SystemError(errno);
}

// The entry is looked at again, without following links: it must still be
// the file Create found (or still nothing), and unchanged when asked. A new
// file is otherwise named where nothing is, which checks that itself.
boost::system::error_code AtomicFileDataOutput::State::CheckTarget() const noexcept {
    struct stat now {};
    if (::fstatat(folder.Get(), name.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT && !Existed()) {
            return {};
        }
        return errno == ENOENT ? make_error_code(SaveError::TargetReplaced) : SystemError(errno);
    }
    if (!Existed() || !S_ISREG(now.st_mode) || !SameFile(now, recorded)) {
        return SaveError::TargetReplaced;
    }
    if (check == TargetCheck::Unchanged &&
        (now.st_size != recorded.st_size ||
         !SameTime(Platform::ModificationTime(now), Platform::ModificationTime(recorded)) ||
         !SameTime(Platform::ChangeTime(now), Platform::ChangeTime(recorded)))) {
        return SaveError::TargetChanged;
    }
    return {};
}

boost::system::error_code AtomicFileDataOutput::State::Rename() noexcept {
    if (unnamed && !Existed()) {
        return {};  // named as the target already, where nothing was
    }
    if (Existed()) {
        return ::renameat(folder.Get(), temporaryName.c_str(), folder.Get(), name.c_str()) == 0
                   ? boost::system::error_code()
                   : SystemError(errno);
    }
    if (Platform::RenameWithoutReplacing(folder.Get(), temporaryName.c_str(), name.c_str()) == 0) {
        return {};
    }
    if (errno == EEXIST) {
        return SaveError::TargetReplaced;
    }
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) {
        return SystemError(errno);
    }
    // A file system that cannot refuse to replace: checked just before.
    const boost::system::error_code changed = CheckTarget();
    if (changed) {
        return changed;
    }
    return ::renameat(folder.Get(), temporaryName.c_str(), folder.Get(), name.c_str()) == 0
               ? boost::system::error_code()
               : SystemError(errno);
}

void AtomicFileDataOutput::State::Discard() noexcept {
    if (file != nullptr) {
        std::fclose(file);
        file = nullptr;
    }
    if (named) {
        ::unlinkat(folder.Get(), temporaryName.c_str(), 0);
        named = false;
    }
}

boost::intrusive_ptr<AtomicFileDataOutput> AtomicFileDataOutput::Create(const ioPath& target) {
    return Create(target, TargetCheck::SameFile);
}

boost::intrusive_ptr<AtomicFileDataOutput> AtomicFileDataOutput::Create(const ioPath& target, TargetCheck check) {
    auto state = std::make_unique<State>();
    state->target = target;
    state->check = check;
    Resolved resolved = Resolve(target);
    state->openedFolder = {resolved.folder.Get(), resolved.folderReadable};
    state->folder = std::move(resolved.folder);
    state->name = std::move(resolved.name);
    if (resolved.exists) {
        RequireRegularFile(resolved.entry, target);
        // Opened without following a link and without waiting for a FIFO's
        // writer, in case another program swapped the entry since.
        state->original = Descriptor(::openat(state->folder.Get(), state->name.c_str(),
                                              O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (state->original.Get() < 0) {
            if (errno == ELOOP || errno == ENOENT) {
                Throw(target, SaveError::TargetReplaced);
            }
            ThrowErrno(target, errno);
        }
        if (::fstat(state->original.Get(), &state->recorded) != 0) {
            ThrowErrno(target, errno);
        }
        if (!S_ISREG(state->recorded.st_mode) || !SameFile(state->recorded, resolved.entry)) {
            Throw(target, SaveError::TargetReplaced);
        }
    }
    state->random.seed(std::random_device()());
    state->OpenTemporary();
    if (const boost::system::error_code refused = state->GiveAttributes(false)) {
        Throw(target, refused);
    }
    return boost::intrusive_ptr<AtomicFileDataOutput>(new AtomicFileDataOutput(std::move(state)));
}

AtomicFileDataOutput::AtomicFileDataOutput(std::unique_ptr<State> state) : m_state(std::move(state)) {}

AtomicFileDataOutput::~AtomicFileDataOutput() = default;

std::size_t AtomicFileDataOutput::Write(const void* data, std::size_t size) {
    State& state = *m_state;
    if (state.file == nullptr || state.writeError != 0) {
        return 0;
    }
    errno = 0;
    const std::size_t written = std::fwrite(data, 1, size, state.file);
    if (written < size) {
        state.writeError = errno != 0 ? errno : EIO;
    }
    return written;
}

boost::intrusive_ptr<IDataInput> AtomicFileDataOutput::ReadTarget() const {
    const State& state = *m_state;
    if (!state.Existed()) {
        ThrowErrno(state.target, ENOENT);
    }
    std::string content;
    // Room for what the file holds now, so that a large file is never held
    // twice while its buffer grows.
    struct stat info {};
    if (::fstat(state.original.Get(), &info) == 0 && info.st_size > 0) {
        content.reserve(static_cast<std::size_t>(info.st_size) + 64 * 1024);
    }
    for (off_t offset = 0;;) {
        content.resize(static_cast<std::size_t>(offset) + 64 * 1024);
        const ssize_t count =
            ::pread(state.original.Get(), &content[static_cast<std::size_t>(offset)], 64 * 1024, offset);
        if (count < 0 && errno != EINTR) {
            ThrowErrno(state.target, errno);
        }
        if (count == 0) {
            content.resize(static_cast<std::size_t>(offset));
            return MemoryDataInput::Create(std::move(content));
        }
        offset += count > 0 ? count : 0;
    }
}

void AtomicFileDataOutput::Commit() {
    State& state = *m_state;
    if (state.file == nullptr) {
        ThrowErrno(state.target, EBADF);
    }
    boost::system::error_code error;
    try {
        error = SystemError(state.writeError);
        if (!error && std::fflush(state.file) != 0) {
            error = SystemError(errno);
        }
        // Writing cleared what the system clears on a write; given again.
        if (!error) {
            error = state.GiveAttributes(true);
        }
        if (!error && Platform::SyncFile(state.FileFd()) != 0) {
            error = SystemError(errno);
        }
        if (!error) {
            error = state.NameTemporary();
        }
        if (!error && state.Existed()) {
            error = state.CheckTarget();
        }
        if (!error) {
            error = state.Rename();
        }
    } catch (...) {
        state.Discard();
        throw;
    }
    if (error) {
        state.Discard();
        if (error == make_error_code(SaveError::AttributeCannotBeKept) && !state.failedAttribute.empty()) {
            Throw(state.target, error, ("AtomicFileDataOutput: cannot keep " + state.failedAttribute).c_str());
        }
        Throw(state.target, error);
    }
    state.named = false;  // the temporary name is the target's now
    // The file stays open until here: a folder open for search only is
    // synced through the file system that holds the file. Its data are on
    // the disk already, so closing it cannot lose them.
    int syncError = Platform::SyncFolder(state.openedFolder, state.FileFd()) == 0 ? 0 : errno;
    if (std::fclose(state.file) != 0 && syncError == 0) {
        syncError = errno;
    }
    state.file = nullptr;
    if (syncError != 0) {
        Throw(state.target, SaveError::NotDurable,
              ("AtomicFileDataOutput: cannot sync the folder: " + std::string(std::strerror(syncError))).c_str());
    }
}

std::size_t AtomicFileDataOutput::RemoveLeftovers(const ioPath& target) {
    Resolved resolved = Resolve(target);
    if (!resolved.folderReadable) {
        return 0;
    }
    const std::string stem = TemporaryStem(resolved.name);
    Descriptor listing(::dup(resolved.folder.Get()));
    DIR* entries = listing.Get() >= 0 ? ::fdopendir(listing.Get()) : nullptr;
    if (entries == nullptr) {
        ThrowErrno(target, errno);
    }
    listing.Release();  // the listing owns it now
    std::size_t removed = 0;
    while (const dirent* entry = ::readdir(entries)) {
        struct stat info {};
        if (IsTemporaryOf(entry->d_name, stem) &&
            ::fstatat(resolved.folder.Get(), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(info.st_mode) &&
            ::unlinkat(resolved.folder.Get(), entry->d_name, 0) == 0) {
            ++removed;
        }
    }
    ::closedir(entries);
    return removed;
}

}  // namespace Tarsel::Core
