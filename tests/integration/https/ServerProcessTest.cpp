#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NginxScene.h"
#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"
#include "support/SquidProxy.h"

namespace TAV::test
{
namespace
{

using testing::HasSubstr;
using testing::ThrowsMessage;

/// Runs until it is killed, a test that crashes before it can clean up.
template <typename Server, typename... Arguments>
void expectToDieWithItsTest(const Arguments&... arguments)
{
    // What such a test leaves behind, where the proxy's user reaches it.
    const TemporaryDirectory remains;
    ASSERT_EQ(::chmod(remains.path().c_str(), 0711), 0);
    SharedNotes notes;
    SacrificialProcess test(
        [&]
        {
            ::setenv("TMPDIR", remains.path().c_str(), 1);
            const Server server(arguments...);
            notes.add(std::to_string(server.port()));
            ::pause();
        });
    ASSERT_TRUE(eventually([&] { return !notes.lines().empty(); }));
    const auto port = static_cast<std::uint16_t>(std::stoi(notes.lines().at(0)));
    EXPECT_TRUE(acceptsConnections(port));

    ::kill(test.pid(), SIGKILL);

    EXPECT_TRUE(eventually([port] { return !acceptsConnections(port); }));
}

/// The servers that tests start, and their ports.
class ServerProcessTest : public NginxTest
{
};

TEST_F(ServerProcessTest, NginxDiesWithItsTest)
{
    expectToDieWithItsTest<NginxServer>(std::vector<NginxSite>{goodSite()});
}

TEST_F(ServerProcessTest, SquidDiesWithItsTest)
{
    if (const std::string missing = SquidProxy::missing(); !missing.empty())
        GTEST_SKIP() << missing;
    expectToDieWithItsTest<SquidProxy>();
}

TEST_F(ServerProcessTest, TellsWhyAServerDoesNotAnswer)
{
    const auto start = [] { const NginxServer server({goodSite({}, "nonsense;")}); };

    EXPECT_THAT(start, ThrowsMessage<std::runtime_error>(HasSubstr("unknown directive \"nonsense\"")));
}

TEST_F(ServerProcessTest, PortIsRefusedUntilAServerListens)
{
    NginxServer server({goodSite()});
    EXPECT_TRUE(acceptsConnections(server.port()));

    server.stop();

    EXPECT_FALSE(acceptsConnections(server.port()));
}

} // namespace
} // namespace TAV::test
