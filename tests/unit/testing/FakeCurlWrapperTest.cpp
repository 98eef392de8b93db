#include "tav/testing/FakeCurlWrapper.h"

#include <gmock/gmock.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "tav/CurlWrapper.h"
#include "tav/testing/FakeCurlAPIUtility.h"
#include "tav/testing/RecordingLogger.h"

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace TAV::test
{
namespace
{

TAVQueryConfig configFor(const std::string& host)
{
    TAVQueryConfig config;
    config.serverHost = host;
    config.proxyAddress = "proxy of " + host;
    config.proxyCredentials = "credentials of " + host;
    config.proxyTunnel = static_cast<long>(host.size());
    return config;
}

/// "code: message", or "nothing".
template <typename Operation>
std::string thrownBy(Operation operation)
{
    try
    {
        operation();
    }
    catch (const FMXException& e)
    {
        return std::to_string(e.code) + ": " + e.message;
    }
    return "nothing";
}

/// What came of one query.
struct Outcome
{
    bool result = false;
    std::string response = "before ";
    LumoStats stats{1, 2, 3, 4};
};

Outcome sent(ICurlWrapper& client, unsigned long sessionId, std::string payload = "question")
{
    Outcome outcome;
    TAVHTTPHeader header;
    outcome.result = client.sendNetworkRequest(header, std::move(payload), outcome.response, sessionId, outcome.stats);
    return outcome;
}

std::vector<int> figuresOf(const LumoStats& stats)
{
    return {stats.attempts, stats.queueTimeMs, stats.totalTimeMs, stats.tlsConnectTimeMs};
}

/// The real client, over a call layer that answers what it is told.
struct RealClient
{
    explicit RealClient(ILogger& logger) : client(logger, api) {}

    void setAnswer(const CurlAnswer& answer)
    {
        api->succeed();
        api->numbers[CURLINFO_RESPONSE_CODE] = answer.status;
        api->times[CURLINFO_TOTAL_TIME] = answer.totalTimeMs / 1000.0 + 0.0005;
        api->times[CURLINFO_APPCONNECT_TIME] = answer.tlsConnectTimeMs / 1000.0 + 0.0005;
        api->texts[answer.transferResult] = curl_easy_strerror(answer.transferResult);
        api->onTransfer = [body = answer.body](std::string& response) { response += body; };
        if (answer.transferResult != CURLE_OK)
            api->failCall("curlEasyPerform", 1, answer.transferResult);
    }

    std::shared_ptr<FakeCurlAPIUtility> api = std::make_shared<FakeCurlAPIUtility>();
    CurlWrapper client;
};

struct FakedClient
{
    explicit FakedClient(ILogger& logger) { client.logger = &logger; }

    void setAnswer(const CurlAnswer& answer) { client.answer = answer; }

    FakeCurlWrapper client;
};

/// What holds of the real client and of the fake alike.
template <typename Client>
class CurlWrapperContractTest : public ::testing::Test
{
protected:
    RecordingLogger m_logger;
    Client m_owner{m_logger};
    ICurlWrapper& m_client = m_owner.client;
};

struct ClientNames
{
    template <typename Client>
    static std::string GetName(int)
    {
        return std::is_same_v<Client, RealClient> ? "Real" : "Fake";
    }
};
using Clients = ::testing::Types<RealClient, FakedClient>;
TYPED_TEST_SUITE(CurlWrapperContractTest, Clients, ClientNames);

TYPED_TEST(CurlWrapperContractTest, OpensNoSessionBeforeItIsConfigured)
{
    EXPECT_EQ(thrownBy([&] { this->m_client.initSession(1); }), "1: cURL configuration not set to perform init.");
    EXPECT_FALSE(this->m_client.deInitSession(1));
}

TYPED_TEST(CurlWrapperContractTest, TheFirstConfigurationLooksAtNoIdAndLaterOnesDo)
{
    const std::string refusal = "1: cURL session id 18446744073709551615 not found for curl configuration update.";
    EXPECT_EQ(thrownBy([&] { this->m_client.configureOptions(configFor("a"), ~0UL); }), "nothing");
    EXPECT_EQ(thrownBy([&] { this->m_client.configureOptions(configFor("a"), ~0UL); }), refusal);
    this->m_client.initSession(~0UL);
    EXPECT_EQ(thrownBy([&] { this->m_client.configureOptions(configFor("a"), ~0UL); }), "nothing");
    EXPECT_THAT(this->m_logger.lines(), IsEmpty());
}

TYPED_TEST(CurlWrapperContractTest, AnOpenIdIsOpenedAgainWithoutAWordAndClosedOnce)
{
    this->m_client.configureOptions({}, 0);
    this->m_client.initSession(7);
    EXPECT_EQ(thrownBy([&] { this->m_client.initSession(7); }), "nothing");
    EXPECT_TRUE(this->m_client.deInitSession(7));
    EXPECT_THAT(this->m_logger.lines(), IsEmpty());
    EXPECT_FALSE(this->m_client.deInitSession(7));
    EXPECT_THAT(this->m_logger.lines(),
                ElementsAre(LogLine{2, std::nullopt, "cURL session id 7 not found for deinit."}));
}

TYPED_TEST(CurlWrapperContractTest, AQueryOverASessionThatIsNotOpenTouchesNothing)
{
    this->m_client.configureOptions({}, 0);
    this->m_owner.setAnswer({200, "body", 12, 5, CURLE_OK});
    const Outcome outcome = sent(this->m_client, 7);
    EXPECT_FALSE(outcome.result);
    EXPECT_EQ(outcome.response, "before ");
    EXPECT_THAT(figuresOf(outcome.stats), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(this->m_logger.lines(),
                ElementsAre(LogLine{2, std::nullopt, "cURL session id 7 not found to perform query."}));
}

TYPED_TEST(CurlWrapperContractTest, AStatusOf200IsSuccessWhateverBecameOfTheTransfer)
{
    this->m_client.configureOptions({}, 0);
    this->m_client.initSession(7);
    for (const CURLcode result : {CURLE_OK, CURLE_OPERATION_TIMEDOUT})
    {
        this->m_owner.setAnswer({200, "body", 1234, 300, result});
        const Outcome outcome = sent(this->m_client, 7);
        EXPECT_TRUE(outcome.result);
        EXPECT_EQ(outcome.response, "before body");
        EXPECT_THAT(figuresOf(outcome.stats), ElementsAre(1, 2, 1234, 300));
    }
    EXPECT_THAT(this->m_logger.lines(), IsEmpty());
}

TYPED_TEST(CurlWrapperContractTest, AnyOtherStatusIsAFailureWithThreeLines)
{
    this->m_client.configureOptions({}, 0);
    this->m_client.initSession(7);
    this->m_owner.setAnswer({0, "part", 1234, 300, CURLE_COULDNT_CONNECT});
    const Outcome outcome = sent(this->m_client, 7);
    EXPECT_FALSE(outcome.result);
    EXPECT_EQ(outcome.response, "before part");
    EXPECT_THAT(figuresOf(outcome.stats), ElementsAre(1, 2, 3, 4));
    const std::string transfer = curl_easy_strerror(CURLE_COULDNT_CONNECT);
    const std::string last = "Last HTTP response ";
    EXPECT_THAT(
        this->m_logger.lines(),
        ElementsAre(LogLine{6, "CurlWrapper", "Failed to connect to Lumo server: " + transfer},
                    LogLine{6, "CurlWrapper", last + "code received from Lumo server is: 0"},
                    LogLine{6,
                            "CurlWrapper",
                            last + "message received from Lumo server is: Connection Could Not Be Established"}));
}

TYPED_TEST(CurlWrapperContractTest, AnExceptionLeavesTheSessionUsable)
{
    this->m_client.configureOptions({}, 0);
    this->m_client.initSession(7);
    EXPECT_NE(thrownBy([&] { this->m_client.configureOptions({}, 8); }), "nothing");
    this->m_owner.setAnswer({});
    EXPECT_TRUE(sent(this->m_client, 7).result);
}

TEST(FakeCurlWrapperTest, LogsWhatTheRealClientLogsForEachStatus)
{
    RecordingLogger realLogger;
    RealClient real(realLogger);
    RecordingLogger fakeLogger;
    FakedClient fake(fakeLogger);
    for (ICurlWrapper* client : {static_cast<ICurlWrapper*>(&real.client), static_cast<ICurlWrapper*>(&fake.client)})
    {
        client->configureOptions({}, 0);
        client->initSession(1);
    }
    for (long status = 0; status < 600; ++status)
    {
        const CurlAnswer answer{status, "", 0, 0, status == 0 ? CURLE_OPERATION_TIMEDOUT : CURLE_OK};
        real.setAnswer(answer);
        fake.setAnswer(answer);
        EXPECT_EQ(sent(real.client, 1).result, sent(fake.client, 1).result) << status;
        EXPECT_EQ(realLogger.takeLines(), fakeLogger.takeLines()) << status;
    }
}

TEST(FakeCurlWrapperTest, ASessionKeepsItsOptionsButForTheProxy)
{
    FakeCurlWrapper client;
    EXPECT_FALSE(client.config().has_value());
    client.configureOptions(configFor("a"), 0);
    client.initSession(1);
    client.initSession(2);
    client.configureOptions(configFor("longer"), 2);
    client.initSession(1); // open already
    client.initSession(3);

    EXPECT_THAT(client.sessions(), ElementsAre(1, 2, 3));
    const auto optionsOf = [&](unsigned long id)
    {
        const TAVQueryConfig config = client.configOf(id).value();
        return config.serverHost + ", " + config.proxyAddress + ", " + config.proxyCredentials + ", " +
               std::to_string(config.proxyTunnel);
    };
    EXPECT_EQ(optionsOf(1), "a, proxy of a, credentials of a, 1");
    EXPECT_EQ(optionsOf(2), "a, proxy of longer, credentials of longer, 6");
    EXPECT_EQ(optionsOf(3), "longer, proxy of longer, credentials of longer, 6");
    EXPECT_EQ(client.config()->serverHost, "longer");
    EXPECT_FALSE(client.configOf(4).has_value());
}

TEST(FakeCurlWrapperTest, KeepsEachQueryAsItWasSent)
{
    FakeCurlWrapper client;
    client.configureOptions(configFor("a"), 0);
    client.initSession(1);
    TAVHTTPHeader header;
    header.firstHeader = "A: b";
    std::string response;
    LumoStats stats;
    const std::string payload("zero\0byte", 9);
    EXPECT_TRUE(client.sendNetworkRequest(header, payload, response, 1, stats));
    EXPECT_FALSE(client.sendNetworkRequest(header, payload, response, 2, stats)) << "not sent";

    ASSERT_EQ(client.requests().size(), 1U);
    const CurlRequest request = client.requests().front();
    EXPECT_EQ(request.sessionId, 1U);
    EXPECT_EQ(request.header.firstHeader, "A: b");
    EXPECT_EQ(request.payload, payload);
    EXPECT_EQ(request.config.serverHost, "a");
}

TEST(FakeCurlWrapperTest, NotesItsCallsWithTheirArguments)
{
    FakeCurlWrapper client;
    client.configureOptions(configFor("a"), 5);
    client.initSession(1);
    sent(client, 1);
    client.deInitSession(1);
    EXPECT_THAT(
        client.calls(),
        ElementsAre("configureOptions(a, 5)", "initSession(1)", "sendNetworkRequest(question, 1)", "deInitSession(1)"));
}

TEST(FakeCurlWrapperTest, AnswersWhatTheTestSays)
{
    FakeCurlWrapper client;
    client.configureOptions({}, 0);
    client.initSession(1);
    client.onRequest = [](const CurlRequest& request)
    {
        CurlAnswer answer;
        answer.status = request.payload == "good" ? 200 : 503;
        answer.body = "to " + request.payload;
        return answer;
    };
    EXPECT_TRUE(sent(client, 1, "good").result);
    EXPECT_FALSE(sent(client, 1, "bad").result) << "without a logger, too";
    EXPECT_EQ(sent(client, 1, "bad").response, "before to bad");
}

TEST(FakeCurlWrapperTest, PlannedFailuresAreExceptionsWhereTheyCanBe)
{
    FakeCurlWrapper client;
    client.failCall("configureOptions", 1, 3);
    client.failCall("initSession", 1, 4);
    client.failCall("sendNetworkRequest", 1, 5);
    client.failCall("deInitSession", 1);

    EXPECT_EQ(thrownBy([&] { client.configureOptions({}, 0); }), "nothing") << "the first one stores alone";
    EXPECT_EQ(thrownBy([&] { client.configureOptions(configFor("a"), 0); }),
              "3: cURL configuration failed while setting proxy config.");
    EXPECT_EQ(client.config()->serverHost, "a") << "stored all the same";
    EXPECT_EQ(thrownBy([&] { client.initSession(1); }), "4: Failed to initialize curl handle");
    EXPECT_THAT(client.sessions(), IsEmpty());
    client.initSession(1);
    EXPECT_EQ(thrownBy([&] { sent(client, 1); }), "5: cURL payload setting failed");
    EXPECT_THAT(client.requests(), IsEmpty());
    EXPECT_TRUE(sent(client, 1).result);
    EXPECT_FALSE(client.deInitSession(1));
    EXPECT_THAT(client.sessions(), ElementsAre(1));
    EXPECT_TRUE(client.deInitSession(1));
    EXPECT_THAT(client.plan()->pending(), IsEmpty());
}

TEST(FakeCurlWrapperTest, AnExceptionOfTheAnswerReachesTheSenderAndFreesTheSession)
{
    FakeCurlWrapper client;
    client.configureOptions({}, 0);
    client.initSession(1);
    client.onRequest = [](const CurlRequest&) -> CurlAnswer { throw std::runtime_error("broken"); };
    EXPECT_THROW(sent(client, 1), std::runtime_error);
    client.onRequest = nullptr;
    EXPECT_TRUE(sent(client, 1).result);
    EXPECT_TRUE(client.deInitSession(1));
    EXPECT_THAT(client.problems(), IsEmpty());
}

TEST(FakeCurlWrapperTest, SeesWhatMustNotHappenWhileASessionSends)
{
    FakeCurlWrapper client;
    client.configureOptions({}, 0);
    client.initSession(1);
    client.onRequest = [&](const CurlRequest& request)
    {
        if (request.payload == "outer")
        {
            sent(client, 1, "inner");
            client.initSession(2);
            client.configureOptions({}, 2);
            client.deInitSession(2);
        }
        return CurlAnswer();
    };
    sent(client, 1, "outer");
    EXPECT_THAT(client.problems(),
                ElementsAre("session 1 used by two threads at once",
                            "session 2 opened while session 1 was sending",
                            "client configured while session 1 was sending",
                            "session 2 closed while session 1 was sending"));
}

TEST(FakeCurlWrapperTest, ThreadsSendAtOnceEachInASessionOfItsOwn)
{
    constexpr unsigned long kThreads = 4;
    constexpr int kQueries = 50;
    FakeCurlWrapper client;
    client.configureOptions({}, 0);
    std::atomic<unsigned long> sending{0};
    client.onRequest = [&](const CurlRequest& request)
    {
        ++sending;
        while (sending < kThreads) // the first queries are under way together
            std::this_thread::yield();
        CurlAnswer answer;
        answer.body = std::to_string(request.sessionId);
        return answer;
    };
    std::vector<std::vector<std::string>> responses(kThreads);
    std::vector<std::thread> threads;
    for (unsigned long id = 0; id < kThreads; ++id)
        client.initSession(id);
    for (unsigned long id = 0; id < kThreads; ++id)
        threads.emplace_back(
            [&, id]
            {
                for (int i = 0; i < kQueries; ++i)
                    responses[id].push_back(sent(client, id).response);
            });
    for (std::thread& thread : threads)
        thread.join();

    for (unsigned long id = 0; id < kThreads; ++id)
        EXPECT_THAT(responses[id], Each("before " + std::to_string(id)));
    EXPECT_EQ(client.requests().size(), kThreads * kQueries);
    EXPECT_THAT(client.problems(), IsEmpty());
}

} // namespace
} // namespace TAV::test
