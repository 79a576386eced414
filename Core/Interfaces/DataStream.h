/// @file
/// Byte sources and sinks: the interfaces through which the JSON serializer
/// and the digests read and write, and ready-made implementations over memory
/// and files. All are reference counted and handed out as
/// boost::intrusive_ptr; they delete themselves on the last Release.
#pragma once

#include <Core/Interfaces/Export.h>
#include <Core/Interfaces/Path.h>
#include <Core/Interfaces/RefCount.h>

#include <boost/intrusive_ptr.hpp>

#include <cstddef>
#include <cstdio>
#include <string>

namespace Tarsel::Core {

/// The read side of a byte source.
class TARSEL_API IInputStream {
public:
    virtual ~IInputStream();
    /// The number of bytes still to be read; does not consume anything.
    virtual std::size_t GetSize() const = 0;
    /// Copies the next bytes into data, up to size; returns how many it
    /// delivered.
    virtual std::size_t Read(void* data, std::size_t size) = 0;
};

/// The write side of a byte sink.
class TARSEL_API IOutputStream {
public:
    virtual ~IOutputStream();
    /// Appends size bytes from data; returns how many it accepted.
    virtual std::size_t Write(const void* data, std::size_t size) = 0;
};

/// A byte source the library reads, shared through boost::intrusive_ptr.
class TARSEL_API IDataInput : public virtual IRefCountable, public virtual IInputStream {};
/// A byte sink the library writes, shared through boost::intrusive_ptr.
class TARSEL_API IDataOutput : public virtual IRefCountable, public virtual IOutputStream {};

/// Reads from a string it owns.
class TARSEL_API MemoryDataInput : public RefCounted<IDataInput> {
public:
    /// A source of these bytes, read from the first. Throws std::bad_alloc
    /// only.
    static boost::intrusive_ptr<MemoryDataInput> Create(std::string bytes);

    /// The bytes not read yet.
    std::size_t GetSize() const override;
    /// Copies the next bytes, up to size, and moves past them; 0 at the end.
    std::size_t Read(void* data, std::size_t size) override;

private:
    TARSEL_HIDDEN explicit MemoryDataInput(std::string bytes);

    std::string m_bytes;
    std::size_t m_position = 0;
};

/// Collects what is written in memory.
class TARSEL_API MemoryDataOutput : public RefCounted<IDataOutput> {
public:
    /// An empty sink. Throws std::bad_alloc only.
    static boost::intrusive_ptr<MemoryDataOutput> Create();

    /// Appends the bytes and returns size; throws std::bad_alloc when they do
    /// not fit in memory.
    std::size_t Write(const void* data, std::size_t size) override;
    /// The bytes written so far.
    const std::string& GetData() const noexcept { return m_bytes; }

private:
    MemoryDataOutput() = default;

    std::string m_bytes;
};

/// Reads a file, so that GetSize is its whole content whatever kind of file
/// it is. A regular file that reports a size is read from the disk as it is
/// asked for. Anything whose size the system cannot tell beforehand (a pipe,
/// a terminal or other character device, a regular file that reports no size
/// as those of /proc do) is read to its end by Create and then served from
/// memory: a pipe's writer must therefore finish before Create returns, and a
/// source that never ends (/dev/zero) is read until memory runs out.
/// Create throws boost::filesystem::filesystem_error, carrying the path and
/// the system's error code, when the file cannot be opened or read or is a
/// directory, and std::bad_alloc when a content read whole does not fit in
/// memory.
class TARSEL_API FileDataInput : public RefCounted<IDataInput> {
public:
    /// Opens the file at path for reading (see the class for what it throws).
    static boost::intrusive_ptr<FileDataInput> Create(const ioPath& path);
    /// Closes the file.
    ~FileDataInput() override;

    /// The bytes from the current position to the file's end as the system
    /// reports its size now; 0 when it cannot tell.
    std::size_t GetSize() const override;
    /// Reads the next bytes, up to size; fewer at the end or on a failure.
    std::size_t Read(void* data, std::size_t size) override;

private:
    TARSEL_HIDDEN explicit FileDataInput(std::FILE* file);
    TARSEL_HIDDEN explicit FileDataInput(boost::intrusive_ptr<MemoryDataInput> content);

    // Exactly one of the two is set.
    std::FILE* m_file = nullptr;
    boost::intrusive_ptr<MemoryDataInput> m_content;
};

/// Writes a file, created or truncated. Create throws
/// boost::filesystem::filesystem_error when the file cannot be opened.
class TARSEL_API FileDataOutput : public RefCounted<IDataOutput> {
public:
    /// Creates or truncates the file at path (see the class for what it
    /// throws).
    static boost::intrusive_ptr<FileDataOutput> Create(const ioPath& path);
    /// Closes the file; a failure then goes unreported, so call Close to learn
    /// of it.
    ~FileDataOutput() override;

    /// Writes the bytes, buffered; returns how many were taken, 0 after Close.
    /// A failure shows in Close.
    std::size_t Write(const void* data, std::size_t size) override;
    /// Flushes and closes the file; throws boost::filesystem::filesystem_error
    /// when that fails. Later writes accept nothing.
    void Close();

private:
    TARSEL_HIDDEN FileDataOutput(std::FILE* file, const ioPath& path);

    std::FILE* m_file;
    ioPath m_path;
};

/// Replaces a file all at once or not at all, as a settings file must be (one
/// half written by a crash is a lost setting). What is written goes to a
/// temporary file in the target's folder, ".<name>.tarsel-XXXXXX", so that the
/// final rename never crosses file systems; Commit makes it the target. Until
/// Commit succeeds the target is untouched byte for byte, and an object
/// released without a successful Commit removes its temporary file. Only a
/// crash of the process can leave a temporary file behind, never a half
/// written target. A symbolic link to an existing file is followed: the file
/// it names is replaced and the link stays.
///
/// Create throws boost::filesystem::filesystem_error, carrying the target's
/// path and the system's error code, when the temporary file cannot be made
/// (a missing or read-only folder, say) or the target is a directory.
class TARSEL_API AtomicFileDataOutput : public RefCounted<IDataOutput> {
public:
    /// Makes the temporary file beside target (see the class for what it
    /// throws); target itself is not touched until Commit.
    static boost::intrusive_ptr<AtomicFileDataOutput> Create(const ioPath& target);
    /// Removes the temporary file unless Commit succeeded.
    ~AtomicFileDataOutput() override;

    /// Appends to the temporary file. After a failed write it accepts nothing
    /// more, and Commit reports the failure.
    std::size_t Write(const void* data, std::size_t size) override;

    /// Flushes what was written to the disk, gives the temporary file the
    /// target's permissions (and owner and group, where the process may set
    /// them; a new target gets those of any new file) and renames it over the
    /// target. Throws boost::filesystem::filesystem_error, carrying the
    /// target's path and the system's error code, when a write or any of
    /// these steps failed (a full disk shows here); the target is then
    /// untouched and the temporary file removed. Throws the same, with
    /// EBADF, when called again after it succeeded or failed.
    void Commit();

private:
    TARSEL_HIDDEN AtomicFileDataOutput(std::FILE* file, const ioPath& target, const ioPath& temporary);

    // Closes and removes the temporary file; safe to call twice.
    TARSEL_HIDDEN void Discard() noexcept;
    // Each step returns 0, or the errno of its failure.
    TARSEL_HIDDEN int FinishWriting();
    TARSEL_HIDDEN int TakeTargetAttributes();

    std::FILE* m_file;
    ioPath m_target;
    ioPath m_temporary;
    int m_writeError = 0;
};

}  // namespace Tarsel::Core
