#include <Core/Interfaces/StackTrace.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <regex>
#include <sstream>
#include <streambuf>
#include <string>

using namespace Tarsel::Core;

// Counts the heap allocations this process makes while g_countAllocations is
// set, to prove the signal-handler rendering allocates nothing.
namespace {
std::atomic<bool> g_countAllocations{false};
std::atomic<int> g_allocations{0};
}  // namespace

void* operator new(std::size_t size) {
    if (g_countAllocations) {
        ++g_allocations;
    }
    if (void* p = std::malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

namespace {

// A stream over a fixed buffer: writing to it allocates nothing.
class FixedBuffer : public std::streambuf {
public:
    FixedBuffer() { setp(m_data, m_data + sizeof m_data); }
    std::string Text() const { return std::string(pbase(), pptr()); }

private:
    char m_data[16384];
};

struct SignalHandlerScope {
    SignalHandlerScope() { in_signal_handler = 1; }
    ~SignalHandlerScope() { in_signal_handler = 0; }
};

int LineCount(const std::string& text) {
    int lines = 0;
    for (char c : text) {
        lines += c == '\n';
    }
    return lines;
}

}  // namespace

TEST(StackTrace, OffsetSkipsLeadingFramesAndPastTheEndPrintsNothing) {
    StackTrace trace;
    unsigned long count = 0;
    ASSERT_NE(trace.Addresses(&count), nullptr);
    ASSERT_GT(count, 2u);
    EXPECT_EQ(LineCount(trace.ToString()), static_cast<int>(count));
    trace.SetOffSetBeginLine(2);
    EXPECT_EQ(LineCount(trace.ToString()), static_cast<int>(count) - 2);
    trace.SetOffSetBeginLine(count);
    EXPECT_EQ(trace.ToString(), "");
    trace.SetOffSetBeginLine(count + 10);
    EXPECT_EQ(trace.ToString(), "");
}

TEST(StackTrace, SymbolicLinesNameDemangledFunctions) {
    const std::string text = StackTrace().ToString();
    // This test's body is a member of a class gtest generates for it.
    EXPECT_NE(text.find("StackTrace_SymbolicLinesNameDemangledFunctions_Test::TestBody()"), std::string::npos)
        << text;
}

TEST(StackTrace, SignalHandlerRenderingPrintsEveryFrameAsAddressWithoutAllocating) {
    StackTrace trace;
    trace.SetOffSetBeginLine(3);  // ignored by the fallback
    unsigned long count = 0;
    trace.Addresses(&count);

    FixedBuffer buffer;
    std::ostream out(&buffer);
    {
        SignalHandlerScope inHandler;
        g_allocations = 0;
        g_countAllocations = true;
        trace.OutputToStream(&out);
        g_countAllocations = false;
    }
    EXPECT_EQ(g_allocations.load(), 0);

    const std::string text = buffer.Text();
    std::istringstream lines(text);
    std::string line;
    unsigned long printed = 0;
    const std::regex frame(R"( \[0x[0-9a-f]{12,}\])");
    while (std::getline(lines, line)) {
        EXPECT_TRUE(std::regex_match(line, frame)) << line;
        ++printed;
    }
    EXPECT_EQ(printed, count);
}

TEST(OutputPointer, PadsToTwelveLowercaseHexDigits) {
    const struct {
        std::uintptr_t address;
        const char* text;
    } cases[] = {
        {0x0, " [0x000000000000]"},
        {0xabcdef123, " [0x000abcdef123]"},  // nine digits: three leading zeros
        {0x7fffdeadbeef, " [0x7fffdeadbeef]"},
        {0xffffffffffffffff, " [0xffffffffffffffff]"},
    };
    for (const auto& c : cases) {
        std::ostringstream out;
        OutputPointer(reinterpret_cast<void*>(c.address), &out);
        EXPECT_EQ(out.str(), c.text);
    }
}

TEST(DemangleSymbols, ReplacesEveryMangledNameAndSkipsInvalidOnes) {
    const struct {
        const char* in;
        const char* out;
    } cases[] = {
        {"lib.so(_ZN6Tarsel4Core8Property3AddERKS1_+0x1f) [0x1]",
         "lib.so(Tarsel::Core::Property::Add(Tarsel::Core::Property const&)+0x1f) [0x1]"},
        {"_Z1fv and _Z1gi", "f() and g(int)"},
        {"_Zbogus _Z1fv", "_Zbogus f()"},  // not a mangled name: left, scan goes on
        {"__Z1fv", "_f()"},
        {"no symbols here", "no symbols here"},
        {"trailing _Z", "trailing _Z"},
        {"", ""},
    };
    for (const auto& c : cases) {
        std::string text = c.in;
        DemangleSymbols(&text);
        EXPECT_EQ(text, c.out) << c.in;
    }
}

TEST(ItoaR, FormatsIntoTheCallersBuffer) {
    const struct {
        long value;
        unsigned long size;
        int base;
        unsigned long minDigits;
        const char* text;  // null: the call must fail
    } cases[] = {
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
    for (const auto& c : cases) {
        char buffer[32];
        std::fill(std::begin(buffer), std::end(buffer), 'x');
        const char* result = itoa_r(c.value, buffer, c.size, c.base, c.minDigits);
        if (c.text == nullptr) {
            EXPECT_EQ(result, nullptr) << c.value << " base " << c.base << " size " << c.size;
            if (c.size > 0) {
                EXPECT_EQ(buffer[0], '\0');
            }
        } else {
            EXPECT_EQ(result, buffer);
            EXPECT_STREQ(buffer, c.text);
        }
    }
}
