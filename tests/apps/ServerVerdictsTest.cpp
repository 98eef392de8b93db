#include "endpoint_scan/ServerVerdicts.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
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
#include "tav/testing/RecordingLogger.h"

using endpointscan::Finding;
using endpointscan::Opinion;
using endpointscan::ServerVerdicts;
using endpointscan::Verdict;
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

/// A client without a network. It notes what it is told, and sees to it that sessions are opened and closed only while
/// nobody sends, and that each one is used by one thread at a time.
class FakeClient : public TAV::ICurlWrapper
{
public:
    /// What a query does: fills in the response and tells whether the status was 200. Called by many threads.
    std::function<bool(const std::string& payload, std::string& response, TAV::LumoStats& stats)> onSend =
        [](const std::string& payload, std::string& response, TAV::LumoStats&)
    {
        response += answerFor(digestIn(payload), "clean");
        return true;
    };
    unsigned long refusedSession = ~0UL;

    void initSession(unsigned long id) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!busy.empty())
            problems.emplace_back("a session was opened while another one was at work");
        if (id == refusedSession)
            throw TAV::FMXException(1, "Failed to initialize curl handle");
        opened.push_back(id);
    }

    bool deInitSession(unsigned long id) override
    {
        closed->push_back(id);
        return true;
    }

    void configureOptions(const TAV::TAVQueryConfig& given, unsigned long) override { configs.push_back(given); }

    bool sendNetworkRequest(TAV::TAVHTTPHeader& header,
                            std::string payload,
                            std::string& response,
                            unsigned long id,
                            TAV::LumoStats& stats) override
    {
        begin(id, header);
        try
        {
            const bool isAnswered = onSend(payload, response, stats);
            end(id);
            return isAnswered;
        }
        catch (...)
        {
            end(id);
            throw;
        }
    }

    std::mutex mutex;
    std::vector<TAV::TAVQueryConfig> configs;
    std::vector<unsigned long> opened;
    std::shared_ptr<std::vector<unsigned long>> closed = std::make_shared<std::vector<unsigned long>>();
    std::set<unsigned long> used;
    std::multiset<unsigned long> busy;
    std::vector<std::string> problems;
    TAV::TAVHTTPHeader lastHeader;

private:
    void begin(unsigned long id, const TAV::TAVHTTPHeader& header)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (std::count(opened.begin(), opened.end(), id) != 1)
            problems.emplace_back("a session was used that is not open");
        if (busy.count(id) != 0)
            problems.emplace_back("a session was used by two threads at once");
        busy.insert(id);
        used.insert(id);
        lastHeader = header;
    }

    void end(unsigned long id)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        busy.erase(id);
    }
};

class ServerVerdictsTest : public ::testing::Test
{
protected:
    ServerVerdictsTest()
    {
        auto log = std::make_unique<programs::QueryLog>(m_logger);
        auto client = std::make_unique<FakeClient>();
        m_log = log.get();
        m_client = client.get();
        m_verdicts = std::make_unique<ServerVerdicts>(
            std::move(log), std::move(client), endpointscan::ServerAddress{"host:1", "/ca.pem", 7, ""});
    }

    /// Makes each query fail, with these lines as the client logs them.
    void failWith(std::vector<std::string> lines)
    {
        m_client->onSend = [this, lines](const std::string&, std::string& response, TAV::LumoStats&)
        {
            for (const std::string& line : lines)
                m_log->log(6, "CurlWrapper", line);
            response += answerFor(kDigest, "malicious"); // of no account: the status is not 200
            return false;
        };
    }

    Opinion asked()
    {
        m_verdicts->prepare(1);
        return m_verdicts->ask(kDigest, 0);
    }

    RecordingLogger m_logger;
    programs::QueryLog* m_log;
    FakeClient* m_client;
    std::unique_ptr<ServerVerdicts> m_verdicts;
};

TEST_F(ServerVerdictsTest, ConfiguresTheClientOnceAndKeepsItsVerification)
{
    m_verdicts->prepare(3);
    ASSERT_EQ(m_client->configs.size(), 1U);
    const TAV::TAVQueryConfig& config = m_client->configs.front();
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
    EXPECT_THAT(m_client->opened, ElementsAre(0, 1, 2));
    const auto closed = m_client->closed;
    EXPECT_THAT(*closed, IsEmpty());
    m_verdicts.reset();
    EXPECT_THAT(*closed, ElementsAre(0, 1, 2));
}

