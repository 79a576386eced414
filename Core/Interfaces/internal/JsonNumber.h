// Private to the library, not installed: what the text of a JSON number
// loads as.
#pragma once

#include <cstddef>

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

// text is a number as JSON spells it, [-](0|[1-9][0-9]*)[.[0-9]+][(e|E)[+|-][0-9]+],
// and is followed by a byte that cannot continue one. Nearly every number
// is exact in double arithmetic (up to 2^53 scaled by a power of ten up to
// 10^22); the others are read by the C library's correctly rounded strtod.
LoadedNumber ReadNumber(const char* text, std::size_t length) noexcept;

}  // namespace Tarsel::Core::Json
