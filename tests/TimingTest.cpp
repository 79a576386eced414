#include <Core/Interfaces/Timing.h>

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

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

// Whether Base is a virtual base of Derived: a static_cast from a base
// pointer down to Derived is ill-formed exactly when the base is virtual.
template <class Base, class Derived, class = void>
struct IsVirtualBaseOf : std::is_base_of<Base, Derived> {};
template <class Base, class Derived>
struct IsVirtualBaseOf<Base, Derived, std::void_t<decltype(static_cast<Derived*>(std::declval<Base*>()))>>
    : std::false_type {};

}  // namespace

// SleepFor timed by TimerSimple: each sleep lasts at least its time (less
// 100 us of slack for the wall clock behind the deadline), and each timer
// adds it to the counter at destruction, never before.
TEST(TimerSimple, AddsTheSleepItTimedAtDestructionAndTimersSum) {
    long long counter = 1000;
    for (long long milliseconds : {0, 3, 3}) {
        const long long before = counter;
        {
            TimerSimple timer(counter);
            SleepFor(static_cast<unsigned int>(milliseconds));
            EXPECT_GE(timer.Elapsed(), milliseconds * 1000 - 100);
            EXPECT_EQ(counter, before);
        }
        EXPECT_GE(counter - before, milliseconds * 1000 - 100);
    }
    EXPECT_LT(counter, 1000 + kGenerousMicroseconds);
}

TEST(ProgressControllerStub, IgnoresProgressAndNeverAsksToStop) {
    const boost::intrusive_ptr<IProgressController> stub = ProgressControllerStub::Create();
    EXPECT_EQ(stub->GetRefCount(), 1);  // held by the returned pointer alone: a leak would fail the sanitizer run
    CountingClient client;
    stub->SetClient(&client);
    stub->Notify(IProgressController::NotifyStarted);
    stub->SetMaximum(10);
    stub->SetProgress(10);
    stub->IncProgress(5);
    EXPECT_FALSE(stub->CheckForStop());
    EXPECT_EQ(client.calls, 0);
}

TEST(ProgressControllerStub, DerivesFromTheControllerInterfacePubliclyAndVirtually) {
    EXPECT_TRUE((IsVirtualBaseOf<IProgressController, ProgressControllerStub>::value));
    EXPECT_TRUE((std::is_convertible_v<ProgressControllerStub*, IProgressController*>));  // public
    // The trait itself: IProgressController's own base is virtual, a plain
    // base is not.
    EXPECT_TRUE((IsVirtualBaseOf<Tarsel::IRefCountable, IProgressController>::value));
    EXPECT_FALSE((IsVirtualBaseOf<IProgressControllerClient, CountingClient>::value));
}
