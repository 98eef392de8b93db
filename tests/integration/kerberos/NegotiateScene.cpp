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

SquidSettings negotiateProxy(const Kdc& kdc, const std::string& serviceKeytab)
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
    // Without a replay cache, which would be a file of all such proxies of the machine.
    settings.environment = {"KRB5_CONFIG=" + kdc.clientConfig(), "KRB5RCACHENAME=none:"};
    return settings;
}

NegotiateScene::NegotiateScene(const std::vector<std::string>& accountOptions)
    : proxy(negotiateProxy(kdc, kdc.addService("HTTP/localhost"))), m_config(kdc.clientConfig())
{
    for (const char* name : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"})
        ::unsetenv(name);
    kdc.addUser("user", kPassword, accountOptions);
    kdc.addUser("other", "otherpw");
}

TAVQueryConfig NegotiateScene::configThroughProxy() const
{
    TAVQueryConfig config = configTowards(server);
    config.proxyAddress = proxy.address();
    return config;
}

} // namespace TAV::test
