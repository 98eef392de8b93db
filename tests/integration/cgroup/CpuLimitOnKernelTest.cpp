#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "KernelCgroupTest.h"

namespace TAV::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CpuLimitOnKernelTest : public KernelCgroupTest
{
};

TEST_P(CpuLimitOnKernelTest, SetsTheQuotaToThePercentageOfTheWholeMachine)
{
    const LoadProcess process;
    for (const unsigned short percent : std::initializer_list<unsigned short>{1, 5, 20, 33, 50, 100, 200, 65535})
    {
        EXPECT_TRUE(limit({process.pid()}, percent));
        EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(percent)) << percent;
    }
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_P(CpuLimitOnKernelTest, GoesByThePeriodOfTheGroup)
{
    const LoadProcess process;
    ASSERT_TRUE(limit({process.pid()}, 20));
    m_controller->write("zell_tp_ods/cpu.cfs_period_us", "50000");
    EXPECT_TRUE(limit({process.pid()}, 20));
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(20, 50000));
}

TEST_P(CpuLimitOnKernelTest, MovesTheProcess)
{
    const LoadProcess process;
    EXPECT_EQ(m_controller->groupOf(process.pid()), "outside");
    EXPECT_TRUE(limit({process.pid()}, 20));
    EXPECT_EQ(m_controller->groupOf(process.pid()), "/zell_tp_ods");
    EXPECT_THAT(m_controller->members(), ElementsAre(process.pid()));
}

TEST_P(CpuLimitOnKernelTest, MovesSeveralProcesses)
{
    const LoadProcess first;
    const LoadProcess second;
    const LoadProcess third;
    const std::set<int> pids = {first.pid(), second.pid(), third.pid()};
    EXPECT_TRUE(limit(pids, 20));
    EXPECT_EQ(m_controller->members(), pids);
}

TEST_P(CpuLimitOnKernelTest, AddsTheProcessesOfALaterCall)
{
    const LoadProcess first;
    const LoadProcess second;
    EXPECT_TRUE(limit({first.pid()}, 20));
    EXPECT_TRUE(limit({second.pid()}, 20));
    EXPECT_EQ(m_controller->members(), (std::set<int>{first.pid(), second.pid()}));
}

TEST_P(CpuLimitOnKernelTest, ChangesTheQuotaOfAllByALaterCall)
{
    const LoadProcess first;
    const LoadProcess second;
    EXPECT_TRUE(limit({first.pid()}, 20));
    EXPECT_TRUE(limit({second.pid()}, 50));
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(50));
    EXPECT_EQ(m_controller->groupOf(first.pid()), "/zell_tp_ods");
}

TEST_P(CpuLimitOnKernelTest, SharesTheGroupBetweenObjects)
{
    const LoadProcess first;
    const LoadProcess second;
    EXPECT_TRUE(limit({first.pid()}, 20));
    RecordingLogger logger;
    TAVUtils other(std::make_shared<TAVSystemUtils>(), logger, std::make_shared<kernelVersion>(kernelVersion{5, 4, 0}));
    EXPECT_TRUE(other.setCPULimit({second.pid()}, 30, "a group of its own?"));
    EXPECT_EQ(m_controller->members(), (std::set<int>{first.pid(), second.pid()}));
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(30));
}

TEST_P(CpuLimitOnKernelTest, AcceptsAProcessThatIsInTheGroupAlready)
{
    const LoadProcess process;
    EXPECT_TRUE(limit({process.pid()}, 20));
    EXPECT_TRUE(limit({process.pid()}, 20));
    EXPECT_THAT(m_controller->members(), ElementsAre(process.pid()));
}

TEST_P(CpuLimitOnKernelTest, MovesAllThreadsOfAProcess)
{
    const LoadProcess process(3);
    const std::set<int> threads = process.threads();
    EXPECT_TRUE(limit({process.pid()}, 5));
    for (const int thread : threads)
        EXPECT_EQ(m_controller->groupOf(thread), "/zell_tp_ods");
}

TEST_P(CpuLimitOnKernelTest, MovesTheWholeProcessOfAThread)
{
    const LoadProcess process(3);
    const std::set<int> threads = process.threads();
    EXPECT_TRUE(limit({*threads.rbegin()}, 5));
    EXPECT_THAT(m_controller->members(), ElementsAre(process.pid()));
    for (const int thread : threads)
        EXPECT_EQ(m_controller->groupOf(thread), "/zell_tp_ods");
}

