#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "apps/ProgramRun.h"
#include "apps/ReputationProcess.h"
#include "apps/TlsClient.h"
#include "support/HeapUse.h"
#include "support/TemporaryDirectory.h"

using namespace TAV::test;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

namespace fs = std::filesystem;

namespace
{

const std::string kBad(64, 'b');

/// A server that ought to refuse to start. One that starts all the same ends soon, whatever becomes of the test.
ProgramResult started(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"/usr/bin/timeout", "20", REPUTATION_SERVER});
    return runProgram(std::move(arguments));
}

/// One request with the library's client.
ProgramResult asked(const std::string& address, const std::string& caFile, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {TAVCTL, "query", "--server", address, "--ca", caFile});
    return runProgram(std::move(arguments));
}

TEST(ReputationServerTest, TellsVerdictsByHttps)
{
    const ReputationProcess server({kBad});
    EXPECT_THAT(asked(server.address(), server.caFile(), {"--data", kBad, "--output", "-"}).out,
                R"({"sha256":")" + kBad + R"(","verdict":"malicious"})" + "\n");
    EXPECT_THAT(asked(server.address("127.0.0.1"), server.caFile(), {"--data", std::string(64, 'a')}).out,
                AllOf(HasSubstr("outcome  success"), HasSubstr(R"("verdict":"clean")")));
}

TEST(ReputationServerTest, TellsWhatIsWrongWithARequest)
{
    const ReputationProcess server;
    struct Case
    {
        std::vector<std::string> arguments;
        const char* cause;
        const char* error;
    };
    const std::vector<Case> cases{
        {{"--data", "hello"}, "HTTP 400 Bad Request", "send a SHA-256"},
        {{"--method", "GET"}, "HTTP 405 Method Not Allowed", "only POST /1"},
        {{"--method", "PUT", "--data", kBad}, "HTTP 405 Method Not Allowed", "only POST /1"},
        {{"--data", std::string(5000, 'a')}, "HTTP 413 Payload Too Large", "no request is longer than 4096 bytes"},
        {{"--data", kBad, "--header", "Transfer-Encoding: chunked"}, "HTTP 411 Length Required", "tell the length"},
        {{"--data", std::string(100'000, 'a'), "--header", "Transfer-Encoding: chunked"},
         "HTTP 411 Length Required",
         "tell the length"},
        {{"--method", "PUT", "--data", kBad, "--header", "Transfer-Encoding: chunked"},
         "HTTP 411 Length Required",
         "tell the length"},
        {{"--method", "PURGE"}, "HTTP 400 Bad Request", "only POST /1"},
    };
    for (const Case& c : cases)
    {
        const ProgramResult result = asked(server.address(), server.caFile(), c.arguments);
        EXPECT_EQ(result.exitCode, 3) << c.cause;
        EXPECT_THAT(result.out, AllOf(HasSubstr(c.cause), HasSubstr("{\"error\":\"" + std::string(c.error))))
            << c.cause;
    }
}

std::string portOf(const ReputationProcess& server)
{
    return server.address().substr(server.address().find(':') + 1);
}

TEST(ReputationServerTest, ReadsNoBodyWithoutAnEnd)
{
    const ReputationProcess server;
    TlsClient client(portOf(server));
    client.send("POST /1 HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EXPECT_THAT(client.receiveUntil("}"), AllOf(StartsWith("HTTP/1.1 411 "), HasSubstr("Connection: close\r\n")));
}

TEST(ReputationServerTest, CountsOnlyWhatItLookedAt)
{
    ReputationProcess server;
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--data", kBad},
                                                      {"--method", "GET"},
                                                      {"--data", std::string(5000, 'a')},
                                                      {"--data", kBad, "--header", "Transfer-Encoding: chunked"}})
        asked(server.address(), server.caFile(), arguments);
    server.stop(SIGTERM);
    EXPECT_THAT(server.output(), HasSubstr(": 1 requests: 0 malicious, 1 clean, 0 without a verdict\n"));
}

TEST(ReputationServerTest, CarriesOnAfterABadRequestOnAKeptConnection)
{
    const ReputationProcess server;
    const ProgramResult result =
        asked(server.address(), server.caFile(), {"--method", "GET", "--data", "not read", "--repeat", "5"});
    EXPECT_THAT(result.out, HasSubstr("failure: HTTP 405 Method Not Allowed (0 of 5 requests successful)"));
}

