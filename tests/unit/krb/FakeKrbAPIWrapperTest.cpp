// The fake call layer itself: what it must notice, and the operations that the handler has no use for.
#include <cstdlib>
#include <stdexcept>

#include "KrbFixture.h"

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

} // namespace
} // namespace TAV::test
