// The two timings of a query, against servers that take a known time. Only lower bounds: a machine may be busy.

#include <gtest/gtest.h>

#include "QueryScene.h"
#include "RawTlsServer.h"

namespace TAV::test
{
namespace
{

constexpr std::chrono::milliseconds kDelay(200);
/// What the delay comes to in a figure that is rounded down.
constexpr int kDelayMs = 199;
/// What a time limit of a second comes to: libcurl rounds too.
constexpr int kLimitMs = 990;

QueryScene sceneWith(const RawTlsServer& server)
{
    return QueryScene(configTowards(server.port(), TestAuthority::shared().caFile()));
}

TEST(TimingTest, SlowHandshakeCountsInBoth)
{
    RawTlsServer server({{waitForBytes(), pause(kDelay), handshake(), readRequest(), send(answer("text"))}});
    QueryScene scene = sceneWith(server);
    const QueryOutcome outcome = scene.ask();
    ASSERT_TRUE(isSuccess(outcome, "text"));
    EXPECT_GE(outcome.stats.tlsConnectTimeMs, kDelayMs);
    EXPECT_GE(outcome.stats.totalTimeMs, outcome.stats.tlsConnectTimeMs);
}

TEST(TimingTest, SlowAnswerCountsInTheTotalOnly)
{
    RawTlsServer server({afterRequest({pause(kDelay), send(answer("text"))})});
    QueryScene scene = sceneWith(server);
    const QueryOutcome outcome = scene.ask();
    ASSERT_TRUE(isSuccess(outcome, "text"));
    EXPECT_GE(outcome.stats.totalTimeMs, outcome.stats.tlsConnectTimeMs + kDelayMs);
}

TEST(TimingTest, SlowBodyCountsInTheTotalOnly)
{
    RawTlsServer server(
        {afterRequest({send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nthe"), pause(kDelay), send("end")})});
    QueryScene scene = sceneWith(server);
    const QueryOutcome outcome = scene.ask();
    ASSERT_TRUE(isSuccess(outcome, "theend"));
    EXPECT_GE(outcome.stats.totalTimeMs, outcome.stats.tlsConnectTimeMs + kDelayMs);
}

TEST(TimingTest, KeptConnectionTakesNoTimeForTlsButForTheAnswer)
{
    RawTlsServer server({{waitForBytes(),
                          pause(kDelay),
                          handshake(),
                          readRequest(),
                          send(answer("one")),
                          readRequest(),
                          pause(kDelay),
                          send(answer("two"))}});
    QueryScene scene = sceneWith(server);
    EXPECT_GE(scene.ask().stats.tlsConnectTimeMs, kDelayMs);
    const QueryOutcome later = scene.ask();
    EXPECT_TRUE(isSuccess(later, "two"));
    EXPECT_EQ(later.stats.tlsConnectTimeMs, 0);
    EXPECT_GE(later.stats.totalTimeMs, kDelayMs);
}

TEST(TimingTest, TimeLimitCountsWhenTheStatusHasCome)
{
    RawTlsServer server({afterRequest({send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nthe"), stayStill()})});
    TAVQueryConfig config = configTowards(server.port(), TestAuthority::shared().caFile());
    config.timeout = 1;
    QueryScene scene(config);
    const QueryOutcome outcome = scene.ask();
    ASSERT_TRUE(isSuccess(outcome, "the"));
    EXPECT_EQ(outcome.transfer, CURLE_OPERATION_TIMEDOUT);
    EXPECT_GE(outcome.stats.totalTimeMs, kLimitMs);
    EXPECT_LT(outcome.stats.tlsConnectTimeMs, outcome.stats.totalTimeMs);
}

TEST(TimingTest, FailureAfterALongTimeLeavesThemAlone)
{
    RawTlsServer server({afterRequest({pause(kDelay), send("HTTP/1.1 404 No\r\nContent-Length: 0\r\n\r\n")})});
    QueryScene scene = sceneWith(server);
    EXPECT_TRUE(isFailure(scene.ask(), failureLog(CURLE_OK, 404, "Not Found")));
}

} // namespace
} // namespace TAV::test
