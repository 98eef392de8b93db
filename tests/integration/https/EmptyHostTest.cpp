// A configuration without a host: libcurl makes an address of it, so the query must not be let out of this machine.

#include <gtest/gtest.h>

#include "TestAuthority.h"
#include "support/Tools.h"

namespace TAV::test
{
namespace
{

TEST(EmptyHostTest, BecomesAnAddressAndFailsToConnect)
{
    const std::vector<std::string> isolated = {"unshare", "--net"};
    std::vector<std::string> probe = isolated;
    probe.emplace_back("true");
    if (!hasTool("unshare") || runTool(probe).exitCode != 0)
        GTEST_SKIP() << "no network namespace can be made (unshare --net)";

    std::vector<std::string> query = isolated;
    query.insert(query.end(), {TAV_QUERY_CHILD, "", TestAuthority::shared().caFile(), "ask"});
    EXPECT_EQ(outputOf(query),
              "false 0 untouched\n"
              "Failed to connect to Lumo server: Couldn't connect to server\n"
              "Last HTTP response code received from Lumo server is: 0\n"
              "Last HTTP response message received from Lumo server is: Connection Could Not Be Established\n");
}

} // namespace
} // namespace TAV::test
