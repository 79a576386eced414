#include <Core/Interfaces/Encoding.h>

#include <gtest/gtest.h>
#include <utf8cpp/utf8.h>

#include <functional>
#include <typeinfo>

using namespace Tarsel::Core;

namespace {

Utf16String Units(std::initializer_list<int> units) {
    Utf16String result;
    for (int unit : units) {
        result.push_back(static_cast<short>(unit));
    }
    return result;
}

// The name of the utf8-cpp exception that convert throws, "" if none.
std::string ThrownType(const std::function<void()>& convert) {
    try {
        convert();
    } catch (const utf8::exception& e) {
        return typeid(e).name();
    }
    return "";
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
    }
    EXPECT_EQ(Utf8FromUtf16(Units({-10240, -9216})), "\xF0\x90\x80\x80");  // 0xD800 0xDC00 as negative shorts
}

TEST(Utf8FromWstring, ReadsElementsAsUtf16UnitsNotCodePoints) {
    EXPECT_EQ(Utf8FromWstring(std::wstring(1, wchar_t(0x1F600))), "\xEF\x98\x80");  // cut to U+F600
    const std::wstring pair = {wchar_t(0xD83D), wchar_t(0xDE00)};
    EXPECT_EQ(Utf8FromWstring(pair.data(), pair.data() + 2), "\xF0\x9F\x98\x80");
}

TEST(Utf8FromUtf16, UnpairedSurrogatesThrowInvalidUtf16WithTheUnit) {
    const struct {
        Utf16String units;
        int offending;
    } cases[] = {
        {Units({0xDC00}), 0xDC00},          // lone trail
        {Units({0x41, 0xD800}), 0xD800},    // lead at the end
        {Units({0xD800, 0x41}), 0x41},      // lead before a non-trail: the follower is reported
        {Units({0xDE00, 0xD83D}), 0xDE00},  // pair in the wrong order
    };
    for (const auto& c : cases) {
        try {
            Utf8FromUtf16(c.units);
            ADD_FAILURE() << "no throw for unit " << c.offending;
        } catch (const utf8::invalid_utf16& e) {
            EXPECT_EQ(e.utf16_word(), c.offending);
        }
        EXPECT_THROW(Utf8FromWstring(std::wstring(c.units.begin(), c.units.end())), utf8::invalid_utf16);
    }
}

TEST(Utf8Decoding, MalformedInputThrowsTheExactUtf8CppType) {
    const struct {
        std::string bytes;
        const std::type_info& type;
    } cases[] = {
        {"\xE2\x82", typeid(utf8::not_enough_room)},             // euro sign cut short
        {"\xC0\x80", typeid(utf8::invalid_utf8)},                // C0 80, overlong NUL
        {"\x80", typeid(utf8::invalid_utf8)},                    // continuation byte first
        {"\xC3\x28", typeid(utf8::invalid_utf8)},                // bad continuation
        {"\xED\xA0\x80", typeid(utf8::invalid_code_point)},      // ED A0 80, U+D800
        {"\xF4\x90\x80\x80", typeid(utf8::invalid_code_point)},  // U+110000
    };
    for (const auto& c : cases) {
        std::string bytes = c.bytes;
        for (const auto& convert : std::initializer_list<std::function<void()>>{
                 [&] { Utf16FromUtf8(bytes); },
                 [&] { WstringFromUtf8(bytes); },
                 [&] { WstringFromUtf8(bytes.data(), bytes.data() + bytes.size()); },
                 [&] { TWstringFromUtf8(bytes.begin(), bytes.end()); },
                 [&] { TWstringFromUtf8(&bytes[0], &bytes[0] + bytes.size()); },
             }) {
            EXPECT_EQ(ThrownType(convert), c.type.name()) << testing::PrintToString(c.bytes);
        }
    }
}
