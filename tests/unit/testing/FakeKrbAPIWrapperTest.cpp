// The fake call layer itself: what it must notice, and the operations that the handler has no use for.
#include "tav/testing/FakeKrbAPIWrapper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace TAV::test
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

class FakeKrbAPIWrapperTest : public testing::Test
{
protected:
    void SetUp() override
    {
        api.krb5InitContext(&context);
        api.krb5ParseName(context, "user@LAB.TEST", &principal);
        api.takeCalls();
    }

    /// As `KrbHandler` ends.
    void endWell()
    {
        api.krb5FreePrincipal(context, principal);
        api.krb5FreeContext(context);
    }

    FakeKrbAPIWrapper api;
    krb5_context context = nullptr;
    krb5_principal principal = nullptr;
};

TEST_F(FakeKrbAPIWrapperTest, HasNoProblemsWhenEachThingIsReleasedOnce)
{
    endWell();
    EXPECT_THAT(api.problems(), IsEmpty());
    EXPECT_THAT(api.kept(), IsEmpty());
}

TEST_F(FakeKrbAPIWrapperTest, NamesWhatIsNotReleased)
{
    krb5_data salt{};
    krb5_keytab keytab = nullptr;
    krb5_ccache cache = nullptr;
    api.krb5Principal2salt(context, principal, &salt);
    api.krb5KtResolve(context, "FILE:/keytab", &keytab);
    api.krb5CcResolve(context, "/cache", &cache);
    EXPECT_THAT(api.problems(),
                ElementsAre("context 1 not released",
                            "principal 1 not released",
                            "salt 1 not released",
                            "keytab 1 not released",
                            "cache 1 not released"));
}

TEST_F(FakeKrbAPIWrapperTest, NoticesWhatIsUsedOrReleasedAfterItsRelease)
{
    krb5_timestamp now = 0;
    endWell();
    api.krb5FreePrincipal(context, principal);
    api.krb5Timeofday(context, &now);
    EXPECT_THAT(api.problems(),
                ElementsAre("released context 1 used", "released principal 1 used", "released context 1 used"));
}

TEST_F(FakeKrbAPIWrapperTest, NoticesContentsThatAreReleasedTwice)
{
    krb5_data salt{};
    krb5_keyblock key{};
    api.krb5Principal2salt(context, principal, &salt);
    api.krb5cStringToKey(context, 23, &salt, &salt, &key);
    krb5_data sameSalt = salt;
    krb5_keyblock sameKey = key;
    api.krb5FreeDataContents(context, &salt);
    api.krb5FreeDataContents(context, &sameSalt);
    api.krb5FreeKeyblockContents(context, &key);
    api.krb5FreeKeyblockContents(context, &sameKey);
    endWell();
    EXPECT_THAT(api.problems(), ElementsAre("released salt 1 used", "released key 1 used"));
}

TEST_F(FakeKrbAPIWrapperTest, NoticesWhatItDidNotHandOut)
{
    int other = 0;
    api.krb5CcClose(context, reinterpret_cast<krb5_ccache>(&other));
    api.krb5KtClose(context, reinterpret_cast<krb5_keytab>(principal));
    endWell();
    EXPECT_THAT(api.problems(), ElementsAre("unknown cache used", "unknown keytab used"));
}

TEST_F(FakeKrbAPIWrapperTest, NoticesAnEntryWhoseKeyIsGone)
{
    krb5_keytab keytab = nullptr;
    krb5_keytab_entry entry{};
    entry.principal = principal;
    const krb5_data password{};
    api.krb5KtResolve(context, "FILE:/keytab", &keytab);
    api.krb5cStringToKey(context, 23, &password, &password, &entry.key);
    krb5_keyblock sameKey = entry.key;
    api.krb5FreeKeyblockContents(context, &sameKey);
    api.krb5KtAddEntry(context, keytab, &entry);
    api.krb5KtClose(context, keytab);
    endWell();
    EXPECT_THAT(api.problems(), ElementsAre("released key 1 used"));
}

