#include <cerrno>
#include <functional>
#include <stdexcept>

#include "CommandFixture.h"

namespace TAV
{
namespace
{

using test::ImaginarySystem;
using test::KeepMap;
using test::line;
using test::LogLine;
using test::RecordingLogger;
using ::testing::ElementsAreArray;

constexpr int kErrorValues[] = {EPERM, EINTR, EIO, EBADF, ECHILD, EAGAIN, ENOMEM, EINVAL, ENFILE, EMFILE};

/// One way to run a command, and what its parent says.
struct Operation
{
    const char* name;
    bool captures;
    bool hasPipe;
    const char* forkFailed;
    const char* waitFailed;

    bool run(const std::shared_ptr<ImaginarySystem>& system, ILogger& logger) const
    {
        TAVUtils utils(system, logger, std::make_shared<kernelVersion>(kernelVersion{5, 10, 0}));
        const KeepMap withoutStderr{{1, true}};
        const KeepMap* keep = hasPipe ? nullptr : &withoutStderr;
        std::array<int, 2> outPipe{60, 61};
        return captures ? utils.readSystemCommandOutput({"/bin/tool"}, keep, outPipe.data())
                        : utils.executeSystemCommand({"/bin/tool"}, keep);
    }
};

constexpr const char* kPipeFailed = "Failed to create Pipe FD to execute system command";
constexpr const char* kForkFailed = "Failed to fork process to execute system command";
constexpr const char* kWaitFailed = "Failed to wait for child pid exit status in execute system command";
constexpr const char* kCaptureForkFailed = "Failed to fork process to read system command output";
constexpr const char* kCaptureWaitFailed = "Failed to wait for child pid exit status in read system command";

constexpr Operation kOperations[] = {
    {"Execution", false, true, kForkFailed, kWaitFailed},
    {"ExecutionWithoutPipe", false, false, kForkFailed, kWaitFailed},
    {"Capture", true, true, kCaptureForkFailed, kCaptureWaitFailed},
    {"CaptureWithoutPipe", true, false, kCaptureForkFailed, kCaptureWaitFailed},
};

class CommandFailureSweepTest : public ::testing::TestWithParam<Operation>
{
protected:
    /// The lines of a run whose child ends with `status`, and in which `failing` fails with `err`.
    static std::vector<LogLine> expectedLines(const std::string& failing, int err, int status)
    {
        const Operation& operation = GetParam();
        if (failing == "pipe")
            return {line(2, kPipeFailed)};
        if (failing == "fork")
            return {line(2, operation.forkFailed)};
        std::vector<LogLine> lines;
        if (!operation.captures)
            lines.push_back(line(6, "Child process called to execute the system command :  /bin/tool"));
        if (failing == "waitpid")
            lines.push_back(line(2, operation.waitFailed));
        else if (operation.captures && status != 0)
            lines.push_back(abnormalExit(failing == "read" ? err : 0, failing != "read"));
        return lines;
    }

    static LogLine abnormalExit(int err, bool isRead)
    {
        return line(2,
                    "Child exited abnormally in reading system command output with return status 256 and errno - " +
                        std::string(std::strerror(err)) + "." +
                        (isRead ? " Stderr is - went wrong" : " Stderr could not be read."));
    }

    /// What may fail here, and nothing.
    static std::vector<const char*> failingCalls()
    {
        std::vector<const char*> calls{"", "fork", "waitpid", "read", "close"};
        if (GetParam().hasPipe)
            calls.push_back("pipe");
        return calls;
    }

    /// Makes such a run and compares all that can be seen of it.
    static void check(const std::string& failing, int err, int status)
    {
        SCOPED_TRACE(failing + " fails with " + std::to_string(err) + ", status " + std::to_string(status));
        const auto system = std::make_shared<ImaginarySystem>();
        system->status = status;
        system->failCall(failing, 1, err);
        RecordingLogger logger;
        const bool mayFail = failing.empty() || failing == "close" || failing == "read";
        EXPECT_EQ(GetParam().run(system, logger), status == 0 && mayFail);
        EXPECT_THAT(logger.lines(), ElementsAreArray(expectedLines(failing, err, status)));
        EXPECT_THAT(system->calls(), ElementsAreArray(expectedCalls(failing, status)));
        EXPECT_EQ(system->openFds.size(), failing == "close" && GetParam().hasPipe ? 1U : 0U);
    }

