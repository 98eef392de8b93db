#include <cerrno>
#include <functional>

#include "ChildFixture.h"

namespace TAV
{
namespace
{

using test::Events;
using test::Interruption;
using test::KeepMap;

/// What the caller's own objects throw in the child passes through both operations, and nothing is done after it.
class ChildExceptionTest : public test::ChildFixture
{
protected:
    using Operation = std::function<void()>;

    /// Has this event of the child throw in an operation.
    void expectToPassThrough(const Operation& operation, const std::string& event)
    {
        m_system->onCall = [&](const std::string& call)
        {
            m_calls.events.push_back(call);
            if (call == event)
                throw Interruption{call};
        };
        m_logger.interruptedAt = event;
        try
        {
            operation();
            ADD_FAILURE() << "nothing came back from " << event;
        }
        catch (const Interruption& interruption)
        {
            EXPECT_EQ(interruption.event, event);
        }
        EXPECT_EQ(m_calls.events.back(), event);
    }

    void expectAllToPassThrough(const Operation& operation, const Events& calls)
    {
        for (const std::string& call : calls)
            expectToPassThrough(operation, call);
    }

    const KeepMap m_keepNothing{};
};

TEST_F(ChildExceptionTest, OfASystemCallPassesThroughExecute)
{
    expectAllToPassThrough([this] { execute(nullptr); },
                           {"dup2(6, 2)", "open(/dev/null, 2)", "dup2(50, 0)", "dup2(50, 1)"});
    expectAllToPassThrough([this] { execute(&m_keepNothing); },
                           {"dup2(-1, 2)", "open(/dev/null, 2)", "dup2(50, 0)", "dup2(50, 1)", "dup2(50, 2)"});
}

TEST_F(ChildExceptionTest, OfASystemCallPassesThroughCapture)
{
    expectAllToPassThrough([this] { capture(nullptr); },
                           {"open(/dev/null, 2)", "dup2(50, 0)", "dup2(6, 2)", "close(4)", "close(6)", "dup2(5, 1)"});
    expectAllToPassThrough([this] { capture(&m_keepNothing); },
                           {"open(/dev/null, 2)", "dup2(50, 0)", "dup2(50, 2)", "dup2(5, 1)"});
}

TEST_F(ChildExceptionTest, OfTheLoggerPassesThroughBoth)
{
    const std::string devNullFailed = "log 2 TAVUtils: Failed to open /dev/null";
    m_system->failCall("open", 1, EMFILE, test::Lasting::FromThenOn);
    expectToPassThrough([this] { execute(nullptr); }, devNullFailed);
    expectToPassThrough([this] { capture(nullptr); }, devNullFailed);
}

TEST_F(ChildExceptionTest, OfTheLoggerPassesThroughFromEachLineOfCapture)
{
    m_system->onDup2 = [](int oldFd, int newFd, int& err) { return oldFd == 50 ? newFd : (err = EBADF, -1); };
    const std::string reason = ". Error was " + test::scriptedErrorText(EBADF);
    expectToPassThrough([this] { capture(nullptr); },
                        "log 2 TAVUtils: Failed to duplicate STDERR in child process" + reason);
    expectToPassThrough([this] { capture(&m_keepNothing); },
                        "log 2 TAVUtils: Failed to duplicate Stdout in child process" + reason);
    m_calls.limitIsReadable = false;
    expectToPassThrough([this] { capture(nullptr); }, "log 2 TAVUtils: Failed to get filelimit");
}

} // namespace
} // namespace TAV
