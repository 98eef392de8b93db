// What a renewal that goes well does, and its steps.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "KrbFixture.h"

namespace TAV::test
{
namespace
{

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Eq;
using testing::IsEmpty;
using testing::KilledBySignal;
using testing::SizeIs;

constexpr std::size_t kPasswordSize = 8192;

using RenewalTest = KrbFixture;

TEST_F(RenewalTest, MakesTheseCallsInOrder)
{
    EXPECT_TRUE(handler->configKrbSession(config));
    EXPECT_THAT(api->calls(),
                ElementsAre("krb5InitContext()",
                            "krb5ParseName(context 1, user@LAB.TEST)",
                            "krb5StringToEnctype(arcfour-hmac-md5)",
                            "krb5Timeofday(context 1)",
                            "krb5Principal2salt(context 1, principal 1)",
                            "krb5cStringToKey(context 1, 23, secret, salt 1 of user@LAB.TEST)",
                            "krb5FreeDataContents(context 1, secret)",
                            "krb5KtResolve(context 1, WRFILE:" + keytabPath + ")",
                            "krb5KtAddEntry(context 1, keytab 1, principal 1, 1700000000, 2, 23, key 1 of type 23)",
                            "krb5CcResolve(context 1, " + cachePath + ")",
                            "krb5GetInitCredsKeytab(context 1, principal 1, keytab 1, 0, null, null)",
                            "krb5FreePrincipal(context 1, principal 1)",
                            "krb5FreeDataContents(context 1, salt 1 of user@LAB.TEST)",
                            "krb5CcClose(context 1, cache 1)",
                            "krb5KtClose(context 1, keytab 1)",
                            "krb5FreeContext(context 1)"));
}

TEST_F(RenewalTest, LogsTheMissingFilesOfTheFirstTimeAndItsSuccess)
{
    EXPECT_TRUE(handler->configKrbSession(config));
    EXPECT_THAT(newLines(), ElementsAre(kCacheNotRemoved, kKeytabNotRemoved, kRenewed));
}

TEST_F(RenewalTest, LogsItsSuccessBeforeItFreesAnything)
{
    std::vector<std::vector<LogLine>> linesAtFreeing;
    api->onCall = [&](const std::string& call)
    {
        if (call == freeingCalls().front())
            linesAtFreeing.push_back(newLines());
    };
    handler->configKrbSession(config);
    EXPECT_THAT(linesAtFreeing, ElementsAre(ElementsAre(kCacheNotRemoved, kKeytabNotRemoved, kRenewed)));
}

TEST_F(RenewalTest, DeletesBothFilesBeforeTheFirstCallSilently)
{
    directory.write("cache", "old");
    directory.write("keytab", "old");
    api->failCall("krb5InitContext", 1, ENOMEM);
    api->onCall = [&](const std::string&)
    {
        EXPECT_FALSE(std::filesystem::exists(cachePath));
        EXPECT_FALSE(std::filesystem::exists(keytabPath));
    };
    EXPECT_FALSE(handler->renewTicket());
    EXPECT_THAT(newLines(), ElementsAre(line(6, "Kerberos module initializtion failed.")));
}

TEST_F(RenewalTest, LogsTheMissingFileAlone)
{
    directory.write("cache", "old");
    EXPECT_TRUE(handler->renewTicket());
    EXPECT_THAT(newLines(), ElementsAre(kKeytabNotRemoved, kRenewed));

    directory.write("keytab", "old");
    EXPECT_TRUE(handler->renewTicket());
    EXPECT_THAT(newLines(), ElementsAre(kCacheNotRemoved, kRenewed));
}

TEST_F(RenewalTest, GoesOnWhenTheFilesCannotBeDeleted)
{
    std::filesystem::create_directories(cachePath + "/full");
    std::filesystem::create_directories(keytabPath + "/full");
    EXPECT_TRUE(handler->configKrbSession(config));
    EXPECT_THAT(newLines(), ElementsAre(kCacheNotRemoved, kKeytabNotRemoved, kRenewed));
    EXPECT_EQ(api->calls(), renewalCalls());
}

TEST_F(RenewalTest, LeavesItsFilesToTheNextOne)
{
    api->onCall = [&](const std::string& call)
    {
        if (call.find("krb5KtAddEntry(") == 0)
            directory.write("keytab", "new");
    };
    handler->configKrbSession(config);
    EXPECT_EQ(readFile(keytabPath), "new");
    newLines();
    EXPECT_TRUE(handler->renewTicket());
    EXPECT_THAT(newLines(), ElementsAre(kCacheNotRemoved, kRenewed));
}

TEST_F(RenewalTest, DoesNotTouchTheEnvironment)
{
    handler->configKrbSession(config);
    handler->renewTicket();
    EXPECT_EQ(system->countOf("setenv"), 2U) << "the constructor's";
    EXPECT_THAT(system->calls(), SizeIs(2));
}

TEST_F(RenewalTest, StartsFromScratchEachTime)
{
    handler->configKrbSession(config);
    for (int number = 2; number <= 4; ++number)
    {
        api->takeCalls();
        EXPECT_TRUE(handler->renewTicket());
        EXPECT_EQ(api->calls(), renewalCalls(number));
    }
    EXPECT_THAT(api->problems(), IsEmpty());
}

TEST_F(RenewalTest, KeepsOneEntryOneKeyAndOneSetOfCredentialsEachTime)
{
    handler->configKrbSession(config);
    handler->renewTicket();
    handler->renewTicket();
    handler.reset();
    EXPECT_THAT(api->kept(), ElementsAre("key 1", "credentials 1", "key 2", "credentials 2", "key 3", "credentials 3"));
    EXPECT_THAT(api->entries, SizeIs(3));
    EXPECT_NE(api->entries[0], api->entries[1]);
    EXPECT_NE(api->entries[1], api->entries[2]);
}

TEST_F(RenewalTest, ZeroesTheCredentialsBeforeEachUse)
{
    handler->configKrbSession(config);
    handler->renewTicket();
    handler->renewTicket();
    EXPECT_THAT(api->credsBefore, SizeIs(3));
    EXPECT_THAT(api->credsBefore, Each(std::string(sizeof(krb5_creds), '\0')));
}

TEST_F(RenewalTest, KeepsTheCredentialsInTheHandler)
{
    handler->configKrbSession(config);
    EXPECT_THAT(api->credsAt, ElementsAre(&credentials(*handler)));
    EXPECT_EQ(credentials(*handler).times.endtime, 1700003600) << "those that were obtained";
}

TEST_F(RenewalTest, LeavesTheCredentialsAloneUntilItHasACache)
{
    handler->configKrbSession(config);
    api->failCall("krb5CcResolve", 1, ENOMEM);
    EXPECT_FALSE(handler->renewTicket());
    EXPECT_EQ(credentials(*handler).times.endtime, 1700003600) << "those of the time before";
}

TEST_F(RenewalTest, ReleasesNoPasswordThatTheDerivationTook)
{
    api->takesThePassword = true;
    EXPECT_TRUE(handler->configKrbSession(config));
    EXPECT_EQ(api->countOf("krb5FreeDataContents"), 1U) << "that of the salt";
}

TEST_F(RenewalTest, TheEntrySharesThePrincipalAndTheKey)
{
    api->now = 1234567890;
    handler->configKrbSession(config);
    const krb5_keytab_entry& entry = api->addedEntry;
    EXPECT_EQ(entry.magic, 0) << "from the zero-filled block";
    EXPECT_EQ(entry.timestamp, 1234567890);
    EXPECT_EQ(entry.vno, 2U);
    EXPECT_EQ(entry.key.magic, api->derivedKey.magic);
    EXPECT_EQ(entry.key.enctype, ENCTYPE_ARCFOUR_HMAC);
    EXPECT_EQ(entry.key.length, api->derivedKey.length);
    EXPECT_EQ(entry.key.contents, api->derivedKey.contents);
    EXPECT_EQ(api->calls()[8].find("krb5KtAddEntry(context 1, keytab 1, principal 1, "), 0U);
}

TEST_F(RenewalTest, TheParsedTypeIsTheOneOfTheKey)
{
    api->enctype = 99;
    handler->configKrbSession(config);
    EXPECT_THAT(api->calls(), Contains("krb5cStringToKey(context 1, 99, secret, salt 1 of user@LAB.TEST)"));
    EXPECT_EQ(api->addedEntry.key.enctype, 99);
}

TEST_F(RenewalTest, TheUserIsTakenUpToItsFirstZeroByteAndMayBeEmpty)
{
    config.userPrincipal.clear();
    handler->configKrbSession(config);
    EXPECT_EQ(api->takeCalls()[1], "krb5ParseName(context 1, )");
    config.userPrincipal = std::string("a\0b", 3);
    handler->configKrbSession(config);
    EXPECT_EQ(api->takeCalls()[1], "krb5ParseName(context 2, a)");
}

struct Password
{
    const char* name;
    std::string text;

