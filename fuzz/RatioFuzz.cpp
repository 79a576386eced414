// Feeds arbitrary bytes to the ratio functions: as text to RatioFromString,
// and as a double and a denominator bound to RatioFromDoubleApprox. Each
// answer is checked against a slow reference written here in 128-bit
// arithmetic, which cannot overflow where the library's 64-bit arithmetic
// must not: the same ratio, the same refusal, the result within the bound.
#include "FuzzCheck.h"

#include <Core/Interfaces/Property.h>

#include <boost/rational.hpp>

#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

using namespace Tarsel;
using namespace Tarsel::Core;

__extension__ typedef unsigned __int128 Wide;
__extension__ typedef __int128 SignedWide;

constexpr Wide kLongLongMax = static_cast<Wide>(LLONG_MAX);

Wide Gcd(Wide a, Wide b) {
    while (b != 0) {
        const Wide r = a % b;
        a = b;
        b = r;
    }
    return a;
}

// --- RatioFromString --------------------------------------------------------

enum class TextAnswer { Refused, Ratio, ZeroDenominator };

struct TextOutcome {
    TextAnswer answer = TextAnswer::Refused;
    Wide numerator = 0;
    Wide denominator = 1;
};

// Digits 0-9 only, at least one, the value within long long; any number of
// leading zeros. Accumulates in 128 bits and stops once past the range.
bool ReferenceDigits(const std::string& text, std::size_t begin, std::size_t end, Wide* value) {
    if (begin == end) {
        return false;
    }
    Wide v = 0;
    for (std::size_t i = begin; i < end; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return false;
        }
        v = v * 10 + static_cast<Wide>(text[i] - '0');
        if (v > kLongLongMax) {
            return false;
        }
    }
    *value = v;
    return true;
}

// digits "/" digits, matched whole; a zero denominator is thrown only once
// both parts are well-formed numbers; the ratio in lowest terms, 0 as 0/1.
TextOutcome ReferenceRatioFromText(const std::string& text) {
    TextOutcome out;
    const std::size_t slash = text.find('/');
    Wide n = 0;
    Wide d = 0;
    if (slash == std::string::npos || !ReferenceDigits(text, 0, slash, &n) ||
        !ReferenceDigits(text, slash + 1, text.size(), &d)) {
        return out;
    }
    if (d == 0) {
        out.answer = TextAnswer::ZeroDenominator;
        return out;
    }
    const Wide g = n == 0 ? d : Gcd(n, d);
    out = {TextAnswer::Ratio, n / g, d / g};
    return out;
}

void CheckRatioFromString(const std::string& text) {
    const TextOutcome expected = ReferenceRatioFromText(text);
    const Ratio untouched(-7, 3);
    Ratio ratio = untouched;
    TextAnswer answer = TextAnswer::Refused;
    try {
        answer = RatioFromString(text, ratio) ? TextAnswer::Ratio : TextAnswer::Refused;
    } catch (const boost::bad_rational&) {
        answer = TextAnswer::ZeroDenominator;
    }
    TARSEL_FUZZ_CHECK(answer == expected.answer);
    if (answer == TextAnswer::Ratio) {
        TARSEL_FUZZ_CHECK(ratio.numerator() >= 0 && static_cast<Wide>(ratio.numerator()) == expected.numerator);
        TARSEL_FUZZ_CHECK(static_cast<Wide>(ratio.denominator()) == expected.denominator);
    } else {
        TARSEL_FUZZ_CHECK(ratio == untouched);
    }
    if (answer == TextAnswer::Ratio) {
        // The text of the ratio reads back as the same ratio.
        Ratio back;
        TARSEL_FUZZ_CHECK(RatioFromString(StringFromRatio(ratio), back) && back == ratio);
    }
}

// --- RatioFromDoubleApprox --------------------------------------------------

// |number| as an exact binary fraction n / 2^k, k <= 62, taken apart with
// frexp rather than by doubling: a value needing more fraction bits is
// rounded to the nearest multiple of 2^-62, halves away from zero.
void ReferenceBinaryFraction(double number, Wide* n, Wide* d) {
    int exponent = 0;
    const double mantissa = std::frexp(std::fabs(number), &exponent);  // in [0.5, 1)
    Wide m = static_cast<Wide>(std::ldexp(mantissa, 53));              // exact: 53 bits
    int fractionBits = 53 - exponent;                                  // |number| = m / 2^fractionBits
    while (fractionBits > 0 && m != 0 && m % 2 == 0) {
        m /= 2;
        --fractionBits;
    }
    if (fractionBits <= 0) {
        *n = m << -fractionBits;
        *d = 1;
        return;
    }
    if (fractionBits > 62) {
        const int drop = fractionBits - 62;
        if (drop >= 120) {
            m = 0;
        } else {
            const Wide half = Wide{1} << (drop - 1);
            m = (m + half) >> drop;
        }
        fractionBits = 62;
    }
    *n = m;
    *d = Wide{1} << fractionBits;
}

