// tavctl krb as it is, with a KDC of the test's own.

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "apps/ProgramRun.h"
#include "support/Kdc.h"
#include "support/SacrificialProcess.h"
#include "support/TemporaryDirectory.h"

using namespace TAV::test;
using nlohmann::json;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

namespace fs = std::filesystem;

namespace
{

constexpr const char* kUser = "user@TEST.EXAMPLE";

/// Without a KDC: what is refused before anybody is asked.
class KrbArgumentsTest : public ::testing::Test
{
protected:
    ProgramResult krb(std::vector<std::string> arguments, std::map<std::string, std::string> more = {}) const
    {
        ProgramRun run;
        run.argv = std::move(arguments);
        run.argv.insert(run.argv.begin(), {TAVCTL, "krb"});
        run.environment = std::move(more);
        run.environment.emplace("TMPDIR", m_temporary.path());
        return run.run();
    }

    TemporaryDirectory m_place;
    TemporaryDirectory m_temporary;
};

TEST_F(KrbArgumentsTest, RefusesBadArguments)
{
    const std::string keytab = m_place.file("k");
    const std::string cache = m_place.file("c");
    struct Case
    {
        std::vector<std::string> arguments;
        const char* reason;
    };
    const std::vector<Case> cases{
        {{}, "subcommand"},
        {{"renew", "--keytab", keytab, "--cache", cache}, "--principal"},
        {{"renew", "--principal", "", "--keytab", keytab, "--cache", cache}, "the name is missing"},
        {{"renew", "--principal", kUser, "--keytab", keytab}, "--cache"},
        {{"renew", "--principal", kUser, "--cache", cache}, "--keytab"},
        {{"renew", "--principal", kUser, "--keytab", "", "--cache", cache}, "the name is missing"},
        {{"renew", "--principal", kUser, "--keytab", keytab, "--cache", cache, "--password", "x"}, "--password"},
        {{"renew", "--principal", kUser, "--keytab", keytab, "--cache", "FOO:bar"}, "--cache: FOO:bar: what stands"},
        {{"run", "--principal", kUser, "--cache", "FILE:" + cache, "--", "true"}, "give a path without one"},
        {{"run", "--principal", kUser, "--cache", "MEMORY:x", "--", "true"}, "give a path without one"},
        {{"run", "--principal", kUser}, "PROGRAM"},
        {{"run", "--json", "--principal", kUser, "--", "true"}, "there is none for --json"},
        {{"show"}, "--keytab"},
    };
    for (const Case& c : cases)
    {
        const ProgramResult result = krb(c.arguments);
        EXPECT_EQ(result.exitCode, 2) << ::testing::PrintToString(c.arguments) << result.err;
        EXPECT_THAT(result.err, HasSubstr(c.reason)) << ::testing::PrintToString(c.arguments);
        EXPECT_THAT(result.out, IsEmpty());
    }
}

TEST_F(KrbArgumentsTest, RefusesPasswordsThatCannotBe)
{
    struct Case
    {
        std::string password;
        const char* reason;
    };
    const std::vector<Case> cases{
        {"", "the secret is empty"},
        {std::string("a\0b", 3), "a zero byte"},
        {"two\nlines\n", "more than one line"},
        {std::string(8193, 'x'), "longer than 8192 bytes, which is more than the library takes"},
    };
    for (const Case& c : cases)
    {
        const ProgramResult result =
            krb({"run", "--principal", kUser, "--password-file", m_place.write("pw", c.password), "--", "true"});
        EXPECT_EQ(result.exitCode, 1) << c.reason;
        EXPECT_THAT(result.err, HasSubstr(c.reason));
    }
    EXPECT_THAT(krb({"run", "--principal", kUser, "--password-file", m_place.file("none"), "--", "true"}).err,
                HasSubstr("No such file"));
    EXPECT_THAT(krb({"run", "--principal", kUser, "--", "true"}).err, HasSubstr("there is no terminal"));
}

TEST_F(KrbArgumentsTest, NeverDeletesAnythingElse)
{
    const std::string text = m_place.write("text", "hello");
    const ProgramResult result = krb({"renew",
                                      "--principal",
                                      kUser,
                                      "--password-file",
                                      m_place.write("pw", "x"),
                                      "--keytab",
                                      text,
                                      "--cache",
                                      m_place.file("c")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.err, HasSubstr("exists and is no keytab, and would be deleted"));
    EXPECT_EQ(readFile(text), "hello");
}

TEST_F(KrbArgumentsTest, ShowTellsWhyThereIsNothingToShow)
{
    EXPECT_EQ(krb({"show", "--keytab", m_place.file("none")}).exitCode, 1);
    EXPECT_THAT(krb({"show", "--keytab", m_place.write("text", "hello")}).err, HasSubstr("text: "));
}

class KrbCommandTest : public KrbArgumentsTest
{
protected:
    void SetUp() override
    {
        if (const std::string missing = Kdc::missing(); !missing.empty())
            GTEST_SKIP() << missing;
        m_kdc = std::make_unique<Kdc>();
        m_kdc->addUser("user", "secret");
        m_place.write("pw", "secret\n");
    }

    ProgramResult krb(std::vector<std::string> arguments) const
    {
        return KrbArgumentsTest::krb(std::move(arguments), {{"KRB5_CONFIG", m_kdc->clientConfig()}});
    }

    std::vector<std::string> account(const std::string& verb, const std::string& principal = kUser) const
    {
        return {verb, "--principal", principal, "--password-file", m_place.file("pw")};
    }

    ProgramResult renew(std::vector<std::string> more = {}, const std::string& principal = kUser) const
    {
        std::vector<std::string> arguments = account("renew", principal);
        arguments.insert(arguments.end(), {"--keytab", keytab(), "--cache", m_place.file("cache")});
        arguments.insert(arguments.end(), more.begin(), more.end());
        return krb(arguments);
    }

    ProgramResult runs(std::vector<std::string> program) const
    {
        std::vector<std::string> arguments = account("run");
        arguments.emplace_back("--");
        arguments.insert(arguments.end(), program.begin(), program.end());
        return krb(arguments);
    }

    std::string keytab() const { return m_place.file("keytab"); }

    bool nothingIsLeft() const { return fs::is_empty(m_temporary.path()); }

    std::unique_ptr<Kdc> m_kdc;
};

TEST_F(KrbCommandTest, RenewLeavesAKeytabThatTheKdcTakes)
{
    for (int i = 0; i < 2; ++i) // the second replaces the first
    {
        const ProgramResult result = renew({"--show"});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_THAT(result.out,
                    MatchesRegex("ticket   the KDC gave one to user@TEST.EXAMPLE\n"
                                 "keytab   .*/keytab, mode 0600, [0-9]+ bytes\n"
                                 "entry    user@TEST.EXAMPLE, version 2, arcfour-hmac, made 20[-0-9]+T[:0-9]+Z\n"));
        EXPECT_THAT(result.err, IsEmpty());
    }
    struct stat status = {};
    ASSERT_EQ(::stat(keytab().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(status.st_nlink, 1U);
    EXPECT_FALSE(fs::exists(m_place.file("cache")));
    EXPECT_EQ(m_kdc->issued(kUser, "krbtgt/TEST.EXAMPLE@TEST.EXAMPLE"), 2U);
    EXPECT_THAT(krb({"show", "--keytab", keytab()}).out, HasSubstr("\nentry    user@TEST.EXAMPLE, version 2"));
}

TEST_F(KrbCommandTest, RenewGivesJsonAndCanRemoveTheKeytabAgain)
{
    const json result = json::parse(renew({"--json", "--show", "--remove"}).out);
    EXPECT_EQ(result.at("principal"), kUser);
    EXPECT_EQ(result.at("success"), true);
    EXPECT_EQ(result.at("keytab"), keytab());
    EXPECT_EQ(result.at("cache"), m_place.file("cache"));
    EXPECT_EQ(result.at("mode"), "0600");
    EXPECT_EQ(result.at("kept"), false);
    EXPECT_EQ(result.at("log").at(0).at("message"), "Kerberos configuration was set successfully.");
    const json entry = result.at("entries").at(0);
    EXPECT_EQ(entry.at("principal"), kUser);
    EXPECT_EQ(entry.at("version"), 2);
    EXPECT_EQ(entry.at("encryption_type"), "arcfour-hmac");
    EXPECT_EQ(entry.size(), 4U) << "and no key";
    EXPECT_FALSE(fs::exists(keytab()));
    EXPECT_THAT(renew({"--remove"}).out, HasSubstr("bytes; removed again\n"));
    EXPECT_FALSE(json::parse(renew({"--json"}).out).contains("entries"));
    EXPECT_TRUE(fs::exists(keytab()));
    EXPECT_EQ(json::parse(krb({"show", "--json", "--keytab", keytab()}).out).at("entries").size(), 1U);
}

TEST_F(KrbCommandTest, AFailureTellsItsCauseAndLeavesNoFiles)
{
    m_kdc->administer({"addprinc", "-clearpolicy", "-e", "aes256-cts-hmac-sha1-96:normal", "-pw", "secret", "aes"});
    m_kdc->addUser("locked", "secret", {"-allow_tix"});
    m_kdc->addUser("careful", "other", {"+requires_preauth"});
    m_kdc->addUser("wrong", "other");
    struct Case
    {
        std::string principal;
        const char* cause;
        const char* advice;
    };
    const std::vector<Case> cases{
        {"wrong@TEST.EXAMPLE", "wrong password", "Give the account's password."},
        {"careful@TEST.EXAMPLE", "wrong password", "Give the account's password."},
        {"nobody@TEST.EXAMPLE", "unknown user", "The realm has no such account"},
        {"user@NOWHERE.EXAMPLE", "unknown realm", "[realms]"},
        {"aes@TEST.EXAMPLE", "no RC4 key", "arcfour-hmac"},
        {"locked@TEST.EXAMPLE", "the account is locked", "unlocked"},
    };
    for (const Case& c : cases)
    {
        const ProgramResult result = renew({}, c.principal);
        EXPECT_EQ(result.exitCode, 1) << c.principal;
        EXPECT_THAT(result.out, IsEmpty());
        EXPECT_THAT(result.err,
                    StartsWith("tavctl: krb: Kerberos initialization failed.\ntavctl: krb: no ticket for " +
                               c.principal + ": " + c.cause + ". "));
        EXPECT_THAT(result.err, HasSubstr(c.advice));
        EXPECT_FALSE(fs::exists(keytab()));
    }
    const ProgramResult verbose = renew({"--verbose"}, "nobody@TEST.EXAMPLE");
    EXPECT_THAT(verbose.err,
                AllOf(HasSubstr("[6] KrbHandler: Kerberos initialization failed."),
                      Not(HasSubstr("krb: Kerberos initialization"))));
    const json failure = json::parse(renew({"--json"}, "nobody@TEST.EXAMPLE").out);
    EXPECT_EQ(failure.at("success"), false);
    EXPECT_EQ(failure.at("failure").at("cause"), "unknown user");
    EXPECT_EQ(failure.at("log").at(0).at("message"), "Kerberos initialization failed.");
}

TEST_F(KrbCommandTest, AStoppedKdcAndUnwritablePathsHaveTheirOwnWords)
{
    std::vector<std::string> arguments = account("renew");
    arguments.insert(arguments.end(), {"--keytab", m_place.file("no/where"), "--cache", m_place.file("c")});
    const ProgramResult unwritable = krb(arguments);
    EXPECT_THAT(unwritable.err,
                AllOf(HasSubstr("Kerberos keytab entry addition failed."),
                      HasSubstr("a file cannot be written: No such file or directory")));
    // The private directory's path has a colon then.
    fs::create_directory(m_place.file("a:b"));
    arguments = account("run");
    arguments.insert(arguments.end(), {"--", "true"});
    const ProgramResult untyped =
        KrbArgumentsTest::krb(arguments, {{"KRB5_CONFIG", m_kdc->clientConfig()}, {"TMPDIR", m_place.file("a:b")}});
    EXPECT_THAT(untyped.err, HasSubstr("unknown type of cache"));
    EXPECT_TRUE(fs::is_empty(m_place.file("a:b")));
    m_kdc->stop();
    EXPECT_THAT(renew().err, HasSubstr("no KDC can be reached. See that the KDC runs"));
}

TEST_F(KrbCommandTest, RunGivesAProgramATicketWhileItRuns)
{
    const ProgramResult result = runs({"sh",
                                       "-c",
                                       "kinit -k -i user && klist | grep krbtgt && "
                                       "stat -c %a \"$KRB5_CLIENT_KTNAME\"; cat; echo told >&2; exit 7"});
    EXPECT_EQ(result.exitCode, 7) << result.err;
    EXPECT_THAT(result.out, AllOf(HasSubstr("krbtgt/TEST.EXAMPLE@TEST.EXAMPLE\n"), HasSubstr("\n600\n")));
    EXPECT_EQ(result.err, "told\n");
    EXPECT_TRUE(nothingIsLeft());
}

TEST_F(KrbCommandTest, RunTellsHowTheProgramEnded)
{
    EXPECT_EQ(runs({"true"}).exitCode, 0);
    EXPECT_EQ(runs({"sh", "-c", "kill -9 $$"}).exitCode, 128 + SIGKILL);
    EXPECT_EQ(runs({"/no/program"}).exitCode, 127);
    const ProgramResult directory = runs({m_place.path()});
    EXPECT_EQ(directory.exitCode, 126);
    EXPECT_THAT(directory.err, HasSubstr("Permission denied"));
    EXPECT_TRUE(nothingIsLeft());
}

TEST_F(KrbCommandTest, RunDoesNotStartTheProgramWithoutATicket)
{
    m_place.write("pw", "wrong");
    const ProgramResult result = runs({"touch", m_place.file("started")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.err, HasSubstr("wrong password"));
    EXPECT_FALSE(fs::exists(m_place.file("started")));
    EXPECT_TRUE(nothingIsLeft());
}

TEST_F(KrbCommandTest, RunHandsSignalsOnAndCleansUp)
{
    ProgramRun run;
    run.argv = account("run");
    run.argv.insert(run.argv.begin(), {TAVCTL, "krb"});
    run.argv.insert(run.argv.end(), {"--", "sh", "-c"});
    run.argv.push_back("trap 'echo got it; exit 5' TERM; kill -TERM $PPID; i=0; while [ $i -lt 1000 ]; do i=$((i + "
                       "1)); sleep 0.01; done");
    run.environment = {{"TMPDIR", m_temporary.path()}, {"KRB5_CONFIG", m_kdc->clientConfig()}};
    const ProgramResult result = run.run();
    EXPECT_EQ(result.exitCode, 5) << result.err;
    EXPECT_EQ(result.out, "got it\n");
    EXPECT_TRUE(nothingIsLeft());
}

TEST_F(KrbCommandTest, RunLeavesItsOwnHabitsToItself)
{
    // Ctrl-C is the program's, which dies of it; and its limit for core dumps is the one from outside.
    const ProgramResult result = runs({"sh", "-c", "ulimit -S -c; kill -INT $PPID; kill -INT $$; sleep 60"});
    const ProgramResult outside = runProgram({"/bin/sh", "-c", "ulimit -S -c"});
    EXPECT_EQ(result.exitCode, 128 + SIGINT);
    EXPECT_EQ(result.out, outside.out);
    EXPECT_TRUE(nothingIsLeft());
}

TEST_F(KrbCommandTest, ASignalDuringARenewalLeavesNoKeytab)
{
    m_kdc->fallSilent();
    ProgramRun run;
    run.argv = account("renew");
    run.argv.insert(run.argv.begin(), {TAVCTL, "krb"});
    run.argv.insert(run.argv.end(), {"--keytab", keytab(), "--cache", m_place.file("cache")});
    run.environment = {{"KRB5_CONFIG", m_kdc->clientConfig()}};
    run.signalToSend = SIGTERM;
    run.signalDelayMs = 1000;
    ProgramResult result;
    std::thread renewal([&] { result = run.run(); });
    const bool wasThere = eventually([this] { return fs::exists(keytab()); }, std::chrono::seconds(20));
    renewal.join();
    EXPECT_TRUE(wasThere);
    EXPECT_EQ(result.exitCode, 128 + SIGTERM);
    EXPECT_FALSE(fs::exists(keytab()));
}

} // namespace
