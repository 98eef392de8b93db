#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NginxScene.h"
#include "support/Tools.h"

namespace TAV::test
{
namespace
{

constexpr int kFaultFound = 99;

/// A program that uses the client, watched by valgrind: it counts every block of the heap as lost that is not freed at
/// the end, still reachable or not.
class ValgrindTest : public NginxTest
{
protected:
    void SetUp() override
    {
        NginxTest::SetUp();
        if (!IsSkipped() && !hasTool("valgrind"))
            GTEST_SKIP() << "valgrind is not installed";
    }

    static ToolRun watch(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> argv = {"valgrind",
                                         "--quiet",
                                         "--leak-check=full",
                                         "--show-leak-kinds=all",
                                         "--errors-for-leak-kinds=all",
                                         "--error-exitcode=" + std::to_string(kFaultFound),
                                         TAV_VALGRIND_SUBJECT};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        return runTool(argv);
    }
};

TEST_F(ValgrindTest, FindsNothingInTheLifeOfAClient)
{
    const NginxServer server({goodSite({echoCase(), {"404", "return 404 'missing';"}, {"444", "return 444;"}})});

    const ToolRun run = watch({std::to_string(server.port()), TestAuthority::shared().caFile()});

    EXPECT_EQ(run.output, "yes yes no no yes yes no no no no no no ");
    EXPECT_EQ(run.exitCode, 0);
}

TEST_F(ValgrindTest, WouldFindALostBlock)
{
    EXPECT_EQ(watch({"leak"}).exitCode, kFaultFound);
}

} // namespace
} // namespace TAV::test
