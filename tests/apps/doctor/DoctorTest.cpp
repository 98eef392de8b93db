#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <map>

#include "apps/ProgramRun.h"
#include "apps/RawServer.h"
#include "support/FreePort.h"
#include "support/TemporaryDirectory.h"
#include "support/Tools.h"

namespace TAV::test
{
namespace
{

using nlohmann::json;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

/// tavctl doctor as it is, with a Kerberos configuration of the test's own.
class DoctorTest : public ::testing::Test
{
protected:
    ProgramResult doctor(std::vector<std::string> arguments, std::map<std::string, std::string> environment = {}) const
    {
        arguments.insert(arguments.begin(), {TAVCTL, "doctor"});
        environment.insert({"KRB5_CONFIG", m_place.write("krb5.conf", "[libdefaults]\n default_realm = LAB.TEST\n")});
        ProgramRun run;
        run.argv = std::move(arguments);
        run.environment = std::move(environment);
        return run.run();
    }

    /// The check of this name.
    static json checkIn(const ProgramResult& result, const std::string& name)
    {
        const json report = json::parse(result.out);
        for (const json& check : report.at("checks"))
        {
            if (check.at("check") == name)
                return check;
        }
        return {};
    }

    static std::vector<std::string> to(const RawServer& server, std::vector<std::string> more = {})
    {
        more.insert(more.begin(), {"--json", "--server", server.address(), "--ca", server.caFile()});
        return more;
    }

