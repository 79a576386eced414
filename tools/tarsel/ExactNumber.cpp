// This file implements the exact values of number texts. An exponent may
// have any number of digits, so it is added to as decimal text; the common
// exponents, which fit a 64-bit integer, take the short way.
#include "ExactNumber.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace TarselTool {

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view WithoutLeadingZeros(std::string_view digits) {
    const std::size_t first = digits.find_first_not_of('0');
    return first == std::string_view::npos ? std::string_view() : digits.substr(first);
}

// The sum and the difference of two magnitudes: digits without leading
// zeros.
std::string Sum(std::string_view a, std::string_view b) {
    std::string sum;
    int carry = 0;
    for (std::size_t i = 0; i < a.size() || i < b.size() || carry != 0; ++i) {
        const int digit =
            (i < a.size() ? a[a.size() - 1 - i] - '0' : 0) + (i < b.size() ? b[b.size() - 1 - i] - '0' : 0) + carry;
        sum += static_cast<char>('0' + digit % 10);
        carry = digit / 10;
    }
    std::reverse(sum.begin(), sum.end());
    return sum;
}

// larger must not be the smaller.
std::string Difference(std::string_view larger, std::string_view smaller) {
    std::string difference;
    int borrow = 0;
    for (std::size_t i = 0; i < larger.size(); ++i) {
        int digit = larger[larger.size() - 1 - i] - '0' - borrow -
                    (i < smaller.size() ? smaller[smaller.size() - 1 - i] - '0' : 0);
        borrow = digit < 0 ? 1 : 0;
        difference += static_cast<char>('0' + digit + 10 * borrow);
    }
    std::reverse(difference.begin(), difference.end());
    return std::string(WithoutLeadingZeros(difference));
}

// The decimal text of (negative ? -magnitude : magnitude) + shift, where
// magnitude is digits without leading zeros ("" for zero) and shift is at
// most the length of a text.
std::string ShiftedExponent(bool negative, std::string_view magnitude, long long shift) {
    // 18 digits always fit, and so does their sum with any shift.
    constexpr std::size_t kDigitsThatFit = 18;
    if (magnitude.size() <= kDigitsThatFit) {
        long long exponent = 0;
        for (const char c : magnitude) {
            exponent = exponent * 10 + (c - '0');
        }
        return std::to_string((negative ? -exponent : exponent) + shift);
    }
    const bool shiftNegative = shift < 0;
    const std::string shiftMagnitude = std::to_string(shiftNegative ? -static_cast<unsigned long long>(shift)
                                                                    : static_cast<unsigned long long>(shift));
    if (negative == shiftNegative) {
        return (negative ? "-" : "") + Sum(magnitude, shiftMagnitude);
    }
    // The shift has fewer digits than the magnitude, so it is the smaller.
    return (negative ? "-" : "") + Difference(magnitude, shiftMagnitude);
}

}  // namespace

ExactNumber ExactNumberOf(std::string_view text) {
    std::size_t i = 0;
    const bool negative = i < text.size() && text[i] == '-';
    i += negative ? 1 : 0;
    std::string digits;
    for (; i < text.size() && IsDigit(text[i]); ++i) {
        digits += text[i];
    }
    // The value is digits x 10^shift: a fraction's digits shift it down.
    long long shift = 0;
    if (i < text.size() && text[i] == '.') {
        for (++i; i < text.size() && IsDigit(text[i]); ++i) {
            digits += text[i];
            --shift;
        }
    }
    bool exponentNegative = false;
    std::string_view exponentDigits;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
            exponentNegative = text[i] == '-';
            ++i;
        }
        exponentDigits = WithoutLeadingZeros(text.substr(i));
    }
    const std::size_t first = digits.find_first_not_of('0');
    if (first == std::string::npos) {
        return {false, "", "0"};
    }
    const std::size_t last = digits.find_last_not_of('0');
    shift += static_cast<long long>(digits.size() - 1 - last);
    return {negative, digits.substr(first, last + 1 - first), ShiftedExponent(exponentNegative, exponentDigits, shift)};
}

}  // namespace TarselTool
