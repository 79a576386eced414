// This file reads JSON numbers to the nearest double, at the speed of plain
// arithmetic for the numbers settings hold.
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
// The largest integer below which doubles hold every integer.
constexpr std::uint64_t kExactIntegers = std::uint64_t{1} << 53;
// More digits may not fit 64 bits.
constexpr int kMostExactDigits = 19;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// An integer without fraction or exponent: its magnitude digits (no sign).
LoadedNumber ReadInteger(const char* text, const char* digits, const char* end, bool negative) {
    constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t magnitude = 0;
    for (const char* p = digits; p != end; ++p) {
        const auto digit = static_cast<std::uint64_t>(*p - '0');
        if (magnitude > (kMax - digit) / 10) {
            return {LoadedNumber::Kind::Double, 0, Platform::NearestDouble(text)};
        }
        magnitude = magnitude * 10 + digit;
    }
    constexpr auto kLargestSigned = static_cast<std::uint64_t>(std::numeric_limits<long long>::max());
    if (negative) {
        if (magnitude > kLargestSigned + 1) {
            return {LoadedNumber::Kind::Double, 0, Platform::NearestDouble(text)};
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

LoadedNumber ReadNumber(const char* text, std::size_t length) noexcept {
    const char* const end = text + length;
    const char* p = text;
    const bool negative = *p == '-';
    if (negative) {
        ++p;
    }
    const char* const integerDigits = p;
    while (p != end && IsDigit(*p)) {
        ++p;
    }
    if (p == end) {
        return ReadInteger(text, integerDigits, end, negative);
    }
    // The significant digits as an integer and the power of ten that scales
    // it, leading zeros skipped; a number of more than 19 significant digits
    // is left to the exact reading.
    std::uint64_t significand = 0;
    int digits = 0;
    int scale = 0;
    bool fits = true;
    const auto take = [&](char c) {
        if (digits == 0 && c == '0') {
            return;
        }
        if (digits == kMostExactDigits) {
            fits = false;
            return;
        }
        significand = significand * 10 + static_cast<std::uint64_t>(c - '0');
        ++digits;
    };
    for (const char* digit = integerDigits; digit != p; ++digit) {
        take(*digit);
    }
    if (*p == '.') {
        for (++p; p != end && IsDigit(*p); ++p) {
            take(*p);
            --scale;
        }
    }
    if (p != end) {  // the exponent
        ++p;
        const bool negativeExponent = *p == '-';
        if (*p == '-' || *p == '+') {
            ++p;
        }
        int exponent = 0;
        for (; p != end; ++p) {
            // Beyond any double's exponent either way, more digits change
            // nothing: the text then goes to the exact reading.
            if (exponent < 100000) {
                exponent = exponent * 10 + (*p - '0');
            }
        }
        scale += negativeExponent ? -exponent : exponent;
    }
    double value;
    if (significand == 0 && fits) {
        value = 0.0;
    } else if (fits && significand <= kExactIntegers && scale >= -kLargestExactPower && scale <= kLargestExactPower) {
        // Both factors are exact, so the one rounding of the product or the
        // quotient gives the nearest double (Clinger's fast path).
        const double whole = static_cast<double>(significand);
        value = scale >= 0 ? whole * kExactPowersOfTen[scale] : whole / kExactPowersOfTen[-scale];
    } else {
        return {LoadedNumber::Kind::Double, 0, Platform::NearestDouble(text)};
    }
    return {LoadedNumber::Kind::Double, 0, negative ? -value : value};
}

}  // namespace Tarsel::Core::Json