TEST_F(FakeKrbAPIWrapperTest, ReleasesContentsLikeTheLibrary)
{
    const krb5_data none{};
    krb5_data data{0, 3, static_cast<char*>(std::malloc(3))}; // a leak, if it is not freed
    krb5_keyblock key{};
    krb5_creds creds{};
    api.krb5cStringToKey(context, 23, &none, &none, &key);
    api.krb5GetInitCredsKeytab(context, &creds, principal, nullptr, 0, nullptr, nullptr);
    EXPECT_THAT(api.kept(), ElementsAre("key 1", "credentials 1"));

    api.krb5FreeDataContents(context, &data);
    api.krb5FreeKeyblockContents(context, &key);
    api.krb5FreeCredContents(context, &creds);
    EXPECT_EQ(data.data, nullptr);
    EXPECT_EQ(key.contents, nullptr);
    EXPECT_EQ(creds.ticket.data, nullptr);
    EXPECT_THAT(api.kept(), IsEmpty());
}

TEST_F(FakeKrbAPIWrapperTest, ReleasesWholeStructuresLikeTheLibrary)
{
    auto* data = static_cast<krb5_data*>(std::calloc(1, sizeof(krb5_data)));
    auto* key = static_cast<krb5_keyblock*>(std::calloc(1, sizeof(krb5_keyblock)));
    auto* creds = static_cast<krb5_creds*>(std::calloc(1, sizeof(krb5_creds)));
    api.krb5Principal2salt(context, principal, data);
    api.krb5cStringToKey(context, 23, data, data, key);
    api.krb5GetInitCredsKeytab(context, creds, principal, nullptr, 0, nullptr, nullptr);
    api.krb5FreeData(context, data);
    api.krb5FreeKeyblock(context, key);
    api.krb5FreeCreds(context, creds);
    endWell();
    EXPECT_THAT(api.problems(), IsEmpty());
    EXPECT_THAT(api.kept(), IsEmpty());
}

TEST_F(FakeKrbAPIWrapperTest, KnowsTheNameOfAPrincipalAndOfItsCopy)
{
    krb5_principal copy = nullptr;
    char* name = nullptr;
    EXPECT_EQ(api.krb5CopyPrincipal(context, principal, &copy), 0);
    EXPECT_NE(copy, principal);
    EXPECT_EQ(api.krb5UnparseName(context, copy, &name), 0);
    EXPECT_STREQ(name, "user@LAB.TEST");
    EXPECT_THAT(api.calls(),
                ElementsAre("krb5CopyPrincipal(context 1, principal 1)", "krb5UnparseName(context 1, principal 2)"));
    api.krb5FreePrincipal(context, copy);
    endWell();
    EXPECT_THAT(api.problems(), IsEmpty());
}

TEST_F(FakeKrbAPIWrapperTest, ReadsEachKeyTableAsEmpty)
{
    krb5_keytab keytab = nullptr;
    krb5_keytab_entry entry{};
    krb5_kt_cursor cursor = nullptr;
    api.krb5KtResolve(context, "FILE:/keytab", &keytab);
    EXPECT_EQ(api.krb5KtStartSeqGet(context, keytab, &cursor), 0);
    EXPECT_EQ(api.krb5KtNextEntry(context, keytab, &entry, &cursor), KRB5_KT_END);
    EXPECT_EQ(api.problems().back(), "cursor 1 not released");
    EXPECT_EQ(api.krb5KtEndSeqGet(context, keytab, &cursor), 0);
    api.krb5KtClose(context, keytab);
    endWell();
    EXPECT_THAT(api.problems(), IsEmpty());
}

TEST_F(FakeKrbAPIWrapperTest, FailsTheCallsThatWerePlanned)
{
    krb5_timestamp now = 0;
    const auto results = [&]
    {
        std::vector<krb5_error_code> all;
        for (int i = 0; i < 4; ++i)
            all.push_back(api.krb5Timeofday(context, &now));
        return all;
    };
    EXPECT_THAT(results(), ElementsAre(0, 0, 0, 0));
    EXPECT_FALSE(api.hasFailed());
    api.failCall("krb5Timeofday", 2, ENOMEM);
    EXPECT_THAT(results(), ElementsAre(0, ENOMEM, 0, 0));
    EXPECT_TRUE(api.hasFailed());
    api.failCall("krb5Timeofday", 3, -5, Lasting::FromThenOn);
    EXPECT_THAT(results(), ElementsAre(0, 0, -5, -5));
    api.succeed();
    EXPECT_FALSE(api.hasFailed());
    EXPECT_THAT(results(), ElementsAre(0, 0, 0, 0));
    endWell();
}