    TemporaryDirectory m_place;
};

TEST_F(DoctorTest, LooksAtThisMachine)
{
    const ProgramResult result = doctor({});
    EXPECT_THAT(result.out,
                AllOf(StartsWith("Commands\n"),
                      HasSubstr("\nKerberos\n  ok       config       " + m_place.file("krb5.conf") +
                                ", default realm LAB.TEST\n"),
                      HasSubstr("\n  ok       digests      MD5, SHA-1, SHA-256 and HMAC-SHA1 give the known answers\n"),
                      HasSubstr("\n  ok       7-zip        7-Zip "),
                      HasSubstr("\n  ok       libmagic     recognises the header of a PNG image\n"),
                      MatchesRegex("(.|\n)*\n\n[0-9]+ ok, [0-9]+ notes?, [0-9]+ warnings?, [0-9]+ problems?\n")));
    EXPECT_THAT(result.err, IsEmpty());
}

TEST_F(DoctorTest, ExitCodeSaysWhetherThereIsAProblem)
{
    const ProgramResult here = doctor({"--json"});
    const json counts = json::parse(here.out).at("counts");
    EXPECT_EQ(here.exitCode, counts.at("problem") == 0 ? 0 : 1);
    const ProgramResult worse = doctor({"--ca", m_place.file("missing")});
    EXPECT_EQ(worse.exitCode, 1);
    EXPECT_THAT(worse.out, HasSubstr("missing: No such file or directory\n"));
}

TEST_F(DoctorTest, GivesJsonWithTheStateOfEachCheck)
{
    const ProgramResult result = doctor({"--json"});
    EXPECT_EQ(checkIn(result, "rc4").at("state"), "ok");
    EXPECT_EQ(checkIn(result, "rc4").at("service"), "Kerberos");
    EXPECT_EQ(checkIn(result, "server").at("state"), "note");
    EXPECT_EQ(checkIn(result, "digests").at("advice"), json::array());
    EXPECT_THAT(result.out, Not(HasSubstr("\x1b")));
}

TEST_F(DoctorTest, SeesWhatTheEnvironmentBreaks)
{
    const std::string strict = m_place.write("strict.conf", "[libdefaults]\n permitted_enctypes = aes256-cts\n");
    const std::string database = m_place.write("magic.mgc", "no database");
    const ProgramResult result = doctor({"--json"}, {{"KRB5_CONFIG", strict}, {"MAGIC", database}});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(checkIn(result, "rc4").at("state"), "problem");
    EXPECT_EQ(checkIn(result, "libmagic").at("state"), "problem");
}

TEST_F(DoctorTest, ReachesAServerWhateverItAnswers)
{
    for (const char* status : {"200 OK", "404 Not Found", "503 Busy"})
    {
        RawServer server(
            [status](const std::string&) {
                return RawAnswer{std::string("HTTP/1.1 ") + status + "\r\nContent-Length: 0\r\n\r\n", false};
            });
        const json check = checkIn(doctor(to(server)), "server");
        EXPECT_EQ(check.at("state"), "ok") << check;
        EXPECT_THAT(check.at("text").get<std::string>(),
                    MatchesRegex(server.address() + " answers with HTTP " + std::string(status, 3) +
                                 " in [0-9]+ ms(, TLS stood after [0-9]+ ms)?(, which is long)?"));
        EXPECT_THAT(server.requests(), ElementsAre(HasSubstr("POST /1 HTTP/1.1\r\n")));
    }
}

TEST_F(DoctorTest, SaysWhyAServerIsNotReached)
{
    const FreePort closed;
    RawServer server([](const std::string&) { return ok(""); });
    RawServer other([](const std::string&) { return ok(""); });
    const std::string address = "127.0.0.1:" + std::to_string(closed.number());
    const ProgramResult refused = doctor({"--json", "--server", address, "--ca", server.caFile()});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(checkIn(refused, "server").at("state"), "problem");
    EXPECT_EQ(checkIn(refused, "server").at("text"), address + ": no answer: Couldn't connect to server");

    const ProgramResult untrusted = doctor({"--json", "--server", server.address(), "--ca", other.caFile()});
    EXPECT_THAT(checkIn(untrusted, "server").at("text").get<std::string>(), HasSubstr("SSL peer certificate"));
    EXPECT_EQ(checkIn(untrusted, "ca").at("state"), "ok");
}

TEST_F(DoctorTest, ReachesAProxyAndGoesThroughIt)
{
    RawServer server([](const std::string&) { return ok(""); });
    RawServer proxy(
        [](const std::string&) {
            return RawAnswer{"HTTP/1.1 403 No\r\nContent-Length: 0\r\n\r\n", true};
        },
        RawServer::Speaks::Plain);
    const ProgramResult result = doctor(to(server, {"--proxy", proxy.address()}));
    EXPECT_EQ(checkIn(result, "proxy").at("state"), "ok");
    EXPECT_EQ(checkIn(result, "server").at("state"), "problem");
    EXPECT_THAT(server.requests(), IsEmpty());
    EXPECT_THAT(proxy.requests(), ElementsAre(StartsWith("CONNECT " + server.address())));

    const FreePort closed;
    const ProgramResult none = doctor({"--json", "--proxy", "127.0.0.1:" + std::to_string(closed.number())});
    EXPECT_EQ(checkIn(none, "proxy").at("state"), "problem");
}

TEST_F(DoctorTest, ColoursWhereAskedToOrOnATerminal)
{
    const std::string colour = "\x1b[32mok";
    EXPECT_THAT(doctor({"--color", "always"}).out, HasSubstr(colour));
    EXPECT_THAT(doctor({"--color=never"}).out, Not(HasSubstr("\x1b")));
    EXPECT_THAT(doctor({}).out, Not(HasSubstr("\x1b"))) << "no terminal";
    if (!hasTool("script"))
        GTEST_SKIP() << "no script(1) to make a terminal (Debian: bsdutils)";
    const auto onTerminal = [this](const std::string& setting)
    {
        return outputOf({"script",
                         "-qec",
                         "env " + setting + " KRB5_CONFIG=/dev/null " TAVCTL " doctor || :",
                         m_place.file("typescript")});
    };
    EXPECT_THAT(onTerminal("-u NO_COLOR TERM=xterm"), HasSubstr(colour));
    EXPECT_THAT(onTerminal("NO_COLOR=1 TERM=xterm"), Not(HasSubstr(colour)));
    EXPECT_THAT(onTerminal("-u NO_COLOR TERM=dumb"), Not(HasSubstr(colour)));
}

TEST_F(DoctorTest, AnswersBadArgumentsWithCodeTwo)
{
    struct Case
    {
        std::vector<std::string> arguments;
        const char* reason;
    };
    for (const Case& c : std::vector<Case>{{{"--server", "localhost"}, "--ca"},
                                           {{"--server", "https://localhost/", "--ca", "x"}, "without https://"},
                                           {{"--server", "", "--ca", "x"}, "the host is missing"},
                                           {{"--proxy", ""}, "the host is missing"},
                                           {{"--proxy", "http://"}, "the host is missing"},
                                           {{"--proxy", "https://h:1/x"}, "without user and path"},
                                           {{"--color", "sometimes"}, "--color"},
                                           {{"--timeout", "0"}, "--timeout"},
                                           {{"surplus"}, "surplus"}})
    {
        const ProgramResult result = doctor(c.arguments);
        EXPECT_EQ(result.exitCode, 2) << c.reason;
        EXPECT_THAT(result.err, HasSubstr(c.reason));
        EXPECT_THAT(result.out, IsEmpty());
    }
}

} // namespace
} // namespace TAV::test
