#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/Digest.h>
#include <Core/Interfaces/Exceptions.h>
#include <Core/Interfaces/PropertySerializer.h>

#include "support/FileAttributes.h"
#include "support/TempFolder.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Tarsel;
using namespace Tarsel::Core;
namespace fs = boost::filesystem;

namespace {

class DataStreamTest : public TarselTest::TempFolderTest {};

// GetSize, then one Read of that size: how the serializer and the digest read.
std::string ReadAsTheLibraryDoes(IDataInput& input) {
    std::string bytes(input.GetSize(), '\0');
    bytes.resize(input.Read(bytes.data(), bytes.size()));
    return bytes;
}

// Bytes that no short read or stray zero fill could imitate.
std::string Pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>('a' + (i * 7 + i / 251) % 26);
    }
    return bytes;
}

// The code of the filesystem_error that action throws; none when it throws
// nothing.
boost::system::error_code CodeOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const fs::filesystem_error& e) {
        return e.code();
    }
    return {};
}

int ErrorCodeOf(const std::function<void()>& action) {
    return CodeOf(action).value();
}

// The one line a client shows for what action throws (Tarsel::ErrorMessage).
std::string MessageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::exception& e) {
        return Tarsel::ErrorMessage(e);
    }
    return "nothing thrown";
}

struct stat StatOf(const std::string& path) {
    struct stat info {};
    EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
    return info;
}

void Save(const std::string& target, const std::string& bytes) {
    const auto output = AtomicFileDataOutput::Create(target);
    output->Write(bytes.data(), bytes.size());
    output->Commit();
}

// Root runs what must be refused to an ordinary user as nobody, in a child
// process (an EXPECT_EXIT statement): the user's groups dropped, so that
// nobody is in no group but its own.
void BecomeNobody() {
    const gid_t nobody = 65534;
    if (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0) {
        std::fprintf(stderr, "cannot become nobody\n");
        std::_Exit(2);
    }
}

// Runs body in a child process and returns its exit status (-1 when a
// signal ended it). body ends the child with std::_Exit.
int ExitStatusOf(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        body();
        std::_Exit(0);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
        return -1;
    }
    return WEXITSTATUS(status);
}

// In a child process: exits 0 when action's failure reads message, and
// says what it read otherwise.
[[noreturn]] void ExitWhetherRefusedWith(const std::function<void()>& action, const std::string& message) {
    const std::string actual = MessageOf(action);
    if (actual != message) {
        std::fprintf(stderr, "refused with: %s\n", actual.c_str());
    }
    std::_Exit(actual == message ? 0 : 1);
}

// The exit status of a child that cannot do what the test needs.
constexpr int kUnable = 77;

// Run in a child process: a file size limit of 16 bytes makes the system
// refuse the bytes past it (EFBIG), as a full disk would. Exits 0 when
// finish, called after writing 1000 bytes, reports exactly that.
template <class Output>
void WriteUnderFileSizeLimit(const std::function<boost::intrusive_ptr<Output>()>& create, void (Output::*finish)()) {
    rlimit limit{};
    limit.rlim_cur = limit.rlim_max = 16;
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
    const boost::intrusive_ptr<Output> output = create();
    output->Write(Pattern(1000).data(), 1000);
    std::_Exit(ErrorCodeOf([&] { ((*output).*finish)(); }) == EFBIG ? 0 : 1);
}

void SaveUnderFileSizeLimit(const std::string& target) {
    WriteUnderFileSizeLimit<AtomicFileDataOutput>([&] { return AtomicFileDataOutput::Create(target); },
                                                  &AtomicFileDataOutput::Commit);
}

}  // namespace

