#include "tavctl/ChildProgram.h"

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "common/Text.h"
#include "tavctl/Context.h"

namespace tavctl
{
namespace
{

constexpr int kNotFound = 127;
constexpr int kNotRunnable = 126;
constexpr int kSignalBase = 128;
constexpr int kHandedOn[] = {SIGTERM, SIGHUP};
constexpr int kLeftToChild[] = {SIGINT, SIGQUIT};

std::atomic<pid_t> child{0};
static_assert(std::atomic<pid_t>::is_always_lock_free, "read in a signal handler");

void handOn(int signal)
{
    ::kill(child, signal);
}

/// No signal gets through while it lives.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        ::sigfillset(&all);
        ::sigprocmask(SIG_SETMASK, &all, &m_before);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { ::sigprocmask(SIG_SETMASK, &m_before, nullptr); }

    void end() const { ::sigprocmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_before = {};
};

bool isIgnored(int signal)
{
    struct sigaction action = {};
    ::sigaction(signal, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

void setHandler(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    // Without SA_RESTART: waitForChild() waits again itself, and the thread sanitizer, which puts a handler off until a
    // call has returned, runs it then.
    action.sa_handler = handler;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
}

/// Child: never returns.
[[noreturn]] void
become(const std::vector<std::string>& argv, const struct rlimit& coreLimit, const SignalsBlocked& blocked)
{
    // What this process does at a signal is not to happen here.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    {
        if (!isIgnored(signal))
            setHandler(signal, SIG_DFL);
    }
    blocked.end();
    ::setrlimit(RLIMIT_CORE, &coreLimit);
    std::vector<char*> arguments;
    arguments.reserve(argv.size() + 1);
    for (const std::string& argument : argv)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    ::execvp(arguments.front(), arguments.data());
    const int err = errno;
    static_cast<void>(
        std::fprintf(stderr, "tavctl: %s: %s\n", programs::printable(argv.front()).c_str(), std::strerror(err)));
    ::_exit(err == ENOENT ? kNotFound : kNotRunnable);
}

int waitForChild()
{
    int status = 0;
    while (::waitpid(child, &status, 0) < 0)
    {
        if (errno != EINTR)
            throw Failure(std::string("cannot wait for the program: ") + std::strerror(errno));
    }
    return WIFSIGNALED(status) ? kSignalBase + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace

int runChildProgram(const std::vector<std::string>& argv, const struct rlimit& coreLimit)
{
    {
        const SignalsBlocked blocked;
        child = ::fork();
        if (child < 0)
            throw Failure(std::string("cannot fork: ") + std::strerror(errno));
        if (child == 0)
            become(argv, coreLimit, blocked);
        for (const int signal : kHandedOn)
        {
            if (!isIgnored(signal))
                setHandler(signal, handOn);
        }
        for (const int signal : kLeftToChild)
            setHandler(signal, SIG_IGN);
    }
    return waitForChild();
}

} // namespace tavctl
