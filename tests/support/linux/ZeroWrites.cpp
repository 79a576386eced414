// Linux: a seccomp filter answers the writes to one descriptor itself, with
// 0 and no error, before the kernel's write(2) runs.
#include "support/ZeroWrites.h"

#include <cstddef>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

namespace TarselTest {

bool MakeWritesTakeNothing(int fd) {
    // The filter looks at the call's number and at the low half of its
    // first argument (the first word on the little-endian machines we build
    // for), not at the call's architecture: it sees the calls of this
    // process, which makes them all as it was built.
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_write, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(fd), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | 0),  // "no error": write returns 0
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program{static_cast<unsigned short>(sizeof filter / sizeof filter[0]), filter};
    // An unprivileged process may filter its own calls once it can gain no
    // privileges.
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace TarselTest
