// Private to the library: the little that differs between macOS and Linux,
// implemented once per platform in mac/Platform.cpp and linux/Platform.cpp.
// Everything else, the dlopen family included, is shared portable code.
// Not installed; do not include it outside Core/Interfaces.
#pragma once

#include <cstddef>

namespace Tarsel::Core::Platform {

// The boost::format pattern of a module's file name, "%1%" the bare name.
extern const char kModuleNameFormat[];
// The folder shipped with the application, in the dynamic loader's notation.
extern const char kFrameworksFolder[];
extern const char kLocalLibFolder[];

// Starts an autorelease pool for the calling thread; null where there is none.
void* PushAutoreleasePool();
// Drains and ends the pool PushAutoreleasePool returned, on the same thread.
void PopAutoreleasePool(void* pool) noexcept;

// Hints that the fresh, not yet touched block [data, data + size) is about to
// be written whole, so that the system may back it with large pages and take
// far fewer page faults. A refused hint changes nothing but speed.
void AdviseLargeBlock(void* data, std::size_t size) noexcept;

// The nearest double to the decimal number text starts with, read as strtod
// reads it in the C locale, whatever locale the process has set: the C
// libraries of both platforms round correctly. Infinity beyond the doubles.
double NearestDouble(const char* text) noexcept;

}  // namespace Tarsel::Core::Platform
