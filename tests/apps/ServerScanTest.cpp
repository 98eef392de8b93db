#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "apps/ProgramRun.h"
#include "apps/RawServer.h"
#include "apps/ReputationProcess.h"
#include "support/MachineCas.h"
#include "support/SacrificialProcess.h"
#include "support/TemporaryDirectory.h"
#include "tav/QelSSLUtils.h"

using namespace TAV::test;
using nlohmann::json;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace fs = std::filesystem;

namespace
{

/// endpoint_scan as it is, asking a server of the test's.
class ServerScanTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (::access(ARCHIVE_TOOL, X_OK) != 0)
            GTEST_SKIP() << "the archive tool is not at " ARCHIVE_TOOL;
        fs::create_directory(tree());
        m_place.write("pw", "pass word");
    }

    std::string tree() const { return m_place.file("files"); }

    /// Writes a file of the tree.
    /// @return the SHA-256 of its content
    std::string add(const std::string& name, const std::string& content) const
    {
        m_place.write("files/" + name, content);
        std::string md5;
        std::string sha1;
        std::string sha256;
        TAV::QelSSLUtils().getChecksumValues(tree() + "/" + name, TAV::INPUT_FILE_PATH, md5, sha1, sha256);
        return sha256;
    }

    /// Small files, the first few of them malicious.
    /// @return the digests of these
    std::vector<std::string> addMany(int count, int malicious) const
    {
        std::vector<std::string> digests;
        for (int i = 0; i < count; ++i)
        {
            const std::string digest = add("file" + std::to_string(i), "content " + std::to_string(i));
            if (i < malicious)
                digests.push_back(digest);
        }
        return digests;
    }

    /// @param timeOut  seconds; so many unless the test is about it that no busy machine reaches them
    ProgramRun scanning(const std::string& server,
                        const std::string& caFile,
                        const std::string& threads = "4",
                        const std::string& timeOut = "60") const
    {
        ProgramRun run;
        run.argv = {ENDPOINT_SCAN, "scan", tree(), "--server", server, "--ca", caFile, "--threads", threads};
        run.argv.insert(run.argv.end(), {"--quarantine", m_place.file("q"), "--password-file", m_place.file("pw")});
        run.argv.insert(run.argv.end(), {"--json", m_place.file("report.json"), "--timeout", timeOut});
        return run;
    }

    template <typename Server>
    ProgramResult scanned(const Server& server) const
    {
        return scanning(server.address(), server.caFile()).run();
    }

    json report() const { return json::parse(readFile(m_place.file("report.json"))); }
    json summary() const { return report().at("summary"); }
    std::size_t countOf(const std::string& verdict) const { return summary().at(verdict).get<std::size_t>(); }

    /// How many files are unknown for a reason that holds this text.
    std::size_t countUnknownFor(const std::string& reason) const
    {
        std::size_t count = 0;
        const json whole = report();
        for (const json& file : whole.at("files"))
        {
            if (file.at("verdict") == "unknown" &&
                file.at("reason").get<std::string>().find(reason) != std::string::npos)
                ++count;
        }
        return count;
    }

    TemporaryDirectory m_place;
};

TEST_F(ServerScanTest, QuarantinesWhatTheServerCallsMalicious)
{
    const std::string digest = add("bad", "bad");
    add("good", "good");
    const ReputationProcess server({digest});
    const ProgramResult result = scanned(server);
    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_THAT(result.out,
                AllOf(HasSubstr("RESULT       SOURCE  MS"), HasSubstr("\nQUARANTINED  server  "), HasSubstr("TLS MS")));
    EXPECT_FALSE(fs::exists(tree() + "/bad"));
    EXPECT_TRUE(fs::exists(tree() + "/good"));
    EXPECT_TRUE(fs::exists(report().at("archive").get<std::string>()));
    const json file = report().at("files").at(0);
    EXPECT_EQ(file.at("verdict"), "quarantined");
    EXPECT_EQ(file.at("source"), "server");
    EXPECT_LE(file.at("tls_connect_ms"), file.at("total_ms"));
    EXPECT_EQ(report().at("server"), server.address());
    EXPECT_FALSE(report().contains("deny_list"));
}

TEST_F(ServerScanTest, ACleanTreeGivesCodeZero)
{
    add("good", "good");
    const ReputationProcess server;
    EXPECT_EQ(scanned(server).exitCode, 0);
    EXPECT_EQ(countOf("clean"), 1U);
}