TEST_P(CpuLimitOnKernelTest, MovesTheCallerAndWhatItStartsLater)
{
    EXPECT_TRUE(limit({getpid()}, 50));
    EXPECT_EQ(m_controller->groupOf(getpid()), "/zell_tp_ods");
    const LoadProcess child;
    EXPECT_THAT(m_controller->members(), ElementsAre(std::min(getpid(), child.pid()), std::max(getpid(), child.pid())));
}

TEST_P(CpuLimitOnKernelTest, SkipsIdsThatAreNoProcesses)
{
    // A 0 that reached the kernel would move the caller itself.
    const LoadProcess process;
    EXPECT_TRUE(limit({0, -5, process.pid()}, 20));
    EXPECT_THAT(m_controller->members(), ElementsAre(process.pid()));
    EXPECT_EQ(m_controller->groupOf(getpid()), "outside");
}

TEST_P(CpuLimitOnKernelTest, AcceptsAZombieAsTheKernelDoes)
{
    // Whether it moves differs between kernels; a write that is refused would throw here.
    LoadProcess process;
    process.becomeZombie();
    EXPECT_TRUE(limit({process.pid()}, 20));
    EXPECT_NO_THROW(m_controller->write("zell_tp_ods/cgroup.procs", std::to_string(process.pid())));
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_P(CpuLimitOnKernelTest, LeavesTheLimitInForceWhenAskedToRemoveIt)
{
    const LoadProcess process;
    ASSERT_TRUE(limit({process.pid()}, 20));
    m_utils.removeCPULimit({process.pid()}, "");
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(20));
    EXPECT_EQ(m_controller->groupOf(process.pid()), "/zell_tp_ods");
}

TEST_P(CpuLimitOnKernelTest, LeavesTheGroupBehindWhenTheProcessesHaveEnded)
{
    {
        const LoadProcess process;
        ASSERT_TRUE(limit({process.pid()}, 20));
    }
    EXPECT_THAT(m_controller->members(), IsEmpty());
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(20));
}

TEST_P(CpuLimitOnKernelTest, LeavesTheGroupBehindWhenTheObjectEnds)
{
    const LoadProcess process;
    {
        TAVUtils utils(
            std::make_shared<TAVSystemUtils>(), m_logger, std::make_shared<kernelVersion>(kernelVersion{4, 19, 0}));
        ASSERT_TRUE(utils.setCPULimit({process.pid()}, 20, ""));
    }
    EXPECT_THAT(m_controller->members(), ElementsAre(process.pid()));
}

TEST_P(CpuLimitOnKernelTest, KeepsTheGroupForItsOwnerOnly)
{
    const LoadProcess process;
    ASSERT_TRUE(limit({process.pid()}, 20));
    struct stat status = {};
    ASSERT_EQ(stat(m_controller->group().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
}

TEST_P(CpuLimitOnKernelTest, MakesNoGroupForAnEmptySet)
{
    EXPECT_FALSE(limit({}, 20));
    EXPECT_THAT(messages(), ElementsAre("No process provided to set CPU limitation"));
    EXPECT_FALSE(std::filesystem::exists(m_controller->group()));
}

TEST_P(CpuLimitOnKernelTest, MakesNoGroupOnAnOldKernel)
{
    TAVUtils old(
        std::make_shared<TAVSystemUtils>(), m_logger, std::make_shared<kernelVersion>(kernelVersion{2, 6, 18}));
    EXPECT_FALSE(old.setCPULimit({getpid()}, 20, ""));
    EXPECT_FALSE(std::filesystem::exists(m_controller->group()));
}

TEST_P(CpuLimitOnKernelTest, LeavesNoDescriptorOpen)
{
    const auto openDescriptors = []
    {
        const std::filesystem::directory_iterator entries("/proc/self/fd");
        return std::distance(begin(entries), end(entries));
    };
    const LoadProcess process;
    const auto before = openDescriptors();
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(limit({0, process.pid()}, 20));
    EXPECT_EQ(openDescriptors(), before);
}

INSTANTIATE_TEST_SUITE_P(Kernel, CpuLimitOnKernelTest, ::testing::Values(Place::First, Place::Second), placeName);

} // namespace
} // namespace TAV::test
