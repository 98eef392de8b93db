#pragma once

#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tav/ILogger.h"

namespace TAV::test
{

/// One line as the logger got it. Comparable, and printable for a test's messages.
struct LogLine
{
    int level = 0;                        ///< as `ILogger` lists them: 2, 5 or 6
    std::optional<std::string> component; ///< none for the operation without one, which is not the same as an empty one
    std::string message;                  ///< the text, unchanged

    /// Whether level, component and text are the same.
    friend bool operator==(const LogLine& a, const LogLine& b)
    {
        return a.level == b.level && a.component == b.component && a.message == b.message;
    }
    /// Whether one of them differs.
    friend bool operator!=(const LogLine& a, const LogLine& b) { return !(a == b); }
    /// "[6] TAVUtils: the message", with "(none)" where there is no component.
    friend std::ostream& operator<<(std::ostream& out, const LogLine& line)
    {
        return out << "[" << line.level << "] " << line.component.value_or("(none)") << ": " << line.message;
    }
};

/// A logger that keeps every line, for a test to compare whole: level, component and message.
///
///     RecordingLogger logger;
///     TAV::TAVUtils utils(system, logger, version);
///     ...
///     EXPECT_THAT(logger.lines(), ElementsAre(LogLine{6, "TAVUtils", "Could not find cgroup mount ..."}));
///
/// **Threads.** Any number of them may log at a time, and read the lines meanwhile.
///
/// **Fork.** What a forked child logs stays in the child's memory: the test does not see it.
class RecordingLogger : public ILogger
{
public:
    void log(int level, std::string message) override { add({level, std::nullopt, std::move(message)}); }

    void log(int level, std::string component, const std::string& message) override
    {
        add({level, std::move(component), message});
    }

    /// All lines by now, in the order in which they came.
    std::vector<LogLine> lines() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }

    /// The same, and forgets them.
    std::vector<LogLine> takeLines()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::exchange(m_lines, {});
    }

private:
    void add(LogLine line)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back(std::move(line));
    }

    mutable std::mutex m_mutex;
    std::vector<LogLine> m_lines;
};

} // namespace TAV::test
