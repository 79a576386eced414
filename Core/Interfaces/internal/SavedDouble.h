// Private to the library, not installed: the text of a double in saved JSON.
#pragma once

#include <cstddef>

namespace Tarsel::Core::Json {

// printf's "%#g" for a finite double: six significant digits, trailing zeros
// kept, always a decimal point (1.0 gives 1.00000, 1e-05 gives 1.00000e-05).
// One deliberate difference: "%#g" ends the values of six integer digits with
// a bare point (192000.), which no JSON reader accepts, so those get a zero
// after it (192000.0) and still read back as doubles. Writes at most
// kMaxSavedDoubleLength characters ("-1.00000e-308") to out and returns
// their count.
constexpr std::size_t kMaxSavedDoubleLength = 13;
std::size_t FormatDoubleSixDigits(double value, char* out);

}  // namespace Tarsel::Core::Json
