// This file implements the memory and file byte streams; the atomic
// replacement of a file is in AtomicFileDataOutput.cpp.
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
#include <utility>

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

}  // namespace Tarsel::Core