TEST_F(ServerVerdictsTest, SendsTheDigestAsJson)
{
    std::string sent;
    m_client->onSend = [&sent](const std::string& payload, std::string&, TAV::LumoStats&)
    {
        sent = payload;
        return true;
    };
    asked();
    EXPECT_EQ(sent, R"({"sha256":")" + kDigest + R"("})");
    EXPECT_EQ(m_client->lastHeader.firstHeader, "Content-Type: application/json");
    EXPECT_EQ(m_client->lastHeader.key1 + m_client->lastHeader.value1, "Accept: application/json");
    EXPECT_THAT(m_client->lastHeader.key2 + m_client->lastHeader.value3, StartsWith("X-Client: endpoint_scan "));
}

TEST_F(ServerVerdictsTest, TellsTheTimesOfAnAnswer)
{
    m_client->onSend = [](const std::string&, std::string& response, TAV::LumoStats& stats)
    {
        response = answerFor(kDigest, "clean");
        stats.totalTimeMs = 12;
        stats.tlsConnectTimeMs = 5;
        return true;
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
    const auto answering = m_client->onSend;
    for (const auto& [thrower, reason] : throwers)
    {
        m_client->onSend = [&thrower = thrower](const std::string&, std::string&, TAV::LumoStats&)
        {
            thrower();
            return true;
        };
        const Opinion opinion = m_verdicts->ask(kDigest, 0);
        EXPECT_EQ(opinion.verdict, Verdict::Unknown);
        EXPECT_EQ(opinion.reason, reason);
        m_client->onSend = answering;
        EXPECT_EQ(m_verdicts->ask(kDigest, 0).verdict, Verdict::Clean) << reason;
    }
}

TEST_F(ServerVerdictsTest, AnAskerWithoutASessionGetsAReason)
{
    m_client->refusedSession = 1;
    m_verdicts->prepare(3);
    EXPECT_EQ(m_verdicts->ask(kDigest, 0).verdict, Verdict::Clean);
    EXPECT_EQ(m_verdicts->ask(kDigest, 1).verdict, Verdict::Unknown);
    EXPECT_EQ(m_verdicts->ask(kDigest, 1).reason, "no session: Failed to initialize curl handle");
    EXPECT_EQ(m_verdicts->ask(kDigest, 2).verdict, Verdict::Clean);
    const auto closed = m_client->closed;
    m_verdicts.reset();
    EXPECT_THAT(*closed, ElementsAre(0, 2));
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
    m_client->onSend = [this](const std::string& payload, std::string& response, TAV::LumoStats& stats)
    {
        const std::string digest = digestIn(payload);
        stats.totalTimeMs = static_cast<std::uint16_t>(wayOf(digest, 1000));
        switch (wayOf(digest, 5))
        {
        case 0:
            response = answerFor(digest, "clean");
            return true;
        case 1:
            response = answerFor(digest, "malicious");
            return true;
        case 2:
            response = "{\"sha256\": \"" + digest; // cut off
            return true;
        case 3:
            throw TAV::FMXException(1, "exception for " + digest);
        default:
            m_log->log(6, "CurlWrapper", "Failed to connect to Lumo server: line for " + digest);
            return false;
        }
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
    EXPECT_THAT(m_client->problems, IsEmpty());
}

TEST_F(ServerVerdictsScanTest, EachThreadAsksOverASessionOfItsOwn)
{
    std::mutex mutex;
    std::condition_variable arrived;
    unsigned int asking = 0;
    m_client->onSend = [&](const std::string& payload, std::string& response, TAV::LumoStats&)
    {
        std::unique_lock<std::mutex> lock(mutex);
        ++asking;
        arrived.notify_all();
        arrived.wait(lock, [&] { return asking >= kThreads; }); // all of them are on their way at once
        response = answerFor(digestIn(payload), "clean");
        return true;
    };
    scanned();
    EXPECT_THAT(m_client->used, ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(m_client->opened, ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(m_client->problems, IsEmpty());
}

} // namespace
