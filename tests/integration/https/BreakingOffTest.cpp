// Connections that come to an end between two queries of a session, or under a query.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <thread>

#include "QueryScene.h"
#include "RawTlsServer.h"
#include "support/SacrificialProcess.h"
#include "support/TemporaryDirectory.h"

namespace TAV::test
{
namespace
{

const std::string kContinue = "HTTP/1.1 100 Continue\r\n\r\n";

TAVQueryConfig towards(const RawTlsServer& server)
{
    return configTowards(server.port(), TestAuthority::shared().caFile());
}

/// Waits until the server has read the head of a request on its n-th connection.
bool hasRequest(const RawTlsServer& server, std::size_t connection = 1)
{
    return eventually(
        [&]
        {
            const auto connections = server.connections();
            return connections.size() >= connection && !connections[connection - 1].requests.empty();
        });
}

bool hasEnded(const RawTlsServer& server)
{
    return eventually([&] { return server.connections().at(0).ended; });
}

TEST(RefusedConnectionTest, IsStatus0)
{
    const ReservedPort nobody;
    QueryScene scene(configTowards(nobody.number(), TestAuthority::shared().caFile()));
    EXPECT_TRUE(isFailure(scene.ask(), noStatusLog(CURLE_COULDNT_CONNECT)));
}

struct Ending
{
    const char* name;
    Step (*step)();
};

std::ostream& operator<<(std::ostream& out, const Ending& ending)
{
    return out << ending.name;
}

class DroppedConnectionTest : public testing::TestWithParam<Ending>
{
};

TEST_P(DroppedConnectionTest, IsReplacedForTheNextQuery)
{
    RawTlsServer server({afterRequest({send(answer("one")), GetParam().step()}), afterRequest({send(answer("two"))})});
    QueryScene scene(towards(server));
    ASSERT_TRUE(isSuccess(scene.ask()));
    ASSERT_TRUE(hasEnded(server));

    const QueryOutcome outcome = scene.ask();
    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_EQ(outcome.response, "two");
    EXPECT_EQ(server.connections().size(), 2U);
}

// A server must be able to bear that: it gets one query twice.
TEST_P(DroppedConnectionTest, UnderAQueryHasItSentOnceMore)
{
    RawTlsServer server(
        {afterRequest({send(answer("one")), readRequest(), GetParam().step()}), afterRequest({send(answer("two"))})});
    QueryScene scene(towards(server));
    ASSERT_TRUE(isSuccess(scene.ask({"first", {}, ""})));

    const QueryOutcome outcome = scene.ask({"second", {}, ""});
    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_EQ(outcome.response, "two");
    const auto connections = server.connections();
    ASSERT_EQ(connections.size(), 2U);
    EXPECT_EQ(connections[0].requests.at(1).body, "second");
    EXPECT_EQ(connections[1].requests.at(0).body, "second");
}

TEST_P(DroppedConnectionTest, OfAServerThatIsGoneIsStatus0)
{
    RawTlsServer server({afterRequest({send(answer("one")), GetParam().step()})});
    QueryScene scene(towards(server));
    ASSERT_TRUE(isSuccess(scene.ask()));
    server.stop();

    EXPECT_TRUE(isFailure(scene.ask(), noStatusLog(CURLE_COULDNT_CONNECT)));
}

INSTANTIATE_TEST_SUITE_P(Endings,
                         DroppedConnectionTest,
                         testing::Values(Ending{"Closed", closeCleanly}, Ending{"Cut", cut}, Ending{"Reset", reset}),
                         [](const auto& instance) { return instance.param.name; });

TEST(StrayAnswerTest, IsTakenForTheAnswerToTheNextQuery)
{
    RawTlsServer server({afterRequest({send(answer("one")), send(answer("stray")), readRequest()})});
    QueryScene scene(towards(server));
    EXPECT_EQ(scene.ask().response, "one");

    const QueryOutcome outcome = scene.ask();
    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_EQ(outcome.response, "stray");
}

/// A body that does not fit into any buffer between client and server.
Query largeQuery()
{
    constexpr std::size_t kLargerThanBuffers = 20000000;
    Query query;
    query.payload.assign(kLargerThanBuffers, 'x');
    return query;
}

struct EarlyEnd
{
    const char* name;
    Script script;
    std::vector<CURLcode> transfers; ///< what it may be: the client may notice by writing or by reading
    long status;
};

std::ostream& operator<<(std::ostream& out, const EarlyEnd& end)
{
    return out << end.name;
}

class EarlyEndTest : public testing::TestWithParam<EarlyEnd>
{
};

// SIGPIPE would end this program, so this shows too that libcurl keeps it away.
TEST_P(EarlyEndTest, WhileABodyIsSentIsAFailure)
{
    std::signal(SIGPIPE, SIG_DFL);
    RawTlsServer server({GetParam().script});
    QueryScene scene(towards(server));
    const QueryOutcome outcome = scene.ask(largeQuery());
    const auto& expected = GetParam().transfers;
    EXPECT_NE(std::find(expected.begin(), expected.end(), outcome.transfer), expected.end()) << outcome.transfer;
    const long status = GetParam().status;
    EXPECT_TRUE(
        isFailure(outcome, status == 0 ? noStatusLog(outcome.transfer) : failureLog(outcome.transfer, status, "")));
}

const std::vector<CURLcode> kByWritingOrReading = {CURLE_SEND_ERROR, CURLE_RECV_ERROR, CURLE_GOT_NOTHING};

INSTANTIATE_TEST_SUITE_P(
    Ends,
    EarlyEndTest,
    testing::Values(EarlyEnd{"ClosedBeforeIt", {handshake(), readHead(), closeCleanly()}, {CURLE_GOT_NOTHING}, 0},
                    EarlyEnd{"ResetBeforeIt", {handshake(), readHead(), reset()}, {CURLE_RECV_ERROR}, 0},
                    EarlyEnd{"ClosedInIt",
                             {handshake(), readHead(), send(kContinue), waitForBytes(), closeCleanly()},
                             kByWritingOrReading,
                             100},
                    EarlyEnd{"ResetInIt",
                             {handshake(), readHead(), send(kContinue), waitForBytes(), reset()},
                             kByWritingOrReading,
                             100}),
    [](const auto& instance) { return instance.param.name; });

TEST(EarlyAnswerTest, EndsTheQueryBeforeItsBodyIsSent)
{
    RawTlsServer server({{handshake(), readHead(), send(answer("enough")), stayStill()}});
    QueryScene scene(towards(server));
    const QueryOutcome outcome = scene.ask(largeQuery());
    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_EQ(outcome.response, "enough");
}

bool sigpipeIsIgnored()
{
    struct sigaction action = {};
    EXPECT_EQ(::sigaction(SIGPIPE, nullptr, &action), 0);
    return action.sa_handler == SIG_IGN;
}

/// Whether a thread waits for something, in the kernel's eyes.
bool sleeps(pid_t thread)
{
    const std::string status = readFile("/proc/self/task/" + std::to_string(thread) + "/stat");
    return status.at(status.rfind(')') + 2) == 'S';
}

TEST(SigpipeTest, IsLetInByTheEndOfAnotherSessionsQuery)
{
    const Script slow = afterRequest({waitUntilTold(), send(answer("slow"))});
    RawTlsServer first({slow});
    RawTlsServer second({slow});
    QueryScene firstScene(towards(first));
    QueryScene secondScene(towards(second));
    std::signal(SIGPIPE, SIG_DFL);

    std::thread firstThread([&] { EXPECT_TRUE(isSuccess(firstScene.ask())); });
    EXPECT_TRUE(hasRequest(first));
    std::atomic<pid_t> secondId{0};
    std::thread secondThread(
        [&]
        {
            secondId = ::gettid();
            EXPECT_TRUE(isSuccess(secondScene.ask()));
        });
    EXPECT_TRUE(hasRequest(second));
    // As long as it is busy, libcurl changes the action to and fro.
    EXPECT_TRUE(eventually([&] { return sleeps(secondId); }));
    EXPECT_TRUE(sigpipeIsIgnored());

    first.proceed();
    firstThread.join();
    EXPECT_FALSE(sigpipeIsIgnored()) << "though the second is still under way";
    second.proceed();
    secondThread.join();
    // The second restores what it found: the first one's.
    EXPECT_TRUE(sigpipeIsIgnored());
    std::signal(SIGPIPE, SIG_DFL);
}

TEST(IndependentSessionsTest, StuckOneHoldsNobodyUp)
{
    // It is stuck behind the first bytes of its body: the write callback has run.
    RawTlsServer stuck(
        {afterRequest({send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\none"), waitUntilTold(), send("two")})});
    RawTlsServer quick({afterRequest({send(answer("quick"))})});
    TAVQueryConfig config = towards(stuck);
    config.timeout = 20;
    QueryScene scene(config);
    constexpr unsigned long kOther = 2;
    scene.client.configureOptions(towards(quick), QueryScene::kSession);
    scene.client.initSession(kOther);

    QueryOutcome slowOutcome;
    std::thread thread([&] { slowOutcome = scene.ask(); });
    EXPECT_TRUE(hasRequest(stuck));
    const QueryOutcome outcome = scene.ask({}, kOther);
    EXPECT_TRUE(isSuccess(outcome));
    EXPECT_EQ(outcome.response, "quick");

    stuck.proceed();
    thread.join();
    EXPECT_TRUE(isSuccess(slowOutcome));
    EXPECT_EQ(slowOutcome.response, "onetwo");
}

} // namespace
} // namespace TAV::test
