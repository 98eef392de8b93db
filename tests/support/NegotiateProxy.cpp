#include "support/NegotiateProxy.h"

namespace TAV::test
{

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
    settings.environment = kdc.clockAheadBy(clockOffset);
    settings.environment.push_back("KRB5_CONFIG=" + kdc.clientConfig());
    // No replay cache, which would be a file of all such proxies of the machine.
    settings.environment.emplace_back("KRB5RCACHENAME=none:");
    return settings;
}

} // namespace TAV::test
