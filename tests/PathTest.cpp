#include <Core/Interfaces/Path.h>

#include <gtest/gtest.h>

#include <set>

using namespace Tarsel;

TEST(ioPath, SlashJoinsWithASeparatorPlusNever) {
    const struct {
        const char *left, *right, *joined, *concatenated;
    } cases[] = {
        {"a", "b.txt", "a/b.txt", "ab.txt"},
        {"dir/", "x", "dir/x", "dir/x"},  // no doubled separator
        {"dir", "/x", "dir/x", "dir/x"},  // an absolute right side is appended, not substituted
        {"report", " (2)", "report/ (2)", "report (2)"},
        {"", "x", "x", "x"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ((ioPath(c.left) / c.right).utf8string(), c.joined) << c.left << " / " << c.right;
        EXPECT_EQ((ioPath(c.left) /= c.right).utf8string(), c.joined);
        EXPECT_EQ((ioPath(c.left) + c.right).utf8string(), c.concatenated) << c.left << " + " << c.right;
        EXPECT_EQ((ioPath(c.left) += c.right).utf8string(), c.concatenated);
    }
}

TEST(ioPath, ComparesElementByElement) {
    // A redundant separator yields no element, a trailing one yields ".".
    EXPECT_TRUE(ioPath("a//b") == ioPath("a/b"));
    EXPECT_FALSE(ioPath("a//b") != ioPath("a/b"));
    EXPECT_TRUE(ioPath("a/b/") != ioPath("a/b"));
    EXPECT_FALSE(ioPath("A") == ioPath("a"));
    EXPECT_FALSE(ioPath("caf\xC3\xA9") == ioPath("cafe\xCC\x81"));  // no Unicode normalisation
    EXPECT_TRUE(ioPath("a/b") < ioPath("a.b"));                     // as strings "a.b" sorts first
    // As keys the same: "a//b" is "a/b", "a/b/" and "A/b" are not.
    EXPECT_EQ((std::set<ioPath>{"a/b", "a//b", "a/b/", "A/b"}.size()), 3u);
}

TEST(ioPath, JudgesByTheOldFilesystemRules) {
    EXPECT_FALSE(ioPath("").has_filename());
    EXPECT_TRUE(ioPath("/").has_filename());
    EXPECT_TRUE(ioPath("/").is_absolute());
    EXPECT_EQ(ioPath("dir/").filename().utf8string(), ".");
    EXPECT_EQ(ioPath("/a/").parent_path().utf8string(), "/a");
    EXPECT_FALSE(ioPath("dir/.mp4").has_stem());
    EXPECT_EQ(ioPath("dir/.mp4").extension().utf8string(), ".mp4");
}

TEST(ioPath, KeepsItsTextByteForByte) {
    const std::string text = "d\\ir//caf\xC3\xA9/";
    EXPECT_EQ(ioPath(text).make_preferred().utf8string(), text);  // a backslash is an ordinary character
    EXPECT_EQ(static_cast<const boost::filesystem::path&>(ioPath(text)).native(), text);
    ioPath path = "x/y.old";
    EXPECT_EQ(path.replace_extension("txt").utf8string(), "x/y.txt");
    EXPECT_EQ(path.replace_extension().utf8string(), "x/y");
    ioPath other = std::string("z");
    swap(path, other);
    EXPECT_EQ(path.utf8string() + other.utf8string(), "zx/y");
}
