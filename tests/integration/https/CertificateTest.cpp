#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NginxScene.h"
#include "support/MachineCas.h"
#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"

namespace TAV::test
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

/// What the client checks, with which authorities, and what becomes of the query.
struct Check
{
    long verifyPeer;
    long verifyHost;
    CURLcode outcome;
};

constexpr CURLcode kRefused = CURLE_PEER_FAILED_VERIFICATION;
constexpr CURLcode kNoAuthorities = CURLE_SSL_CACERT_BADFILE;

/// Servers whose certificate does not, or just about, verify.
class CertificateTest : public NginxTest
{
protected:
    static void expectOutcomes(const ServerCertificate& certificate,
                               const std::vector<Check>& checks,
                               const std::string& caFile = TestAuthority::shared().caFile())
    {
        const NginxServer server({siteWith(certificate)});
        for (const Check& check : checks)
        {
            SCOPED_TRACE("peer " + std::to_string(check.verifyPeer) + ", host " + std::to_string(check.verifyHost));
            TAVQueryConfig config = configTowards(server.port(), caFile);
            config.sslVerifyPeer = check.verifyPeer;
            config.sslVerifyHost = check.verifyHost;
            expectOutcome(QueryScene(config).ask(), check.outcome);
        }
    }

    static void expectOutcome(const QueryOutcome& outcome, CURLcode expected)
    {
        if (expected == CURLE_OK)
        {
            EXPECT_TRUE(isFine(outcome));
            return;
        }
        EXPECT_FALSE(outcome.success);
        EXPECT_EQ(outcome.log, noStatusLog(expected));
        EXPECT_THAT(outcome.response, IsEmpty());
        EXPECT_EQ(outcome.stats, kUntouchedStats);
    }

    static const ServerCertificate& good() { return TestAuthority::shared().good(); }
};

TEST_F(CertificateTest, GoodPassesEveryCheck)
{
    expectOutcomes(good(), {{1, 2, CURLE_OK}, {1, 1, CURLE_OK}, {1, 0, CURLE_OK}, {0, 2, CURLE_OK}, {0, 0, CURLE_OK}});
}

TEST_F(CertificateTest, ExpiredPassesOnlyWithoutPeerCheck)
{
    expectOutcomes(TestAuthority::shared().expired(), {{1, 2, kRefused}, {1, 0, kRefused}, {0, 2, CURLE_OK}});
}

TEST_F(CertificateTest, OfAnotherHostPassesOnlyWithoutHostCheck)
{
    // Without the peer check too.
    expectOutcomes(TestAuthority::shared().wrongName(),
                   {{1, 2, kRefused}, {1, 1, kRefused}, {0, 2, kRefused}, {1, 0, CURLE_OK}, {0, 0, CURLE_OK}});
}

TEST_F(CertificateTest, SignedByItselfPassesOnlyWithoutPeerCheck)
{
    expectOutcomes(TestAuthority::shared().selfSigned(), {{1, 2, kRefused}, {1, 0, kRefused}, {0, 2, CURLE_OK}});
}

TEST_F(CertificateTest, SignedByItselfPassesAsItsOwnAuthority)
{
    const ServerCertificate& certificate = TestAuthority::shared().selfSigned();

    expectOutcomes(certificate, {{1, 2, CURLE_OK}}, certificate.certificate);
}

TEST_F(CertificateTest, OfUnknownAuthorityPassesOnlyWithoutPeerCheck)
{
    expectOutcomes(TestAuthority::shared().fromOtherAuthority(),
                   {{1, 2, kRefused}, {1, 0, kRefused}, {0, 2, CURLE_OK}});
}

TEST_F(CertificateTest, OfImpostorPassesOnlyWithoutPeerCheck)
{
    expectOutcomes(TestAuthority::shared().fromImpostor(),
                   {{1, 2, CURLE_SSL_CONNECT_ERROR}, {1, 0, CURLE_SSL_CONNECT_ERROR}, {0, 2, CURLE_OK}});
}

TEST_F(CertificateTest, PassesWithTheAuthorityThatSignedIt)
{
    const TestAuthority& authority = TestAuthority::shared();

    expectOutcomes(authority.fromOtherAuthority(), {{1, 2, CURLE_OK}}, authority.otherCaFile());
}