TEST_F(ServerScanTest, TrustsTheGivenAuthorityAndNoneOfTheMachine)
{
    if (const std::string obstacle = obstacleToMachineCas(); !obstacle.empty())
        GTEST_SKIP() << obstacle;
    add("good", "good");
    const ReputationProcess server;
    const std::string strange = makeStrangeCa(m_place);
    SacrificialProcess process(
        [&]
        {
            giveMachineCas(server.caFile(), m_place);
            scanning(server.address(), strange).run();
        });
    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(countUnknownFor("SSL peer certificate"), 1U);
}

TEST_F(ServerScanTest, LosesNothingOfManyFilesWithFourThreads)
{
    const ReputationProcess server(addMany(300, 10));
    const ProgramResult result = scanned(server);
    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_EQ(countOf("clean"), 290U);
    EXPECT_EQ(countOf("quarantined"), 10U);
    EXPECT_EQ(report().at("files").size(), 300U);
}

TEST_F(ServerScanTest, ADeadServerLeavesEveryVerdictUnknown)
{
    addMany(20, 0);
    const ReputationProcess other;
    const ClosedPort closed;
    const ProgramResult result = scanning(closed.address(), other.caFile()).run();
    EXPECT_EQ(result.exitCode, 6) << result.err;
    EXPECT_EQ(countUnknownFor("no answer: Couldn't connect to server"), 20U);
    EXPECT_THAT(result.out, AllOf(HasSubstr("\nUNKNOWN  server  -   -"), HasSubstr("20 entries: 20 UNKNOWN\n")));
    EXPECT_TRUE(fs::exists(tree() + "/file0"));
}

TEST_F(ServerScanTest, AServerOfAnotherAuthorityIsNotBelieved)
{
    const ReputationProcess server({add("bad", "bad")});
    const ReputationProcess other;
    EXPECT_EQ(scanning(server.address(), other.caFile()).run().exitCode, 6);
    EXPECT_EQ(countUnknownFor("SSL peer certificate"), 1U);
}

TEST_F(ServerScanTest, ASlowServerIsNotWaitedForBeyondTheTimeOut)
{
    addMany(4, 0);
    const ReputationProcess server({}, {"--delay", "3600000"});
    EXPECT_EQ(scanning(server.address(), server.caFile(), "4", "1").run().exitCode, 6);
    EXPECT_EQ(countUnknownFor("no answer: Timeout was reached"), 4U);
}

TEST_F(ServerScanTest, FailuresNowAndThenCostThoseAnswersOnly)
{
    const std::vector<std::string> malicious = addMany(60, 30);
    const ReputationProcess server(malicious, {"--fail-every", "3"});
    EXPECT_EQ(scanned(server).exitCode, 6) << "some are unknown, others are in the quarantine";
    EXPECT_EQ(countUnknownFor("HTTP 503 Service Unavailable"), 20U);
    EXPECT_EQ(countOf("clean") + countOf("quarantined"), 40U);
    EXPECT_GE(countOf("quarantined"), 10U);
    EXPECT_EQ(countOf("denied"), 0U);
}

TEST_F(ServerScanTest, LosesNothingWhenTheServerIsKilledMeanwhile)
{
    constexpr std::size_t kFiles = 100;
    addMany(kFiles, 0);
    ReputationProcess server({}, {"--delay", "50", "--fail-every", "2"});
    ProgramRun run = scanning(server.address(), server.caFile(), "2");
    const std::string log = m_place.write("log", "");
    run.argv.insert(run.argv.end(), {"--log", log});
    ProgramResult result;
    std::thread scan([&] { result = run.run(); });
    const bool isUnderWay = eventually([&log] { return readFile(log).find("503") != std::string::npos; });
    server.stop(SIGKILL);
    scan.join();
    EXPECT_TRUE(isUnderWay);
    EXPECT_EQ(result.exitCode, 6) << result.err;
    EXPECT_EQ(report().at("files").size(), kFiles);
    EXPECT_EQ(countOf("clean") + countOf("unknown"), kFiles);
    EXPECT_GE(countUnknownFor("HTTP 503"), 1U);
    EXPECT_GE(countUnknownFor("no answer: Couldn't connect to server"), 1U);
}

