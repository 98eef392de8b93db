#include <cerrno>
#include <clocale>
#include <locale>

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

const std::string kAbnormal = "Child exited abnormally in reading system command output with return status ";

/// The parent's side of an output capture.
class OutputCaptureTest : public test::CommandFixture
{
protected:
    bool capture(const KeepMap* keep = nullptr)
    {
        return m_utils.readSystemCommandOutput(m_command, keep, m_outPipe.data());
    }

    /// The line that reports an abnormal end of the child with code 1.
    static test::LogLine failure(int err, const std::string& stderrAccount)
    {
        return line(2, kAbnormal + "256 and errno - " + std::strerror(err) + "." + stderrAccount);
    }

    std::array<int, 2> m_outPipe{60, 61};
};

TEST_F(OutputCaptureTest, RunsNothingWithoutArguments)
{
    EXPECT_FALSE(m_utils.readSystemCommandOutput({}, nullptr, m_outPipe.data()));
    EXPECT_FALSE(m_utils.readSystemCommandOutput({}, &m_withoutStderr, m_outPipe.data()));
    EXPECT_FALSE(m_utils.readSystemCommandOutput({}, nullptr, nullptr));
    EXPECT_THAT(m_system->calls(), IsEmpty());
    EXPECT_THAT(m_logger.lines(), IsEmpty());
}

TEST_F(OutputCaptureTest, RunsNothingWithoutAnOutputPipe)
{
    EXPECT_FALSE(m_utils.readSystemCommandOutput(m_command, nullptr, nullptr));
    EXPECT_FALSE(m_utils.readSystemCommandOutput(m_command, &m_withoutStderr, nullptr));
    EXPECT_THAT(m_system->calls(), IsEmpty());
    EXPECT_THAT(m_logger.lines(), IsEmpty());
}

TEST_F(OutputCaptureTest, MakesAPipeForksWaitsAndClosesThePipe)
{
    EXPECT_TRUE(capture());
    EXPECT_THAT(m_system->calls(),
                ElementsAre("pipe(flags 0)", "fork()", "waitpid(4711, 0)", "close(40)", "close(41)"));
    EXPECT_THAT(m_logger.lines(), IsEmpty()) << "a capture does not announce its command";
}

TEST_F(OutputCaptureTest, LeavesTheCallersPipeAloneInTheParent)
{
    for (const int status : {exited(0), exited(1)})
    {
        m_system->status = status;
        capture();
        capture(&m_withoutStderr);
    }
    m_system->pid = -1;
    capture();
    EXPECT_THAT(m_outPipe, ElementsAre(60, 61));
    EXPECT_THAT(m_system->calls(), ::testing::Not(::testing::Contains(::testing::HasSubstr("6"))));
}

TEST_F(OutputCaptureTest, LogsTheStderrOfAFailedChild)
{
    m_system->status = exited(1);
    EXPECT_FALSE(capture());
    EXPECT_THAT(m_system->calls(),
                ElementsAre("pipe(flags 0)", "fork()", "waitpid(4711, 0)", "read(40, 200)", "close(40)", "close(41)"));
    EXPECT_THAT(m_logger.lines(), ElementsAre(failure(0, " Stderr is - went wrong")));
    EXPECT_THAT(m_system->openFds, IsEmpty());
}

TEST_F(OutputCaptureTest, LogsBeforeItCloses)
{
    m_system->status = exited(1);
    std::vector<std::size_t> linesAtCall;
    m_system->onCall = [&](const std::string&) { linesAtCall.push_back(m_logger.lines().size()); };
    EXPECT_FALSE(capture());
    EXPECT_THAT(linesAtCall, ElementsAre(0U, 0U, 0U, 0U, 1U, 1U));
}

TEST_F(OutputCaptureTest, ReportsTheRawStatusInDecimal)
{
    const std::map<int, std::string> expected{
        {0x0100, "256"}, {0xff00, "65280"}, {9, "9"}, {0x8b, "139"}, {0x137f, "4991"}, {-1, "-1"}};
    std::vector<test::LogLine> lines;
    for (const auto& [status, text] : expected)
    {
        m_system->status = status;
        EXPECT_FALSE(capture());
        lines.push_back(line(2, kAbnormal + text + " and errno - Success. Stderr is - went wrong"));
    }
    EXPECT_THAT(m_logger.lines(), ElementsAreArray(lines));
}

/// Groups digits, as many a user's locale does.
class GroupingNumbers : public std::numpunct<char>
{
protected:
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(OutputCaptureTest, ReportsTheStatusAlikeUnderAnyLocale)
{
    m_system->status = exited(255);
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new GroupingNumbers));
    EXPECT_FALSE(capture());
    std::locale::global(before);
    EXPECT_THAT(m_logger.lines(),
                ElementsAre(line(2, kAbnormal + "65280 and errno - Success. Stderr is - went wrong")));
}

