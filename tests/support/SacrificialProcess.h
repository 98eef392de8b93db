#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>

namespace TAV::test
{

/// Runs a function in a process of its own, for what must not happen inside a test runner: a call that may block for
/// ever, return twice, or spoil the descriptors. Results come back through SharedNotes or a file.
///
///     SharedNotes notes;
///     SacrificialProcess process([&] { notes.add(utils.executeSystemCommand(argv, nullptr) ? "true" : "false"); });
///     ASSERT_EQ(process.wait(), 0);
///
/// The process and all its descendants form a process group. What is left of it ends with the process or this object.
class SacrificialProcess
{
public:
    /// Generous: a loaded machine must not make a test fail, only a process that will never end.
    static constexpr std::chrono::seconds kPatience{60};

    /// Starts the function. The process exits with 0 after it, or with 3 after an exception, and a standard one is told
    /// on stderr.
    explicit SacrificialProcess(const std::function<void()>& body);
    SacrificialProcess(const SacrificialProcess&) = delete;
    SacrificialProcess& operator=(const SacrificialProcess&) = delete;
    ~SacrificialProcess();

    pid_t pid() const { return m_pid; }

    /// Waits until the process has ended.
    /// @return its raw wait status; empty if it still runs when the patience has run out
    std::optional<int> wait(std::chrono::milliseconds patience = kPatience);

    /// Ends the process and its descendants with SIGKILL.
    void kill();

private:
    bool hasEnded() const;
    void reap();

    pid_t m_pid;
    std::optional<int> m_status;
};

/// Looks every millisecond until the condition holds.
/// @return false if it still does not when the patience has run out
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds patience = SacrificialProcess::kPatience);

} // namespace TAV::test
