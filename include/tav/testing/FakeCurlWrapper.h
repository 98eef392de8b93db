#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <curl/curl.h>

#include "tav/CurlWrapper.h"
#include "tav/FMXException.h"
#include "tav/ICurlWrapper.h"
#include "tav/ILogger.h"
#include "tav/testing/Fake.h"
#include "tav/testing/FakeCurlAPIUtility.h"

namespace TAV::test
{

/// One query that was sent.
struct CurlRequest
{
    unsigned long sessionId = 0; ///< over which session
    TAVHTTPHeader header;        ///< its header lines
    std::string payload;         ///< its body
    TAVQueryConfig config;       ///< the options of its session
};

/// What the server answers.
struct CurlAnswer
{
    long status = 200;                  ///< HTTP status; 200 alone is success, 0 means that nothing was answered
    std::string body;                   ///< goes behind what the response holds, whatever the status
    std::uint16_t totalTimeMs = 0;      ///< goes to the figures on success
    std::uint16_t tlsConnectTimeMs = 0; ///< goes to the figures on success
    CURLcode transferResult = CURLE_OK; ///< of no account for the outcome; its text is logged on failure
};

/// A query client without a network. It keeps a table of sessions as `CurlWrapper` does, with the same exceptions, and
/// answers each query as the test says.
///
///     FakeCurlWrapper client;
///     client.onRequest = [](const CurlRequest& request)
///     {
///         CurlAnswer answer;
///         answer.body = verdictFor(request.payload);
///         return answer;
///     };
///     client.failCall("initSession", 2); // the second session cannot be opened
///     ...
///     EXPECT_EQ(client.requests().at(0).config.serverHost, "reputation.example:8443");
///     EXPECT_THAT(client.calls(), Contains("deInitSession(1)"));
///     EXPECT_THAT(client.problems(), IsEmpty());
///
/// Calls are noted as "initSession(ID)", "deInitSession(ID)", "configureOptions(SERVERHOST, ID)" and
/// "sendNetworkRequest(PAYLOAD, ID)".
///
/// **Planned failures.** An operation that can throw does so, with the planned error as the exception's code:
/// `initSession` opens nothing, `configureOptions` has stored the configuration, `sendNetworkRequest` has sent nothing.
/// The first `configureOptions` stores and nothing else: it cannot fail, and no plan counts it. `deInitSession` gives
/// false and the session stays. A query that fails otherwise is an answer with another status.
///
/// **Threads.** As for all fakes; `onRequest` is called with no lock held, by each thread that sends.
class FakeCurlWrapper : public ICurlWrapper, public Fake
{
public:
    using Fake::Fake;

    /// Answers a query. It may block, and what it throws reaches the sender. When not set: `answer`.
    std::function<CurlAnswer(const CurlRequest&)> onRequest;

    /// The answer to every query while `onRequest` is not set.
    CurlAnswer answer;

    /// When set, gets the lines that `CurlWrapper` logs for sessions that are not open and for failed queries. A
    /// program can learn from them alone why a query failed. It must outlive the fake.
    ILogger* logger = nullptr;

    /// The queries by now.
    /// @return those that were sent, in the order of sending
    std::vector<CurlRequest> requests() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_requests;
    }

    /// The open sessions.
    /// @return their ids, in ascending order
    std::vector<unsigned long> sessions() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<unsigned long> ids;
        for (const auto& session : m_sessions)
            ids.push_back(session.first);
        return ids;
    }

    /// The options of a session.
    /// @param sessionId  its id
    /// @return its options; none if it is not open
    std::optional<TAVQueryConfig> configOf(unsigned long sessionId) const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto session = m_sessions.find(sessionId);
        return session == m_sessions.end() ? std::nullopt : std::make_optional(session->second);
    }

    /// The stored configuration.
    /// @return that of the last `configureOptions`; none before the first
    std::optional<TAVQueryConfig> config() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_config;
    }

    /// What was done against the rules of `ICurlWrapper` for threads. Only what really happened at the same time is
    /// seen: let `onRequest` block until all threads are on their way.
    /// @return one text for each time, in order, such as "session 1 used by two threads at once"; empty if all is well
    std::vector<std::string> problems() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_problems;
    }

    void initSession(unsigned long sessionId) override;
    bool deInitSession(unsigned long sessionId) override;
    void configureOptions(const TAVQueryConfig& config, unsigned long sessionId) override;
    bool sendNetworkRequest(TAVHTTPHeader& header,
                            std::string payload,
                            std::string& response,
                            unsigned long sessionId,
                            LumoStats& stats) override;

private:
    /// A query under way: nothing else may use its session.
    class Sending
    {
    public:
        Sending(FakeCurlWrapper& owner, unsigned long sessionId) : m_owner(owner), m_sessionId(sessionId) {}
        Sending(const Sending&) = delete;
        Sending& operator=(const Sending&) = delete;
        ~Sending()
        {
            const std::lock_guard<std::mutex> lock(m_owner.m_mutex);
            m_owner.m_busy.erase(m_owner.m_busy.find(m_sessionId));
        }

    private:
        FakeCurlWrapper& m_owner;
        unsigned long m_sessionId;
    };

    std::optional<CurlRequest> begin(const TAVHTTPHeader& header, std::string payload, unsigned long sessionId);
    void noteUseBesideSending(const std::string& what);
    void logUnknown(unsigned long sessionId, const char* purpose) const;
    void logFailure(const CurlAnswer& failure) const;

    mutable std::mutex m_mutex;
    std::map<unsigned long, TAVQueryConfig> m_sessions;
    std::optional<TAVQueryConfig> m_config;
    std::vector<CurlRequest> m_requests;
    std::multiset<unsigned long> m_busy; ///< the sessions that are sending
    std::vector<std::string> m_problems;
};

