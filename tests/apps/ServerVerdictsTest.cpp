#include "endpoint_scan/ServerVerdicts.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <new>
#include <set>
#include <stdexcept>

#include "endpoint_scan/SafeFiles.h"
#include "endpoint_scan/Scanner.h"
#include "support/TemporaryDirectory.h"
#include "tav/FMXException.h"
#include "tav/testing/FakeCurlWrapper.h"
#include "tav/testing/RecordingLogger.h"

using endpointscan::Finding;
using endpointscan::Opinion;
using endpointscan::ServerVerdicts;
using endpointscan::Verdict;
using TAV::test::CurlAnswer;
using TAV::test::CurlRequest;
using TAV::test::FakeCurlWrapper;
using TAV::test::RecordingLogger;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace
{

const std::string kDigest(64, 'a');

std::string digestIn(const std::string& payload)
{
    return nlohmann::json::parse(payload).at("sha256");
}

std::string answerFor(const std::string& digest, const std::string& verdict)
{
    return nlohmann::json{{"sha256", digest}, {"verdict", verdict}}.dump();
}

CurlAnswer clean(const CurlRequest& request)
{
    CurlAnswer answer;
    answer.body = answerFor(digestIn(request.payload), "clean");
    return answer;
}

class ServerVerdictsTest : public ::testing::Test
{
protected:
    ServerVerdictsTest()
    {
        auto log = std::make_unique<programs::QueryLog>(m_logger);
        auto client = std::make_unique<FakeCurlWrapper>();
        client->onRequest = clean;
        client->onCall = [this](const std::string& call)
        {
            if (call.rfind("deInitSession", 0) == 0) // by one thread; the client is gone when a test looks
                m_closed.push_back(call);
        };
        m_log = log.get();
        m_client = client.get();
        m_verdicts = std::make_unique<ServerVerdicts>(
            std::move(log), std::move(client), endpointscan::ServerAddress{"host:1", "/ca.pem", 7, ""});
    }

    /// Makes each query fail, with these lines as the client logs them.
    void failWith(std::vector<std::string> lines)
    {
        m_client->onRequest = [this, lines](const CurlRequest&)
        {
            for (const std::string& line : lines)
                m_log->log(6, "CurlWrapper", line);
            CurlAnswer answer;
            answer.status = 0;
            answer.body = answerFor(kDigest, "malicious"); // of no account: the status is not 200
            return answer;
        };
    }

    Opinion asked()
    {
        m_verdicts->prepare(1);
        return m_verdicts->ask(kDigest, 0);
    }

    RecordingLogger m_logger;
    std::vector<std::string> m_closed; ///< the calls that closed sessions
    programs::QueryLog* m_log;
    FakeCurlWrapper* m_client;
    std::unique_ptr<ServerVerdicts> m_verdicts;
};

TEST_F(ServerVerdictsTest, ConfiguresTheClientOnceAndKeepsItsVerification)
{
    m_verdicts->prepare(3);
    ASSERT_EQ(m_client->countOf("configureOptions"), 1U);
    const TAV::TAVQueryConfig config = m_client->config().value();
    EXPECT_EQ(config.requestType, "POST");
    EXPECT_EQ(config.serverHost, "host:1");
    EXPECT_EQ(config.caCertPath, "/ca.pem");
    EXPECT_EQ(config.timeout, 7);
    EXPECT_EQ(config.sslVerifyHost, 2);
    EXPECT_EQ(config.sslVerifyPeer, 1);
    EXPECT_THAT(config.proxyAddress, IsEmpty());
}

TEST_F(ServerVerdictsTest, OpensASessionForEachAskerAndClosesThemInTheEnd)
{
    m_verdicts->prepare(3);
    EXPECT_THAT(m_client->sessions(), ElementsAre(0, 1, 2));
    EXPECT_EQ(m_client->countOf("initSession"), 3U);
    EXPECT_THAT(m_closed, IsEmpty());
    m_verdicts.reset();
    EXPECT_THAT(m_closed, ElementsAre("deInitSession(0)", "deInitSession(1)", "deInitSession(2)"));
}

TEST_F(ServerVerdictsTest, SendsTheDigestAsJson)
{
    asked();
    ASSERT_EQ(m_client->requests().size(), 1U);
    const CurlRequest request = m_client->requests().front();
    EXPECT_EQ(request.payload, R"({"sha256":")" + kDigest + R"("})");
    EXPECT_EQ(request.header.firstHeader, "Content-Type: application/json");
    EXPECT_EQ(request.header.key1 + request.header.value1, "Accept: application/json");
    EXPECT_THAT(request.header.key2 + request.header.value3, StartsWith("X-Client: endpoint_scan "));
}

TEST_F(ServerVerdictsTest, TellsTheTimesOfAnAnswer)
{
    m_client->onRequest = [](const CurlRequest& request)
    {
        CurlAnswer answer = clean(request);
        answer.totalTimeMs = 12;
        answer.tlsConnectTimeMs = 5;
        return answer;
    };
    const Opinion opinion = asked();
    ASSERT_TRUE(opinion.times.has_value());
    EXPECT_EQ(opinion.times->totalMs, 12);
    EXPECT_EQ(opinion.times->tlsConnectMs, 5);
}

struct AnswerCase
{
    std::string name;
    std::string body;
    Verdict verdict;
    std::string reason;
};

void PrintTo(const AnswerCase& c, std::ostream* out)
{
    *out << c.name;
}

class ServerAnswerTest : public ::testing::TestWithParam<AnswerCase>
{
};

TEST_P(ServerAnswerTest, CountsOnlyIfCompleteAndAboutThisContent)
{
    const Opinion opinion = endpointscan::readAnswer(GetParam().body, kDigest);
    EXPECT_EQ(opinion.verdict, GetParam().verdict);
    EXPECT_THAT(opinion.reason, HasSubstr(GetParam().reason));
    EXPECT_EQ(opinion.reason.empty(), GetParam().reason.empty());
}

const std::string kNotJson = "not JSON, or not all of it";
const std::string kNoVerdict = "no verdict that is known";
const std::string kOther = "about another content";

INSTANTIATE_TEST_SUITE_P(
    Bodies,
    ServerAnswerTest,
    ::testing::Values(
        AnswerCase{"Clean", answerFor(kDigest, "clean"), Verdict::Clean, ""},
        AnswerCase{"Malicious", answerFor(kDigest, "malicious"), Verdict::Denied, ""},
        AnswerCase{
            "MoreMembers", R"({"sha256": ")" + kDigest + R"(", "verdict": "clean", "score": 3})", Verdict::Clean, ""},
        AnswerCase{"Empty", "", Verdict::Unknown, kNotJson},
        AnswerCase{"Text", "<html>\x1b[2J", Verdict::Unknown, kNotJson + ": \"<html>\\x1b[2J\""},
        AnswerCase{"LastByteCut",
                   answerFor(kDigest, "clean").substr(0, answerFor(kDigest, "clean").size() - 1),
                   Verdict::Unknown,
                   kNotJson},
        AnswerCase{"TwoAnswers", answerFor(kDigest, "clean") + "{}", Verdict::Unknown, kNotJson},
        AnswerCase{"Array", "[]", Verdict::Unknown, kNotJson},
        AnswerCase{"BadUtf8", R"({"sha256": ")" + kDigest + "\", \"verdict\": \"\xff\"}", Verdict::Unknown, kNotJson},
        AnswerCase{"NoDigest", R"({"verdict": "clean"})", Verdict::Unknown, kOther},
        AnswerCase{"OtherDigest", answerFor(std::string(64, 'b'), "clean"), Verdict::Unknown, kOther},
        AnswerCase{"DigestIsNumber", R"({"sha256": 5, "verdict": "clean"})", Verdict::Unknown, kOther},
        AnswerCase{"NoVerdict", R"({"sha256": ")" + kDigest + R"("})", Verdict::Unknown, kNoVerdict},
        AnswerCase{"OtherVerdict", answerFor(kDigest, "Clean"), Verdict::Unknown, kNoVerdict + ": \"Clean\""},
        AnswerCase{
            "VerdictIsNull", R"({"sha256": ")" + kDigest + R"(", "verdict": null})", Verdict::Unknown, kNoVerdict}),
    [](const auto& test) { return test.param.name; });

