#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "FakeCgroups.h"

namespace TAV::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kNotFound = "Could not find cgroup mount or it is been modified";

constexpr std::array<const char*, 4> kFiles = {"/sys/fs/cgroup/cpu,cpuacct/cpu.cfs_period_us",
                                               "/sys/fs/cgroup/cpu,cpuacct/cpu.cfs_quota_us",
                                               "/cgroup/cpu/cpu.cfs_period_us",
                                               "/cgroup/cpu/cpu.cfs_quota_us"};

/// The path that the object holds, seen through the group that it would make there.
std::string heldPath(CgroupSetUp& setUp)
{
    std::string ignored;
    setUp.utils.updateCPUTaskGroupDirectory(ignored);
    const std::vector<std::string> calls = setUp.cgroups->calls();
    const auto last =
        std::find_if(calls.rbegin(), calls.rend(), [](const std::string& call) { return call.rfind("stat(", 0) == 0; });
    const std::string tail = "/zell_tp_ods)";
    return last->substr(5, last->size() - 5 - tail.size());
}

/// Which of the four files exist, first one first.
class CgroupDiscoveryAnswersTest : public ::testing::TestWithParam<unsigned int>
{
protected:
    static bool exists(unsigned int file) { return (GetParam() >> file & 1U) != 0; }

    static std::string expectedPath()
    {
        if (exists(0) && exists(1))
            return kFirstMount;
        return exists(2) && exists(3) ? kSecondMount : "";
    }

    CgroupDiscoveryAnswersTest()
    {
        m_setUp.cgroups->remove(kFirstMount);
        for (unsigned int i = 0; i < kFiles.size(); ++i)
        {
            if (exists(i))
                m_setUp.cgroups->addFile(kFiles.at(i), "100000\n");
        }
    }

    CgroupSetUp m_setUp;
};

TEST_P(CgroupDiscoveryAnswersTest, TakesTheFirstMountWithBothFiles)
{
    EXPECT_EQ(m_setUp.utils.isDefaultCGroupsMountAvailable(), !expectedPath().empty());
    EXPECT_EQ(heldPath(m_setUp), expectedPath());
}

TEST_P(CgroupDiscoveryAnswersTest, AsksForAllFourInOrder)
{
    m_setUp.utils.isDefaultCGroupsMountAvailable();
    EXPECT_THAT(m_setUp.cgroups->calls(),
                ElementsAre("stat(/sys/fs/cgroup/cpu,cpuacct/cpu.cfs_period_us)",
                            "stat(/sys/fs/cgroup/cpu,cpuacct/cpu.cfs_quota_us)",
                            "stat(/cgroup/cpu/cpu.cfs_period_us)",
                            "stat(/cgroup/cpu/cpu.cfs_quota_us)"));
}

TEST_P(CgroupDiscoveryAnswersTest, LogsOnlyWhenNoneIsFound)
{
    m_setUp.utils.isDefaultCGroupsMountAvailable();
    if (expectedPath().empty())
        EXPECT_THAT(m_setUp.logger.lines(), ElementsAre(LogLine{6, "TAVUtils", kNotFound}));
    else
        EXPECT_THAT(m_setUp.logger.lines(), IsEmpty());
}

TEST_P(CgroupDiscoveryAnswersTest, ForgetsAnEarlierPath)
{
    const bool present = m_setUp.utils.isDefaultCGroupsMountAvailable();
    m_setUp.cgroups->remove(kFirstMount);
    m_setUp.cgroups->remove(kSecondMount);
    ASSERT_FALSE(m_setUp.utils.isDefaultCGroupsMountAvailable()) << "found before: " << present;
    EXPECT_EQ(heldPath(m_setUp), "");
}

INSTANTIATE_TEST_SUITE_P(AllSixteen, CgroupDiscoveryAnswersTest, ::testing::Range(0U, 16U));

TEST(CgroupDiscoveryTest, TreatsEveryResultButZeroAsMissing)
{
    for (const int result : {-1, 1, 2, -2})
    {
        CgroupSetUp setUp;
        setUp.cgroups->onStat = [result](const char*, struct stat*, int&) { return result; };
        EXPECT_FALSE(setUp.utils.isDefaultCGroupsMountAvailable()) << result;
    }
}

TEST(CgroupDiscoveryTest, LooksNeitherAtTheStatusNorAtTheError)
{
    CgroupSetUp setUp;
    setUp.cgroups->onStat = [](const char*, struct stat* buffer, int& err)
    {
        std::memset(buffer, 0xff, sizeof *buffer);
        err = EACCES;
        return 0;
    };
    EXPECT_TRUE(setUp.utils.isDefaultCGroupsMountAvailable());
    EXPECT_THAT(setUp.messages(), IsEmpty());
}

TEST(CgroupDiscoveryTest, HandsOverAZeroedStatusAndError)
{
    CgroupSetUp setUp;
    unsigned int calls = 0;
    setUp.cgroups->onStat = [&calls](const char*, struct stat* buffer, int& err)
    {
        constexpr struct stat zeroed = {};
        EXPECT_EQ(std::memcmp(buffer, &zeroed, sizeof zeroed), 0);
        EXPECT_EQ(err, 0);
        ++calls;
        return -1;
    };
    setUp.utils.isDefaultCGroupsMountAvailable();
    EXPECT_EQ(calls, 4U);
}

TEST(CgroupDiscoveryTest, DoesNotMentionTheErrorOfAFailedCall)
{
    for (const int err : {ENOENT, EACCES, ELOOP, ENOMEM})
    {
        CgroupSetUp setUp;
        setUp.cgroups->failCall("stat", 1, err, Lasting::FromThenOn);
        EXPECT_FALSE(setUp.utils.isDefaultCGroupsMountAvailable());
        EXPECT_THAT(setUp.messages(), ElementsAre(kNotFound));
    }
}

TEST(CgroupDiscoveryTest, FindsAControllerThatAppearsLater)
{
    CgroupSetUp setUp(kSecondMount);
    setUp.cgroups->remove(kSecondMount);
    EXPECT_FALSE(setUp.utils.isDefaultCGroupsMountAvailable());
    setUp.cgroups->addController(kSecondMount);
    EXPECT_TRUE(setUp.utils.isDefaultCGroupsMountAvailable());
    EXPECT_EQ(heldPath(setUp), kSecondMount);
}

TEST(CgroupDiscoveryTest, MovesToTheFirstMountWhenItAppears)
{
    CgroupSetUp setUp(kSecondMount);
    ASSERT_TRUE(setUp.utils.isDefaultCGroupsMountAvailable());
    setUp.cgroups->addController(kFirstMount);
    EXPECT_TRUE(setUp.utils.isDefaultCGroupsMountAvailable());
    EXPECT_EQ(heldPath(setUp), kFirstMount);
}

TEST(CgroupDiscoveryTest, DoesNotDependOnTheKernelVersion)
{
    CgroupSetUp setUp;
    RecordingLogger logger;
    TAVUtils old(setUp.cgroups, logger, std::make_shared<kernelVersion>(kernelVersion{2, 6, 18}));
    EXPECT_TRUE(old.isDefaultCGroupsMountAvailable());
}

TEST(CgroupDiscoveryTest, WritesNothing)
{
    CgroupSetUp setUp;
    setUp.utils.isDefaultCGroupsMountAvailable();
    EXPECT_EQ(setUp.cgroups->calls().size(), 4U);
    EXPECT_THAT(setUp.cgroups->writes(), IsEmpty());
}

} // namespace
} // namespace TAV::test
