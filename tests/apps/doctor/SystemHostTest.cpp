#include "tavctl/doctor/SystemHost.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

#include "support/FreePort.h"
#include "support/TemporaryDirectory.h"
#include "tav/testing/RecordingLogger.h"
#include "tavctl/doctor/Checks.h"

namespace TAV::test
{
namespace
{

using namespace tavctl::doctor;

class SystemHostTest : public testing::Test
{
protected:
    KerberosFacts kerberosOf(const std::string& configuration)
    {
        ::setenv("KRB5_CONFIG", place.write("krb5.conf", configuration).c_str(), 1);
        return host.kerberos();
    }

    TemporaryDirectory place;
    tavctl::Console console{false};
    RecordingLogger lines;
    MaskingLogger logger{lines};
    tavctl::Context context{console, logger, false};
    SystemHost host{context};
};

TEST_F(SystemHostTest, ReadsFilesAndSaysWhyNot)
{
    EXPECT_EQ(host.read(place.write("file", std::string(10000, 'x'))).text, std::string(10000, 'x'));
    EXPECT_EQ(host.read(place.file("missing")).error, ENOENT);
    EXPECT_EQ(host.read(place.path()).error, EISDIR);
    EXPECT_EQ(host.read("/proc/self/mounts").error, 0);
}

TEST_F(SystemHostTest, TellsItsLimitsKernelAndVariables)
{
    struct rlimit limit = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(host.descriptorLimit().soft, limit.rlim_cur);
    ASSERT_EQ(::getrlimit(RLIMIT_CORE, &limit), 0);
    limit.rlim_cur = 0;
    ASSERT_EQ(::setrlimit(RLIMIT_CORE, &limit), 0);
    EXPECT_EQ(host.coreLimit().soft, 0U);
    ::setenv("TAV_DOCTOR", "value", 1);
    EXPECT_EQ(host.environment("TAV_DOCTOR"), "value");
    EXPECT_EQ(host.environment("TAV_DOCTOR_NOT_SET"), std::nullopt);
    EXPECT_NE(host.kernelRelease().find('.'), std::string::npos);
    EXPECT_GT(host.now(), 0);
}

TEST_F(SystemHostTest, KnowsWhetherCloseRangeWorks)
{
    constexpr unsigned int kNeverOpen = 0x7ffffff0;
    EXPECT_EQ(host.closeRangeError() == 0, ::syscall(SYS_close_range, kNeverOpen, kNeverOpen, 0U) == 0);
}

TEST_F(SystemHostTest, RunsProgramsOfAnyOutput)
{
    const CommandOutput output = host.run({"/bin/sh", "-c", "head -c 200000 /dev/zero | tr '\\0' x"});
    EXPECT_TRUE(output.isSuccess);
    EXPECT_EQ(output.text, std::string(200000, 'x'));
    EXPECT_FALSE(host.run({"/bin/false"}).isSuccess);
    EXPECT_EQ(host.obstacleToRun(place.file("missing")), "No such file or directory");
}

TEST_F(SystemHostTest, AsksTheLibrariesOfTheMachine)
{
    EXPECT_EQ(host.hashingError(), "");
    EXPECT_EQ(host.mimeTypeOf("#!/bin/sh\n").type, "text/x-shellscript");
    EXPECT_NE(host.curl().version, "");
    EXPECT_TRUE(host.curl().speaksHttps);
}

TEST_F(SystemHostTest, SaysWhyTheDatabaseOfFileTypesFails)
{
    ::setenv("MAGIC", place.write("magic.mgc", "no database").c_str(), 1);
    const MimeAnswer answer = host.mimeTypeOf("text");
    ::unsetenv("MAGIC");
    EXPECT_NE(answer.error, "");
    EXPECT_EQ(answer.type, "");
}

TEST_F(SystemHostTest, ReadsTheKerberosConfigurationAsTheLibraryDoes)
{
    const KerberosFacts facts = kerberosOf("[libdefaults]\n default_realm = LAB.TEST\n allow_rc4 = true\n"
                                           " allow_weak_crypto = false\n permitted_enctypes = aes256-cts rc4\n");
    EXPECT_EQ(facts.error, "");
    EXPECT_EQ(facts.defaultRealm, "LAB.TEST");
    EXPECT_EQ(facts.allowRc4, "true");
    EXPECT_EQ(facts.allowWeakCrypto, "false");
    EXPECT_EQ(facts.permittedEnctypes, "aes256-cts rc4");
    EXPECT_EQ(facts.rc4Error, "");
    EXPECT_TRUE(facts.isRc4Permitted);
}

TEST_F(SystemHostTest, SeesThatRc4IsNotPermitted)
{
    EXPECT_FALSE(kerberosOf("[libdefaults]\n permitted_enctypes = aes256-cts aes128-cts\n").isRc4Permitted);
}

TEST_F(SystemHostTest, SeesNoRealmWhereThereIsNone)
{
    EXPECT_EQ(kerberosOf("[realms]\n").defaultRealm, "");
}

TEST_F(SystemHostTest, SaysWhyTheKerberosConfigurationFails)
{
    EXPECT_NE(kerberosOf("[libdefaults\n a = {{\n").error, "");
}

TEST_F(SystemHostTest, DoesNotConnectWhereNobodyListens)
{
    const FreePort port;
    const Attempt attempt = host.connectTo("http://127.0.0.1:" + std::to_string(port.number()) + "/", 5);
    EXPECT_NE(attempt.error, "");
}

/// Every check that sends nothing, on this machine: none may fail to come to a result.
TEST_F(SystemHostTest, IsExaminedToTheEnd)
{
    kerberosOf("[libdefaults]\n default_realm = LAB.TEST\n");
    for (const Entry& entry : examine(host, {}, [](const Entry&, bool) {}))
        EXPECT_FALSE(entry.finding.text.empty()) << entry.check;
}

} // namespace
} // namespace TAV::test
