#include <Core/Interfaces/Digest.h>

#include <boost/algorithm/hex.hpp>
#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace Tarsel::Core;

namespace {

std::string MD5Hex(boost::intrusive_ptr<IDataInput> input, const std::string& marker = "") {
    const std::vector<unsigned char> digest = MD5Generate(std::move(input), marker);
    return boost::algorithm::hex_lower(std::string(digest.begin(), digest.end()));
}

// Reports m_size and delivers m_bytes whatever it is asked for: fewer bytes than it reported, or none. Read
// returns the count delivered, or the one it is told to report instead.
class ShortSource : public Tarsel::RefCounted<IDataInput> {
public:
    ShortSource(std::size_t size, std::string bytes) : ShortSource(size, bytes, bytes.size()) {}
    ShortSource(std::size_t size, std::string bytes, std::size_t returned)
        : m_size(size), m_bytes(std::move(bytes)), m_returned(returned) {}
    std::size_t GetSize() const override { return m_size; }
    std::size_t Read(void* to, std::size_t) override {
        m_bytes.copy(static_cast<char*>(to), m_bytes.size());
        return m_returned;
    }

private:
    std::size_t m_size;
    std::string m_bytes;
    std::size_t m_returned;
};

}  // namespace

TEST(MD5Generate, DigestsUpToTheLeftmostMarker) {
    const struct {
        std::string content, marker, digest;
    } cases[] = {
        // Test vectors from RFC 1321, appendix A.5, read whole (the empty marker).
        {"", "", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890", "",
         "57edf4a22be3c955ac49da2e2107b67a"},
        // Markers.
        {"abcXYZdef", "XYZ", "900150983cd24fb0d6963f7d28e17f72"},            // abc
        {"abcXYZdef", "QQ", "ac9b234a3247929827cfcbc3098308bf"},             // absent: all nine bytes
        {"abcXYZdef", "abc", "d41d8cd98f00b204e9800998ecf8427e"},            // at the start: empty input
        {"aXbXc", "X", "0cc175b9c0f1b6a831c399e269772661"},                  // a, the first of two
        {"aaab", "aab", "0cc175b9c0f1b6a831c399e269772661"},                 // a, after a false start
        {"ab\xFF\xD8\xFF", "\xFF\xD8", "187ef4436122d1cc2f40dc2b92f0eba0"},  // ab, bytes above 0x7F
        {"abcXY", "XYZ", "376d6f34678d1a6b5a1ca615e464349a"},                // cut off at the end: all
    };
    for (const auto& c : cases) {
        EXPECT_EQ(MD5Hex(MemoryDataInput::Create(c.content), c.marker), c.digest) << c.content << " / " << c.marker;
    }
}

TEST(MD5Generate, ReadsOnceFromWhereTheSourceStandsTakingItsSizeOnTrust) {
    const auto input = MemoryDataInput::Create("skiprest of it");
    char skipped[4];
    input->Read(skipped, sizeof skipped);
    EXPECT_EQ(MD5Hex(input), "b1e6e2162111835d465e980c8c81f6f3");  // "rest of it"
    EXPECT_EQ(MD5Hex(input), "d41d8cd98f00b204e9800998ecf8427e");  // consumed: empty
    // A short read is not repeated: the missing tail counts as zero bytes.
    EXPECT_EQ(MD5Hex(new ShortSource(10, "abcd")), "eb1e6704c2991d1627c4417bf6685686");  // abcd, six NULs
    // What Read returns is not looked at: the bytes it wrote are digested.
    EXPECT_EQ(MD5Hex(new ShortSource(3, "abc", 0)), "900150983cd24fb0d6963f7d28e17f72");    // abc
    EXPECT_EQ(MD5Hex(new ShortSource(10, "abcd", 1)), "eb1e6704c2991d1627c4417bf6685686");  // abcd, six NULs
    // A size that cannot be buffered is bad_alloc, never an overflow.
    EXPECT_THROW(MD5Hex(new ShortSource(SIZE_MAX, "")), std::bad_alloc);
    EXPECT_THROW(MD5Hex(nullptr), std::invalid_argument);
}

TEST(GenerateStringUuid, IsLowercaseVersion4WithTheRfc4122VariantAndUnique) {
    // 8-4-4-4-12 lowercase hex; version nibble 4; variant bits 10 (8, 9, a or b).
    const std::regex form("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const std::string uuid = GenerateStringUuid();
        ASSERT_TRUE(std::regex_match(uuid, form)) << uuid;
        EXPECT_TRUE(seen.insert(uuid).second) << uuid << " came twice";
    }
}

TEST(GenerateStringUuid, ConcurrentCallsGiveDistinctWellFormedIdentifiers) {
    const std::regex form("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    constexpr int kThreads = 4;
    constexpr int kEach = 100;
    std::vector<std::vector<std::string>> made(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&made, t] {
            for (int i = 0; i < kEach; ++i) {
                made[t].push_back(GenerateStringUuid());
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::set<std::string> seen;
    for (const auto& list : made) {
        for (const std::string& uuid : list) {
            ASSERT_TRUE(std::regex_match(uuid, form)) << uuid;
            EXPECT_TRUE(seen.insert(uuid).second) << uuid << " came twice";
        }
    }
    EXPECT_EQ(seen.size(), std::size_t{kThreads} * kEach);
}
