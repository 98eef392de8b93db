#include "tav/testing/FakeTAVUtils.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <memory>
#include <stdexcept>

#include "tav/TAVUtils.h"
#include "tav/testing/FakeTAVSystemUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{
namespace
{

using testing::ElementsAre;
using testing::Eq;
using testing::IsEmpty;
using testing::Key;
using testing::Optional;
using Argv = FakeTAVUtils::Argv;
using KeepMap = FakeTAVUtils::KeepMap;

/// A pipe for captured output.
class Pipe
{
public:
    Pipe() { EXPECT_EQ(::pipe2(m_fds, O_CLOEXEC), 0); }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe()
    {
        ::close(m_fds[0]);
        endWriting();
    }

    int* fds() { return m_fds; }

    void endWriting()
    {
        if (m_isWritable)
            ::close(m_fds[1]);
        m_isWritable = false;
    }

    /// All up to the end of what is written.
    std::string readAll()
    {
        std::string text;
        char buffer[4096];
        for (ssize_t count = 0; (count = ::read(m_fds[0], buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<std::size_t>(count));
        return text;
    }

private:
    int m_fds[2] = {-1, -1};
    bool m_isWritable = true;
};

class FakeTAVUtilsTest : public testing::Test
{
protected:
    bool capture(const Argv& argv, std::string& output)
    {
        Pipe pipe;
        const bool result = utils.readSystemCommandOutput(argv, nullptr, pipe.fds());
        pipe.endWriting();
        output = pipe.readAll();
        return result;
    }

    FakeTAVUtils utils;
};

TEST_F(FakeTAVUtilsTest, CommandsSucceedUnlessTheTestDecides)
{
    EXPECT_TRUE(utils.executeSystemCommand({"/bin/false"}, nullptr));
    utils.onCommand = [](const Argv& argv) { return argv.size() == 1; };
    std::string output;
    EXPECT_TRUE(utils.executeSystemCommand({"/bin/x"}, nullptr));
    EXPECT_FALSE(utils.executeSystemCommand({"/bin/x", "-y"}, nullptr));
    EXPECT_TRUE(capture({"/bin/x"}, output));
    EXPECT_FALSE(capture({"/bin/x", "-y"}, output));
}

TEST_F(FakeTAVUtilsTest, CommandsOfBothKindsAreNotedWithTheirKeepMaps)
{
    const KeepMap someKept{{2, false}, {5, true}, {7, true}};
    const KeepMap noneKept{{2, false}};
    Pipe pipe;
    utils.executeSystemCommand({"/bin/ls", "-l"}, &someKept);
    utils.executeSystemCommand({"/bin/ls"}, nullptr);
    utils.readSystemCommandOutput({"/bin/cat", "a b"}, &noneKept, pipe.fds());
    EXPECT_THAT(utils.commands(),
                ElementsAre(Argv{"/bin/ls", "-l"}, ElementsAre("/bin/ls"), ElementsAre("/bin/cat", "a b")));
    EXPECT_THAT(utils.keepMaps(), ElementsAre(Optional(someKept), Eq(std::nullopt), Optional(noneKept)));
    EXPECT_THAT(utils.calls(),
                ElementsAre("executeSystemCommand(/bin/ls -l, keep 5 7)",
                            "executeSystemCommand(/bin/ls)",
                            "readSystemCommandOutput(/bin/cat a b, keep nothing)"));
}

TEST_F(FakeTAVUtilsTest, RefusedArgumentsAreFalseAndNoCommand)
{
    Pipe pipe;
    utils.onCommand = [](const Argv&) -> bool { throw std::logic_error("nothing is run"); };
    EXPECT_FALSE(utils.executeSystemCommand({}, nullptr));
    EXPECT_FALSE(utils.readSystemCommandOutput({}, nullptr, pipe.fds()));
    EXPECT_FALSE(utils.readSystemCommandOutput({"/bin/ls"}, nullptr, nullptr));
    EXPECT_THAT(utils.commands(), IsEmpty());
    EXPECT_THAT(utils.calls(),
                ElementsAre("executeSystemCommand()", "readSystemCommandOutput()", "readSystemCommandOutput(/bin/ls)"));
}

TEST_F(FakeTAVUtilsTest, OutputComesFromTheTableThenFromTheFunction)
{
    utils.outputs[{"/bin/uname", "-r"}] = std::string("6.1\0.0\n", 7);
    std::string output;
    EXPECT_TRUE(capture({"/bin/uname"}, output));
    EXPECT_EQ(output, "");
    utils.onCapture = [](const Argv& argv) { return "output of " + argv[0]; };
    EXPECT_TRUE(capture({"/bin/uname"}, output));
    EXPECT_EQ(output, "output of /bin/uname");
    EXPECT_TRUE(capture({"/bin/uname", "-r"}, output));
    EXPECT_EQ(output, std::string("6.1\0.0\n", 7));
}

TEST_F(FakeTAVUtilsTest, ACommandThatFailsHasPrintedBefore)
{
    utils.outputs[{"/bin/x"}] = "half of";
    utils.onCommand = [](const Argv&) { return false; };
    std::string output;
    EXPECT_FALSE(capture({"/bin/x"}, output));
    EXPECT_EQ(output, "half of");
}

TEST_F(FakeTAVUtilsTest, MoreOutputThanThePipeHoldsWaitsForAReader)
{
    const std::string large(300'000, 'x');
    utils.outputs[{"/bin/x"}] = large;
    Pipe pipe;
    auto output = std::async(std::launch::async, [&] { return pipe.readAll(); });
    EXPECT_TRUE(utils.readSystemCommandOutput({"/bin/x"}, nullptr, pipe.fds()));
    pipe.endWriting();
    EXPECT_EQ(output.get(), large);
}

TEST_F(FakeTAVUtilsTest, AnOutputThatCannotBeWrittenIsAFailure)
{
    utils.outputs[{"/bin/x"}] = "text";
    int closed[2] = {-1, -1};
    EXPECT_FALSE(utils.readSystemCommandOutput({"/bin/x"}, nullptr, closed));
}

TEST_F(FakeTAVUtilsTest, APlannedFailureRunsNothing)
{
    utils.onCommand = [](const Argv&) -> bool { throw std::logic_error("nothing is run"); };
    utils.outputs[{"/bin/x"}] = "text";
    utils.failCall("executeSystemCommand", 1);
    utils.failCall("readSystemCommandOutput", 1);
    std::string output;
    EXPECT_FALSE(utils.executeSystemCommand({"/bin/x"}, nullptr));
    EXPECT_FALSE(capture({"/bin/x"}, output));
    EXPECT_EQ(output, "");
    EXPECT_THAT(utils.commands(), ElementsAre(Argv{"/bin/x"}, Argv{"/bin/x"}));
    EXPECT_THAT(utils.plan()->pending(), IsEmpty());
}

TEST_F(FakeTAVUtilsTest, ExceptionsOfTheTestsFunctionsPass)
{
    utils.onCommand = [](const Argv&) -> bool { throw std::runtime_error("from the command"); };
    EXPECT_THROW(utils.executeSystemCommand({"/bin/x"}, nullptr), std::runtime_error);
    utils.onCommand = nullptr;
    EXPECT_TRUE(utils.executeSystemCommand({"/bin/x"}, nullptr));
}

TEST_F(FakeTAVUtilsTest, TheClockStandsStillUntilItIsMoved)
{
    using std::chrono::hours;
    const auto start = utils.getCurrentSystemClockNow();
    EXPECT_EQ(std::chrono::system_clock::to_time_t(start), 1577836800) << "2020-01-01 00:00:00 UTC";
    EXPECT_EQ(utils.getCurrentSystemClockNow(), start);
    utils.advance(hours(3));
    EXPECT_EQ(utils.getCurrentSystemClockNow(), start + hours(3));
    utils.setNow(start - hours(1));
    EXPECT_EQ(utils.getCurrentSystemClockNow(), start - hours(1));
}

TEST_F(FakeTAVUtilsTest, LimitsGoToOneGroupWhateverItsName)
{
    EXPECT_THAT(utils.cpuLimits(), IsEmpty());
    EXPECT_TRUE(utils.setCPULimit({10, 20}, 25, "mine"));
    EXPECT_TRUE(utils.setCPULimit({0, -5, 30}, 50, "yours"));
    const auto limits = utils.cpuLimits();
    ASSERT_THAT(limits, ElementsAre(Key("zell_tp_ods")));
    EXPECT_EQ(limits.begin()->second.percent, 50);
    EXPECT_THAT(limits.begin()->second.pids, ElementsAre(10, 20, 30));
    EXPECT_THAT(utils.calls(), ElementsAre("setCPULimit(10 20, 25, mine)", "setCPULimit(-5 0 30, 50, yours)"));
}

TEST_F(FakeTAVUtilsTest, RemovingALimitChangesNothing)
{
    utils.setCPULimit({10}, 25, "mine");
    utils.removeCPULimit({10}, "mine");
    EXPECT_THAT(utils.cpuLimits().at(FakeTAVUtils::kTaskGroupName).pids, ElementsAre(10));
    EXPECT_EQ(utils.calls().back(), "removeCPULimit(10, mine)");
}

TEST_F(FakeTAVUtilsTest, APlannedFailureLeavesTheLimitAsItWas)
{
    utils.setCPULimit({10}, 25, "mine");
    utils.failCall("setCPULimit", 1);
    EXPECT_FALSE(utils.setCPULimit({20}, 50, "mine"));
    EXPECT_EQ(utils.cpuLimits().at(FakeTAVUtils::kTaskGroupName).percent, 25);
    EXPECT_THAT(utils.cpuLimits().at(FakeTAVUtils::kTaskGroupName).pids, ElementsAre(10));
}

TEST_F(FakeTAVUtilsTest, APlannedFailureOfAQuestionIsANo)
{
    utils.failCall("isCGroupsSupported", 1);
    utils.failCall("isDefaultCGroupsMountAvailable", 1);
    EXPECT_FALSE(utils.isCGroupsSupported());
    EXPECT_FALSE(utils.isDefaultCGroupsMountAvailable());
    EXPECT_TRUE(utils.isCGroupsSupported());
    EXPECT_TRUE(utils.isDefaultCGroupsMountAvailable());
}

TEST_F(FakeTAVUtilsTest, ASweepReachesEveryCallThatCanFail)
{
    utils.failAnyCall(3);
    utils.getCurrentSystemClockNow();
    EXPECT_TRUE(utils.isCGroupsSupported());
    utils.removeCPULimit({1}, "");
    EXPECT_TRUE(utils.executeSystemCommand({"/bin/x"}, nullptr));
    EXPECT_FALSE(utils.setCPULimit({1}, 1, ""));
    EXPECT_TRUE(utils.hasFailed());
}

/// Where the two must agree without a process or a cgroup: what they refuse.
struct Host
{
    bool isNewKernel;
    bool hasMount;
};

class UtilsContractTest : public testing::TestWithParam<Host>
{
protected:
    std::vector<bool> answersOf(ITAVUtils& utils)
    {
        Pipe pipe;
        return {utils.isCGroupsSupported(),
                utils.isDefaultCGroupsMountAvailable(),
                utils.setCPULimit({}, 25, "group"),
                utils.setCPULimit({10}, 25, "group"),
                utils.setCPULimit({-10}, 0, ""),
                utils.executeSystemCommand({}, nullptr),
                utils.readSystemCommandOutput({}, nullptr, pipe.fds()),
                utils.readSystemCommandOutput({"/bin/ls"}, nullptr, nullptr)};
    }
};

TEST_P(UtilsContractTest, TheFakeRefusesWhatTheRealOneRefuses)
{
    auto system = std::make_shared<FakeTAVSystemUtils>();
    system->onStat = [](const char*, struct stat*, int&) { return GetParam().hasMount ? 0 : -1; };
    system->onOpenInputFile = [](std::ifstream& stream, const std::string&)
    { stream.open("/proc/sys/kernel/pid_max"); };
    system->onOpenOutputFile = [](std::ofstream& stream, const std::string&) { stream.open("/dev/null"); };
    RecordingLogger logger;
    const kernelVersion version = GetParam().isNewKernel ? kernelVersion{2, 6, 24} : kernelVersion{2, 6, 23};
    TAVUtils real(system, logger, std::make_shared<kernelVersion>(version));

    FakeTAVUtils fake;
    fake.cgroupsSupported = GetParam().isNewKernel;
    fake.defaultMountAvailable = GetParam().hasMount;
    EXPECT_EQ(answersOf(fake), answersOf(real));
}

INSTANTIATE_TEST_SUITE_P(Hosts,
                         UtilsContractTest,
                         testing::Values(Host{true, true}, Host{true, false}, Host{false, true}, Host{false, false}),
                         [](const auto& test)
                         {
                             return std::string(test.param.isNewKernel ? "New" : "Old") + "Kernel" +
                                    (test.param.hasMount ? "With" : "Without") + "Mount";
                         });

} // namespace
} // namespace TAV::test
