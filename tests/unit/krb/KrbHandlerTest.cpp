// The handler's configuration and its end.
#include <filesystem>
#include <iostream>
#include <new>
#include <stdexcept>

#include "KrbFixture.h"

namespace TAV::test
{
namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::KilledBySignal;

using KrbHandlerTest = KrbFixture;

TEST_F(KrbHandlerTest, ConfigurationIsCopiedFieldByFieldAndNotChanged)
{
    EXPECT_TRUE(handler->configKrbSession(config));
    EXPECT_EQ(fieldsOf(config), fieldsOf(sampleConfig()));
    EXPECT_EQ(fieldsOf(storedConfig(*handler)), fieldsOf(sampleConfig()));
}

TEST_F(KrbHandlerTest, ConfigurationIsKeptForLaterRenewals)
{
    handler->configKrbSession(config);
    config = {};
    api->takeCalls();
    EXPECT_TRUE(handler->renewTicket());
    EXPECT_EQ(api->calls(), renewalCalls(2));
}

TEST_F(KrbHandlerTest, ConfigurationIsReplacedAsAWhole)
{
    handler->configKrbSession(config);
    TAVProxyConfig empty;
    handler->configKrbSession(empty);
    EXPECT_EQ(fieldsOf(storedConfig(*handler)), fieldsOf(TAVProxyConfig{}));
}

TEST_F(KrbHandlerTest, ConfigurationMayFailToRenew)
{
    api->failCall("krb5GetInitCredsKeytab", 1, KRB5KDC_ERR_C_PRINCIPAL_UNKNOWN);
    EXPECT_FALSE(handler->configKrbSession(config));
    EXPECT_EQ(fieldsOf(storedConfig(*handler)), fieldsOf(sampleConfig()));
}

/// Renews nothing.
class AnsweringHandler : public KrbHandler
{
public:
    using KrbHandler::KrbHandler;

    bool renewTicket() override
    {
        userAtRenewal = storedConfig(*this).userPrincipal;
        return answer;
    }