TEST_F(OutputCaptureTest, ReportsAtMost200BytesOfStderr)
{
    m_system->status = exited(1);
    std::vector<test::LogLine> lines;
    for (const std::size_t size : {1U, 199U, 200U, 201U, 5000U})
    {
        std::string text(size, 'x');
        text.back() = 'y';
        m_system->stderrText = text;
        EXPECT_FALSE(capture());
        lines.push_back(failure(0, " Stderr is - " + text.substr(0, 200)));
    }
    EXPECT_THAT(m_logger.lines(), ElementsAreArray(lines));
}

TEST_F(OutputCaptureTest, ReportsStderrUpToItsFirstZeroByte)
{
    m_system->status = exited(1);
    std::vector<test::LogLine> lines;
    for (const std::string& text : {std::string("abc\0def", 7), std::string("\0abc", 4), std::string(200, '\0')})
    {
        m_system->stderrText = text;
        EXPECT_FALSE(capture());
        lines.push_back(failure(0, " Stderr is - " + text.substr(0, text.find('\0'))));
    }
    EXPECT_THAT(m_logger.lines(), ElementsAreArray(lines));
}

TEST_F(OutputCaptureTest, ReportsBytesAsTheyAre)
{
    m_system->status = exited(1);
    m_system->stderrText = "\xff%s\n\t";
    EXPECT_FALSE(capture());
    EXPECT_THAT(m_logger.lines(), ElementsAre(failure(0, " Stderr is - \xff%s\n\t")));
}

TEST_F(OutputCaptureTest, SaysSoWhenThereIsNoStderr)
{
    m_system->status = exited(1);
    m_system->stderrText.clear();
    EXPECT_FALSE(capture());
    m_system->failCall("read", 1, EIO);
    EXPECT_FALSE(capture());
    EXPECT_THAT(m_logger.lines(),
                ElementsAre(failure(0, " Stderr could not be read."), failure(EIO, " Stderr could not be read.")));
    EXPECT_THAT(m_system->openFds, IsEmpty());
}

TEST_F(OutputCaptureTest, DoesNotTrustABufferWhoseReadFailed)
{
    m_system->status = exited(1);
    m_system->onRead = [](int, void* buffer, std::size_t count, int& err)
    {
        std::memset(buffer, 'x', count);
        err = EFAULT;
        return ssize_t{-1};
    };
    EXPECT_FALSE(capture());
    EXPECT_THAT(m_logger.lines(), ElementsAre(failure(EFAULT, " Stderr could not be read.")));
}

TEST_F(OutputCaptureTest, OffersAZeroedBufferOf201Bytes)
{
    m_system->status = exited(1);
    m_system->onRead = [](int, void* buffer, std::size_t, int&)
    {
        EXPECT_EQ(std::string(static_cast<const char*>(buffer), 201), std::string(201, '\0'));
        return ssize_t{0};
    };
    EXPECT_FALSE(capture());
    EXPECT_FALSE(capture());
    EXPECT_EQ(m_system->countOf("read"), 2U);
}

TEST_F(OutputCaptureTest, MakesNoPipeForAMapThatDoesNotKeepStderr)
{
    const KeepMap saysNo{{2, false}, {7, true}};
    const KeepMap empty;
    std::vector<std::string> calls;
    for (const KeepMap* keep : {&m_withoutStderr, &saysNo, &empty})
    {
        EXPECT_TRUE(capture(keep));
        calls.insert(calls.end(), {"fork()", "waitpid(4711, 0)", "close(-1)", "close(-1)"});
    }
    EXPECT_THAT(m_system->calls(), ElementsAreArray(calls));
    EXPECT_EQ(saysNo, (KeepMap{{2, false}, {7, true}})) << "the caller's map must not change";
}

TEST_F(OutputCaptureTest, AFailureWithoutAPipeStillReadsTheUnmadePair)
{
    m_system->status = exited(1);
    m_system->onRead = [](int, void*, std::size_t, int& err) { return err = EBADF, ssize_t{-1}; };
    EXPECT_FALSE(capture(&m_withoutStderr));
    EXPECT_THAT(m_system->calls(),
                ElementsAre("fork()", "waitpid(4711, 0)", "read(-1, 200)", "close(-1)", "close(-1)"));
    EXPECT_THAT(m_logger.lines(), ElementsAre(failure(EBADF, " Stderr could not be read.")));
}

TEST_F(OutputCaptureTest, MakesAPipeForAMapThatKeepsStderr)
{
    const KeepMap keep{{0, true}, {2, true}, {7, true}};
    EXPECT_TRUE(capture(&keep));
    EXPECT_THAT(m_system->calls(),
                ElementsAre("pipe(flags 0)", "fork()", "waitpid(4711, 0)", "close(40)", "close(41)"));
}

