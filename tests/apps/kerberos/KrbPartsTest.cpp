// What the programs share for their tickets, without a KDC.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "common/Keytab.h"
#include "common/KrbTicket.h"
#include "support/FreePort.h"
#include "support/SacrificialProcess.h"
#include "support/TemporaryDirectory.h"
#include "tav/KrbAPIWrapper.h"
#include "tav/testing/FakeKrbAPIWrapper.h"
#include "tav/testing/RecordingLogger.h"

using namespace TAV::test;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::ThrowsMessage;

namespace fs = std::filesystem;

namespace programs
{
namespace
{

struct ErrorCase
{
    krb5_error_code error;
    const char* cause;
    const char* advice;
};

TEST(KrbFailureTest, TellsCauseAndRemedyOfEachError)
{
    const ErrorCase cases[] = {
        {KRB5KRB_AP_ERR_BAD_INTEGRITY, "wrong password", "Give the account's password"},
        {KRB5KDC_ERR_PREAUTH_FAILED, "wrong password", "Give the account's password"},
        {KRB5KDC_ERR_C_PRINCIPAL_UNKNOWN, "unknown user", "spelling"},
        {KRB5_KDC_UNREACH, "no KDC can be reached", "See that the KDC runs"},
        {KRB5_REALM_UNKNOWN, "unknown realm", "[realms]"},
        {KRB5_CONFIG_NODEFREALM, "no default realm", "USER@REALM"},
        {KRB5_KT_NOTFOUND, "no RC4 key", "arcfour-hmac"},
        {KRB5KDC_ERR_ETYPE_NOSUPP, "no RC4 key", "permitted_enctypes"},
        {KRB5KDC_ERR_CLIENT_REVOKED, "the account is locked", "unlocked"},
        {KRB5KDC_ERR_NAME_EXP, "the account has expired", "expiration date"},
        {KRB5KDC_ERR_KEY_EXP, "the password has expired", "new one"},
        {KRB5KRB_AP_ERR_SKEW, "the clocks differ", "Set the clocks"},
        {KRB5_CONFIG_BADFORMAT, "krb5.conf is malformed", "KRB5_CONFIG"},
        {KRB5_PARSE_MALFORMED, "malformed principal", "one @"},
        {KRB5_CC_UNKNOWN_TYPE, "unknown type of cache", "colon"},
        {ENOENT, "a file cannot be written: No such file or directory", "a directory that exists"},
        {EACCES, "a file cannot be written: Permission denied", "that you may write to"},
        {KRB5_FCC_INTERNAL, "what libkrb5 says", "KRB5_TRACE"},
    };
    for (const ErrorCase& c : cases)
    {
        const KrbFailure failure = krbFailure(c.error, "what libkrb5 says");
        EXPECT_EQ(failure.error, c.error);
        EXPECT_EQ(failure.cause, c.cause);
        EXPECT_THAT(failure.advice, HasSubstr(c.advice)) << c.cause;
    }
    EXPECT_EQ(krbFailure(KRB5_FCC_INTERNAL, "").cause, "error " + std::to_string(KRB5_FCC_INTERNAL));
}

TEST(NotingKrbApiTest, KeepsTheFirstErrorUntilItIsToForgetIt)
{
    NotingKrbApi api;
    krb5_context context = nullptr;
    krb5_principal principal = nullptr;
    krb5_ccache cache = nullptr;
    ASSERT_EQ(api.krb5InitContext(&context), 0);
    EXPECT_EQ(api.krb5ParseName(context, "a@b@c", &principal), KRB5_PARSE_MALFORMED);
    EXPECT_EQ(api.krb5CcResolve(context, "FOO:bar", &cache), KRB5_CC_UNKNOWN_TYPE);
    EXPECT_EQ(api.failure().error, KRB5_PARSE_MALFORMED);
    api.forget();
    EXPECT_EQ(api.failure().error, 0);
    api.krb5FreeContext(context);
}

/// Writes an entry the way the handler does it.
void addEntry(const std::string& path, const std::string& principal)
{
    TAV::KrbAPIWrapper api;
    krb5_context context = nullptr;
    krb5_keytab keytab = nullptr;
    krb5_octet bytes[16] = {'s', 'e', 'c', 'r', 'e', 't'};
    krb5_keytab_entry entry{};
    ASSERT_EQ(api.krb5InitContext(&context), 0);
    ASSERT_EQ(api.krb5ParseName(context, principal.c_str(), &entry.principal), 0);
    entry.vno = 2;
    entry.key.enctype = ENCTYPE_ARCFOUR_HMAC;
    entry.key.length = sizeof bytes;
    entry.key.contents = bytes;
    ASSERT_EQ(api.krb5KtResolve(context, ("WRFILE:" + path).c_str(), &keytab), 0);
    ASSERT_EQ(api.krb5KtAddEntry(context, keytab, &entry), 0);
    api.krb5KtClose(context, keytab);
    api.krb5FreePrincipal(context, entry.principal);
    api.krb5FreeContext(context);
}

class KeytabTest : public ::testing::Test
{
protected:
    TemporaryDirectory m_place;
    TAV::KrbAPIWrapper m_api;
    FakeKrbAPIWrapper m_fake;
};

TEST_F(KeytabTest, ListsEveryEntry)
{
    const std::string path = m_place.file("keytab");
    const std::time_t before = std::time(nullptr);
    addEntry(path, "one@A.EXAMPLE");
    addEntry(path, "two/host@B.EXAMPLE");
    const Keytab keytab = readKeytab(m_api, path);
    EXPECT_EQ(keytab.mode, 0600U);
    EXPECT_EQ(keytab.size, fs::file_size(path));
    ASSERT_EQ(keytab.entries.size(), 2U);
    EXPECT_EQ(keytab.entries[0].principal, "one@A.EXAMPLE");
    EXPECT_EQ(keytab.entries[0].version, 2U);
    EXPECT_EQ(keytab.entries[0].type, ENCTYPE_ARCFOUR_HMAC);
    EXPECT_EQ(keytab.entries[0].typeName, "arcfour-hmac");
    EXPECT_GE(keytab.entries[0].time, before);
    EXPECT_LE(keytab.entries[0].time, std::time(nullptr));
    EXPECT_EQ(keytab.entries[1].principal, "two/host@B.EXAMPLE");
}

TEST_F(KeytabTest, KnowsTimesBeyond2038)
{
    const std::string path = m_place.file("keytab");
    addEntry(path, "user@A.EXAMPLE");
    std::string bytes = readFile(path);
    // Behind the last component, "user", come four bytes of type and four of time.
    const std::size_t place = bytes.find("user") + 4 + 4;
    m_place.write("keytab", bytes.replace(place, 4, "\xf4\x86\x57\x00", 4)); // 4102444800
    EXPECT_EQ(readKeytab(m_api, path).entries.at(0).time, 4102444800);
}

TEST_F(KeytabTest, TellsWhyItCannotBeRead)
{
    const auto reading = [this](const std::string& path) { return [this, path] { readKeytab(m_api, path); }; };
    EXPECT_THAT(reading(m_place.file("none")), ThrowsMessage<std::runtime_error>(HasSubstr("none: No such file")));
    EXPECT_THAT(reading(m_place.path()), ThrowsMessage<std::runtime_error>(HasSubstr("not a regular file")));
    EXPECT_THAT(reading(m_place.write("text", "hello, world")), ThrowsMessage<std::runtime_error>(HasSubstr("text: ")));
}

TEST_F(KeytabTest, ReleasesEverythingWhicheverCallFails)
{
    const std::string path = m_place.write("keytab", "");
    unsigned int failures = 0;
    for (;; ++failures)
    {
        FakeKrbAPIWrapper fake;
        fake.failAnyCall(failures + 1, ENOMEM);
        try
        {
            readKeytab(fake, path);
        }
        catch (const std::runtime_error& error)
        {
            EXPECT_EQ(error.what(), path + ": Cannot allocate memory");
        }
        EXPECT_THAT(fake.problems(), IsEmpty()) << "call " << failures + 1;
        if (!fake.hasFailed())
            break;
    }
    EXPECT_GE(failures, 4U);
}

TEST_F(KeytabTest, APrincipalThatCannotBeReadIsReleased)
{
    EXPECT_EQ(fullPrincipal(m_api, "user@A.EXAMPLE"), "user@A.EXAMPLE");
    for (const char* operation : {"krb5InitContext", "krb5ParseName", "krb5UnparseName"})
    {
        FakeKrbAPIWrapper fake;
        fake.failCall(operation, 1, KRB5_PARSE_MALFORMED);
        EXPECT_THROW(fullPrincipal(fake, "user"), std::runtime_error) << operation;
        EXPECT_THAT(fake.problems(), IsEmpty()) << operation;
    }
}

class KrbFilesTest : public ::testing::Test
{
protected:
    KrbFilesTest() { ::setenv("TMPDIR", m_place.path().c_str(), 1); }
    ~KrbFilesTest() override { ::unsetenv("TMPDIR"); }

