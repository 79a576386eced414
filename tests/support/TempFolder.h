// The fixture of the tests that touch files: each test works in a fresh
// folder of its own, removed afterwards, so that no test depends on the
// machine outside it.
#pragma once

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace TarselTest {

class TempFolderTest : public testing::Test {
protected:
    void SetUp() override {
        boost::filesystem::create_directory(m_dir);
        // Reachable for an unprivileged user that a test runs a child as.
        boost::filesystem::permissions(m_dir, boost::filesystem::perms(0755));
    }
    void TearDown() override { boost::filesystem::remove_all(m_dir); }

    std::string At(const std::string& name) const { return (m_dir / name).string(); }

    void WriteFile(const std::string& name, const std::string& bytes) const {
        std::ofstream(At(name), std::ios::binary) << bytes;
    }

    std::string ReadFile(const std::string& name) const {
        std::ifstream in(At(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    const boost::filesystem::path m_dir =
        boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("tarsel-test-%%%%-%%%%-%%%%");
};

}  // namespace TarselTest