    /// The calls of such a run.
    static std::vector<std::string> expectedCalls(const std::string& failing, int status)
    {
        std::vector<std::string> calls;
        if (GetParam().hasPipe)
            calls.emplace_back("pipe(flags 0)");
        if (failing == "pipe")
            return calls;
        calls.emplace_back("fork()");
        if (failing != "fork")
        {
            calls.emplace_back("waitpid(4711, 0)");
            if (failing != "waitpid" && status != 0)
                calls.emplace_back(GetParam().hasPipe ? "read(40, 200)" : "read(-1, 200)");
        }
        if (GetParam().hasPipe)
            calls.insert(calls.end(), {"close(40)", "close(41)"});
        else
            calls.insert(calls.end(), {"close(-1)", "close(-1)"});
        return calls;
    }
};

TEST_P(CommandFailureSweepTest, EachFailingCallHasItsOneOutcome)
{
    for (const int status : {0x0000, 0x0100})
    {
        for (const char* const failing : failingCalls())
        {
            for (const int err : kErrorValues)
                check(failing, err, status);
        }
    }
}

TEST_P(CommandFailureSweepTest, AFailingCloseChangesNothing)
{
    for (const int err : kErrorValues)
    {
        const auto system = std::make_shared<ImaginarySystem>();
        system->status = 0x0100;
        system->failCall("close", 1, err, test::Lasting::FromThenOn);
        RecordingLogger logger;
        EXPECT_FALSE(GetParam().run(system, logger));
        EXPECT_THAT(logger.lines(), ElementsAreArray(expectedLines("close", err, 0x0100)));
        EXPECT_THAT(system->calls(), ElementsAreArray(expectedCalls("close", 0x0100)));
    }
}

/// Not an exception of the standard library, so that only catching everything could swallow it.
struct Interruption
{
    std::string call;
};

TEST_P(CommandFailureSweepTest, AnExceptionOfAnySystemCallReachesTheCaller)
{
    const std::vector<std::string> calls = expectedCalls("", 0x0100);
    for (std::size_t number = 1; number <= calls.size(); ++number)
    {
        const auto system = std::make_shared<ImaginarySystem>();
        system->status = 0x0100;
        system->onCall = [&](const std::string& call)
        {
            if (system->calls().size() == number)
                throw Interruption{call};
        };
        RecordingLogger logger;
        try
        {
            GetParam().run(system, logger);
            ADD_FAILURE() << "call " << number << " did not throw";
        }
        catch (const Interruption& interruption)
        {
            EXPECT_EQ(interruption.call, calls[number - 1]);
        }
    }
}

class ThrowingLogger : public ILogger
{
public:
    explicit ThrowingLogger(std::string message) : m_message(std::move(message)) {}
    void log(int, std::string) override {}
    void log(int, std::string, const std::string& message) override
    {
        if (message == m_message)
            throw std::length_error(message);
    }

private:
    std::string m_message;
};

/// Whether a run in which `failing` fails hands on what the logger throws at this line.
bool handsOn(const Operation& operation, const std::string& failing, const LogLine& doomed)
{
    const auto system = std::make_shared<ImaginarySystem>();
    system->status = 0x0100;
    system->failCall(failing, 1, EIO);
    ThrowingLogger logger(doomed.message);
    try
    {
        operation.run(system, logger);
        return false;
    }
    catch (const std::length_error& exception)
    {
        return exception.what() == doomed.message;
    }
}

TEST_P(CommandFailureSweepTest, AnExceptionOfTheLoggerReachesTheCaller)
{
    unsigned int tried = 0;
    for (const char* const failing : failingCalls())
    {
        for (const LogLine& doomed : expectedLines(failing, EIO, 0x0100))
        {
            EXPECT_TRUE(handsOn(GetParam(), failing, doomed)) << doomed;
            ++tried;
        }
    }
    EXPECT_GE(tried, 4U);
}

INSTANTIATE_TEST_SUITE_P(Operations,
                         CommandFailureSweepTest,
                         ::testing::ValuesIn(kOperations),
                         [](const auto& tested) { return tested.param.name; });

} // namespace
} // namespace TAV
