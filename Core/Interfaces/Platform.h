// Private to the library: the little that differs between macOS and Linux,
// implemented once per platform in mac/Platform.cpp and linux/Platform.cpp.
// Everything else, the dlopen family included, is shared portable code.
// Not installed; do not include it outside Core/Interfaces.
#pragma once

namespace Tarsel {
namespace Core {
namespace Platform {

// The boost::format pattern of a module's file name, "%1%" the bare name.
extern const char kModuleNameFormat[];
// The folder shipped with the application, in the dynamic loader's notation.
extern const char kFrameworksFolder[];
extern const char kLocalLibFolder[];

// Starts an autorelease pool for the calling thread; null where there is none.
void* PushAutoreleasePool();
// Drains and ends the pool PushAutoreleasePool returned, on the same thread.
void PopAutoreleasePool(void* pool) noexcept;

}  // namespace Platform
}  // namespace Core
}  // namespace Tarsel
