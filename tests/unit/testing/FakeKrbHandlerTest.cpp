#include "tav/testing/FakeKrbHandler.h"

#include <gmock/gmock.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace TAV::test
{
namespace
{

TAVProxyConfig account(const std::string& name)
{
    TAVProxyConfig config;
    config.userPrincipal = name;
    config.password = "secret";
    return config;
}

TEST(FakeKrbHandlerTest, RenewsWithTheFirstAccountAndOnDemand)
{
    FakeKrbHandler handler;
    TAVProxyConfig config = account("user@A.EXAMPLE");
    EXPECT_TRUE(handler.configKrbSession(config));
    EXPECT_TRUE(handler.renewTicket());
    EXPECT_THAT(handler.calls(), ElementsAre("configKrbSession(user@A.EXAMPLE)", "renewTicket()", "renewTicket()"));
}

TEST(FakeKrbHandlerTest, KeepsTheAccountsThatItWasGiven)
{
    FakeKrbHandler handler;
    TAVProxyConfig first = account("a");
    TAVProxyConfig second = account("b");
    handler.configKrbSession(first);
    handler.configKrbSession(second);
    ASSERT_EQ(handler.configs().size(), 2U);
    EXPECT_EQ(handler.configs()[0].userPrincipal, "a");
    EXPECT_EQ(handler.configs()[1].userPrincipal, "b");
    EXPECT_EQ(handler.configs()[1].password, "secret");
}

TEST(FakeKrbHandlerTest, GivesTheTestsOwnResult)
{
    FakeKrbHandler handler;
    int renewals = 0;
    handler.onRenewTicket = [&] { return ++renewals != 2; };
    TAVProxyConfig config;
    EXPECT_TRUE(handler.configKrbSession(config));
    EXPECT_FALSE(handler.configKrbSession(config));
    EXPECT_TRUE(handler.renewTicket());
    EXPECT_EQ(renewals, 3);
}

TEST(FakeKrbHandlerTest, APlannedFailureIsAFalseResult)
{
    FakeKrbHandler handler;
    handler.failCall("configKrbSession", 1);
    handler.failCall("renewTicket", 1);
    TAVProxyConfig config = account("a");
    EXPECT_FALSE(handler.configKrbSession(config));
    EXPECT_EQ(handler.configs().size(), 1U) << "stored all the same";
    EXPECT_EQ(handler.countOf("renewTicket"), 0U);
    EXPECT_FALSE(handler.renewTicket());
    EXPECT_TRUE(handler.renewTicket());
    EXPECT_THAT(handler.plan()->pending(), IsEmpty());
}

TEST(FakeKrbHandlerTest, ConfiguringRunsTheRenewalOfADerivedClass)
{
    class Derived : public FakeKrbHandler
    {
    public:
        bool renewTicket() override { return false; }
    };
    Derived handler;
    TAVProxyConfig config;
    EXPECT_FALSE(handler.configKrbSession(config));
}

} // namespace
} // namespace TAV::test
