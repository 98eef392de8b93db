#include "NegotiateScene.h"

#include <cstdlib>

namespace TAV::test
{

std::string missingForNegotiateScene()
{
    for (const std::string& missing : {Kdc::missing(), SquidProxy::missing(), NginxServer::missing()})
    {
        if (!missing.empty())
            return missing;
    }
    return "";
}

namespace
{

KdcSettings kdcWithClock(std::chrono::seconds offset)
{
    KdcSettings settings;
    settings.clockOffset = offset;
    return settings;
}

/// Lets known users of a realm through, as its helper finds out with the keytab.
SquidSettings negotiateProxy(const Kdc& kdc, const std::string& serviceKeytab, std::chrono::seconds clockOffset)
{
    SquidSettings settings;
    settings.files = {{"service.keytab", serviceKeytab}};
    settings.directives = "auth_param negotiate program " + SquidProxy::helper("negotiate_kerberos_auth") +
                          R"( -k service.keytab -s GSS_C_NO_NAME
auth_param negotiate children 2 startup=1
auth_param negotiate keep_alive on
acl known proxy_auth REQUIRED
http_access allow known
http_access deny all
)";
    settings.environment = clockAheadBy(clockOffset);
    settings.environment.push_back("KRB5_CONFIG=" + kdc.clientConfig());
    // No replay cache, which would be a file of all such proxies of the machine.
    settings.environment.emplace_back("KRB5RCACHENAME=none:");
    return settings;
}

} // namespace

NegotiateScene::NegotiateScene(const NegotiateSettings& settings)
    : kdc(kdcWithClock(settings.kdcClockOffset)),
      proxy(negotiateProxy(kdc, kdc.addService("HTTP/localhost"), settings.proxyClockOffset)),
      m_config(kdc.clientConfig())
{
    for (const char* name : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"})
        ::unsetenv(name);
    kdc.addUser("user", kPassword, settings.accountOptions);
    kdc.addUser("other", "otherpw");
}

TAVQueryConfig NegotiateScene::configThroughProxy() const
{
    TAVQueryConfig config = configTowards(server);
    config.proxyAddress = proxy.address();
    return config;
}

} // namespace TAV::test