inline void FakeCurlWrapper::initSession(unsigned long sessionId)
{
    const auto fault = enter("initSession", std::to_string(sessionId));
    const std::lock_guard<std::mutex> lock(m_mutex);
    noteUseBesideSending("session " + std::to_string(sessionId) + " opened");
    if (fault)
        throw FMXException(*fault, "Failed to initialize curl handle");
    if (!m_config)
        throw FMXException(1, "cURL configuration not set to perform init.");
    m_sessions.emplace(sessionId, *m_config); // one that is open stays as it is, without a word
}

inline bool FakeCurlWrapper::deInitSession(unsigned long sessionId)
{
    const auto fault = enter("deInitSession", std::to_string(sessionId));
    bool isClosed = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        noteUseBesideSending("session " + std::to_string(sessionId) + " closed");
        isClosed = !fault && m_sessions.erase(sessionId) != 0;
    }
    if (!isClosed)
        logUnknown(sessionId, " not found for deinit.");
    return isClosed;
}

inline void FakeCurlWrapper::configureOptions(const TAVQueryConfig& config, unsigned long sessionId)
{
    const std::string arguments = joined({config.serverHost, std::to_string(sessionId)});
    const bool isFirst = !this->config().has_value();
    std::optional<int> fault;
    if (isFirst)
        note("configureOptions", arguments);
    else
        fault = enter("configureOptions", arguments);
    const std::lock_guard<std::mutex> lock(m_mutex);
    noteUseBesideSending("client configured");
    m_config = config;
    if (fault)
        throw FMXException(*fault, "cURL configuration failed while setting proxy config.");
    if (isFirst)
        return; // the id is not looked at
    const auto session = m_sessions.find(sessionId);
    if (session == m_sessions.end())
        throw FMXException(
            1, "cURL session id " + std::to_string(sessionId) + " not found for curl configuration update.");
    session->second.proxyAddress = config.proxyAddress;
    session->second.proxyCredentials = config.proxyCredentials;
    session->second.proxyTunnel = config.proxyTunnel;
}

inline bool FakeCurlWrapper::sendNetworkRequest(
    TAVHTTPHeader& header, std::string payload, std::string& response, unsigned long sessionId, LumoStats& stats)
{
    if (const auto fault = enter("sendNetworkRequest", joined({payload, std::to_string(sessionId)})))
        throw FMXException(*fault, "cURL payload setting failed");
    const auto request = begin(header, std::move(payload), sessionId);
    if (!request)
    {
        logUnknown(sessionId, " not found to perform query.");
        return false;
    }
    const Sending sending(*this, sessionId);
    const CurlAnswer given = onRequest ? onRequest(*request) : answer;
    response += given.body;
    if (given.status != 200)
    {
        logFailure(given);
        return false;
    }
    stats.tlsConnectTimeMs = given.tlsConnectTimeMs;
    stats.totalTimeMs = given.totalTimeMs;
    return true;
}

/// Notes the query and that its session is sending; none if the session is not open.
inline std::optional<CurlRequest>
FakeCurlWrapper::begin(const TAVHTTPHeader& header, std::string payload, unsigned long sessionId)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto session = m_sessions.find(sessionId);
    if (session == m_sessions.end())
        return std::nullopt;
    if (m_busy.count(sessionId) != 0)
        m_problems.push_back("session " + std::to_string(sessionId) + " used by two threads at once");
    CurlRequest request{sessionId, header, std::move(payload), session->second};
    m_requests.push_back(request);
    m_busy.insert(sessionId);
    return request;
}

/// To be called with the lock held.
inline void FakeCurlWrapper::noteUseBesideSending(const std::string& what)
{
    if (!m_busy.empty())
        m_problems.push_back(what + " while session " + std::to_string(*m_busy.begin()) + " was sending");
}

inline void FakeCurlWrapper::logUnknown(unsigned long sessionId, const char* purpose) const
{
    if (logger != nullptr)
        logger->log(2, "cURL session id " + std::to_string(sessionId) + purpose);
}

/// The lines are the real client's own: it asks once, over a call layer that gives this answer.
inline void FakeCurlWrapper::logFailure(const CurlAnswer& failure) const
{
    if (logger == nullptr)
        return;
    const auto api = std::make_shared<FakeCurlAPIUtility>();
    api->numbers[CURLINFO_RESPONSE_CODE] = failure.status;
    api->texts[failure.transferResult] = curl_easy_strerror(failure.transferResult);
    if (failure.transferResult != CURLE_OK)
        api->failCall("curlEasyPerform", 1, failure.transferResult);
    CurlWrapper client(*logger, api);
    client.configureOptions({}, 0);
    client.initSession(0);
    TAVHTTPHeader header;
    std::string response;
    LumoStats stats;
    client.sendNetworkRequest(header, "", response, 0, stats);
}

} // namespace TAV::test
