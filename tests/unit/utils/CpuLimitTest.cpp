#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <locale>

#include "FakeCgroups.h"

namespace TAV::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

/// Writes 1234567 as "1,234,567".
class ThousandsSeparators : public std::numpunct<char>
{
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
};

class GlobalLocale
{
public:
    explicit GlobalLocale(const std::locale& locale) : m_before(std::locale::global(locale)) {}
    GlobalLocale(const GlobalLocale&) = delete;
    GlobalLocale& operator=(const GlobalLocale&) = delete;
    ~GlobalLocale() { std::locale::global(m_before); }

private:
    std::locale m_before;
};

class CpuLimitTest : public ::testing::TestWithParam<const char*>
{
protected:
    std::string file(const char* name) const { return groupFile(GetParam(), name); }

    bool limit(const std::set<int>& pids, unsigned short percent = 20, const std::string& name = "")
    {
        return m_setUp.utils.setCPULimit(pids, percent, name);
    }

    CgroupSetUp m_setUp{GetParam()};
};

TEST_P(CpuLimitTest, MakesEveryCallInOrder)
{
    const std::string group = groupUnder(GetParam());
    EXPECT_TRUE(limit({42, 7}));
    EXPECT_THAT(m_setUp.cgroups->calls(),
                ElementsAre("stat(/sys/fs/cgroup/cpu,cpuacct/cpu.cfs_period_us)",
                            "stat(/sys/fs/cgroup/cpu,cpuacct/cpu.cfs_quota_us)",
                            "stat(/cgroup/cpu/cpu.cfs_period_us)",
                            "stat(/cgroup/cpu/cpu.cfs_quota_us)",
                            "stat(" + group + ")",
                            "mkdir(" + group + ", 448)",
                            "openInputFile(" + file(kPeriod) + ")",
                            "stat(" + file(kQuota) + ")",
                            "stat(" + file(kProcs) + ")",
                            "openOutputFile(" + file(kQuota) + ")",
                            "openInputFile(/proc/cpuinfo)",
                            "openOutputFile(" + file(kProcs) + ")",
                            "openOutputFile(" + file(kProcs) + ")"));
}

TEST_P(CpuLimitTest, WritesTheQuotaThenEachProcess)
{
    EXPECT_TRUE(limit({1234, 99, 2147483647}));
    EXPECT_THAT(m_setUp.cgroups->writes(),
                ElementsAre(Pair(file(kQuota), "40000"),
                            Pair(file(kProcs), "99"),
                            Pair(file(kProcs), "1234"),
                            Pair(file(kProcs), "2147483647")));
    EXPECT_THAT(m_setUp.messages(), IsEmpty());
}

TEST_P(CpuLimitTest, OpensTheFileForSkippedIdsToo)
{
    EXPECT_TRUE(limit({0, -5, 1234, std::numeric_limits<int>::min()}));
    EXPECT_THAT(m_setUp.cgroups->writes(),
                ElementsAre(Pair(file(kQuota), "40000"),
                            Pair(file(kProcs), ""),
                            Pair(file(kProcs), ""),
                            Pair(file(kProcs), ""),
                            Pair(file(kProcs), "1234")));
}

TEST_P(CpuLimitTest, SucceedsWhenEveryIdIsSkipped)
{
    EXPECT_TRUE(limit({0, -1}));
    EXPECT_THAT(m_setUp.cgroups->writes(),
                ElementsAre(Pair(file(kQuota), "40000"), Pair(file(kProcs), ""), Pair(file(kProcs), "")));
    EXPECT_THAT(m_setUp.messages(), IsEmpty());
}

TEST_P(CpuLimitTest, HasOnlyTheQuotaFileOpenAtAnyCall)
{
    std::vector<std::string> callsWithOpenFiles;
    m_setUp.cgroups->onCall = [&](const std::string& call)
    {
        const unsigned int open = m_setUp.cgroups->openFiles();
        if (open != 0)
            callsWithOpenFiles.push_back(call + " " + std::to_string(open));
    };
    EXPECT_TRUE(limit({0, 10, 20}));
    EXPECT_THAT(callsWithOpenFiles, ElementsAre("openInputFile(/proc/cpuinfo) 1"));
    EXPECT_EQ(m_setUp.cgroups->openFiles(), 0U);
}

TEST_P(CpuLimitTest, ClosesEachFileBeforeTheNextProcess)
{
    std::vector<std::string> written;
    const auto forward = m_setUp.cgroups->onOpenOutputFile;
    m_setUp.cgroups->onOpenOutputFile = [&](std::ofstream& stream, const std::string& path)
    {
        const auto writes = m_setUp.cgroups->writes();
        written.push_back(writes.empty() ? "nothing" : writes.back().second);
        forward(stream, path);
    };
    EXPECT_TRUE(limit({10, 20}));
    EXPECT_THAT(written, ElementsAre("nothing", "40000", "10"));
}

