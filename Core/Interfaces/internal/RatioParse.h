// Private to the library, not installed: ratio text parsed from a view, so
// that the loader reads a ratio straight from the parser's buffer
// instead of copying it into a string first.
#pragma once

#include <Core/Interfaces/Property.h>

#include <string_view>

namespace Tarsel::Core {

// RatioFromString's grammar and outcome: digits "/" digits into ratio,
// normalised; false, ratio untouched, for any other text; a zero denominator
// throws boost::bad_rational.
bool RatioFromText(std::string_view text, Ratio& ratio);

}  // namespace Tarsel::Core