TEST_F(ServerVerdictsTest, TellsOneCauseOfEachFailure)
{
    const std::string transfer = "Failed to connect to Lumo server: ";
    const std::string code = "Last HTTP response code received from Lumo server is: ";
    const std::string text = "Last HTTP response message received from Lumo server is: ";
    struct Case
    {
        std::vector<std::string> lines;
        const char* reason;
    };
    const std::vector<Case> cases{
        {{transfer + "No error", code + "503", text + "Service Unavailable"}, "HTTP 503 Service Unavailable"},
        {{transfer + "No error", code + "302", text}, "HTTP 302"},
        {{transfer + "Timeout was reached", code + "0", text + "Connection Could Not Be Established"},
         "no answer: Timeout was reached"},
        {{transfer + "Timeout was reached", code + "500", text + "Internal Server Error"},
         "HTTP 500 Internal Server Error"},
        {{"cURL session id 0 not found to perform query."}, "cURL session id 0 not found to perform query."},
        {{}, "failed without a reason"},
    };
    m_verdicts->prepare(1);
    for (const Case& c : cases)
    {
        failWith(c.lines);
        const Opinion opinion = m_verdicts->ask(kDigest, 0);
        EXPECT_EQ(opinion.verdict, Verdict::Unknown) << c.reason;
        EXPECT_EQ(opinion.reason, c.reason);
        EXPECT_FALSE(opinion.times.has_value()) << c.reason;
    }
}

