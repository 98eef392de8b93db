#include <nlohmann/json.hpp>

#include "KernelCgroupTest.h"
#include "ProgramRun.h"

namespace TAV::test
{
namespace
{

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// tavctl on the kernel's controller.
class CpuLimitCommandTest : public KernelCgroupTest
{
protected:
    static ProgramResult tavctl(const std::string& arguments)
    {
        return runProgram(std::string(TAV_TAVCTL_PROGRAM) + " " + arguments);
    }

    static std::string text(int pid) { return " " + std::to_string(pid); }

    const LoadProcess m_process;
};

TEST_P(CpuLimitCommandTest, SetsALimitAndShowsThatItHolds)
{
    const ProgramResult run = tavctl("cpu-limit --percent 20" + text(m_process.pid()));
    EXPECT_EQ(run.code, 0);
    EXPECT_THAT(run.err, IsEmpty());
    EXPECT_THAT(run.out, HasSubstr("controller      " + m_controller->mount() + "\n"));
    EXPECT_THAT(run.out, HasSubstr("group           " + m_controller->group() + "\n"));
    EXPECT_THAT(run.out, HasSubstr("quota           " + quotaOf(20) + " us per period, 20 % of "));
    EXPECT_THAT(run.out, HasSubstr("members        " + text(m_process.pid()) + "\n"));
    EXPECT_THAT(run.out, HasSubstr("throttled time  "));
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(20));
    EXPECT_THAT(m_controller->members(), ElementsAre(m_process.pid()));
}

TEST_P(CpuLimitCommandTest, PrintsJson)
{
    const ProgramResult run = tavctl("cpu-limit --json --group other --percent 20" + text(m_process.pid()));
    EXPECT_EQ(run.code, 0);
    const json result = json::parse(run.out);
    EXPECT_EQ(result["success"], true);
    EXPECT_EQ(result["percent"], 20);
    EXPECT_EQ(result["pids"], json::array({m_process.pid()}));
    EXPECT_EQ(std::to_string(result["wanted_quota_us"].get<long>()), quotaOf(20));
    EXPECT_EQ(result["refused_by_kernel"], json::array());
    const json& status = result["status"];
    EXPECT_EQ(status["controller"], m_controller->mount());
    EXPECT_EQ(status["group"], m_controller->group());
    EXPECT_EQ(status["period_us"], 100000);
    EXPECT_EQ(std::to_string(status["quota_us"].get<long>()), quotaOf(20));
    EXPECT_EQ(status["percent"], 20.0);
    EXPECT_EQ(status["members"], json::array({m_process.pid()}));
    EXPECT_TRUE(status["throttled_time_ns"].is_number_unsigned());
}

TEST_P(CpuLimitCommandTest, TellsOfARefusedQuota)
{
    ASSERT_EQ(tavctl("cpu-limit --percent 20" + text(m_process.pid())).code, 0);
    const ProgramResult run = tavctl("cpu-limit --percent 0" + text(m_process.pid()));
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.err,
              "tavctl: cpu-limit: the kernel refused a quota of 0 us: none may be below 1000 us; " + quotaOf(20) +
                  " us stay in force\n");
}

TEST_P(CpuLimitCommandTest, TellsWhenNoLimitIsInForceAtAll)
{
    const ProgramResult run = tavctl("cpu-limit --percent 0" + text(m_process.pid()));
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err, HasSubstr("; no limit is in force\n"));
}

TEST_P(CpuLimitCommandTest, TellsOfTheGroupAroundThatHasLess)
{
    m_controller->write("cpu.cfs_quota_us", "30000");
    const ProgramResult run = tavctl("cpu-limit --percent 100" + text(m_process.pid()));
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err, HasSubstr("the group around has 30000 us to give; no limit is in force\n"));
}

