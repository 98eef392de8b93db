#include <cstdlib>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NginxScene.h"
#include "support/SquidProxy.h"
#include "support/Tools.h"

namespace TAV::test
{
namespace
{

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr unsigned long kOtherSession = 2;
constexpr const char* kKnownUsersOnly = R"(acl known proxy_auth REQUIRED
http_access deny !known
http_access allow known
)";

/// Knows one user, "bob".
SquidSettings basicProxy(const std::string& password = "secret")
{
    SquidSettings settings;
    settings.files = {{"passwords", "bob:" + outputOf({"openssl", "passwd", "-apr1", password})}};
    settings.directives = "auth_param basic program " + SquidProxy::helper("basic_ncsa_auth") + " passwords\n" +
                          "auth_param basic children 1 startup=1\nauth_param basic realm tests\n" + kKnownUsersOnly;
    return settings;
}

/// Alike; the password is "secret".
SquidSettings digestProxy()
{
    SquidSettings settings;
    settings.files = {{"passwords", "bob:secret\n"}};
    settings.directives = "auth_param digest program " + SquidProxy::helper("digest_file_auth") + " passwords\n" +
                          "auth_param digest children 1 startup=1\nauth_param digest realm tests\n" + kKnownUsersOnly;
    return settings;
}

SquidSettings refusingProxy()
{
    SquidSettings settings;
    settings.directives = "http_access deny all\n";
    return settings;
}

/// Queries through a proxy. The environment of the test names none, and no exceptions.
class ProxyTest : public NginxTest
{
protected:
    void SetUp() override
    {
        NginxTest::SetUp();
        if (IsSkipped())
            return;
        if (const std::string missing = SquidProxy::missing(); !missing.empty())
            GTEST_SKIP() << missing;
        clearEnvironment();
        m_server = std::make_unique<NginxServer>(std::vector<NginxSite>{goodSite({{"404", "return 404 'missing';"}}),
                                                                        siteWith(TestAuthority::shared().expired())});
    }

    void TearDown() override { clearEnvironment(); }

    NginxServer& server() { return *m_server; }

    std::string target() const { return "127.0.0.1:" + std::to_string(m_server->port()); }

    TAVQueryConfig through(const std::string& address, const std::string& credentials = "") const
    {
        TAVQueryConfig config = configTowards(*m_server);
        config.proxyAddress = address;
        config.proxyCredentials = credentials;
        return config;
    }

    static void expectStatus0(const QueryOutcome& outcome, CURLcode transfer)
    {
        EXPECT_FALSE(outcome.success);
        EXPECT_EQ(outcome.log, noStatusLog(transfer));
        EXPECT_THAT(outcome.response, IsEmpty());
        EXPECT_EQ(outcome.stats, kUntouchedStats);
    }

    void expectRefused(const SquidSettings& settings) const
    {
        const SquidProxy proxy(settings);
        for (const char* credentials : {"bob:wrong", "eve:secret", "bob:", ":", ""})
        {
            SCOPED_TRACE(credentials);
            expectStatus0(QueryScene(through(proxy.address(), credentials)).ask(), CURLE_RECV_ERROR);
        }
    }

