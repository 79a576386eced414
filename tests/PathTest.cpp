#include <Core/Interfaces/Path.h>

#include <gtest/gtest.h>

#include <map>
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
        ioPath left(c.left);
        EXPECT_EQ((left / c.right).utf8string(), c.joined) << c.left << " / " << c.right;
        EXPECT_EQ((left + c.right).utf8string(), c.concatenated) << c.left << " + " << c.right;
        EXPECT_EQ((left += c.right).utf8string(), c.concatenated);
        EXPECT_EQ((ioPath(c.left) /= c.right).utf8string(), c.joined);
    }
}

TEST(ioPath, ComparesElementByElement) {
    const struct {
        const char *a, *b;
        bool equal;
    } cases[] = {
        {"a//b", "a/b", true},                   // a redundant separator yields no element
        {"a/b/", "a/b", false},                  // a trailing separator yields "."
        {"A", "a", false},                       // case-sensitive
        {"caf\xC3\xA9", "cafe\xCC\x81", false},  // no Unicode normalisation
    };
    for (const auto& c : cases) {
        const ioPath a(c.a), b(c.b);
        EXPECT_EQ(a == b, c.equal) << c.a << " vs " << c.b;
        EXPECT_EQ(a != b, !c.equal) << c.a << " vs " << c.b;
        EXPECT_EQ(!(a < b) && !(b < a), c.equal) << c.a << " vs " << c.b;
    }
    EXPECT_TRUE(ioPath("a/b") < ioPath("a.b"));  // as strings "a.b" sorts first
    EXPECT_EQ((std::set<ioPath>{"a/b", "a//b", "a/b/"}.size()), 2u);
    std::map<ioPath, int> byPath{{"x//y", 1}};
    EXPECT_EQ(byPath.count("x/y"), 1u);
}

TEST(ioPath, JudgesByTheOldFilesystemRules) {
    EXPECT_FALSE(ioPath("").has_filename());
    EXPECT_TRUE(ioPath("/").has_filename());
    EXPECT_TRUE(ioPath("/").is_absolute());
    EXPECT_TRUE(ioPath("x").is_relative());
    EXPECT_EQ(ioPath("dir/").filename().utf8string(), ".");
    EXPECT_EQ(ioPath("/a/").parent_path().utf8string(), "/a");
    EXPECT_FALSE(ioPath("dir/.mp4").has_stem());
    EXPECT_EQ(ioPath("dir/.mp4").extension().utf8string(), ".mp4");
}

TEST(ioPath, KeepsItsTextByteForByte) {
    const std::string text = "d\\ir//caf\xC3\xA9/";
    ioPath path(text);
    EXPECT_EQ(path.make_preferred().utf8string(), text);  // a backslash is an ordinary character
    EXPECT_EQ(static_cast<const boost::filesystem::path&>(path).native(), text);
    path = "x/y.old";
    EXPECT_EQ(path.replace_extension("txt").utf8string(), "x/y.txt");
    EXPECT_EQ(path.replace_extension().utf8string(), "x/y");
    ioPath other = std::string("z");
    swap(path, other);
    EXPECT_EQ(path.utf8string() + other.utf8string(), "zx/y");
}
