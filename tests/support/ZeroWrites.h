// Makes a descriptor's writes take nothing, as a device or a file system may
// answer, for the code that writes without memory (the signal-safe paths).
// Compiled from support/linux/ or support/mac/, as CMake picks them.
#pragma once

namespace TarselTest {

// From now on every write(2) to fd in this process returns 0 and writes
// nothing: the system itself answers so (a seccomp filter on Linux). It
// cannot be undone, so it is for a child process of the test only. Returns
// false where the system cannot do it (macOS; Linux under an emulator that
// refuses seccomp filters).
bool MakeWritesTakeNothing(int fd);

}  // namespace TarselTest
