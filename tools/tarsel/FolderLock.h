// The lock that makes `tarsel set`s of one folder take turns: an exclusive
// advisory lock (flock) on the folder that holds the file, waited for at
// most a given time.
#pragma once

#include <boost/filesystem/path.hpp>

#include <string>

namespace TarselTool {

// Held from before the file is read until after it is replaced: concurrent
// sets of one file take turns, and none loses another's change. The folder,
// unlike the file, outlives the rename; the kernel releases the lock when
// the process ends, however it ends, and nothing is left on disk.
class FolderLock {
public:
    // Locks the folder of file (its links followed), waiting at most
    // waitSeconds for another process to release it; after a second of
    // waiting, says so on standard error. Throws ToolFailure about name when
    // the wait runs out, naming the folder, and when the folder cannot be
    // locked: a folder the user may write but not read cannot be (flock
    // needs it open), which the failure says.
    FolderLock(const std::string& file, const std::string& name, unsigned waitSeconds);
    ~FolderLock();
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    // The folder locked, its links resolved.
    const boost::filesystem::path& Folder() const noexcept { return m_folder; }

private:
    boost::filesystem::path m_folder;
    int m_fd;
};

// The longest wait --wait accepts, in seconds: a day.
inline constexpr unsigned kMaxWaitSeconds = 86400;

}  // namespace TarselTool
