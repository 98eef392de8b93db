// The C calls that this program takes over. The libraries' calls end up here since a program's own functions come
// first.
//
// Disarmed, each goes to the kernel or the C library without looking anything up, and without a sanitizer's checks:
// a sanitizer calls some of these before it has started itself. Parameters are named as the C library names them.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "DirectCalls.h"

using TAV::test::g_armedDirectCalls;

extern "C"
{
    long __sysconf(int name); // NOLINT(bugprone-reserved-identifier): the C library's own name for it

    __sighandler_t signal(int sig, __sighandler_t handler) noexcept
    {
        if (g_armedDirectCalls != nullptr)
            return g_armedDirectCalls->noteSignal(sig, handler == SIG_IGN), SIG_DFL;
        struct sigaction action = {};
        struct sigaction before = {};
        action.sa_handler = handler;
        action.sa_flags = SA_RESTART;
        return sigaction(sig, &action, &before) == 0 ? before.sa_handler : SIG_ERR;
    }

    long sysconf(int name) noexcept
    {
        return g_armedDirectCalls != nullptr ? g_armedDirectCalls->answerSysconf(name) : __sysconf(name);
    }

    int getrlimit(__rlimit_resource_t resource, struct rlimit* rlimits) noexcept
    {
        if (g_armedDirectCalls != nullptr)
            return g_armedDirectCalls->answerGetrlimit(static_cast<int>(resource), rlimits);
        return static_cast<int>(syscall(SYS_prlimit64, 0, resource, nullptr, rlimits));
    }

    int close(int fd)
    {
        if (g_armedDirectCalls != nullptr)
            return g_armedDirectCalls->answerClose(fd);
        return static_cast<int>(syscall(SYS_close, fd));
    }

    int close_range(unsigned int fd, unsigned int max_fd, int flags) noexcept
    {
        if (g_armedDirectCalls != nullptr)
            return g_armedDirectCalls->answerCloseRange(fd, max_fd, flags);
        return static_cast<int>(syscall(SYS_close_range, fd, max_fd, flags));
    }

    int execv(const char* path, char* const* argv) noexcept
    {
        if (g_armedDirectCalls != nullptr)
            return g_armedDirectCalls->answerExecv(path, argv);
        return static_cast<int>(syscall(SYS_execve, path, argv, environ));
    }

    char* strerror(int errnum) noexcept
    {
        if (g_armedDirectCalls != nullptr)
            return g_armedDirectCalls->answerStrerror(errnum);
        using Strerror = char* (*)(int);
        static const auto real = reinterpret_cast<Strerror>(dlsym(RTLD_NEXT, "strerror"));
        return real(errnum);
    }
}