    friend std::ostream& operator<<(std::ostream& out, const Password& password) { return out << password.name; }
};

class RenewalPasswordTest : public KrbFixture, public testing::WithParamInterface<Password>
{
};

TEST_P(RenewalPasswordTest, GoesByteForByteIntoAZeroFilledBuffer)
{
    config.password = GetParam().text;
    EXPECT_TRUE(handler->configKrbSession(config));
    EXPECT_THAT(api->calls(),
                Contains("krb5cStringToKey(context 1, 23, " + config.password + ", salt 1 of user@LAB.TEST)"));
    EXPECT_EQ(api->passwordBuffer, config.password + std::string(kPasswordSize - config.password.size(), '\0'));
}

TEST_P(RenewalPasswordTest, IsReleasedRightAfterTheDerivationAndNotAgain)
{
    config.password = GetParam().text;
    api->onCall = [&](const std::string& call)
    {
        if (call.find("krb5KtResolve(") == 0)
        {
            EXPECT_EQ(passwordData(*handler).data, nullptr);
            EXPECT_EQ(passwordData(*handler).length, 0U);
        }
    };
    handler->configKrbSession(config);
    Texts expected = renewalCalls();
    expected[5] = "krb5cStringToKey(context 1, 23, " + config.password + ", salt 1 of user@LAB.TEST)";
    expected[6] = "krb5FreeDataContents(context 1, " + config.password + ")";
    EXPECT_EQ(api->calls(), expected);
}

INSTANTIATE_TEST_SUITE_P(Sizes,
                         RenewalPasswordTest,
                         testing::Values(Password{"None", ""},
                                         Password{"OneByte", "x"},
                                         Password{"ZeroByteAlone", std::string(1, '\0')},
                                         Password{"ZeroBytesInside", std::string("\0ab\0\0c\0", 7)},
                                         Password{"HighBytes", "\xff\x80\xc3\xa4"},
                                         Password{"OneUnderTheBuffer", std::string(kPasswordSize - 1, 'p')},
                                         Password{"AllOfTheBuffer", std::string(kPasswordSize, 'q')}),
                         [](const auto& password) { return password.param.name; });

/// Tells each line on stderr, where the parent of a process that ends can see it.
class TellingLogger : public ILogger
{
public:
    void log(int, std::string message) override { std::cerr << message << '\n'; }
    void log(int, std::string, const std::string& message) override { std::cerr << message << '\n'; }
};

TEST_F(RenewalTest, APasswordBeyondTheBufferAbortsWithoutAMessage)
{
    TellingLogger telling;
    api->onCall = [](const std::string& call) { std::cerr << call.substr(0, call.find('(')) << '\n'; };
    for (const std::size_t size : {kPasswordSize + 1, kPasswordSize + 2, std::size_t{1} << 20U})
    {
        config.password = std::string(size, 'r');
        const auto renew = [&] { KrbHandler(telling, system, cachePath, keytabPath, api).configKrbSession(config); };
        EXPECT_EXIT(renew(),
                    KilledBySignal(SIGABRT),
                    Eq(kCacheNotRemoved.message + "\n" + kKeytabNotRemoved.message +
                       "\nkrb5InitContext\nkrb5ParseName\nkrb5StringToEnctype\nkrb5Timeofday\n"))
            << size;
    }
}

class RenewalKeytabNameTest : public KrbFixture, public testing::WithParamInterface<std::size_t>
{
};

TEST_P(RenewalKeytabNameTest, IsCutAtTheBuffer)
{
    constexpr std::size_t kLongestName = 4104;
    keytabPath = "/" + std::string(GetParam() - 1, 'k');
    handler = newHandler();
    EXPECT_TRUE(handler->configKrbSession(config));
    const std::string name = ("WRFILE:" + keytabPath).substr(0, kLongestName);
    EXPECT_EQ(api->calls()[7], "krb5KtResolve(context 1, " + name + ")");
    EXPECT_EQ(system->calls().at(2), "setenv(KRB5_CLIENT_KTNAME, " + keytabPath + ", 1)") << "not cut";
}

INSTANTIATE_TEST_SUITE_P(PathSizes,
                         RenewalKeytabNameTest,
                         testing::Values(1U, 4096U, 4097U, 4098U, 5000U),
                         testing::PrintToStringParamName());

/// The steps on their own, without the context that a renewal makes.
using RenewalStepsTest = KrbFixture;

TEST_F(RenewalStepsTest, CanBeCalledDirectly)
{
    handler->configKrbSession(config);
    api->takeCalls();
    newLines();
    EXPECT_TRUE(handler->addKeyAndPricipal());
    EXPECT_TRUE(handler->generateKrbKeyTabAndCache());
    EXPECT_TRUE(handler->initKrb());
    EXPECT_THAT(api->calls(),
                ElementsAre("krb5ParseName(null, user@LAB.TEST)",
                            "krb5StringToEnctype(arcfour-hmac-md5)",
                            "krb5Timeofday(null)",
                            "krb5Principal2salt(null, principal 2)",
                            "krb5cStringToKey(null, 23, secret, salt 2 of user@LAB.TEST)",
                            "krb5FreeDataContents(null, secret)",
                            "krb5KtResolve(null, WRFILE:" + keytabPath + ")",
                            "krb5KtAddEntry(null, keytab 2, principal 2, 1700000000, 2, 23, key 2 of type 23)",
                            "krb5CcResolve(null, " + cachePath + ")",
                            "krb5GetInitCredsKeytab(null, principal 2, keytab 2, 0, null, null)"));
    EXPECT_THAT(newLines(), IsEmpty());
    deliberatelyLeft = {
        "principal 2 not released", "salt 2 not released", "keytab 2 not released", "cache 2 not released"};
}

TEST_F(RenewalStepsTest, LeaveTheirMembersToWhoeverHasAContext)
{
    EXPECT_TRUE(handler->addKeyAndPricipal());
    api->takeCalls();
    handler->freeKrbMemory();
    EXPECT_THAT(api->calls(), IsEmpty()) << "without a context nothing is freed";

    api->failCall("krb5ParseName", 1, ENOMEM);
    EXPECT_FALSE(handler->renewTicket());
    EXPECT_THAT(api->calls(),
                ElementsAre("krb5InitContext()",
                            "krb5ParseName(context 1, )",
                            "krb5FreePrincipal(context 1, principal 1)",
                            "krb5FreeDataContents(context 1, salt 1)",
                            "krb5FreeContext(context 1)"));
}

} // namespace
} // namespace TAV::test
