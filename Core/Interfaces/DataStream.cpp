// This file implements the memory and file byte streams, and the atomic
// replacement of a file.
#include <Core/Interfaces/DataStream.h>

#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/system/error_code.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <random>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tarsel::Core {

IInputStream::~IInputStream() = default;
IOutputStream::~IOutputStream() = default;

namespace {

[[noreturn]] void ThrowFileError(const char* what, const ioPath& path, int error) {
    throw boost::filesystem::filesystem_error(what, path,
                                              boost::system::error_code(error, boost::system::system_category()));
}

std::FILE* OpenOrThrow(const ioPath& path, const char* mode, const char* what) {
    std::FILE* file = std::fopen(path.utf8string().c_str(), mode);
    if (file == nullptr) {
        ThrowFileError(what, path, errno);
    }
    return file;
}

struct CloseFile {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

// The path's text without a copy: what cleanup code passes to the system,
// which must not fail for want of memory.
const char* NativeText(const ioPath& path) noexcept {
    return static_cast<const boost::filesystem::path&>(path).c_str();
}

}  // namespace

// --- Memory ------------------------------------------------------------------

boost::intrusive_ptr<MemoryDataInput> MemoryDataInput::Create(std::string bytes) {
    return boost::intrusive_ptr<MemoryDataInput>(new MemoryDataInput(std::move(bytes)));
}

MemoryDataInput::MemoryDataInput(std::string bytes) : m_bytes(std::move(bytes)) {}

std::size_t MemoryDataInput::GetSize() const {
    return m_bytes.size() - m_position;
}

std::size_t MemoryDataInput::Read(void* data, std::size_t size) {
    const std::size_t count = std::min(size, GetSize());
    if (count > 0) {
        std::memcpy(data, m_bytes.data() + m_position, count);
        m_position += count;
    }
    return count;
}

boost::intrusive_ptr<MemoryDataOutput> MemoryDataOutput::Create() {
    return boost::intrusive_ptr<MemoryDataOutput>(new MemoryDataOutput());
}

std::size_t MemoryDataOutput::Write(const void* data, std::size_t size) {
    m_bytes.append(static_cast<const char*>(data), size);
    return size;
}

// --- Files -------------------------------------------------------------------

namespace {

// The whole content of file, read to its end. Throws filesystem_error when a
// read fails.
std::string ReadToEnd(std::FILE* file, const ioPath& path) {
    constexpr std::size_t kChunk = 64 * 1024;
    std::string content;
    std::size_t filled = 0;
    for (;;) {
        if (content.size() - filled < kChunk) {
            content.resize(std::max(2 * content.size(), filled + kChunk));
        }
        const std::size_t room = content.size() - filled;
        const std::size_t count = std::fread(&content[filled], 1, room, file);
        filled += count;
        if (count < room) {
            // fread stops short only at the end or on an error.
            if (std::ferror(file) != 0) {
                ThrowFileError("FileDataInput: cannot read the file", path, errno != 0 ? errno : EIO);
            }
            break;
        }
    }
    content.resize(filled);
    return content;
}

}  // namespace

boost::intrusive_ptr<FileDataInput> FileDataInput::Create(const ioPath& path) {
    std::unique_ptr<std::FILE, CloseFile> file(OpenOrThrow(path, "rb", "FileDataInput: cannot open the file"));
    struct stat info {};
    if (fstat(fileno(file.get()), &info) != 0) {
        ThrowFileError("FileDataInput: cannot open the file", path, errno);
    }
    if (S_ISDIR(info.st_mode)) {
        ThrowFileError("FileDataInput: cannot open the file", path, EISDIR);
    }
    // A size of 0 is no answer for a regular file either: /proc's files
    // report it whatever they hold, and reading an empty file costs one call.
    if (S_ISREG(info.st_mode) && info.st_size > 0) {
        return boost::intrusive_ptr<FileDataInput>(new FileDataInput(file.release()));
    }
    return boost::intrusive_ptr<FileDataInput>(new FileDataInput(MemoryDataInput::Create(ReadToEnd(file.get(), path))));
}

FileDataInput::FileDataInput(std::FILE* file) : m_file(file) {}

FileDataInput::FileDataInput(boost::intrusive_ptr<MemoryDataInput> content) : m_content(std::move(content)) {}

FileDataInput::~FileDataInput() {
    if (m_file != nullptr) {
        std::fclose(m_file);
    }
}

std::size_t FileDataInput::GetSize() const {
    if (m_content) {
        return m_content->GetSize();
    }
    struct stat info {};
    const long position = std::ftell(m_file);
    if (fstat(fileno(m_file), &info) != 0 || position < 0 || info.st_size < position) {
        return 0;
    }
    return static_cast<std::size_t>(info.st_size - position);
}

std::size_t FileDataInput::Read(void* data, std::size_t size) {
    return m_content ? m_content->Read(data, size) : std::fread(data, 1, size, m_file);
}

boost::intrusive_ptr<FileDataOutput> FileDataOutput::Create(const ioPath& path) {
    std::unique_ptr<std::FILE, CloseFile> file(OpenOrThrow(path, "wb", "FileDataOutput: cannot open the file"));
    // The stream owns the file only once it exists: if it cannot be made,
    // the file is closed here.
    boost::intrusive_ptr<FileDataOutput> output(new FileDataOutput(file.get(), path));
    file.release();
    return output;
}

FileDataOutput::FileDataOutput(std::FILE* file, const ioPath& path) : m_file(file), m_path(path) {}

FileDataOutput::~FileDataOutput() {
    if (m_file != nullptr) {
        std::fclose(m_file);
    }
}

std::size_t FileDataOutput::Write(const void* data, std::size_t size) {
    return m_file == nullptr ? 0 : std::fwrite(data, 1, size, m_file);
}

void FileDataOutput::Close() {
    if (m_file == nullptr) {
        return;
    }
    const bool failed = std::ferror(m_file) != 0;
    const int error = errno;
    const bool closeFailed = std::fclose(m_file) != 0;
    m_file = nullptr;
    if (failed || closeFailed) {
        ThrowFileError("FileDataOutput: cannot write the file", m_path, closeFailed ? errno : (error ? error : EIO));
    }
}

// --- Atomic replacement ------------------------------------------------------

namespace {

constexpr const char* kCannotReplace = "AtomicFileDataOutput: cannot replace the file";

// The file a save replaces: the one a symbolic link names, when it exists.
ioPath ResolveTarget(const ioPath& target) {
    boost::system::error_code error;
    if (boost::filesystem::is_symlink(target, error)) {
        const boost::filesystem::path resolved = boost::filesystem::canonical(target, error);
        if (!error) {
            return resolved;
        }
    }
    return target;
}

// Opens a new file ".<name>.tarsel-XXXXXX" beside target, created with the
// mode any new file gets (the umask applies). Returns the file and its path.
std::pair<int, ioPath> CreateTemporaryBeside(const ioPath& target) {
    static constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::random_device entropy;
    std::mt19937 generator(entropy());
    std::uniform_int_distribution<std::size_t> pick(0, sizeof kLetters - 2);
    const std::string stem = "." + target.filename().utf8string() + ".tarsel-";
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string name = stem;
        for (int i = 0; i < 6; ++i) {
            name += kLetters[pick(generator)];
        }
        ioPath temporary = target.parent_path() / name;
        const int fd = ::open(NativeText(temporary), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0) {
            return {fd, std::move(temporary)};  // a move cannot fail and leave the file behind
        }
        if (errno != EEXIST) {
            ThrowFileError(kCannotReplace, target, errno);
        }
    }
    ThrowFileError(kCannotReplace, target, EEXIST);
}

}  // namespace

