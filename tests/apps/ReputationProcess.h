#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/ServerProcess.h"
#include "support/TemporaryDirectory.h"

namespace TAV::test
{

/// The example's reputation server, running until this object ends it.
class ReputationProcess
{
public:
    /// Starts it, and waits until it listens.
    /// @param malicious  the digests on its list
    /// @param launcher   a program and its arguments that run the server as their last ones, with the same process id
    explicit ReputationProcess(const std::vector<std::string>& malicious = {},
                               const std::vector<std::string>& options = {},
                               const std::vector<std::string>& launcher = {});

    std::string address(const std::string& host = "localhost") const { return host + ":" + m_port; }
    const std::string& caFile() const { return m_caFile; }

    /// Sends it a signal and waits for its end.
    void stop(int signal) { m_process->stop(signal); }

    /// What it has written.
    std::string output() const { return readFile(m_place.file("output")); }

private:
    TemporaryDirectory m_place; ///< for the server's own directory too, which a killed server leaves behind
    std::unique_ptr<ServerProcess> m_process;
    std::string m_port;
    std::string m_caFile;
};

} // namespace TAV::test
