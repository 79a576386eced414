// Byte sources and sinks: the interfaces through which the JSON serializer
// and the digests read and write, and ready-made implementations over memory
// and files. All are reference counted and handed out as
// boost::intrusive_ptr; they delete themselves on the last Release.
#pragma once

#include <Core/Interfaces/Path.h>
#include <Core/Interfaces/RefCount.h>

#include <boost/intrusive_ptr.hpp>

#include <cstddef>
#include <cstdio>
#include <string>

namespace Tarsel::Core {

// The read side of a byte source.
class IInputStream {
public:
    virtual ~IInputStream();
    // The number of bytes still to be read; does not consume anything.
    virtual std::size_t GetSize() const = 0;
    // Copies the next bytes into data, up to size; returns how many it
    // delivered.
    virtual std::size_t Read(void* data, std::size_t size) = 0;
};

// The write side of a byte sink.
class IOutputStream {
public:
    virtual ~IOutputStream();
    // Appends size bytes from data; returns how many it accepted.
    virtual std::size_t Write(const void* data, std::size_t size) = 0;
};

class IDataInput : public virtual IRefCountable, public virtual IInputStream {};
class IDataOutput : public virtual IRefCountable, public virtual IOutputStream {};

// Reads from a string it owns.
class MemoryDataInput : public RefCounted<IDataInput> {
public:
    static boost::intrusive_ptr<MemoryDataInput> Create(std::string bytes);

    std::size_t GetSize() const override;
    std::size_t Read(void* data, std::size_t size) override;

private:
    explicit MemoryDataInput(std::string bytes);

    std::string m_bytes;
    std::size_t m_position = 0;
};

// Collects what is written in memory.
class MemoryDataOutput : public RefCounted<IDataOutput> {
public:
    static boost::intrusive_ptr<MemoryDataOutput> Create();

    std::size_t Write(const void* data, std::size_t size) override;
    // The bytes written so far.
    const std::string& GetData() const noexcept { return m_bytes; }

private:
    MemoryDataOutput() = default;

    std::string m_bytes;
};

// Reads a file. Create throws boost::filesystem::filesystem_error, carrying
// the path and the system's error code, when the file cannot be opened.
class FileDataInput : public RefCounted<IDataInput> {
public:
    static boost::intrusive_ptr<FileDataInput> Create(const ioPath& path);
    ~FileDataInput() override;

    std::size_t GetSize() const override;
    std::size_t Read(void* data, std::size_t size) override;

private:
    explicit FileDataInput(std::FILE* file);

    std::FILE* m_file;
};

// Writes a file, created or truncated. Create throws
// boost::filesystem::filesystem_error when the file cannot be opened.
class FileDataOutput : public RefCounted<IDataOutput> {
public:
    static boost::intrusive_ptr<FileDataOutput> Create(const ioPath& path);
    // Closes the file; a failure then goes unreported, so call Close to learn
    // of it.
    ~FileDataOutput() override;

    std::size_t Write(const void* data, std::size_t size) override;
    // Flushes and closes the file; throws boost::filesystem::filesystem_error
    // when that fails. Later writes accept nothing.
    void Close();

private:
    FileDataOutput(std::FILE* file, const ioPath& path);

    std::FILE* m_file;
    ioPath m_path;
};

}  // namespace Tarsel::Core
