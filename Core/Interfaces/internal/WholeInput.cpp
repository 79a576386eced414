// This file implements the whole-input read that the JSON reader and the
// digests share.
#include <Core/Interfaces/internal/WholeInput.h>

#include <Core/Interfaces/DataStream.h>
#include <Core/Interfaces/internal/Platform.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

namespace Tarsel::Core {

WholeInput ReadWholeInput(IDataInput& input, std::size_t padding) {
    const std::size_t size = input.GetSize();
    // Sizes no allocation can satisfy are refused before the allocator sees
    // them: some allocators (a sanitizer's among them) abort on such
    // requests instead of failing, and size + padding must not wrap.
    if (size > static_cast<std::size_t>(PTRDIFF_MAX) - padding) {
        throw std::bad_alloc();
    }
    const std::size_t capacity = size + padding == 0 ? 1 : size + padding;
    // Zeroed before Read, whose result we deliberately ignore: what the input
    // does not write stays zero, whatever count it reports. calloc takes a
    // large block fresh from the system, already zero and not yet touched.
    std::unique_ptr<char[], FreeBytes> bytes(static_cast<char*>(std::calloc(capacity, 1)));
    if (!bytes) {
        throw std::bad_alloc();
    }
    Platform::AdviseLargeBlock(bytes.get(), capacity);
    input.Read(bytes.get(), size);
    return WholeInput{std::move(bytes), size};
}

}  // namespace Tarsel::Core
