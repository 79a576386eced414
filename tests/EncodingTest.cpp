#include <Core/Interfaces/Encoding.h>

#include <gtest/gtest.h>
#include <utf8cpp/utf8.h>

using namespace Tarsel::Core;

namespace {

Utf16String Units(std::initializer_list<int> units) {
    return Utf16String(units.begin(), units.end());
}

// utf8-cpp's exceptions are siblings under utf8::exception, so catching
// Exception checks the exact type.
template <class Exception>
void ExpectEveryDecoderThrows(std::string bytes) {
    SCOPED_TRACE(testing::PrintToString(bytes));
    EXPECT_THROW(Utf16FromUtf8(bytes), Exception);
    EXPECT_THROW(WstringFromUtf8(bytes), Exception);
    EXPECT_THROW(WstringFromUtf8(bytes.data(), bytes.data() + bytes.size()), Exception);
    EXPECT_THROW(TWstringFromUtf8(bytes.begin(), bytes.end()), Exception);
    EXPECT_THROW(TWstringFromUtf8(&bytes[0], &bytes[0] + bytes.size()), Exception);
}

}  // namespace

TEST(Utf16FromUtf8, SplitsCodePointsAboveFFFFIntoSurrogatePairs) {
    const struct {
        std::string utf8;
        Utf16String utf16;
        std::wstring wide;
    } cases[] = {
        {"", Units({}), L""},
        {"\xEF\xBF\xBF", Units({0xFFFF}), L"\xFFFF"},               // U+FFFF, the last single unit
        {"\xF0\x90\x80\x80", Units({0xD800, 0xDC00}), L"\x10000"},  // U+10000, the first pair
        {"\xF0\x9F\x98\x80", Units({0xD83D, 0xDE00}), L"\x1F600"},
        {"\xF4\x8F\xBF\xBF", Units({0xDBFF, 0xDFFF}), L"\x10FFFF"},  // U+10FFFF, the last code point
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Utf16FromUtf8(c.utf8), c.utf16) << c.utf8;
        EXPECT_EQ(Utf8FromUtf16(c.utf16), c.utf8);
        EXPECT_EQ(WstringFromUtf8(c.utf8), c.wide) << c.utf8;
        EXPECT_EQ(WstringFromUtf8(c.utf8.data(), c.utf8.data() + c.utf8.size()), c.wide);
        // Read back as UTF-16 units held in a wstring (sign-extended here, cut to 16 bits there).
        const std::wstring units(c.utf16.begin(), c.utf16.end());
        EXPECT_EQ(Utf8FromWstring(units.data(), units.data() + units.size()), c.utf8);
    }
    EXPECT_EQ(Utf8FromUtf16(Units({-10240, -9216})), "\xF0\x90\x80\x80");  // 0xD800 0xDC00 as negative shorts
    // The wide directions differ on purpose: one element U+1F600 is read as a unit, cut to U+F600.
    EXPECT_EQ(Utf8FromWstring(std::wstring(1, wchar_t(0x1F600))), "\xEF\x98\x80");
}

TEST(Utf8FromUtf16, UnpairedSurrogatesThrowInvalidUtf16WithTheUnit) {
    const std::pair<Utf16String, int> cases[] = {
        {Units({0xDC00}), 0xDC00},          // lone trail
        {Units({0x41, 0xD800}), 0xD800},    // lead at the end
        {Units({0xD800, 0x41}), 0x41},      // lead before a non-trail: the follower is reported
        {Units({0xDE00, 0xD83D}), 0xDE00},  // pair in the wrong order
    };
    for (const auto& [units, offending] : cases) {
        try {
            Utf8FromUtf16(units);
            ADD_FAILURE() << "no throw for unit " << offending;
        } catch (const utf8::invalid_utf16& e) {
            EXPECT_EQ(e.utf16_word(), offending);
        }
        EXPECT_THROW(Utf8FromWstring(std::wstring(units.begin(), units.end())), utf8::invalid_utf16);
    }
}

TEST(Utf8Decoding, MalformedInputThrowsTheExactUtf8CppType) {
    ExpectEveryDecoderThrows<utf8::not_enough_room>("\xE2\x82");             // euro sign cut short
    ExpectEveryDecoderThrows<utf8::invalid_utf8>("\xC0\x80");                // C0 80, overlong NUL
    ExpectEveryDecoderThrows<utf8::invalid_utf8>("\x80");                    // continuation byte first
    ExpectEveryDecoderThrows<utf8::invalid_utf8>("\xC3\x28");                // bad continuation
    ExpectEveryDecoderThrows<utf8::invalid_code_point>("\xED\xA0\x80");      // ED A0 80, U+D800
    ExpectEveryDecoderThrows<utf8::invalid_code_point>("\xF4\x90\x80\x80");  // U+110000
}

TEST(Utf16String, BehavesAsAStringOfUnsignedUnits) {
    const Utf16String hi = Units({0x48, 0x69});
    const Utf16String surrogate = Units({0xD800});  // the short -10240
    EXPECT_LT(hi, surrogate);                       // compared as units, not as signed shorts
    EXPECT_GT(Units({0x48, 0x69, 0x21}), hi);       // a longer string after its prefix
    EXPECT_EQ(hi.compare(Units({0x48, 0x69})), 0);
    EXPECT_EQ((hi + surrogate + hi).find(surrogate), 2u);
    EXPECT_EQ((hi + surrogate + hi).rfind(hi), 3u);
    EXPECT_EQ(Utf16String(hi.c_str()).size(), 2u);  // length stops at the zero unit
    Utf16String grown = hi;
    grown.insert(0, hi);  // overlapping move inside the buffer
    grown.append(3, short(0x21));
    EXPECT_EQ(grown, Units({0x48, 0x69, 0x48, 0x69, 0x21, 0x21, 0x21}));
    EXPECT_EQ(Utf16String::traits_type::to_int_type(surrogate[0]), 0xD800);  // never eof()
}
