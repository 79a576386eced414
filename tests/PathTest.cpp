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

TEST(ioPath, DecomposesIntoRootNameDirectoryAndRelativePart) {
    const struct {
        const char* path;
        const char *rootPath, *rootName, *rootDirectory, *relativePath, *parentPath;
        bool absolute;
    } cases[] = {
        {"/usr/lib", "/", "", "/", "usr/lib", "/usr", true},
        {"lib/x.so", "", "", "", "lib/x.so", "lib", false},
        {"//net/share", "//net/", "//net", "/", "share", "//net/", true},  // a network root name
        {"//net", "//net", "//net", "", "", "", false},                    // a root name alone is not absolute
        {"x", "", "", "", "x", "", false},
        {"", "", "", "", "", "", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        const ioPath path(c.path);
        EXPECT_EQ(path.root_path().utf8string(), c.rootPath);
        EXPECT_EQ(path.root_name().utf8string(), c.rootName);
        EXPECT_EQ(path.root_directory().utf8string(), c.rootDirectory);
        EXPECT_EQ(path.relative_path().utf8string(), c.relativePath);
        EXPECT_EQ(path.parent_path().utf8string(), c.parentPath);
        // Each has_... asks whether its part is empty; has_root_path also
        // holds for a root name alone.
        EXPECT_EQ(path.has_root_path(), *c.rootPath != '\0');
        EXPECT_EQ(path.has_root_name(), *c.rootName != '\0');
        EXPECT_EQ(path.has_root_directory(), *c.rootDirectory != '\0');
        EXPECT_EQ(path.has_relative_path(), *c.relativePath != '\0');
        EXPECT_EQ(path.has_parent_path(), *c.parentPath != '\0');
        EXPECT_EQ(path.is_absolute(), c.absolute);
        EXPECT_EQ(path.is_relative(), !c.absolute);
    }
    EXPECT_TRUE(ioPath("lib/x.so").has_extension());
    EXPECT_TRUE(ioPath("lib/.so").has_extension());  // a dot file's whole name is its extension
    EXPECT_FALSE(ioPath("lib/x").has_extension());
}

TEST(ioPath, AssignmentAndRemovingTheFileNameEditInPlace) {
    ioPath path("old");
    EXPECT_EQ((path = std::string("a/b.txt")).utf8string(), "a/b.txt");
    EXPECT_EQ(path.remove_filename().utf8string(), "a");
    EXPECT_EQ((path = "/x").remove_filename().utf8string(), "/");
    EXPECT_EQ((path = "dir/").remove_filename().utf8string(), "dir");
    EXPECT_EQ(path.remove_filename().utf8string(), "");
}