boost::intrusive_ptr<AtomicFileDataOutput> AtomicFileDataOutput::Create(const ioPath& target) {
    const ioPath resolved = ResolveTarget(target);
    boost::system::error_code error;
    if (boost::filesystem::is_directory(resolved, error)) {
        ThrowFileError(kCannotReplace, target, EISDIR);
    }
    const auto [fd, temporary] = CreateTemporaryBeside(resolved);
    std::FILE* file = ::fdopen(fd, "wb");
    if (file == nullptr) {
        const int openError = errno;
        ::close(fd);
        ::unlink(NativeText(temporary));
        ThrowFileError(kCannotReplace, target, openError);
    }
    try {
        return boost::intrusive_ptr<AtomicFileDataOutput>(new AtomicFileDataOutput(file, resolved, temporary));
    } catch (...) {
        // Out of memory for the stream: no open file, no temporary left.
        std::fclose(file);
        ::unlink(NativeText(temporary));
        throw;
    }
}

AtomicFileDataOutput::AtomicFileDataOutput(std::FILE* file, const ioPath& target, const ioPath& temporary)
    : m_file(file), m_target(target), m_temporary(temporary) {}

AtomicFileDataOutput::~AtomicFileDataOutput() {
    Discard();
}

std::size_t AtomicFileDataOutput::Write(const void* data, std::size_t size) {
    if (m_file == nullptr || m_writeError != 0) {
        return 0;
    }
    errno = 0;
    const std::size_t written = std::fwrite(data, 1, size, m_file);
    if (written < size) {
        m_writeError = errno != 0 ? errno : EIO;
    }
    return written;
}

void AtomicFileDataOutput::Commit() {
    // Taken first: once the rename is done, nothing may fail for want of
    // memory and report a replaced file as not replaced.
    const ioPath folder = m_target.parent_path();
    int error = m_file == nullptr ? EBADF : m_writeError;
    if (error == 0) {
        error = FinishWriting();
    }
    if (error == 0 && std::rename(NativeText(m_temporary), NativeText(m_target)) != 0) {
        error = errno;
    }
    if (error != 0) {
        Discard();
        ThrowFileError(kCannotReplace, m_target, error);
    }
    m_temporary.clear();
    // The rename itself reaches the disk when the folder does; a folder that
    // cannot be synced leaves the new content in place all the same.
    const int folderFd = ::open(folder.empty() ? "." : NativeText(folder), O_RDONLY | O_CLOEXEC);
    if (folderFd >= 0) {
        ::fsync(folderFd);
        ::close(folderFd);
    }
}

int AtomicFileDataOutput::FinishWriting() {
    int error = 0;
    if (std::fflush(m_file) != 0 || ::fsync(fileno(m_file)) != 0) {
        error = errno;
    }
    if (error == 0) {
        error = TakeTargetAttributes();
    }
    const int closeResult = std::fclose(m_file);
    m_file = nullptr;
    if (error == 0 && closeResult != 0) {
        error = errno;
    }
    return error;
}

int AtomicFileDataOutput::TakeTargetAttributes() {
    struct stat target {};
    if (::stat(NativeText(m_target), &target) != 0) {
        return errno == ENOENT ? 0 : errno;
    }
    const int fd = fileno(m_file);
    // Only an owner the process may give; changing the owner first, since
    // that clears the set-user-ID bits that fchmod then restores.
    (void)::fchown(fd, target.st_uid, target.st_gid);
    return ::fchmod(fd, target.st_mode & 07777) == 0 ? 0 : errno;
}

void AtomicFileDataOutput::Discard() noexcept {
    if (m_file != nullptr) {
        std::fclose(m_file);
        m_file = nullptr;
    }
    if (!m_temporary.empty()) {
        ::unlink(NativeText(m_temporary));
        m_temporary.clear();
    }
}

}  // namespace Tarsel::Core
