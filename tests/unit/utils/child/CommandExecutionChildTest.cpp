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
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::Not;

const Events kSignals{"::signal(SIGTERM, SIG_IGN)", "::signal(SIGINT, SIG_IGN)"};
constexpr const char* kExecv = "::execv(/bin/tool: [/bin/tool] [-a] [two words])";
constexpr const char* kStarted =
    "log 6 TAVUtils: Child process called to execute the system command :  /bin/tool -a two words";
constexpr const char* kWaitFailed =
    "log 2 TAVUtils: Failed to wait for child pid exit status in execute system command";

/// The child's side of a command.
class CommandExecutionChildTest : public test::ChildFixture
{
protected:
    /// The events between fork and the program's start, with these closes of surplus descriptors.
    static Events sequence(const std::string& dup2, const Events& closes, const Events& standard)
    {
        return kSignals + Events{dup2, "::sysconf(_SC_OPEN_MAX)"} + closes + standard + Events{kExecv};
    }
};

TEST_F(CommandExecutionChildTest, WithoutAMapKeepsStderrAndThePipeOnly)
{
    execute(nullptr);
    EXPECT_THAT(inChild(),
                ElementsAreArray(sequence(
                    "dup2(6, 2)",
                    {"::close_range(3, 3)", "::close_range(5, 5)", "::close_range(7, 8)"},
                    {"::close(1)", "::close(0)", "open(/dev/null, 2)", "dup2(50, 0)", "dup2(50, 1)", "::close(50)"})));
}

TEST_F(CommandExecutionChildTest, AMapThatKeepsStderrHasNoOtherEffect)
{
    execute(nullptr);
    const Events without = m_calls.events;
    const KeepMap keep{{0, true}, {1, true}, {2, true}, {3, true}, {7, true}, {4, false}};
    execute(&keep);
    EXPECT_EQ(m_calls.events, without);
}

TEST_F(CommandExecutionChildTest, AMapThatDoesNotKeepStderrIsUsedAsItIs)
{
    const KeepMap keep{{1, true}, {4, true}, {5, false}};
    execute(&keep);
    EXPECT_THAT(
        inChild(),
        ElementsAreArray(sequence("dup2(-1, 2)",
                                  {"::close_range(3, 3)", "::close_range(5, 8)"},
                                  {"::close(0)", "open(/dev/null, 2)", "dup2(50, 0)", "dup2(50, 2)", "::close(50)"})));
}

TEST_F(CommandExecutionChildTest, AnEmptyMapKeepsNothing)
{
    const KeepMap keep;
    execute(&keep);
    EXPECT_THAT(inChild(),
                ElementsAreArray(sequence("dup2(-1, 2)",
                                          {"::close_range(3, 8)"},
                                          {"::close(1)",
                                           "::close(0)",
                                           "open(/dev/null, 2)",
                                           "dup2(50, 0)",
                                           "dup2(50, 1)",
                                           "dup2(50, 2)",
                                           "::close(50)"})));
}

TEST_F(CommandExecutionChildTest, OpensNothingWhenAllThreeAreKept)
{
    m_system->pipeFds = {1, 0}; // a caller without descriptors 0 and 1 gets them as the pipe
    execute(nullptr);
    EXPECT_THAT(inChild(), ElementsAreArray(sequence("dup2(0, 2)", {"::close_range(3, 8)"}, {})));
}

struct RangeCase
{
    long openMax;
    KeepMap keep;
    Events closes;
};

TEST_F(CommandExecutionChildTest, ClosesFromTheLimitItselfDownToThree)
{
    const std::vector<RangeCase> cases{
        {-1, {}, {"::close_range(3, 65535)"}},
        {LONG_MIN, {}, {"::close_range(3, 65535)"}},
        {0, {}, {}},
        {2, {}, {}},
        {2, {{3, true}, {2, false}}, {}},
        {3, {}, {"::close_range(3, 3)"}},
        {3, {{3, true}}, {}},
        {4, {}, {"::close_range(3, 4)"}},
        {1024, {}, {"::close_range(3, 1024)"}},
        {1024, {{1024, true}}, {"::close_range(3, 1023)"}},
        {1024, {{1025, true}}, {"::close_range(3, 1024)"}},
        {1024, {{1023, true}}, {"::close_range(3, 1022)", "::close_range(1024, 1024)"}},
        {1024, {{3, true}, {4, true}, {6, true}}, {"::close_range(5, 5)", "::close_range(7, 1024)"}},
        {1024, {{3, false}, {4, false}}, {"::close_range(3, 1024)"}},
        {1024, {{-1, true}, {INT_MIN, true}, {0, true}, {1, true}}, {"::close_range(3, 1024)"}},
        {1048576, {{INT_MAX, true}}, {"::close_range(3, 1048576)"}},
        {INT_MAX, {}, {"::close_range(3, 2147483647)"}},
        {INT_MAX, {{INT_MAX, true}}, {"::close_range(3, 2147483646)"}},
        {LONG_MAX, {{5, true}}, {"::close_range(3, 4)", "::close_range(6, 2147483647)"}},
    };
    for (const RangeCase& range : cases)
    {
        m_calls.openMax = range.openMax;
        execute(&range.keep);
        const Events child = inChild();
        ASSERT_GE(child.size(), 4 + range.closes.size());
        const Events closes(child.begin() + 4, child.begin() + 4 + static_cast<long>(range.closes.size()));
        EXPECT_EQ(closes, range.closes) << range.openMax;
        EXPECT_THAT(child[4 + range.closes.size()], Not(::testing::StartsWith("::close_range"))) << range.openMax;
    }
}