// The file adds to the authorities that libcurl finds on the machine: a daemon that must trust the file alone needs a
// call layer that says so.
TEST_F(CertificateTest, OfAnAuthorityOfTheMachinePassesBesideTheGivenOne)
{
    if (const std::string obstacle = obstacleToMachineCas(); !obstacle.empty())
        GTEST_SKIP() << obstacle;
    const TestAuthority& authority = TestAuthority::shared();
    const NginxServer server({siteWith(authority.fromOtherAuthority()), siteWith(authority.good())});
    const TemporaryDirectory place;
    SharedNotes notes;

    SacrificialProcess process(
        [&]
        {
            giveMachineCas(authority.otherCaFile(), place);
            for (const std::size_t site : {0U, 1U})
                notes.add(isFine(QueryScene(configTowards(server, site)).ask()) ? "fine" : "refused");
            TAVQueryConfig without = configTowards(server);
            without.caCertPath = "";
            notes.add(QueryScene(without).ask().log == noStatusLog(kNoAuthorities) ? "no authorities" : "?");
        });

    EXPECT_EQ(process.wait(), 0);
    EXPECT_THAT(notes.lines(), ElementsAre("fine", "fine", "no authorities"));
}

TEST_F(CertificateTest, MissingAuthorityFileFailsThePeerCheck)
{
    const TemporaryDirectory directory;

    expectOutcomes(good(), {{1, 2, kNoAuthorities}, {0, 2, CURLE_OK}}, directory.file("missing.pem"));
}

TEST_F(CertificateTest, EmptyAuthorityPathFailsThePeerCheck)
{
    expectOutcomes(good(), {{1, 2, kNoAuthorities}, {0, 2, CURLE_OK}}, "");
}

TEST_F(CertificateTest, FileWithoutAuthoritiesFailsThePeerCheck)
{
    const TemporaryDirectory directory;

    expectOutcomes(good(), {{1, 2, kNoAuthorities}, {0, 2, CURLE_OK}}, directory.write("notes.txt", "no certificate"));
}

TEST_F(CertificateTest, IsReadWhenTheSessionConnects)
{
    const TemporaryDirectory directory;
    const NginxServer server({goodSite()});
    QueryScene scene(configTowards(server.port(), directory.file("ca.pem")));

    expectOutcome(scene.ask(), kNoAuthorities);
    directory.write("ca.pem", readFile(TestAuthority::shared().caFile()));
    expectOutcome(scene.ask(), CURLE_OK);
}

/// Which versions of the protocols a query is made with.
class ProtocolTest : public NginxTest
{
protected:
    static NginxRequest requestTo(NginxSite site)
    {
        const NginxServer server({std::move(site)});
        EXPECT_TRUE(isFine(QueryScene(configTowards(server)).ask()));
        return server.requests(1).at(0);
    }
};

TEST_F(ProtocolTest, SpeaksTls12)
{
    EXPECT_EQ(requestTo(goodSite({}, "ssl_protocols TLSv1.2;")).tlsVersion, "TLSv1.2");
}

TEST_F(ProtocolTest, SpeaksTls13)
{
    EXPECT_EQ(requestTo(goodSite({}, "ssl_protocols TLSv1.3;")).tlsVersion, "TLSv1.3");
}

TEST_F(ProtocolTest, PrefersTls13)
{
    EXPECT_EQ(requestTo(goodSite({}, "ssl_protocols TLSv1.2 TLSv1.3;")).tlsVersion, "TLSv1.3");
}

TEST_F(ProtocolTest, SpeaksHttp11)
{
    EXPECT_EQ(requestTo(goodSite()).httpVersion, "HTTP/1.1");
}

TEST_F(ProtocolTest, SpeaksHttp2IfTheServerOffersIt)
{
    NginxSite site = goodSite();
    site.listenWords = "http2";

    EXPECT_EQ(requestTo(std::move(site)).httpVersion, "HTTP/2.0");
}

TEST_F(ProtocolTest, ServerWithoutTlsIsRefused)
{
    const NginxServer server({NginxSite{}});

    const QueryOutcome outcome = QueryScene(configTowards(server)).ask();

    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.log, noStatusLog(CURLE_SSL_CONNECT_ERROR));
    EXPECT_THAT(outcome.response, IsEmpty());
    EXPECT_EQ(outcome.stats, kUntouchedStats);
}

} // namespace
} // namespace TAV::test
