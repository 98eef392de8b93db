#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/FreePort.h"
#include "support/ServerProcess.h"
#include "support/TemporaryDirectory.h"

namespace TAV::test
{

/// What is particular to a proxy.
struct SquidSettings
{
    std::string directives = "http_access allow all\n"; ///< who may pass; files are named as below

    struct File
    {
        std::string name;
        std::string content;
    };
    std::vector<File> files; ///< made in the directory that it runs in

    std::vector<std::string> environment; ///< NAME=VALUE each
};

/// A request as squid notes it; a tunnel is noted when it is closed.
struct SquidRequest
{
    std::string result; ///< such as "TCP_TUNNEL/200"
    std::string method;
    std::string target; ///< HOST:PORT of a tunnel
    std::string user;   ///< "-" for none
};

/// A squid of the test's own on the loopback, on a port and in a directory of its own.
class SquidProxy
{
public:
    /// What is missing to run one on this machine; empty if nothing is.
    static std::string missing();

    /// Where a helper program of squid's stands.
    static std::string helper(const std::string& name) { return "/usr/lib/squid/" + name; }

    /// Returns when it answers.
    explicit SquidProxy(const SquidSettings& settings = {});

    std::uint16_t port() const { return m_port.number(); }

    /// Its address as a client names it: localhost:PORT.
    std::string address() const { return "localhost:" + std::to_string(port()); }

    /// Ends it at once. Its port stays reserved, and refuses connections.
    void stop();

    /// Waits until so many requests have ended, and returns them all. A connection without a request is none.
    std::vector<SquidRequest> requests(std::size_t expected) const;

private:
    TemporaryDirectory m_directory;
    FreePort m_port;
    std::unique_ptr<ServerProcess> m_process;
};

} // namespace TAV::test
