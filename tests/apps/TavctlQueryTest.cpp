#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include "apps/ProgramRun.h"
#include "apps/RawServer.h"
#include "support/MachineCas.h"
#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"
#include "support/TemporaryDirectory.h"
#include "tav/QelSSLUtils.h"

using namespace TAV::test;
using nlohmann::json;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

namespace
{

/// tavctl query as it is, and a server that answers what the test tells it to.
class TavctlQueryTest : public ::testing::Test
{
protected:
    std::vector<std::string> to(const RawServer& server, std::vector<std::string> more = {}) const
    {
        more.insert(more.begin(), {TAVCTL, "query", "--server", server.address(), "--ca", server.caFile()});
        return more;
    }

    ProgramResult query(std::vector<std::string> more = {}, const std::string& input = "") const
    {
        return runProgram(to(m_server, std::move(more)), input);
    }

    std::string lastRequest() const { return m_server.requests().back(); }
    std::string lastBody() const { return lastRequest().substr(lastRequest().find("\r\n\r\n") + 4); }

    TemporaryDirectory m_place;
    RawServer m_server{[](const std::string&) { return ok("the body"); }};
};

TEST_F(TavctlQueryTest, ShowsOutcomeTimesAndBody)
{
    const ProgramResult result = query();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out,
                MatchesRegex("outcome  success: HTTP 200\n"
                             "total    [0-9]+ ms\n"
                             "tls      [0-9]+ ms\n"
                             "body     8 bytes\n"
                             "the body\n"));
    EXPECT_THAT(result.err, IsEmpty());
}

TEST_F(TavctlQueryTest, SendsAnEmptyPostUnlessToldOtherwise)
{
    query();
    EXPECT_THAT(lastRequest(),
                AllOf(StartsWith("POST /1 HTTP/1.1\r\nHost: 127.0.0.1:"), HasSubstr("Content-Length: 0\r\n")));
    query({"--method", "REPORT"});
    EXPECT_THAT(lastRequest(), StartsWith("REPORT /1 HTTP/1.1\r\n"));
}

TEST_F(TavctlQueryTest, SendsTheHeaderLinesInTheirOrder)
{
    query({"--header",
           "A-1: one",
           "--header",
           "B-2: two",
           "--header",
           "C-3: three: 3",
           "--header",
           "D-4: four",
           "--header",
           "E-5: five"});
    EXPECT_THAT(lastRequest(), HasSubstr("\r\nA-1: one\r\nB-2: two\r\nC-3: three: 3\r\nD-4: four\r\nE-5: five\r\n"));
}

TEST_F(TavctlQueryTest, TakesTheBodyFromWhereItIsTold)
{
    const std::string bytes("a\0b\xff\r\n", 6);
    query({"--data", "{\"a\": 1}"});
    EXPECT_EQ(lastBody(), "{\"a\": 1}");
    query({"--data-file", m_place.write("body", bytes)});
    EXPECT_EQ(lastBody(), bytes);
    query({"--data-file", "-"}, bytes);
    EXPECT_EQ(lastBody(), bytes);
}

TEST_F(TavctlQueryTest, KeepsEveryByteOfTheAnswer)
{
    const std::string bytes("\0\xff\x1b\n\r\n\0", 7);
    m_server.respondWith([bytes](const std::string&) { return ok(bytes); });
    const std::string file = m_place.write("out", "a former content, longer than the new one");
    const ProgramResult result = query({"--output", file});
    EXPECT_EQ(readFile(file), bytes);
    EXPECT_THAT(result.out, HasSubstr("body     7 bytes into " + file + "\n"));
    EXPECT_EQ(query({"--output", "-"}).out, bytes);
    const json whole = json::parse(query({"--json"}).out);
    EXPECT_EQ(whole.at("body_base64"), "AP8bCg0KAA==");
    EXPECT_EQ(whole.at("body_bytes"), 7);
}

TEST_F(TavctlQueryTest, AFileThatCannotBeWrittenIsAFailure)
{
    EXPECT_THAT(query({"--output", m_place.file("no/where")}).err, HasSubstr("No such file or directory"));
    EXPECT_EQ(query({"--output", "/dev/full"}).exitCode, 1);
}

