#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "FakeCgroups.h"

namespace TAV::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kNotMade = "Failed to create subgroup for cgroup task";

/// The calls after the four of discovery.
std::vector<std::string> callsAfterDiscovery(const FakeCgroups& cgroups)
{
    const std::vector<std::string> calls = cgroups.calls();
    return {calls.begin() + 4, calls.end()};
}

class CgroupTaskGroupTest : public ::testing::TestWithParam<const char*>
{
protected:
    CgroupTaskGroupTest() { EXPECT_TRUE(m_setUp.utils.isDefaultCGroupsMountAvailable()); }

    bool update(std::string name = "") { return m_setUp.utils.updateCPUTaskGroupDirectory(name); }

    const std::string m_group = groupUnder(GetParam());
    CgroupSetUp m_setUp{GetParam()};
};

TEST_P(CgroupTaskGroupTest, MakesAMissingDirectoryWithMode0700)
{
    EXPECT_TRUE(update());
    EXPECT_THAT(callsAfterDiscovery(*m_setUp.cgroups),
                ElementsAre("stat(" + m_group + ")", "mkdir(" + m_group + ", 448)"));
    EXPECT_THAT(m_setUp.messages(), IsEmpty());
}

TEST_P(CgroupTaskGroupTest, UsesAnExistingDirectoryAsItIs)
{
    m_setUp.cgroups->addGroup(m_group);
    EXPECT_TRUE(update());
    EXPECT_THAT(callsAfterDiscovery(*m_setUp.cgroups), ElementsAre("stat(" + m_group + ")"));
    EXPECT_THAT(m_setUp.messages(), IsEmpty());
}

TEST_P(CgroupTaskGroupTest, AcceptsWhateverStandsAtThePath)
{
    m_setUp.cgroups->addFile(m_group, "a plain file");
    EXPECT_TRUE(update());
}

TEST_P(CgroupTaskGroupTest, LogsADirectoryThatCannotBeMade)
{
    for (const int err : {EACCES, EEXIST, ENOSPC, EROFS})
    {
        CgroupSetUp setUp(GetParam());
        setUp.utils.isDefaultCGroupsMountAvailable();
        setUp.cgroups->failCall("mkdir", 1, err);
        std::string name;
        EXPECT_FALSE(setUp.utils.updateCPUTaskGroupDirectory(name));
        EXPECT_THAT(setUp.logger.lines(), ElementsAre(LogLine{6, "TAVUtils", kNotMade}));
    }
}

TEST_P(CgroupTaskGroupTest, TreatsEveryMkdirResultButZeroAsFailure)
{
    m_setUp.cgroups->onMkdir = [](const std::string&, mode_t, int&) { return 1; };
    EXPECT_FALSE(update());
    EXPECT_THAT(m_setUp.messages(), ElementsAre(kNotMade));
}

TEST_P(CgroupTaskGroupTest, TreatsEveryStatResultButZeroAsMissing)
{
    m_setUp.cgroups->addGroup(m_group);
    m_setUp.cgroups->onStat = [](const char*, struct stat*, int&) { return 1; };
    EXPECT_TRUE(update());
    EXPECT_EQ(m_setUp.cgroups->countOf("mkdir"), 1U);
}

TEST_P(CgroupTaskGroupTest, DoesNotAskAgainAfterMakingTheDirectory)
{
    m_setUp.cgroups->onMkdir = [](const std::string&, mode_t, int& err)
    {
        err = EIO;
        return 0;
    };
    EXPECT_TRUE(update());
    EXPECT_FALSE(m_setUp.cgroups->has(m_group));
    EXPECT_EQ(m_setUp.cgroups->countOf("stat"), 5U);
}

TEST_P(CgroupTaskGroupTest, AppendsTheNameAtEveryCall)
{
    EXPECT_TRUE(update());
    EXPECT_TRUE(update());
    EXPECT_TRUE(update());
    EXPECT_TRUE(m_setUp.cgroups->has(m_group + "/zell_tp_ods/zell_tp_ods"));
    EXPECT_EQ(callsAfterDiscovery(*m_setUp.cgroups).back(), "mkdir(" + m_group + "/zell_tp_ods/zell_tp_ods, 448)");
}

