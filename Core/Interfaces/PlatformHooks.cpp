// This file implements the platform hooks; the pool itself is the
// platform's (Platform.h).
#include <Core/Interfaces/PlatformHooks.h>

#include <Core/Interfaces/internal/Platform.h>

namespace Tarsel::Core {

AutoreleasePool::AutoreleasePool() : m_pool(Platform::PushAutoreleasePool()) {}

AutoreleasePool::~AutoreleasePool() {
    Platform::PopAutoreleasePool(m_pool);
}

Hooker::~Hooker() = default;

// Where a platform offers a print-screen hook, its state would live here.
struct HookerPrintScreen::Impl {};

HookerPrintScreen::HookerPrintScreen(void (*)()) : m_impl(std::make_unique<Impl>()) {}

HookerPrintScreen::~HookerPrintScreen() = default;

}  // namespace Tarsel::Core
