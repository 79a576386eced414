// This file implements the memory hints on Linux: transparent huge pages.
#include <Core/Interfaces/PlatformMemory.h>

#include <cstdint>

#include <sys/mman.h>

namespace Tarsel::Core::Platform {

namespace {

constexpr std::uintptr_t kHugePageSize = std::uintptr_t{2} << 20;

}  // namespace

void AdviseLargeBlock(void* data, std::size_t size) noexcept {
    // Only the whole huge pages inside the block: the pages at its edges may
    // hold other allocations.
    const auto begin = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t first = (begin + kHugePageSize - 1) & ~(kHugePageSize - 1);
    const std::uintptr_t last = (begin + size) & ~(kHugePageSize - 1);
    if (first < last) {
        // Refused by kernels without transparent huge pages; only speed is lost.
        (void)madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
    }
}

}  // namespace Tarsel::Core::Platform
