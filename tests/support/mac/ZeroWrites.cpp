// macOS has no seccomp filters, nor another way for a process to have the
// system answer its own writes.
#include "support/ZeroWrites.h"

namespace TarselTest {

bool MakeWritesTakeNothing(int) {
    return false;
}

}  // namespace TarselTest
