// This file implements set's folder lock and its bounded wait: a blocking
// flock interrupted by a ticking timer, so that the wait can look at the
// clock without polling the lock.
#include "FolderLock.h"

#include "Command.h"
#include "Failure.h"

#include <boost/filesystem/operations.hpp>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <iostream>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/time.h>
#include <unistd.h>

namespace TarselTool {

namespace {

void Wake(int) {}

// Interrupts a blocking call every tenth of a second while it exists.
// Ticks rather than one alarm: an alarm that rang just before the call
// began would be missed, and the call would block for good.
class Ticker {
public:
    Ticker() {
        struct sigaction action {};
        action.sa_handler = Wake;
        sigemptyset(&action.sa_mask);
        action.sa_flags = 0;  // no SA_RESTART: the blocking call returns EINTR
        ::sigaction(SIGALRM, &action, &m_previousAction);
        sigset_t alarm;
        sigemptyset(&alarm);
        sigaddset(&alarm, SIGALRM);
        ::sigprocmask(SIG_UNBLOCK, &alarm, &m_previousMask);
        itimerval tick{};
        tick.it_interval.tv_usec = tick.it_value.tv_usec = 100 * 1000;
        ::setitimer(ITIMER_REAL, &tick, nullptr);
    }
    ~Ticker() {
        const itimerval stop{};
        ::setitimer(ITIMER_REAL, &stop, nullptr);
        ::sigprocmask(SIG_SETMASK, &m_previousMask, nullptr);
        ::sigaction(SIGALRM, &m_previousAction, nullptr);
    }
    Ticker(const Ticker&) = delete;
    Ticker& operator=(const Ticker&) = delete;

private:
    struct sigaction m_previousAction {};
    sigset_t m_previousMask{};
};

std::string Seconds(unsigned count) {
    return std::to_string(count) + (count == 1 ? " second" : " seconds");
}

}  // namespace

FolderLock::FolderLock(const std::string& file, const std::string& name, unsigned waitSeconds) {
    boost::system::error_code error;
    const boost::filesystem::path real = boost::filesystem::canonical(file, error);
    m_folder = (error ? boost::filesystem::path(file) : real).parent_path();
    if (m_folder.empty()) {
        m_folder = ".";
    }
    const std::string folder = m_folder.string();
    m_fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_fd < 0) {
        const int openError = errno;
        if (openError == EACCES && ::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0) {
            throw ToolFailure(kFailed, name,
                              "cannot set: you may write in its folder " + folder +
                                  " but not read it, and set must read a folder to lock it against other sets");
        }
        throw ToolFailure(kFailed, name, "cannot lock its folder " + folder + ": " + SystemReason(openError));
    }
    if (::flock(m_fd, LOCK_EX | LOCK_NB) == 0) {
        return;
    }
    const auto fail = [&](const std::string& reason) {
        ::close(m_fd);
        throw ToolFailure(kFailed, name, reason);
    };
    if (errno != EWOULDBLOCK) {
        fail("cannot lock its folder " + folder + ": " + SystemReason(errno));
    }
    const auto start = std::chrono::steady_clock::now();
    const Ticker ticker;
    bool told = false;
    for (;;) {
        const auto waited = std::chrono::steady_clock::now() - start;
        if (waited >= std::chrono::seconds(waitSeconds)) {
            fail(waitSeconds == 0
                     ? "cannot set: another process holds the lock on its folder " + folder + " (see --wait)"
                     : "cannot set: another process still holds the lock on its folder " + folder + " after " +
                           Seconds(waitSeconds) + " (see --wait)");
        }
        if (!told && waited >= std::chrono::seconds(1)) {
            std::cerr << "tarsel: waiting for another process's lock on " << folder << std::endl;
            told = true;
        }
        if (::flock(m_fd, LOCK_EX) == 0) {
            return;
        }
        if (errno != EINTR) {
            fail("cannot lock its folder " + folder + ": " + SystemReason(errno));
        }
    }
}

FolderLock::~FolderLock() {
    ::close(m_fd);
}

}  // namespace TarselTool
