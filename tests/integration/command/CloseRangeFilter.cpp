#include "CloseRangeFilter.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <stdexcept>

namespace TAV::test
{

void refuseCloseRange(int err)
{
    const auto answer = static_cast<__u32>(SECCOMP_RET_ERRNO | (static_cast<__u32>(err) & SECCOMP_RET_DATA));
    // The number alone decides: these processes make only calls of their own architecture.
    std::array<sock_filter, 4> program{{
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, SYS_close_range},
        {BPF_RET | BPF_K, 0, 0, answer},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    }};
    const sock_fprog filter{program.size(), program.data()};
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
        throw std::runtime_error("the kernel does not accept a system-call filter");
    if (::close_range(INT_MAX, INT_MAX, 0) == 0 || errno != err)
        throw std::runtime_error("close_range is not refused as it should be");
}

} // namespace TAV::test