struct Approximation {
    bool refused = false;
    Wide numerator = 0;  // magnitude
    Wide denominator = 1;
};

// The documented expansion: convergents while their denominator stays below
// the bound, then the semiconvergent when its factor is at least half the
// term (its denominator may equal the bound), else the last convergent; at
// most 64 terms.
Approximation ReferenceApprox(double number, long long maxDenominator) {
    Approximation out;
    if (!std::isfinite(number) || std::fabs(number) >= 0x1p63) {
        out.refused = true;
        return out;
    }
    if (maxDenominator <= 1) {
        out.numerator = static_cast<Wide>(std::fabs(std::trunc(number)));
        return out;
    }
    const Wide bound = static_cast<Wide>(maxDenominator);
    Wide n = 0;
    Wide d = 0;
    ReferenceBinaryFraction(number, &n, &d);
    Wide p1 = 1, q1 = 0, p2 = 0, q2 = 1;
    for (int i = 0; i < 64; ++i) {
        const Wide t = d == 0 ? 0 : n / d;
        if (i > 0 && t == 0) {
            break;
        }
        const Wide q = t * q1 + q2;
        if (q < bound) {
            const Wide p = t * p1 + p2;
            const Wide r = n % d;
            p2 = p1, q2 = q1, p1 = p, q1 = q;
            n = d, d = r;
            continue;
        }
        const Wide s = (bound - q2) / q1;
        if (2 * s >= t) {
            p1 = s * p1 + p2;
            q1 = s * q1 + q2;
        }
        break;
    }
    const Wide g = p1 == 0 ? q1 : Gcd(p1, q1);
    out.numerator = p1 / g;
    out.denominator = q1 / g;
    return out;
}

void CheckRatioFromDoubleApprox(double number, long long maxDenominator) {
    const Approximation expected = ReferenceApprox(number, maxDenominator);
    Ratio result;
    bool refused = false;
    try {
        result = RatioFromDoubleApprox(number, maxDenominator);
    } catch (const std::invalid_argument&) {
        refused = true;
    }
    TARSEL_FUZZ_CHECK(refused == expected.refused);
    if (refused) {
        return;
    }
    const long long p = result.numerator();
    const long long q = result.denominator();
    // Within the bound; the sign of the number (none for 0).
    TARSEL_FUZZ_CHECK(q >= 1 && (maxDenominator <= 1 ? q == 1 : q <= maxDenominator));
    TARSEL_FUZZ_CHECK(p == 0 || (p < 0) == (number < 0));
    const Wide magnitude = p < 0 ? static_cast<Wide>(-static_cast<SignedWide>(p)) : static_cast<Wide>(p);
    TARSEL_FUZZ_CHECK(magnitude == expected.numerator && static_cast<Wide>(q) == expected.denominator);
    if (maxDenominator > 1) {
        // Within 1/q of the number, measured exactly: |p/q - n/d| <= 1/q.
        Wide n = 0;
        Wide d = 0;
        ReferenceBinaryFraction(number, &n, &d);
        const Wide left = magnitude * d;
        const Wide right = n * static_cast<Wide>(q);
        TARSEL_FUZZ_CHECK((left > right ? left - right : right - left) <= d);
    }
}

}  // namespace

// Byte 0 chooses the function; the rest is the text, or a double and a bound
// (8 bytes each, missing bytes zero).
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    if (data[0] % 2 == 0) {
        CheckRatioFromString(std::string(reinterpret_cast<const char*>(data + 1), size - 1));
        return 0;
    }
    unsigned char bytes[16] = {};
    std::memcpy(bytes, data + 1, size - 1 < sizeof bytes ? size - 1 : sizeof bytes);
    double number = 0;
    long long bound = 0;
    std::memcpy(&number, bytes, sizeof number);
    std::memcpy(&bound, bytes + 8, sizeof bound);
    CheckRatioFromDoubleApprox(number, bound);
    return 0;
}
