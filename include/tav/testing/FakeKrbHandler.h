#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "tav/IkrbHandler.h"
#include "tav/testing/Fake.h"

namespace TAV::test
{

/// Tickets without a KDC, without files and without a change of the environment. Every renewal succeeds, unless the
/// test says otherwise.
///
///     FakeKrbHandler handler;
///     handler.failCall("renewTicket", 2, 1, Lasting::FromThenOn); // the first ticket, and no other
///     handler.onRenewTicket = [&] { proxyRefuses = false; return true; };
///     ...
///     EXPECT_EQ(handler.configs().at(0).userPrincipal, "user@A.EXAMPLE");
///     EXPECT_EQ(handler.countOf("renewTicket"), 2U);
///
/// As with `KrbHandler`, `configKrbSession` stores the account and then calls `renewTicket`, that of a derived class if
/// there is one: each of its calls is noted as two, "configKrbSession(PRINCIPAL)" and "renewTicket()". The password
/// does not stand in it.
///
/// A planned failure gives false. That of `configKrbSession` stores the account and renews nothing.
class FakeKrbHandler : public IkrbHandler, public Fake
{
public:
    using Fake::Fake;

    /// What a renewal does, and its result. It may block. When not set: success.
    std::function<bool()> onRenewTicket;

    /// The accounts by now.
    /// @return what `configKrbSession` was given, in order
    std::vector<TAVProxyConfig> configs() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_configs;
    }

    bool configKrbSession(TAVProxyConfig& config) override
    {
        const auto fault = enter("configKrbSession", config.userPrincipal);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_configs.push_back(config);
        }
        return !fault && renewTicket();
    }

    bool renewTicket() override
    {
        if (enter("renewTicket", ""))
            return false;
        return !onRenewTicket || onRenewTicket();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<TAVProxyConfig> m_configs;
};

} // namespace TAV::test
