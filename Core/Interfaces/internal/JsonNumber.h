// Private to the library, not installed: what the text of a JSON number
// loads as. The common case is inline: the reader meets it for every number.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Tarsel::Core::Json {

// A number as loading maps it: an integer within the signed 64-bit range;
// an integer above it that still fits 64 bits unsigned, which loads as
// nothing; or the nearest double to the text, for every other number (one
// with a fraction or an exponent, or an integer beyond both ranges).
struct LoadedNumber {
    enum class Kind : unsigned char { Integer, UnsignedOnly, Double };
    Kind kind;
    long long integer;
    double value;
};

// ReadNumber for the numbers that plain arithmetic cannot read exactly: more
// than 18 digits, or a significand or a power of ten that a double does not
// hold exactly. The C library's strtod, which rounds correctly, reads them.
LoadedNumber ReadNumberExactly(const char* text, std::size_t length) noexcept;

// text is a number as JSON spells it, [-](0|[1-9][0-9]*)[.[0-9]+][(e|E)[+|-][0-9]+],
// and is followed by a byte that cannot continue one.
inline LoadedNumber ReadNumber(const char* text, std::size_t length) noexcept {
    // Up to this many digits, an integer fits 64 bits whatever they are.
    constexpr std::size_t kDigitsThatFit = 18;
    // The powers of ten that doubles hold exactly.
    static constexpr double kExactPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                   1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                   1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const char* const end = text + length;
    const bool negative = *text == '-';
    const char* p = text + (negative ? 1 : 0);
    const char* const digits = p;
    std::uint64_t significand = 0;
    for (; p != end && static_cast<unsigned char>(*p - '0') < 10; ++p) {
        significand = significand * 10 + static_cast<std::uint64_t>(*p - '0');
    }
    if (p == end) {
        if (static_cast<std::size_t>(p - digits) > kDigitsThatFit) {
            return ReadNumberExactly(text, length);
        }
        const auto magnitude = static_cast<long long>(significand);
        return {LoadedNumber::Kind::Integer, negative ? -magnitude : magnitude, 0.0};
    }
    // A fraction, and no exponent: the common case of a double. Both factors
    // of significand / 10^places are exact, so the one rounding of the
    // quotient gives the nearest double (Clinger's fast path); leading
    // zeros count among the digits, which only sends a few more numbers to
    // the exact reading.
    if (*p != '.') {
        return ReadNumberExactly(text, length);
    }
    const char* const fraction = ++p;
    for (; p != end && static_cast<unsigned char>(*p - '0') < 10; ++p) {
        significand = significand * 10 + static_cast<std::uint64_t>(*p - '0');
    }
    const auto places = static_cast<std::size_t>(p - fraction);
    if (p != end || static_cast<std::size_t>(p - digits) - 1 > kDigitsThatFit || places > 22 ||
        significand > std::uint64_t{1} << 53) {
        return ReadNumberExactly(text, length);
    }
    const double value = static_cast<double>(significand) / kExactPowersOfTen[places];
    return {LoadedNumber::Kind::Double, 0, negative ? -value : value};
}

}  // namespace Tarsel::Core::Json