TEST_F(TavctlQueryTest, GivesJson)
{
    const json result = json::parse(query({"--json"}).out);
    EXPECT_EQ(result.at("server"), m_server.address());
    EXPECT_EQ(result.at("success"), true);
    EXPECT_EQ(result.at("requests"), 1);
    EXPECT_EQ(result.at("answered"), 1);
    EXPECT_EQ(result.at("body"), "the body");
    EXPECT_LE(result.at("times").at("first").at("tls_connect_ms"), result.at("times").at("first").at("total_ms"));
    EXPECT_FALSE(result.contains("failure"));
}

TEST_F(TavctlQueryTest, RepeatsOverOneConnection)
{
    const ProgramResult result = query({"--repeat", "20", "--data", "x"});
    EXPECT_EQ(m_server.requests().size(), 20U);
    EXPECT_THAT(result.out,
                MatchesRegex("outcome  success: HTTP 200 \\(20 of 20 requests successful\\)\n"
                             "total    first [0-9]+ ms; of all: min [0-9]+, median [0-9]+, max [0-9]+ ms\n"
                             "tls      first [0-9]+ ms; 0 ms in (19|20) requests, over a kept connection\n"
                             "body     8 bytes\nthe body\n"));
    const json times = json::parse(query({"--json", "--repeat", "5"}).out).at("times");
    EXPECT_GE(times.at("without_tls_connect"), 4);
    EXPECT_LE(times.at("total_ms").at("min"), times.at("total_ms").at("median"));
    EXPECT_LE(times.at("total_ms").at("median"), times.at("total_ms").at("max"));
}

TEST_F(TavctlQueryTest, AnotherStatusShowsTheBodyAndTheClientsLines)
{
    m_server.respondWith([](const std::string&)
                         { return RawAnswer{"HTTP/1.1 503 Busy\r\nContent-Length: 4\r\n\r\nbusy"}; });
    const ProgramResult result = query();
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.out, "outcome  failure: HTTP 503 Service Unavailable\nbody     4 bytes\nbusy\n");
    EXPECT_EQ(result.err,
              "tavctl: query: Failed to connect to Lumo server: No error\n"
              "tavctl: query: Last HTTP response code received from Lumo server is: 503\n"
              "tavctl: query: Last HTTP response message received from Lumo server is: Service Unavailable\n");
    const ProgramResult verbose = query({"--verbose"});
    EXPECT_THAT(verbose.err, AllOf(HasSubstr("[6] CurlWrapper: Last HTTP response code"), Not(HasSubstr("tavctl:"))));
}

TEST_F(TavctlQueryTest, OneFailureOfManyCountsAsFailure)
{
    RawServer server([asked = 0](const std::string&) mutable
                     { return ++asked == 2 ? RawAnswer{"HTTP/1.1 404 No\r\nContent-Length: 0\r\n\r\n"} : ok("x"); });
    const ProgramResult result = runProgram(to(server, {"--repeat", "3", "--json"}));
    EXPECT_EQ(result.exitCode, 3);
    const json whole = json::parse(result.out);
    EXPECT_EQ(whole.at("success"), false);
    EXPECT_EQ(whole.at("answered"), 2);
    EXPECT_EQ(whole.at("failure").at("status"), 404);
    EXPECT_EQ(whole.at("failure").at("status_text"), "Not Found");
    EXPECT_EQ(whole.at("failure").at("log").size(), 3U);
    EXPECT_EQ(whole.at("body"), "x");
}

TEST_F(TavctlQueryTest, TellsWhyThereIsNoAnswer)
{
    const ClosedPort closed;
    const std::string ca = m_server.caFile();
    const std::string noCa = m_place.write("ca", "hello\n");
    RawServer silent([](const std::string&) { return RawAnswer{}; });
    struct Case
    {
        std::vector<std::string> arguments;
        const char* cause;
    };
    const std::vector<Case> cases{
        {{"--server", closed.address(), "--ca", ca}, "no answer: Couldn't connect to server"},
        {{"--server", m_server.address(), "--ca", silent.caFile()}, "no answer: SSL peer certificate"},
        {{"--server", m_server.address(), "--ca", noCa}, "no answer: Problem with the SSL CA cert"},
        {{"--server", silent.address(), "--ca", silent.caFile(), "--timeout", "1"}, "no answer: Timeout was reached"},
        {{"--server", m_server.address(), "--ca", ca, "--proxy", closed.address()},
         "no answer: Couldn't connect to server"},
    };
    for (const Case& c : cases)
    {
        std::vector<std::string> argv = c.arguments;
        argv.insert(argv.begin(), {TAVCTL, "query", "--json"});
        const ProgramResult result = runProgram(argv);
        EXPECT_EQ(result.exitCode, 3) << c.cause;
        const json failure = json::parse(result.out).at("failure");
        EXPECT_THAT(failure.at("cause").get<std::string>(), StartsWith(c.cause));
        EXPECT_EQ(failure.at("status"), 0);
        EXPECT_THAT(result.err, HasSubstr("tavctl: query: Failed to connect to Lumo server: "));
    }
}

