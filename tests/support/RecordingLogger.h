#pragma once

#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tav/ILogger.h"

namespace TAV::test
{

/// One line as the logger got it; `component` is empty for the operation without one.
struct LogLine
{
    int level = 0;
    std::optional<std::string> component;
    std::string message;

    friend bool operator==(const LogLine& a, const LogLine& b)
    {
        return a.level == b.level && a.component == b.component && a.message == b.message;
    }
    friend std::ostream& operator<<(std::ostream& out, const LogLine& line)
    {
        return out << "[" << line.level << "] " << line.component.value_or("(none)") << ": " << line.message;
    }
};

/// A logger that keeps every line, from any thread.
class RecordingLogger : public ILogger
{
public:
    void log(int level, std::string message) override { add({level, std::nullopt, std::move(message)}); }

    void log(int level, std::string component, const std::string& message) override
    {
        add({level, std::move(component), message});
    }

    std::vector<LogLine> lines() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
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
