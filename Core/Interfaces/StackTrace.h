/// @file
/// Capture of the current thread's call stack and its rendering as text, with
/// an allocation-free rendering for use inside a signal handler.
#pragma once

#include <Core/Interfaces/Export.h>

#include <cstddef>
#include <iosfwd>
#include <string>

/// A client sets this to non-zero while it runs inside a signal handler; the
/// library then renders stacks without symbol lookup or heap memory.
extern "C" TARSEL_API int in_signal_handler;

/// Async-signal-safe: formats value into buf (size bytes, terminator included)
/// in base 2 to 16 with at least minDigits digits; negative values get a "-"
/// in base 10 and print as their bit pattern in other bases. Returns buf, or
/// null when the base is out of range or the text does not fit (buf[0] is then
/// the terminator, when size allows).
extern "C" TARSEL_API char* itoa_r(long value, char* buf, unsigned long size, int base, unsigned long minDigits);

namespace Tarsel::Core {

/// itoa_r keeps its C name, and is a name of the library's namespace too.
using ::itoa_r;

/// Holds the return addresses of the stack at construction, innermost first.
/// Symbol lookup and demangling are paid only when the stack is rendered.
/// Used by one thread at a time.
class TARSEL_API StackTrace {
public:
    /// The most frames a capture holds.
    static constexpr std::size_t kMaxFrames = 62;

    /// Published by SetCallStackEnabled for clients; nothing in the library
    /// reads it.
    static bool s_enabled;

    /// Captures at once (up to kMaxFrames frames).
    StackTrace();
    /// Frees nothing but the object: the addresses live in it.
    virtual ~StackTrace();

    /// The first frame that the symbolic rendering prints (0 after capture).
    void SetOffSetBeginLine(unsigned long offset);

    /// Writes the frame count into *count; the captured addresses, or null when
    /// there are none.
    void* const* Addresses(unsigned long* count) const;

    /// One line a frame: the platform's symbol line with every mangled name
    /// demangled. While in_signal_handler is set, or when symbols cannot be
    /// had, every frame (the offset ignored) as " [0x<hex address>]" instead.
    void OutputToStream(std::ostream* out) const;
    /// The same text on the standard error stream; while in_signal_handler
    /// is set, written with write(2) from the stack, signal-safe.
    void PrintBacktrace() const;
    /// The same text as a string. Throws std::bad_alloc when memory runs out.
    std::string ToString() const;

private:
    TARSEL_HIDDEN void OutputAddresses(std::ostream* out) const;

    void* m_trace[kMaxFrames];
    std::size_t m_count;
    std::size_t m_offsetBeginLine;
};

/// Signal-safe: writes " [0x" + the address in lowercase hex, at least 12
/// digits, + "]", formatting on the stack only.
TARSEL_API void OutputPointer(void* pointer, std::ostream* out);

/// Not signal-safe: replaces every mangled name ("_Z" followed by letters,
/// digits and "_") in *text by its demangled form; a run that does not demangle
/// is left and the scan goes on two characters after its start.
TARSEL_API void DemangleSymbols(std::string* text);

}  // namespace Tarsel::Core
