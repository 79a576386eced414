// The text a saved double must have, built independently of the writer; the
// serializer tests and the JSON fuzz target check against it.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace TarselTest {

// "%#g" as C defines it, from the %e and %f conversions (glibc's own "%#g"
// drops the zeros when rounding carries into a new exponent: 999999.5 gives
// "1.e+06" instead of "1.00000e+06"), with a zero after a bare final point,
// which JSON does not accept ("123456." is written 123456.0).
inline std::string SavedDoubleText(double value) {
    char scientific[64];
    std::snprintf(scientific, sizeof scientific, "%.5e", value);
    const int exponent = std::atoi(std::strchr(scientific, 'e') + 1);
    if (exponent < -4 || exponent >= 6) {
        return scientific;
    }
    char fixed[400];
    std::snprintf(fixed, sizeof fixed, "%#.*f", 5 - exponent, value);
    return exponent == 5 ? std::string(fixed) + "0" : fixed;
}

}  // namespace TarselTest
