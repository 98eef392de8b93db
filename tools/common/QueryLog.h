#pragma once

#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tav/ILogger.h"

namespace programs
{

/// A line as the client logged it.
struct QueryLine
{
    int level = 0;
    std::string component;
    std::string message;
};

/// The client's logger. It passes each line on, and keeps it for the thread that logged it: a failed query tells its
/// reason nowhere else.
class QueryLog : public TAV::ILogger
{
public:
    /// @param next  gets every line; must outlive this object
    explicit QueryLog(TAV::ILogger& next) : m_next(next) {}

    void log(int level, std::string message) override;
    void log(int level, std::string component, const std::string& message) override;

    /// What this thread has logged since it last asked.
    std::vector<QueryLine> takeLines();

private:
    void keep(QueryLine line);

    TAV::ILogger& m_next;
    std::mutex m_mutex;
    std::map<std::thread::id, std::vector<QueryLine>> m_lines;
};

/// Why a query failed, read from the lines that the client logs about it.
struct QueryFailure
{
    long status = 0;        ///< of the answer; 0 if there was none
    std::string statusText; ///< its reason; empty for one that the client does not know
    std::string transfer;   ///< libcurl's text; "No error" if an answer came that is no success
    std::string refusal;    ///< for a query that was not sent: the client's last line

    /// The one reason, for people.
    std::string cause() const;
};

QueryFailure failureIn(const std::vector<QueryLine>& lines);

} // namespace programs
