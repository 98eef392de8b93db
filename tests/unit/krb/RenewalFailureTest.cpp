// Every failure at every step: what is logged, what is not done any more, and what is freed.
#include <map>
#include <ostream>

#include "KrbFixture.h"

namespace TAV::test
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

using Output = FakeKrbAPIWrapper::Output;

const std::string kFreePrincipal = "krb5FreePrincipal(context 1, principal 1)";
const std::string kFreePassword = "krb5FreeDataContents(context 1, secret)";
const std::string kFreeSalt = "krb5FreeDataContents(context 1, salt 1 of user@LAB.TEST)";
const std::string kCloseCache = "krb5CcClose(context 1, cache 1)";
const std::string kCloseKeytab = "krb5KtClose(context 1, keytab 1)";
const std::string kFreeContext = "krb5FreeContext(context 1)";

struct Failure
{
    const char* operation;
    const char* message;
    std::size_t callsMade; ///< of the steps', the failing one included
    Texts freed;

    friend std::ostream& operator<<(std::ostream& out, const Failure& failure) { return out << failure.operation; }
};

const std::vector<Failure> kFailures{
    {"krb5ParseName", "Kerberos principal name parsing failed.", 1, {kFreeContext}},
    {"krb5StringToEnctype", "Kerberos encryption type string parsing failed.", 2, {kFreePrincipal, kFreeContext}},
    {"krb5Timeofday", "Kerberos time retrieval failed.", 3, {kFreePrincipal, kFreeContext}},
    {"krb5Principal2salt", "Kerberos salt generation failed.", 4, {kFreePrincipal, kFreePassword, kFreeContext}},
    {"krb5cStringToKey",
     "Kerberos Passkey generation failed.",
     5,
     {kFreePrincipal, kFreePassword, kFreeSalt, kFreeContext}},
    {"krb5KtResolve", "Kerberos keytab generation failed.", 7, {kFreePrincipal, kFreeSalt, kFreeContext}},
    {"krb5KtAddEntry",
     "Kerberos keytab entry addition failed.",
     8,
     {kFreePrincipal, kFreeSalt, kCloseKeytab, kFreeContext}},
    {"krb5CcResolve",
     "Kerberos credentials cache generation failed.",
     9,
     {kFreePrincipal, kFreeSalt, kCloseKeytab, kFreeContext}},
    {"krb5GetInitCredsKeytab",
     "Kerberos initialization failed.",
     10,
     {kFreePrincipal, kFreeSalt, kCloseCache, kCloseKeytab, kFreeContext}},
};

class RenewalFailureTest : public KrbFixture, public testing::WithParamInterface<Failure>
{
};

TEST_P(RenewalFailureTest, StopsTheRenewalAndFreesWhatItHolds)
{
    api->failCall(GetParam().operation, 1, KRB5KRB_ERR_GENERIC);
    EXPECT_FALSE(handler->configKrbSession(config));
    Texts made = stepCalls();
    made.resize(GetParam().callsMade);
    EXPECT_EQ(api->calls(), Texts{"krb5InitContext()"} + made + GetParam().freed);
}

TEST_P(RenewalFailureTest, IsLoggedOnce)
{
    api->failCall(GetParam().operation, 1, KRB5KRB_ERR_GENERIC);
    handler->configKrbSession(config);
    EXPECT_THAT(newLines(), ElementsAre(kCacheNotRemoved, kKeytabNotRemoved, line(6, GetParam().message)));
}

TEST_P(RenewalFailureTest, IsLoggedBeforeAnythingIsFreed)
{
    std::vector<LogLine> linesAtFreeing;
    api->failCall(GetParam().operation, 1, KRB5KRB_ERR_GENERIC);
    api->onCall = [&](const std::string& call)
    {
        if (call == GetParam().freed.front())
            linesAtFreeing = newLines();
    };
    handler->configKrbSession(config);
    EXPECT_THAT(linesAtFreeing, ElementsAre(kCacheNotRemoved, kKeytabNotRemoved, line(6, GetParam().message)));
}

