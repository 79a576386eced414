#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/Digest.h>

#include "support/TempFolder.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Tarsel;
using namespace Tarsel::Core;
namespace fs = boost::filesystem;

namespace {

class DataStreamTest : public TarselTest::TempFolderTest {
protected:
    // The names in the folder, sorted: what a save left behind.
    std::vector<std::string> Entries() const {
        std::vector<std::string> names;
        for (const fs::directory_entry& entry : fs::directory_iterator(m_dir)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

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

int ErrorCodeOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const fs::filesystem_error& e) {
        return e.code().value();
    }
    return 0;
}

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
    EXPECT_EQ(Entries().size(), 2u);
    output->Commit();
    EXPECT_EQ(ReadFile("settings.json"), "new text");
    EXPECT_EQ(Entries(), std::vector<std::string>{"settings.json"});
    struct stat info {};
    ASSERT_EQ(stat(At("settings.json").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    // A second Commit has nothing left to commit.
    EXPECT_EQ(ErrorCodeOf([&] { output->Commit(); }), EBADF);
    EXPECT_EQ(ReadFile("settings.json"), "new text");
}

TEST_F(DataStreamTest, CommitCreatesAMissingFileWithTheModeOfAnyNewFile) {
    const mode_t mask = umask(022);
    const auto output = AtomicFileDataOutput::Create(At("new.json"));
    output->Write("{}", 2);
    output->Commit();
    umask(mask);
    EXPECT_EQ(ReadFile("new.json"), "{}");
    struct stat info {};
    ASSERT_EQ(stat(At("new.json").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0644u);  // 0666 under the umask, not a temporary file's 0600
}

TEST_F(DataStreamTest, ReleasedWithoutCommitAfterWritingLeavesTheOriginalAndNoTemporary) {
    const std::string original = Pattern(5000);
    WriteFile("settings.json", original);
    {
        const auto output = AtomicFileDataOutput::Create(At("settings.json"));
        output->Write(Pattern(70000).data(), 70000);  // past the stream's buffer: on the disk
        const std::vector<std::string> during = Entries();
        ASSERT_EQ(during.size(), 2u);
        const std::string temporary = during[0] == "settings.json" ? during[1] : during[0];
        EXPECT_EQ(temporary.rfind(".settings.json.tarsel-", 0), 0u) << temporary;
        EXPECT_GT(fs::file_size(m_dir / temporary), 0u);
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
    const auto output = AtomicFileDataOutput::Create(At("link.json"));
    output->Write("new", 3);
    output->Commit();
    EXPECT_TRUE(fs::is_symlink(At("link.json")));
    EXPECT_EQ(ReadFile("real.json"), "new");
}

TEST_F(DataStreamTest, TargetsThatCannotBeReplacedAreRefusedAtCreate) {
    fs::create_directory(At("folder"));
    EXPECT_EQ(ErrorCodeOf([&] { AtomicFileDataOutput::Create(At("folder")); }), EISDIR);
    EXPECT_EQ(ErrorCodeOf([&] { AtomicFileDataOutput::Create(At("missing/settings.json")); }), ENOENT);
    EXPECT_EQ(Entries(), std::vector<std::string>{"folder"});
}
