#include <cerrno>
#include <stdexcept>

#include "CommandFixture.h"

namespace TAV
{
namespace
{

using test::KeepMap;
using test::line;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

const auto kStarted = line(6, "Child process called to execute the system command :  /bin/tool -a two words");

/// The parent's side of a command: what it asks of the system, logs and answers.
class CommandExecutionTest : public test::CommandFixture
{
};

TEST_F(CommandExecutionTest, RunsNothingWithoutArguments)
{
    const KeepMap keepsStderr{{2, true}};
    for (const KeepMap* keep : {static_cast<const KeepMap*>(nullptr), &keepsStderr, &m_withoutStderr})
        EXPECT_FALSE(m_utils.executeSystemCommand({}, keep));
    EXPECT_THAT(m_system->calls(), IsEmpty());
    EXPECT_THAT(m_logger.lines(), IsEmpty());
}

TEST_F(CommandExecutionTest, MakesAPipeForksWaitsAndClosesThePipe)
{
    EXPECT_TRUE(m_utils.executeSystemCommand(m_command, nullptr));
    EXPECT_THAT(m_system->calls(),
                ElementsAre("pipe(flags 0)", "fork()", "waitpid(4711, 0)", "close(40)", "close(41)"));
    EXPECT_THAT(m_logger.lines(), ElementsAre(kStarted));
    EXPECT_THAT(m_system->openFds, IsEmpty());
}

TEST_F(CommandExecutionTest, ReadsTheStderrOfAFailedChildBeforeClosing)
{
    m_system->status = exited(1);
    EXPECT_FALSE(m_utils.executeSystemCommand(m_command, nullptr));
    EXPECT_THAT(m_system->calls(),
                ElementsAre("pipe(flags 0)", "fork()", "waitpid(4711, 0)", "read(40, 200)", "close(40)", "close(41)"));
    EXPECT_THAT(m_system->openFds, IsEmpty());
}

TEST_F(CommandExecutionTest, DoesNotLogWhyTheChildFailed)
{
    m_system->status = exited(1);
    EXPECT_FALSE(m_utils.executeSystemCommand(m_command, nullptr));
    EXPECT_THAT(m_logger.lines(), ElementsAre(kStarted));
}

TEST_F(CommandExecutionTest, MakesNoPipeForAMapThatDoesNotKeepStderr)
{
    const KeepMap saysNo{{2, false}, {1, true}};
    const KeepMap empty;
    for (const KeepMap* keep : {&m_withoutStderr, &saysNo, &empty})
    {
        m_system->takeCalls();
        EXPECT_TRUE(m_utils.executeSystemCommand(m_command, keep));
        EXPECT_THAT(m_system->calls(), ElementsAre("fork()", "waitpid(4711, 0)", "close(-1)", "close(-1)"));
    }
    EXPECT_THAT(m_logger.lines(), ElementsAre(kStarted, kStarted, kStarted));
}

TEST_F(CommandExecutionTest, AFailureWithoutAPipeReadsNoRealDescriptor)
{
    m_system->status = exited(3);
    EXPECT_FALSE(m_utils.executeSystemCommand(m_command, &m_withoutStderr));
    EXPECT_THAT(m_system->calls(),
                ElementsAre("fork()", "waitpid(4711, 0)", "read(-1, 200)", "close(-1)", "close(-1)"));
    EXPECT_THAT(m_logger.lines(), ElementsAre(kStarted));
}

TEST_F(CommandExecutionTest, MakesAPipeForAMapThatKeepsStderr)
{
    const KeepMap keep{{0, true}, {2, true}, {7, true}};
    EXPECT_TRUE(m_utils.executeSystemCommand(m_command, &keep));
    EXPECT_THAT(m_system->calls(),
                ElementsAre("pipe(flags 0)", "fork()", "waitpid(4711, 0)", "close(40)", "close(41)"));
    EXPECT_EQ(keep, (KeepMap{{0, true}, {2, true}, {7, true}}));
}

TEST_F(CommandExecutionTest, GivesUpWithoutAPipe)
{
    for (const int result : {-1, 1, 7})
    {
        m_system->onPipe = [result](std::array<int, 2>&, int&, int) { return result; };
        EXPECT_FALSE(m_utils.executeSystemCommand(m_command, nullptr)) << result;
    }
    const auto failed = line(2, "Failed to create Pipe FD to execute system command");
    EXPECT_THAT(m_logger.lines(), ElementsAre(failed, failed, failed));
    EXPECT_THAT(m_system->calls(), ElementsAre("pipe(flags 0)", "pipe(flags 0)", "pipe(flags 0)"));
}

TEST_F(CommandExecutionTest, ClosesThePipeWhenItCannotFork)
{
    m_system->pid = -1;
    EXPECT_FALSE(m_utils.executeSystemCommand(m_command, nullptr));
    EXPECT_THAT(m_system->calls(), ElementsAre("pipe(flags 0)", "fork()", "close(40)", "close(41)"));
    EXPECT_THAT(m_logger.lines(), ElementsAre(line(2, "Failed to fork process to execute system command")));
}

TEST_F(CommandExecutionTest, TouchesNoRealDescriptorWhenItCannotForkWithoutAPipe)
{
    m_system->pid = -1;
    EXPECT_FALSE(m_utils.executeSystemCommand(m_command, &m_withoutStderr));
    EXPECT_THAT(m_system->calls(), ElementsAre("fork()", "close(-1)", "close(-1)"));
    EXPECT_THAT(m_logger.lines(), ElementsAre(line(2, "Failed to fork process to execute system command")));
}

TEST_F(CommandExecutionTest, GivesUpWhenTheWaitAnswersAnythingButTheChild)
{
    const auto failed = line(2, "Failed to wait for child pid exit status in execute system command");
    std::vector<test::LogLine> expected;
    for (const pid_t answer : {-1, 0, 4710, 4712})
    {
        m_system->onWaitpid = [answer](pid_t, int*, int, int&) { return answer; };
        EXPECT_FALSE(m_utils.executeSystemCommand(m_command, nullptr)) << answer;
        expected.insert(expected.end(), {kStarted, failed});
    }
    EXPECT_THAT(m_logger.lines(), ElementsAreArray(expected));
    EXPECT_EQ(m_system->countOf("read"), 0U);
    EXPECT_THAT(m_system->openFds, IsEmpty());
}

TEST_F(CommandExecutionTest, DoesNotWaitAgainAfterAnInterruption)
{
    m_system->failCall("waitpid", 1, EINTR);
    EXPECT_FALSE(m_utils.executeSystemCommand(m_command, nullptr));
    EXPECT_THAT(m_system->calls(),
                ElementsAre("pipe(flags 0)", "fork()", "waitpid(4711, 0)", "close(40)", "close(41)"));
}

TEST_F(CommandExecutionTest, DoesNotReadAgainAfterAnInterruption)
{
    m_system->status = exited(1);
    m_system->failCall("read", 1, EINTR);
    EXPECT_FALSE(m_utils.executeSystemCommand(m_command, nullptr));
    EXPECT_EQ(m_system->countOf("read"), 1U);
    EXPECT_THAT(m_system->openFds, IsEmpty());
}

TEST_F(CommandExecutionTest, SaysThatThereIsNoStderrWhenTheReadEndIsZero)
{
    m_system->pipeFds = {0, 41};
    m_system->status = exited(1);
    EXPECT_FALSE(m_utils.executeSystemCommand(m_command, nullptr));
    EXPECT_THAT(m_logger.lines(), ElementsAre(kStarted, line(6, "Stderr is not available to read")));
    EXPECT_THAT(m_system->calls(), ElementsAre("pipe(flags 0)", "fork()", "waitpid(4711, 0)")) << "the pair stays open";
}

TEST_F(CommandExecutionTest, AReadEndOfZeroDoesNotMatterToSuccess)
{
    m_system->pipeFds = {0, 41};
    EXPECT_TRUE(m_utils.executeSystemCommand(m_command, nullptr));
    EXPECT_THAT(m_system->calls(), ElementsAre("pipe(flags 0)", "fork()", "waitpid(4711, 0)", "close(0)", "close(41)"));
    EXPECT_THAT(m_logger.lines(), ElementsAre(kStarted));
}

TEST_F(CommandExecutionTest, OffersAZeroedBufferOf201Bytes)
{
    m_system->status = exited(1);
    m_system->onRead = [](int, void* buffer, std::size_t count, int&)
    {
        EXPECT_EQ(count, 200U);
        EXPECT_EQ(std::string(static_cast<const char*>(buffer), 201), std::string(201, '\0'));
        std::memset(buffer, 'x', count);
        return static_cast<ssize_t>(count);
    };
    EXPECT_FALSE(m_utils.executeSystemCommand(m_command, nullptr));
    EXPECT_EQ(m_system->countOf("read"), 1U);
}

TEST_F(CommandExecutionTest, LogsABlankBeforeEachArgument)
{
    const std::map<std::vector<std::string>, std::string> expected{
        {{"a"}, " a"},
        {{""}, " "},
        {{"", ""}, "  "},
        {{"/bin/sh", "-c", "echo  x"}, " /bin/sh -c echo  x"},
        {{std::string("a\0b", 3), "\xff\n%s"}, std::string(" a\0b \xff\n%s", 9)},
    };
    std::vector<test::LogLine> lines;
    for (const auto& [argv, text] : expected)
    {
        EXPECT_TRUE(m_utils.executeSystemCommand(argv, &m_withoutStderr));
        lines.push_back(line(6, "Child process called to execute the system command : " + text));
    }
    EXPECT_THAT(m_logger.lines(), ElementsAreArray(lines));
}

TEST_F(CommandExecutionTest, AnnouncesTheCommandAfterForkAndBeforeTheWait)
{
    std::vector<std::size_t> linesAtCall;
    m_system->onCall = [&](const std::string&) { linesAtCall.push_back(m_logger.lines().size()); };
    EXPECT_TRUE(m_utils.executeSystemCommand(m_command, &m_withoutStderr));
    EXPECT_THAT(linesAtCall, ElementsAre(0U, 1U, 1U, 1U)) << "at fork, waitpid, close, close";
}

TEST_F(CommandExecutionTest, EachCallStartsAfresh)
{
    m_system->status = exited(1);
    EXPECT_FALSE(m_utils.executeSystemCommand(m_command, nullptr));
    m_system->status = 0;
    EXPECT_TRUE(m_utils.executeSystemCommand(m_command, &m_withoutStderr));
    EXPECT_TRUE(m_utils.executeSystemCommand(m_command, nullptr));
    EXPECT_THAT(m_system->openFds, IsEmpty());
    EXPECT_TRUE(m_utils.isCGroupsSupported());
}

/// Spoils the component name that it was handed.
class GreedyLogger : public ILogger
{
public:
    void log(int, std::string) override { FAIL() << "the operation without component"; }
    void log(int, std::string component, const std::string&) override
    {
        components.push_back(component);
        component.assign(100, '#');
    }
    std::vector<std::string> components;
};

TEST(CommandLoggingTest, HandsEachLineItsOwnCopyOfTheComponent)
{
    const auto system = std::make_shared<test::ImaginarySystem>();
    system->pid = -1;
    GreedyLogger logger;
    TAVUtils utils(system, logger, std::make_shared<kernelVersion>(kernelVersion{2, 6, 18}));
    utils.executeSystemCommand({"a"}, nullptr);
    utils.executeSystemCommand({"b"}, nullptr);
    EXPECT_THAT(logger.components, ElementsAre("TAVUtils", "TAVUtils", "TAVUtils"));
}

struct StatusCase
{
    int status;
    bool succeeded;
    const char* meaning;
};

constexpr StatusCase kStatuses[] = {
    {0x0000, true, "exit 0"},
    {0x0100, false, "exit 1"},
    {0x7f00, false, "exit 127"},
    {0x8000, false, "exit 128"},
    {0xff00, false, "exit 255"},
    {0x0001, false, "killed by signal 1"},
    {0x0009, false, "killed by SIGKILL"},
    {0x000f, false, "killed by SIGTERM"},
    {0x0040, false, "killed by signal 64"},
    {0x008b, false, "killed by SIGSEGV, core dumped"},
    {0x0080, true, "only the core bit, which is not looked at"},
    {0x0109, false, "both fields set"},
    {0x137f, false, "stopped"},
    {0x007f, false, "all signal bits"},
    {0xffff, false, "continued"},
    {0x10000, true, "only bits above the two fields"},
    {0x10100, false, "exit 1 with bits above"},
    {-1, false, "all bits"},
};

TEST_F(CommandExecutionTest, SucceedsOnlyForANormalExitWithCodeZero)
{
    for (const StatusCase& ending : kStatuses)
    {
        m_system->status = ending.status;
        EXPECT_EQ(m_utils.executeSystemCommand(m_command, nullptr), ending.succeeded) << ending.meaning;
        EXPECT_EQ(m_utils.executeSystemCommand(m_command, &m_withoutStderr), ending.succeeded) << ending.meaning;
    }
    EXPECT_THAT(m_system->openFds, IsEmpty());
}

TEST_F(CommandExecutionTest, CaptureJudgesAStatusAlike)
{
    std::array<int, 2> outPipe{60, 61};
    for (const StatusCase& ending : kStatuses)
    {
        m_system->status = ending.status;
        EXPECT_EQ(m_utils.readSystemCommandOutput(m_command, nullptr, outPipe.data()), ending.succeeded)
            << ending.meaning;
    }
}

} // namespace
} // namespace TAV