    /// The proxy turns the first attempt, which tells it nobody's name, down.
    void expectBobPasses(const SquidSettings& settings, const std::string& credentials = "bob:secret") const
    {
        const SquidProxy proxy(settings);
        EXPECT_TRUE(isFine(QueryScene(through(proxy.address(), credentials)).ask()));

        const std::vector<SquidRequest> requests = proxy.requests(2);
        ASSERT_THAT(requests, SizeIs(2));
        EXPECT_EQ(requests[0].result, "TCP_DENIED/407");
        EXPECT_EQ(requests[1].result, "TCP_TUNNEL/200");
        EXPECT_EQ(requests[1].user, "bob");
    }

private:
    static void clearEnvironment()
    {
        for (const char* name : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"})
            ::unsetenv(name);
    }

    std::unique_ptr<NginxServer> m_server;
};

TEST_F(ProxyTest, EveryFormOfItsAddressTunnels)
{
    const SquidProxy proxy;
    std::size_t asked = 0;
    for (const std::string prefix : {"", "http://"})
    {
        for (const long tunnel : {0L, 1L})
        {
            SCOPED_TRACE(prefix + proxy.address() + ", tunnel " + std::to_string(tunnel));
            TAVQueryConfig config = through(prefix + proxy.address());
            config.proxyTunnel = tunnel;
            EXPECT_TRUE(isFine(QueryScene(config).ask()));

            const SquidRequest request = proxy.requests(asked + 1).at(asked);
            EXPECT_EQ(request.method + " " + request.target, "CONNECT " + target());
            EXPECT_EQ(request.result, "TCP_TUNNEL/200");
            ++asked;
        }
    }
}

TEST_F(ProxyTest, SessionKeepsItsTunnel)
{
    const SquidProxy proxy;
    {
        QueryScene scene(through(proxy.address()));
        EXPECT_TRUE(isFine(scene.ask()));
        const QueryOutcome second = scene.ask();
        EXPECT_TRUE(isFine(second));
        EXPECT_EQ(second.stats.tlsConnectTimeMs, 0);
    }

    EXPECT_THAT(proxy.requests(1), SizeIs(1));
    EXPECT_EQ(server().requests(2).at(1).ordinal, 2U);
}

TEST_F(ProxyTest, StatusOfTheServerComesThrough)
{
    const SquidProxy proxy;

    const QueryOutcome outcome = QueryScene(through(proxy.address())).ask(caseQuery("404"));

    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.log, failureLog(CURLE_OK, 404, "Not Found"));
    EXPECT_EQ(outcome.response, "missing");
    EXPECT_EQ(outcome.stats, kUntouchedStats);
}

TEST_F(ProxyTest, CertificateOfTheServerIsVerified)
{
    const SquidProxy proxy;
    TAVQueryConfig config = configTowards(server(), 1);
    config.proxyAddress = proxy.address();

    expectStatus0(QueryScene(config).ask(), CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(ProxyTest, BasicPassesWithThePassword)
{
    expectBobPasses(basicProxy());
}

TEST_F(ProxyTest, BasicRefusalIsStatus0)
{
    expectRefused(basicProxy());
}

// So a "%" has to be written as "%25"; one that no two digits follow stays as it is.
TEST_F(ProxyTest, CredentialsAreDecodedLikeAUrl)
{
    for (const char* credentials : {"bob:%73ecret", "%62ob:secret"})
    {
        SCOPED_TRACE(credentials);
        expectBobPasses(basicProxy("secret"), credentials);
    }
    expectBobPasses(basicProxy("100%41"), "bob:100%2541");
    expectBobPasses(basicProxy("100%"), "bob:100%");
}

TEST_F(ProxyTest, CredentialsWithAZeroByteAreNeverSent)
{
    const SquidProxy proxy(basicProxy());

    const QueryOutcome outcome = QueryScene(through(proxy.address(), "bob:secret%00")).ask();

    expectStatus0(outcome, outcome.transfer);
    EXPECT_EQ(outcome.transfer, CURLE_URL_MALFORMAT);
}

TEST_F(ProxyTest, CredentialsInItsAddressWin)
{
    const SquidProxy proxy(basicProxy());

    EXPECT_TRUE(isFine(QueryScene(through("http://bob:secret@" + proxy.address(), "bob:wrong")).ask()));
    expectStatus0(QueryScene(through("http://bob:wrong@" + proxy.address(), "bob:secret")).ask(), CURLE_RECV_ERROR);
}

TEST_F(ProxyTest, DigestPassesWithThePassword)
{
    expectBobPasses(digestProxy());
}

TEST_F(ProxyTest, DigestRefusalIsStatus0)
{
    expectRefused(digestProxy());
}

TEST_F(ProxyTest, RefusalOfTheTargetIsStatus0)
{
    const SquidProxy proxy(refusingProxy());

    expectStatus0(QueryScene(through(proxy.address())).ask(), CURLE_RECV_ERROR);

    EXPECT_EQ(proxy.requests(1).at(0).result, "TCP_DENIED/403");
}

TEST_F(ProxyTest, GoneProxyIsStatus0)
{
    SquidProxy proxy;
    QueryScene scene(through(proxy.address()));
    EXPECT_TRUE(isFine(scene.ask()));

    proxy.stop();

    expectStatus0(scene.ask(), CURLE_COULDNT_CONNECT);
}

TEST_F(ProxyTest, GoneServerBehindItIsStatus0)
{
    const SquidProxy proxy;
    server().stop();

    expectStatus0(QueryScene(through(proxy.address())).ask(), CURLE_RECV_ERROR);

    EXPECT_THAT(proxy.requests(1).at(0).result, HasSubstr("/503"));
}

TEST_F(ProxyTest, WebServerInItsPlaceIsStatus0)
{
    const NginxServer noProxy({NginxSite{}});

    expectStatus0(QueryScene(through("localhost:" + std::to_string(noProxy.port()))).ask(), CURLE_RECV_ERROR);
}

TEST_F(ProxyTest, EmptyAddressOverridesTheEnvironment)
{
    const FreePort nobody;
    const std::string dead = "http://localhost:" + std::to_string(nobody.number());
    ::setenv("https_proxy", dead.c_str(), 1);
    ::setenv("ALL_PROXY", dead.c_str(), 1);

    EXPECT_TRUE(isFine(QueryScene(through("")).ask()));

    // What libcurl does when nothing overrides it.
    const std::unique_ptr<CURL, void (*)(CURL*)> bare(curl_easy_init(), &curl_easy_cleanup);
    curl_easy_setopt(bare.get(), CURLOPT_URL, ("https://" + target() + "/1").c_str());
    EXPECT_EQ(curl_easy_perform(bare.get()), CURLE_COULDNT_CONNECT);
}

TEST_F(ProxyTest, ExceptionInTheEnvironmentOverridesTheAddress)
{
    const FreePort nobody;
    const TAVQueryConfig config = through("localhost:" + std::to_string(nobody.number()));
    expectStatus0(QueryScene(config).ask(), CURLE_COULDNT_CONNECT);

    ::setenv("no_proxy", "127.0.0.1", 1);

    EXPECT_TRUE(isFine(QueryScene(config).ask()));
}

TEST_F(ProxyTest, ReconfiguringReachesOneSessionOnly)
{
    const SquidProxy proxy;
    {
        QueryScene scene(through(""));
        scene.client.initSession(kOtherSession);
        for (const unsigned long session : {QueryScene::kSession, kOtherSession})
            EXPECT_TRUE(isFine(scene.ask({}, session)));

        scene.client.configureOptions(through(proxy.address()), kOtherSession);
        for (const unsigned long session : {QueryScene::kSession, kOtherSession})
            EXPECT_TRUE(isFine(scene.ask({}, session)));
    }

    // One stayed on its connection; the other one left its own for a tunnel.
    const std::vector<NginxRequest> requests = server().requests(4);
    EXPECT_EQ(requests.at(2).connection, requests.at(0).connection);
    EXPECT_NE(requests.at(3).connection, requests.at(1).connection);
    EXPECT_THAT(proxy.requests(1), SizeIs(1));
}

TEST_F(ProxyTest, ReconfiguringCanDoWithoutIt)
{
    SquidProxy proxy;
    QueryScene scene(through(proxy.address()));
    EXPECT_TRUE(isFine(scene.ask()));
    proxy.stop();

    scene.client.configureOptions(through(""), QueryScene::kSession);

    EXPECT_TRUE(isFine(scene.ask()));
}

TEST_F(ProxyTest, ReconfiguringMendsTheCredentials)
{
    const SquidProxy proxy(basicProxy());
    QueryScene scene(through(proxy.address(), "bob:wrong"));
    expectStatus0(scene.ask(), CURLE_RECV_ERROR);

    scene.client.configureOptions(through(proxy.address(), "bob:secret"), QueryScene::kSession);

    EXPECT_TRUE(isFine(scene.ask()));
}

} // namespace
} // namespace TAV::test
