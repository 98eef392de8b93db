// Thousands of queries from several threads lose nothing and leave nothing behind.

#include <atomic>
#include <filesystem>
#include <iterator>
#include <set>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NginxScene.h"
#include "support/HeapUse.h"

namespace TAV::test
{
namespace
{

using testing::SizeIs;

constexpr unsigned long kThreads = 8;
#ifdef TAV_ADDRESS_SANITIZED
constexpr std::size_t kQueriesOfEach = 150; // each of TLS's many allocations is traced
#else
constexpr std::size_t kQueriesOfEach = 1250;
#endif
constexpr std::size_t kQueries = kThreads * kQueriesOfEach;
/// One query in so many is refused, with a status that the client has no text for.
constexpr std::size_t kRefusedEvery = 10;
constexpr std::size_t kLinesOfFailure = 3;

/// Counts, so that the log itself does not grow.
class CountingLogger : public ILogger
{
public:
    void log(int, std::string) override { ++m_lines; }
    void log(int, std::string, const std::string&) override { ++m_lines; }
    std::size_t lines() const { return m_lines; }

private:
    std::atomic<std::size_t> m_lines{0};
};

/// What came of many queries.
struct Tally
{
    std::atomic<std::size_t> right{0};
    std::size_t logLines = 0;
};

bool askOne(CurlWrapper& client, unsigned long session, std::size_t number)
{
    const bool refused = number % kRefusedEvery == 0;
    const std::string payload = "query " + std::to_string(number) + " of session " + std::to_string(session);
    TAVHTTPHeader header;
    header.firstHeader = refused ? "X-Case: 429" : "X-Case: echo";
    std::string response;
    LumoStats stats = kUntouchedStats;
    const bool success = client.sendNetworkRequest(header, payload, response, session, stats);
    return success != refused && response == (refused ? "missing" : payload) && (stats == kUntouchedStats) == refused;
}

/// One client, a session in each thread. All but one session are closed by hand.
void askInThreads(const TAVQueryConfig& config, std::size_t queriesOfEach, Tally& tally)
{
    CountingLogger logger;
    {
        CurlWrapper client(logger, std::make_shared<CurlAPIUtility>());
        client.configureOptions(config, 0);
        for (unsigned long session = 0; session < kThreads; ++session)
            client.initSession(session);
        std::vector<std::thread> threads;
        for (unsigned long session = 0; session < kThreads; ++session)
            threads.emplace_back(
                [&, session]
                {
                    for (std::size_t number = 0; number < queriesOfEach; ++number)
                        tally.right += askOne(client, session, number) ? 1 : 0;
                });
        for (std::thread& thread : threads)
            thread.join();
        for (unsigned long session = 1; session < kThreads; ++session)
            client.deInitSession(session);
    }
    tally.logLines = logger.lines();
}

std::size_t openDescriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

class ManyQueriesTest : public NginxTest
{
protected:
    static std::vector<NginxSite> sites()
    {
        return {goodSite({echoCase(), {"429", "return 429 'missing';"}}, "keepalive_requests 100000;")};
    }
};

TEST_F(ManyQueriesTest, OfSeveralThreadsLoseNothing)
{
    const NginxServer server(sites());
    Tally tally;

    askInThreads(configTowards(server), kQueriesOfEach, tally);

    EXPECT_EQ(tally.right, kQueries);
    EXPECT_EQ(tally.logLines, kQueries / kRefusedEvery * kLinesOfFailure);
    const std::vector<NginxRequest> requests = server.requests(kQueries);
    std::set<unsigned long> connections;
    for (const NginxRequest& request : requests)
        connections.insert(request.connection);
    EXPECT_EQ(requests.size(), kQueries);
    EXPECT_THAT(connections, SizeIs(kThreads));
}

TEST_F(ManyQueriesTest, OfSeveralThreadsLeaveNothingBehind)
{
    const NginxServer server(sites());
    const TAVQueryConfig config = configTowards(server);
    Tally tally;
    // What the libraries keep for the life of the process, and what lies cached in threads' heaps.
    askInThreads(config, kQueriesOfEach / 10, tally);
    const std::size_t heapBefore = heapInUse();
    const std::size_t descriptorsBefore = openDescriptors();

    askInThreads(config, kQueriesOfEach, tally);

    EXPECT_LT(heapInUse(), heapBefore + kHeapTolerance);
    EXPECT_EQ(openDescriptors(), descriptorsBefore);
}

} // namespace
} // namespace TAV::test