TEST_F(ServerVerdictsTest, PassesTheClientsLinesOnToTheDaemonsLog)
{
    failWith({"a line"});
    asked();
    EXPECT_THAT(m_logger.lines(), ElementsAre(TAV::test::LogLine{6, "CurlWrapper", "a line"}));
}

TEST_F(ServerVerdictsTest, AnExceptionCostsOneAnswerOnly)
{
    const std::vector<std::pair<std::function<void()>, std::string>> throwers{
        {[] { throw TAV::FMXException(1, "cURL payload setting failed"); }, "not asked: cURL payload setting failed"},
        {[] { throw std::runtime_error("broken"); }, "not asked: broken"},
        {[] { throw std::bad_alloc(); }, "not asked: std::bad_alloc"},
    };
    m_verdicts->prepare(1);
    for (const auto& [thrower, reason] : throwers)
    {
        m_client->onRequest = [&thrower = thrower](const CurlRequest& request)
        {
            thrower();
            return clean(request);
        };
        const Opinion opinion = m_verdicts->ask(kDigest, 0);
        EXPECT_EQ(opinion.verdict, Verdict::Unknown);
        EXPECT_EQ(opinion.reason, reason);
        m_client->onRequest = clean;
        EXPECT_EQ(m_verdicts->ask(kDigest, 0).verdict, Verdict::Clean) << reason;
    }
}

TEST_F(ServerVerdictsTest, AnAskerWithoutASessionGetsAReason)
{
    m_client->failCall("initSession", 2);
    m_verdicts->prepare(3);
    EXPECT_EQ(m_verdicts->ask(kDigest, 0).verdict, Verdict::Clean);
    EXPECT_EQ(m_verdicts->ask(kDigest, 1).verdict, Verdict::Unknown);
    EXPECT_EQ(m_verdicts->ask(kDigest, 1).reason, "no session: Failed to initialize curl handle");
    EXPECT_EQ(m_verdicts->ask(kDigest, 2).verdict, Verdict::Clean);
    m_verdicts.reset();
    EXPECT_THAT(m_closed, ElementsAre("deInitSession(0)", "deInitSession(2)"));
}

