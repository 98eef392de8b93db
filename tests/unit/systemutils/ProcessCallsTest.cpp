#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "tav/TAVSystemUtils.h"

namespace TAV
{
namespace
{

constexpr int kUntouched = 4242;

/// fork and waitpid. No child returns from its test: each leaves by _exit.
class ProcessCallsTest : public ::testing::Test
{
protected:
    TAVSystemUtils m_system;
    int m_err = kUntouched;
    int m_status = kUntouched;
};

TEST_F(ProcessCallsTest, ForksAndWaits)
{
    const pid_t parent = ::getpid();
    const pid_t child = m_system.fork(m_err);
    if (child == 0)
        ::_exit(::getppid() == parent && m_err == kUntouched ? 7 : 8);
    ASSERT_GT(child, 0);
    EXPECT_EQ(m_system.waitpid(child, &m_status, 0, m_err), child);
    EXPECT_EQ(m_status, 7 << 8) << "the raw status";
    EXPECT_EQ(m_err, kUntouched);
}

TEST_F(ProcessCallsTest, TellsTheSignalThatEndedAChild)
{
    const pid_t child = m_system.fork(m_err);
    if (child == 0)
    {
        for (;;)
            ::pause();
    }
    ASSERT_GT(child, 0);
    EXPECT_EQ(::kill(child, SIGKILL), 0);
    EXPECT_EQ(m_system.waitpid(child, &m_status, 0, m_err), child);
    EXPECT_EQ(m_status, SIGKILL);
}

TEST_F(ProcessCallsTest, PassesTheOptionsOfAWaitOn)
{
    const pid_t child = m_system.fork(m_err);
    if (child == 0)
    {
        for (;;)
            ::pause();
    }
    ASSERT_GT(child, 0);
    EXPECT_EQ(m_system.waitpid(child, &m_status, WNOHANG, m_err), 0);
    EXPECT_EQ(m_status, kUntouched);
    EXPECT_EQ(m_err, kUntouched);
    EXPECT_EQ(::kill(child, SIGKILL), 0);
    EXPECT_EQ(m_system.waitpid(child, &m_status, 0, m_err), child);
}

TEST_F(ProcessCallsTest, ReportsThatThereIsNoSuchChild)
{
    EXPECT_EQ(m_system.waitpid(::getpid(), &m_status, 0, m_err), -1);
    EXPECT_EQ(m_err, ECHILD);
    EXPECT_EQ(m_status, kUntouched);
}

/// Signals that interrupt a blocking call. They go on coming, so that one of them surely meets the call.
class Ticking
{
public:
    Ticking()
    {
        struct sigaction ticking = {};
        ticking.sa_handler = [](int) {};
        ::sigaction(SIGALRM, &ticking, &m_before);
        const struct itimerval often = {{0, 20000}, {0, 20000}};
        ::setitimer(ITIMER_REAL, &often, nullptr);
    }
    Ticking(const Ticking&) = delete;
    Ticking& operator=(const Ticking&) = delete;
    ~Ticking()
    {
        const struct itimerval never = {};
        ::setitimer(ITIMER_REAL, &never, nullptr);
        ::sigaction(SIGALRM, &m_before, nullptr);
    }

private:
    struct sigaction m_before = {};
};

TEST_F(ProcessCallsTest, ReportsAWaitThatIsInterrupted)
{
    const pid_t child = m_system.fork(m_err);
    if (child == 0)
    {
        for (;;)
            ::pause();
    }
    ASSERT_GT(child, 0);
    {
        const Ticking ticking;
        EXPECT_EQ(m_system.waitpid(child, &m_status, 0, m_err), -1);
    }
    EXPECT_EQ(m_err, EINTR);
    EXPECT_EQ(::kill(child, SIGKILL), 0);
    EXPECT_EQ(m_system.waitpid(child, &m_status, 0, m_err), child);
}

/// In a child of its own: what fork reports to a user who may have no process more. Never returns.
[[noreturn]] void forkBeyondTheLimit(TAVSystemUtils& system)
{
    const struct rlimit none = {0, 0};
    constexpr uid_t kNobody = 65534;
    if (::setrlimit(RLIMIT_NPROC, &none) != 0 || (::geteuid() == 0 && ::setresuid(kNobody, kNobody, kNobody) != 0))
        ::_exit(100);
    int err = kUntouched;
    const pid_t child = system.fork(err);
    if (child == 0)
        ::_exit(101);
    ::_exit(child == -1 && err == EAGAIN ? 0 : 102);
}

TEST_F(ProcessCallsTest, ReportsWhyItCannotFork)
{
    const pid_t child = m_system.fork(m_err);
    if (child == 0)
        forkBeyondTheLimit(m_system);
    ASSERT_GT(child, 0);
    EXPECT_EQ(m_system.waitpid(child, &m_status, 0, m_err), child);
    EXPECT_EQ(m_status, 0) << "exit code " << (m_status >> 8);
}

} // namespace
} // namespace TAV