TEST_F(ServerScanTest, KeepsEveryAnswerThatCameBeforeTheServerDied)
{
    constexpr std::size_t kAnswers = 25;
    constexpr std::size_t kFiles = 60;
    addMany(kFiles, 0);
    const RawServer server(
        [asked = std::size_t{0}](const std::string& request) mutable
        {
            if (++asked > kAnswers)
                return RawAnswer{"", false, true};
            const json query = json::parse(request.substr(request.find("\r\n\r\n") + 4));
            return ok(json{{"sha256", query.at("sha256")}, {"verdict", "clean"}}.dump());
        });
    EXPECT_EQ(scanned(server).exitCode, 6);
    EXPECT_EQ(countOf("clean"), kAnswers);
    EXPECT_EQ(countUnknownFor("no answer: "), kFiles - kAnswers);
}

struct WrongAnswer
{
    std::string name;
    RawAnswer answer;
    std::string reason;
};

void PrintTo(const WrongAnswer& wrong, std::ostream* out)
{
    *out << wrong.name;
}

class WrongServerScanTest : public ServerScanTest, public ::testing::WithParamInterface<WrongAnswer>
{
};

TEST_P(WrongServerScanTest, ReportsTheReasonForEveryFile)
{
    addMany(3, 0);
    const RawServer server([](const std::string&) { return GetParam().answer; });
    const ProgramResult result = scanned(server);
    EXPECT_EQ(result.exitCode, 6) << result.err;
    EXPECT_EQ(countUnknownFor(GetParam().reason), 3U) << result.out;
}

INSTANTIATE_TEST_SUITE_P(
    Answers,
    WrongServerScanTest,
    ::testing::Values(
        WrongAnswer{"NoJson", ok("<html>"), "not JSON, or not all of it: \"<html>\""},
        WrongAnswer{"EmptyBody", ok(""), "not JSON"},
        WrongAnswer{
            "OtherContent", ok(R"({"sha256": "00", "verdict": "clean"})"), "the answer is about another content"},
        WrongAnswer{"CutBody",
                    {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"sha256\": \"", true},
                    "not JSON, or not all of it: \"{\"sha256\": \"\""},
        WrongAnswer{"OtherSuccess", {"HTTP/1.1 204 No Content\r\n\r\n"}, "HTTP 204"},
        WrongAnswer{"Redirect",
                    {"HTTP/1.1 302 Found\r\nLocation: https://localhost/1\r\nContent-Length: 0\r\n\r\n"},
                    "HTTP 302"},
        WrongAnswer{"Forbidden", {"HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\n\r\n"}, "HTTP 403 Forbidden"},
        WrongAnswer{"NoHttp", {"hello\r\n\r\n", true}, "no answer: Unsupported protocol"},
        WrongAnswer{"Nothing", {"", true}, "no answer: Server returned nothing"},
        WrongAnswer{"TooLong", ok(std::string(1'000'000, ' ') + "{}"), "not JSON, or not all of it"}),
    [](const auto& test) { return test.param.name; });

TEST_F(ServerScanTest, RefusesBadArguments)
{
    add("file", "x");
    const std::string ca = m_place.write("ca", "");
    const std::string list = m_place.write("deny", "");
    struct Case
    {
        std::vector<std::string> source;
        const char* reason;
    };
    const std::vector<Case> cases{
        {{"--server", "localhost:1"}, "--ca"},
        {{"--server", "localhost:1", "--ca", ca, "--deny-list", list}, "--deny-list"},
        {{"--deny-list", list, "--timeout", "3"}, "--server"},
        {{"--deny-list", list, "--ca", ca}, "--server"},
        {{"--server", "localhost:1", "--ca", m_place.file("missing")}, "No such file"},
        {{"--server", "localhost:1", "--ca", m_place.path()}, "is a directory"},
        {{"--server", "https://localhost:1", "--ca", ca}, "not HOST or HOST:PORT"},
        {{"--server", "localhost:0", "--ca", ca}, "the port"},
        {{"--server", ":1", "--ca", ca}, "the host is missing"},
        {{"--server", "", "--ca", ca}, "the host is missing"},
        {{"--server", "localhost:1", "--ca", ca, "--timeout", "0"}, "--timeout"},
    };
    for (const Case& c : cases)
    {
        ProgramRun run;
        run.argv = {ENDPOINT_SCAN, "scan", tree(), "--quarantine", m_place.file("q"), "--password-file"};
        run.argv.push_back(m_place.file("pw"));
        run.argv.insert(run.argv.end(), c.source.begin(), c.source.end());
        const ProgramResult result = run.run();
        EXPECT_EQ(result.exitCode, 2) << ::testing::PrintToString(c.source);
        EXPECT_THAT(result.err, HasSubstr(c.reason)) << ::testing::PrintToString(c.source);
    }
    EXPECT_FALSE(fs::exists(m_place.file("q")));
}

} // namespace
