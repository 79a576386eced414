// macOS: a process cannot make the system answer its own writes.
#include "support/ZeroWrites.h"

namespace TarselTest {

bool MakeWritesTakeNothing(int) {
    return false;
}

}  // namespace TarselTest