TEST_P(CpuLimitTest, TakesAFreshStreamForEachProcess)
{
    const auto forward = m_setUp.cgroups->onOpenOutputFile;
    unsigned int opened = 0;
    m_setUp.cgroups->onOpenOutputFile = [&](std::ofstream& stream, const std::string& path)
    {
        EXPECT_FALSE(stream.is_open());
        EXPECT_TRUE(stream.good());
        EXPECT_EQ(stream.width(), 0);
        forward(stream, path);
        stream.width(12);
        stream.fill('*');
        if (path == file(kProcs))
            stream.setstate(std::ios::failbit);
        ++opened;
    };
    EXPECT_TRUE(limit({10, 20, 30}));
    EXPECT_EQ(opened, 4U);
}

TEST_P(CpuLimitTest, DoesNotReportAWriteThatFails)
{
    m_setUp.cgroups->onOpenOutputFile = [](std::ofstream& stream, const std::string&) { stream.open("/dev/full"); };
    EXPECT_TRUE(limit({10, 20}));
    EXPECT_THAT(m_setUp.messages(), IsEmpty());
    EXPECT_EQ(m_setUp.cgroups->countOf("openOutputFile"), 3U);
}

TEST_P(CpuLimitTest, IgnoresTheGroupName)
{
    for (const std::string name : {"", "other", "../escape", "zell_tp_ods"})
    {
        CgroupSetUp setUp(GetParam());
        EXPECT_TRUE(setUp.utils.setCPULimit({10}, 20, name));
        EXPECT_THAT(setUp.cgroups->writes(), ElementsAre(Pair(file(kQuota), "40000"), Pair(file(kProcs), "10")));
    }
}

TEST_P(CpuLimitTest, UsesTheSameGroupAtEveryCall)
{
    EXPECT_TRUE(limit({10}, 20));
    EXPECT_TRUE(limit({20}, 50));
    EXPECT_THAT(m_setUp.cgroups->writes(),
                ElementsAre(Pair(file(kQuota), "40000"),
                            Pair(file(kProcs), "10"),
                            Pair(file(kQuota), "100000"),
                            Pair(file(kProcs), "20")));
    EXPECT_EQ(m_setUp.cgroups->countOf("mkdir"), 1U);
}

TEST_P(CpuLimitTest, ReadsThePeriodAndTheProcessorsAtEveryCall)
{
    EXPECT_TRUE(limit({10}, 100));
    m_setUp.cgroups->addFile(file(kPeriod), "50000\n");
    m_setUp.cgroups->addFile("/proc/cpuinfo", cpuInfoOf(3));
    EXPECT_TRUE(limit({10}, 100));
    const auto writes = m_setUp.cgroups->writes();
    EXPECT_EQ(writes.at(0).second, "200000");
    EXPECT_EQ(writes.at(2).second, "150000");
}

TEST_P(CpuLimitTest, ReadsThePeriodOfTheGroupNotOfTheMount)
{
    m_setUp.cgroups->addGroup(groupUnder(GetParam()));
    m_setUp.cgroups->addFile(std::string(GetParam()) + "/" + kPeriod, "1000\n");
    EXPECT_TRUE(limit({10}, 100));
    EXPECT_EQ(m_setUp.cgroups->writes().front().second, "200000");
}

TEST_P(CpuLimitTest, CountsOneProcessorWhenTheyCannotBeRead)
{
    m_setUp.cgroups->remove("/proc/cpuinfo");
    EXPECT_TRUE(limit({10}, 100));
    EXPECT_EQ(m_setUp.cgroups->writes().front().second, "100000");
    EXPECT_THAT(m_setUp.messages(), IsEmpty());
}

TEST_P(CpuLimitTest, WritesPlainNumbersUnderAnyGlobalLocale)
{
    const GlobalLocale global(std::locale(std::locale::classic(), new ThousandsSeparators));
    m_setUp.cgroups->failCall("openOutputFile", 3, EACCES);
    EXPECT_FALSE(limit({1234567, 7654321}, 65535));
    EXPECT_THAT(m_setUp.cgroups->writes(), ElementsAre(Pair(file(kQuota), "131070000"), Pair(file(kProcs), "1234567")));
    EXPECT_THAT(m_setUp.messages(), ElementsAre("Failed to open process PID configuration file for PID: 7654321"));
}

