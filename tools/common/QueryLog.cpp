#include "common/QueryLog.h"

#include <cstdlib>
#include <utility>

namespace programs
{
namespace
{

// How the lines begin that the client logs for a query without success.
constexpr const char* kTransfer = "Failed to connect to Lumo server: ";
constexpr const char* kStatus = "Last HTTP response code received from Lumo server is: ";
constexpr const char* kStatusText = "Last HTTP response message received from Lumo server is: ";

/// Whether `line` begins so; `rest` then receives what follows.
bool startsWith(const std::string& line, const std::string& beginning, std::string& rest)
{
    if (line.rfind(beginning, 0) != 0)
        return false;
    rest = line.substr(beginning.size());
    return true;
}

} // namespace

void QueryLog::log(int level, std::string message)
{
    m_next.log(level, message);
    keep({level, "", std::move(message)});
}

void QueryLog::log(int level, std::string component, const std::string& message)
{
    m_next.log(level, component, message);
    keep({level, std::move(component), message});
}

void QueryLog::keep(QueryLine line)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines[std::this_thread::get_id()].push_back(std::move(line));
}

std::vector<QueryLine> QueryLog::takeLines()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_lines[std::this_thread::get_id()], {});
}

QueryFailure failureIn(const std::vector<QueryLine>& lines)
{
    QueryFailure failure;
    for (const QueryLine& line : lines)
    {
        std::string status;
        if (startsWith(line.message, kStatus, status))
            failure.status = std::strtol(status.c_str(), nullptr, 10);
        else if (!startsWith(line.message, kTransfer, failure.transfer) &&
                 !startsWith(line.message, kStatusText, failure.statusText))
            failure.refusal = line.message;
    }
    return failure;
}

std::string QueryFailure::cause() const
{
    if (status != 0)
        return "HTTP " + std::to_string(status) + (statusText.empty() ? "" : " " + statusText);
    if (!transfer.empty())
        return "no answer: " + transfer;
    return refusal.empty() ? "failed without a reason" : refusal;
}

} // namespace programs
