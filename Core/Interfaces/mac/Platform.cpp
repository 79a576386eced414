// macOS: modules are dylibs in the application bundle's Frameworks folder,
// and autorelease pools are Foundation's NSAutoreleasePool, reached through
// the Objective-C runtime so that this file stays plain C++. The C library
// declares the locale-taking forms of a header's functions in xlocale.h,
// for the headers included before it.
#include <Core/Interfaces/internal/Platform.h>

#include <objc/message.h>
#include <objc/runtime.h>
#include <stdlib.h>
#include <xlocale.h>

namespace Tarsel::Core::Platform {

const char kModuleNameFormat[] = "lib%1%.dylib";
const char kFrameworksFolder[] = "@executable_path/../Frameworks/";
const char kLocalLibFolder[] = "/usr/local/lib/";

namespace {

// objc_msgSend has no prototype of its own: it must be called through the
// type of the method it reaches, here a method without arguments.
id Send(id receiver, const char* selector) {
    return reinterpret_cast<id (*)(id, SEL)>(objc_msgSend)(receiver, sel_registerName(selector));
}

}  // namespace

void* PushAutoreleasePool() {
    return Send(Send(reinterpret_cast<id>(objc_getClass("NSAutoreleasePool")), "alloc"), "init");
}

void AdviseLargeBlock(void*, std::size_t) noexcept {
    // The system's allocator manages its own large blocks: nothing to ask.
}

void PopAutoreleasePool(void* pool) noexcept {
    // release drains the pool: every object autoreleased in its scope.
    reinterpret_cast<void (*)(id, SEL)>(objc_msgSend)(static_cast<id>(pool), sel_registerName("release"));
}

double NearestDouble(const char* text) noexcept {
    static const locale_t c = newlocale(LC_ALL_MASK, "C", locale_t{});
    // Without memory for a locale object, the process's locale: right
    // unless an application has made the decimal point a comma.
    return c != locale_t{} ? strtod_l(text, nullptr, c) : strtod(text, nullptr);
}

}  // namespace Tarsel::Core::Platform
