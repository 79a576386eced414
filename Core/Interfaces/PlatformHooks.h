/// @file
/// Scope objects that tie clients to facilities of the desktop platform: an
/// autorelease pool, and the print-screen hook.
#pragma once

#include <Core/Interfaces/Export.h>

#include <memory>

namespace Tarsel::Core {

/// Gives its scope an Objective-C autorelease pool on macOS: objects
/// autoreleased while it lives are released when it is destroyed. Elsewhere
/// it is an empty scope. Pools belong to the thread that creates them; destroy
/// them on that thread, in the reverse order of their creation.
class TARSEL_API AutoreleasePool {
public:
    AutoreleasePool();
    /// Drains the pool; never throws.
    ~AutoreleasePool();

    AutoreleasePool(const AutoreleasePool&) = delete;
    AutoreleasePool& operator=(const AutoreleasePool&) = delete;

private:
    void* m_pool;
};

/// The base of the platform hooks.
class TARSEL_API Hooker {
public:
    virtual ~Hooker();
};

/// The print-screen hook. We install nothing on any platform we support: the
/// callback is neither stored nor called, null included. The class exists so
/// that portable client code can create the hook everywhere.
class TARSEL_API HookerPrintScreen : public Hooker {
public:
    /// Throws std::bad_alloc when memory runs out.
    explicit HookerPrintScreen(void (*callback)());
    ~HookerPrintScreen() override;

    HookerPrintScreen(const HookerPrintScreen&) = delete;
    HookerPrintScreen& operator=(const HookerPrintScreen&) = delete;

private:
    struct TARSEL_HIDDEN Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace Tarsel::Core