TEST_F(TavctlQueryTest, EachVerificationHasASwitchOfItsOwn)
{
    const RawServer other([](const std::string&) { return ok("x"); });
    const RawServer misnamed([](const std::string&) { return ok("x"); }, RawServer::Speaks::Tls, "127.0.0.2");
    const auto code = [](std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {TAVCTL, "query"});
        return runProgram(arguments).exitCode;
    };
    EXPECT_EQ(code({"--server", m_server.address(), "--no-verify-peer"}), 0);
    EXPECT_EQ(code({"--server", m_server.address(), "--ca", other.caFile(), "--no-verify-host"}), 3);
    EXPECT_EQ(code({"--server", misnamed.address(), "--ca", misnamed.caFile()}), 3);
    EXPECT_EQ(code({"--server", misnamed.address(), "--ca", misnamed.caFile(), "--no-verify-host"}), 0);
    EXPECT_EQ(code({"--server", misnamed.address(), "--no-verify-peer", "--no-verify-host"}), 0);
}

TEST_F(TavctlQueryTest, TrustsTheGivenAuthorityAndNoneOfTheMachine)
{
    if (const std::string obstacle = obstacleToMachineCas(); !obstacle.empty())
        GTEST_SKIP() << obstacle;
    const std::string strange = makeStrangeCa(m_place);
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            giveMachineCas(m_server.caFile(), m_place);
            for (const std::string& ca : {m_server.caFile(), strange})
                notes.add(runProgram({TAVCTL, "query", "--server", m_server.address(), "--ca", ca}).out);
        });
    EXPECT_EQ(process.wait(), 0);
    EXPECT_THAT(notes.text(),
                AllOf(StartsWith("outcome  success: HTTP 200\n"),
                      HasSubstr("outcome  failure: no answer: SSL peer certificate")));
}

TEST_F(TavctlQueryTest, GivesTheProxyWhatBelongsToIt)
{
    const RawServer proxy(
        [](const std::string&)
        { return RawAnswer{"HTTP/1.1 407 No\r\nProxy-Authenticate: Basic realm=\"x\"\r\nContent-Length: 0\r\n\r\n"}; },
        RawServer::Speaks::Plain);
    for (const std::vector<std::string>& extra : {std::vector<std::string>{}, std::vector<std::string>{"--tunnel"}})
    {
        std::vector<std::string> argv = to(m_server, {"--proxy", proxy.address(), "--proxy-user", "me"});
        argv.insert(argv.end(), {"--proxy-password-file", m_place.write("pw", "pass:word\n")});
        argv.insert(argv.end(), extra.begin(), extra.end());
        EXPECT_EQ(runProgram(argv).exitCode, 3);
        EXPECT_THAT(proxy.requests().back(),
                    AllOf(StartsWith("CONNECT " + m_server.address() + " HTTP/1.1\r\n"),
                          HasSubstr("\r\nProxy-Authorization: Basic bWU6cGFzczp3b3Jk\r\n")));
    }
    EXPECT_THAT(m_server.requests(), IsEmpty());
}

// libcurl decodes both.
TEST_F(TavctlQueryTest, GivesTheProxyNameAndPasswordAsTheyAre)
{
    const RawServer proxy(
        [](const std::string&)
        { return RawAnswer{"HTTP/1.1 407 No\r\nProxy-Authenticate: Basic realm=\"x\"\r\nContent-Length: 0\r\n\r\n"}; },
        RawServer::Speaks::Plain);
    for (const std::string user : {"me", "m%65", "100%"})
    {
        for (const std::string password : {"secret", "p%41ss", "a%00b", "100%", "%zz", "%25%", "a:b@c/d"})
        {
            ProgramRun run;
            run.argv = to(m_server, {"--proxy", proxy.address(), "--proxy-user", user, "--proxy-password-env", "PW"});
            run.environment["PW"] = password;
            run.run();
            std::string encoded;
            TAV::QelSSLUtils().encodeBase64(user + ":" + password, encoded);
            EXPECT_THAT(proxy.requests().back(), HasSubstr("\r\nProxy-Authorization: Basic " + encoded + "\r\n"))
                << user << " " << password;
        }
    }
}

