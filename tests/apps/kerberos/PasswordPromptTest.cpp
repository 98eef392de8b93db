// Passwords that are typed on a terminal, and what becomes of the terminal.

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "apps/kerberos/TerminalRun.h"
#include "support/Kdc.h"
#include "support/SacrificialProcess.h"
#include "support/TemporaryDirectory.h"

using namespace TAV::test;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

namespace fs = std::filesystem;

namespace
{

constexpr const char* kPrompt = "Password: ";

class PasswordPromptTest : public ::testing::Test
{
protected:
    PasswordPromptTest() { fs::create_directory(m_place.file("tmp")); }

    std::map<std::string, std::string> environment() const
    {
        return {{"TMPDIR", m_place.file("tmp")}, {"KRB5_CONFIG", m_config}};
    }

    std::string keytab() const { return m_place.file("keytab"); }

    std::vector<std::string> renewal() const
    {
        return {TAVCTL,
                "krb",
                "renew",
                "--principal",
                "user@TEST.EXAMPLE",
                "--keytab",
                keytab(),
                "--cache",
                m_place.file("cache")};
    }

    /// The same, as a job of a shell that does this with it.
    std::vector<std::string> renewalUnderShell(const std::string& jobControl) const
    {
        std::vector<std::string> argv = renewal();
        argv.insert(argv.begin(), {"/bin/sh", "-c", "set -m; \"$@\" " + jobControl, "sh"});
        return argv;
    }

    bool nothingIsLeft() const
    {
        return fs::is_empty(m_place.file("tmp")) && !fs::exists(keytab()) && !fs::exists(m_place.file("cache"));
    }

    TemporaryDirectory m_place;
    std::string m_config = "/dev/null"; // for whoever does not come so far as to ask a KDC
};

struct Ending
{
    const char* name;
    int signal;
    const char* key; ///< empty for a signal from elsewhere

