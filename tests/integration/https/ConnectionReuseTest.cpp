#include <algorithm>
#include <filesystem>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NginxScene.h"

namespace TAV::test
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr unsigned long kOtherSession = 2;

/// Which connection each request came on: "0" for the first one, and so on.
std::vector<std::size_t> connectionsOf(const std::vector<NginxRequest>& requests)
{
    std::vector<unsigned long> known;
    std::vector<std::size_t> connections;
    for (const NginxRequest& request : requests)
    {
        const auto place = std::find(known.begin(), known.end(), request.connection);
        connections.push_back(static_cast<std::size_t>(place - known.begin()));
        if (place == known.end())
            known.push_back(request.connection);
    }
    return connections;
}

std::size_t openDescriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

/// How often a session connects, as nginx counts it.
class ConnectionReuseTest : public NginxTest
{
protected:
    static void expectSuccesses(QueryScene& scene, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            EXPECT_TRUE(isFine(scene.ask()));
    }

    static void expectStatus0(const QueryOutcome& outcome, CURLcode transfer)
    {
        EXPECT_FALSE(outcome.success);
        EXPECT_EQ(outcome.log, noStatusLog(transfer));
        EXPECT_THAT(outcome.response, IsEmpty());
        EXPECT_EQ(outcome.stats, kUntouchedStats);
    }

    /// Whether the second of two connections of one session resumed the TLS session of the first.
    static bool resumesTls(const std::string& protocol, long sessionIdCache)
    {
        const NginxServer server(
            {goodSite({}, "keepalive_timeout 0; ssl_session_cache shared:tls:1m; ssl_protocols " + protocol + ";")});
        TAVQueryConfig config = configTowards(server);
        config.sslSessionIdCache = sessionIdCache;
        QueryScene scene(config);
        expectSuccesses(scene, 2);
        const std::vector<NginxRequest> requests = server.requests(2);
        EXPECT_THAT(connectionsOf(requests), ElementsAre(0, 1));
        EXPECT_FALSE(requests.at(0).resumedTls);
        return requests.at(1).resumedTls;
    }
};

TEST_F(ConnectionReuseTest, SessionKeepsItsConnection)
{
    const NginxServer server({goodSite()});
    QueryScene scene(configTowards(server));

    expectSuccesses(scene, 3);

    const std::vector<NginxRequest> requests = server.requests(3);
    EXPECT_THAT(connectionsOf(requests), ElementsAre(0, 0, 0));
    EXPECT_EQ(requests.at(2).ordinal, 3U);
}

TEST_F(ConnectionReuseTest, KeptConnectionTakesNoTimeForTls)
{
    const NginxServer server({goodSite()});
    QueryScene scene(configTowards(server));
    expectSuccesses(scene, 1);

    const QueryOutcome second = scene.ask();

    EXPECT_TRUE(isFine(second));
    EXPECT_EQ(second.stats.tlsConnectTimeMs, 0);
}

TEST_F(ConnectionReuseTest, RefusalKeepsTheConnection)
{
    const NginxServer server({goodSite({{"404", "return 404 'missing';"}})});
    QueryScene scene(configTowards(server));

    EXPECT_TRUE(isFailure(scene.ask(caseQuery("404")), failureLog(CURLE_OK, 404, "Not Found"), "missing"));
    expectSuccesses(scene, 1);

    EXPECT_THAT(connectionsOf(server.requests(2)), ElementsAre(0, 0));
}

TEST_F(ConnectionReuseTest, TimeOutEndsTheConnection)
{
    const NginxServer server({goodSite({{"late", "echo_sleep 30; echo late;"}})});
    TAVQueryConfig config = configTowards(server);
    config.timeout = 1;
    QueryScene scene(config);

    expectSuccesses(scene, 1);
    expectStatus0(scene.ask(caseQuery("late")), CURLE_OPERATION_TIMEDOUT);
    expectSuccesses(scene, 1);

    // nginx notes the late request only when it would have answered.
    EXPECT_THAT(connectionsOf(server.requests(2)), ElementsAre(0, 1));
}

TEST_F(ConnectionReuseTest, ConnectsAgainWhenTheServerWantsNoMore)
{
    const NginxServer server({goodSite({}, "keepalive_requests 2;")});
    QueryScene scene(configTowards(server));

    expectSuccesses(scene, 4);

    EXPECT_THAT(connectionsOf(server.requests(4)), ElementsAre(0, 0, 1, 1));
}

TEST_F(ConnectionReuseTest, ConnectsAgainWhenTheRequestWantsNoMore)
{
    const NginxServer server({goodSite()});
    QueryScene scene(configTowards(server));
    Query query;
    query.header.firstHeader = "Connection: close";

    EXPECT_TRUE(isFine(scene.ask(query)));
    EXPECT_TRUE(isFine(scene.ask(query)));

    EXPECT_THAT(connectionsOf(server.requests(2)), ElementsAre(0, 1));
}

