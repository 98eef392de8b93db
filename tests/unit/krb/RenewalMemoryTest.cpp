// The two blocks that a renewal asks for itself: the keytab entry, which it keeps on purpose, and the password's copy.
#include <ostream>

#include "BlockCounter.h"
#include "KrbFixture.h"

namespace TAV::test
{
namespace
{

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr std::size_t kEntrySize = sizeof(krb5_keytab_entry);
constexpr std::size_t kPasswordSize = 8192;

using RenewalMemoryTest = KrbFixture;

TEST_F(RenewalMemoryTest, AsksForOneEntryThenForThePasswordsBuffer)
{
    BlockCounter blocks;
    EXPECT_TRUE(handler->configKrbSession(config));
    EXPECT_THAT(blocks.requests(), ElementsAre(Pair(1U, kEntrySize), Pair(kPasswordSize, 1U)));
}

TEST_F(RenewalMemoryTest, KeepsOneEntryOneKeyAndOneSetOfCredentialsForEachRenewal)
{
    BlockCounter blocks;
    handler->configKrbSession(config);
    for (int renewals = 2; renewals <= 20; ++renewals)
        EXPECT_TRUE(handler->renewTicket());
    handler.reset();
    EXPECT_THAT(blocks.alive(), SizeIs(20));
    EXPECT_THAT(blocks.alive(), Each(kEntrySize)) << "no password";
    EXPECT_THAT(api->kept(), SizeIs(40));
    EXPECT_THAT(api->problems(), IsEmpty());
}

TEST_F(RenewalMemoryTest, KeepsTheEntryAloneWhateverFails)
{
    for (unsigned int nth = 1; nth <= 10; ++nth)
    {
        BlockCounter blocks;
        api->failAnyCall(nth, KRB5KRB_ERR_GENERIC);
        EXPECT_FALSE(handler->configKrbSession(config));
        // Four calls come before the entry is made.
        EXPECT_EQ(blocks.alive(), std::vector<std::size_t>(nth <= 4 ? 0 : 1, kEntrySize)) << nth;
    }
}

struct Shortage
{
    const char* name;
    unsigned int request;
    std::vector<std::size_t> alive;

    friend std::ostream& operator<<(std::ostream& out, const Shortage& shortage) { return out << shortage.name; }
};

class RenewalWithoutMemoryTest : public KrbFixture, public testing::WithParamInterface<Shortage>
{
};

TEST_P(RenewalWithoutMemoryTest, FailsWithoutAMessage)
{
    BlockCounter blocks;
    blocks.fail(GetParam().request);
    EXPECT_FALSE(handler->configKrbSession(config));
    EXPECT_THAT(newLines(), ElementsAre(kCacheNotRemoved, kKeytabNotRemoved));
}

TEST_P(RenewalWithoutMemoryTest, StopsThereAndFreesThePrincipal)
{
    BlockCounter blocks;
    blocks.fail(GetParam().request);
    handler->configKrbSession(config);
    Texts expected = renewalCalls();
    expected.resize(4);
    EXPECT_EQ(api->calls(),
              (expected + Texts{"krb5FreePrincipal(context 1, principal 1)", "krb5FreeContext(context 1)"}));
    EXPECT_THAT(api->kept(), IsEmpty());
    EXPECT_THAT(blocks.requests(), SizeIs(GetParam().request)) << "no more is asked for";
    EXPECT_EQ(blocks.alive(), GetParam().alive);
}

TEST_P(RenewalWithoutMemoryTest, IsAFalseStep)
{
    BlockCounter blocks;
    blocks.fail(GetParam().request);
    EXPECT_FALSE(handler->addKeyAndPricipal());
    EXPECT_THAT(newLines(), IsEmpty());
    deliberatelyLeft = {"principal 1 not released"}; // made without a context
}

TEST_P(RenewalWithoutMemoryTest, IsForgottenByTheNextRenewal)
{
    BlockCounter blocks;
    blocks.fail(GetParam().request);
    handler->configKrbSession(config);
    newLines();
    EXPECT_TRUE(handler->renewTicket());
    EXPECT_THAT(newLines(), ElementsAre(kCacheNotRemoved, kKeytabNotRemoved, kRenewed));
}

INSTANTIATE_TEST_SUITE_P(Blocks,
                         RenewalWithoutMemoryTest,
                         testing::Values(Shortage{"Entry", 1, {}}, Shortage{"Password", 2, {kEntrySize}}),
                         [](const auto& shortage) { return shortage.param.name; });

TEST_F(RenewalMemoryTest, ThePasswordsLengthIsKnownBeforeItsBuffer)
{
    BlockCounter blocks;
    blocks.fail(2);
    handler->configKrbSession(config);
    EXPECT_EQ(passwordData(*handler).length, config.password.size());
    EXPECT_EQ(passwordData(*handler).data, nullptr);
}

TEST_F(RenewalMemoryTest, APasswordBeyondTheBufferAsksForTheBufferFirst)
{
    BlockCounter blocks;
    blocks.fail(2);
    config.password = std::string(kPasswordSize + 1, 'r');
    EXPECT_FALSE(handler->configKrbSession(config)) << "and does not abort without it";
}

} // namespace
} // namespace TAV::test
