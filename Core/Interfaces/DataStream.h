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
#include <boost/system/error_code.hpp>

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <type_traits>

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

/// Why a save was refused or failed where no error number of the system
/// says it: the code of the boost::filesystem::filesystem_error that
/// AtomicFileDataOutput throws, in SaveErrorCategory(), so that a client
/// may compare e.code() with a SaveError. Tarsel::ErrorMessage words each.
enum class TARSEL_API SaveError {
    /// "is a FIFO, which a save would replace with a regular file"
    TargetIsFifo = 1,
    /// "is a device, which a save would replace with a regular file"
    TargetIsDevice,
    /// "is a socket, which a save would replace with a regular file"
    TargetIsSocket,
    /// "is a link of another user to a file that is not theirs, which a save
    /// does not follow"
    UntrustedLink,
    /// "its owner cannot be given to the new file, so a save would change it"
    OwnerCannotBeKept,
    /// "its group cannot be given to the new file, so a save would change it"
    GroupCannotBeKept,
    /// "its permissions cannot be given to the new file, so a save would change them"
    ModeCannotBeKept,
    /// "an extended attribute or its ACL cannot be given to the new file, so a
    /// save would lose it"
    AttributeCannotBeKept,
    /// "another program replaced, removed or created it during the save;
    /// nothing was written"
    TargetReplaced,
    /// "another program changed it during the save; nothing was written"
    TargetChanged,
    /// "the new content is in place, but its folder could not be synced: it
    /// may not survive a power loss"
    NotDurable,
};

/// The category of SaveError codes; its name is "tarsel save".
TARSEL_API const boost::system::error_category& SaveErrorCategory() noexcept;
/// The code of error in SaveErrorCategory().
TARSEL_API boost::system::error_code make_error_code(SaveError error) noexcept;

/// Replaces a file all at once or not at all, as a settings file must be
/// (one half written by a crash is a lost setting), and keeps what the file
/// carries besides its bytes. The one routine of the library that replaces
/// a file: SerializeToFile writes through it.
///
/// Create resolves the target once: a symbolic link in its place is
/// followed (up to 40 in a row), a dangling one too, so that the file is
/// made where the link points; but only a link of the user saving, of root
/// or of the owner of what it leads to, so that another user's link cannot
/// aim a save at a file that is not theirs. From then on everything happens
/// in the target's folder as Create opened it, never through the path
/// again: a link swapped in later is at most an entry that the rename
/// replaces; nothing is written through it.
///
/// What is written goes to a temporary file in that folder, so that the
/// final rename never crosses file systems. The temporary file is private
/// from its first byte: on Linux, where the file system allows, it has no
/// name until Commit (a crash leaves nothing); elsewhere it is named
/// ".<name>.tarsel-XXXXXX" (name cut to its first 240 bytes at a UTF-8
/// character boundary, so that any name the file system allows saves; six
/// random letters or digits), created 0600. Before its first byte it gets
/// the target's owner, group, mode (set-user-ID, set-group-ID and sticky
/// bits included), ACL and extended attributes; what cannot be given
/// refuses the save. A new file gets the mode any new file gets.
///
/// Until Commit succeeds the target is untouched byte for byte, and an
/// object released without a successful Commit removes its temporary file.
/// A file with other hard links is replaced: the new file is the target's
/// alone, and the other links keep the old content. Only a crash can leave
/// a named temporary file behind (RemoveLeftovers removes it), never a half
/// written target.
///
/// Thread safety: one object is used by one thread at a time.
class TARSEL_API AtomicFileDataOutput : public RefCounted<IDataOutput> {
public:
    /// What Commit requires of the target, besides being the file Create
    /// found (the same device and inode, or still no file at all).
    enum class TargetCheck {
        /// Only that.
        SameFile,
        /// Also unchanged since Create: the same size, modification time
        /// and change time, to the nanosecond where the file system keeps
        /// them. For an editor that read the file after Create (ReadTarget)
        /// and must not overwrite a change made in place since.
        Unchanged,
    };

    /// Opens a save of target, checked with TargetCheck::SameFile.
    /// Throws boost::filesystem::filesystem_error carrying target and an
    /// error code, before anything is written: the system's error number
    /// when the folder is missing or not writable (ENOENT, EACCES, EROFS),
    /// the target cannot be read (EACCES: what it carries could not be
    /// kept), is a folder (EISDIR) or ends a chain of more than 40 links
    /// (ELOOP); a SaveError when it is a FIFO, a device or a socket, is
    /// reached through a link that is not followed (UntrustedLink), or its
    /// owner, group, mode, ACL or an extended attribute cannot be given to
    /// the new file. Throws std::bad_alloc when memory runs out.
    static boost::intrusive_ptr<AtomicFileDataOutput> Create(const ioPath& target);
    /// The same, Commit checking the target as check says.
    static boost::intrusive_ptr<AtomicFileDataOutput> Create(const ioPath& target, TargetCheck check);
    /// Removes the temporary file unless Commit succeeded.
    ~AtomicFileDataOutput() override;

    /// Appends to the temporary file. After a failed write it accepts nothing
    /// more, and Commit reports the failure.
    std::size_t Write(const void* data, std::size_t size) override;

    /// The whole content of the file being replaced, read from the very file
    /// that Create found, whatever has become of its path since (Commit
    /// checks that). Throws boost::filesystem::filesystem_error carrying the
    /// target's path: ENOENT when there was no file, the system's error
    /// number when it cannot be read; std::bad_alloc when the content does
    /// not fit in memory.
    boost::intrusive_ptr<IDataInput> ReadTarget() const;

    /// Flushes what was written to the disk, gives the temporary file the
    /// target's owner, group, mode, ACL and extended attributes once more
    /// (writing drops set-user-ID bits and file capabilities), checks that
    /// the target is still the file Create found (TargetCheck), renames the
    /// temporary file over it and syncs the folder. Throws
    /// boost::filesystem::filesystem_error carrying the target's path: with
    /// the system's error number when a write or any of these steps failed
    /// (a full disk shows here), with SaveError::TargetReplaced or
    /// TargetChanged when the check fails; the target is then untouched and
    /// the temporary file removed. With SaveError::NotDurable when only the
    /// sync of the folder failed: the new content is in place, but may not
    /// survive a power loss. With EBADF when called again after it
    /// succeeded or failed.
    void Commit();

    /// Removes the temporary files that saves of target killed before they
    /// ended have left in its folder (the named ones above), and returns how
    /// many it removed. Call it only where no save of target can be under
    /// way (tarsel set does, under its lock): it would make that save fail.
    /// A folder that cannot be listed gives 0. Throws
    /// boost::filesystem::filesystem_error when the folder cannot be opened.
    static std::size_t RemoveLeftovers(const ioPath& target);

private:
    // The temporary file, the folder and what Create recorded of the target.
    struct TARSEL_HIDDEN State;
    TARSEL_HIDDEN explicit AtomicFileDataOutput(std::unique_ptr<State> state);

    std::unique_ptr<State> m_state;
};

}  // namespace Tarsel::Core

namespace boost::system {
/// Lets a SaveError be compared with an error_code and become one.
template <>
struct is_error_code_enum<Tarsel::Core::SaveError> : std::true_type {};
}  // namespace boost::system
