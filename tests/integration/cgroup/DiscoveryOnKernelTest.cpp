#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "KernelCgroupTest.h"
#include "support/SacrificialProcess.h"

namespace fs = std::filesystem;

namespace TAV::test
{
namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DiscoveryOnKernelTest : public KernelCgroupTest
{
protected:
    bool makeGroup()
    {
        std::string ignored = "ignored";
        return m_utils.updateCPUTaskGroupDirectory(ignored);
    }

    static unsigned int modeOf(const std::string& path)
    {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777U;
    }
};

TEST_P(DiscoveryOnKernelTest, FindsTheController)
{
    EXPECT_TRUE(m_utils.isDefaultCGroupsMountAvailable());
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_P(DiscoveryOnKernelTest, MakesTheGroupForItsOwnerOnly)
{
    ASSERT_TRUE(m_utils.isDefaultCGroupsMountAvailable());
    EXPECT_TRUE(makeGroup());
    EXPECT_TRUE(fs::is_directory(m_controller->group()));
    EXPECT_EQ(modeOf(m_controller->group()), 0700U);
}

TEST_P(DiscoveryOnKernelTest, FindsTheControlFilesInANewGroup)
{
    ASSERT_TRUE(m_utils.isDefaultCGroupsMountAvailable());
    ASSERT_TRUE(makeGroup());
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_period_us"), "100000");
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), "-1");
    EXPECT_EQ(m_controller->groupFile("cgroup.procs"), "");
}

TEST_P(DiscoveryOnKernelTest, UsesAnExistingGroupAsItIs)
{
    ASSERT_EQ(mkdir(m_controller->group().c_str(), 0755), 0);
    m_controller->write("zell_tp_ods/cpu.cfs_quota_us", "12345");
    ASSERT_TRUE(m_utils.isDefaultCGroupsMountAvailable());
    EXPECT_TRUE(makeGroup());
    EXPECT_EQ(modeOf(m_controller->group()), 0755U);
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), "12345");
}

TEST_P(DiscoveryOnKernelTest, CannotMakeTheGroupOnAReadOnlyMount)
{
    m_controller->makeReadOnly();
    ASSERT_TRUE(m_utils.isDefaultCGroupsMountAvailable());
    EXPECT_FALSE(makeGroup());
    EXPECT_THAT(messages(), ElementsAre("Failed to create subgroup for cgroup task"));
}

TEST_P(DiscoveryOnKernelTest, NoticesThatTheControllerHasGone)
{
    ASSERT_TRUE(m_utils.isDefaultCGroupsMountAvailable());
    m_controller->unmount();
    EXPECT_FALSE(m_utils.isDefaultCGroupsMountAvailable());
    EXPECT_THAT(messages(), ElementsAre("Could not find cgroup mount or it is been modified"));
}

TEST_P(DiscoveryOnKernelTest, NestsTheGroupWhenDiscoveryIsLeftOut)
{
    ASSERT_TRUE(m_utils.isDefaultCGroupsMountAvailable());
    ASSERT_TRUE(makeGroup());
    ASSERT_TRUE(makeGroup());
    const std::string nested = m_controller->group() + "/zell_tp_ods";
    EXPECT_TRUE(fs::exists(nested + "/cpu.cfs_quota_us"));
    EXPECT_EQ(rmdir(nested.c_str()), 0);
}

INSTANTIATE_TEST_SUITE_P(Kernel, DiscoveryOnKernelTest, ::testing::Values(Place::First, Place::Second), placeName);

class DiscoveryOnKernelOfBothTest : public KernelCgroupTest
{
};

TEST_P(DiscoveryOnKernelOfBothTest, PrefersTheFirstPlace)
{
    // The same cgroup stands at both places: what is told apart is where the object goes on when the first one goes.
    const LoadProcess process;
    ASSERT_TRUE(limit({process.pid()}, 20));
    m_controller->unmount();
    EXPECT_TRUE(fs::exists("/cgroup/cpu/zell_tp_ods"));
    std::string ignored;
    EXPECT_FALSE(m_utils.updateCPUTaskGroupDirectory(ignored));
}

TEST_P(DiscoveryOnKernelOfBothTest, FallsBackToTheSecondPlace)
{
    m_controller->unmount();
    const LoadProcess process;
    EXPECT_TRUE(limit({process.pid()}, 20));
    EXPECT_EQ(m_controller->groupOf(process.pid()), "/zell_tp_ods");
}

INSTANTIATE_TEST_SUITE_P(Kernel, DiscoveryOnKernelOfBothTest, ::testing::Values(Place::Both), placeName);

class DiscoveryOnKernelOfNoneTest : public KernelCgroupTest
{
};

TEST_P(DiscoveryOnKernelOfNoneTest, RefusesALimit)
{
    EXPECT_FALSE(limit({getpid()}, 20));
    EXPECT_THAT(messages(),
                ElementsAre("Could not find cgroup mount or it is been modified",
                            "Could not find cgroup mount or it is been modified."));
}

INSTANTIATE_TEST_SUITE_P(Kernel, DiscoveryOnKernelOfNoneTest, ::testing::Values(Place::None), placeName);

/// What a limit without a namespace of the test's own would leave on the machine.
std::vector<bool> tracesOnTheMachine()
{
    std::vector<bool> traces = {fs::exists(mountPointOf(Place::First)), fs::exists("/cgroup")};
    for (const auto& entry : fs::directory_iterator("/sys/fs/cgroup"))
        traces.push_back(fs::exists(entry.path() / "zell_tp_ods"));
    return traces;
}

TEST(PrivateControllerTest, LeavesNoTrace)
{
    const std::string reason = PrivateController::whyUnavailable();
    if (!reason.empty())
        GTEST_SKIP() << reason;
    const fs::path directory = fs::current_path();
    const std::vector<bool> before = tracesOnTheMachine();
    {
        const PrivateController controller(Place::Both);
        ASSERT_TRUE(fs::exists(mountPointOf(Place::First) + "/cpu.cfs_quota_us"));
        ASSERT_TRUE(fs::exists(mountPointOf(Place::Second) + "/cpu.cfs_quota_us"));
        controller.write("cgroup.procs", std::to_string(getpid()));
        ASSERT_EQ(controller.groupOf(getpid()), "/");
    }
    EXPECT_EQ(fs::current_path(), directory);
    EXPECT_EQ(tracesOnTheMachine(), before);
    EXPECT_EQ(readFile("/proc/self/cgroup").find("tavutils-test"), std::string::npos);
}

TEST(PrivateControllerTest, RemovesWhatAKilledRunLeft)
{
    const std::string reason = PrivateController::whyUnavailable();
    if (!reason.empty())
        GTEST_SKIP() << reason;
    const TemporaryDirectory directory;
    const pid_t child = fork();
    if (child == 0)
    {
        const PrivateController controller(Place::First);
        directory.write("name", controller.name());
        raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    const std::string name = readFile(directory.file("name"));
    const PrivateController controller(Place::First);
    const fs::path scratch = fs::path(directory.path()).parent_path() / name;
    // Another test that begins at the same moment may be about to remove the same.
    EXPECT_TRUE(eventually([&] { return !controller.exists(name) && !fs::exists(scratch); }));
    EXPECT_TRUE(controller.exists(controller.name()));
}

} // namespace
} // namespace TAV::test