TEST_F(ConnectionReuseTest, ConnectsAgainAfterRestartOfTheServer)
{
    NginxServer server({goodSite()});
    QueryScene scene(configTowards(server));
    expectSuccesses(scene, 1);
    EXPECT_THAT(server.requests(1), SizeIs(1)); // noted before it is killed

    server.stop();
    server.start();

    expectSuccesses(scene, 1);
    EXPECT_EQ(server.requests(2).at(1).ordinal, 1U);
}

TEST_F(ConnectionReuseTest, GoneServerIsStatus0UntilItIsBack)
{
    NginxServer server({goodSite()});
    QueryScene scene(configTowards(server));
    expectSuccesses(scene, 1);

    server.stop();
    expectStatus0(scene.ask(), CURLE_COULDNT_CONNECT);
    expectStatus0(scene.ask(), CURLE_COULDNT_CONNECT);

    server.start();
    expectSuccesses(scene, 1);
}

TEST_F(ConnectionReuseTest, ResumesTlsOnLaterConnections)
{
    EXPECT_TRUE(resumesTls("TLSv1.2", 1));
    EXPECT_TRUE(resumesTls("TLSv1.3", 1));
}

TEST_F(ConnectionReuseTest, NeverResumesTlsWithoutCache)
{
    EXPECT_FALSE(resumesTls("TLSv1.2", 0));
    EXPECT_FALSE(resumesTls("TLSv1.3", 0));
}

TEST_F(ConnectionReuseTest, SessionsShareNothing)
{
    const NginxServer server({goodSite()});
    QueryScene scene(configTowards(server));
    scene.client.initSession(kOtherSession);

    for (const unsigned long session : {QueryScene::kSession, kOtherSession, QueryScene::kSession, kOtherSession})
        EXPECT_TRUE(isFine(scene.ask({}, session)));

    const std::vector<NginxRequest> requests = server.requests(4);
    EXPECT_THAT(connectionsOf(requests), ElementsAre(0, 1, 0, 1));
    EXPECT_FALSE(requests.at(1).resumedTls);
}

TEST_F(ConnectionReuseTest, ReopenedSessionStartsAnew)
{
    const NginxServer server({goodSite()});
    QueryScene scene(configTowards(server));
    expectSuccesses(scene, 1);

    EXPECT_TRUE(scene.client.deInitSession(QueryScene::kSession));
    scene.client.initSession(QueryScene::kSession);
    expectSuccesses(scene, 1);

    const std::vector<NginxRequest> requests = server.requests(2);
    EXPECT_THAT(connectionsOf(requests), ElementsAre(0, 1));
    EXPECT_FALSE(requests.at(1).resumedTls);
}

TEST_F(ConnectionReuseTest, OpeningAnOpenSessionKeepsItsConnection)
{
    const NginxServer server({goodSite()});
    QueryScene scene(configTowards(server));
    expectSuccesses(scene, 1);

    scene.client.initSession(QueryScene::kSession);
    expectSuccesses(scene, 1);

    EXPECT_THAT(connectionsOf(server.requests(2)), ElementsAre(0, 0));
}

TEST_F(ConnectionReuseTest, ClosedSessionIsNotAsked)
{
    const NginxServer server({goodSite()});
    QueryScene scene(configTowards(server));
    expectSuccesses(scene, 1);
    scene.client.deInitSession(QueryScene::kSession);

    const QueryOutcome outcome = scene.ask();

    EXPECT_FALSE(outcome.success);
    EXPECT_THAT(outcome.log, ElementsAre(LogLine{2, std::nullopt, "cURL session id 1 not found to perform query."}));
    EXPECT_EQ(outcome.stats, kUntouchedStats);
    EXPECT_THAT(server.requests(1), SizeIs(1));
}

TEST_F(ConnectionReuseTest, ClosingSessionsClosesTheirDescriptors)
{
    const NginxServer server({goodSite()});
    QueryScene scene(configTowards(server));
    const std::size_t before = openDescriptors();
    expectSuccesses(scene, 1);
    EXPECT_GT(openDescriptors(), before);

    scene.client.deInitSession(QueryScene::kSession);

    EXPECT_LE(openDescriptors(), before);
}

TEST_F(ConnectionReuseTest, NewConfigurationReachesNewSessionsOnly)
{
    const NginxServer before({goodSite()});
    const NginxServer after({goodSite()});
    QueryScene scene(configTowards(before));
    scene.client.configureOptions(configTowards(after), QueryScene::kSession);
    scene.client.initSession(kOtherSession);

    EXPECT_TRUE(isFine(scene.ask()));
    EXPECT_TRUE(isFine(scene.ask()));
    EXPECT_TRUE(isFine(scene.ask({}, kOtherSession)));

    EXPECT_THAT(before.requests(2), SizeIs(2));
    EXPECT_THAT(after.requests(1), SizeIs(1));
}

} // namespace
} // namespace TAV::test
