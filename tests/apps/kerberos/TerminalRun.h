#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace TAV::test
{

/// A program that runs on a terminal, with somebody who types.
class TerminalRun
{
public:
    /// Starts it as the leader of a session on a terminal of its own, which is where all its output goes.
    /// @param argv         the path first
    /// @param environment  added to the test's own
    TerminalRun(const std::vector<std::string>& argv, const std::map<std::string, std::string>& environment);
    TerminalRun(const TerminalRun&) = delete;
    TerminalRun& operator=(const TerminalRun&) = delete;

    /// Ends it, and what else runs on the terminal.
    ~TerminalRun();

    pid_t pid() const { return m_pid; }

    /// Waits until the terminal shows the text behind what was waited for before.
    bool shows(const std::string& text);

    void type(const std::string& keys) const;

    bool hasEcho() const;

    /// Waits until the program has ended.
    /// @return its exit code, 128 + the signal if one ended it; empty if it still runs after a long time
    std::optional<int> end();

    /// All that the terminal has shown.
    std::string screen();

private:
    void look();

    int m_keyboardFd = -1;
    int m_terminalFd = -1; ///< kept open, so that the terminal can be examined when the program has ended
    pid_t m_pid = -1;
    std::string m_screen;
    std::size_t m_seen = 0;
};

} // namespace TAV::test
