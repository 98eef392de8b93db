#include "common/CpuGroup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/TemporaryDirectory.h"

namespace TAV::test
{
namespace
{

using programs::CpuGroup;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// A root directory with plain files in the place of a controller.
class CpuGroupTest : public ::testing::Test
{
protected:
    void add(const std::string& path, const std::string& content)
    {
        std::filesystem::create_directories(std::filesystem::path(m_root.file(path)).parent_path());
        m_root.write(path, content);
    }

    void addController(const std::string& place, const std::string& quota = "-1\n")
    {
        add(place + "/cpu.cfs_period_us", "100000\n");
        add(place + "/cpu.cfs_quota_us", quota);
    }

    CpuGroup read() const { return programs::readCpuGroup(m_root.path()); }

    TemporaryDirectory m_root;
};

TEST_F(CpuGroupTest, IsEmptyWithoutAController)
{
    const CpuGroup group = read();
    EXPECT_THAT(group.controller, IsEmpty());
    EXPECT_FALSE(group.exists());
    EXPECT_FALSE(group.isLimited());
}

TEST_F(CpuGroupTest, IsAtTheFirstPlaceWithBothFiles)
{
    addController("cgroup/cpu");
    add("sys/fs/cgroup/cpu,cpuacct/cpu.cfs_period_us", "100000\n");
    EXPECT_EQ(read().controller, m_root.file("cgroup/cpu"));
    add("sys/fs/cgroup/cpu,cpuacct/cpu.cfs_quota_us", "-1\n");
    EXPECT_EQ(read().controller, m_root.file("sys/fs/cgroup/cpu,cpuacct"));
}

TEST_F(CpuGroupTest, DoesNotExistUntilSomebodyHasMadeIt)
{
    addController("cgroup/cpu");
    EXPECT_FALSE(read().exists());
    addController("cgroup/cpu/zell_tp_ods");
    EXPECT_EQ(read().path, m_root.file("cgroup/cpu/zell_tp_ods"));
}

TEST_F(CpuGroupTest, ShowsWhatTheControlFilesSay)
{
    addController("cgroup/cpu");
    addController("cgroup/cpu/zell_tp_ods", "40000\n");
    add("cgroup/cpu/zell_tp_ods/cgroup.procs", "4711\n12\n");
    add("cgroup/cpu/zell_tp_ods/cpu.stat", "nr_periods 41\nnr_throttled 40\nthrottled_time 3200500000\nnr_bursts 7\n");
    const CpuGroup group = read();
    EXPECT_EQ(group.periodUs, 100000);
    EXPECT_EQ(group.quotaUs, 40000);
    EXPECT_THAT(group.members, ElementsAre(12, 4711));
    EXPECT_EQ(group.periods, 41U);
    EXPECT_EQ(group.throttledPeriods, 40U);
    EXPECT_EQ(group.throttledNs, 3200500000U);
    EXPECT_TRUE(group.isLimited());
}

TEST_F(CpuGroupTest, IsNotLimitedByANegativeQuota)
{
    addController("cgroup/cpu");
    addController("cgroup/cpu/zell_tp_ods", "-1\n");
    EXPECT_TRUE(read().exists());
    EXPECT_FALSE(read().isLimited());
}

TEST_F(CpuGroupTest, TellsThePercentageOfTheMachine)
{
    CpuGroup group;
    group.periodUs = 100000;
    group.quotaUs = 40000;
    EXPECT_DOUBLE_EQ(programs::percentOf(group, 2), 20.0);
    EXPECT_DOUBLE_EQ(programs::percentOf(group, 1), 40.0);
    EXPECT_DOUBLE_EQ(programs::percentOf(group, 0), 0.0);
    EXPECT_DOUBLE_EQ(programs::percentOf(CpuGroup{}, 2), 0.0);
}

TEST_F(CpuGroupTest, DescribesAHostWithoutController)
{
    EXPECT_EQ(programs::describe(CpuGroup{}, 2),
              "controller      none: no cgroup v1 cpu controller at /sys/fs/cgroup/cpu,cpuacct or /cgroup/cpu\n");
}

TEST_F(CpuGroupTest, DescribesALimit)
{
    CpuGroup group{"/c", "/c/g", 100000, 33333, {3, 20}, 41, 40, 3200500000U};
    EXPECT_EQ(programs::describe(group, 2),
              "controller      /c\n"
              "group           /c/g\n"
              "period          100000 us\n"
              "quota           33333 us per period, 16.67 % of 2 processors\n"
              "members         3 20\n"
              "periods         41, held back in 40\n"
              "throttled time  3.200 s\n");
    group.quotaUs = -1;
    group.members = {};
    EXPECT_THAT(programs::describe(group, 1), HasSubstr("quota           none: the group is not limited\n"));
    EXPECT_THAT(programs::describe(group, 1), HasSubstr("members         none\n"));
}

} // namespace
} // namespace TAV::test
