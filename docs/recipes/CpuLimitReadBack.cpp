// Recipe: ask the kernel what became of a CPU limit.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "support/TemporaryDirectory.h"

namespace
{

//! [cpu limit read back]
/// Whether every process is in the task group, and the group's quota is `quotaUs` microseconds per period.
bool limitHolds(const std::string& taskGroup, const std::set<int>& pids, std::int64_t quotaUs)
{
    std::ifstream quotaFile(taskGroup + "/cpu.cfs_quota_us");
    std::int64_t quota = 0;
    if (!(quotaFile >> quota) || quota != quotaUs)
        return false; // the kernel refuses a quota below 1000 us, for instance
    std::ifstream procsFile(taskGroup + "/cgroup.procs");
    const std::set<int> members{std::istream_iterator<int>(procsFile), {}};
    const auto isMember = [&members](int pid) { return pid <= 0 || members.count(pid) != 0; };
    return std::all_of(pids.begin(), pids.end(), isMember); // one that is missing has ended since, or was refused
}
//! [cpu limit read back]

/// A directory with the two files as the kernel shows them.
struct Group
{
    Group(const std::string& quota, const std::string& procs)
    {
        directory.write("cpu.cfs_quota_us", quota);
        directory.write("cgroup.procs", procs);
    }

    TAV::test::TemporaryDirectory directory;
};

TEST(CpuLimitReadBackTest, AcceptsGroupWithQuotaAndProcesses)
{
    const Group group("40000\n", "17\n4711\n");

    EXPECT_TRUE(limitHolds(group.directory.path(), {0, 4711}, 40000));
}

TEST(CpuLimitReadBackTest, NoticesQuotaThatWasRefused)
{
    const Group group("-1\n", "4711\n");

    EXPECT_FALSE(limitHolds(group.directory.path(), {4711}, 0));
}

TEST(CpuLimitReadBackTest, NoticesProcessThatIsNotInGroup)
{
    const Group group("40000\n", "17\n4711\n");

    EXPECT_FALSE(limitHolds(group.directory.path(), {47, 4711}, 40000));
}

TEST(CpuLimitReadBackTest, RefusesGroupThatDoesNotExist)
{
    const TAV::test::TemporaryDirectory directory;

    EXPECT_FALSE(limitHolds(directory.file("missing"), {}, 0));
}

} // namespace