TEST_F(FakeKrbAPIWrapperTest, FillsTheOutputOfAFailureIfPlannedSo)
{
    krb5_timestamp now = 5;
    api.failCall("krb5Timeofday", 1, ENOMEM);
    EXPECT_EQ(api.krb5Timeofday(context, &now), ENOMEM);
    EXPECT_EQ(now, 5);
    api.outputOfFailures = FakeKrbAPIWrapper::Output::Filled;
    api.failCall("krb5Timeofday", 1, ENOMEM);
    EXPECT_EQ(api.krb5Timeofday(context, &now), ENOMEM);
    EXPECT_EQ(now, api.now);
}

TEST_F(FakeKrbAPIWrapperTest, CountsOnlyCallsThatCanFailWhenAnyIsToFail)
{
    krb5_timestamp now = 0;
    api.failAnyCall(2, ENOMEM);
    EXPECT_EQ(api.krb5Timeofday(context, &now), 0);
    endWell();
    EXPECT_FALSE(api.hasFailed());
    EXPECT_EQ(api.krb5InitContext(&context), ENOMEM);
}

TEST_F(FakeKrbAPIWrapperTest, ClosesEvenIfClosingFails)
{
    krb5_keytab keytab = nullptr;
    api.krb5KtResolve(context, "FILE:/keytab", &keytab);
    api.failCall("krb5KtClose", 1, EIO);
    EXPECT_EQ(api.krb5KtClose(context, keytab), EIO);
    endWell();
    EXPECT_THAT(api.problems(), IsEmpty());
}

TEST_F(FakeKrbAPIWrapperTest, NoticesASaltThatIsGone)
{
    krb5_data salt{};
    krb5_keyblock key{};
    const krb5_data password{};
    api.krb5Principal2salt(context, principal, &salt);
    krb5_data sameSalt = salt;
    api.krb5FreeDataContents(context, &sameSalt);
    api.krb5cStringToKey(context, 23, &password, &salt, &key);
    endWell();
    EXPECT_THAT(api.problems(), ElementsAre("released salt 1 used"));
}

TEST_F(FakeKrbAPIWrapperTest, NumbersEachKindByItselfAndGivesNoAddressTwice)
{
    krb5_principal second = nullptr;
    krb5_keytab keytab = nullptr;
    krb5_ccache cache = nullptr;
    api.krb5FreePrincipal(context, principal);
    api.krb5ParseName(context, "other@LAB.TEST", &second);
    EXPECT_NE(second, principal);
    api.krb5KtResolve(context, "FILE:/keytab", &keytab);
    api.krb5CcResolve(context, "/cache", &cache);
    api.krb5FreePrincipal(context, second);
    api.krb5KtClose(context, keytab);
    api.krb5CcClose(context, cache);
    EXPECT_THAT(api.calls(),
                ElementsAre("krb5FreePrincipal(context 1, principal 1)",
                            "krb5ParseName(context 1, other@LAB.TEST)",
                            "krb5KtResolve(context 1, FILE:/keytab)",
                            "krb5CcResolve(context 1, /cache)",
                            "krb5FreePrincipal(context 1, principal 2)",
                            "krb5KtClose(context 1, keytab 1)",
                            "krb5CcClose(context 1, cache 1)"));
}

