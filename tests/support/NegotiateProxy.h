#pragma once

#include <chrono>
#include <string>

#include "support/Kdc.h"
#include "support/SquidProxy.h"

namespace TAV::test
{

/// A proxy that lets known users of a realm through, as its helper finds out with the service's keytab.
/// @param serviceKeytab  the content of the keytab of HTTP/localhost
/// @param clockOffset    how far the proxy's clock is ahead of everybody's
SquidSettings negotiateProxy(const Kdc& kdc,
                             const std::string& serviceKeytab,
                             std::chrono::seconds clockOffset = std::chrono::seconds(0));

} // namespace TAV::test
