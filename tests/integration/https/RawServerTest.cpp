// A server that answers as it likes, whole, wrong or not at all: what the caller of a query gets.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "RawServerBehaviours.h"
#include "support/SacrificialProcess.h"
#include "support/TemporaryDirectory.h"

namespace TAV::test
{
namespace
{

class RawServerTest : public testing::TestWithParam<Behaviour>
{
};

/// The script of a server, and a whole answer to the query after it.
std::vector<Script> withSecondAnswer(const Behaviour& behaviour)
{
    Script first = behaviour.script;
    if (behaviour.afterwards == Afterwards::Closed)
        return {first, afterRequest({send(answer("again"))})};
    first.insert(first.end(), {readRequest(), send(answer("again"))});
    return {first};
}

TEST_P(RawServerTest, EndsAsStated)
{
    const Behaviour& behaviour = GetParam();
    const std::vector<Script> scripts = withSecondAnswer(behaviour);
    RawTlsServer server(scripts, behaviour.tls);
    TAVQueryConfig config = configTowards(server.port(), TestAuthority::shared().caFile());
    config.timeout = behaviour.timeout;
    QueryScene scene(config);

    const QueryOutcome outcome = scene.ask({"a question", {}, "before "});
    EXPECT_EQ(outcome.transfer, behaviour.transfer) << curl_easy_strerror(outcome.transfer);
    EXPECT_EQ(outcome.response, "before " + behaviour.body);
    if (behaviour.status == 200)
    {
        EXPECT_TRUE(isSuccess(outcome)) << outcome.stats;
    }
    else
    {
        EXPECT_FALSE(outcome.success);
        EXPECT_EQ(outcome.log, failureLog(behaviour.transfer, behaviour.status, behaviour.statusText));
        EXPECT_EQ(outcome.stats, kUntouchedStats);
    }

    // Whatever happened, the session is of use.
    const QueryOutcome second = scene.ask();
    EXPECT_TRUE(isSuccess(second));
    EXPECT_EQ(second.response, "again");
    EXPECT_EQ(server.connections().size(), scripts.size());
}

INSTANTIATE_TEST_SUITE_P(Behaviours,
                         RawServerTest,
                         testing::ValuesIn(rawServerBehaviours()),
                         [](const auto& instance) { return instance.param.name; });

TEST(RawTlsServerTest, StopsWhateverItIsAt)
{
    for (const Script& script : std::vector<Script>{{pause(std::chrono::hours(1))},
                                                    {handshake(), waitUntilTold()},
                                                    {handshake(), readHead(), readHead()},
                                                    {stayStill()}})
    {
        RawTlsServer server({script});
        QueryScene scene(configTowards(server.port(), TestAuthority::shared().caFile()));
        std::thread client([&] { EXPECT_FALSE(scene.ask().success); });
        EXPECT_TRUE(eventually([&] { return server.connections().size() == 1; }));
        server.stop();
        EXPECT_TRUE(server.connections().at(0).ended);
        client.join();
    }
}

TEST(RawServerPageTest, EachBehaviourStandsInThePage)
{
    const std::string page = readFile(std::string(TAV_SOURCE_DIR) + "/docs/https.md");
    for (const Behaviour& behaviour : rawServerBehaviours())
        EXPECT_THAT(page, testing::HasSubstr(rowOf(behaviour, "RawServerTest.EndsAsStated") + "\n"));
}

} // namespace
} // namespace TAV::test
