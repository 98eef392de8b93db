#include <fstream>

#include "KernelCgroupTest.h"

namespace TAV::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What the kernel refuses shows only when a file is closed, which the library does not look at: the call succeeds, and
/// the caller learns the truth by reading back.
class CpuRefusalOnKernelTest : public KernelCgroupTest
{
protected:
    void SetUp() override
    {
        KernelCgroupTest::SetUp();
        if (IsSkipped())
            return;
        m_process.emplace();
        ASSERT_TRUE(limit({m_process->pid()}, 20));
    }

    /// The number of a process that has ended and been waited for.
    static int deadProcess()
    {
        LoadProcess process;
        const int pid = process.pid();
        process.becomeZombie();
        process.reap();
        return pid;
    }

    std::optional<LoadProcess> m_process;
};

TEST_P(CpuRefusalOnKernelTest, KeepsTheOldQuotaAtALimitOfZero)
{
    EXPECT_TRUE(limit({m_process->pid()}, 0));
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(20));
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_P(CpuRefusalOnKernelTest, KeepsTheOldQuotaBelowOneThousandMicroseconds)
{
    m_controller->write("zell_tp_ods/cpu.cfs_period_us", "1000");
    m_controller->write("zell_tp_ods/cpu.cfs_quota_us", "5000");
    EXPECT_TRUE(limit({m_process->pid()}, 1));
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), "5000");
}

TEST_P(CpuRefusalOnKernelTest, KeepsTheOldQuotaAboveThatOfTheGroupAround)
{
    m_controller->write("cpu.cfs_quota_us", quotaOf(50));
    EXPECT_TRUE(limit({m_process->pid()}, 60));
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(20));
    EXPECT_TRUE(limit({m_process->pid()}, 50));
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(50));
}

TEST_P(CpuRefusalOnKernelTest, MovesTheProcessesEvenWhenTheQuotaIsRefused)
{
    const LoadProcess other;
    EXPECT_TRUE(limit({other.pid()}, 0));
    EXPECT_EQ(m_controller->groupOf(other.pid()), "/zell_tp_ods");
}

TEST_P(CpuRefusalOnKernelTest, PassesOverADeadProcess)
{
    const LoadProcess other;
    EXPECT_TRUE(limit({deadProcess(), other.pid()}, 20));
    EXPECT_EQ(m_controller->members(), (std::set<int>{m_process->pid(), other.pid()}));
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_P(CpuRefusalOnKernelTest, PassesOverAnImpossibleProcess)
{
    EXPECT_TRUE(limit({2147483647}, 20));
    EXPECT_THAT(m_controller->members(), ElementsAre(m_process->pid()));
}

TEST_P(CpuRefusalOnKernelTest, PassesOverAKernelThread)
{
    std::ifstream file("/proc/2/comm");
    std::string name;
    file >> name;
    if (name != "kthreadd")
        GTEST_SKIP() << "process 2 is not the kernel's here: the test runs in a process namespace";
    EXPECT_TRUE(limit({2}, 20));
    EXPECT_EQ(m_controller->groupOf(2), "outside");
}

TEST_P(CpuRefusalOnKernelTest, CannotOpenTheQuotaOnAReadOnlyMount)
{
    m_controller->makeReadOnly();
    EXPECT_FALSE(limit({m_process->pid()}, 50));
    EXPECT_THAT(messages(), ElementsAre("Failed to open CPU quota configuration file"));
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(20));
}

TEST_P(CpuRefusalOnKernelTest, RefusesAPlainDirectoryInPlaceOfTheController)
{
    // Discovery takes it for the controller, but no kernel fills the group that is made there.
    m_controller->unmount();
    std::ofstream(m_controller->mount() + "/cpu.cfs_period_us") << "100000\n";
    std::ofstream(m_controller->mount() + "/cpu.cfs_quota_us") << "-1\n";
    EXPECT_FALSE(limit({m_process->pid()}, 20));
    EXPECT_THAT(messages(), ElementsAre("Failed to open CPU default period configuration file"));
}

INSTANTIATE_TEST_SUITE_P(Kernel, CpuRefusalOnKernelTest, ::testing::Values(Place::First, Place::Second), placeName);

} // namespace
} // namespace TAV::test
