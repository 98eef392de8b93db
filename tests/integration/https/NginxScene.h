#pragma once

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "QueryScene.h"
#include "TestAuthority.h"
#include "support/NginxServer.h"

namespace TAV::test
{

/// Tests against nginx.
class NginxTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (const std::string missing = NginxServer::missing(); !missing.empty())
            GTEST_SKIP() << missing;
    }
};

/// A port with this certificate.
inline NginxSite
siteWith(const ServerCertificate& certificate, std::vector<NginxCase> cases = {}, std::string directives = {})
{
    NginxSite site;
    site.certificate = certificate.certificate;
    site.key = certificate.key;
    site.directives = std::move(directives);
    site.cases = std::move(cases);
    return site;
}

/// A port with the certificate that verifies.
inline NginxSite goodSite(std::vector<NginxCase> cases = {}, std::string directives = {})
{
    return siteWith(TestAuthority::shared().good(), std::move(cases), std::move(directives));
}

/// Towards one of its ports, with all verifications.
inline TAVQueryConfig configTowards(const NginxServer& server, std::size_t site = 0)
{
    return configTowards(server.port(site), TestAuthority::shared().caFile());
}

/// Asks for one of the cases.
inline Query caseQuery(const std::string& name, std::string payload = "a question")
{
    Query query;
    query.header.firstHeader = "X-Case: " + name;
    query.payload = std::move(payload);
    return query;
}

/// Whether a query without a case was answered as it has to be.
inline bool isFine(const QueryOutcome& outcome)
{
    return isSuccess(outcome) && outcome.response == "fine";
}

/// Sends the request's body back.
inline NginxCase echoCase()
{
    return {"echo", "echo_read_request_body; echo_request_body;"};
}

} // namespace TAV::test
