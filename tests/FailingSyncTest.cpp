// A save whose syncs fail: an executable of its own, since it replaces the
// C library's fsync for the whole process (the library's calls reach this
// definition first), failing it on demand for one kind of file and passing
// every other call on.
#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/Exceptions.h>

#include "support/TempFolder.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Which syncs fail, with EIO: of folders or of regular files.
std::atomic<mode_t> g_failingKind{0};

bool Fails(int fd) {
    struct stat info {};
    const mode_t kind = g_failingKind.load();
    return kind != 0 && ::fstat(fd, &info) == 0 && (info.st_mode & S_IFMT) == kind;
}

template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int fsync(int fd) {
    static auto* const next = Next<int(int)>("fsync");
    if (Fails(fd)) {
        errno = EIO;
        return -1;
    }
    return next(fd);
}

namespace {

using namespace Tarsel::Core;
namespace fs = boost::filesystem;

class FailingSync : public TarselTest::TempFolderTest {
protected:
    void TearDown() override {
        g_failingKind = 0;
        TempFolderTest::TearDown();
    }

    // The line a client shows for what Commit throws; the code in code.
    std::string CommitFailure(const std::string& text, boost::system::error_code* code) {
        const auto output = AtomicFileDataOutput::Create(At("settings.json"));
        output->Write(text.data(), text.size());
        try {
            output->Commit();
        } catch (const fs::filesystem_error& e) {
            *code = e.code();
            return Tarsel::ErrorMessage(e);
        }
        return "nothing thrown";
    }
};

TEST_F(FailingSync, AFailedSyncOfTheFileFailsTheCommitAndLeavesTheFile) {
    WriteFile("settings.json", "old");
    g_failingKind = S_IFREG;
    boost::system::error_code code;
    EXPECT_EQ(CommitFailure("new", &code), At("settings.json") + ": input/output error");
    EXPECT_EQ(code.value(), EIO);
    g_failingKind = 0;
    EXPECT_EQ(ReadFile("settings.json"), "old");
    EXPECT_EQ(Entries(), std::vector<std::string>{"settings.json"});
}

// The rename is done when the folder's sync fails: the commit says so.
TEST_F(FailingSync, AFailedSyncOfTheFolderIsReportedWithTheNewTextInPlace) {
    WriteFile("settings.json", "old");
    g_failingKind = S_IFDIR;
    boost::system::error_code code;
    EXPECT_EQ(CommitFailure("new", &code),
              At("settings.json") +
                  ": the new content is in place, but its folder could not be synced: it may not survive a power "
                  "loss");
    EXPECT_EQ(code, SaveError::NotDurable);
    g_failingKind = 0;
    EXPECT_EQ(ReadFile("settings.json"), "new");
    EXPECT_EQ(Entries(), std::vector<std::string>{"settings.json"});
}

}  // namespace
