// Private to the library, not installed: the text of a double in saved JSON.
#pragma once

#include <cstddef>

namespace Tarsel::Core::Json {

// The texts of PropertySerializer::DoubleText (PropertySerializer.h says
// what each gives) for a finite double. Each writes at most
// kMaxSavedDoubleLength characters to out and returns their count.
constexpr std::size_t kMaxSavedDoubleLength = 26;
std::size_t FormatDoubleSixDigits(double value, char* out);
std::size_t FormatDoubleRoundTrip(double value, char* out);

}  // namespace Tarsel::Core::Json