TEST_P(CpuLimitTest, HandsOverZeroedStatusesAndErrors)
{
    const auto forward = m_setUp.cgroups->onStat;
    m_setUp.cgroups->onStat = [&](const char* path, struct stat* buffer, int& err)
    {
        const struct stat zeroed = {};
        EXPECT_EQ(std::memcmp(buffer, &zeroed, sizeof zeroed), 0) << path;
        EXPECT_EQ(err, 0) << path;
        int own = 0;
        return forward(path, buffer, own);
    };
    EXPECT_TRUE(limit({10}));
    EXPECT_EQ(m_setUp.cgroups->countOf("stat"), 7U);
}

INSTANTIATE_TEST_SUITE_P(BothMounts, CpuLimitTest, ::testing::Values(kFirstMount, kSecondMount));

TEST(CpuLimitGateTest, RefusesWithoutAWordOnAnOldKernel)
{
    CgroupSetUp setUp;
    RecordingLogger logger;
    TAVUtils old(setUp.cgroups, logger, std::make_shared<kernelVersion>(kernelVersion{2, 6, 23}));
    const std::size_t before = logger.lines().size();
    EXPECT_FALSE(old.setCPULimit({10}, 20, ""));
    EXPECT_EQ(logger.lines().size(), before);
    EXPECT_THAT(setUp.cgroups->calls(), IsEmpty());
}

/// Answers of its own for the two operations that the limit asks for through the interface.
class OverriddenUtils : public TAVUtils
{
public:
    using TAVUtils::TAVUtils;

    bool isCGroupsSupported() override { return supported; }
    bool isDefaultCGroupsMountAvailable() override { return available; }

    bool supported = true;
    bool available = true;
};

TEST(CpuLimitGateTest, AsksTheInterfaceWhetherCgroupsAreSupported)
{
    CgroupSetUp setUp;
    OverriddenUtils utils(setUp.cgroups, setUp.logger, std::make_shared<kernelVersion>(kernelVersion{4, 19, 0}));
    utils.supported = false;
    EXPECT_FALSE(utils.setCPULimit({10}, 20, ""));
    EXPECT_THAT(setUp.messages(), IsEmpty());
}

TEST(CpuLimitGateTest, AsksTheInterfaceForTheMount)
{
    CgroupSetUp setUp;
    OverriddenUtils utils(setUp.cgroups, setUp.logger, std::make_shared<kernelVersion>(kernelVersion{4, 19, 0}));
    utils.available = false;
    EXPECT_FALSE(utils.setCPULimit({10}, 20, ""));
    EXPECT_THAT(setUp.messages(), ElementsAre("Could not find cgroup mount or it is been modified."));
    EXPECT_THAT(setUp.cgroups->calls(), IsEmpty());
}

TEST(CpuLimitRemovalTest, DoesNothing)
{
    CgroupSetUp setUp;
    setUp.utils.removeCPULimit({}, "");
    setUp.utils.removeCPULimit({0, -1, 10}, "zell_tp_ods");
    EXPECT_THAT(setUp.cgroups->calls(), IsEmpty());
    EXPECT_THAT(setUp.messages(), IsEmpty());
}

TEST(CpuLimitRemovalTest, LeavesALimitInForce)
{
    CgroupSetUp setUp;
    ASSERT_TRUE(setUp.utils.setCPULimit({10}, 20, "group"));
    const auto calls = setUp.cgroups->calls();
    const auto writes = setUp.cgroups->writes();
    setUp.utils.removeCPULimit({10}, "group");
    EXPECT_EQ(setUp.cgroups->calls(), calls);
    EXPECT_EQ(setUp.cgroups->writes(), writes);
}

TEST(CpuLimitRemovalTest, WorksOnAnOldKernel)
{
    CgroupSetUp setUp;
    TAVUtils old(setUp.cgroups, setUp.logger, std::make_shared<kernelVersion>(kernelVersion{2, 6, 18}));
    const std::size_t before = setUp.logger.lines().size();
    old.removeCPULimit({10}, "group");
    EXPECT_EQ(setUp.logger.lines().size(), before);
    EXPECT_THAT(setUp.cgroups->calls(), IsEmpty());
}

TEST(CpuLimitRemovalTest, TouchesNothingWhenTheObjectEnds)
{
    CgroupSetUp setUp;
    {
        TAVUtils utils(setUp.cgroups, setUp.logger, std::make_shared<kernelVersion>(kernelVersion{4, 19, 0}));
        ASSERT_TRUE(utils.setCPULimit({10}, 20, ""));
        setUp.cgroups->onCall = [](const std::string& call) { ADD_FAILURE() << call; };
    }
    EXPECT_TRUE(setUp.cgroups->has(groupUnder(kFirstMount)));
}

} // namespace
} // namespace TAV::test