/// A whole scan with four threads, and a client that deals with each content in its own way.
class ServerVerdictsScanTest : public ServerVerdictsTest
{
protected:
    static constexpr int kFiles = 300;
    static constexpr unsigned int kThreads = 4;

    std::vector<Finding> scanned()
    {
        for (int i = 0; i < kFiles; ++i)
            m_place.write("file" + std::to_string(i), std::to_string(i));
        const endpointscan::Fd root = endpointscan::openDirectory(m_place.path());
        endpointscan::ScanSettings settings;
        settings.root = root.get();
        settings.threads = kThreads;
        settings.isCancelled = [] { return false; };
        settings.onProgress = [](std::size_t, std::size_t) {};
        return scan(settings, *m_verdicts);
    }

    /// One of `count` ways, by the digest.
    static unsigned long wayOf(const std::string& digest, unsigned long count)
    {
        return std::stoul(digest.substr(0, 4), nullptr, 16) % count;
    }

    TAV::test::TemporaryDirectory m_place;
};

TEST_F(ServerVerdictsScanTest, LosesNoFileAndMixesNoReasons)
{
    m_client->onRequest = [this](const CurlRequest& request)
    {
        const std::string digest = digestIn(request.payload);
        CurlAnswer answer;
        answer.totalTimeMs = static_cast<std::uint16_t>(wayOf(digest, 1000));
        switch (wayOf(digest, 5))
        {
        case 0:
            answer.body = answerFor(digest, "clean");
            break;
        case 1:
            answer.body = answerFor(digest, "malicious");
            break;
        case 2:
            answer.body = "{\"sha256\": \"" + digest; // cut off
            break;
        case 3:
            throw TAV::FMXException(1, "exception for " + digest);
        default:
            m_log->log(6, "CurlWrapper", "Failed to connect to Lumo server: line for " + digest);
            answer.status = 0;
        }
        return answer;
    };
    const std::vector<Finding> findings = scanned();
    ASSERT_EQ(findings.size(), static_cast<std::size_t>(kFiles));
    for (const Finding& finding : findings)
    {
        const std::string& digest = finding.facts.sha256;
        ASSERT_EQ(digest.size(), 64U) << finding.path;
        const std::pair<Verdict, std::string> expected[] = {
            {Verdict::Clean, ""},
            {Verdict::Denied, ""},
            {Verdict::Unknown,
             R"(the answer is not JSON, or not all of it: "{"sha256": ")" + digest.substr(0, 28) + "\""},
            {Verdict::Unknown, "not asked: exception for " + digest},
            {Verdict::Unknown, "no answer: line for " + digest},
        };
        EXPECT_EQ(std::make_pair(finding.verdict, finding.reason), expected[wayOf(digest, 5)]) << finding.path;
        EXPECT_EQ(finding.source, "server");
        EXPECT_EQ(finding.times.has_value(), wayOf(digest, 5) < 3);
        if (finding.times)
        {
            EXPECT_EQ(finding.times->totalMs, wayOf(digest, 1000));
        }
    }
    EXPECT_THAT(m_client->problems(), IsEmpty());
}

TEST_F(ServerVerdictsScanTest, EachThreadAsksOverASessionOfItsOwn)
{
    std::mutex mutex;
    std::condition_variable arrived;
    unsigned int asking = 0;
    m_client->onRequest = [&](const CurlRequest& request)
    {
        std::unique_lock<std::mutex> lock(mutex);
        ++asking;
        arrived.notify_all();
        arrived.wait(lock, [&] { return asking >= kThreads; }); // all of them are on their way at once
        return clean(request);
    };
    scanned();
    std::set<unsigned long> used;
    for (const CurlRequest& request : m_client->requests())
        used.insert(request.sessionId);
    EXPECT_THAT(used, ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(m_client->sessions(), ElementsAre(0, 1, 2, 3));
    EXPECT_EQ(m_client->countOf("initSession"), kThreads);
    EXPECT_THAT(m_client->problems(), IsEmpty());
}

} // namespace
