// The exact value of a JSON number's text, whatever its size or spelling, so
// that two numbers are compared as the decimals they are and never through a
// double: 1e400 and 10e399 are one value, 2e308 and 3e308 two, 0.10 is 0.1.
#pragma once

#include <string>
#include <string_view>

namespace TarselTool {

// A decimal number as (-1)^negative x digits x 10^exponent, with digits
// holding no leading or trailing zero and the exponent as its decimal text
// without leading zeros ("-12", "0"); zero is digits "" and exponent "0",
// never negative. Two texts have one value exactly when their ExactNumbers
// are equal.
struct ExactNumber {
    bool negative;
    std::string digits;
    std::string exponent;

    bool operator==(const ExactNumber& other) const {
        return negative == other.negative && digits == other.digits && exponent == other.exponent;
    }
    bool operator!=(const ExactNumber& other) const { return !(*this == other); }
};

// The value of text, a number as JSON spells it:
// -?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)? with exponents of any size.
ExactNumber ExactNumberOf(std::string_view text);

}  // namespace TarselTool
