#include <Core/Interfaces/StackTrace.h>

#include "support/ReplacedNew.h"
#include "support/ZeroWrites.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <new>
#include <regex>
#include <sstream>
#include <streambuf>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Tarsel::Core;

namespace {

// A stream over a fixed buffer: writing to it allocates nothing.
class FixedBuffer : public std::streambuf {
public:
    FixedBuffer() { setp(m_data, m_data + sizeof m_data); }
    std::string Text() const { return std::string(pbase(), pptr()); }

private:
    char m_data[16384];
};

}  // namespace

TEST(StackTrace, SymbolicLinesNameDemangledFunctionsFromTheOffsetOn) {
    StackTrace trace;
    unsigned long count = 0;
    ASSERT_NE(trace.Addresses(&count), nullptr);
    ASSERT_GT(count, 2u);
    const std::string text = trace.ToString();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), static_cast<long>(count));
    // This test's body is a member of a class gtest generates for it.
    EXPECT_NE(text.find("StackTrace_SymbolicLinesNameDemangledFunctionsFromTheOffsetOn_Test::TestBody()"),
              std::string::npos)
        << text;
    trace.SetOffSetBeginLine(2);  // the same text without its first two lines
    EXPECT_EQ(trace.ToString(), text.substr(text.find('\n', text.find('\n') + 1) + 1));
    trace.SetOffSetBeginLine(count);
    EXPECT_EQ(trace.ToString(), "");
    trace.SetOffSetBeginLine(count + 10);
    EXPECT_EQ(trace.ToString(), "");
}

TEST(StackTrace, SignalHandlerRenderingPrintsEveryFrameAsAddressWithoutAllocating) {
    StackTrace trace;
    trace.SetOffSetBeginLine(3);  // ignored by the fallback
    unsigned long count = 0;
    trace.Addresses(&count);
    FixedBuffer buffer;
    std::ostream out(&buffer);
    long allocations = 0;
    in_signal_handler = 1;
    {
        TarselTest::AllocationWatch watch;
        trace.OutputToStream(&out);
        allocations = watch.Allocations();
    }
    in_signal_handler = 0;
    if (TarselTest::kReplacesNew) {
        EXPECT_EQ(allocations, 0);
    }

    const std::string text = buffer.Text();
    EXPECT_TRUE(std::regex_match(text, std::regex(R"(( \[0x[0-9a-f]{12,}\]\n)*)"))) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), static_cast<long>(count));
}

// A signal handler has no safe std::ostream: PrintBacktrace then writes the
// same text straight to file descriptor 2, past std::cerr and without memory.
TEST(StackTrace, PrintBacktraceInASignalHandlerWritesToFileDescriptor2Directly) {
    StackTrace trace;
    in_signal_handler = 1;
    std::ostringstream expected;
    trace.OutputToStream(&expected);
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    const int savedError = dup(STDERR_FILENO);
    ASSERT_GE(dup2(pipeEnds[1], STDERR_FILENO), 0);
    FixedBuffer throughCerr;
    std::streambuf* const cerrBuffer = std::cerr.rdbuf(&throughCerr);
    long allocations = 0;
    {
        TarselTest::AllocationWatch watch;
        trace.PrintBacktrace();
        allocations = watch.Allocations();
    }
    std::cerr.rdbuf(cerrBuffer);
    dup2(savedError, STDERR_FILENO);
    close(savedError);
    close(pipeEnds[1]);
    in_signal_handler = 0;
    std::string written;
    char chunk[4096];
    for (ssize_t n; (n = read(pipeEnds[0], chunk, sizeof chunk)) > 0;) {
        written.append(chunk, static_cast<std::size_t>(n));
    }
    close(pipeEnds[0]);

    EXPECT_EQ(written, expected.str());
    EXPECT_EQ(throughCerr.Text(), "");
    if (TarselTest::kReplacesNew) {
        EXPECT_EQ(allocations, 0);
    }
}

// Standard error may be a descriptor whose writes take nothing: the
// signal-safe rendering then gives up on each frame instead of asking again
// forever. It runs in a child process, since the writes stay that way, with
// a few seconds of processor time: a rendering that never ends is killed,
// rather than holding up the suite, where one that gives up takes
// microseconds.
TEST(StackTrace, PrintBacktraceInASignalHandlerGivesUpOnWritesThatTakeNothing) {
    constexpr int kCannotMakeWritesTakeNothing = 77;
    const StackTrace trace;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (!TarselTest::MakeWritesTakeNothing(STDERR_FILENO)) {
            _exit(kCannotMakeWritesTakeNothing);
        }
        const rlimit seconds{5, 5};
        setrlimit(RLIMIT_CPU, &seconds);
        in_signal_handler = 1;
        trace.PrintBacktrace();
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kCannotMakeWritesTakeNothing) {
        GTEST_SKIP() << "this system cannot make a descriptor's writes take nothing";
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << (WIFSIGNALED(status) ? "killed by signal " + std::to_string(WTERMSIG(status)) +
                                      " (SIGXCPU or SIGKILL: the rendering did not end within its processor time)"
                                : "exit status " + std::to_string(WEXITSTATUS(status)));
}

