#include <Core/Interfaces/FileUtils.h>

#include "support/TempFolder.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <stdexcept>

using namespace Tarsel;
using namespace Tarsel::Core;
namespace fs = boost::filesystem;

namespace {

class FileUtilsTest : public TarselTest::TempFolderTest {
protected:
    // Joined by text, not as a path: At("/x") is the folder, "//", then x.
    ioPath At(const std::string& relative) const { return m_dir.string() + "/" + relative; }
    void Touch(const std::string& relative) const { fs::ofstream(At(relative)) << "x"; }
};

}  // namespace

TEST_F(FileUtilsTest, ExistenceFollowsLinksAndRemovalTouchesOnlyTheRightType) {
    Touch("file");
    fs::create_directories(At("tree/sub"));
    fs::create_symlink(At("nowhere"), At("dangling"));
    EXPECT_TRUE(FileExists(At("file")));
    EXPECT_TRUE(FileExists(At("tree")));
    EXPECT_FALSE(FileExists(At("missing/below")));
    EXPECT_FALSE(FileExists(At("dangling")));
    // A failure other than "not found" is no answer: here, a name too long.
    EXPECT_THROW(FileExists(At(std::string(300, 'n'))), fs::filesystem_error);

    EXPECT_FALSE(RemoveFile(At("tree")));
    EXPECT_FALSE(RemoveDir(At("file")));
    EXPECT_TRUE(RemoveDir(At("tree")));
    EXPECT_TRUE(RemoveFile(At("file")));
    EXPECT_FALSE(fs::exists(At("tree")) || fs::exists(At("file")));
}

TEST_F(FileUtilsTest, CopyDirNeverOverwritesAndJoinsSubfoldersWholePath) {
    fs::create_directories(At("src/sub"));
    Touch("src/a");
    Touch("src/sub/f");
    EXPECT_FALSE(CopyDir(At("missing"), At("target")));
    EXPECT_FALSE(fs::exists(At("target")));
    EXPECT_THROW(CopyDir(At("src"), At("other")), fs::filesystem_error);  // "other/<src>/sub" has no parent
    // With the source's own folders prepared under target, the copy goes through.
    const std::string nested = At("target").utf8string() + At("src").utf8string();
    fs::create_directories(nested);
    EXPECT_TRUE(CopyDir(At("src"), At("target")));
    EXPECT_TRUE(fs::is_regular_file(At("target/a")));
    EXPECT_TRUE(fs::is_regular_file(nested + "/sub/f"));
    EXPECT_THROW(CopyDir(At("src"), At("target")), fs::filesystem_error);  // the files exist now
}

TEST(CheckValidFilename, JudgesLengthAndTheLastElement) {
    EXPECT_TRUE(CheckValidFilename(" x/y"));
    EXPECT_TRUE(CheckValidFilename("dir/"));  // its file name is "."
    EXPECT_FALSE(CheckValidFilename("dir/ x"));
    EXPECT_FALSE(CheckValidFilename(""));
    EXPECT_TRUE(CheckValidFilename("d/" + std::string(1022, 'a')));
    EXPECT_FALSE(CheckValidFilename("d/" + std::string(1023, 'a')));  // 1025 bytes
}

TEST_F(FileUtilsTest, UpdateFilePathIfExistNumbersTakenNames) {
    for (const char* name : {"report.txt", "report (1).txt", "(1).mp4", "name.txt"}) {
        Touch(name);
    }
    const struct {
        std::set<ioPath> reserved;
        std::string proposed, extension, expected;
        bool numberOnly = false;
    } cases[] = {
        {{}, "report", ".txt", "report (2).txt"},                                    // on disk: counted from 1
        {{At("/paper.txt"), At("paper (1).txt")}, "paper", "txt", "paper (2).txt"},  // reserved only: the forced pass
        {{At("report (2).txt")}, "report", "txt", "report (3).txt"},  // on disk, then reserved: one counter
        {{At("other.txt")}, "report.old", "", "report"},
        {{}, "", "mp4", "(1) (1).mp4", true},  // numberOnly: the folder's file is named by a number
        {{}, "", "mkv", "(1).mkv"},            // a folder ending in "/": no stem
        {{}, " name", "txt", "name.txt"},      // stripped, not tested again
        {{}, "   ", "txt", ".txt"},
    };
    for (const auto& c : cases) {
        ioPath path = At(c.proposed);
        UpdateFilePathIfExist(&c.reserved, c.numberOnly, c.extension, &path);
        EXPECT_EQ(path.utf8string(), At(c.expected).utf8string()) << "proposed '" << c.proposed << "'";
    }
    UpdateFilePathIfExist(nullptr, false, "txt", nullptr);  // does nothing
}

TEST_F(FileUtilsTest, UpdateFilePathIfExistCutsALongNameBeforeItsNumber) {
    // In a missing folder, a name too long for the disk still reads "not found".
    const ioPath proposed = At("missing/" + std::string(1100, 'x') + "b");
    const std::string endings[] = {
        "x.txt",     "x (1).txt", "x (2).txt", "x (3).txt", "x (4).txt", "x (5).txt",
        "x (6).txt", "x (7).txt", "x (8).txt", "xb (9).txt"};  // counter 10: the cut moves one further left
    std::set<ioPath> reserved;
    for (const std::string& ending : endings) {
        ioPath path = proposed;
        UpdateFilePathIfExist(&reserved, false, "txt", &path);
        const std::string text = path.utf8string();
        EXPECT_EQ(text.size(), 1024u);
        EXPECT_EQ(text.substr(text.size() - ending.size()), ending);
        reserved.insert(path);
    }
}

TEST_F(FileUtilsTest, UpdateFilePathIfExistThrowsForANameThatCannotBeCutOrAStatusFailure) {
    // Spaces only, and a long name beside a folder of more than 1024 bytes.
    for (ioPath path : {At("   "), At("missing/" + std::string(1100, 'd') + "/" + std::string(1100, 'n'))}) {
        try {
            UpdateFilePathIfExist(nullptr, false, "", &path);
            ADD_FAILURE() << "no throw, got " << path.utf8string().substr(0, 60);
        } catch (const std::out_of_range& e) {
            EXPECT_EQ(std::string(e.what()).rfind("basic_string::erase", 0), 0u) << e.what();
        }
    }
    ioPath path = At(std::string(300, 'n'));
    EXPECT_THROW(UpdateFilePathIfExist(nullptr, false, "txt", &path), fs::filesystem_error);
    EXPECT_EQ(path.utf8string(), At(std::string(300, 'n') + ".txt").utf8string());  // the new extension stays
}

TEST(MakeDirectoryToFileListMap, GroupsInFirstSeenOrderWithoutDuplicates) {
    const auto groups = MakeDirectoryToFileListMap(
        {"/b/y.txt", "/a/x.txt", "x.txt", "/b/y.txt", "/a//z.txt", "/a/", "/a/z.txt", "/A/x.txt"});
    const std::map<ioPath, std::vector<ioPath>> expected = {
        {"", {"x.txt"}}, {"/A", {"/A/x.txt"}}, {"/a", {"/a/x.txt", "/a//z.txt", "/a/"}}, {"/b", {"/b/y.txt"}}};
    EXPECT_EQ(groups, expected);
    EXPECT_EQ(groups.at("/a")[1].utf8string(), "/a//z.txt");  // "/a/z.txt" is the same file, listed as first spelt
    EXPECT_TRUE(MakeDirectoryToFileListMap({}).empty());
}
