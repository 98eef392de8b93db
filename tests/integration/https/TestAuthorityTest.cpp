#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestAuthority.h"
#include "support/Tools.h"

namespace TAV::test
{
namespace
{

using testing::HasSubstr;

/// What `openssl verify` answers for a certificate, with its host name checked too.
int verify(const ServerCertificate& certificate, const std::string& caFile)
{
    return runTool({"openssl",
                    "verify",
                    "-no-CApath",
                    "-verify_hostname",
                    "localhost",
                    "-CAfile",
                    caFile,
                    certificate.certificate})
        .exitCode;
}

TEST(TestAuthorityTest, OnlyGoodCertificateVerifies)
{
    const TestAuthority& authority = TestAuthority::shared();

    EXPECT_EQ(verify(authority.good(), authority.caFile()), 0);
    EXPECT_EQ(verify(authority.fromOtherAuthority(), authority.otherCaFile()), 0);
    for (const ServerCertificate* bad : {&authority.expired(),
                                         &authority.wrongName(),
                                         &authority.selfSigned(),
                                         &authority.fromOtherAuthority(),
                                         &authority.fromImpostor()})
        EXPECT_NE(verify(*bad, authority.caFile()), 0) << bad->certificate;
}

TEST(TestAuthorityTest, GoodCertificateNamesBothAddresses)
{
    const std::string text = outputOf(
        {"openssl", "x509", "-noout", "-ext", "subjectAltName", "-in", TestAuthority::shared().good().certificate});

    EXPECT_THAT(text, HasSubstr("DNS:localhost, IP Address:127.0.0.1"));
}

} // namespace
} // namespace TAV::test