TEST(ReputationServerTest, IsTrustedOnlyThroughItsOwnAuthority)
{
    const ReputationProcess server;
    const ReputationProcess other;
    const ProgramResult result = asked(server.address(), other.caFile(), {"--data", kBad});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.out, HasSubstr("SSL peer certificate"));
}

TEST(ReputationServerTest, ListensOnOneLoopbackAddressOnly)
{
    const ReputationProcess server;
    const ProgramResult result =
        asked(server.address("127.0.0.2"), server.caFile(), {"--data", kBad, "--no-verify-host"});
    EXPECT_THAT(result.out, HasSubstr("Couldn't connect to server"));
}

/// Connects and says nothing.
int idleConnection(const std::string& port)
{
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(std::stoul(port)));
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    return ::connect(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)) == 0 ? fd : -1;
}

TEST(ReputationServerTest, LetsNoConnectionWaitForAnother)
{
    const ReputationProcess server;
    std::vector<int> idle;
    for (int i = 0; i < 80; ++i) // more than a pool would have threads for
        idle.push_back(idleConnection(server.address().substr(server.address().find(':') + 1)));
    EXPECT_THAT(idle, ::testing::Each(::testing::Ge(0)));
    EXPECT_EQ(asked(server.address(), server.caFile(), {"--data", kBad}).exitCode, 0)
        << "the server gives silent connections up after 5 s, so that ten of them in a row outlast the client";
    for (const int fd : idle)
        ::close(fd);
}

TEST(ReputationServerTest, FailsAndWaitsWhenToldTo)
{
    const ReputationProcess server({}, {"--fail-every", "2", "--delay", "20"});
    const ProgramResult result = asked(server.address(), server.caFile(), {"--data", kBad, "--repeat", "5", "--json"});
    EXPECT_THAT(result.out,
                AllOf(HasSubstr("\"answered\": 3"), HasSubstr("\"cause\": \"HTTP 503 Service Unavailable\"")));
    const std::string least = result.out.substr(result.out.find("\"min\": ") + 7);
    EXPECT_GE(std::stoi(least), 20);
}

TEST(ReputationServerTest, PrintsWhereItListensAndClearsUpAtSigterm)
{
    const TemporaryDirectory place;
    ProgramRun run;
    run.directory = place.path();
    run.environment["TMPDIR"] = place.path();
    const std::string script = "timeout 60 \"$0\" >out & pid=$!;"
                               "until [ -s out ] || ! kill -0 $pid; do sleep 0.01; done; read -r port ca <out;"
                               "cat out; stat -c %a \"${ca%/*}\"; kill $pid; wait $pid; echo code $?; echo left *";
    run.argv = {"/bin/sh", "-c", script, REPUTATION_SERVER};
    const ProgramResult result = run.run();
    EXPECT_THAT(
        result.out,
        MatchesRegex("[0-9]+ " + place.path() + "/reputation_server\\.[A-Za-z0-9]+/ca\\.pem\n700\ncode 0\nleft out\n"));
    EXPECT_EQ(result.err, "reputation_server: 0 requests: 0 malicious, 0 clean, 0 without a verdict\n");
}

TEST(ReputationServerTest, EndsAtSigintToo)
{
    ReputationProcess server;
    server.stop(SIGINT);
    EXPECT_THAT(server.output(), HasSubstr("0 requests:"));
    EXPECT_FALSE(fs::exists(server.caFile()));
}

TEST(ReputationServerTest, EndsWithoutWaitingForADelay)
{
    ReputationProcess server({}, {"--delay", "3600000"});
    // The request has arrived when the client has given it up.
    EXPECT_EQ(asked(server.address(), server.caFile(), {"--data", kBad, "--timeout", "3"}).exitCode, 3);
    server.stop(SIGTERM);
    EXPECT_THAT(server.output(), HasSubstr("1 requests: 0 malicious, 1 clean"));
}