TEST_F(DataStreamTest, PipeIsReadToItsEndSoTheSizeIsTheWholeContent) {
    // More than a pipe holds (64 KiB on Linux) and than one read chunk, so
    // the writer must run while the input reads.
    const std::string content = Pattern(300 * 1024 + 17);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::thread writer([&] {
        for (std::size_t done = 0; done < content.size();) {
            const ssize_t count = write(ends[1], content.data() + done, content.size() - done);
            ASSERT_GT(count, 0);
            done += static_cast<std::size_t>(count);
        }
        close(ends[1]);
    });
    const auto input = FileDataInput::Create("/dev/fd/" + std::to_string(ends[0]));
    writer.join();
    close(ends[0]);
    EXPECT_EQ(input->GetSize(), content.size());
    EXPECT_EQ(ReadAsTheLibraryDoes(*input), content);
    EXPECT_EQ(input->GetSize(), 0u);  // consumed
}

TEST_F(DataStreamTest, ProcFileReportingNoSizeIsReadWhole) {
    // This process's command line: /proc reports a size of 0 for it, and it
    // stays the same while the process runs.
    const std::string path = "/proc/self/cmdline";
    if (!fs::exists(path)) {
        GTEST_SKIP() << "no /proc here";
    }
    std::ifstream in(path, std::ios::binary);
    const std::string expected((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_FALSE(expected.empty());
    ASSERT_EQ(fs::file_size(path), 0u);
    const auto input = FileDataInput::Create(path);
    EXPECT_EQ(input->GetSize(), expected.size());
    EXPECT_EQ(ReadAsTheLibraryDoes(*input), expected);
    // The digest, which reads the same way, sees the whole content too.
    EXPECT_EQ(MD5Generate(FileDataInput::Create(path), ""), MD5Generate(MemoryDataInput::Create(expected), ""));
}

TEST_F(DataStreamTest, RegularFilesAreReadFromTheDiskAndReportWhatIsLeft) {
    WriteFile("data", Pattern(1000));
    WriteFile("empty", "");
    const auto input = FileDataInput::Create(At("data"));
    char head[100];
    EXPECT_EQ(input->Read(head, sizeof head), sizeof head);
    EXPECT_EQ(input->GetSize(), 900u);
    EXPECT_EQ(ReadAsTheLibraryDoes(*input), Pattern(1000).substr(100));
    // A file growing after Create is read as it stands: only a regular file
    // with a size is streamed.
    std::ofstream(At("data"), std::ios::app) << "tail";
    EXPECT_EQ(input->GetSize(), 4u);
    EXPECT_EQ(FileDataInput::Create(At("empty"))->GetSize(), 0u);
    EXPECT_EQ(FileDataInput::Create("/dev/null")->GetSize(), 0u);  // a character device
}

TEST_F(DataStreamTest, FilesThatCannotBeReadAreRefusedAtCreate) {
    EXPECT_EQ(ErrorCodeOf([&] { FileDataInput::Create(At("missing")); }), ENOENT);
    EXPECT_EQ(ErrorCodeOf([&] { FileDataInput::Create(m_dir.string()); }), EISDIR);
    EXPECT_EQ(ErrorCodeOf([&] { FileDataInput::Create(At(std::string(300, 'n'))); }), ENAMETOOLONG);
}

TEST_F(DataStreamTest, FileOutputWritesUntilCloseWhichReportsAFailedWrite) {
    const auto output = FileDataOutput::Create(At("out.bin"));
    EXPECT_EQ(output->Write("abc", 3), 3u);
    output->Close();
    EXPECT_EQ(output->Write("d", 1), 0u);  // closed: nothing more is accepted
    output->Close();                       // and closing again does nothing
    EXPECT_EQ(ReadFile("out.bin"), "abc");

    EXPECT_EXIT(WriteUnderFileSizeLimit<FileDataOutput>([&] { return FileDataOutput::Create(At("limited.bin")); },
                                                        &FileDataOutput::Close),
                testing::ExitedWithCode(0), "");
    EXPECT_EQ(ErrorCodeOf([&] { FileDataOutput::Create(At("missing/out.bin")); }), ENOENT);
}

TEST_F(DataStreamTest, CommitReplacesTheFileKeepingItsPermissions) {
    WriteFile("settings.json", "old content, longer than the new one");
    ASSERT_EQ(chmod(At("settings.json").c_str(), 0640), 0);
    const auto output = AtomicFileDataOutput::Create(At("settings.json"));
    EXPECT_EQ(output->Write("new ", 4), 4u);
    EXPECT_EQ(output->Write("text", 4), 4u);
    // Nothing reaches the target before Commit.
    EXPECT_EQ(ReadFile("settings.json"), "old content, longer than the new one");
    output->Commit();
    EXPECT_EQ(ReadFile("settings.json"), "new text");
    EXPECT_EQ(Entries(), std::vector<std::string>{"settings.json"});
    EXPECT_EQ(StatOf(At("settings.json")).st_mode & 07777, 0640u);
    // A second Commit has nothing left to commit.
    EXPECT_EQ(ErrorCodeOf([&] { output->Commit(); }), EBADF);
    EXPECT_EQ(ReadFile("settings.json"), "new text");
}

TEST_F(DataStreamTest, CommitCreatesAMissingFileWithTheModeOfAnyNewFile) {
    const mode_t mask = umask(022);
    Save(At("new.json"), "{}");
    umask(mask);
    EXPECT_EQ(ReadFile("new.json"), "{}");
    EXPECT_EQ(StatOf(At("new.json")).st_mode & 07777, 0644u);  // 0666 under the umask, not a temporary file's 0600
}

TEST_F(DataStreamTest, ReleasedWithoutCommitAfterWritingLeavesTheOriginalAndNoTemporary) {
    const std::string original = Pattern(5000);
    WriteFile("settings.json", original);
    {
        const auto output = AtomicFileDataOutput::Create(At("settings.json"));
        output->Write(Pattern(70000).data(), 70000);  // past the stream's buffer: on the disk
        // Unnamed, or named as documented.
        for (const std::string& name : Entries()) {
            EXPECT_TRUE(name == "settings.json" || name.rfind(".settings.json.tarsel-", 0) == 0) << name;
        }
        // The caller fails here, before Commit, and lets go of the output.
    }
    EXPECT_EQ(ReadFile("settings.json"), original);
    EXPECT_EQ(Entries(), std::vector<std::string>{"settings.json"});
}

TEST_F(DataStreamTest, AFailedWriteFailsTheCommitAndLeavesTheOriginal) {
    WriteFile("settings.json", "original");
    EXPECT_EXIT(SaveUnderFileSizeLimit(At("settings.json")), testing::ExitedWithCode(0), "");
    EXPECT_EQ(ReadFile("settings.json"), "original");
    EXPECT_EQ(Entries(), std::vector<std::string>{"settings.json"});
}

TEST_F(DataStreamTest, ALinkIsFollowedAndKept) {
    WriteFile("real.json", "old");
    fs::create_symlink(At("real.json"), At("link.json"));
    Save(At("link.json"), "new");
    EXPECT_TRUE(fs::is_symlink(At("link.json")));
    EXPECT_EQ(ReadFile("real.json"), "new");
}

// A dangling link is followed as editors follow it: the file is made where
// it points, in a folder that exists; a chain of links has an end.
TEST_F(DataStreamTest, ADanglingLinkIsFollowedToWhereTheFileIsMade) {
    fs::create_directory(At("real"));
    fs::create_symlink("real/settings.json", At("relative.json"));
    fs::create_symlink(At("real/absolute.json"), At("absolute.json"));
    fs::create_symlink("missing/settings.json", At("nowhere.json"));
    fs::create_symlink("loop2", At("loop1"));
    fs::create_symlink("loop1", At("loop2"));
    Save(At("relative.json"), "relative");
    Save(At("absolute.json"), "absolute");
    EXPECT_TRUE(fs::is_symlink(At("relative.json")));
    EXPECT_TRUE(fs::is_symlink(At("absolute.json")));
    EXPECT_EQ(ReadFile("real/settings.json"), "relative");
    EXPECT_EQ(ReadFile("real/absolute.json"), "absolute");
    EXPECT_EQ(ErrorCodeOf([&] { Save(At("nowhere.json"), "x"); }), ENOENT);
    EXPECT_EQ(ErrorCodeOf([&] { Save(At("loop1"), "x"); }), ELOOP);
    EXPECT_TRUE(fs::is_symlink(At("nowhere.json")));
    EXPECT_TRUE(fs::is_symlink(At("loop1")));
}

// What a rename would damage is refused before anything is made, naming
// its kind, and stays what it was.
TEST_F(DataStreamTest, SpecialFilesAreRefusedNamingTheirKind) {
    ASSERT_EQ(mkfifo(At("fifo").c_str(), 0644), 0);
    fs::create_symlink("fifo", At("link-to-fifo"));
    fs::create_directory(At("folder"));
    const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string socketPath = At("socket");
    ASSERT_LT(socketPath.size(), sizeof address.sun_path);
    std::copy(socketPath.begin(), socketPath.end(), address.sun_path);
    ASSERT_EQ(bind(sock, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    // A device node needs root to make; this one is /dev/null's twin.
    const bool device = mknod(At("device").c_str(), S_IFCHR | 0666, StatOf("/dev/null").st_rdev) == 0;
    const struct {
        std::string name;
        mode_t kind;
        std::string message;
    } cases[] = {
        {"fifo", S_IFIFO, "is a FIFO, which a save would replace with a regular file"},
        {"link-to-fifo", S_IFLNK, "is a FIFO, which a save would replace with a regular file"},
        {"socket", S_IFSOCK, "is a socket, which a save would replace with a regular file"},
        {"device", S_IFCHR, "is a device, which a save would replace with a regular file"},
        {"folder", S_IFDIR, "is a folder, not a file"},
    };
    for (const auto& c : cases) {
        if (c.name == "device" && !device) {
            continue;
        }
        EXPECT_EQ(MessageOf([&] { Save(At(c.name), "{}"); }), At(c.name) + ": " + c.message);
        EXPECT_EQ(StatOf(At(c.name)).st_mode & S_IFMT, c.kind) << c.name;
    }
    EXPECT_EQ(CodeOf([&] { Save(At("fifo"), "{}"); }), SaveError::TargetIsFifo);
    close(sock);
    EXPECT_EQ(Entries().size(), device ? 5u : 4u);  // nothing made beside them
}

// The target is resolved once, and the save works in the folder then
// opened: whatever takes the path's place afterwards is never written
// through, and the file Create found is the only one a rename replaces.
TEST_F(DataStreamTest, WhatTakesTheTargetsPlaceAfterCreateIsNeitherWrittenThroughNorReplaced) {
    const std::string secret = (Aside("other") / "secret.json").string();
    const auto moveAside = [&] { fs::rename(At("dir/settings.json"), At("dir/moved.json")); };
    const struct {
        const char* what;
        std::function<void()> swap;
        AtomicFileDataOutput::TargetCheck check;
        boost::system::error_code code;
        const char* left;  // what dir/settings.json holds afterwards
    } cases[] = {
        {"a link to another folder's file",
         [&] {
             moveAside();
             fs::create_symlink(secret, At("dir/settings.json"));
         },
         AtomicFileDataOutput::TargetCheck::SameFile, SaveError::TargetReplaced, "secret"},
        {"another file",
         [&] {
             moveAside();
             WriteFile("dir/settings.json", "another");
         },
         AtomicFileDataOutput::TargetCheck::SameFile, SaveError::TargetReplaced, "another"},
        {"nothing", [&] { fs::remove(At("dir/settings.json")); }, AtomicFileDataOutput::TargetCheck::SameFile,
         SaveError::TargetReplaced, ""},
        // The same file, changed in place: refused only when asked.
        {"a change in place", [&] { std::ofstream(At("dir/settings.json"), std::ios::in) << "ORIG"; },
         AtomicFileDataOutput::TargetCheck::Unchanged, SaveError::TargetChanged, "ORIGinal"},
        {"a change in place, not checked",
         [&] { std::ofstream(At("dir/settings.json"), std::ios::in) << "ORIG"; },
         AtomicFileDataOutput::TargetCheck::SameFile,
         {},
         "new"},
        // The folder itself swapped for a link: the save stays in the
        // folder it opened.
        {"a link in the folder's place",
         [&] {
             fs::rename(At("dir"), At("dir.old"));
             fs::create_symlink(Aside("other"), At("dir"));
             fs::copy_file(secret, At("dir/settings.json"));
         },
         AtomicFileDataOutput::TargetCheck::Unchanged,
         {},
         "secret"},
    };
    fs::create_directory(Aside("other"));
    for (const auto& c : cases) {
        fs::remove_all(At("dir"));
        fs::remove_all(At("dir.old"));
        fs::remove(Aside("other") / "settings.json");
        fs::create_directory(At("dir"));
        std::ofstream(secret, std::ios::binary | std::ios::trunc) << "secret";
        WriteFile("dir/settings.json", "original");
        const auto output = AtomicFileDataOutput::Create(At("dir/settings.json"), c.check);
        c.swap();
        output->Write("new", 3);
        EXPECT_EQ(CodeOf([&] { output->Commit(); }), c.code) << c.what;
        std::ifstream in(secret, std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()), "secret")
            << c.what;
        EXPECT_EQ(ReadFile("dir/settings.json"), c.left) << c.what;
    }
    // The last case saved into the folder it had opened, now dir.old.
    EXPECT_EQ(ReadFile("dir.old/settings.json"), "new");
    EXPECT_EQ(Entries(), (std::vector<std::string>{"dir", "dir.old"}));
}

// ReadTarget reads the very file Create found, so that an editor edits the
// text it replaces, whatever took its path meanwhile.
TEST_F(DataStreamTest, ReadTargetReadsTheFileCreateFound) {
    const std::string original = Pattern(200000);  // more than one read
    WriteFile("settings.json", original);
    const auto output = AtomicFileDataOutput::Create(At("settings.json"));
    fs::rename(At("settings.json"), At("moved.json"));
    WriteFile("settings.json", "impostor");
    EXPECT_EQ(ReadAsTheLibraryDoes(*output->ReadTarget()), original);
    EXPECT_EQ(ReadAsTheLibraryDoes(*output->ReadTarget()), original);  // each input reads from the start
    EXPECT_EQ(ErrorCodeOf([&] { AtomicFileDataOutput::Create(At("new.json"))->ReadTarget(); }), ENOENT);
}

TEST_F(DataStreamTest, TheTemporaryFileIsNoMoreReadableThanTheFileItReplaces) {
    WriteFile("secret.json", "{\"password\":\"old\"}");
    ASSERT_EQ(chmod(At("secret.json").c_str(), 0600), 0);
    const mode_t mask = umask(0);  // the most a process can let a new file be
    const auto output = AtomicFileDataOutput::Create(At("secret.json"));
    output->Write(Pattern(70000).data(), 70000);  // on the disk, past the stream's buffer
    for (const std::string& name : Entries()) {
        EXPECT_EQ(StatOf(At(name)).st_mode & 077, 0u) << name;  // nothing for the group or others
    }
    output->Commit();
    umask(mask);
    EXPECT_EQ(StatOf(At("secret.json")).st_mode & 07777, 0600u);
}

// Owner, group, every mode bit, extended attributes and the ACL: what the
// file carries besides its bytes is the new file's too.
TEST_F(DataStreamTest, WhatTheFileCarriesIsKept) {
    const struct {
        const char* name;
        mode_t mode;
        uid_t owner;  // root only, to give a file to another user
    } cases[] = {
        {"plain.json", 0640, 0},
        {"setuid.json", 04755, 0},      // set-user-ID, cleared by a write and by a change of owner
        {"setgid.json", 02750, 0},      // set-group-ID
        {"sticky.json", 01604, 0},      // sticky
        {"theirs.json", 06640, 65534},  // another user's, both ID bits
    };
    for (const auto& c : cases) {
        if (c.owner != 0 && geteuid() != 0) {
            continue;
        }
        WriteFile(c.name, "old");
        ASSERT_EQ(chown(At(c.name).c_str(), c.owner == 0 ? geteuid() : c.owner, c.owner == 0 ? getegid() : c.owner), 0);
        ASSERT_EQ(chmod(At(c.name).c_str(), c.mode), 0);
        const struct stat before = StatOf(At(c.name));
        PropertySerializer::SerializeToFile(Property("settings"), At(c.name), false);
        const struct stat after = StatOf(At(c.name));
        EXPECT_EQ(ReadFile(c.name), "{}") << c.name;
        EXPECT_NE(after.st_ino, before.st_ino) << c.name;  // replaced, not rewritten
        EXPECT_EQ(after.st_mode & 07777, c.mode) << c.name;
        EXPECT_EQ(after.st_uid, before.st_uid) << c.name;
        EXPECT_EQ(after.st_gid, before.st_gid) << c.name;
    }

    WriteFile("tagged.json", "old");
    const std::string tag("blue\0green", 10);
    if (!TarselTest::SetAttribute(At("tagged.json"), "user.tarsel.tag", tag) ||
        !TarselTest::GrantUserAccess(At("tagged.json"), 65534)) {
        GTEST_SKIP() << "the test folder's file system holds no extended attributes or ACLs here: "
                     << std::strerror(errno);
    }
    const std::string acl = TarselTest::AclOf(At("tagged.json"));
    ASSERT_FALSE(acl.empty());
    // A file without an ACL, in a folder whose default ACL gives one to
    // whatever is made in it (the temporary file too).
    ASSERT_TRUE(TarselTest::GrantUserAccessToNewFiles(m_dir.string(), 12345));
    std::ofstream(Aside("bare.json").string()) << "old";
    fs::rename(Aside("bare.json"), At("bare.json"));
    ASSERT_EQ(TarselTest::AclOf(At("bare.json")), "");
    PropertySerializer::SerializeToFile(Property("settings"), At("tagged.json"), false);
    PropertySerializer::SerializeToFile(Property("settings"), At("bare.json"), false);
    EXPECT_EQ(TarselTest::AttributeOf(At("tagged.json"), "user.tarsel.tag"), tag);
    EXPECT_EQ(TarselTest::AclOf(At("tagged.json")), acl);
    EXPECT_EQ(TarselTest::AclOf(At("bare.json")), "");
    EXPECT_EQ(ReadFile("tagged.json"), "{}");
}

// An owner or group the process cannot give refuses the save, before
// anything is written, saying which; the file stays as it was. Root makes
// the files and runs the saves as users who cannot give them.
TEST_F(DataStreamTest, AnOwnerOrGroupThatCannotBeGivenRefusesTheSave) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to make another user's files";
    }
    ASSERT_EQ(chmod(m_dir.c_str(), 0777), 0);
    // Nobody's file in root's group, which nobody is not in.
    WriteFile("group.json", "group");
    ASSERT_EQ(chown(At("group.json").c_str(), 65534, 0), 0);
    ASSERT_EQ(chmod(At("group.json").c_str(), 0666), 0);
    EXPECT_EQ(ExitStatusOf([&] {
                  BecomeNobody();
                  ExitWhetherRefusedWith([&] { Save(At("group.json"), "{}"); },
                                         At("group.json") +
                                             ": its group cannot be given to the new file, so a save would change it");
              }),
              0);
    // A user's file, saved by root of a user namespace that maps no other
    // user (unshare -r): giving the file back fails.
    WriteFile("owner.json", "owner");
    ASSERT_EQ(chown(At("owner.json").c_str(), 12345, 12345), 0);
    ASSERT_EQ(chmod(At("owner.json").c_str(), 0666), 0);
    const int owner = ExitStatusOf([&] {
        if (!TarselTest::BecomeRootOfOwnUserNamespace()) {
            std::_Exit(kUnable);
        }
        ExitWhetherRefusedWith([&] { Save(At("owner.json"), "{}"); },
                               At("owner.json") +
                                   ": its owner cannot be given to the new file, so a save would change it");
    });
    EXPECT_EQ(ReadFile("group.json"), "group");
    EXPECT_EQ(ReadFile("owner.json"), "owner");
    EXPECT_EQ(StatOf(At("group.json")).st_gid, 0u);
    EXPECT_EQ(StatOf(At("owner.json")).st_uid, 12345u);
    EXPECT_EQ(Entries(), (std::vector<std::string>{"group.json", "owner.json"}));
    if (owner == kUnable) {
        GTEST_SKIP() << "the system allows no user namespace here, so the owner's case was not run";
    }
    EXPECT_EQ(owner, 0);
}

// Another user's link is followed only to what is theirs: it cannot aim
// root's save at root's own files. Root makes the links as nobody's.
TEST_F(DataStreamTest, AnotherUsersLinkIsFollowedOnlyToWhatIsTheirs) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to make another user's links";
    }
    fs::create_directory(At("theirs"));
    ASSERT_EQ(chown(At("theirs").c_str(), 65534, 65534), 0);
    WriteFile("root.json", "root's");
    WriteFile("theirs/own.json", "theirs");
    ASSERT_EQ(chown(At("theirs/own.json").c_str(), 65534, 65534), 0);
    const struct {
        const char* link;
        const char* to;
        uid_t linkOwner;
        boost::system::error_code code;
    } cases[] = {
        {"to-root.json", "root.json", 65534, SaveError::UntrustedLink},
        {"to-new-in-root.json", "new.json", 65534, SaveError::UntrustedLink},  // a file made in root's folder
        {"theirs/to-root.json", "../root.json", 65534, SaveError::UntrustedLink},
        {"theirs/to-own.json", "own.json", 65534, {}},
        {"theirs/to-new.json", "new.json", 65534, {}},  // made in their folder
        {"root-to-theirs.json", "theirs/own.json", 0, {}},
    };
    for (const auto& c : cases) {
        fs::create_symlink(c.to, At(c.link));
        ASSERT_EQ(lchown(At(c.link).c_str(), c.linkOwner, c.linkOwner), 0);
        EXPECT_EQ(CodeOf([&] { Save(At(c.link), "saved"); }), c.code) << c.link;
        EXPECT_TRUE(fs::is_symlink(At(c.link))) << c.link;
    }
    EXPECT_EQ(ReadFile("root.json"), "root's");
    EXPECT_FALSE(fs::exists(At("new.json")));
    EXPECT_EQ(ReadFile("theirs/own.json"), "saved");
    EXPECT_EQ(ReadFile("theirs/new.json"), "saved");
}

