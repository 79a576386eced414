// What the benchmark programs share.
#pragma once

#include <malloc.h>

#include <climits>
#include <cstdlib>
#include <string>

namespace TarselBench {

// Virtual machines can charge a lot for memory touched for the first time
// (11 us a page on the machines we measure on, 50 to 100 times bare metal),
// and glibc hands large and freed blocks back to the system, so every
// iteration would fault its memory in again and the figures would measure
// the hypervisor. This keeps freed memory in the process, as in an
// application that works repeatedly, for the library and its peers alike.
// TARSEL_BENCH_SYSTEM_MALLOC=1 measures with glibc's defaults instead.
inline void KeepFreedMemory() {
    const char* system = std::getenv("TARSEL_BENCH_SYSTEM_MALLOC");
    if (system != nullptr && std::string(system) == "1") {
        return;
    }
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    mallopt(M_TOP_PAD, 64 << 20);
    mallopt(M_MMAP_MAX, 0);
}

}  // namespace TarselBench
