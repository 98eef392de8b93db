#include <cerrno>

#include "ChildFixture.h"

namespace TAV
{
namespace
{

using test::Events;
using ::testing::ElementsAre;

/// Whose error value ends up in the account of a failed child, which a command composes and drops.
class ErrorTextTest : public test::ChildFixture
{
protected:
    ErrorTextTest()
    {
        m_system->onWaitpid = [](pid_t pid, int* status, int, int&) { return *status = 0x0100, pid; };
    }

    /// The error values whose texts were asked for.
    Events askedFor() const
    {
        Events texts;
        for (const std::string& event : m_calls.events)
        {
            if (event.rfind("::strerror", 0) == 0)
                texts.push_back(event);
        }
        return texts;
    }

    static Events only(int err) { return {"::strerror(" + std::to_string(err) + ")"}; }
};

TEST_F(ErrorTextTest, IsComposedOnceBetweenReadAndCloseAndNotLogged)
{
    m_system->pid = 4711;
    m_system->onFork = [](int& err) { return err = EAGAIN, 4711; };
    EXPECT_FALSE(execute(nullptr));
    EXPECT_THAT(
        m_calls.events,
        ElementsAre("pipe(flags 0)",
                    "fork()",
                    "log 6 TAVUtils: Child process called to execute the system command :  /bin/tool -a two words",
                    "waitpid(4711, 0)",
                    "read(4, 200)",
                    "::strerror(" + std::to_string(EAGAIN) + ")",
                    "close(4)",
                    "close(6)"));
}

/// Which of the parent's calls leave an error value behind, and which one is asked for.
struct ErrorCase
{
    int byPipe;
    int byFork;
    int byWaitpid;
    int byRead;
    int asked;
};

TEST_F(ErrorTextTest, IsThatOfTheCallThatStoredLast)
{
    constexpr ErrorCase kErrors[] = {
        {0, 0, 0, 0, 0},
        {EMFILE, 0, 0, 0, EMFILE},
        {EMFILE, EAGAIN, 0, 0, EAGAIN},
        {EMFILE, EAGAIN, ECHILD, 0, ECHILD},
        {EMFILE, EAGAIN, ECHILD, EIO, EIO},
        {0, 0, 0, EIO, EIO},
    };
    const auto leave = [](int left, int& err) { err = left != 0 ? left : err; };
    for (const ErrorCase& errors : kErrors)
    {
        m_system->onPipe = [&](std::array<int, 2>& fds, int& err, int) {
            return fds = {4, 6}, leave(errors.byPipe, err), 0;
        };
        m_system->onFork = [&](int& err) { return leave(errors.byFork, err), 4711; };
        m_system->onWaitpid = [&](pid_t pid, int* status, int, int& err)
        { return *status = 0x0100, leave(errors.byWaitpid, err), pid; };
        m_system->onRead = [&](int, void*, std::size_t, int& err) { return leave(errors.byRead, err), ssize_t{0}; };
        EXPECT_FALSE(execute(nullptr));
        EXPECT_EQ(askedFor(), only(errors.asked));
    }
}

TEST_F(ErrorTextTest, InTheChildIncludesTheFirstDuplication)
{
    m_system->onDup2 = [](int oldFd, int newFd, int& err) { return oldFd == 6 ? (err = EBUSY, -1) : newFd; };
    EXPECT_FALSE(execute(nullptr));
    EXPECT_EQ(askedFor(), only(EBUSY));
}

TEST_F(ErrorTextTest, InTheChildIncludesTheOpeningOfDevNull)
{
    m_system->onDup2 = [](int oldFd, int newFd, int& err) { return oldFd == 6 ? (err = EBUSY, -1) : newFd; };
    m_system->onOpen = [](const std::string&, int, int& err) { return err = EINTR, 50; };
    EXPECT_FALSE(execute(nullptr));
    EXPECT_EQ(askedFor(), only(EINTR));
}

TEST_F(ErrorTextTest, InTheChildLeavesOutTheDuplicationsOfDevNull)
{
    m_system->onDup2 = [](int oldFd, int newFd, int& err) { return oldFd == 50 ? (err = EBUSY, -1) : newFd; };
    EXPECT_FALSE(execute(nullptr));
    EXPECT_EQ(askedFor(), only(0));
    EXPECT_FALSE(capture(nullptr));
    EXPECT_EQ(askedFor(), only(0));
}

TEST_F(ErrorTextTest, InTheChildLeavesOutTheClosingOfAPair)
{
    m_system->failCall("close", 1, EIO, test::Lasting::FromThenOn);
    EXPECT_FALSE(capture(nullptr));
    EXPECT_EQ(askedFor(), only(0));
}

TEST_F(ErrorTextTest, LeavesOutWhatTheDirectCallsFailedWith)
{
    m_calls.closeError = EIO;
    m_calls.closeRangeFailsFrom = 1;
    m_calls.closeRangeError = ENOSYS;
    m_calls.limitIsReadable = false;
    m_calls.execvError = E2BIG;
    EXPECT_FALSE(execute(nullptr));
    EXPECT_EQ(askedFor(), only(0));
    EXPECT_FALSE(capture(nullptr));
    EXPECT_EQ(askedFor(), only(0));
}

} // namespace
} // namespace TAV
