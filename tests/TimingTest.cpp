#include <Core/Interfaces/Timing.h>

#include <gtest/gtest.h>

#include <chrono>

using namespace Tarsel::Core;

namespace {

// Bounds are loose: the machines that run the suite are shared and noisy.
constexpr long long kGenerousMicroseconds = 2000000;

class RecordingClient : public IProgressControllerClient {
public:
    void EventNotified(IProgressController::NotifyEvent /*event*/) override { ++calls; }
    void ProgressChanged(int /*progress*/, int /*maximum*/) override { ++calls; }
    int calls = 0;
};

}  // namespace

TEST(TimerSimple, AddsItsLifetimeToTheCounter) {
    long long counter = 1000;
    {
        TimerSimple timer(counter);
        SleepFor(3);
        EXPECT_GE(timer.Elapsed(), 3000);
        EXPECT_EQ(counter, 1000);  // nothing added before destruction
    }
    EXPECT_GE(counter, 4000);
    EXPECT_LT(counter, 1000 + kGenerousMicroseconds);
}

TEST(TimerSimple, SuccessiveTimersSumIntoOneCounter) {
    long long counter = 0;
    for (int i = 0; i < 3; ++i) {
        TimerSimple timer(counter);
        SleepFor(1);
    }
    EXPECT_GE(counter, 3000);
    EXPECT_LT(counter, kGenerousMicroseconds);
}

TEST(SleepFor, BlocksAtLeastTheGivenMilliseconds) {
    for (unsigned int milliseconds : {0u, 2u, 5u}) {
        const auto start = std::chrono::steady_clock::now();
        SleepFor(milliseconds);
        const auto slept = std::chrono::steady_clock::now() - start;
        // The wall clock behind the deadline may tick a microsecond apart from
        // the steady one.
        EXPECT_GE(slept, std::chrono::microseconds(milliseconds * 1000 - (milliseconds > 0 ? 100 : 0)));
        EXPECT_LT(slept, std::chrono::microseconds(kGenerousMicroseconds));
    }
}

TEST(ProgressControllerStub, IgnoresProgressAndNeverAsksToStop) {
    const boost::intrusive_ptr<IProgressController> stub = ProgressControllerStub::Create();
    RecordingClient client;
    stub->SetClient(&client);
    stub->Notify(IProgressController::NotifyStarted);
    stub->SetMaximum(10);
    stub->SetProgress(10);
    stub->IncProgress(5);
    stub->Notify(IProgressController::NotifyFinished);
    EXPECT_FALSE(stub->CheckForStop());
    EXPECT_EQ(client.calls, 0);
}

TEST(ProgressControllerStub, CreateHandsOutTheOnlyReference) {
    IProgressController* stub = ProgressControllerStub::Create().detach();
    EXPECT_EQ(stub->GetRefCount(), 1);
    EXPECT_EQ(stub->AddRef(), 2);
    EXPECT_EQ(stub->Release(), 1);
    EXPECT_EQ(stub->Release(), 0);  // destroyed here; a leak would fail the sanitizer run
}