TEST_P(CgroupTaskGroupTest, KeepsTheAppendedNameAfterAFailure)
{
    m_setUp.cgroups->failCall("mkdir", 1, EACCES);
    EXPECT_FALSE(update());
    EXPECT_TRUE(update());
    EXPECT_EQ(m_setUp.cgroups->calls().back(), "mkdir(" + m_group + "/zell_tp_ods, 448)");
}

TEST_P(CgroupTaskGroupTest, KeepsTheAppendedNameWhenTheSystemThrows)
{
    m_setUp.cgroups->onCall = [](const std::string&) { throw std::runtime_error("no answer"); };
    EXPECT_THROW(update(), std::runtime_error);
    m_setUp.cgroups->onCall = nullptr;
    EXPECT_TRUE(update());
    EXPECT_EQ(m_setUp.cgroups->calls().back(), "mkdir(" + m_group + "/zell_tp_ods, 448)");
}

TEST_P(CgroupTaskGroupTest, StartsAfreshAfterDiscovery)
{
    EXPECT_TRUE(update());
    EXPECT_TRUE(m_setUp.utils.isDefaultCGroupsMountAvailable());
    EXPECT_TRUE(update());
    EXPECT_EQ(m_setUp.cgroups->calls().back(), "stat(" + m_group + ")");
    EXPECT_FALSE(m_setUp.cgroups->has(m_group + "/zell_tp_ods"));
}

TEST_P(CgroupTaskGroupTest, IgnoresTheGroupName)
{
    for (const std::string given : {"", "other", "../escape", "/absolute", "a name with blanks"})
    {
        CgroupSetUp setUp(GetParam());
        setUp.utils.isDefaultCGroupsMountAvailable();
        std::string name = given;
        EXPECT_TRUE(setUp.utils.updateCPUTaskGroupDirectory(name));
        EXPECT_EQ(name, given);
        EXPECT_EQ(setUp.cgroups->calls().back(), "mkdir(" + m_group + ", 448)");
    }
}

TEST_P(CgroupTaskGroupTest, HandsOverAZeroedStatusAndError)
{
    unsigned int calls = 0;
    m_setUp.cgroups->onStat = [&calls](const char*, struct stat* buffer, int& err)
    {
        constexpr struct stat zeroed = {};
        EXPECT_EQ(std::memcmp(buffer, &zeroed, sizeof zeroed), 0);
        EXPECT_EQ(err, 0);
        ++calls;
        std::memset(buffer, 0xff, sizeof *buffer);
        err = EACCES;
        return 0;
    };
    EXPECT_TRUE(update());
    EXPECT_EQ(calls, 1U);
}

TEST_P(CgroupTaskGroupTest, WritesNothingIntoTheDirectory)
{
    EXPECT_TRUE(update());
    EXPECT_THAT(m_setUp.cgroups->writes(), IsEmpty());
    EXPECT_EQ(readFile(m_setUp.cgroups->real(m_group + "/" + kQuota)), "-1\n");
}

TEST_P(CgroupTaskGroupTest, StartsFromAnEmptyPathAfterADiscoveryThatWasCutShort)
{
    m_setUp.cgroups->takeCalls();
    m_setUp.cgroups->onCall = [this](const std::string&)
    {
        if (m_setUp.cgroups->countOf("stat") == 2)
            throw std::runtime_error("no answer");
    };
    EXPECT_THROW(m_setUp.utils.isDefaultCGroupsMountAvailable(), std::runtime_error);
    m_setUp.cgroups->onCall = nullptr;
    m_setUp.cgroups->takeCalls();
    EXPECT_TRUE(update());
    EXPECT_THAT(m_setUp.cgroups->calls(), ElementsAre("stat(/zell_tp_ods)", "mkdir(/zell_tp_ods, 448)"));
}

INSTANTIATE_TEST_SUITE_P(BothMounts, CgroupTaskGroupTest, ::testing::Values(kFirstMount, kSecondMount));

TEST(CgroupTaskGroupWithoutDiscoveryTest, StartsFromAnEmptyPath)
{
    CgroupSetUp setUp;
    std::string name;
    EXPECT_TRUE(setUp.utils.updateCPUTaskGroupDirectory(name));
    EXPECT_THAT(setUp.cgroups->calls(), ElementsAre("stat(/zell_tp_ods)", "mkdir(/zell_tp_ods, 448)"));
}

} // namespace
} // namespace TAV::test