// A folder the process may enter and write but not list: on Linux it is
// opened for search only and synced through its file system.
TEST_F(DataStreamTest, AFolderThatMayBeWrittenButNotReadStillSaves) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to save as another user";
    }
    fs::create_directory(At("dropbox"));
    ASSERT_EQ(chmod(At("dropbox").c_str(), 0733), 0);
    EXPECT_EQ(ExitStatusOf([&] {
                  BecomeNobody();
                  Save(At("dropbox/new.json"), "new");
                  Save(At("dropbox/new.json"), "again");
                  std::_Exit(AtomicFileDataOutput::RemoveLeftovers(At("dropbox/new.json")) == 0 ? 0 : 1);
              }),
              0);
    EXPECT_EQ(ReadFile("dropbox/new.json"), "again");
}

// A file with other hard links is replaced: the new content is the
// target's alone, and the other links keep the old one.
TEST_F(DataStreamTest, AFileWithOtherHardLinksIsReplacedAndItsLinksSplit) {
    WriteFile("settings.json", "old");
    ASSERT_EQ(link(At("settings.json").c_str(), At("backup.json").c_str()), 0);
    Save(At("settings.json"), "new");
    EXPECT_EQ(ReadFile("settings.json"), "new");
    EXPECT_EQ(ReadFile("backup.json"), "old");
    EXPECT_EQ(StatOf(At("settings.json")).st_nlink, 1u);
}

