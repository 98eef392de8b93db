#include "endpoint_scan/TicketDuringScan.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <thread>

#include "endpoint_scan/ServerVerdicts.h"
#include "tav/testing/RecordingLogger.h"

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
constexpr const char* kNoAnswer = "Failed to connect to Lumo server: Failure when receiving data from the peer";

/// What goes on between the programs' parts: a proxy that lets questions pass or not, and a KDC that gives tickets or
/// not.
struct World
{
    std::atomic<bool> doesProxyRefuse{false};
    std::atomic<long> status{200}; ///< of the server's answers
    bool doesKdcGive = true;
    std::function<void()> onRenewal = [] {};
    std::atomic<int> asking{0};
    std::atomic<int> questions{0};
    std::atomic<int> renewals{0};
    std::atomic<int> renewalsAmongQuestions{0};
    std::vector<std::string> principals; ///< of the first renewals
};

class FakeHandler : public TAV::IkrbHandler
{
public:
    explicit FakeHandler(World& world) : m_world(world) {}

    bool configKrbSession(TAV::TAVProxyConfig& config) override
    {
        m_world.principals.push_back(config.userPrincipal);
        return m_world.doesKdcGive;
    }

    bool renewTicket() override
    {
        ++m_world.renewals;
        if (m_world.asking != 0)
            ++m_world.renewalsAmongQuestions;
        m_world.onRenewal();
        return m_world.doesKdcGive;
    }

private:
    World& m_world;
};

class FakeClient : public TAV::ICurlWrapper
{
public:
    FakeClient(World& world, programs::QueryLog& log, std::string& proxy) : m_world(world), m_log(log), m_proxy(proxy)
    {
    }

    void initSession(unsigned long) override {}
    bool deInitSession(unsigned long) override { return true; }
    void configureOptions(const TAV::TAVQueryConfig& config, unsigned long) override { m_proxy = config.proxyAddress; }

    bool sendNetworkRequest(
        TAV::TAVHTTPHeader&, std::string payload, std::string& response, unsigned long, TAV::LumoStats&) override
    {
        ++m_world.asking;
        ++m_world.questions;
        std::this_thread::yield();
        const long status = m_world.doesProxyRefuse ? 0 : m_world.status.load();
        if (status != 200)
        {
            m_log.log(6, "CurlWrapper", status == 0 ? kNoAnswer : "Failed to connect to Lumo server: No error");
            m_log.log(
                6, "CurlWrapper", "Last HTTP response code received from Lumo server is: " + std::to_string(status));
        }
        else
            response =
                nlohmann::json{{"sha256", nlohmann::json::parse(payload).at("sha256")}, {"verdict", "clean"}}.dump();
        --m_world.asking;
        return status == 200;
    }

private:
    World& m_world;
    programs::QueryLog& m_log;
    std::string& m_proxy;
};

class TicketDuringScanTest : public ::testing::Test
{
protected:
    /// Makes the source of verdicts, with the first ticket or without it.
    std::string begin()
    {
        TAV::TAVProxyConfig config;
        config.userPrincipal = "user@A.EXAMPLE";
        auto ticket = std::make_unique<TicketDuringScan>(std::make_unique<programs::KrbTicket>(
            std::make_unique<programs::QueryLog>(m_logger),
            std::make_unique<FakeHandler>(m_world),
            [] { return programs::krbFailure(KRB5_KDC_UNREACH, ""); },
            config));
        std::string obstacle = ticket->begin();
        auto log = std::make_unique<programs::QueryLog>(m_logger);
        auto client = std::make_unique<FakeClient>(m_world, *log, m_proxy);
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

    RecordingLogger m_logger;
    World m_world;
    std::string m_proxy;
    std::unique_ptr<ServerVerdicts> m_verdicts;
};

TEST_F(TicketDuringScanTest, GetsTheFirstTicketBeforeAnythingIsAsked)
{
    EXPECT_THAT(begin(), IsEmpty());
    EXPECT_THAT(m_world.principals, ElementsAre("user@A.EXAMPLE"));
    EXPECT_EQ(m_proxy, "proxy:2");
    EXPECT_EQ(ask().verdict, Verdict::Clean);
    EXPECT_EQ(m_world.renewals, 0);
}

TEST_F(TicketDuringScanTest, SilenceIsFollowedByARenewalAndTheSameQuestion)
{
    begin();
    m_world.doesProxyRefuse = true;
    m_world.onRenewal = [this] { m_world.doesProxyRefuse = false; };
    const Opinion opinion = ask();
    EXPECT_EQ(opinion.verdict, Verdict::Clean);
    EXPECT_THAT(opinion.reason, IsEmpty());
    EXPECT_EQ(m_world.renewals, 1);
    EXPECT_EQ(m_world.questions, 2);
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
    EXPECT_EQ(m_world.renewals, 1);
    EXPECT_EQ(m_world.questions, 6);
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
    EXPECT_EQ(m_world.renewals, 1);
    EXPECT_EQ(m_world.questions, 2) << "without a new ticket it is useless to ask again";
}

TEST_F(TicketDuringScanTest, AnAnswerMakesALaterRenewalWorthwhile)
{
    begin();
    m_world.onRenewal = [this] { m_world.doesProxyRefuse = false; };
    for (int renewals = 1; renewals <= 3; ++renewals)
    {
        m_world.doesProxyRefuse = true;
        EXPECT_EQ(ask().verdict, Verdict::Clean);
        EXPECT_EQ(m_world.renewals, renewals);
    }
}

TEST_F(TicketDuringScanTest, AnyStatusIsAnAnswer)
{
    begin();
    m_world.status = 503;
    EXPECT_EQ(ask().reason, "HTTP 503");
    EXPECT_EQ(m_world.renewals, 0);
    EXPECT_EQ(m_world.questions, 1);
}

TEST_F(TicketDuringScanTest, WithoutAFirstTicketItIsTriedAllTheSame)
{
    m_world.doesKdcGive = false;
    EXPECT_THAT(begin(), HasSubstr("no ticket for user@A.EXAMPLE: no KDC can be reached. See that the KDC runs"));
    EXPECT_EQ(ask().verdict, Verdict::Clean) << "the proxy may let it pass without";
    m_world.doesProxyRefuse = true;
    m_world.doesKdcGive = true;
    EXPECT_EQ(ask().verdict, Verdict::Unknown);
    EXPECT_EQ(m_world.renewals, 1) << "after an answer it is worth trying";
}

TEST_F(TicketDuringScanTest, AFirstFailureIsNotRepeatedByTheQuestions)
{
    m_world.doesKdcGive = false;
    m_world.doesProxyRefuse = true;
    begin();
    EXPECT_THAT(ask().reason, HasSubstr("no ticket for user@A.EXAMPLE"));
    EXPECT_EQ(m_world.renewals, 0) << "a wrong password, given again and again, locks an account";
}

TEST_F(TicketDuringScanTest, OneRenewalServesAllThreads)
{
    begin();
    m_world.doesProxyRefuse = true;
    m_world.onRenewal = [this] { m_world.doesProxyRefuse = false; };
    constexpr std::size_t kTimes = 200;
    const std::vector<Opinion> opinions = askFromAllThreads(kTimes);
    EXPECT_THAT(opinions, Each(::testing::Field(&Opinion::verdict, Verdict::Clean)));
    EXPECT_EQ(m_world.renewals, 1);
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
    EXPECT_GE(m_world.renewals, 5);
    EXPECT_EQ(m_world.renewalsAmongQuestions, 0);
}

} // namespace
} // namespace endpointscan
