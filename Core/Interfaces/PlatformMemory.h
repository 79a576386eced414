// Private to the library's sources, not installed: the platform seam for
// memory hints, implemented once in linux/ and once in mac/.
#pragma once

#include <cstddef>

namespace Tarsel::Core::Platform {

// Hints that the fresh, not yet touched block [data, data + size) is about to
// be written whole, so that the system may back it with large pages and take
// far fewer page faults. A refused hint changes nothing but speed; never
// fails.
void AdviseLargeBlock(void* data, std::size_t size) noexcept;

}  // namespace Tarsel::Core::Platform