TEST(OutputPointer, PadsToTwelveLowercaseHexDigits) {
    for (const auto& [address, text] : {std::pair<std::uintptr_t, const char*>{0x0, " [0x000000000000]"},
                                        {0xabcdef123, " [0x000abcdef123]"},  // nine digits: three leading zeros
                                        {0x7fffdeadbeef, " [0x7fffdeadbeef]"},
                                        {0xffffffffffffffff, " [0xffffffffffffffff]"}}) {
        std::ostringstream out;
        OutputPointer(reinterpret_cast<void*>(address), &out);
        EXPECT_EQ(out.str(), text);
    }
}

TEST(DemangleSymbols, ReplacesEveryMangledNameAndSkipsInvalidOnes) {
    const std::pair<const char*, const char*> cases[] = {
        {"lib.so(_ZN6Tarsel4Core8Property3AddERKS1_+0x1f) [0x1]",
         "lib.so(Tarsel::Core::Property::Add(Tarsel::Core::Property const&)+0x1f) [0x1]"},
        {"_Z1fv and _Z1gi", "f() and g(int)"},
        {"_Zbogus _Z1fv", "_Zbogus f()"},  // not a mangled name: left, scan goes on
        {"__Z1fv", "_f()"},
        {"no symbols here", "no symbols here"},
        {"trailing _Z", "trailing _Z"},
        {"", ""},
    };
    for (const auto& [in, out] : cases) {
        std::string text = in;
        DemangleSymbols(&text);
        EXPECT_EQ(text, out) << in;
    }
}

TEST(ItoaR, FormatsIntoTheCallersBuffer) {
    // value, buffer size, base, minimum digits, text (null: the call must fail)
    const std::tuple<long, unsigned long, int, unsigned long, const char*> cases[] = {
        {-255, 16, 10, 0, "-255"},
        {255, 16, 16, 4, "00ff"},
        {0, 16, 10, 0, "0"},
        {0, 16, 10, 3, "000"},
        {5, 16, 2, 0, "101"},
        {-1, 32, 16, 0, "ffffffffffffffff"},  // other bases print the bit pattern
        {-9223372036854775807L - 1, 32, 10, 0, "-9223372036854775808"},
        {12345, 6, 10, 0, "12345"},  // exactly fits with its terminator
        {12345, 5, 10, 0, nullptr},  // one byte short
        {-1, 2, 10, 0, nullptr},     // the sign fits, the digit does not
        {-1, 1, 10, 0, nullptr},
        {1, 16, 17, 0, nullptr},
        {1, 16, 1, 0, nullptr},
        {1, 0, 10, 0, nullptr},
    };
    for (const auto& [value, size, base, minDigits, text] : cases) {
        char buffer[32];
        std::fill(std::begin(buffer), std::end(buffer), 'x');
        const char* result = itoa_r(value, buffer, size, base, minDigits);
        if (text == nullptr) {
            EXPECT_EQ(result, nullptr) << value << " base " << base << " size " << size;
            EXPECT_TRUE(size == 0 || buffer[0] == '\0');
        } else {
            EXPECT_EQ(result, buffer);
            EXPECT_STREQ(buffer, text);
        }
    }
}

// Not in an anonymous namespace: the executable exports it, so its frames
// are named.
void CaptureOnAThreadOfItsOwn(std::string* text) {
    for (int round = 0; round < 20; ++round) {
        *text = StackTrace().ToString();
    }
}

// Captures and symbolic renderings on many threads at once: each thread's
// text names its own frames, whatever the others do meanwhile.
TEST(StackTrace, ConcurrentCapturesRenderEachThreadsOwnFrames) {
    constexpr int kThreads = 8;
    std::vector<std::string> texts(kThreads);
    std::vector<std::thread> threads;
    for (std::string& text : texts) {
        threads.emplace_back(CaptureOnAThreadOfItsOwn, &text);
    }
    for (auto& thread : threads) {
        thread.join();
    }
    for (const std::string& text : texts) {
        EXPECT_NE(text.find("CaptureOnAThreadOfItsOwn("), std::string::npos) << text;
        EXPECT_EQ(text.find("TestBody"), std::string::npos) << "a frame of the main thread:\n" << text;
    }
}
