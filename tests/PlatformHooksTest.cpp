#include <Core/Interfaces/PlatformHooks.h>

#include "support/ReplacedNew.h"

#include <gtest/gtest.h>

#include <memory>

using namespace Tarsel::Core;

namespace {
int g_callbackCalls = 0;
}  // namespace

// Portable client code holds its hooks by their base: deleting one there
// frees what the hook allocated. The callback is never called, null included.
TEST(HookerPrintScreen, DeletedThroughItsBaseLeavesNoBlockAndNeverCallsBack) {
    if (!TarselTest::kReplacesNew) {
        GTEST_SKIP() << "operator new cannot be replaced in this build";
    }
    const long before = TarselTest::LiveBlocks();
    {
        const std::unique_ptr<Hooker> hook = std::make_unique<HookerPrintScreen>([] { ++g_callbackCalls; });
        const HookerPrintScreen withoutCallback(nullptr);
    }
    EXPECT_EQ(TarselTest::LiveBlocks(), before);
    EXPECT_EQ(g_callbackCalls, 0);
}
