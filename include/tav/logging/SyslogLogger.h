#pragma once

#include <syslog.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

#include "tav/ILogger.h"
#include "tav/logging/OneLine.h"

namespace TAV
{

/// Hands each line to syslog(3), and with it to rsyslog or the systemd journal. The library's levels are syslog's own:
/// 2 is critical, 5 notice, 6 informational. A level outside 0 to 7 counts as the nearest of them.
///
///     TAV::SyslogLogger logger;                                        // the program has called openlog, or need not
///     TAV::SyslogLogger logger("exampled", LOG_PID, LOG_DAEMON);       // calls openlog and closelog itself
///
/// A line reads "[TAVUtils] text", or "text" if it has no component, and is always one entry: newlines, other control
/// characters and bytes that are not UTF-8 become "\x0a" and the like. "%" is an ordinary character. A text over
/// `kLongestText` bytes is cut, and says so: /dev/log takes about three times as much at once, and loses what is
/// longer.
///
/// This header includes <syslog.h>, whose macros begin with "LOG_".
///
/// **Threads.** May be called from any thread: syslog(3) locks for itself. syslog's settings belong to the process:
/// make no second object with a name of its own while the first one lives.
///
/// **Fork.** In a child that was forked while another thread was inside syslog(3), that lock stays taken for good: the
/// child, and whoever waits for it, hangs. Where commands run beside threads that log, refuse programs that cannot
/// start before you run them, or use a logger that takes no lock. A child of the library has closed the connection to
/// /dev/log; syslog(3) opens another one.
///
/// **Failure.** None is reported: syslog(3) has no result.
class SyslogLogger : public ILogger
{
public:
    /// How many bytes of one text are handed on.
    static constexpr std::size_t kLongestText = 65536;

    /// Uses whatever identity, options and facility the process has set by openlog(3), or syslog's defaults: the
    /// program's name and LOG_USER. Calls neither openlog nor closelog.
    SyslogLogger() = default;

    /// Calls openlog(3), for the whole process; the destructor calls closelog(3).
    /// @param identity  stands in front of each line, usually the program's name
    /// @param options   as openlog takes them, such as LOG_PID | LOG_NDELAY
    /// @param facility  such as LOG_DAEMON
    explicit SyslogLogger(std::string identity, int options = LOG_PID, int facility = LOG_DAEMON)
        : m_identity(std::move(identity)), m_hasOpened(true)
    {
        ::openlog(m_identity.c_str(), options, facility); // keeps the pointer
    }

    SyslogLogger(const SyslogLogger&) = delete;
    SyslogLogger& operator=(const SyslogLogger&) = delete;

    ~SyslogLogger() override
    {
        if (m_hasOpened)
            ::closelog();
    }

    void log(int level, std::string message) override { send(level, message); }

    void log(int level, std::string component, const std::string& message) override
    {
        send(level, "[" + component + "] " + message);
    }

private:
    static void send(int level, const std::string& text)
    {
        const std::string line = logging::oneLine(text.size() <= kLongestText ? text : cut(text));
        // The priority alone: the facility stays the one that the process has chosen.
        ::syslog(std::clamp(level, LOG_EMERG, LOG_DEBUG), "%s", line.c_str());
    }

    static std::string cut(const std::string& text)
    {
        return text.substr(0, kLongestText) + " ... (" + std::to_string(text.size() - kLongestText) + " bytes more)";
    }

    std::string m_identity;
    bool m_hasOpened = false;
};

} // namespace TAV
