// refuse_call: makes a system call fail, as another kernel, file system or a broken disk would.
#pragma once

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include <cstddef>
#include <cstdlib>

namespace faxtray {

// From now on, and for good, system call `number` fails with `error` in this process; with `flags` only when
// its third argument has one of them.
inline void refuse_call(unsigned number, unsigned error, unsigned flags = 0)
{
    const unsigned has_flags = BPF_JMP | BPF_K | (flags ? BPF_JSET : BPF_JGE);
    struct sock_filter rules[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                                  BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 3),
                                  BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
                                  BPF_JUMP(has_flags, flags, 0, 1),
                                  BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
                                  BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const struct sock_fprog program = {6, rules};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
        abort();
}

}  // namespace faxtray