TEST_F(CommandExecutionChildTest, ClosesOneByOneFromTheTopWhereTheKernelRefusesRanges)
{
    const KeepMap keep{{5, true}, {6, false}};
    for (const int err : {ENOSYS, EPERM, EINVAL, EMFILE, ENOMEM})
    {
        m_calls.closeRangeFailsFrom = 1;
        m_calls.closeRangeError = err;
        execute(&keep);
        const Events closes{
            "::close_range(3, 4)", "::close(8)", "::close(7)", "::close(6)", "::close(4)", "::close(3)"};
        EXPECT_THAT(inChild(),
                    ElementsAreArray(sequence("dup2(-1, 2)",
                                              closes,
                                              {"::close(1)",
                                               "::close(0)",
                                               "open(/dev/null, 2)",
                                               "dup2(50, 0)",
                                               "dup2(50, 1)",
                                               "dup2(50, 2)",
                                               "::close(50)"})))
            << err;
    }
}

TEST_F(CommandExecutionChildTest, ClosesTheSameDescriptorsWhicheverRangeIsRefused)
{
    const KeepMap keep{{4, true}, {6, true}};
    for (unsigned int refused = 0; refused <= 3; ++refused)
    {
        m_calls.closeRangeFailsFrom = refused;
        execute(&keep);
        EXPECT_THAT(closedNumbers(3), ElementsAre(3, 5, 7, 8)) << refused;
    }
}

TEST_F(CommandExecutionChildTest, ClosesOneByOneFrom65535WhenTheLimitIsUnknownToo)
{
    const KeepMap keep{{65535, true}};
    m_calls.openMax = -1;
    m_calls.closeRangeFailsFrom = 1;
    execute(&keep);
    EXPECT_EQ(m_calls.closedRuns.front().first, 65534U);
    EXPECT_EQ(closedNumbers(3).size(), 65534U - 2U);
}

/// What the child of a run with this map closes directly, with a limit of 8 and /dev/null as 50.
std::set<int> closedWith(const KeepMap& keep)
{
    const KeepMap effective = keep.at(2) ? KeepMap{{2, true}, {4, true}, {6, true}} : keep;
    std::set<int> closed{50};
    for (const int fd : {0, 1, 3, 4, 5, 6, 7, 8}) // 2 is only ever duplicated onto
    {
        const auto entry = effective.find(fd);
        if (entry == effective.end() || !entry->second)
            closed.insert(fd);
    }
    return closed;
}

TEST_F(CommandExecutionChildTest, EachOfAllMapsClosesWhatItDoesNotKeep)
{
    for (const unsigned int refused : {0U, 1U})
    {
        m_calls.closeRangeFailsFrom = refused;
        for (const KeepMap& keep : allMaps())
        {
            execute(&keep);
            EXPECT_EQ(closedNumbers(0), closedWith(keep));
        }
    }
}

TEST_F(CommandExecutionChildTest, WhatClosingAnswersDoesNotMatter)
{
    execute(nullptr);
    const Events untroubled = m_calls.events;
    for (const int err : {EBADF, EINTR, EIO})
    {
        m_calls.closeError = err;
        execute(nullptr);
        EXPECT_EQ(m_calls.events, untroubled) << err;
    }
}

TEST_F(CommandExecutionChildTest, WhatDuplicatingAnswersDoesNotMatter)
{
    execute(nullptr);
    const Events untroubled = m_calls.events;
    for (const int err : {EBADF, EBUSY, EINTR, EMFILE})
    {
        m_system->succeed();
        m_system->failCall("dup2", 1, err, test::Lasting::FromThenOn);
        execute(nullptr);
        EXPECT_EQ(m_calls.events, untroubled) << err;
    }
}

