#include <climits>

#include "CurlFixture.h"

namespace TAV
{
namespace
{

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

using Group = bool (CurlWrapper::*)(void*);

constexpr Group kCommon = &CurlWrapper::setCommonConfigParameters;
constexpr Group kSsl = &CurlWrapper::setSSLConfigParameters;
constexpr Group kProxy = &CurlWrapper::setProxyConfigParameters;

class TransferOptionsTest : public CurlFixture
{
protected:
    /// Sets a group of a handle of the test's own; the calls are those of the group alone.
    bool set(Group group)
    {
        void* const handle = api->curlEasyInit();
        api->takeCalls();
        const bool result = (client.get()->*group)(handle);
        const Texts calls = api->takeCalls();
        api->curlEasyCleanup(handle);
        m_calls = calls;
        return result;
    }

    Texts m_calls;
};

TEST_F(TransferOptionsTest, CommonGroupIsTimeoutMethodAndUrl)
{
    client->configureOptions(sampleConfig(), 1);
    EXPECT_TRUE(set(kCommon));
    EXPECT_THAT(m_calls,
                ElementsAre("curlSetLongOpt(handle 1, CURLOPT_TIMEOUT, 14)",
                            "curlSetStringOpt(handle 1, CURLOPT_CUSTOMREQUEST, POST)",
                            "curlSetStringOpt(handle 1, CURLOPT_URL, https://lumo.example:8443/1)"));
}

TEST_F(TransferOptionsTest, TlsGroupIsCertificatesVerificationsSessionCacheAndVersion)
{
    client->configureOptions(sampleConfig(), 1);
    EXPECT_TRUE(set(kSsl));
    EXPECT_THAT(m_calls,
                ElementsAre("curlSetStringOpt(handle 1, CURLOPT_CAINFO, /etc/ca.pem)",
                            "curlSetLongOpt(handle 1, CURLOPT_SSL_VERIFYPEER, 12)",
                            "curlSetLongOpt(handle 1, CURLOPT_SSL_VERIFYHOST, 11)",
                            "curlSetLongOpt(handle 1, CURLOPT_SSL_SESSIONID_CACHE, 13)",
                            "curlSetLongOpt(handle 1, CURLOPT_SSLVERSION, 6)"));
}

TEST_F(TransferOptionsTest, ProxyGroupIsAuthenticationTunnelAddressAndCredentials)
{
    client->configureOptions(sampleConfig(), 1);
    EXPECT_TRUE(set(kProxy));
    EXPECT_THAT(m_calls,
                ElementsAre("curlSetLongOpt(handle 1, CURLOPT_PROXYAUTH, -17)", // all bits but bit 4
                            "curlSetLongOpt(handle 1, CURLOPT_HTTPPROXYTUNNEL, 16)",
                            "curlSetStringOpt(handle 1, CURLOPT_PROXY, proxy.example:3128)",
                            "curlSetStringOpt(handle 1, CURLOPT_PROXYUSERPWD, user:secret)"));
}

TEST_F(TransferOptionsTest, DefaultRecordSetsEveryOptionToo)
{
    client->configureOptions(TAVQueryConfig(), 1);
    client->initSession(1);
    EXPECT_THAT(api->calls(),
                ElementsAre("curlEasyInit()",
                            "curlSetCallbackFuncOpt(handle 1)",
                            "curlSetLongOpt(handle 1, CURLOPT_TIMEOUT, 0)",
                            "curlSetStringOpt(handle 1, CURLOPT_CUSTOMREQUEST, )",
                            "curlSetStringOpt(handle 1, CURLOPT_URL, https:///1)",
                            "curlSetStringOpt(handle 1, CURLOPT_CAINFO, )",
                            "curlSetLongOpt(handle 1, CURLOPT_SSL_VERIFYPEER, 1)",
                            "curlSetLongOpt(handle 1, CURLOPT_SSL_VERIFYHOST, 2)",
                            "curlSetLongOpt(handle 1, CURLOPT_SSL_SESSIONID_CACHE, 1)",
                            "curlSetLongOpt(handle 1, CURLOPT_SSLVERSION, 6)",
                            "curlSetLongOpt(handle 1, CURLOPT_PROXYAUTH, -17)",
                            "curlSetLongOpt(handle 1, CURLOPT_HTTPPROXYTUNNEL, 0)",
                            "curlSetStringOpt(handle 1, CURLOPT_PROXY, )",
                            "curlSetStringOpt(handle 1, CURLOPT_PROXYUSERPWD, )"));
}

TEST_F(TransferOptionsTest, GroupsUseTheDefaultsUntilARecordIsStored)
{
    EXPECT_TRUE(set(kCommon));
    EXPECT_EQ(m_calls, commonCalls(1, TAVQueryConfig()));
    EXPECT_TRUE(set(kSsl));
    EXPECT_EQ(m_calls, sslCalls(2, TAVQueryConfig()));
    EXPECT_TRUE(set(kProxy));
    EXPECT_EQ(m_calls, proxyCalls(3, TAVQueryConfig()));
}

TEST_F(TransferOptionsTest, ValuesArePassedAsTheyStand)
{
    TAVQueryConfig config = sampleConfig();
    config.requestType = "a b\r\nX: y";
    config.serverHost = std::string("h\0st/../?#@:", 12);
    config.timeout = -1;
    config.sslVerifyHost = LONG_MIN;
    config.sslVerifyPeer = LONG_MAX;
    config.proxyTunnel = 3'000'000'000;
    client->configureOptions(config, 1);
    client->initSession(1);
    EXPECT_EQ(api->calls(), openingCalls(1, config));
}

TEST_F(TransferOptionsTest, AuxiliaryValueChangesNoOption)
{
    TAVQueryConfig config = sampleConfig();
    config.auxValue = INT32_MIN;
    client->configureOptions(config, 1);
    client->initSession(1);
    EXPECT_EQ(api->calls(), openingCalls(1, sampleConfig()));
}

TEST_F(TransferOptionsTest, GroupsDoNotCheckTheHandle)
{
    api->failCall("curlSetLongOpt", 1, CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_FALSE(client->setProxyConfigParameters(nullptr));
    EXPECT_THAT(api->calls(), ElementsAre("curlSetLongOpt(null, CURLOPT_PROXYAUTH, -17)", "curlEasyStrerror(43)"));
}

struct Refusal
{
    const char* option;
    Group group;
    std::size_t position; ///< in its group, from 1
    const char* groupName;
    const char* sentence;

    friend std::ostream& operator<<(std::ostream& out, const Refusal& refusal) { return out << refusal.option; }
};

constexpr Refusal kRefusals[] = {
    {"Timeout", kCommon, 1, "common", "Failed to set cURL timeout with error message: "},
    {"Method", kCommon, 2, "common", "Failed to set cURL request type with error message: "},
    {"Url", kCommon, 3, "common", "Failed to set cURL URL with error message: "},
    {"Certificates", kSsl, 1, "SSL", "Failed to set CA certificate with error message: "},
    {"VerifyPeer", kSsl, 2, "SSL", "Failed to set SSL peer verification option with error message: "},
    {"VerifyHost", kSsl, 3, "SSL", "Failed to set SSL host verification option with error message: "},
    {"SessionCache", kSsl, 4, "SSL", "Failed to set SSL session-id caching option with error message: "},
    {"Version", kSsl, 5, "SSL", "Failed to set TLS 1.2: "},
    {"Authentication", kProxy, 1, "proxy", "Failed to set proxy authentication option with error message: "},
    {"Tunnel", kProxy, 2, "proxy", "Failed to set http proxy tunneling option with error message: "},
    {"Proxy", kProxy, 3, "proxy", "Failed to set proxy authentication URL option with error message: "},
    {"Credentials", kProxy, 4, "proxy", "Failed to set credentials for proxy configuration with error message: "},
};

class RefusedOptionTest : public TransferOptionsTest, public testing::WithParamInterface<Refusal>
{
protected:
    void SetUp() override
    {
        client->configureOptions(sampleConfig(), 1);
        api->takeCalls();
    }

    /// The calls of the whole group if nothing is refused.
    static Texts groupCalls(int handle)
    {
        const Group group = GetParam().group;
        return group == kCommon ? commonCalls(handle, sampleConfig())
               : group == kSsl  ? sslCalls(handle, sampleConfig())
                                : proxyCalls(handle, sampleConfig());
    }

    /// Those of them up to the refused one.
    static Texts firstCalls(int handle)
    {
        Texts calls = groupCalls(handle);
        calls.resize(GetParam().position);
        return calls;
    }
};

TEST_P(RefusedOptionTest, EndsItsGroupWithOneLine)
{
    void* const handle = api->curlEasyInit();
    api->takeCalls();
    api->failAnyCall(static_cast<unsigned int>(GetParam().position), CURLE_OUT_OF_MEMORY);
    EXPECT_FALSE((client.get()->*GetParam().group)(handle));
    EXPECT_EQ(api->calls(), firstCalls(1) + Texts{"curlEasyStrerror(27)"});
    EXPECT_THAT(logger.lines(), ElementsAre(line(2, GetParam().sentence + std::string("text of 27"))));
    api->curlEasyCleanup(handle);
}

TEST_P(RefusedOptionTest, IsRefusedForAnyResultButZero)
{
    for (const CURLcode result : {CURLE_UNSUPPORTED_PROTOCOL, CURLE_UNKNOWN_OPTION, CURLE_NOT_BUILT_IN})
    {
        api->failAnyCall(static_cast<unsigned int>(GetParam().position), result);
        EXPECT_FALSE((client.get()->*GetParam().group)(nullptr));
    }
    EXPECT_EQ(logger.lines().size(), 3U);
}

TEST_P(RefusedOptionTest, WithoutATextIsLoggedByItsSentenceAlone)
{
    api->giveNull("curlEasyStrerror");
    api->failAnyCall(static_cast<unsigned int>(GetParam().position), CURLE_OUT_OF_MEMORY);
    EXPECT_FALSE((client.get()->*GetParam().group)(nullptr));
    EXPECT_THAT(logger.lines(), ElementsAre(line(2, GetParam().sentence)));
}

TEST_P(RefusedOptionTest, KeepsTheSessionFromOpeningAndCleansItsHandleUp)
{
    const Refusal& refusal = GetParam();
    Texts expected{"curlEasyInit()", "curlSetCallbackFuncOpt(handle 1)"};
    if (refusal.group != kCommon)
        expected = expected + commonCalls(1, sampleConfig());
    if (refusal.group == kProxy)
        expected = expected + sslCalls(1, sampleConfig());
    expected = expected + firstCalls(1);
    api->failAnyCall(static_cast<unsigned int>(expected.size()), CURLE_OUT_OF_MEMORY);

    EXPECT_EQ(thrownBy([&] { client->initSession(1); }),
              std::string("1: cURL configuration failed while setting ") + refusal.groupName + " config.");
    EXPECT_EQ(api->takeCalls(), expected + Texts({"curlEasyStrerror(27)", "curlEasyCleanup(handle 1)"}));
    EXPECT_THAT(logger.lines(), ElementsAre(line(2, refusal.sentence + std::string("text of 27"))));
    EXPECT_FALSE(client->deInitSession(1)) << "nothing was inserted";
}

INSTANTIATE_TEST_SUITE_P(Options,
                         RefusedOptionTest,
                         testing::ValuesIn(kRefusals),
                         [](const auto& tested) { return std::string(tested.param.option); });

} // namespace
} // namespace TAV
