// This file implements the scope timer, the sleep and the progress stub.
#include <Core/Interfaces/Timing.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/thread_only.hpp>

namespace Tarsel::Core {

TimerSimple::TimerSimple(long long& accumulator)
    : m_start(boost::chrono::steady_clock::now()), m_accumulator(accumulator) {}

TimerSimple::~TimerSimple() {
    m_accumulator += Elapsed();
}

long long TimerSimple::Elapsed() const {
    // duration_cast truncates toward zero.
    return boost::chrono::duration_cast<boost::chrono::microseconds>(boost::chrono::steady_clock::now() - m_start)
        .count();
}

void SleepFor(unsigned int milliseconds) {
    const boost::posix_time::ptime until =
        boost::posix_time::microsec_clock::universal_time() + boost::posix_time::milliseconds(milliseconds);
    boost::this_thread::sleep(until);
}

IProgressControllerClient::~IProgressControllerClient() = default;

boost::intrusive_ptr<IProgressController> ProgressControllerStub::Create() {
    return boost::intrusive_ptr<IProgressController>(new ProgressControllerStub());
}

void ProgressControllerStub::Notify(NotifyEvent /*event*/) {}
void ProgressControllerStub::SetMaximum(int /*maximum*/) {}
void ProgressControllerStub::SetProgress(int /*progress*/) {}
void ProgressControllerStub::IncProgress(int /*delta*/) {}
bool ProgressControllerStub::CheckForStop() const {
    return false;
}
void ProgressControllerStub::SetClient(IProgressControllerClient* /*client*/) {}

}  // namespace Tarsel::Core