// Killed after writing part of its data, a save leaves no new entry where
// the temporary file has no name.
TEST_F(DataStreamTest, ASaveKilledPartWayLeavesNoNewEntry) {
    if (!TarselTest::MakesUnnamedFiles(m_dir.string())) {
        GTEST_SKIP() << "this file system has no unnamed files: a killed save leaves a named temporary file, which "
                        "RemoveLeftovers removes";
    }
    WriteFile("settings.json", "original");
    int written[2];
    ASSERT_EQ(pipe(written), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const auto output = AtomicFileDataOutput::Create(At("settings.json"));
        output->Write(Pattern(200000).data(), 200000);
        const char done = 'w';
        (void)write(written[1], &done, 1);
        for (;;) {
            pause();
        }
    }
    char done = 0;
    ASSERT_EQ(read(written[0], &done, 1), 1);
    ASSERT_EQ(kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    close(written[0]);
    close(written[1]);
    EXPECT_EQ(Entries(), std::vector<std::string>{"settings.json"});
    EXPECT_EQ(ReadFile("settings.json"), "original");
}

// The temporary names of a file follow one documented pattern, which
// RemoveLeftovers removes, and nothing else.
TEST_F(DataStreamTest, RemoveLeftoversRemovesTheTemporaryFilesOfThatFileOnly) {
    WriteFile("settings.json", "{}");
    const struct {
        std::string name;
        bool removed;
    } cases[] = {
        {".settings.json.tarsel-a1B2c3", true},   {".settings.json.tarsel-zzzzzz", true},
        {".settings.json.tarsel-a1B2c", false},    // five letters
        {".settings.json.tarsel-a1B2c3d", false},  // seven
        {".settings.json.tarsel-a1B2c!", false},   // not a letter
        {"settings.json.tarsel-a1B2c3", false},    // no leading dot
        {".other.json.tarsel-a1B2c3", false},      // another file's
    };
    for (const auto& c : cases) {
        WriteFile(c.name, "leftover");
    }
    fs::create_directory(At(".settings.json.tarsel-folder"));                 // not a file
    fs::create_symlink("settings.json", At(".settings.json.tarsel-linked"));  // nor a link
    EXPECT_EQ(AtomicFileDataOutput::RemoveLeftovers(At("settings.json")), 2u);
    for (const auto& c : cases) {
        EXPECT_EQ(fs::exists(At(c.name)), !c.removed) << c.name;
    }
    EXPECT_TRUE(fs::is_directory(At(".settings.json.tarsel-folder")));
    EXPECT_TRUE(fs::is_symlink(At(".settings.json.tarsel-linked")));
    EXPECT_EQ(AtomicFileDataOutput::RemoveLeftovers(At("settings.json")), 0u);
}

// A name of 255 bytes, the most most file systems allow, saves: the
// temporary name keeps the first 240 bytes of it, cut where a character
// starts.
TEST_F(DataStreamTest, ANameAsLongAsTheFileSystemAllowsSaves) {
    std::string name = "x";
    while (name.size() < 255) {
        name += "\xC3\xA9";  // U+00E9, two bytes: byte 240 falls inside one
    }
    ASSERT_EQ(name.size(), 255u);
    Save(At(name), "new");
    Save(At(name), "again");
    EXPECT_EQ(ReadFile(name), "again");
    EXPECT_EQ(Entries(), std::vector<std::string>{name});
    const std::string leftover = "." + name.substr(0, 239) + ".tarsel-abcdef";
    WriteFile(leftover, "leftover");
    EXPECT_EQ(AtomicFileDataOutput::RemoveLeftovers(At(name)), 1u);
    EXPECT_EQ(ErrorCodeOf([&] { Save(At(name + "x"), "x"); }), ENAMETOOLONG);
}