    bool answer = false;
    std::string userAtRenewal;
};

TEST_F(KrbHandlerTest, ConfigurationRunsTheRenewalOfADerivedClass)
{
    AnsweringHandler derived(logger, system, cachePath, keytabPath, api);
    for (const bool answer : {true, false})
    {
        derived.answer = answer;
        derived.userAtRenewal.clear();
        EXPECT_EQ(derived.configKrbSession(config), answer);
        EXPECT_EQ(derived.userAtRenewal, "user@LAB.TEST") << "copied before";
    }
    EXPECT_THAT(api->calls(), IsEmpty());
    EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(KrbHandlerTest, TheEndDeletesBothFilesSilently)
{
    directory.write("cache", "a cache");
    directory.write("keytab", "a keytab");
    handler.reset();
    EXPECT_FALSE(std::filesystem::exists(cachePath));
    EXPECT_FALSE(std::filesystem::exists(keytabPath));
    EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(KrbHandlerTest, TheEndLogsFilesThatWereNeverMade)
{
    handler.reset();
    EXPECT_THAT(newLines(), ElementsAre(kCacheLeft, kKeytabLeft));
    EXPECT_THAT(api->calls(), IsEmpty());
}

TEST_F(KrbHandlerTest, TheEndLogsTheMissingFileAlone)
{
    directory.write("keytab", "a keytab");
    handler.reset();
    EXPECT_THAT(newLines(), ElementsAre(kCacheLeft));

    handler = newHandler();
    directory.write("cache", "a cache");
    handler.reset();
    EXPECT_THAT(newLines(), ElementsAre(kKeytabLeft));
}

TEST_F(KrbHandlerTest, TheEndLogsWhatCannotBeDeleted)
{
    std::filesystem::create_directories(cachePath + "/full");
    std::filesystem::create_directories(keytabPath + "/full");
    handler.reset();
    EXPECT_THAT(newLines(), ElementsAre(kCacheLeft, kKeytabLeft));
    EXPECT_TRUE(std::filesystem::exists(cachePath));
    EXPECT_TRUE(std::filesystem::exists(keytabPath));
}

TEST_F(KrbHandlerTest, TheEndDeletesAnEmptyDirectoryToo)
{
    std::filesystem::create_directory(cachePath);
    std::filesystem::create_directory(keytabPath);
    handler.reset();
    EXPECT_THAT(newLines(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(cachePath));
}

TEST_F(KrbHandlerTest, TheEndLeavesTheVariablesAlone)
{
    handler.reset();
    EXPECT_EQ(system->countOf("setenv"), 2U);
}

/// What a call layer throws half-way through a renewal leaves behind.
class BrokenRenewalTest : public KrbFixture
{
protected:
    void breakRenewalAt(const std::string& operation)
    {
        api->onCall = [operation](const std::string& call)
        {
            if (call.find(operation + "(") == 0)
                throw std::bad_alloc();
        };
        EXPECT_THROW(handler->configKrbSession(config), std::bad_alloc);
        api->onCall = nullptr;
        api->takeCalls();
    }
};

TEST_F(BrokenRenewalTest, MemoryIsFreedInOrder)
{
    breakRenewalAt("krb5GetInitCredsKeytab");
    handler->freeKrbMemory();
    EXPECT_EQ(api->calls(), freeingCalls());
}

TEST_F(BrokenRenewalTest, MemoryIsFreedOnce)
{
    breakRenewalAt("krb5GetInitCredsKeytab");
    handler->freeKrbMemory();
    api->takeCalls();
    handler->freeKrbMemory();
    EXPECT_THAT(api->calls(), IsEmpty());
}

TEST_F(BrokenRenewalTest, ThePasswordIsFreedBetweenPrincipalAndSalt)
{
    breakRenewalAt("krb5GetInitCredsKeytab");
    api->failCall("krb5Principal2salt", 1, ENOMEM);
    EXPECT_FALSE(handler->addKeyAndPricipal()); // its principal takes the place of the first one
    deliberatelyLeft = {"principal 1 not released"};
    api->takeCalls();
    handler->freeKrbMemory();
    EXPECT_THAT(api->calls(),
                ElementsAre("krb5FreePrincipal(context 1, principal 2)",
                            "krb5FreeDataContents(context 1, secret)",
                            "krb5FreeDataContents(context 1, salt 1 of user@LAB.TEST)",
                            "krb5CcClose(context 1, cache 1)",
                            "krb5KtClose(context 1, keytab 1)",
                            "krb5FreeContext(context 1)"));
}

TEST_F(BrokenRenewalTest, TheEndFreesTheMemoryBeforeItDeletesTheFiles)
{
    breakRenewalAt("krb5GetInitCredsKeytab");
    directory.write("cache", "a cache");
    api->onCall = [&](const std::string&) { EXPECT_TRUE(std::filesystem::exists(cachePath)); };
    handler.reset();
    EXPECT_EQ(api->calls(), freeingCalls());
    EXPECT_FALSE(std::filesystem::exists(cachePath));
}

TEST_F(BrokenRenewalTest, ExceptionsOfTheLoggerPass)
{
    class FullLogger : public ILogger
    {
    public:
        void log(int, std::string) override {}
        void log(int, std::string, const std::string& message) override
        {
            if (message == reason)
                throw std::length_error(message);
        }
        std::string reason;
    } full;
    KrbHandler broken(full, system, cachePath, keytabPath, api);
    for (const std::string& reason : {kCacheNotRemoved.message, kRenewed.message})
    {
        full.reason = reason;
        EXPECT_THAT([&] { broken.configKrbSession(config); }, testing::ThrowsMessage<std::length_error>(reason));
    }
    // The second one broke with everything in hand, which is freed by the end.
    full.reason.clear();
}

TEST_F(KrbHandlerTest, WithoutAContextNothingIsFreed)
{
    handler->freeKrbMemory();
    EXPECT_THAT(api->calls(), IsEmpty());
}

/// Ends this process, for what must not happen but to a child's.
class KrbDeathTest : public KrbFixture
{
};

TEST_F(KrbDeathTest, AnExceptionOfTheLoggerInTheEndIsTheProcesssEnd)
{
    class ThrowingLogger : public ILogger
    {
    public:
        void log(int, std::string) override {}
        void log(int, std::string, const std::string&) override { throw FMXException(7, "full"); }
    } throwing;
    const auto end = [&]
    {
        try
        {
            const KrbHandler doomed(throwing, system, cachePath, keytabPath, api);
        }
        catch (const FMXException&)
        {
            std::cerr << "escaped";
        }
    };
    EXPECT_EXIT(end(), KilledBySignal(SIGABRT), HasSubstr("terminate"));
}

TEST_F(KrbDeathTest, AnExceptionOfTheCallLayerInTheEndIsTheProcesssEnd)
{
    const auto end = [&]
    {
        api->onCall = [](const std::string& call)
        {
            if (call != "krb5InitContext()")
                throw FMXException(7, call);
        };
        try
        {
            KrbHandler doomed(logger, system, cachePath, keytabPath, api);
            EXPECT_THROW(doomed.renewTicket(), FMXException); // it keeps its context
        }
        catch (const FMXException&)
        {
            std::cerr << "escaped";
        }
    };
    EXPECT_EXIT(end(), KilledBySignal(SIGABRT), HasSubstr("terminate"));
}

} // namespace
} // namespace TAV::test
