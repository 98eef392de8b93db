#include "tavctl/QueryReport.h"

#include <algorithm>

#include "common/Text.h"
#include "tavctl/Console.h"

namespace tavctl
{
namespace
{

constexpr long kSuccessStatus = 200;

/// The total times of all requests that were answered.
struct Spread
{
    unsigned int least = 0;
    unsigned int median = 0;
    unsigned int most = 0;
};

Spread spreadOf(const std::vector<TAV::LumoStats>& answered)
{
    std::vector<unsigned int> times;
    times.reserve(answered.size());
    for (const TAV::LumoStats& stats : answered)
        times.push_back(stats.totalTimeMs);
    std::sort(times.begin(), times.end());
    return {times.front(), times[times.size() / 2], times.back()};
}

/// How many requests did without a TLS handshake, as their connection was kept.
std::size_t countKept(const std::vector<TAV::LumoStats>& answered)
{
    return static_cast<std::size_t>(std::count_if(
        answered.begin(), answered.end(), [](const TAV::LumoStats& stats) { return stats.tlsConnectTimeMs == 0; }));
}

std::size_t countAll(const QueryReport& report)
{
    return report.answered.size() + report.failed;
}

std::string milliseconds(unsigned int time)
{
    return std::to_string(time) + " ms";
}

std::string outcomeText(const QueryReport& report)
{
    std::string text = report.isSuccess() ? "success: HTTP " + std::to_string(kSuccessStatus)
                                          : "failure: " + programs::printable(failureIn(report.lines).cause());
    if (countAll(report) > 1)
        text += " (" + std::to_string(report.answered.size()) + " of " + std::to_string(countAll(report)) +
                " requests successful)";
    return text + "\n";
}

std::string timesText(const std::vector<TAV::LumoStats>& answered)
{
    if (answered.empty())
        return "";
    const TAV::LumoStats& first = answered.front();
    if (answered.size() == 1)
        return "total    " + milliseconds(first.totalTimeMs) + "\n" + "tls      " +
               milliseconds(first.tlsConnectTimeMs) + "\n";
    const Spread spread = spreadOf(answered);
    return "total    first " + milliseconds(first.totalTimeMs) + "; of all: min " + std::to_string(spread.least) +
           ", median " + std::to_string(spread.median) + ", max " + milliseconds(spread.most) + "\n" +
           "tls      first " + milliseconds(first.tlsConnectTimeMs) + "; 0 ms in " +
           std::to_string(countKept(answered)) + " requests, over a kept connection\n";
}

nlohmann::json timesJson(const std::vector<TAV::LumoStats>& answered)
{
    const TAV::LumoStats& first = answered.front();
    const Spread spread = spreadOf(answered);
    return {{"first", {{"total_ms", first.totalTimeMs}, {"tls_connect_ms", first.tlsConnectTimeMs}}},
            {"total_ms", {{"min", spread.least}, {"median", spread.median}, {"max", spread.most}}},
            {"without_tls_connect", countKept(answered)}};
}

nlohmann::json failureJson(const std::vector<programs::QueryLine>& lines)
{
    const programs::QueryFailure failure = failureIn(lines);
    nlohmann::json log = nlohmann::json::array();
    for (const programs::QueryLine& line : lines)
        log.push_back({{"level", line.level}, {"component", line.component}, {"message", line.message}});
    return {{"cause", failure.cause()},
            {"status", failure.status},
            {"status_text", failure.statusText},
            {"transfer", failure.transfer},
            {"log", std::move(log)}};
}

} // namespace

void QueryReport::addFailure(std::vector<programs::QueryLine> failureLines)
{
    ++failed;
    lines = std::move(failureLines);
}

std::string textOf(const QueryReport& report, const std::string& output)
{
    std::string text = "outcome  " + outcomeText(report) + timesText(report.answered) + "body     " +
                       std::to_string(report.body.size()) + " bytes";
    if (!output.empty())
        return text + " into " + programs::printable(output) + "\n";
    text += "\n" + report.body;
    return text.back() == '\n' ? text : text + "\n";
}

nlohmann::json jsonOf(const QueryReport& report, const std::string& output)
{
    nlohmann::json json{{"server", report.server},
                        {"success", report.isSuccess()},
                        {"requests", countAll(report)},
                        {"answered", report.answered.size()},
                        {"body_bytes", report.body.size()}};
    if (output.empty())
        addBytes(json, "body", report.body);
    else
        addBytes(json, "output", output);
    if (!report.answered.empty())
        json["times"] = timesJson(report.answered);
    if (!report.isSuccess())
        json["failure"] = failureJson(report.lines);
    return json;
}

} // namespace tavctl
