// This file implements call-stack capture and rendering on the platform's
// backtrace facility (the same calls on macOS and glibc).
//
// The fallback rendering runs inside signal handlers, so it formats on the
// stack only: no heap, no locks, no symbol lookup. Writing the text is then
// as safe as the destination: a std::ostream may lock or allocate, so
// PrintBacktrace, the one that writes to a fixed place, writes with write(2).
// Each helper below says whether it is signal-safe.
#include <Core/Interfaces/StackTrace.h>

#include <Core/Interfaces/internal/TextStream.h>

#include <boost/config.hpp>

#include <cxxabi.h>
#include <execinfo.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <ostream>

extern "C" {
int in_signal_handler = 0;
}

namespace Tarsel::Core {

bool StackTrace::s_enabled = false;

namespace {

constexpr char kDigits[] = "0123456789abcdef";

// Signal-safe.
void ReverseInPlace(char* first, char* last) {
    while (first < --last) {
        const char c = *first;
        *first++ = *last;
        *last = c;
    }
}

bool IsMangledNameChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// Signal-safe: the fallback form of one frame, " [0x" + the address in
// lowercase hex, at least 12 digits, + "]", written to out, which has room
// for kMaxPointerText characters; returns their count.
constexpr std::size_t kMinPointerDigits = 12;
constexpr std::size_t kMaxPointerDigits = std::max(kMinPointerDigits, 2 * sizeof(void*));
constexpr std::size_t kMaxPointerText = 4 + kMaxPointerDigits + 1;
std::size_t FormatPointer(void* pointer, char* out) {
    char digits[kMaxPointerDigits] = {};
    std::uintptr_t value = reinterpret_cast<std::uintptr_t>(pointer);
    std::size_t n = 0;
    do {
        digits[n++] = kDigits[value & 0xF];
        value >>= 4;
    } while (value != 0 || n < kMinPointerDigits);
    ReverseInPlace(digits, digits + n);
    const char* const start = out;
    for (const char c : {' ', '[', '0', 'x'}) {
        *out++ = c;
    }
    for (std::size_t i = 0; i < n; ++i) {
        *out++ = digits[i];
    }
    *out++ = ']';
    return static_cast<std::size_t>(out - start);
}

// Signal-safe: all of text to fd, through interrupted and partial writes. It
// gives up on an error, and on a write that takes nothing (a device or file
// system may answer so), which asking again would not change.
void WriteAll(int fd, const char* text, std::size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, text, size);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;  // nowhere left to report it
        }
        text += written;
        size -= static_cast<std::size_t>(written);
    }
}

struct FreeDeleter {
    void operator()(char** p) const noexcept { std::free(p); }
};

}  // namespace

// Not inlined: GetCallStack skips a fixed number of frames, this one included.
BOOST_NOINLINE StackTrace::StackTrace() : m_trace{}, m_count(0), m_offsetBeginLine(0) {
    const int captured = backtrace(m_trace, static_cast<int>(kMaxFrames));
    m_count = captured < 0 ? 0 : static_cast<std::size_t>(captured);
}

StackTrace::~StackTrace() = default;

void StackTrace::SetOffSetBeginLine(unsigned long offset) {
    m_offsetBeginLine = offset;
}

void* const* StackTrace::Addresses(unsigned long* count) const {
    *count = m_count;
    return m_count == 0 ? nullptr : m_trace;
}

// Signal-safe as far as out's own writes are.
void StackTrace::OutputAddresses(std::ostream* out) const {
    for (std::size_t i = 0; i < m_count; ++i) {
        OutputPointer(m_trace[i], out);
        out->put('\n');
    }
}

// Formats on the stack only while in_signal_handler is set; not signal-safe
// otherwise.
void StackTrace::OutputToStream(std::ostream* out) const {
    if (in_signal_handler != 0) {
        OutputAddresses(out);
        return;
    }
    const std::unique_ptr<char*, FreeDeleter> symbols(backtrace_symbols(m_trace, static_cast<int>(m_count)));
    if (!symbols) {
        OutputAddresses(out);
        return;
    }
    for (std::size_t i = m_offsetBeginLine; i < m_count; ++i) {
        std::string line(symbols.get()[i]);
        DemangleSymbols(&line);
        *out << line << '\n';
    }
}

// Signal-safe while in_signal_handler is set: the same text, each frame
// written to standard error with write(2) from the stack.
void StackTrace::PrintBacktrace() const {
    if (in_signal_handler == 0) {
        OutputToStream(&std::cerr);
        return;
    }
    for (std::size_t i = 0; i < m_count; ++i) {
        char line[kMaxPointerText + 1];
        std::size_t length = FormatPointer(m_trace[i], line);
        line[length++] = '\n';
        WriteAll(STDERR_FILENO, line, length);
    }
}

std::string StackTrace::ToString() const {
    TextStream out;
    OutputToStream(&out);
    return out.str();
}

}  // namespace Tarsel::Core

// Signal-safe. A C function, declared outside the library's namespace.
char* itoa_r(long value, char* buf, unsigned long size, int base, unsigned long minDigits) {
    if (size == 0) {
        return nullptr;
    }
    if (base < 2 || base > 16) {
        buf[0] = '\0';
        return nullptr;
    }
    char* start = buf;
    // Other bases print a negative value as its unsigned bit pattern.
    std::uintmax_t magnitude = static_cast<unsigned long>(value);
    if (base == 10 && value < 0) {
        if (size < 2) {
            buf[0] = '\0';
            return nullptr;
        }
        *start++ = '-';
        // Negate in unsigned arithmetic: LONG_MIN has no positive twin.
        magnitude = 0 - magnitude;
    }
    char* ptr = start;
    unsigned long written = static_cast<unsigned long>(start - buf);
    do {
        // One more digit plus the terminator must fit.
        if (written + 2 > size) {
            buf[0] = '\0';
            return nullptr;
        }
        *ptr++ = Tarsel::Core::kDigits[magnitude % static_cast<unsigned>(base)];
        ++written;
        magnitude /= static_cast<unsigned>(base);
        if (minDigits > 0) {
            --minDigits;
        }
    } while (magnitude != 0 || minDigits > 0);
    *ptr = '\0';
    Tarsel::Core::ReverseInPlace(start, ptr);
    return buf;
}

namespace Tarsel::Core {

// Signal-safe as far as out's own writes are.
void OutputPointer(void* pointer, std::ostream* out) {
    char text[kMaxPointerText];
    out->write(text, static_cast<std::streamsize>(FormatPointer(pointer, text)));
}

// Not signal-safe: the runtime's demangler allocates.
void DemangleSymbols(std::string* text) {
    std::string::size_type pos = 0;
    while (pos < text->size()) {
        const std::string::size_type start = text->find("_Z", pos);
        if (start == std::string::npos) {
            return;
        }
        std::string::size_type end = start;
        while (end < text->size() && IsMangledNameChar((*text)[end])) {
            ++end;
        }
        const std::string mangled = text->substr(start, end - start);
        int status = 0;
        const std::unique_ptr<char, void (*)(void*)> demangled(
            abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status), std::free);
        if (status == 0 && demangled) {
            const std::string::size_type length = std::char_traits<char>::length(demangled.get());
            text->replace(start, mangled.size(), demangled.get(), length);
            pos = start + length;
        } else {
            pos = start + 2;
        }
    }
}

}  // namespace Tarsel::Core
