// The whole chain: KDC, proxy and web server are real, and so are the handler and the query client.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "NegotiateScene.h"

namespace TAV::test
{
namespace
{

constexpr const char* kOther = "other@TEST.EXAMPLE";
constexpr const char* kTicketService = "krbtgt/TEST.EXAMPLE@TEST.EXAMPLE";

class NegotiateProxyTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (const std::string missing = missingForNegotiateScene(); !missing.empty())
            GTEST_SKIP() << missing;
    }

    static void expectPassed(const QueryOutcome& outcome)
    {
        EXPECT_TRUE(isSuccess(outcome)) << testing::PrintToString(outcome.log);
        EXPECT_EQ(outcome.response, "fine");
    }

    /// The proxy's 407 never shows: no status came back from the server.
    static void expectRefused(const QueryOutcome& outcome)
    {
        EXPECT_FALSE(outcome.success);
        EXPECT_EQ(outcome.log, noStatusLog(CURLE_RECV_ERROR));
        EXPECT_EQ(outcome.response, "");
        EXPECT_EQ(outcome.stats, kUntouchedStats);
    }
};

/// What the proxy notes of each query: result and user. A refused client tries twice, another one is told first that a
/// ticket is asked for.
class ProxyLog
{
public:
    explicit ProxyLog(const SquidProxy& proxy) : m_proxy(proxy) {}

    /// The two lines since the last call.
    std::vector<std::string> ofLastQuery()
    {
        constexpr std::size_t kLines = 2;
        std::vector<std::string> lines;
        const std::vector<SquidRequest> requests = m_proxy.requests(m_seen + kLines);
        for (; m_seen < requests.size(); ++m_seen)
            lines.push_back(requests[m_seen].result + " " + requests[m_seen].user);
        return lines;
    }

private:
    const SquidProxy& m_proxy;
    std::size_t m_seen = 0;
};

std::vector<std::string> refused()
{
    return {"TCP_DENIED/407 -", "TCP_DENIED/407 -"};
}

std::vector<std::string> passedAs(const std::string& user)
{
    return {"TCP_DENIED/407 -", "TCP_TUNNEL/200 " + user};
}

TEST_F(NegotiateProxyTest, ProxyLetsPassWhoseRenewalSucceeded)
{
    const NegotiateScene scene;
    ProxyLog proxyLog(scene.proxy);
    KerberosScene kerberos;
    expectRefused(scene.ask());
    EXPECT_EQ(proxyLog.ofLastQuery(), refused());

    ASSERT_TRUE(kerberos.renew().renewed);
    expectPassed(scene.ask());
    EXPECT_EQ(proxyLog.ofLastQuery(), passedAs(kUser));

    const Renewal again = kerberos.renewAgain();
    ASSERT_TRUE(again.renewed);
    EXPECT_EQ(again.log, std::vector<LogLine>{renewedLine()}); // by now there was a cache to remove
    expectPassed(scene.ask());
    EXPECT_EQ(proxyLog.ofLastQuery(), passedAs(kUser));

    ASSERT_FALSE(kerberos.renew(kUser, "wrong").renewed);
    expectRefused(scene.ask());
    EXPECT_EQ(proxyLog.ofLastQuery(), refused());

    ASSERT_TRUE(kerberos.renew(kOther, "otherpw").renewed);
    expectPassed(scene.ask());
    EXPECT_EQ(proxyLog.ofLastQuery(), passedAs(kOther));
}

