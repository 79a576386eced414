#include <Core/Interfaces/PlatformHooks.h>

#include <gtest/gtest.h>

#include <memory>

using namespace Tarsel::Core;

namespace {
int g_callbackCalls = 0;
}  // namespace

TEST(HookerPrintScreen, NeverCallsItsCallbackNullIncluded) {
    {
        const AutoreleasePool pool;
        const std::unique_ptr<Hooker> hook = std::make_unique<HookerPrintScreen>([] { ++g_callbackCalls; });
        const HookerPrintScreen withoutCallback(nullptr);
    }
    EXPECT_EQ(g_callbackCalls, 0);
}
