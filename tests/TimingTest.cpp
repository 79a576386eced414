#include <Core/Interfaces/Timing.h>

#include <gtest/gtest.h>

#include <chrono>

using namespace Tarsel::Core;

namespace {

// Upper bounds are loose: the machines that run the suite are shared and noisy.
constexpr long long kGenerousMicroseconds = 2000000;

class CountingClient : public IProgressControllerClient {
public:
    void EventNotified(IProgressController::NotifyEvent /*event*/) override { ++calls; }
    void ProgressChanged(int /*progress*/, int /*maximum*/) override { ++calls; }
    int calls = 0;
};

}  // namespace

TEST(TimerSimple, AddsItsLifetimeAtDestructionAndTimersSum) {
    long long counter = 1000;
    for (int i = 0; i < 2; ++i) {
        TimerSimple timer(counter);
        SleepFor(2);
        EXPECT_GE(timer.Elapsed(), 2000);
        EXPECT_EQ(counter >= 3000, i == 1);  // nothing added before destruction
    }
    EXPECT_GE(counter, 5000);
    EXPECT_LT(counter, 1000 + kGenerousMicroseconds);
}

TEST(SleepFor, BlocksAtLeastTheGivenMilliseconds) {
    for (unsigned int milliseconds : {0u, 3u}) {
        const auto start = std::chrono::steady_clock::now();
        SleepFor(milliseconds);
        const auto slept = std::chrono::steady_clock::now() - start;
        // 100 us of slack for the wall clock behind the deadline.
        EXPECT_GE(slept, std::chrono::microseconds(milliseconds * 1000) - std::chrono::microseconds(100));
        EXPECT_LT(slept, std::chrono::microseconds(kGenerousMicroseconds));
    }
}

TEST(ProgressControllerStub, IgnoresProgressAndNeverAsksToStop) {
    const boost::intrusive_ptr<IProgressController> stub = ProgressControllerStub::Create();
    CountingClient client;
    stub->SetClient(&client);
    stub->Notify(IProgressController::NotifyStarted);
    stub->SetMaximum(10);
    stub->SetProgress(10);
    stub->IncProgress(5);
    EXPECT_FALSE(stub->CheckForStop());
    EXPECT_EQ(client.calls, 0);
}

TEST(ProgressControllerStub, CreateHandsOutTheOnlyReference) {
    IProgressController* stub = ProgressControllerStub::Create().detach();
    EXPECT_EQ(stub->GetRefCount(), 1);
    EXPECT_EQ(stub->Release(), 0);  // destroyed here; a leak would fail the sanitizer run
}
