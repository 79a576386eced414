// Private to the library, not installed: reading a byte source whole, as the
// JSON reader and the digest do.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace Tarsel::Core {

class IDataInput;

struct FreeBytes {
    void operator()(char* bytes) const noexcept { std::free(bytes); }
};

struct WholeInput {
    std::unique_ptr<char[], FreeBytes> bytes;
    std::size_t size;
};

// The whole content of input: GetSize, then one Read into a zeroed buffer of
// that size followed by padding zero bytes. What Read returns is ignored:
// bytes it did not write stay zero, so a short read reads as zeros and a
// stream that writes its bytes but reports fewer is read whole.
// Throws std::bad_alloc for a size that cannot be buffered; exceptions of the
// input pass through.
WholeInput ReadWholeInput(IDataInput& input, std::size_t padding);

}  // namespace Tarsel::Core