TEST_F(OutputCaptureTest, AReadEndOfZeroIsReadLikeAnyOther)
{
    m_system->pipeFds = {0, 41};
    m_system->status = exited(1);
    EXPECT_FALSE(capture());
    EXPECT_THAT(m_system->calls(),
                ElementsAre("pipe(flags 0)", "fork()", "waitpid(4711, 0)", "read(0, 200)", "close(0)", "close(41)"));
    EXPECT_THAT(m_logger.lines(), ElementsAre(failure(0, " Stderr is - went wrong")));
}

TEST_F(OutputCaptureTest, GivesUpWithoutAPipe)
{
    for (const int result : {-1, 1, 7})
    {
        m_system->onPipe = [result](std::array<int, 2>&, int&, int) { return result; };
        EXPECT_FALSE(capture()) << result;
    }
    const auto failed = line(2, "Failed to create Pipe FD to execute system command");
    EXPECT_THAT(m_logger.lines(), ElementsAre(failed, failed, failed));
    EXPECT_THAT(m_system->calls(), ElementsAre("pipe(flags 0)", "pipe(flags 0)", "pipe(flags 0)"));
}

TEST_F(OutputCaptureTest, ClosesThePipeWhenItCannotFork)
{
    m_system->pid = -1;
    EXPECT_FALSE(capture());
    EXPECT_FALSE(capture(&m_withoutStderr));
    EXPECT_THAT(m_system->calls(),
                ElementsAre("pipe(flags 0)", "fork()", "close(40)", "close(41)", "fork()", "close(-1)", "close(-1)"));
    const auto failed = line(2, "Failed to fork process to read system command output");
    EXPECT_THAT(m_logger.lines(), ElementsAre(failed, failed));
}

TEST_F(OutputCaptureTest, GivesUpWhenTheWaitAnswersAnythingButTheChild)
{
    for (const pid_t answer : {-1, 0, 4710, 4712})
    {
        m_system->onWaitpid = [answer](pid_t, int*, int, int&) { return answer; };
        EXPECT_FALSE(capture()) << answer;
    }
    const auto failed = line(2, "Failed to wait for child pid exit status in read system command");
    EXPECT_THAT(m_logger.lines(), ElementsAre(failed, failed, failed, failed));
    EXPECT_EQ(m_system->countOf("read"), 0U);
    EXPECT_THAT(m_system->openFds, IsEmpty());
}

TEST_F(OutputCaptureTest, DoesNotWaitOrReadAgainAfterAnInterruption)
{
    m_system->failCall("waitpid", 1, EINTR);
    EXPECT_FALSE(capture());
    m_system->status = exited(1);
    m_system->failCall("read", 1, EINTR);
    EXPECT_FALSE(capture());
    EXPECT_EQ(m_system->countOf("waitpid"), 2U);
    EXPECT_EQ(m_system->countOf("read"), 1U);
}

/// Which of the calls leave an error value behind, and what the message then says.
struct ErrorCase
{
    int byPipe;
    int byFork;
    int byWaitpid;
    int byRead;
    int reported;
};

constexpr ErrorCase kErrors[] = {
    {0, 0, 0, 0, 0},
    {EMFILE, 0, 0, 0, EMFILE},
    {EMFILE, EAGAIN, 0, 0, EAGAIN},
    {EMFILE, EAGAIN, ECHILD, 0, ECHILD},
    {EMFILE, EAGAIN, ECHILD, EIO, EIO},
    {0, EAGAIN, 0, 0, EAGAIN},
    {0, 0, ECHILD, 0, ECHILD},
    {0, 0, 0, EIO, EIO},
};

TEST_F(OutputCaptureTest, ReportsTheErrorThatAnyCallStoredLast)
{
    const auto leave = [](int left, int& err) { err = left != 0 ? left : err; };
    std::vector<test::LogLine> lines;
    for (const ErrorCase& errors : kErrors)
    {
        m_system->onPipe = [&](std::array<int, 2>& fds, int& err, int)
        {
            EXPECT_EQ(err, 0) << "the shared value starts at 0 in every invocation";
            fds = {40, 41};
            return leave(errors.byPipe, err), 0;
        };
        m_system->onFork = [&](int& err) { return leave(errors.byFork, err), 4711; };
        m_system->onWaitpid = [&](pid_t, int* status, int, int& err)
        { return *status = exited(1), leave(errors.byWaitpid, err), 4711; };
        m_system->onRead = [&](int, void*, std::size_t, int& err) { return leave(errors.byRead, err), ssize_t{0}; };
        errno = EDOM; // the thread's own error value must not matter
        EXPECT_FALSE(capture());
        lines.push_back(failure(errors.reported, " Stderr could not be read."));
    }
    EXPECT_THAT(m_logger.lines(), ElementsAreArray(lines));
}

} // namespace
} // namespace TAV