TEST_P(RenewalFailureTest, IsAFalseStepWithOneLine)
{
    api->failCall(GetParam().operation, 1, KRB5KRB_ERR_GENERIC);
    const bool isOfKey = GetParam().callsMade <= 6;
    const bool isOfKeytab = !isOfKey && GetParam().callsMade <= 8;
    EXPECT_EQ(handler->addKeyAndPricipal(), !isOfKey);
    if (!isOfKey)
    {
        EXPECT_EQ(handler->generateKrbKeyTabAndCache(), !isOfKeytab);
    }
    if (!isOfKey && !isOfKeytab)
    {
        EXPECT_FALSE(handler->initKrb());
    }
    EXPECT_THAT(newLines(), ElementsAre(line(6, GetParam().message)));
    // Without a context nothing has been freed. A renewal that does not get far takes it over.
    api->failCall("krb5ParseName", 1, ENOMEM);
    EXPECT_FALSE(handler->renewTicket());
}

TEST_P(RenewalFailureTest, KeepsNothingFromTheNextRenewal)
{
    api->failCall(GetParam().operation, 1, KRB5KRB_ERR_GENERIC);
    handler->configKrbSession(config);
    newLines();
    EXPECT_TRUE(handler->renewTicket());
    EXPECT_THAT(newLines(), ElementsAre(kCacheNotRemoved, kKeytabNotRemoved, kRenewed));
    EXPECT_THAT(api->problems(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Steps,
                         RenewalFailureTest,
                         testing::ValuesIn(kFailures),
                         [](const auto& failure) { return std::string(failure.param.operation); });

using RenewalContextTest = KrbFixture;

TEST_F(RenewalContextTest, WithoutOneNoStepRunsAndNothingIsFreed)
{
    api->failCall("krb5InitContext", 1, KRB5_CONFIG_BADFORMAT);
    EXPECT_FALSE(handler->configKrbSession(config));
    EXPECT_THAT(api->calls(), ElementsAre("krb5InitContext()"));
    EXPECT_THAT(newLines(),
                ElementsAre(kCacheNotRemoved, kKeytabNotRemoved, line(6, "Kerberos module initializtion failed.")));
}

TEST_F(RenewalContextTest, OneLeftHalfMadeIsFreed)
{
    std::vector<LogLine> linesAtFreeing;
    api->outputOfFailures = Output::Filled;
    api->failCall("krb5InitContext", 1, KRB5_CONFIG_BADFORMAT);
    api->onCall = [&](const std::string& call)
    {
        if (call == kFreeContext)
            linesAtFreeing = newLines();
    };
    EXPECT_FALSE(handler->configKrbSession(config));
    EXPECT_THAT(api->calls(), ElementsAre("krb5InitContext()", kFreeContext));
    EXPECT_THAT(linesAtFreeing,
                ElementsAre(kCacheNotRemoved, kKeytabNotRemoved, line(6, "Kerberos module initializtion failed.")));
}

/// A call of a renewal: what it makes, and what is logged when it fails.
struct Call
{
    const char* operation;
    const char* makes;
    const char* message;
};

// In the order in which the calls that can fail are made.
const std::vector<Call> kCalls{
    {"krb5InitContext", "context", "Kerberos module initializtion failed."},
    {"krb5ParseName", "principal", "Kerberos principal name parsing failed."},
    {"krb5StringToEnctype", "", "Kerberos encryption type string parsing failed."},
    {"krb5Timeofday", "", "Kerberos time retrieval failed."},
    {"krb5Principal2salt", "salt", "Kerberos salt generation failed."},
    {"krb5cStringToKey", "key", "Kerberos Passkey generation failed."},
    {"krb5KtResolve", "keytab", "Kerberos keytab generation failed."},
    {"krb5KtAddEntry", "", "Kerberos keytab entry addition failed."},
    {"krb5CcResolve", "cache", "Kerberos credentials cache generation failed."},
    {"krb5GetInitCredsKeytab", "credentials", "Kerberos initialization failed."},
    {"krb5CcClose", "", nullptr}, // closing is not looked at
    {"krb5KtClose", "", nullptr},
};

/// What a handler must do, told call by call, for failures of any kind one after the other.
class Expectation
{
public:
    bool result = true;
    Texts operations; ///< the names of the calls
    std::vector<LogLine> lines;
    Texts kept; ///< of all renewals so far

    /// One renewal, whose call number `nth` fails; none does if there are fewer.
    void renew(std::size_t nth, Output output)
    {
        m_held.clear();
        result = true;
        operations.clear();
        lines = {kCacheNotRemoved, kKeytabNotRemoved};
        for (std::size_t i = 0; i < kCalls.size() && kCalls[i].message != nullptr && result; ++i)
            make(kCalls[i], i + 1 == nth, output);
        if (result)
            lines.push_back(kRenewed);
        free();
    }

private:
    void make(const Call& call, bool fails, Output output)
    {
        const std::string operation = call.operation;
        const std::string makes = call.makes;
        if (operation == "krb5Principal2salt")
            m_held["password"] = true;
        operations.push_back(operation);
        if (!fails || output == Output::Filled)
            m_held[makes] = true;
        if ((!fails || output == Output::Filled) && (makes == "key" || makes == "credentials"))
            kept.push_back(makes + " " + std::to_string(++m_numbers[makes]));
        if (fails)
        {
            result = false;
            lines.push_back(line(6, call.message));
        }
        else if (makes == "key")
        {
            operations.emplace_back("krb5FreeDataContents");
            m_held["password"] = false;
        }
    }

    void free()
    {
        const std::vector<std::pair<std::string, std::string>> order{{"principal", "krb5FreePrincipal"},
                                                                     {"password", "krb5FreeDataContents"},
                                                                     {"salt", "krb5FreeDataContents"},
                                                                     {"cache", "krb5CcClose"},
                                                                     {"keytab", "krb5KtClose"},
                                                                     {"context", "krb5FreeContext"}};
        for (const auto& [kind, operation] : order)
        {
            if (m_held[kind])
                operations.push_back(operation);
        }
    }

    std::map<std::string, bool> m_held;
    std::map<std::string, int> m_numbers;
};

struct Manner
{
    krb5_error_code error;
    Lasting lasting;
    Output output;

    friend std::ostream& operator<<(std::ostream& out, const Manner& manner)
    {
        return out << (manner.error < 0 ? "KerberosError" : "Errno")
                   << (manner.lasting == Lasting::Once ? "Once" : "FromThenOn")
                   << (manner.output == Output::Filled ? "OutputFilled" : "OutputUntouched");
    }
};

class RenewalFailureSweepTest : public KrbFixture, public testing::WithParamInterface<Manner>
{
protected:
    void planFailure(std::size_t nth)
    {
        api->outputOfFailures = GetParam().output;
        api->failAnyCall(static_cast<unsigned int>(nth), GetParam().error, GetParam().lasting);
    }

    /// Renews, and compares everything.
    void renew()
    {
        api->takeCalls();
        newLines();
        EXPECT_EQ(handler->configKrbSession(config), expected.result);
        Texts operations;
        for (const std::string& call : api->calls())
            operations.push_back(call.substr(0, call.find('(')));
        EXPECT_EQ(operations, expected.operations);
        EXPECT_EQ(newLines(), expected.lines);
        EXPECT_EQ(api->kept(), expected.kept);
        EXPECT_THAT(api->problems(), IsEmpty());
    }

    Expectation expected;
};

TEST_P(RenewalFailureSweepTest, EachCallOfARenewalCanFail)
{
    std::size_t nth = 0;
    do
    {
        SCOPED_TRACE(++nth);
        api->succeed();
        planFailure(nth);
        expected.renew(nth, GetParam().output);
        renew();
    } while (api->hasFailed());
    EXPECT_EQ(nth, kCalls.size() + 1) << "all calls have failed, then none";
}

TEST_P(RenewalFailureSweepTest, EachFailureIsForgottenByTheNextRenewal)
{
    for (std::size_t nth = 1; nth <= kCalls.size(); ++nth)
    {
        SCOPED_TRACE(nth);
        planFailure(nth);
        expected.renew(nth, GetParam().output);
        renew();
        EXPECT_TRUE(api->hasFailed());

        api->succeed();
        expected.renew(0, GetParam().output);
        renew();
    }
}

INSTANTIATE_TEST_SUITE_P(Manners,
                         RenewalFailureSweepTest,
                         testing::Values(Manner{KRB5KDC_ERR_PREAUTH_FAILED, Lasting::Once, Output::Untouched},
                                         Manner{KRB5KDC_ERR_PREAUTH_FAILED, Lasting::Once, Output::Filled},
                                         Manner{KRB5_KDC_UNREACH, Lasting::FromThenOn, Output::Untouched},
                                         Manner{ENOENT, Lasting::Once, Output::Untouched},
                                         Manner{ENOMEM, Lasting::FromThenOn, Output::Filled}),
                         testing::PrintToStringParamName());

} // namespace
} // namespace TAV::test
