#pragma once

#include <chrono>
#include <string>

#include "KerberosScene.h"
#include "NginxScene.h"
#include "support/Kdc.h"
#include "support/SquidProxy.h"

namespace TAV::test
{

/// What is missing for such a scene on this machine; empty if nothing is.
std::string missingForNegotiateScene();

/// What differs between scenes.
struct NegotiateSettings
{
    std::vector<std::string> accountOptions;  ///< of kadmin's addprinc, for "user"
    std::chrono::seconds kdcClockOffset{0};   ///< how far the clocks are ahead of the client's
    std::chrono::seconds proxyClockOffset{0}; ///< the same
};

/// A KDC with the accounts "user" and "other", a proxy that asks for their tickets, and a web server behind it.
class NegotiateScene
{
public:
    explicit NegotiateScene(const NegotiateSettings& settings = {});

    /// Asks the web server through the proxy, on a connection that is made for it.
    QueryOutcome ask() const { return QueryScene(configThroughProxy()).ask(); }

    TAVQueryConfig configThroughProxy() const;

    Kdc kdc;
    NginxServer server{{goodSite()}};
    SquidProxy proxy;

private:
    ClientConfig m_config;
};

} // namespace TAV::test
