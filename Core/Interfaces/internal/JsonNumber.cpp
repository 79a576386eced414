// This file reads the JSON numbers that JsonNumber.h leaves: exactly, and
// still by plain arithmetic where that is exact.
#include <Core/Interfaces/internal/JsonNumber.h>

#include <Core/Interfaces/internal/Platform.h>

#include <cstdint>
#include <limits>

namespace Tarsel::Core::Json {

namespace {

// The powers of ten that doubles hold exactly.
constexpr double kExactPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                        1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int kLargestExactPower = 22;
// Doubles hold every integer up to this one.
constexpr std::uint64_t kExactIntegers = std::uint64_t{1} << 53;
// Up to this many decimal digits, an integer fits 64 bits whatever they are.
constexpr std::size_t kDigitsThatAlwaysFit = 19;

bool IsDigit(char c) {
    return static_cast<unsigned char>(c - '0') < 10;
}

LoadedNumber Nearest(const char* text) {
    return {LoadedNumber::Kind::Double, 0, Platform::NearestDouble(text)};
}

// An integer of 19 digits or more, whose magnitude may not fit 64 bits.
LoadedNumber ReadLongInteger(const char* text, const char* digits, const char* end, bool negative) {
    constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t magnitude = 0;
    for (const char* p = digits; p != end; ++p) {
        const auto digit = static_cast<std::uint64_t>(*p - '0');
        if (magnitude > (kMax - digit) / 10) {
            return Nearest(text);
        }
        magnitude = magnitude * 10 + digit;
    }
    constexpr auto kLargestSigned = static_cast<std::uint64_t>(std::numeric_limits<long long>::max());
    if (negative) {
        if (magnitude > kLargestSigned + 1) {
            return Nearest(text);
        }
        // Two's complement: the negation of 2^63 is the smallest long long.
        return {LoadedNumber::Kind::Integer, static_cast<long long>(0 - magnitude), 0.0};
    }
    if (magnitude > kLargestSigned) {
        return {LoadedNumber::Kind::UnsignedOnly, 0, 0.0};
    }
    return {LoadedNumber::Kind::Integer, static_cast<long long>(magnitude), 0.0};
}

}  // namespace

LoadedNumber ReadNumberExactly(const char* text, std::size_t length) noexcept {
    const char* const end = text + length;
    const bool negative = *text == '-';
    const char* const integerDigits = text + (negative ? 1 : 0);
    // The digits as one integer, whatever it overflows to when they are
    // more than 19: those numbers take the exact reading below.
    std::uint64_t significand = 0;
    const char* p = integerDigits;
    for (; p != end && IsDigit(*p); ++p) {
        significand = significand * 10 + static_cast<std::uint64_t>(*p - '0');
    }
    std::size_t digits = static_cast<std::size_t>(p - integerDigits);
    if (p == end) {
        if (digits >= kDigitsThatAlwaysFit) {
            return ReadLongInteger(text, integerDigits, end, negative);
        }
        const auto magnitude = static_cast<long long>(significand);
        return {LoadedNumber::Kind::Integer, negative ? -magnitude : magnitude, 0.0};
    }
    int scale = 0;
    if (*p == '.') {
        const char* const fraction = ++p;
        for (; p != end && IsDigit(*p); ++p) {
            significand = significand * 10 + static_cast<std::uint64_t>(*p - '0');
        }
        digits += static_cast<std::size_t>(p - fraction);
        scale = -static_cast<int>(p - fraction);
    }
    if (p != end) {  // the exponent
        ++p;
        const bool negativeExponent = *p == '-';
        if (*p == '-' || *p == '+') {
            ++p;
        }
        int exponent = 0;
        // Past any double's exponent, more digits change nothing here: such
        // a number takes the exact reading.
        for (; p != end && exponent < 100000; ++p) {
            exponent = exponent * 10 + (*p - '0');
        }
        scale += negativeExponent ? -exponent : exponent;
    }
    // Both factors exact, the one rounding of the product or the quotient
    // gives the nearest double (Clinger's fast path); leading zeros count
    // among the digits here, which only sends a few more numbers below.
    if (digits > kDigitsThatAlwaysFit || significand > kExactIntegers || scale < -kLargestExactPower ||
        scale > kLargestExactPower) {
        return significand == 0 && digits <= kDigitsThatAlwaysFit
                   ? LoadedNumber{LoadedNumber::Kind::Double, 0, negative ? -0.0 : 0.0}
                   : Nearest(text);
    }
    const double whole = static_cast<double>(significand);
    const double value = scale >= 0 ? whole * kExactPowersOfTen[scale] : whole / kExactPowersOfTen[-scale];
    return {LoadedNumber::Kind::Double, 0, negative ? -value : value};
}

}  // namespace Tarsel::Core::Json