TEST(ReputationServerTest, AnswersAtItsEndWhatHasArrived)
{
    ReputationProcess server({}, {"--delay", "3600000"});
    TlsClient client(portOf(server));
    client.send("POST /1 HTTP/1.1\r\nHost: localhost\r\nExpect: 100-continue\r\nContent-Length: 64\r\n\r\n");
    EXPECT_THAT(client.receiveUntil("\r\n\r\n"), StartsWith("HTTP/1.1 100 "));
    client.send(kBad);
    server.stop(SIGTERM);
    EXPECT_THAT(client.receiveAll(), AllOf(StartsWith("HTTP/1.1 200 "), HasSubstr(R"("verdict":"clean")")));
    EXPECT_THAT(server.output(), HasSubstr("1 requests: 0 malicious, 1 clean"));
}

/// Sends a request that comes in one byte at a time, without an end.
class Trickle
{
public:
    Trickle(const std::string& port, const std::string& beginning) : m_client(port)
    {
        m_client.send(beginning);
        m_thread = std::thread(
            [this]
            {
                while (!m_isOver && m_client.send("x"))
                    std::this_thread::sleep_for(std::chrono::milliseconds(20));
            });
    }
    Trickle(const Trickle&) = delete;
    Trickle& operator=(const Trickle&) = delete;
    ~Trickle()
    {
        m_isOver = true;
        m_thread.join();
    }

private:
    TlsClient m_client;
    std::atomic<bool> m_isOver{false};
    std::thread m_thread;
};

TEST(ReputationServerTest, EndsAlthoughRequestsTrickleIn)
{
    ReputationProcess server;
    const Trickle body(portOf(server), "POST /1 HTTP/1.1\r\nHost: localhost\r\nContent-Length: 4096\r\n\r\n");
    const Trickle head(portOf(server), "POST /1 HTTP/1.1\r\nX-Name: ");
    const Trickle line(portOf(server), "POST /");
    server.stop(SIGTERM);
    EXPECT_THAT(server.output(), HasSubstr(" requests: ")) << "it had to be killed";
    EXPECT_FALSE(fs::exists(server.caFile()));
}

#if !defined(TAV_SANITIZED) // whose memory exceeds every limit

TEST(ReputationServerTest, ServesWithoutThreads)
{
    // Room for the stack of one thread, the one that accepts, but not for those of connections.
    ReputationProcess server({}, {}, {"/usr/bin/prlimit", "--stack=1073741824", "--as=2147483648"});
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(asked(server.address(), server.caFile(), {"--data", kBad}).exitCode, 0);
    server.stop(SIGTERM);
    EXPECT_THAT(server.output(), HasSubstr("3 requests: 0 malicious, 3 clean"));
    EXPECT_FALSE(fs::exists(server.caFile()));
}

#endif

TEST(ReputationServerTest, DoesNotShareAPort)
{
    const ReputationProcess server;
    const std::string address = server.address();
    const ProgramResult result = started({"--port", address.substr(address.find(':') + 1)});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.err, HasSubstr("Address already in use"));
    EXPECT_THAT(result.out, IsEmpty());
}

TEST(ReputationServerTest, RefusesBadArguments)
{
    const TemporaryDirectory place;
    const std::string bad = place.write("bad", "hello\n");
    struct Case
    {
        std::vector<std::string> arguments;
        const char* reason;
    };
    for (const Case& c : {Case{{"--port", "65536"}, "--port"},
                          Case{{"--port", "x"}, "--port"},
                          Case{{"--fail-every", "0"}, "--fail-every"},
                          Case{{"--delay", "-1"}, "--delay"},
                          Case{{"--nonsense"}, "--nonsense"},
                          Case{{"--list", bad}, "bad:1: not a SHA-256 digest"},
                          Case{{"--list", place.file("missing")}, "No such file"}})
    {
        const ProgramResult result = started(c.arguments);
        EXPECT_EQ(result.exitCode, 2) << c.reason;
        EXPECT_THAT(result.err, HasSubstr(c.reason));
    }
    EXPECT_EQ(started({"--ready-file", place.file("no/where")}).exitCode, 1);
    EXPECT_THAT(started({"--help"}).out, HasSubstr("Examples:\n  "));
    EXPECT_EQ(started({"--version"}).out, "reputation_server " TAV_VERSION "\n");
}

} // namespace
