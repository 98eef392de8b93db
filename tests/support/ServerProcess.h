#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TAV::test
{

/// How to start a server.
struct ServerProgram
{
    std::vector<std::string> argv;        ///< the program first, as a path; it has to stay in the foreground
    std::string outputFile;               ///< what it writes to its standard output and error
    std::string user;                     ///< whose process it becomes, if this one is root's; empty: nobody else's
    std::vector<std::string> environment; ///< NAME=VALUE each, before the test's own
};

/// A program that runs in the background until this object ends it, and that does not outlive the test.
///
/// It is killed when the thread that started it ends, however that happens: start it on the test's main thread.
class ServerProcess
{
public:
    explicit ServerProcess(const ServerProgram& program);
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    /// Kills it and what it started.
    ~ServerProcess();

    pid_t pid() const { return m_pid; }

    /// Waits until it is ready.
    /// @throws std::runtime_error  with what it wrote, if it ends or takes too long
    void waitUntil(const std::function<bool()>& isReady) const;

    /// Waits until it accepts connections.
    /// @throws std::runtime_error  with what it wrote, if it ends or takes too long
    void waitUntilAnswers(std::uint16_t port) const;

    /// Sends it a signal and waits for its end; SIGKILL after all if that takes too long.
    void stop(int signal);

private:
    bool hasEnded() const;

    std::string m_name;
    std::string m_outputFile;
    pid_t m_pid;
};

/// The path of a program that may stand where only an administrator's PATH looks; empty if there is none.
std::string findServerProgram(const std::string& name);

} // namespace TAV::test