    friend void PrintTo(const Ending& ending, std::ostream* out) { *out << ending.name; }
};

class PasswordPromptEndTest : public PasswordPromptTest, public ::testing::WithParamInterface<Ending>
{
};

TEST_P(PasswordPromptEndTest, ASignalFindsTheTerminalAsItWas)
{
    const Ending& ending = GetParam();
    TerminalRun run(renewal(), environment());
    ASSERT_TRUE(run.shows(kPrompt));
    EXPECT_FALSE(run.hasEcho());
    run.type("half a pass");
    if (*ending.key != '\0')
        run.type(ending.key);
    else
        ::kill(run.pid(), ending.signal);
    EXPECT_EQ(run.end(), 128 + ending.signal);
    EXPECT_TRUE(run.hasEcho());
    EXPECT_EQ(run.screen(), "Password: \r\n");
    EXPECT_TRUE(nothingIsLeft());
}

INSTANTIATE_TEST_SUITE_P(Endings,
                         PasswordPromptEndTest,
                         ::testing::Values(Ending{"CtrlC", SIGINT, "\x03"},
                                           Ending{"CtrlBackslash", SIGQUIT, "\x1c"},
                                           Ending{"Termination", SIGTERM, ""},
                                           Ending{"HangUp", SIGHUP, ""}),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_F(PasswordPromptTest, RefusesWhatIsNoPassword)
{
    struct Case
    {
        std::string keys;
        const char* reason;
    };
    for (const Case& c : {Case{"\n", "the terminal: the secret is empty"},
                          Case{"\x04", "the terminal: the secret is empty"},
                          Case{std::string(5000, 'x') + "\n", "a line of 4095 bytes may have been cut off"}})
    {
        TerminalRun run(renewal(), environment());
        ASSERT_TRUE(run.shows(kPrompt));
        run.type(c.keys);
        EXPECT_EQ(run.end(), 1) << c.reason;
        EXPECT_TRUE(run.hasEcho());
        EXPECT_THAT(run.screen(), HasSubstr(c.reason));
        EXPECT_TRUE(nothingIsLeft());
    }
}

TEST_F(PasswordPromptTest, InTheBackgroundItWaitsAndCanBeEnded)
{
    TerminalRun run(renewalUnderShell("& echo \"job $!.\"; cat"), environment());
    ASSERT_TRUE(run.shows("job "));
    ASSERT_TRUE(run.shows("."));
    const std::string screen = run.screen();
    const std::string job = screen.substr(screen.find("job ") + 4);
    const pid_t pid = std::stoi(job);
    const auto isStopped = [pid]
    { return readFile("/proc/" + std::to_string(pid) + "/stat").find(") T ") != std::string::npos; };
    EXPECT_TRUE(eventually(isStopped));
    EXPECT_TRUE(run.hasEcho());
    ::kill(pid, SIGTERM);
    ::kill(pid, SIGCONT);
    EXPECT_TRUE(eventually([pid] { return ::kill(pid, 0) != 0; })) << "it has not ended";
    EXPECT_THAT(run.screen(), Not(HasSubstr(kPrompt)));
}

class PasswordPromptKdcTest : public PasswordPromptTest
{
protected:
    void SetUp() override
    {
        if (const std::string missing = Kdc::missing(); !missing.empty())
            GTEST_SKIP() << missing;
        m_kdc = std::make_unique<Kdc>();
        m_kdc->addUser("user", "secret");
        m_config = m_kdc->clientConfig();
    }

    std::unique_ptr<Kdc> m_kdc;
};

TEST_F(PasswordPromptKdcTest, WhatIsTypedIsThePasswordAndIsNotShown)
{
    TerminalRun run(renewal(), environment());
    ASSERT_TRUE(run.shows(kPrompt));
    EXPECT_FALSE(run.hasEcho());
    run.type("secret\n");
    EXPECT_EQ(run.end(), 0);
    EXPECT_TRUE(run.hasEcho());
    EXPECT_THAT(
        run.screen(),
        AllOf(HasSubstr("Password: \r\nticket   the KDC gave one to user@TEST.EXAMPLE\r\n"), Not(HasSubstr("secret"))));
    EXPECT_TRUE(fs::exists(keytab()));
}

TEST_F(PasswordPromptKdcTest, CtrlZLeavesTheEchoAndTheQuestionComesAgain)
{
    TerminalRun run(renewalUnderShell("; echo \"status $?\"; read key; fg; exit $?"), environment());
    ASSERT_TRUE(run.shows(kPrompt));
    run.type("half a pass\x1a");
    ASSERT_TRUE(run.shows("status " + std::to_string(128 + SIGTSTP)));
    EXPECT_TRUE(run.hasEcho());
    run.type("\n");
    ASSERT_TRUE(run.shows(kPrompt));
    EXPECT_FALSE(run.hasEcho());
    run.type("secret\n");
    EXPECT_EQ(run.end(), 0);
    EXPECT_TRUE(run.hasEcho());
    EXPECT_THAT(run.screen(), AllOf(HasSubstr("ticket   the KDC gave one to"), Not(HasSubstr("half"))));
}

TEST_F(PasswordPromptKdcTest, CtrlCAtALaterQuestionRemovesTheKeytab)
{
    const std::string ca = m_place.write("ca", "");
    TerminalRun run({TAVCTL,
                     "query",
                     "--server",
                     "localhost:1",
                     "--ca",
                     ca,
                     "--proxy",
                     "localhost:1",
                     "--krb-principal",
                     "user@TEST.EXAMPLE",
                     "--krb-password-prompt",
                     "--proxy-user",
                     "user",
                     "--proxy-password-prompt"},
                    environment());
    ASSERT_TRUE(run.shows(kPrompt));
    run.type("secret\n");
    ASSERT_TRUE(run.shows(kPrompt)) << "the proxy's password";
    EXPECT_FALSE(fs::is_empty(m_place.file("tmp")));
    run.type("\x03");
    EXPECT_EQ(run.end(), 128 + SIGINT);
    EXPECT_TRUE(run.hasEcho());
    EXPECT_TRUE(nothingIsLeft());
}

} // namespace
