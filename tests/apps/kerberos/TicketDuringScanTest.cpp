#include "endpoint_scan/TicketDuringScan.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <thread>

#include "endpoint_scan/ServerVerdicts.h"
#include "tav/testing/FakeCurlWrapper.h"
#include "tav/testing/FakeKrbHandler.h"
#include "tav/testing/RecordingLogger.h"

using TAV::test::CurlAnswer;
using TAV::test::CurlRequest;
using TAV::test::FakeCurlWrapper;
using TAV::test::FakeKrbHandler;
using TAV::test::RecordingLogger;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace endpointscan
{
namespace
{

constexpr std::size_t kAskers = 4;

/// What goes on between the programs' parts: a proxy that lets questions pass or not, and a KDC that gives tickets or
/// not.
struct World
{
    std::atomic<bool> doesProxyRefuse{false};
    std::atomic<long> status{200}; ///< of the server's answers
    bool doesKdcGive = true;
    std::function<void()> onRenewal = [] {};
    std::atomic<int> asking{0};
    std::atomic<int> renewalsAmongQuestions{0};
};

/// Tells the world how many questions are on their way, to the very end of each.
class CountedClient : public FakeCurlWrapper
{
public:
    explicit CountedClient(World& world) : m_world(world) {}

    bool sendNetworkRequest(TAV::TAVHTTPHeader& header,
                            std::string payload,
                            std::string& response,
                            unsigned long sessionId,
                            TAV::LumoStats& stats) override
    {
        ++m_world.asking;
        const bool result = FakeCurlWrapper::sendNetworkRequest(header, payload, response, sessionId, stats);
        --m_world.asking;
        return result;
    }

private:
    World& m_world;
};

class TicketDuringScanTest : public ::testing::Test
{
protected:
    /// Makes the source of verdicts, with the first ticket or without it.
    std::string begin()
    {
        TAV::TAVProxyConfig config;
        config.userPrincipal = "user@A.EXAMPLE";
        auto handler = std::make_unique<FakeKrbHandler>();
        handler->onRenewTicket = [this] { return renewed(); };
        m_handler = handler.get();
        auto ticket = std::make_unique<TicketDuringScan>(std::make_unique<programs::KrbTicket>(
            std::make_unique<programs::QueryLog>(m_logger),
            std::move(handler),
            [] { return programs::krbFailure(KRB5_KDC_UNREACH, ""); },
            config));
        std::string obstacle = ticket->begin();
        auto log = std::make_unique<programs::QueryLog>(m_logger);
        auto client = std::make_unique<CountedClient>(m_world);
        client->logger = log.get();
        client->onRequest = [this](const CurlRequest& request) { return answered(request); };
        m_client = client.get();
        m_verdicts = std::make_unique<ServerVerdicts>(
            std::move(log), std::move(client), ServerAddress{"host:1", "/ca", 7, "proxy:2"}, std::move(ticket));
        m_verdicts->prepare(kAskers);
        return obstacle;
    }

    Opinion ask(std::size_t asker = 0) { return m_verdicts->ask(std::string(64, 'a'), asker); }

    /// Lets all askers ask so often, at once.
    std::vector<Opinion> askFromAllThreads(std::size_t times)
    {
        std::vector<Opinion> opinions(kAskers * times);
        std::vector<std::thread> threads;
        for (std::size_t asker = 0; asker < kAskers; ++asker)
            threads.emplace_back(
                [&, asker]
                {
                    for (std::size_t i = 0; i < times; ++i)
                        opinions[asker * times + i] = ask(asker);
                });
        for (std::thread& thread : threads)
            thread.join();
        return opinions;
    }

    /// Those after the first ticket.
    unsigned int renewals() const { return m_handler->countOf("renewTicket") - 1; }
    std::size_t questions() const { return m_client->requests().size(); }

    RecordingLogger m_logger;
    World m_world;
    FakeKrbHandler* m_handler = nullptr;
    FakeCurlWrapper* m_client = nullptr;
    std::unique_ptr<ServerVerdicts> m_verdicts;

private:
    bool renewed()
    {
        if (m_world.asking != 0)
            ++m_world.renewalsAmongQuestions;
        m_world.onRenewal();
        return m_world.doesKdcGive;
    }

    CurlAnswer answered(const CurlRequest& request)
    {
        std::this_thread::yield();
        CurlAnswer answer;
        answer.status = m_world.doesProxyRefuse ? 0 : m_world.status.load();
        answer.transferResult = answer.status == 0 ? CURLE_RECV_ERROR : CURLE_OK;
        const std::string digest = nlohmann::json::parse(request.payload).at("sha256");
        if (answer.status == 200)
            answer.body = nlohmann::json{{"sha256", digest}, {"verdict", "clean"}}.dump();
        return answer;
    }
};

TEST_F(TicketDuringScanTest, GetsTheFirstTicketBeforeAnythingIsAsked)
{
    EXPECT_THAT(begin(), IsEmpty());
    EXPECT_THAT(m_handler->calls(), ElementsAre("configKrbSession(user@A.EXAMPLE)", "renewTicket()"));
    EXPECT_THAT(m_client->requests(), IsEmpty());
    EXPECT_EQ(m_client->config()->proxyAddress, "proxy:2");
    EXPECT_EQ(ask().verdict, Verdict::Clean);
    EXPECT_EQ(renewals(), 0U);
}

TEST_F(TicketDuringScanTest, SilenceIsFollowedByARenewalAndTheSameQuestion)
{
    begin();
    m_world.doesProxyRefuse = true;
    m_world.onRenewal = [this] { m_world.doesProxyRefuse = false; };
    const Opinion opinion = ask();
    EXPECT_EQ(opinion.verdict, Verdict::Clean);
    EXPECT_THAT(opinion.reason, IsEmpty());
    EXPECT_EQ(renewals(), 1U);
    EXPECT_EQ(questions(), 2U);
}

TEST_F(TicketDuringScanTest, ARenewalThatDidNotHelpIsNotTriedAgain)
{
    begin();
    m_world.doesProxyRefuse = true;
    for (int i = 0; i < 5; ++i)
    {
        const Opinion opinion = ask();
        EXPECT_EQ(opinion.verdict, Verdict::Unknown);
        EXPECT_EQ(opinion.reason, "no answer: Failure when receiving data from the peer");
    }
    EXPECT_EQ(renewals(), 1U);
    EXPECT_EQ(questions(), 6U);
}

TEST_F(TicketDuringScanTest, AFailedRenewalStandsInEveryReason)
{
    begin();
    m_world.doesProxyRefuse = true;
    m_world.doesKdcGive = false;
    const std::string reason = "no answer: Failure when receiving data from the peer; no ticket for user@A.EXAMPLE: no "
                               "KDC can be reached";
    EXPECT_EQ(ask().reason, reason);
    EXPECT_EQ(ask().reason, reason);
    EXPECT_EQ(renewals(), 1U);
    EXPECT_EQ(questions(), 2U) << "without a new ticket it is useless to ask again";
}

TEST_F(TicketDuringScanTest, AnAnswerMakesALaterRenewalWorthwhile)
{
    begin();
    m_world.onRenewal = [this] { m_world.doesProxyRefuse = false; };
    for (unsigned int count = 1; count <= 3; ++count)
    {
        m_world.doesProxyRefuse = true;
        EXPECT_EQ(ask().verdict, Verdict::Clean);
        EXPECT_EQ(renewals(), count);
    }
}

TEST_F(TicketDuringScanTest, AnyStatusIsAnAnswer)
{
    begin();
    m_world.status = 503;
    EXPECT_EQ(ask().reason, "HTTP 503 Service Unavailable");
    EXPECT_EQ(renewals(), 0U);
    EXPECT_EQ(questions(), 1U);
}

TEST_F(TicketDuringScanTest, WithoutAFirstTicketItIsTriedAllTheSame)
{
    m_world.doesKdcGive = false;
    EXPECT_THAT(begin(), HasSubstr("no ticket for user@A.EXAMPLE: no KDC can be reached. See that the KDC runs"));
    EXPECT_EQ(ask().verdict, Verdict::Clean) << "the proxy may let it pass without";
    m_world.doesProxyRefuse = true;
    m_world.doesKdcGive = true;
    EXPECT_EQ(ask().verdict, Verdict::Unknown);
    EXPECT_EQ(renewals(), 1U) << "after an answer it is worth trying";
}

TEST_F(TicketDuringScanTest, AFirstFailureIsNotRepeatedByTheQuestions)
{
    m_world.doesKdcGive = false;
    m_world.doesProxyRefuse = true;
    begin();
    EXPECT_THAT(ask().reason, HasSubstr("no ticket for user@A.EXAMPLE"));
    EXPECT_EQ(renewals(), 0U) << "a wrong password, given again and again, locks an account";
}

TEST_F(TicketDuringScanTest, OneRenewalServesAllThreads)
{
    begin();
    m_world.doesProxyRefuse = true;
    m_world.onRenewal = [this] { m_world.doesProxyRefuse = false; };
    constexpr std::size_t kTimes = 200;
    const std::vector<Opinion> opinions = askFromAllThreads(kTimes);
    EXPECT_THAT(opinions, Each(::testing::Field(&Opinion::verdict, Verdict::Clean)));
    EXPECT_EQ(renewals(), 1U);
}

TEST_F(TicketDuringScanTest, NobodyAsksWhileTheTicketIsRenewed)
{
    begin();
    std::atomic<int> countdown{0};
    m_world.onRenewal = [&]
    {
        std::this_thread::yield();
        if (m_world.asking != 0)
            ++m_world.renewalsAmongQuestions;
        m_world.doesProxyRefuse = false;
        countdown = 20;
    };
    m_world.doesProxyRefuse = true;
    std::vector<std::thread> threads;
    for (std::size_t asker = 0; asker < kAskers; ++asker)
        threads.emplace_back(
            [&, asker]
            {
                for (int i = 0; i < 200; ++i)
                {
                    ask(asker);
                    if (--countdown == 0)
                        m_world.doesProxyRefuse = true;
                }
            });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GE(renewals(), 5U);
    EXPECT_EQ(m_world.renewalsAmongQuestions, 0);
}

} // namespace
} // namespace endpointscan
