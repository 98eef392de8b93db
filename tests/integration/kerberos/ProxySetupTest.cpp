// Follows the page that tells how to set up account, realm and proxy: with its texts, and this machine's names in them.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>

#include "NegotiateScene.h"
#include "tav/TAVSystemUtils.h"

namespace TAV::test
{
namespace
{

//! [client]
/// One query through the proxy, with a ticket for the account.
/// @param directory  the daemon's alone, mode 0700
bool askThroughProxy(TAV::ILogger& logger,
                     const std::string& directory,
                     const std::string& password,
                     const TAV::TAVQueryConfig& config, // its proxyAddress is "proxy.example.com:3128"
                     std::string& answer)
{
    std::string cache = directory + "/krb5cc";
    std::string keytab = directory + "/client.keytab";
    TAV::KrbHandler kerberos(
        logger, std::make_shared<TAV::TAVSystemUtils>(), cache, keytab, std::make_shared<TAV::KrbAPIWrapper>());
    TAV::TAVProxyConfig account;
    account.userPrincipal = "scanner@EXAMPLE.COM";
    account.password = password;
    if (!kerberos.configKrbSession(account))
        return false; // the log says at which step

    constexpr unsigned long kSession = 1;
    TAV::CurlWrapper client(logger, std::make_shared<TAV::CurlAPIUtility>());
    client.configureOptions(config, kSession);
    client.initSession(kSession);
    TAV::TAVHTTPHeader header;
    TAV::LumoStats stats;
    return client.sendNetworkRequest(header, "a question", answer, kSession, stats);
}
//! [client]

/// A text of the page, with other names in it.
/// @throws std::runtime_error  if one of the page's names is not there
std::string textOfPage(const std::string& file, const std::map<std::string, std::string>& names)
{
    std::string text = readFile(TAV_SOURCE_DIR "/docs/kerberos/" + file);
    for (const auto& [ofPage, ofThisMachine] : names)
    {
        std::size_t at = text.find(ofPage);
        if (at == std::string::npos)
            throw std::runtime_error(file + " does not name " + ofPage);
        for (; at != std::string::npos; at = text.find(ofPage, at + ofThisMachine.size()))
            text.replace(at, ofPage.size(), ofThisMachine);
    }
    return text;
}

std::vector<std::string> wordsOf(const std::string& line)
{
    std::istringstream stream(line);
    return {std::istream_iterator<std::string>(stream), {}};
}

class ProxySetupTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (const std::string missing = missingForNegotiateScene(); !missing.empty())
            GTEST_SKIP() << missing;
    }

    /// @return the content of the proxy's keytab
    std::string makeAccounts(Kdc& kdc) const
    {
        const std::string keytab = m_directory.file("proxy.keytab");
        std::istringstream lines(textOfPage(
            "accounts.kadmin",
            {{"PASSWORD", kPassword}, {"proxy.example.com", "localhost"}, {"/etc/squid/proxy.keytab", keytab}}));
        for (std::string line; std::getline(lines, line);)
            kdc.administer(wordsOf(line));
        return readFile(keytab);
    }

    static std::string proxyDirectives()
    {
        return textOfPage("squid.conf",
                          {{"/usr/lib/squid/negotiate_kerberos_auth", SquidProxy::helper("negotiate_kerberos_auth")},
                           {"/etc/squid/proxy.keytab", "proxy.keytab"},
                           {"proxy.example.com", "localhost"}});
    }

    const TemporaryDirectory m_directory;
};

TEST_F(ProxySetupTest, QueryPassesWhenAllIsSetUpAsOnThePage)
{
    KdcSettings settings;
    settings.realm = "EXAMPLE.COM";
    Kdc kdc(settings);
    const std::string serviceKeytab = makeAccounts(kdc);
    const std::string kdcAddress = "127.0.0.1:" + std::to_string(kdc.port());
    const TemporaryDirectory readable;
    ASSERT_EQ(::chmod(readable.path().c_str(), 0755), 0);
    const std::string config = readable.write("krb5.conf", textOfPage("krb5.conf", {{"kdc.example.com", kdcAddress}}));
    ::setenv("KRB5_CONFIG", config.c_str(), 1);
    const SquidProxy proxy({proxyDirectives(), {{"proxy.keytab", serviceKeytab}}, {"KRB5RCACHENAME=none:"}});
    const NginxServer server({goodSite()});
    TAVQueryConfig query = configTowards(server);
    query.proxyAddress = proxy.address();
    RecordingLogger logger;
    std::string answer;

    EXPECT_TRUE(askThroughProxy(logger, m_directory.path(), kPassword, query, answer));

    EXPECT_EQ(answer, "fine");
    const std::vector<SquidRequest> requests = proxy.requests(2);
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[1].result, "TCP_TUNNEL/200");
    EXPECT_EQ(requests[1].user, "scanner@EXAMPLE.COM");
    EXPECT_FALSE(askThroughProxy(logger, m_directory.path(), "wrong", query, answer));
}

TEST_F(ProxySetupTest, PageQuotesWhatIsUsedHere)
{
    const std::string page = readFile(TAV_SOURCE_DIR "/docs/kerberos.md");
    for (const char* file : {"docs/kerberos/krb5.conf",
                             "docs/kerberos/accounts.kadmin",
                             "docs/kerberos/squid.conf",
                             "tests/integration/kerberos/ProxySetupTest.cpp: client"})
        EXPECT_NE(page.find(std::string("<!-- quoted from ") + file + " -->"), std::string::npos) << file;
}

} // namespace
} // namespace TAV::test
