// Linux: modules are ELF shared objects, and the application's own modules
// sit beside this library. There is no Objective-C runtime, so no pool;
// large buffers may ask for transparent huge pages. glibc declares its
// locale-taking functions in the standard headers.
#include <Core/Interfaces/internal/Platform.h>

#include <cstdint>

#include <locale.h>
#include <stdlib.h>
#include <sys/mman.h>

namespace Tarsel::Core::Platform {

const char kModuleNameFormat[] = "lib%1%.so";
// glibc expands $ORIGIN in a dlopen path relative to the object that calls
// dlopen, which is this library: modules shipped beside it are found
// wherever the application is installed. Under AddressSanitizer the caller
// is its dlopen interceptor in the executable, so the folder is the
// executable's.
const char kFrameworksFolder[] = "$ORIGIN/";
const char kLocalLibFolder[] = "/usr/local/lib/";

void* PushAutoreleasePool() {
    return nullptr;
}

void PopAutoreleasePool(void*) noexcept {}

void AdviseLargeBlock(void* data, std::size_t size) noexcept {
    constexpr std::uintptr_t kHugePageSize = std::uintptr_t{2} << 20;
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

double NearestDouble(const char* text) noexcept {
    static const locale_t c = newlocale(LC_ALL_MASK, "C", locale_t{});
    // Without memory for a locale object, the process's locale: right
    // unless an application has made the decimal point a comma.
    return c != locale_t{} ? strtod_l(text, nullptr, c) : strtod(text, nullptr);
}

}  // namespace Tarsel::Core::Platform
