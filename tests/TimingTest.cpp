#include <Core/Interfaces/Timing.h>

#include <boost/intrusive_ptr.hpp>
#include <gtest/gtest.h>

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

// A client's job that reports progress and can also be cancelled through an
// interface of its own that is counted too.
class ICancellable : public virtual Tarsel::IRefCountable {
public:
    virtual void Cancel() = 0;
};

class CancellableJob : public Tarsel::RefCounted<IProgressController>, public ICancellable {
public:
    explicit CancellableJob(bool* destroyed) : m_destroyed(destroyed) {}
    ~CancellableJob() override { *m_destroyed = true; }

    void Cancel() override { m_cancelled = true; }
    bool CheckForStop() const override { return m_cancelled; }
    void Notify(NotifyEvent /*event*/) override {}
    void SetMaximum(int /*maximum*/) override {}
    void SetProgress(int /*progress*/) override {}
    void IncProgress(int /*delta*/) override {}
    void SetClient(IProgressControllerClient* /*client*/) override {}

private:
    bool* m_destroyed;
    bool m_cancelled = false;
};

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

// The controller reaches its count as a virtual base, so a job that is also
// counted through an interface of its own holds one count, which pointers of
// either kind share.
TEST(IProgressController, AJobCountedThroughAnotherInterfaceTooHoldsOneCount) {
    bool destroyed = false;
    auto* const job = new CancellableJob(&destroyed);
    boost::intrusive_ptr<IProgressController> progress(job);
    boost::intrusive_ptr<ICancellable> cancel(job);
    EXPECT_EQ(progress->GetRefCount(), 2);
    EXPECT_EQ(cancel->GetRefCount(), 2);
    cancel->Cancel();
    EXPECT_TRUE(progress->CheckForStop());
    cancel.reset();
    EXPECT_FALSE(destroyed);
    progress.reset();
    EXPECT_TRUE(destroyed);
}
