#include <cerrno>
#include <climits>

#include "ChildFixture.h"

namespace TAV
{
namespace
{

using test::Events;
using test::KeepMap;
using test::operator+; // NOLINT(misc-unused-using-decls): overlooks operators
using test::scriptedErrorText;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::Not;

const Events kStart{"::signal(SIGTERM, SIG_IGN)", "::signal(SIGINT, SIG_IGN)", "::getrlimit(RLIMIT_NOFILE)"};
constexpr const char* kExecv = "::execv(/bin/tool: [/bin/tool] [-a] [two words])";
constexpr const char* kWaitFailed = "log 2 TAVUtils: Failed to wait for child pid exit status in read system command";
/// What follows /dev/null: standard error, then standard output (the pipes are 4, 6 and 3, 5).
const Events kStderrAndStdout{"dup2(6, 2)", "close(4)", "close(6)", "dup2(5, 1)", "::close(3)", "::close(5)", kExecv};
const Events kStdout{"dup2(5, 1)", "::close(3)", "::close(5)", kExecv};

/// The child's side of an output capture.
class OutputCaptureChildTest : public test::ChildFixture
{
};

TEST_F(OutputCaptureChildTest, WithoutAMapKeepsOutputStderrAndBothPipesOnly)
{
    capture(nullptr);
    const Events closes{"::close_range(0, 0)", "::close_range(7, 7)"};
    const Events devNull{"open(/dev/null, 2)", "dup2(50, 0)", "::close(50)"};
    EXPECT_THAT(inChild(), ElementsAreArray(kStart + closes + devNull + kStderrAndStdout));
}

TEST_F(OutputCaptureChildTest, AMapThatKeepsStderrHasNoOtherEffect)
{
    capture(nullptr);
    const Events without = m_calls.events;
    const KeepMap keep{{0, true}, {1, false}, {2, true}, {3, false}, {7, true}};
    capture(&keep);
    EXPECT_EQ(m_calls.events, without);
}

TEST_F(OutputCaptureChildTest, AMapThatDoesNotKeepStderrIsCompletedByTheOutputPipe)
{
    const KeepMap keep{{1, false}, {3, false}, {6, true}, {7, false}};
    capture(&keep);
    const Events closes{"::close_range(0, 0)", "::close_range(2, 2)", "::close_range(4, 4)", "::close_range(7, 7)"};
    const Events devNull{"open(/dev/null, 2)", "dup2(50, 0)", "dup2(50, 2)", "::close(50)"};
    EXPECT_THAT(inChild(), ElementsAreArray(kStart + closes + devNull + kStdout));
}

TEST_F(OutputCaptureChildTest, AnEmptyMapKeepsTheOutputOnly)
{
    const KeepMap keep;
    capture(&keep);
    const Events closes{"::close_range(0, 0)", "::close_range(2, 2)", "::close_range(4, 4)", "::close_range(6, 7)"};
    const Events devNull{"open(/dev/null, 2)", "dup2(50, 0)", "dup2(50, 2)", "::close(50)"};
    EXPECT_THAT(inChild(), ElementsAreArray(kStart + closes + devNull + kStdout));
}

TEST_F(OutputCaptureChildTest, OpensNothingWhenAllThreeAreKept)
{
    m_system->pipeFds = {0, 6};
    capture(nullptr);
    EXPECT_THAT(inChild(),
                ElementsAreArray(kStart + Events{"::close_range(4, 4)", "::close_range(7, 7)"} +
                                 Events{"dup2(6, 2)", "close(0)", "close(6)"} + kStdout));
}

TEST_F(OutputCaptureChildTest, AnOutputPipeOnTwoKeepsStderrWithoutAPipeForIt)
{
    m_outPipe = {7, 2};
    const KeepMap keep;
    m_system->failCall("dup2", 3, EBADF); // after the two of /dev/null: no descriptor is -1
    m_system->onDup2 = [](int oldFd, int newFd, int& err) { return oldFd < 0 ? (err = EBADF, -1) : newFd; };
    EXPECT_FALSE(capture(&keep));
    EXPECT_EQ(m_calls.events.back(),
              "log 2 TAVUtils: Failed to duplicate STDERR in child process. Error was " + scriptedErrorText(EBADF));
    EXPECT_THAT(m_calls.events, Contains("dup2(-1, 2)"));
    EXPECT_THAT(m_calls.events, Not(Contains("dup2(50, 2)")));
}

struct RangeCase
{
    rlim_t softLimit;
    KeepMap keep; ///< beside 1, 3 and 5
    Events closes;
};

TEST_F(OutputCaptureChildTest, ClosesFromZeroUpToBelowTheSoftLimit)
{
    const Events gaps{"::close_range(0, 0)", "::close_range(2, 2)", "::close_range(4, 4)"};
    const std::vector<RangeCase> cases{
        {0, {}, {}},
        {0, {{0, true}}, {}},
        {1, {}, {"::close_range(0, 0)"}},
        {1, {{0, true}}, {}},
        {2, {}, {"::close_range(0, 0)"}},
        {3, {}, {"::close_range(0, 0)", "::close_range(2, 2)"}},
        {4, {}, {"::close_range(0, 0)", "::close_range(2, 2)"}},
        {5, {}, gaps},
        {6, {}, gaps},
        {7, {}, gaps + Events{"::close_range(6, 6)"}},
        {1024, {}, gaps + Events{"::close_range(6, 1023)"}},
        {1024, {{1023, true}}, gaps + Events{"::close_range(6, 1022)"}},
        {1024, {{1024, true}}, gaps + Events{"::close_range(6, 1023)"}},
        {1024, {{0, true}, {4, true}, {7, false}}, {"::close_range(2, 2)", "::close_range(6, 1023)"}},
        {1024, {{-1, true}, {INT_MIN, true}}, gaps + Events{"::close_range(6, 1023)"}},
        {1048576, {{INT_MAX, true}}, gaps + Events{"::close_range(6, 1048575)"}},
        {RLIM_INFINITY, {}, gaps + Events{"::close_range(6, 2147483646)"}},
    };
    for (const RangeCase& range : cases)
    {
        m_calls.softLimit = range.softLimit;
        capture(&range.keep);
        const Events child = inChild();
        ASSERT_GT(child.size(), 3 + range.closes.size());
        const Events closes(child.begin() + 3, child.begin() + 3 + static_cast<long>(range.closes.size()));
        EXPECT_EQ(closes, range.closes) << range.softLimit;
        EXPECT_THAT(child[3 + range.closes.size()], Not(::testing::StartsWith("::close_range"))) << range.softLimit;
    }
}

TEST_F(OutputCaptureChildTest, TheHardLimitDoesNotMatter)
{
    capture(nullptr);
    const Events expected = m_calls.events;
    m_calls.hardLimit = RLIM_INFINITY;
    capture(nullptr);
    EXPECT_EQ(m_calls.events, expected);
}

TEST_F(OutputCaptureChildTest, ClosesNothingWhenTheLimitCannotBeRead)
{
    m_calls.limitIsReadable = false;
    EXPECT_FALSE(capture(nullptr));
    const Events log{"log 2 TAVUtils: Failed to get filelimit"};
    const Events devNull{"open(/dev/null, 2)", "dup2(50, 0)", "::close(50)"};
    EXPECT_THAT(inChild(), ElementsAreArray(kStart + log + devNull + kStderrAndStdout)) << "the child carries on";
}

TEST_F(OutputCaptureChildTest, ClosesOneByOneFromZeroWhereTheKernelRefusesRanges)
{
    const KeepMap keep{{6, true}};
    for (const int err : {ENOSYS, EPERM, EINVAL, EMFILE, ENOMEM})
    {
        m_calls.closeRangeFailsFrom = 1;
        m_calls.closeRangeError = err;
        capture(&keep);
        const Events closes{"::close_range(0, 0)", "::close(0)", "::close(2)", "::close(4)", "::close(7)"};
        const Events devNull{"open(/dev/null, 2)", "dup2(50, 0)", "dup2(50, 2)", "::close(50)"};
        EXPECT_THAT(inChild(), ElementsAreArray(kStart + closes + devNull + kStdout)) << err;
    }
}

TEST_F(OutputCaptureChildTest, ClosesTheSameDescriptorsWhicheverRangeIsRefused)
{
    const KeepMap keep{{6, true}};
    for (unsigned int refused = 0; refused <= 4; ++refused)
    {
        m_calls.closeRangeFailsFrom = refused;
        capture(&keep);
        EXPECT_THAT(closedNumbers(3), ElementsAre(0, 2, 4, 7)) << refused;
    }
}

/// What the child of a run with this map keeps: every descriptor below the limit of 8 that is not in here goes.
KeepMap keptWith(const KeepMap& keep)
{
    KeepMap effective = keep.at(2) ? KeepMap{{2, true}, {4, true}, {6, true}} : keep;
    for (const int fd : {1, 3, 5})
        effective[fd] = true;
    return effective;
}

TEST_F(OutputCaptureChildTest, EachOfAllMapsClosesWhatItDoesNotKeep)
{
    for (const unsigned int refused : {0U, 1U})
    {
        m_calls.closeRangeFailsFrom = refused;
        for (const KeepMap& keep : allMaps())
        {
            KeepMap kept = keptWith(keep);
            std::set<int> expected;
            for (int fd = 0; fd < 8; ++fd)
            {
                if (!kept[fd])
                    expected.insert(fd);
            }
            capture(&keep);
            const std::size_t others = kept[0] && kept[2] ? 2 : 3; // the output pipe, and /dev/null
            EXPECT_EQ(closedNumbers(others), expected);
        }
    }
}

TEST_F(OutputCaptureChildTest, WhatClosingAnswersDoesNotMatter)
{
    capture(nullptr);
    const Events untroubled = m_calls.events;
    for (const int err : {EBADF, EINTR, EIO})
    {
        m_calls.closeError = err;
        m_system->succeed();
        m_system->failCall("close", 1, err, test::Lasting::FromThenOn);
        capture(nullptr);
        EXPECT_EQ(m_calls.events, untroubled) << err;
    }
}

TEST_F(OutputCaptureChildTest, DevNullIsClosedUnderWhateverNumberItCame)
{
    const KeepMap keep;
    const std::map<int, Events> expected{
        {0, {"open(/dev/null, 2)", "dup2(0, 2)", "::close(0)"}},
        {2, {"open(/dev/null, 2)", "dup2(2, 0)", "::close(2)"}},
        {4, {"open(/dev/null, 2)", "dup2(4, 0)", "dup2(4, 2)", "::close(4)"}},
    };
    for (const auto& [nullFd, devNull] : expected)
    {
        m_system->nullFd = nullFd;
        capture(&keep);
        EXPECT_EQ(lastInChild(devNull.size() + kStdout.size()), devNull + kStdout) << nullFd;
    }
}

TEST_F(OutputCaptureChildTest, WhatDuplicatingDevNullAnswersDoesNotMatter)
{
    const KeepMap keep;
    capture(&keep);
    const Events untroubled = m_calls.events;
    m_system->onDup2 = [](int oldFd, int newFd, int& err) { return oldFd == 50 ? (err = EBUSY, -1) : newFd; };
    capture(&keep);
    EXPECT_EQ(m_calls.events, untroubled);
}

TEST_F(OutputCaptureChildTest, AnswersFalseWhenDevNullCannotBeOpened)
{
    for (const int err : {EMFILE, ENFILE, ENOENT, EACCES, EINTR, ENOMEM})
    {
        m_system->succeed();
        m_system->failCall("open", 1, err, test::Lasting::FromThenOn);
        EXPECT_FALSE(capture(nullptr)) << err;
        const Events closes{"::close_range(0, 0)", "::close_range(7, 7)"};
        const Events end{"open(/dev/null, 2)", "log 2 TAVUtils: Failed to open /dev/null"};
        EXPECT_THAT(inChild(), ElementsAreArray(kStart + closes + end)) << err;
    }
}

TEST_F(OutputCaptureChildTest, AnyNegativeDescriptorMeansNoDevNull)
{
    m_system->nullFd = -7;
    EXPECT_FALSE(capture(nullptr));
    EXPECT_EQ(m_calls.events.back(), "log 2 TAVUtils: Failed to open /dev/null");
}

/// Which duplication fails, and what is said.
struct DuplicationCase
{
    int newFd;
    const char* call;
    const char* text;
};

constexpr DuplicationCase kDuplications[] = {
    {2, "dup2(6, 2)", "log 2 TAVUtils: Failed to duplicate STDERR in child process. Error was "},
    {1, "dup2(5, 1)", "log 2 TAVUtils: Failed to duplicate Stdout in child process. Error was "},
};

TEST_F(OutputCaptureChildTest, AFailedDuplicationEndsTheChildsPartWithNothingMoreClosed)
{
    for (const DuplicationCase& tested : kDuplications)
    {
        for (const int err : {EBADF, EBUSY, EINTR, EMFILE})
        {
            m_system->onDup2 = [&](int oldFd, int newFd, int& stored)
            { return newFd == tested.newFd && oldFd != 50 ? (stored = err, -1) : newFd; };
            EXPECT_FALSE(capture(nullptr));
            const Events& all = m_calls.events;
            const auto failed = std::find(all.begin(), all.end(), tested.call);
            EXPECT_THAT(Events(failed, all.end()),
                        ElementsAre(tested.call,
                                    "::strerror(" + std::to_string(err) + ")",
                                    tested.text + scriptedErrorText(err)));
        }
    }
}

TEST_F(OutputCaptureChildTest, ADuplicationMustAnswerTheVeryNumber)
{
    for (const DuplicationCase& tested : kDuplications)
    {
        for (const int answer : {-2, 0, 3, 6, 5})
        {
            m_system->onDup2 = [&](int, int newFd, int&) { return newFd == tested.newFd ? answer : newFd; };
            EXPECT_FALSE(capture(nullptr));
            EXPECT_EQ(m_calls.events.back(), tested.text + scriptedErrorText(0)) << answer;
        }
    }
}

TEST_F(OutputCaptureChildTest, GoesOnAsTheParentWithAPairOfZerosWhenTheProgramDoesNotStart)
{
    EXPECT_FALSE(capture(nullptr));
    EXPECT_THAT(goingOn(), ElementsAre("waitpid(0, 0)", kWaitFailed, "close(0)", "close(0)"));
}

TEST_F(OutputCaptureChildTest, GoesOnWithoutAPipeAlike)
{
    const KeepMap keep;
    EXPECT_FALSE(capture(&keep));
    EXPECT_THAT(goingOn(), ElementsAre("waitpid(0, 0)", kWaitFailed, "close(-1)", "close(-1)"));
}

TEST_F(OutputCaptureChildTest, BelievesAWaitThatAnswersZero)
{
    m_system->onWaitpid = [](pid_t, int*, int, int&) { return 0; };
    EXPECT_TRUE(capture(nullptr));
    EXPECT_THAT(goingOn(), ElementsAre("waitpid(0, 0)", "close(0)", "close(0)"));
}

TEST_F(OutputCaptureChildTest, ReadsItsStandardInputWhenAWaitAnswersZeroWithAFailure)
{
    m_system->onWaitpid = [](pid_t, int* status, int, int&) { return *status = 0x0100, 0; };
    EXPECT_FALSE(capture(nullptr));
    const std::string text = "log 2 TAVUtils: Child exited abnormally in reading system command output with return "
                             "status 256 and errno - text of error 0. Stderr is - went wrong";
    EXPECT_THAT(goingOn(), ElementsAre("waitpid(0, 0)", "read(0, 200)", "::strerror(0)", text, "close(0)", "close(0)"));
}

TEST_F(OutputCaptureChildTest, LeavesTheCallersNumbersAlone)
{
    capture(nullptr);
    EXPECT_THAT(m_outPipe, ElementsAre(3, 5));
}

} // namespace
} // namespace TAV
