// Which TLS a session speaks, and what it answers to a server that wants more.

#include <gtest/gtest.h>

#include "QueryScene.h"
#include "RawTlsServer.h"
#include "support/Tools.h"

namespace TAV::test
{
namespace
{

struct Version
{
    const char* name;
    int number;
    const char* text;
};

std::ostream& operator<<(std::ostream& out, const Version& version)
{
    return out << version.name;
}

constexpr Version kTls10 = {"Tls10", TLS1_VERSION, "TLSv1"};
constexpr Version kTls11 = {"Tls11", TLS1_1_VERSION, "TLSv1.1"};
constexpr Version kTls12 = {"Tls12", TLS1_2_VERSION, "TLSv1.2"};
constexpr Version kTls13 = {"Tls13", TLS1_3_VERSION, "TLSv1.3"};

const auto kNameOfVersion = [](const auto& instance) { return instance.param.name; };

TlsOptions only(const Version& version, int verifyMode = SSL_VERIFY_NONE)
{
    return {version.number, version.number, verifyMode};
}

TAVQueryConfig towards(const RawTlsServer& server)
{
    return configTowards(server.port(), TestAuthority::shared().caFile());
}

class TlsVersionTest : public testing::TestWithParam<Version>
{
};

class OldTlsTest : public testing::TestWithParam<Version>
{
protected:
    OldTlsTest()
        : m_settings(m_directory.write("openssl.cnf",
                                       "openssl_conf = all\n"
                                       "[all]\nssl_conf = tls\n"
                                       "[tls]\nsystem_default = old\n"
                                       "[old]\nMinProtocol = TLSv1\nCipherString = DEFAULT:@SECLEVEL=0\n"))
    {
    }

    /// The output of a query in a process in which OpenSSL itself takes every version.
    std::string askedWhereAllIsAllowed(const RawTlsServer& server, const std::string& step) const
    {
        return outputOf({"env",
                         "OPENSSL_CONF=" + m_settings,
                         TAV_QUERY_CHILD,
                         "127.0.0.1:" + std::to_string(server.port()),
                         TestAuthority::shared().caFile(),
                         step});
    }

private:
    TemporaryDirectory m_directory;
    std::string m_settings;
};

TEST_P(OldTlsTest, IsRefusedBySessions)
{
    RawTlsServer server({afterRequest({send(answer("text"))})}, only(GetParam()));
    EXPECT_EQ(askedWhereAllIsAllowed(server, "ask"),
              "false 0 untouched\n"
              "Failed to connect to Lumo server: SSL connect error\n"
              "Last HTTP response code received from Lumo server is: 0\n"
              "Last HTTP response message received from Lumo server is: Connection Could Not Be Established\n");
    EXPECT_EQ(server.connections().at(0).tlsVersion, "");
}

// So it is the option that refuses it, nothing else.
TEST_P(OldTlsTest, WorksWithoutTheOption)
{
    RawTlsServer server({afterRequest({send(answer("text"))})}, only(GetParam()));
    EXPECT_EQ(askedWhereAllIsAllowed(server, "bare"), "0 200\n");
    EXPECT_EQ(server.connections().at(0).tlsVersion, GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Versions, OldTlsTest, testing::Values(kTls10, kTls11), kNameOfVersion);

TEST_P(TlsVersionTest, IsSpoken)
{
    RawTlsServer server({afterRequest({send(answer("text"))})}, only(GetParam()));
    QueryScene scene(towards(server));
    EXPECT_TRUE(isSuccess(scene.ask(), "text"));
    EXPECT_EQ(server.connections().at(0).tlsVersion, GetParam().text);
}

TEST_P(TlsVersionTest, IsResumedOnTheNextConnection)
{
    RawTlsServer server({afterRequest({send(answer("text")), closeCleanly()}), afterRequest({send(answer("text"))})},
                        only(GetParam()));
    QueryScene scene(towards(server));
    EXPECT_TRUE(isSuccess(scene.ask(), "text"));
    EXPECT_TRUE(isSuccess(scene.ask(), "text"));
    EXPECT_FALSE(server.connections().at(0).resumed);
    EXPECT_TRUE(server.connections().at(1).resumed);
}

TEST_P(TlsVersionTest, IsNotResumedWithoutTheCache)
{
    RawTlsServer server({afterRequest({send(answer("text")), closeCleanly()}), afterRequest({send(answer("text"))})},
                        only(GetParam()));
    TAVQueryConfig config = towards(server);
    config.sslSessionIdCache = 0;
    QueryScene scene(config);
    EXPECT_TRUE(isSuccess(scene.ask(), "text"));
    EXPECT_TRUE(isSuccess(scene.ask(), "text"));
    EXPECT_FALSE(server.connections().at(1).resumed);
}

TEST_P(TlsVersionTest, GoesOnWithoutAClientCertificateIfTheServerOnlyAsks)
{
    RawTlsServer server({afterRequest({send(answer("text"))})}, only(GetParam(), SSL_VERIFY_PEER));
    QueryScene scene(towards(server));
    EXPECT_TRUE(isSuccess(scene.ask(), "text"));
}

TEST_P(TlsVersionTest, FailsIfTheServerInsistsOnAClientCertificate)
{
    RawTlsServer server({afterRequest({send(answer("text"))})},
                        only(GetParam(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT));
    QueryScene scene(towards(server));
    const QueryOutcome outcome = scene.ask();
    // With TLS 1.3 the client's handshake is over before the server looks at it.
    const bool isLate = GetParam().number == TLS1_3_VERSION;
    EXPECT_TRUE(isFailure(outcome, noStatusLog(isLate ? CURLE_RECV_ERROR : CURLE_SSL_CONNECT_ERROR)));
}

INSTANTIATE_TEST_SUITE_P(Versions, TlsVersionTest, testing::Values(kTls12, kTls13), kNameOfVersion);

TEST(TlsChoiceTest, IsTheHighestOfBoth)
{
    RawTlsServer server({afterRequest({send(answer("text"))})});
    QueryScene scene(towards(server));
    EXPECT_TRUE(isSuccess(scene.ask(), "text"));
    EXPECT_EQ(server.connections().at(0).tlsVersion, "TLSv1.3");
}

} // namespace
} // namespace TAV::test
