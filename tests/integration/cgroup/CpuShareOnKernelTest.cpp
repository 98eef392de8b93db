#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>

#include "KernelCgroupTest.h"

namespace TAV::test
{
namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr double kTolerance = 1.15;

/// Busy processes under a limit. Only upper bounds are told from the clock, for the machine may be loaded; that the
/// processes did run is told from the periods in which the kernel had to hold them back.
class CpuShareOnKernelTest : public KernelCgroupTest
{
protected:
    void start(unsigned int processes, unsigned int threadsOfEach = 1)
    {
        for (unsigned int i = 0; i < processes; ++i)
        {
            m_owned.push_back(std::make_unique<LoadProcess>(threadsOfEach));
            m_owned.back()->threads();
            m_load.push_back(m_owned.back().get());
        }
    }

    std::set<int> pids() const
    {
        std::set<int> ids;
        for (const LoadProcess* process : m_load)
            ids.insert(process->pid());
        return ids;
    }

    /// The quota that the kernel holds, as a number of processors.
    double quota() const
    {
        return std::stod(m_controller->groupFile("cpu.cfs_quota_us")) /
               std::stod(m_controller->groupFile("cpu.cfs_period_us"));
    }

    void expectShareWithinQuota(std::chrono::milliseconds time = 2s)
    {
        std::this_thread::sleep_for(300ms);
        const double used = processorsUsed(m_load, time);
        RecordProperty("processors_used", std::to_string(used));
        EXPECT_LE(used, quota() * kTolerance);
        EXPECT_GT(used, 0.0);
    }

    std::vector<std::unique_ptr<LoadProcess>> m_owned;
    std::vector<const LoadProcess*> m_load;
};

/// Two busy processes on a limit of so many percent.
class CpuShareOfLimitTest : public CpuShareOnKernelTest
{
protected:
    void expectWithin(unsigned short percent)
    {
        start(2);
        ASSERT_TRUE(limit(pids(), percent));
        ASSERT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(percent));
        expectShareWithinQuota(3s);
    }
};

TEST_P(CpuShareOfLimitTest, StaysWithinFivePercent)
{
    expectWithin(5);
}

TEST_P(CpuShareOfLimitTest, StaysWithinTwentyPercent)
{
    expectWithin(20);
}

TEST_P(CpuShareOfLimitTest, StaysWithinFiftyPercent)
{
    expectWithin(50);
}

TEST_P(CpuShareOfLimitTest, StaysWithinAllProcessors)
{
    expectWithin(100);
}

INSTANTIATE_TEST_SUITE_P(Kernel, CpuShareOfLimitTest, ::testing::Values(Place::First, Place::Second), placeName);

TEST_P(CpuShareOnKernelTest, IsThatOfTheGroupNotOfEachProcess)
{
    start(4);
    ASSERT_TRUE(limit(pids(), 10));
    expectShareWithinQuota();
}

TEST_P(CpuShareOnKernelTest, HoldsForAllThreadsOfAProcess)
{
    start(1, 4);
    ASSERT_TRUE(limit(pids(), 10));
    expectShareWithinQuota();
}

TEST_P(CpuShareOnKernelTest, FollowsALaterCall)
{
    start(2);
    ASSERT_TRUE(limit(pids(), 50));
    ASSERT_TRUE(limit({m_load.front()->pid()}, 5));
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(5));
    expectShareWithinQuota();
}

TEST_P(CpuShareOnKernelTest, HoldsForChildrenOfALimitedProcess)
{
    ASSERT_TRUE(limit({getpid()}, 10));
    start(2);
    EXPECT_EQ(m_controller->groupOf(m_load.front()->pid()), "/zell_tp_ods");
    expectShareWithinQuota();
}

TEST_P(CpuShareOnKernelTest, IsHeldByThrottling)
{
    start(2);
    ASSERT_TRUE(limit(pids(), 5));
    const auto throttledBefore = m_controller->statistic("nr_throttled");
    const auto timeBefore = m_controller->statistic("throttled_time");
    const double usedBefore = m_load[0]->cpuSeconds() + m_load[1]->cpuSeconds();
    constexpr unsigned int kPeriods = 10;
    const auto throttled = [&] { return m_controller->statistic("nr_throttled") - throttledBefore; };
    for (const auto deadline = Clock::now() + 60s; throttled() < kPeriods && Clock::now() < deadline;)
        std::this_thread::sleep_for(50ms);
    ASSERT_GE(throttled(), kPeriods);
    EXPECT_GT(m_controller->statistic("throttled_time"), timeBefore);
    // Who is held back has used up what the period gives, but for slices that are stranded on a processor.
    const double used = m_load[0]->cpuSeconds() + m_load[1]->cpuSeconds() - usedBefore;
    const double period = std::stod(m_controller->groupFile("cpu.cfs_period_us")) / 1e6;
    EXPECT_GE(used, kPeriods * quota() * period / 2);
}

INSTANTIATE_TEST_SUITE_P(Kernel, CpuShareOnKernelTest, ::testing::Values(Place::First, Place::Second), placeName);

} // namespace
} // namespace TAV::test
