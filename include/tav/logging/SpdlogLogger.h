#pragma once

#include <spdlog/logger.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "tav/ILogger.h"
#include "tav/logging/OneLine.h"

namespace TAV
{

/// Which of spdlog's levels a line of the library gets.
///
/// Level 6 is `info`, not `debug`: the library tells the reasons of failed queries, renewals and CPU limits at 6 and
/// nowhere else, and spdlog drops `debug` unless told otherwise. Level 5 is `info`, too: spdlog has nothing between
/// `info` and `warn`, and a renewed ticket is no warning. Through spdlog's own syslog sink, 5 and 6 thus arrive as
/// syslog's informational, and 2 as its error.
struct SpdlogLevels
{
    spdlog::level::level_enum failure = spdlog::level::err;  ///< for 2, and whatever is below
    spdlog::level::level_enum notable = spdlog::level::info; ///< for 5, and 3 and 4
    spdlog::level::level_enum detail = spdlog::level::info;  ///< for 6, and whatever is above
};

/// Hands each line to a logger of spdlog's, and so to files, consoles, syslog, the systemd journal, or all of them.
///
///     auto target = spdlog::rotating_logger_mt("exampled", "/var/log/exampled.log", 10 << 20, 5);
///     TAV::SpdlogLevels levels;
///     levels.detail = spdlog::level::debug;
///     TAV::SpdlogLogger logger(target, levels);
///
/// A line reads "[TAVUtils] text", or "text" if it has no component, and is always one line: newlines, other control
/// characters and bytes that are not UTF-8 become "\x0a" and the like. Braces and "%" are ordinary characters. The text
/// is handed on whole, however long.
///
/// The program links spdlog itself (`spdlog::spdlog` or `spdlog::spdlog_header_only`); nothing else of the library
/// needs it.
///
/// **Ownership.** The logger of spdlog's is shared with the program.
///
/// **Threads.** As spdlog allows it: from any thread if its sinks are those named "_mt".
///
/// **Fork.** Sinks named "_mt" lock. In a child that was forked while another thread was logging, that lock stays taken
/// for good: the child, and whoever waits for it, hangs. An asynchronous logger has no thread in the child, so its
/// lines are lost there, and a full queue blocks. Lines that wait in a buffer at the fork may be written twice: flush
/// each one. Where commands run beside threads that log, refuse programs that cannot start before you run them, or use
/// a logger that takes no lock.
///
/// **Failure.** A sink that fails is reported to spdlog's error handler. Nothing is thrown but for want of memory.
class SpdlogLogger : public ILogger
{
public:
    /// @param target  gets every line
    /// @param levels  at which level
    /// @throws std::invalid_argument  if there is no target
    explicit SpdlogLogger(std::shared_ptr<spdlog::logger> target, SpdlogLevels levels = {})
        : m_target(std::move(target)), m_levels(levels)
    {
        if (m_target == nullptr)
            throw std::invalid_argument("SpdlogLogger: no logger to hand the lines to");
    }

    void log(int level, std::string message) override
    {
        if (isWanted(level))
            send(level, message);
    }

    void log(int level, std::string component, const std::string& message) override
    {
        if (isWanted(level))
            send(level, "[" + component + "] " + message);
    }

private:
    spdlog::level::level_enum levelOf(int level) const
    {
        constexpr int kFailure = 2;
        constexpr int kNotable = 5;
        if (level <= kFailure)
            return m_levels.failure;
        return level <= kNotable ? m_levels.notable : m_levels.detail;
    }

    /// Spares the work on lines that go nowhere.
    bool isWanted(int level) const { return m_target->should_log(levelOf(level)) || m_target->should_backtrace(); }

    void send(int level, const std::string& text)
    {
        // As a text, not as a format.
        m_target->log(levelOf(level), spdlog::string_view_t(logging::oneLine(text)));
    }

    std::shared_ptr<spdlog::logger> m_target;
    SpdlogLevels m_levels;
};

} // namespace TAV