TEST_P(CpuLimitCommandTest, TellsOfEachProcessThatWasNotMoved)
{
    LoadProcess zombie;
    LoadProcess dead;
    const int noProcess = dead.pid();
    zombie.becomeZombie();
    dead.becomeZombie();
    dead.reap();
    const ProgramResult run =
        tavctl("cpu-limit --json --percent 20" + text(noProcess) + text(zombie.pid()) + text(m_process.pid()));
    EXPECT_THAT(run.err, HasSubstr("process" + text(noProcess) + " does not exist\n"));
    EXPECT_EQ(run.code, 1);
    const json result = json::parse(run.out);
    EXPECT_EQ(result["success"], false);
    EXPECT_EQ(result["status"]["members"], json::array({m_process.pid()}));
    EXPECT_EQ(result["refused_by_kernel"].at(0)["what"], "process");
}

TEST_P(CpuLimitCommandTest, TakesAThreadForItsProcess)
{
    const LoadProcess threads(2);
    const int thread = *threads.threads().rbegin();
    ASSERT_NE(thread, threads.pid());
    const ProgramResult run = tavctl("cpu-limit --percent 20" + text(thread));
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(m_controller->members(), ElementsAre(threads.pid()));
}

TEST_P(CpuLimitCommandTest, TellsWhyTheLibraryRefuses)
{
    m_controller->makeReadOnly();
    const ProgramResult run = tavctl("cpu-limit --percent 20" + text(m_process.pid()));
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.out, IsEmpty());
    EXPECT_EQ(run.err, "tavctl: cpu-limit: not set: Failed to create subgroup for cgroup task\n");
}

TEST_P(CpuLimitCommandTest, ShowsThatNothingHasBeenSetYet)
{
    const ProgramResult run = tavctl("cpu-limit --status");
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(run.out,
              "controller      " + m_controller->mount() + "\ngroup           none yet: the first limit makes it\n");
    EXPECT_EQ(json::parse(tavctl("cpu-limit --status --json").out)["group"], nullptr);
}

TEST_P(CpuLimitCommandTest, ShowsTheLimitInForceAndChangesNothing)
{
    ASSERT_TRUE(limit({m_process.pid()}, 33));
    const json status = json::parse(tavctl("cpu-limit --status --json").out);
    EXPECT_EQ(std::to_string(status["quota_us"].get<long>()), quotaOf(33));
    EXPECT_EQ(status["members"], json::array({m_process.pid()}));
    EXPECT_EQ(m_controller->groupFile("cpu.cfs_quota_us"), quotaOf(33));
}

INSTANTIATE_TEST_SUITE_P(Kernel, CpuLimitCommandTest, ::testing::Values(Place::First, Place::Second), placeName);

class CpuLimitCommandWithoutControllerTest : public CpuLimitCommandTest
{
};

TEST_P(CpuLimitCommandWithoutControllerTest, SaysThatTheHostHasNone)
{
    const ProgramResult run = tavctl("cpu-limit --percent 20" + text(m_process.pid()));
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err, HasSubstr("this host offers no cgroup v1 cpu controller"));
}

TEST_P(CpuLimitCommandWithoutControllerTest, ShowsThatTheHostHasNone)
{
    const ProgramResult run = tavctl("cpu-limit --status");
    EXPECT_EQ(run.code, 0);
    EXPECT_THAT(run.out, HasSubstr("controller      none"));
    EXPECT_EQ(json::parse(tavctl("cpu-limit --status --json").out)["controller"], nullptr);
}

TEST_P(CpuLimitCommandWithoutControllerTest, RefusesArgumentsThatMakeNoSense)
{
    for (const char* arguments : {"",
                                  "--percent 20",
                                  "4711",
                                  "--percent 65536 4711",
                                  "--percent -1 4711",
                                  "--percent twenty 4711",
                                  "--percent 20 0",
                                  "--percent 20 -- -5",
                                  "--percent 20 2147483648",
                                  "--percent 20 self",
                                  "--status 4711",
                                  "--status --percent 20",
                                  "--status --group x"})
    {
        const ProgramResult run = tavctl(std::string("cpu-limit ") + arguments);
        EXPECT_EQ(run.code, 2) << arguments;
        EXPECT_THAT(run.out, IsEmpty()) << arguments;
        EXPECT_FALSE(run.err.empty()) << arguments;
    }
}

INSTANTIATE_TEST_SUITE_P(Kernel, CpuLimitCommandWithoutControllerTest, ::testing::Values(Place::None), placeName);

} // namespace
} // namespace TAV::test
