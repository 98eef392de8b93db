#include "NegotiateScene.h"

#include <cstdlib>

#include "support/NegotiateProxy.h"

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
