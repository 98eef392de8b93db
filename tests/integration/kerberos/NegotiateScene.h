#pragma once

#include <memory>
#include <string>

#include "KerberosScene.h"
#include "NginxScene.h"
#include "support/Kdc.h"
#include "support/SquidProxy.h"

namespace TAV::test
{

/// What is missing for such a scene on this machine; empty if nothing is.
std::string missingForNegotiateScene();

/// A proxy that lets known users of a realm through, as the helper finds out with the keytab.
SquidSettings negotiateProxy(const Kdc& kdc, const std::string& serviceKeytab);

/// A KDC with the accounts "user" and "other", a proxy that asks for their tickets, and a web server behind it.
class NegotiateScene
{
public:
    /// @param accountOptions  of kadmin's addprinc, for "user"
    explicit NegotiateScene(const std::vector<std::string>& accountOptions = {});

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
