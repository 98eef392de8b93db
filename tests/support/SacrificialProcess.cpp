#include "support/SacrificialProcess.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <system_error>
#include <thread>

namespace TAV::test
{
namespace
{

constexpr int kExitAfterException = 3;

[[noreturn]] void runAndExit(const std::function<void()>& body)
{
    try
    {
        body();
    }
    catch (const std::exception& problem)
    {
        static_cast<void>(std::fprintf(stderr, "sacrificial process: %s\n", problem.what()));
        ::_exit(kExitAfterException);
    }
    catch (...)
    {
        ::_exit(kExitAfterException);
    }
    ::_exit(0);
}

} // namespace

SacrificialProcess::SacrificialProcess(const std::function<void()>& body) : m_pid(::fork())
{
    if (m_pid < 0)
        throw std::system_error(errno, std::generic_category(), "fork");
    // On both sides, so that the group exists for whoever comes first.
    ::setpgid(m_pid, m_pid);
    if (m_pid == 0)
    {
        // A test that is killed cannot clean up.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        runAndExit(body);
    }
}

SacrificialProcess::~SacrificialProcess()
{
    kill();
}

std::optional<int> SacrificialProcess::wait(std::chrono::milliseconds patience)
{
    if (!m_status && eventually([this] { return hasEnded(); }, patience))
        reap();
    return m_status;
}

void SacrificialProcess::kill()
{
    if (!m_status)
        reap();
}

bool SacrificialProcess::hasEnded() const
{
    siginfo_t information = {};
    return ::waitid(P_PID, static_cast<id_t>(m_pid), &information, WEXITED | WNOWAIT | WNOHANG) == 0 &&
           information.si_pid == m_pid;
}

void SacrificialProcess::reap()
{
    // The descendants first: once the leader is reaped, its id and the group's may belong to somebody else.
    ::kill(-m_pid, SIGKILL);
    int status = 0;
    ::waitpid(m_pid, &status, 0);
    m_status = status;
}

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds patience)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition())
    {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace TAV::test
