// The tests' own KDC.

#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "support/Kdc.h"
#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"

namespace TAV::test
{
namespace
{

TEST(KdcTest, DiesWithItsTest)
{
    if (!Kdc::missing().empty())
        GTEST_SKIP() << Kdc::missing();
    // What a test that cannot clean up leaves behind.
    const TemporaryDirectory remains;
    SharedNotes notes;
    SacrificialProcess test(
        [&]
        {
            ::setenv("TMPDIR", remains.path().c_str(), 1);
            const Kdc kdc;
            notes.add(std::to_string(kdc.port()));
            ::pause();
        });
    ASSERT_TRUE(eventually([&] { return !notes.lines().empty(); }));
    const auto port = static_cast<std::uint16_t>(std::stoi(notes.lines().at(0)));
    EXPECT_TRUE(acceptsConnections(port));

    ::kill(test.pid(), SIGKILL);

    EXPECT_TRUE(eventually([port] { return !acceptsConnections(port); }));
}

TEST(KdcTest, NothingOfTheMachinesConfigurationIsRead)
{
    if (!Kdc::missing().empty())
        GTEST_SKIP() << Kdc::missing();
    const TemporaryDirectory directory;
    ::setenv("KRB5_CONFIG", directory.write("krb5.conf", "[malformed").c_str(), 1);
    ::setenv("KRB5_KDC_PROFILE", directory.write("kdc.conf", "[malformed").c_str(), 1);

    Kdc kdc;
    kdc.addUser("user", "userpw");

    EXPECT_TRUE(acceptsConnections(kdc.port()));
}

} // namespace
} // namespace TAV::test
