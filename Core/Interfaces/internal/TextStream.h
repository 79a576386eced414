// Private to the library, not installed: the string stream behind every text
// the library builds with stream formatting.
#pragma once

#include <ios>
#include <sstream>

namespace Tarsel::Core {

// A string stream that throws when its buffer cannot grow (std::bad_alloc,
// rethrown as it came). A plain stream swallows that failure, stops writing
// and hands back part of the text: a ratio without its numerator, a call
// stack cut short. The global locale applies, as in any new stream.
class TextStream : public std::ostringstream {
public:
    TextStream() { exceptions(std::ios::badbit); }
};

}  // namespace Tarsel::Core
