#include <Core/Interfaces/Digest.h>

#include <boost/algorithm/hex.hpp>
#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <new>
#include <regex>
#include <set>
#include <string>

using namespace Tarsel::Core;

namespace {

std::string Hex(const std::vector<unsigned char>& bytes) {
    std::string text;
    boost::algorithm::hex_lower(bytes.begin(), bytes.end(), std::back_inserter(text));
    return text;
}

std::string MD5Hex(const std::string& content, const std::string& marker = "") {
    return Hex(MD5Generate(MemoryDataInput::Create(content), marker));
}

// Reports a size of its choosing and delivers fewer bytes, or none.
class ShortSource : public Tarsel::RefCounted<IDataInput> {
public:
    ShortSource(std::size_t size, std::string delivered) : m_size(size), m_delivered(std::move(delivered)) {}
    std::size_t GetSize() const override { return m_size; }
    std::size_t Read(void* data, std::size_t /*size*/) override {
        ++reads;
        return m_delivered.copy(static_cast<char*>(data), m_delivered.size());
    }
    int reads = 0;

private:
    std::size_t m_size;
    std::string m_delivered;
};

}  // namespace

TEST(MD5Generate, MatchesTheRfc1321TestSuite) {
    // Test vectors from RFC 1321, appendix A.5 (read with the empty marker).
    const struct {
        const char* input;
        const char* digest;
    } cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(MD5Hex(c.input), c.digest) << '"' << c.input << '"';
    }
}

TEST(MD5Generate, StopsBeforeTheLeftmostMarker) {
    const struct {
        std::string content, marker, digest;
    } cases[] = {
        {"abcXYZdef", "XYZ", "900150983cd24fb0d6963f7d28e17f72"},          // abc
        {"abcXYZdef", "QQ", "ac9b234a3247929827cfcbc3098308bf"},           // absent: all nine bytes
        {"abcXYZdef", "abc", "d41d8cd98f00b204e9800998ecf8427e"},          // at the start: empty input
        {"aXbXc", "X", "0cc175b9c0f1b6a831c399e269772661"},                // a, the first of two
        {"aaab", "aab", "0cc175b9c0f1b6a831c399e269772661"},               // a, after a false start
        {"ab\xFF\xD8\xFF", "\xFF\xD8", "187ef4436122d1cc2f40dc2b92f0eba0"},  // ab, bytes above 0x7F
        {"abcXY", "XYZ", "376d6f34678d1a6b5a1ca615e464349a"},              // cut off at the end: all
    };
    for (const auto& c : cases) {
        EXPECT_EQ(MD5Hex(c.content, c.marker), c.digest) << c.content << " / " << c.marker;
    }
}

TEST(MD5Generate, ReadsFromWhereTheSourceStands) {
    const auto input = MemoryDataInput::Create("skiprest of it");
    char skipped[4];
    input->Read(skipped, sizeof skipped);
    EXPECT_EQ(Hex(MD5Generate(input, "")), "b1e6e2162111835d465e980c8c81f6f3");
    EXPECT_EQ(Hex(MD5Generate(input, "")), "d41d8cd98f00b204e9800998ecf8427e");  // consumed: empty
}

TEST(MD5Generate, ShortReadLeavesZeroBytes) {
    const boost::intrusive_ptr<ShortSource> source(new ShortSource(10, "abcd"));
    EXPECT_EQ(Hex(MD5Generate(source, "")), "eb1e6704c2991d1627c4417bf6685686");  // abcd, six NULs
    EXPECT_EQ(source->reads, 1);
}

TEST(MD5Generate, UnbufferableSizeIsBadAllocWithoutARead) {
    const boost::intrusive_ptr<ShortSource> source(new ShortSource(SIZE_MAX, ""));
    EXPECT_THROW(MD5Generate(source, ""), std::bad_alloc);
    EXPECT_EQ(source->reads, 0);
    EXPECT_THROW(MD5Generate(nullptr, ""), std::invalid_argument);
}

TEST(GenerateStringUuid, IsLowercaseVersion4WithTheRfc4122VariantAndUnique) {
    // 8-4-4-4-12 lowercase hex; version nibble 4; variant bits 10 (8, 9, a or b).
    const std::regex form("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const std::string uuid = GenerateStringUuid();
        ASSERT_TRUE(std::regex_match(uuid, form)) << uuid;
        seen.insert(uuid);
    }
    EXPECT_EQ(seen.size(), 1000u);
}