TEST_F(CommandExecutionChildTest, DevNullIsClosedUnderWhateverNumberItCame)
{
    const KeepMap keep;
    const std::map<int, Events> expected{
        {0, {"open(/dev/null, 2)", "dup2(0, 1)", "dup2(0, 2)", "::close(0)", kExecv}},
        {1, {"open(/dev/null, 2)", "dup2(1, 0)", "dup2(1, 2)", "::close(1)", kExecv}},
        {2, {"open(/dev/null, 2)", "dup2(2, 0)", "dup2(2, 1)", "::close(2)", kExecv}},
        {3, {"open(/dev/null, 2)", "dup2(3, 0)", "dup2(3, 1)", "dup2(3, 2)", "::close(3)", kExecv}},
    };
    for (const auto& [nullFd, events] : expected)
    {
        m_system->nullFd = nullFd;
        execute(&keep);
        EXPECT_EQ(lastInChild(events.size()), events) << nullFd;
    }
}

TEST_F(CommandExecutionChildTest, WithoutAMapDescriptorZeroEndsClosed)
{
    m_system->nullFd = 0;
    execute(nullptr);
    EXPECT_THAT(lastInChild(6),
                ElementsAre("::close(1)", "::close(0)", "open(/dev/null, 2)", "dup2(0, 1)", "::close(0)", kExecv));
}

TEST_F(CommandExecutionChildTest, AnswersTrueWhenDevNullCannotBeOpened)
{
    for (const int err : {EMFILE, ENFILE, ENOENT, EACCES, EINTR, ENOMEM})
    {
        m_system->succeed();
        m_system->failCall("open", 1, err, test::Lasting::FromThenOn);
        EXPECT_TRUE(execute(nullptr)) << err;
        const Events& all = m_calls.events;
        ASSERT_GE(all.size(), 2U);
        EXPECT_EQ(all[all.size() - 2], "open(/dev/null, 2)") << err;
        EXPECT_EQ(all.back(), "log 2 TAVUtils: Failed to open /dev/null") << err;
    }
}

TEST_F(CommandExecutionChildTest, AnyNegativeDescriptorMeansNoDevNull)
{
    m_system->nullFd = -7;
    EXPECT_TRUE(execute(nullptr));
    EXPECT_EQ(m_calls.events.back(), "log 2 TAVUtils: Failed to open /dev/null");
    EXPECT_THAT(m_calls.events, Not(Contains("::close(-7)")));
}

TEST_F(CommandExecutionChildTest, GoesOnAsTheParentWhenTheProgramDoesNotStart)
{
    EXPECT_FALSE(execute(nullptr));
    EXPECT_THAT(goingOn(), ElementsAre(kStarted, "waitpid(0, 0)", kWaitFailed, "close(4)", "close(6)"));
}

TEST_F(CommandExecutionChildTest, GoesOnWithoutAPipeAlike)
{
    const KeepMap keep;
    EXPECT_FALSE(execute(&keep));
    EXPECT_THAT(goingOn(), ElementsAre(kStarted, "waitpid(0, 0)", kWaitFailed, "close(-1)", "close(-1)"));
}

TEST_F(CommandExecutionChildTest, BelievesAWaitThatAnswersZero)
{
    m_system->onWaitpid = [](pid_t, int*, int, int&) { return 0; };
    EXPECT_TRUE(execute(nullptr));
    EXPECT_THAT(goingOn(), ElementsAre(kStarted, "waitpid(0, 0)", "close(4)", "close(6)"));
}

TEST_F(CommandExecutionChildTest, HandsTheArgumentsOverAsTheyAre)
{
    const std::map<std::vector<std::string>, std::string> expected{
        {{"tool"}, "::execv(tool: [tool])"},
        {{""}, "::execv(: [])"},
        {{"a", "", "*", "$HOME", "\xff"}, "::execv(a: [a] [] [*] [$HOME] [\xff])"},
        {{std::string("a\0b", 3), std::string("c\0d", 3)}, "::execv(a: [a] [c])"},
    };
    for (const auto& [argv, event] : expected)
    {
        m_command = argv;
        execute(nullptr);
        EXPECT_THAT(m_calls.events, Contains(event));
    }
}

TEST_F(CommandExecutionChildTest, HandsOverTenThousandArguments)
{
    m_command.assign(10000, "x");
    execute(nullptr);
    std::string event = "::execv(x:";
    for (std::size_t i = 0; i < m_command.size(); ++i)
        event += " [x]";
    EXPECT_EQ(inChild().back(), event + ")");
}

TEST_F(CommandExecutionChildTest, ReadsItsOwnPipeWhenAWaitAnswersZeroWithAFailure)
{
    m_system->onWaitpid = [](pid_t, int* status, int, int&) { return *status = 0x0100, 0; };
    EXPECT_FALSE(execute(nullptr));
    EXPECT_THAT(goingOn(),
                ElementsAre(kStarted, "waitpid(0, 0)", "read(4, 200)", "::strerror(0)", "close(4)", "close(6)"));
}

} // namespace
} // namespace TAV
