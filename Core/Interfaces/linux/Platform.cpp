// Linux: modules are ELF shared objects, and the application's own modules
// sit beside this library. There is no Objective-C runtime, so no pool.
#include <Core/Interfaces/Platform.h>

namespace Tarsel {
namespace Core {
namespace Platform {

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

}  // namespace Platform
}  // namespace Core
}  // namespace Tarsel