TEST_F(TavctlQueryTest, RefusesBadArgumentsBeforeAnyTraffic)
{
    const std::string ca = m_server.caFile();
    const std::string server = m_server.address();
    struct Case
    {
        std::vector<std::string> arguments;
        const char* reason;
    };
    const std::vector<Case> cases{
        {{}, "--server"},
        {{"--server", "", "--ca", ca}, "the host is missing"},
        {{"--server", ":443", "--ca", ca}, "the host is missing"},
        {{"--server", "https://" + server, "--ca", ca}, "not HOST or HOST:PORT"},
        {{"--server", "localhost:x", "--ca", ca}, "the port is not a number"},
        {{"--server", server}, "give --ca FILE, or --no-verify-peer"},
        {{"--server", server, "--ca", ca, "--method", ""}, "not the name of a method"},
        {{"--server", server, "--ca", ca, "--method", "HEAD"}, "never comes"},
        {{"--server", server, "--ca", ca, "--header", "no colon"}, "not a header line"},
        {{"--server", server, "--ca", ca, "--header", "A: b\r\nC: d"}, "would end the line"},
        {{"--server", server, "--ca", ca, "--data", "x", "--data-file", "y"}, "--data"},
        {{"--server", server, "--ca", ca, "--timeout", "-1"}, "--timeout"},
        {{"--server", server, "--ca", ca, "--timeout", "x"}, "--timeout"},
        {{"--server", server, "--ca", ca, "--repeat", "0"}, "--repeat"},
        {{"--server", server, "--ca", ca, "--tunnel"}, "--proxy"},
        {{"--server", server, "--ca", ca, "--proxy-user", "me"}, "--proxy"},
        {{"--server", server, "--ca", ca, "--proxy", ""}, "--proxy: the host is missing"},
        {{"--server", server, "--ca", ca, "--proxy", "x y"}, "--proxy: not HOST:PORT or http://HOST:PORT"},
        {{"--server", server, "--ca", ca, "--proxy", "p:1", "--proxy-user", "me"}, "where its password comes from"},
        {{"--server", server, "--ca", ca, "--proxy", "p:1", "--proxy-user", "a:b", "--proxy-password-env", "X"},
         "a colon"},
        {{"--server", server, "--ca", ca, "--proxy", "p:1", "--proxy-password-env", "X"}, "--proxy-user"},
        {{"--server", server, "--ca", ca, "--json", "--output", "-"}, "no place for --json"},
        {{"--server", server, "--ca", ca, "extra"}, "extra"},
    };
    for (const Case& c : cases)
    {
        std::vector<std::string> argv = c.arguments;
        argv.insert(argv.begin(), {TAVCTL, "query"});
        const ProgramResult result = runProgram(argv);
        EXPECT_EQ(result.exitCode, 2) << ::testing::PrintToString(c.arguments) << result.err;
        EXPECT_THAT(result.err, HasSubstr(c.reason)) << ::testing::PrintToString(c.arguments);
        EXPECT_THAT(result.out, IsEmpty());
    }
    std::vector<std::string> six;
    for (int i = 0; i < 6; ++i)
        six.insert(six.end(), {"--header", "A: b"});
    EXPECT_THAT(query(six).err, HasSubstr("no more than five lines"));
    EXPECT_THAT(m_server.requests(), IsEmpty());
}

TEST_F(TavctlQueryTest, FilesThatCannotBeReadAreFailures)
{
    const std::string missing = m_place.file("missing");
    const std::string server = m_server.address();
    const ProgramResult noCa = runProgram({TAVCTL, "query", "--server", server, "--ca", missing});
    EXPECT_EQ(noCa.exitCode, 1);
    EXPECT_THAT(noCa.err, HasSubstr("missing: No such file"));
    EXPECT_EQ(query({"--data-file", missing}).exitCode, 1);
    const ProgramResult noPassword = query({"--proxy", "p:1", "--proxy-user", "me", "--proxy-password-file", missing});
    EXPECT_EQ(noPassword.exitCode, 1);
    EXPECT_THAT(noPassword.err, HasSubstr("missing: No such file"));
    EXPECT_THAT(query({"--proxy", "p:1", "--proxy-user", "me", "--proxy-password-prompt"}).err,
                HasSubstr("there is no terminal"));
    EXPECT_THAT(m_server.requests(), IsEmpty());
}

} // namespace
