#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "tav/CurlAPIUtility.h"
#include "tav/CurlWrapper.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV
{

// Beside the record, where they are looked for.
bool operator==(const LumoStats& a, const LumoStats& b);
std::ostream& operator<<(std::ostream& out, const LumoStats& stats);

} // namespace TAV

namespace TAV::test
{

/// What is asked. The defaults do for a test that looks at the answer only.
struct Query
{
    std::string payload = "a question";
    TAVHTTPHeader header;
    std::string response; ///< what the response holds before
};

/// Figures that no query yields, so that what it wrote can be told from what it left alone.
inline constexpr LumoStats kUntouchedStats{11, 22, 65001, 65002};

/// How a query ended.
struct QueryOutcome
{
    bool success = false;
    std::string response;
    LumoStats stats = kUntouchedStats;
    std::vector<LogLine> log;        ///< what was logged meanwhile
    CURLcode transfer = CURLE_AGAIN; ///< what libcurl made of the transfer, which the client keeps to itself on success
};

/// Succeeded, nothing logged, both timings written and nothing else in the figures.
bool isSuccess(const QueryOutcome& outcome);

/// The same, with this in the response.
bool isSuccess(const QueryOutcome& outcome, const std::string& response);

/// Failed, with these lines, this in the response, and the figures untouched.
bool isFailure(const QueryOutcome& outcome, const std::vector<LogLine>& log, const std::string& response = "");

/// The three lines of a failed query.
/// @param transfer    what libcurl made of the transfer
/// @param statusText  as the client knows it; many it does not
std::vector<LogLine> failureLog(CURLcode transfer, long status, const std::string& statusText);

/// The same for a query to which no status came back.
std::vector<LogLine> noStatusLog(CURLcode transfer);

/// POST to a server of this machine, with all verifications.
TAVQueryConfig configTowards(std::uint16_t port, const std::string& caFile);

/// The production client with one session open, and what it logs.
///
///     QueryScene scene(configTowards(server.port(), authority.caFile()));
///     const QueryOutcome outcome = scene.ask();
///     EXPECT_TRUE(isSuccess(outcome));
struct QueryScene
{
    static constexpr unsigned long kSession = 1;

    explicit QueryScene(const TAVQueryConfig& config);

    /// Asks on an open session. Safe in several threads for different sessions, but for `log`, which is everybody's.
    QueryOutcome ask(Query query = {}, unsigned long sessionId = kSession);

    RecordingLogger logger;
    CurlWrapper client;
};

} // namespace TAV::test