    TemporaryDirectory m_place;
};

TEST_F(KrbFilesTest, LiesInAPrivateDirectoryThatGoesAtTheEnd)
{
    std::string keytab;
    {
        KrbFiles files("", "");
        keytab = files.keytab();
        EXPECT_THAT(keytab, ::testing::StartsWith(m_place.path() + "/"));
        EXPECT_EQ(fs::path(files.cache()).parent_path(), fs::path(keytab).parent_path());
        EXPECT_NE(files.cache(), keytab);
        struct stat status = {};
        ASSERT_EQ(::stat(fs::path(keytab).parent_path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0700U);
        std::ofstream(keytab) << "x";
    }
    EXPECT_FALSE(fs::exists(fs::path(keytab).parent_path()));
}

TEST_F(KrbFilesTest, LeavesGivenPathsAlone)
{
    const std::string keytab = m_place.write("k", "x");
    {
        KrbFiles files(keytab, m_place.file("c"));
        EXPECT_EQ(files.keytab(), keytab);
        EXPECT_EQ(files.cache(), m_place.file("c"));
    }
    EXPECT_TRUE(fs::exists(keytab));
    EXPECT_EQ(std::distance(fs::directory_iterator(m_place.path()), fs::directory_iterator()), 1);
}

TEST_F(KrbFilesTest, SaysWhyThereIsNoDirectory)
{
    ::setenv("TMPDIR", m_place.file("missing").c_str(), 1);
    EXPECT_THAT([] { KrbFiles("", ""); }, ThrowsMessage<std::runtime_error>(HasSubstr("No such file or directory")));
}

TEST_F(KrbFilesTest, ASignalTakesThemAlongAndEndsTheProcess)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    {
        const std::string given = m_place.write("given", "x");
        SacrificialProcess process(
            [signal, given]
            {
                KrbFiles files(given, "");
                std::ofstream(files.cache()) << "x";
                ::raise(signal);
            });
        const std::optional<int> status = process.wait();
        ASSERT_TRUE(status.has_value());
        EXPECT_TRUE(WIFSIGNALED(*status) && WTERMSIG(*status) == signal) << *status;
        EXPECT_TRUE(fs::is_empty(m_place.path())) << signal;
    }
}

TEST_F(KrbFilesTest, AnIgnoredSignalStaysIgnored)
{
    SacrificialProcess process(
        []
        {
            static_cast<void>(std::signal(SIGHUP, SIG_IGN));
            KrbFiles files("", "");
            ::raise(SIGHUP);
            if (!fs::exists(fs::path(files.cache()).parent_path()))
                ::_exit(1);
        });
    EXPECT_EQ(process.wait(), 0);
}

class KrbTicketTest : public ::testing::Test
{
protected:
    KrbTicketTest()
    {
        m_account.principal = "user@A.EXAMPLE";
        m_account.password.file = m_place.write("pw", "secret\n");
        m_account.keytab = m_place.file("keytab");
        m_account.cache = m_place.file("cache");
        ::setenv("KRB5_CONFIG", m_place.write("krb5.conf", "[libdefaults]\ndefault_realm = A.EXAMPLE\n").c_str(), 1);
    }

