// This file implements the memory hints on macOS, which offers none for
// ordinary allocations: the hint is accepted and ignored.
#include <Core/Interfaces/PlatformMemory.h>

namespace Tarsel::Core::Platform {

void AdviseLargeBlock(void* /*data*/, std::size_t /*size*/) noexcept {}

}  // namespace Tarsel::Core::Platform
