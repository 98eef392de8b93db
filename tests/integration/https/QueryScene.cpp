#include "QueryScene.h"

#include <iterator>
#include <memory>
#include <ostream>
#include <tuple>
#include <utility>

namespace TAV
{
namespace
{

auto asTuple(const LumoStats& stats)
{
    return std::tie(stats.attempts, stats.queueTimeMs, stats.totalTimeMs, stats.tlsConnectTimeMs);
}

} // namespace

bool operator==(const LumoStats& a, const LumoStats& b)
{
    return asTuple(a) == asTuple(b);
}

std::ostream& operator<<(std::ostream& out, const LumoStats& stats)
{
    return out << "{" << stats.attempts << ", " << stats.queueTimeMs << ", " << stats.totalTimeMs << ", "
               << stats.tlsConnectTimeMs << "}";
}

} // namespace TAV

namespace TAV::test
{
namespace
{

constexpr int kDetailLevel = 6;

/// The result of the last transfer of this thread.
thread_local CURLcode lastTransfer = CURLE_AGAIN;

class WatchedCurlAPIUtility : public CurlAPIUtility
{
public:
    CURLcode curlEasyPerform(void* handle) override
    {
        lastTransfer = CurlAPIUtility::curlEasyPerform(handle);
        return lastTransfer;
    }
};

} // namespace

bool isSuccess(const QueryOutcome& outcome)
{
    const LumoStats& stats = outcome.stats;
    return outcome.success && outcome.log.empty() && stats.attempts == kUntouchedStats.attempts &&
           stats.queueTimeMs == kUntouchedStats.queueTimeMs && stats.totalTimeMs != kUntouchedStats.totalTimeMs &&
           stats.tlsConnectTimeMs != kUntouchedStats.tlsConnectTimeMs;
}

bool isSuccess(const QueryOutcome& outcome, const std::string& response)
{
    return isSuccess(outcome) && outcome.response == response;
}

bool isFailure(const QueryOutcome& outcome, const std::vector<LogLine>& log, const std::string& response)
{
    return !outcome.success && outcome.log == log && outcome.response == response && outcome.stats == kUntouchedStats;
}

std::vector<LogLine> failureLog(CURLcode transfer, long status, const std::string& statusText)
{
    const std::string component = "CurlWrapper";
    return {
        {kDetailLevel, component, std::string("Failed to connect to Lumo server: ") + curl_easy_strerror(transfer)},
        {kDetailLevel, component, "Last HTTP response code received from Lumo server is: " + std::to_string(status)},
        {kDetailLevel, component, "Last HTTP response message received from Lumo server is: " + statusText},
    };
}

std::vector<LogLine> noStatusLog(CURLcode transfer)
{
    return failureLog(transfer, 0, "Connection Could Not Be Established");
}

TAVQueryConfig configTowards(std::uint16_t port, const std::string& caFile)
{
    TAVQueryConfig config;
    config.requestType = "POST";
    config.caCertPath = caFile;
    // Generous: a limit for a test that would hang otherwise.
    config.timeout = 60;
    config.serverHost = "127.0.0.1:" + std::to_string(port);
    return config;
}

QueryScene::QueryScene(const TAVQueryConfig& config) : client(logger, std::make_shared<WatchedCurlAPIUtility>())
{
    client.configureOptions(config, kSession);
    client.initSession(kSession);
}

QueryOutcome QueryScene::ask(Query query, unsigned long sessionId)
{
    const std::size_t linesBefore = logger.lines().size();
    QueryOutcome outcome;
    outcome.response = std::move(query.response);
    outcome.success =
        client.sendNetworkRequest(query.header, std::move(query.payload), outcome.response, sessionId, outcome.stats);
    outcome.transfer = lastTransfer;
    std::vector<LogLine> lines = logger.lines();
    outcome.log.assign(std::make_move_iterator(lines.begin() + static_cast<std::ptrdiff_t>(linesBefore)),
                       std::make_move_iterator(lines.end()));
    return outcome;
}

} // namespace TAV::test