TEST_F(NegotiateProxyTest, CacheIsMadeByTheFirstQueryForItsOwnerAlone)
{
    const NegotiateScene scene;
    KerberosScene kerberos;
    ASSERT_TRUE(kerberos.renew().renewed);
    EXPECT_EQ(kerberos.files(), std::vector<std::string>{"keytab"});

    expectPassed(scene.ask());

    EXPECT_EQ(kerberos.files(), (std::vector<std::string>{"cache", "keytab"}));
    struct stat status = {};
    ASSERT_EQ(::stat(kerberos.cacheFile().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_THAT(kerberos.end(), testing::IsEmpty());
    EXPECT_THAT(kerberos.files(), testing::IsEmpty());
}

TEST_F(NegotiateProxyTest, CacheInMemoryServesToo)
{
    const NegotiateScene scene;
    KerberosScene kerberos("MEMORY:tickets");
    ASSERT_TRUE(kerberos.renew().renewed);

    expectPassed(scene.ask());

    EXPECT_EQ(kerberos.files(), std::vector<std::string>{"keytab"});
}

/// No file has that name, so a renewal deletes nothing, and neither does the handler's end.
TEST_F(NegotiateProxyTest, CacheWithATypeKeepsTheOldAccount)
{
    const NegotiateScene scene;
    ProxyLog proxyLog(scene.proxy);
    const TemporaryDirectory directory;
    for (const std::string& cache : {std::string("MEMORY:old"), "FILE:" + directory.file("cache")})
    {
        KerberosScene kerberos(cache);
        ASSERT_TRUE(kerberos.renew().renewed);
        expectPassed(scene.ask());
        EXPECT_EQ(proxyLog.ofLastQuery(), passedAs(kUser)) << cache;

        ASSERT_TRUE(kerberos.renew(kOther, "otherpw").renewed);
        expectPassed(scene.ask());
        EXPECT_EQ(proxyLog.ofLastQuery(), passedAs(kUser)) << cache;

        ASSERT_FALSE(kerberos.renew(kOther, "wrong").renewed);
        expectPassed(scene.ask());
        EXPECT_EQ(proxyLog.ofLastQuery(), passedAs(kUser)) << cache;

        EXPECT_THAT(kerberos.end(), testing::SizeIs(1)) << "that there is no cache to delete";
        expectPassed(scene.ask());
        EXPECT_EQ(proxyLog.ofLastQuery(), passedAs(kUser)) << cache;
    }
}

TEST_F(NegotiateProxyTest, TicketsInTheCacheServeWithoutKeytabAndKdc)
{
    NegotiateScene scene;
    KerberosScene kerberos;
    ASSERT_TRUE(kerberos.renew().renewed);
    expectPassed(scene.ask());

    std::filesystem::remove(kerberos.keytabFile());
    scene.kdc.stop();

    expectPassed(scene.ask());
}

TEST_F(NegotiateProxyTest, FailedRenewalTakesTheTicketsAway)
{
    NegotiateScene scene;
    KerberosScene kerberos;
    ASSERT_TRUE(kerberos.renew().renewed);
    expectPassed(scene.ask());
    scene.kdc.stop();
    ASSERT_FALSE(kerberos.renewAgain().renewed);

    expectRefused(scene.ask());

    // It leaves a good keytab: as soon as the KDC is back, GSSAPI obtains tickets without another renewal.
    scene.kdc.start();
    expectPassed(scene.ask());
}

TEST_F(NegotiateProxyTest, OpenTunnelOutlivesAFailedRenewal)
{
    const NegotiateScene scene;
    KerberosScene kerberos;
    ASSERT_TRUE(kerberos.renew().renewed);
    QueryScene session(scene.configThroughProxy());
    expectPassed(session.ask());
    ASSERT_FALSE(kerberos.renew(kUser, "wrong").renewed);

    const QueryOutcome onTheTunnel = session.ask();
    EXPECT_TRUE(onTheTunnel.success);
    EXPECT_EQ(onTheTunnel.response, "fine");

    session.client.deInitSession(QueryScene::kSession);
    session.client.initSession(QueryScene::kSession);
    expectRefused(session.ask());
}

TEST_F(NegotiateProxyTest, ServiceIsNamedAsTheProxysAddressIs)
{
    const NegotiateScene scene;
    KerberosScene kerberos;
    ASSERT_TRUE(kerberos.renew().renewed);
    TAVQueryConfig config = scene.configThroughProxy();
    config.proxyAddress = "127.0.0.1:" + std::to_string(scene.proxy.port()); // the realm has HTTP/localhost only

    expectRefused(QueryScene(config).ask());
}

TEST_F(NegotiateProxyTest, ClientsClockMayBeWrongTheProxysMayNot)
{
    constexpr std::chrono::hours kHour{1};
    NegotiateSettings settings;
    settings.kdcClockOffset = kHour;
    settings.proxyClockOffset = kHour;
    {
        const NegotiateScene scene(settings);
        KerberosScene kerberos;
        ASSERT_TRUE(kerberos.renew().renewed);
        expectPassed(scene.ask());
    }
    settings.kdcClockOffset = {};
    const NegotiateScene scene(settings);
    KerberosScene kerberos;
    ASSERT_TRUE(kerberos.renew().renewed);
    expectRefused(scene.ask());
}

TEST_F(NegotiateProxyTest, GssapiRenewsAnExpiredTicketFromTheKeytab)
{
    constexpr std::chrono::seconds kBeyondItsLife{5};
    NegotiateSettings settings;
    settings.accountOptions = {"-maxlife", "4sec"};
    const NegotiateScene scene(settings);
    KerberosScene kerberos;
    ASSERT_TRUE(kerberos.renew().renewed);
    expectPassed(scene.ask());
    const std::size_t issued = scene.kdc.issued(kUser, kTicketService);

    std::this_thread::sleep_for(kBeyondItsLife);
    expectPassed(scene.ask());
    EXPECT_GT(scene.kdc.issued(kUser, kTicketService), issued);

    std::filesystem::remove(kerberos.keytabFile());
    std::this_thread::sleep_for(kBeyondItsLife);
    expectRefused(scene.ask());
}

} // namespace
} // namespace TAV::test
