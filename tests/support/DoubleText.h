// The text a saved double must have, built independently of the writer, and
// the doubles where that text is hardest to get right; the serializer tests,
// the JSON fuzz targets and the double-text benchmark check against it.
#pragma once

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

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

// Doubles at and beside the places where "%#g" text changes, with steps
// neighbours on each side (one ulp apart), of both signs, and both zeros:
// - at every power of ten (1e-5 and 0.0001, where the notation switches;
//   1e21) and at every rounding boundary of six digits (9.999995 below 10,
//   99999.95 below 1e5, 999999.5 below 1e6, and so on at each exponent);
// - the ends of the subnormals and of the normal doubles.
inline std::vector<double> BoundaryDoubles(int steps) {
    std::vector<double> centres;
    for (int exponent = -324; exponent <= 308; ++exponent) {
        for (const char* mantissa : {"1", "9.999995"}) {
            const std::string text = std::string(mantissa) + "e" + std::to_string(exponent);
            const double centre = std::strtod(text.c_str(), nullptr);
            if (std::isfinite(centre)) {  // 9.999995e308 is beyond the doubles
                centres.push_back(centre);
            }
        }
    }
    centres.insert(centres.end(), {DBL_TRUE_MIN, DBL_MIN - DBL_TRUE_MIN, DBL_MIN, DBL_MAX});
    std::vector<double> values = {0.0, -0.0};
    for (const double centre : centres) {
        double below = centre;
        double above = centre;
        for (int step = 0; step < steps && below > 0; ++step) {
            below = std::nextafter(below, 0.0);
            values.push_back(below);
        }
        values.push_back(centre);
        for (int step = 0; step < steps && above < DBL_MAX; ++step) {
            above = std::nextafter(above, DBL_MAX);
            values.push_back(above);
        }
    }
    const std::size_t positives = values.size();
    for (std::size_t i = 2; i < positives; ++i) {
        values.push_back(-values[i]);
    }
    return values;
}

// Every power of two a double holds, 2^-1074 to 2^1023, where the spacing
// of doubles changes, with steps neighbours on each side, of both signs.
inline std::vector<double> PowerOfTwoDoubles(int steps) {
    std::vector<double> values;
    for (int exponent = -1074; exponent <= 1023; ++exponent) {
        double below = std::ldexp(1.0, exponent);
        double above = below;
        values.insert(values.end(), {below, -below});
        for (int step = 0; step < steps; ++step) {
            below = std::nextafter(below, 0.0);
            if (above < DBL_MAX) {
                above = std::nextafter(above, DBL_MAX);
            }
            values.insert(values.end(), {below, above, -below, -above});
        }
    }
    return values;
}

}  // namespace TarselTest
