/// @file
/// Timing, sleeping and progress: a scope timer that adds to a caller's
/// counter, a millisecond sleep, and the progress-controller interfaces with a
/// stub that ignores all progress.
#pragma once

#include <Core/Interfaces/Export.h>
#include <Core/Interfaces/RefCount.h>

#include <boost/chrono/system_clocks.hpp>
#include <boost/intrusive_ptr.hpp>

namespace Tarsel::Core {

/// Measures its own lifetime on the monotonic clock and adds it, in whole
/// microseconds, to the caller's counter when destroyed; the counter is never
/// reset, so timers one after another sum into it. Belongs to one thread: the
/// counter is updated without synchronisation. Never throws.
class TARSEL_API TimerSimple {
public:
    /// Starts timing; accumulator must outlive the timer.
    explicit TimerSimple(long long& accumulator);
    /// Adds the microseconds since construction to the accumulator.
    ~TimerSimple();
    TimerSimple(const TimerSimple&) = delete;
    TimerSimple& operator=(const TimerSimple&) = delete;

    /// Microseconds since construction, truncated: a scope shorter than one
    /// microsecond counts 0. Never throws.
    long long Elapsed() const;

private:
    boost::chrono::steady_clock::time_point m_start;
    long long& m_accumulator;
};

/// Blocks the calling thread until the universal time taken at the call plus
/// milliseconds; 0 returns at once or after a scheduling point. We sleep until
/// an absolute wall-clock time, so a clock change during the sleep shortens or
/// lengthens it. Inside a boost::thread the sleep is an interruption point and
/// throws boost::thread_interrupted when the thread is interrupted.
TARSEL_API void SleepFor(unsigned int milliseconds);

class IProgressControllerClient;

/// What a long operation reports to, and asks of, the one who started it.
/// Implementations are shared by intrusive counts.
class TARSEL_API IProgressController : public virtual IRefCountable {
public:
    /// Changes in the life of the work.
    enum NotifyEvent {
        NotifyStarted,   ///< The work began.
        NotifyPaused,    ///< The work waits.
        NotifyResumed,   ///< The work goes on after a pause.
        NotifyStopped,   ///< The work ended before its end, as CheckForStop asked.
        NotifyFinished,  ///< The work is done.
    };

    /// Reports a change in the life of the work.
    virtual void Notify(NotifyEvent event) = 0;
    /// The total amount of work.
    virtual void SetMaximum(int maximum) = 0;
    /// The amount of work done so far.
    virtual void SetProgress(int progress) = 0;
    /// Adds delta to the work done.
    virtual void IncProgress(int delta) = 0;
    /// True when the work should stop as soon as it can.
    virtual bool CheckForStop() const = 0;
    /// Attaches an observer, or detaches it with nullptr; the controller does
    /// not own it.
    virtual void SetClient(IProgressControllerClient* client) = 0;
};

/// The observer a real controller calls back as the work advances.
class TARSEL_API IProgressControllerClient {
public:
    virtual ~IProgressControllerClient();
    /// The controller was notified of event.
    virtual void EventNotified(IProgressController::NotifyEvent event) = 0;
    /// The work done, or its total, changed.
    virtual void ProgressChanged(int progress, int maximum) = 0;
};

/// A controller for callers that want no progress: ignores everything and
/// never asks to stop. Its count is atomic; it holds no other state.
/// IProgressController is its public virtual base (through RefCounted).
class TARSEL_API ProgressControllerStub : public RefCounted<IProgressController> {
public:
    /// A new stub held by the returned pointer alone (count 1); throws
    /// std::bad_alloc only. The operations below never throw.
    static boost::intrusive_ptr<IProgressController> Create();

    /// Ignored.
    ///@{
    void Notify(NotifyEvent event) override;
    void SetMaximum(int maximum) override;
    void SetProgress(int progress) override;
    void IncProgress(int delta) override;
    ///@}
    /// Always false.
    bool CheckForStop() const override;
    /// Ignored: the stub calls no observer back.
    void SetClient(IProgressControllerClient* client) override;

private:
    ProgressControllerStub() = default;
};

}  // namespace Tarsel::Core
