// The fixture of the tests that touch files: each test has a fresh folder of
// its own, removed afterwards, so that no test depends on the machine outside
// it. The test works in m_dir inside it; Aside names other places there.
#pragma once

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

namespace TarselTest {

class TempFolderTest : public testing::Test {
protected:
    void SetUp() override {
        for (const boost::filesystem::path& folder : {m_root, m_dir}) {
            boost::filesystem::create_directory(folder);
            // Reachable for an unprivileged user that a test runs a child as.
            boost::filesystem::permissions(folder, boost::filesystem::perms(0755));
        }
    }
    void TearDown() override { boost::filesystem::remove_all(m_root); }

    std::string At(const std::string& name) const { return (m_dir / name).string(); }

    void WriteFile(const std::string& name, const std::string& bytes) const {
        std::ofstream(At(name), std::ios::binary) << bytes;
    }

    std::string ReadFile(const std::string& name) const {
        std::ifstream in(At(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    // The names in m_dir, sorted: what a test's files and a save left there.
    std::vector<std::string> Entries() const {
        std::vector<std::string> names;
        for (const boost::filesystem::directory_entry& entry : boost::filesystem::directory_iterator(m_dir)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    // A path in the test's folder outside m_dir, for what the test needs but
    // must not find among its files (a copy of a program it runs, say).
    // Nothing is made there; whatever is made is removed with the rest.
    boost::filesystem::path Aside(const std::string& name) const { return m_root / name; }

private:
    // Declared before m_dir, which is made from it.
    const boost::filesystem::path m_root =
        boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("tarsel-test-%%%%-%%%%-%%%%");

protected:
    const boost::filesystem::path m_dir = m_root / "work";
};

}  // namespace TarselTest