    TemporaryDirectory m_place;
    RecordingLogger m_logger;
    KrbAccount m_account;
};

TEST_F(KrbTicketTest, RefusesToDeleteWhatItHasNotMade)
{
    const std::string foreign = m_place.file("foreign");
    addEntry(foreign, "HTTP/localhost@A.EXAMPLE");
    const std::string text = m_place.write("text", "hello");
    struct Case
    {
        std::string keytab;
        std::string cache;
        const char* reason;
    };
    const Case cases[] = {
        {foreign, m_account.cache, "foreign: holds a key of HTTP/localhost@A.EXAMPLE, and would be deleted"},
        {text, m_account.cache, "text: exists and is no keytab, and would be deleted"},
        {m_place.path(), m_account.cache, "exists and is no keytab"},
        {m_account.keytab, text, "text: exists and is no credentials cache, and would be deleted"},
        {m_account.keytab, foreign, "exists and is no credentials cache"},
        {m_account.keytab, m_place.path(), "exists and is no credentials cache"},
        {m_account.keytab, m_account.keytab, "must be two files"},
        {m_account.keytab, "FILE:" + m_account.cache, "cache: what stands before a colon may be taken for a type"},
        {m_account.keytab, "MEMORY:x", "MEMORY:x: what stands before a colon may be taken for a type"},
    };
    for (const Case& c : cases)
    {
        m_account.keytab = c.keytab;
        m_account.cache = c.cache;
        EXPECT_THAT([this] { KrbTicket(m_logger, m_account); }, ThrowsMessage<std::runtime_error>(HasSubstr(c.reason)));
    }
    EXPECT_EQ(readFile(text), "hello");
    EXPECT_TRUE(fs::exists(foreign));
}

TEST_F(KrbTicketTest, TakesOverWhatAnEarlierOneHasLeft)
{
    addEntry(m_account.keytab, "user@A.EXAMPLE");
    m_place.write("cache", std::string("\5\4rest"));
    m_account.principal = "user"; // of the default realm
    EXPECT_NO_THROW(KrbTicket(m_logger, m_account));
    EXPECT_FALSE(fs::exists(m_account.keytab)) << "the handler deletes its files";
}

TEST_F(KrbTicketTest, RefusesPasswordsThatTheLibraryWouldAbortAt)
{
    m_place.write("pw", std::string(kLongestKrbPassword, 'x') + "\n");
    EXPECT_EQ(readKrbPassword(m_account.password).size(), kLongestKrbPassword);
    m_place.write("pw", std::string(kLongestKrbPassword + 1, 'x') + "\n");
    EXPECT_THAT([this] { KrbTicket(m_logger, m_account); },
                ThrowsMessage<SecretError>(HasSubstr("longer than 8192 bytes")));
}

TEST_F(KrbTicketTest, TellsAFailedRenewalWithoutTheUsualRemarks)
{
    m_account.principal = "a@b@c";
    m_account.keytab = m_place.file("missing/keytab");
    KrbTicket ticket(m_logger, m_account);
    for (int i = 0; i < 2; ++i) // the first and a later one go different ways
    {
        const KrbRenewal renewal = ticket.renew();
        EXPECT_FALSE(renewal.isRenewed);
        ASSERT_EQ(renewal.lines.size(), 1U);
        EXPECT_EQ(renewal.lines.front().message, "Kerberos principal name parsing failed.");
        EXPECT_EQ(renewal.obstacle("a@b@c"), "no ticket for a@b@c: malformed principal");
    }
    EXPECT_EQ(m_logger.lines().size(), 6U) << "the logger gets every line";
}

TEST_F(KrbTicketTest, KeepsAKeyThatNoKdcHasSeen)
{
    const FreePort nobody; // reserved, and refusing
    m_place.write("krb5.conf",
                  "[libdefaults]\ndns_lookup_kdc = false\n[realms]\nA.EXAMPLE = {\nkdc = 127.0.0.1:" +
                      std::to_string(nobody.number()) + "\n}\n");
    KrbTicket ticket(m_logger, m_account);
    EXPECT_EQ(ticket.renew().failure.error, KRB5_KDC_UNREACH);
    EXPECT_TRUE(fs::exists(m_account.keytab)) << "it may be right, and GSSAPI needs no more when the KDC is back";
}

} // namespace
} // namespace programs
