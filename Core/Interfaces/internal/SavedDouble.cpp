// This file writes the saved texts of doubles that PropertySerializer.h
// describes. The six-digit text costs a fraction of printf's: one scaling by
// an exact power of ten decides the six digits of nearly every double, and
// std::to_chars those it cannot. The round-trip text is std::to_chars'
// shortest.
#include <Core/Interfaces/internal/SavedDouble.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace Tarsel::Core::Json {

namespace {

// A finite double rounded to six significant digits: digits × 10^(exponent
// - 5), digits in [100000, 999999] (0 for zero), rounded to nearest, ties to
// even, on the exact binary value, as printf rounds.
struct SixDigits {
    std::uint32_t digits;
    int exponent;
};

// The powers of ten that doubles hold exactly.
constexpr double kExactPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                        1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int kLargestExactPower = 22;

// The exact rounding through std::to_chars: one conversion in scientific
// notation, its digits and exponent read back.
SixDigits SixDigitsByConversion(double magnitude) {
    char text[32];
    const char* const end = std::to_chars(text, text + sizeof text, magnitude, std::chars_format::scientific, 5).ptr;
    std::uint32_t digits = static_cast<std::uint32_t>(text[0] - '0');
    for (const char* digit = text + 2; digit != text + 7; ++digit) {
        digits = digits * 10 + static_cast<std::uint32_t>(*digit - '0');
    }
    int exponent = 0;
    std::from_chars(text + (text[8] == '+' ? 9 : 8), end, exponent);
    return {digits, exponent};
}

// Rounds magnitude (finite, above zero) to six significant digits with one
// multiplication or division by an exact power of ten: that result is within
// half an ulp of the exact scaled value (below 1e-9, as it is below 1e7), so
// unless its fraction lies within kTieMargin of one half it rounds as the
// exact value does. Near a tie, and where no exact power of ten scales the
// value (subnormals, and decimal exponents below -17 or above 26, whose
// scales pass 10^22), it converts instead.
SixDigits RoundToSixDigits(double magnitude) {
    constexpr double kTieMargin = 1e-7;
    std::uint64_t bits;
    std::memcpy(&bits, &magnitude, sizeof bits);
    const int binaryExponent = static_cast<int>(bits >> 52) - 1023;
    // floor(log10(2^binaryExponent)), exact for exponents of +-2620 (the
    // right shift of a negative number is arithmetic in g++ and clang): the
    // decimal exponent, or one below it.
    int exponent = (binaryExponent * 315653) >> 20;
    int scale = 5 - exponent;
    // The scale may still drop by one below.
    const bool subnormal = binaryExponent == -1023;
    if (subnormal || scale > kLargestExactPower || scale - 1 < -kLargestExactPower) {
        return SixDigitsByConversion(magnitude);
    }
    double scaled = scale >= 0 ? magnitude * kExactPowersOfTen[scale] : magnitude / kExactPowersOfTen[-scale];
    if (scaled >= 1e6) {
        ++exponent;
        --scale;
        scaled = scale >= 0 ? magnitude * kExactPowersOfTen[scale] : magnitude / kExactPowersOfTen[-scale];
    }
    const double whole = std::floor(scaled);
    const double fraction = scaled - whole;
    if (std::fabs(fraction - 0.5) < kTieMargin) {
        return SixDigitsByConversion(magnitude);
    }
    std::uint32_t digits = static_cast<std::uint32_t>(whole) + (fraction > 0.5 ? 1 : 0);
    if (digits == 1000000) {
        // Rounding carried into a new digit: 999999.5 is 1.00000e+06.
        digits = 100000;
        ++exponent;
    }
    return {digits, exponent};
}

}  // namespace

// Every copy below has a fixed length or a loop that cannot become a call
// of memcpy: the pieces are a few bytes long, and a library call for each
// cost more than writing the digits.
std::size_t FormatDoubleSixDigits(double value, char* out) {
    char* const start = out;
    if (std::signbit(value)) {
        *out++ = '-';
    }
    const SixDigits rounded = value == 0 ? SixDigits{0, 0} : RoundToSixDigits(std::fabs(value));
    char digits[6];
    std::uint32_t rest = rounded.digits;
    for (int i = 5; i >= 0; --i) {
        digits[i] = static_cast<char>('0' + rest % 10);
        rest /= 10;
    }
    const int exponent = rounded.exponent;
    // %g picks fixed notation when the rounded exponent lies in [-4, 6).
    if (exponent < -4 || exponent >= 6) {
        *out++ = digits[0];
        *out++ = '.';
        std::memcpy(out, digits + 1, 5);
        out += 5;
        *out++ = 'e';
        *out++ = exponent < 0 ? '-' : '+';
        const int magnitude = exponent < 0 ? -exponent : exponent;
        if (magnitude < 10) {
            *out++ = '0';
        }
        out = std::to_chars(out, out + 3, magnitude).ptr;
    } else if (exponent >= 0) {
        for (int i = 0; i < 6; ++i) {
            *out++ = digits[i];
            if (i == exponent) {
                *out++ = '.';
            }
        }
        if (exponent == 5) {
            *out++ = '0';
        }
    } else {
        // "0.", then up to three zeros, then the digits.
        std::memcpy(out, "0.000", 5);
        out += 1 - exponent;
        std::memcpy(out, digits, 6);
        out += 6;
    }
    return static_cast<std::size_t>(out - start);
}

std::size_t FormatDoubleRoundTrip(double value, char* out) {
    // The fewest characters, 24 at most ("-2.2250738585072014e-308").
    char* end = std::to_chars(out, out + kMaxSavedDoubleLength, value).ptr;
    if (std::find_if(out, end, [](char c) { return c == '.' || c == 'e'; }) != end) {
        return static_cast<std::size_t>(end - out);
    }
    // An integral value in fixed notation ("3", "-0"): a point keeps it a
    // double when it is read back, unless the exponent form is shorter
    // (123456789012345683968 is 1.2345678901234568e+20).
    char scientific[kMaxSavedDoubleLength];
    const char* const scientificEnd =
        std::to_chars(scientific, scientific + sizeof scientific, value, std::chars_format::scientific).ptr;
    const std::size_t fixedLength = static_cast<std::size_t>(end - out) + 2;
    const std::size_t scientificLength = static_cast<std::size_t>(scientificEnd - scientific);
    if (scientificLength < fixedLength) {
        std::memcpy(out, scientific, scientificLength);
        return scientificLength;
    }
    *end++ = '.';
    *end++ = '0';
    return fixedLength;
}

}  // namespace Tarsel::Core::Json
