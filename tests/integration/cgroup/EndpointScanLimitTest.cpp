#include <filesystem>
#include <nlohmann/json.hpp>

#include "KernelCgroupTest.h"
#include "ProgramRun.h"

namespace TAV::test
{
namespace
{

using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::Not;

/// The sample daemon on the kernel's controller.
class EndpointScanLimitTest : public KernelCgroupTest
{
protected:
    void SetUp() override
    {
        KernelCgroupTest::SetUp();
        std::filesystem::create_directory(m_directory.file("tree"));
        m_directory.write("deny.txt", std::string(64, '0') + "\n");
        m_directory.write("password.txt", "secret\n");
        m_directory.write("tree/small", "content");
    }

    ProgramResult scan(const std::string& options) const
    {
        return runProgram(std::string(TAV_ENDPOINT_SCAN_PROGRAM) + " scan " + m_directory.file("tree") +
                          " --deny-list " + m_directory.file("deny.txt") + " --quarantine " + m_directory.file("q") +
                          " --password-file " + m_directory.file("password.txt") + " --json " +
                          m_directory.file("report.json") + " " + options);
    }

    json report() const { return json::parse(readFile(m_directory.file("report.json"))); }

    TemporaryDirectory m_directory;
};

TEST_P(EndpointScanLimitTest, IsUnderTheLimitWhileItHashes)
{
    m_directory.write("tree/large", "");
    std::filesystem::resize_file(m_directory.file("tree/large"), 64UL << 20U);
    const ProgramResult run = scan("--cpu-limit 5");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(run.err, Not(HasSubstr("CPU limit")));
    EXPECT_THAT(run.out, HasSubstr("CPU limit:          5 % of the machine, " + quotaOf(5) + " us of every 100000 us"));
    EXPECT_EQ(report()["cpu_limit"]["percent"], 5);
    EXPECT_EQ(report()["cpu_limit"]["in_force"], true);
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(5));
    EXPECT_GT(m_controller->statistic("nr_throttled"), 0U);
}

TEST_P(EndpointScanLimitTest, TakesNoLimitThatIsNotAskedFor)
{
    EXPECT_EQ(scan("").code, 0);
    EXPECT_FALSE(report().contains("cpu_limit"));
    EXPECT_FALSE(std::filesystem::exists(m_controller->group()));
}

TEST_P(EndpointScanLimitTest, TellsOfALimitThatTheKernelRefuses)
{
    m_controller->write("cpu.cfs_quota_us", "30000");
    const ProgramResult run = scan("--cpu-limit 100");
    EXPECT_EQ(run.code, 0);
    EXPECT_THAT(run.err, HasSubstr("endpoint_scan: no CPU limit: the kernel refused a quota of"));
    EXPECT_EQ(report()["cpu_limit"]["in_force"], false);
}

TEST_P(EndpointScanLimitTest, RefusesLimitsThatMakeNoSense)
{
    for (const char* limit : {"0", "-1", "65536", "ten"})
        EXPECT_EQ(scan(std::string("--cpu-limit ") + limit).code, 2) << limit;
}

INSTANTIATE_TEST_SUITE_P(Kernel, EndpointScanLimitTest, ::testing::Values(Place::First, Place::Second), placeName);

class EndpointScanWithoutControllerTest : public EndpointScanLimitTest
{
};

TEST_P(EndpointScanWithoutControllerTest, SaysSoAndScansAllTheSame)
{
    const ProgramResult run = scan("--cpu-limit 20");
    EXPECT_EQ(run.code, 0);
    EXPECT_THAT(run.err,
                HasSubstr("endpoint_scan: no CPU limit: this host offers no cgroup v1 cpu controller where the library "
                          "looks for it"));
    EXPECT_THAT(run.out, HasSubstr("CPU limit:          NOT IN FORCE: this host offers no"));
    EXPECT_EQ(report()["cpu_limit"]["in_force"], false);
    EXPECT_EQ(report()["summary"]["clean"], 1);
}

INSTANTIATE_TEST_SUITE_P(Kernel, EndpointScanWithoutControllerTest, ::testing::Values(Place::None), placeName);

} // namespace
} // namespace TAV::test
