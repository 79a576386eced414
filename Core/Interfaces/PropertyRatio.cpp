// This file implements ratio text and the approximation of a double by a
// ratio with a bounded denominator.
#include <Core/Interfaces/Property.h>

#include <Core/Interfaces/internal/RatioParse.h>
#include <Core/Interfaces/internal/TextStream.h>
#include <Core/Interfaces/internal/ThrowSignatures.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <stdexcept>
#include <string_view>

namespace Tarsel::Core {

std::string StringFromRatio(const Ratio& ratio) {
    TextStream out;
    out << ratio.numerator() << '/' << ratio.denominator();
    return out.str();
}

namespace {

// One or more of the digits 0 to 9, and nothing else, within long long.
bool ParseDigits(std::string_view text, long long* value) {
    if (text.empty() || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return false;
    }
    const auto result = std::from_chars(text.data(), text.data() + text.size(), *value);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

}  // namespace

// The grammar is digits "/" digits, matched as a whole: small enough to check
// by hand, which costs a few nanoseconds where a regular expression costs a
// few hundred, on the load path of every ratio.
bool RatioFromText(std::string_view text, Ratio& ratio) {
    const std::string_view::size_type slash = text.find('/');
    if (slash == std::string_view::npos) {
        return false;
    }
    long long numerator = 0;
    long long denominator = 0;
    if (!ParseDigits(text.substr(0, slash), &numerator) || !ParseDigits(text.substr(slash + 1), &denominator)) {
        return false;
    }
    // A zero denominator throws boost::bad_rational, deliberately unlike the
    // other refusals: "n/0" is well-formed text naming an impossible value.
    ratio = Ratio(numerator, denominator);
    return true;
}

bool RatioFromString(const std::string& text, Ratio& ratio) {
    return RatioFromText(text, ratio);
}

namespace {

using Unsigned = unsigned long long;

// |number| as an exact binary fraction numerator / denominator, the
// denominator a power of two up to 2^62. A magnitude that needs more fraction
// bits (0.0001, say) is first rounded to the nearest 62-bit binary fraction:
// an error below 2^-62, far under any denominator bound a caller can pass.
void ExactBinaryFraction(double number, Unsigned* numerator, Unsigned* denominator) {
    constexpr int kMaxFractionBits = 62;
    double scaled = std::fabs(number);
    Unsigned power = 1;
    for (int bits = 0; bits < kMaxFractionBits && scaled != std::floor(scaled); ++bits) {
        scaled *= 2;
        power <<= 1;
    }
    *numerator = static_cast<Unsigned>(std::round(scaled));
    *denominator = power;
}

// The convergent recurrence x(i) = t(i)*x(i-1) + x(i-2); false on overflow.
bool NextTerm(Unsigned t, Unsigned previous, Unsigned beforePrevious, Unsigned* result) {
    Unsigned product = 0;
    return !__builtin_mul_overflow(t, previous, &product) && !__builtin_add_overflow(product, beforePrevious, result);
}

}  // namespace

Ratio RatioFromDoubleApprox(double number, long long maxDenominator) {
    if (!std::isfinite(number) || std::fabs(number) >= 0x1p63) {
        ThrowWithCallStack(TARSEL_THROW_SITE(Signatures::RatioFromDoubleApprox),
                           std::invalid_argument("RatioFromDoubleApprox: the number must be finite and of a "
                                                 "magnitude below 2^63"));
    }
    if (maxDenominator <= 1) {
        return Ratio(static_cast<long long>(number), 1);
    }
    const Unsigned bound = static_cast<Unsigned>(maxDenominator);
    Unsigned n = 0;
    Unsigned d = 0;
    ExactBinaryFraction(number, &n, &d);

    // Convergents p(i-1)/q(i-1) and p(i-2)/q(i-2), seeded with 1/0 and 0/1.
    // Convergents of n/d never exceed n and d, so they cannot overflow; only
    // the candidate denominator against a huge bound can, and an overflowed
    // candidate is past any bound.
    Unsigned p1 = 1, q1 = 0, p2 = 0, q2 = 1;
    constexpr int kMaxTerms = 64;
    for (int i = 0; i < kMaxTerms; ++i) {
        const Unsigned t = d == 0 ? 0 : n / d;
        if (i > 0 && t == 0) {
            break;  // the expansion is exact
        }
        Unsigned q = 0;
        if (NextTerm(t, q1, q2, &q) && q < bound) {
            const Unsigned p = t * p1 + p2;
            const Unsigned r = n % d;
            p2 = p1, q2 = q1, p1 = p, q1 = q;
            n = d, d = r;
            continue;
        }
        // The semiconvergent may reach the bound itself, and wins when its
        // factor is at least half the term.
        const Unsigned s = (bound - q2) / q1;
        if (2 * s >= t) {
            p1 = s * p1 + p2;
            q1 = s * q1 + q2;
        }
        break;
    }
    const long long numerator = static_cast<long long>(p1);
    return Ratio(number < 0 ? -numerator : numerator, static_cast<long long>(q1));
}

}  // namespace Tarsel::Core