TEST_F(FakeKrbAPIWrapperTest, ContentsTellWhatTheyAreOf)
{
    krb5_data salt{};
    krb5_keyblock key{};
    krb5_creds creds{};
    std::string password = "secret";
    const krb5_data passwordData{KV5M_DATA, 6, password.data()};
    krb5_enctype type = 0;
    std::string typeName = "arcfour-hmac-md5";
    EXPECT_EQ(api.krb5StringToEnctype(typeName.data(), &type), 0);
    EXPECT_EQ(type, ENCTYPE_ARCFOUR_HMAC);
    api.enctype = ENCTYPE_AES256_CTS_HMAC_SHA1_96;
    api.krb5StringToEnctype(typeName.data(), &type);
    EXPECT_EQ(type, ENCTYPE_AES256_CTS_HMAC_SHA1_96);

    api.krb5Principal2salt(context, principal, &salt);
    api.krb5cStringToKey(context, type, &passwordData, &salt, &key);
    api.krb5GetInitCredsKeytab(context, &creds, principal, nullptr, 60, "service", nullptr);
    EXPECT_EQ(std::string(salt.data, salt.length), "salt 1 of user@LAB.TEST");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(key.contents), key.length), "key 1 of type 18");
    EXPECT_EQ(key.enctype, type);
    EXPECT_EQ(std::string(creds.ticket.data, creds.ticket.length), "credentials 1");
    EXPECT_THAT(api.calls(),
                ElementsAre("krb5StringToEnctype(arcfour-hmac-md5)",
                            "krb5StringToEnctype(arcfour-hmac-md5)",
                            "krb5Principal2salt(context 1, principal 1)",
                            "krb5cStringToKey(context 1, 18, secret, salt 1 of user@LAB.TEST)",
                            "krb5GetInitCredsKeytab(context 1, principal 1, null, 60, service, null)"));
}

TEST_F(FakeKrbAPIWrapperTest, WhatAFailureFillsMustBeReleased)
{
    krb5_keytab keytab = nullptr;
    api.outputOfFailures = FakeKrbAPIWrapper::Output::Filled;
    api.failCall("krb5KtResolve", 1, ENOMEM);
    EXPECT_EQ(api.krb5KtResolve(context, "FILE:/keytab", &keytab), ENOMEM);
    endWell();
    EXPECT_THAT(api.problems(), ElementsAre("keytab 1 not released"));
    api.krb5KtClose(nullptr, keytab);
    EXPECT_THAT(api.problems(), IsEmpty());
}

TEST_F(FakeKrbAPIWrapperTest, AFailureHandsNothingOut)
{
    krb5_keytab keytab = nullptr;
    krb5_ccache cache = nullptr;
    krb5_principal copy = nullptr;
    char* name = nullptr;
    krb5_data salt{};
    api.failAnyCall(1, ENOMEM, Lasting::FromThenOn);
    EXPECT_EQ(api.krb5KtResolve(context, "FILE:/keytab", &keytab), ENOMEM);
    EXPECT_EQ(api.krb5CcResolve(context, "/cache", &cache), ENOMEM);
    EXPECT_EQ(api.krb5CopyPrincipal(context, principal, &copy), ENOMEM);
    EXPECT_EQ(api.krb5UnparseName(context, principal, &name), ENOMEM);
    EXPECT_EQ(api.krb5Principal2salt(context, principal, &salt), ENOMEM);
    EXPECT_EQ(keytab, nullptr);
    EXPECT_EQ(cache, nullptr);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(salt.data, nullptr);
    endWell();
    EXPECT_THAT(api.problems(), IsEmpty());
}

TEST_F(FakeKrbAPIWrapperTest, SeveralThreadsMayCall)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&]
            {
                for (int n = 0; n < 25; ++n)
                {
                    krb5_context own = nullptr;
                    krb5_principal user = nullptr;
                    krb5_data salt{};
                    api.krb5InitContext(&own);
                    api.krb5ParseName(own, "user@LAB.TEST", &user);
                    api.krb5Principal2salt(own, user, &salt);
                    api.krb5FreeDataContents(own, &salt);
                    api.krb5FreePrincipal(own, user);
                    api.krb5FreeContext(own);
                }
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(api.countOf("krb5FreeContext"), 100U);
    endWell();
    EXPECT_THAT(api.problems(), IsEmpty());
}

} // namespace
} // namespace TAV::test
