#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/FreePort.h"
#include "support/ServerProcess.h"
#include "support/TemporaryDirectory.h"

namespace TAV::test
{

/// How nginx answers the requests that have the header line "X-Case: NAME".
struct NginxCase
{
    std::string name;
    std::string directives; ///< of a location block
};

/// One port of an nginx. The path that is asked for does not matter.
struct NginxSite
{
    std::string certificate; ///< file of PEM; empty: no TLS
    std::string key;
    std::string directives = {};  ///< of the server block
    std::vector<NginxCase> cases; ///< a request without one of these: status 200, "fine"
    std::string listenWords = {}; ///< added to the listen directive, such as "http2"
};

/// A request as nginx notes it at its end.
struct NginxRequest
{
    unsigned long connection = 0; ///< its number, different for each
    unsigned long ordinal = 0;    ///< of the request on its connection, from 1
    bool resumedTls = false;      ///< whether the connection went on with an earlier TLS session
    std::string tlsVersion;       ///< such as "TLSv1.3"
    std::string httpVersion;      ///< such as "HTTP/1.1"
    std::string method;
    int status = 0;
};

/// An nginx of the test's own on the loopback, on ports and in a directory of its own.
class NginxServer
{
public:
    /// What is missing to run one on this machine; empty if nothing is.
    static std::string missing();

    /// Returns when it answers.
    explicit NginxServer(const std::vector<NginxSite>& sites);

    std::uint16_t port(std::size_t site = 0) const { return m_ports.at(site)->number(); }

    /// Ends it at once. Its ports stay reserved, and refuse connections.
    void stop();
    /// Starts it again, on the same ports.
    void start();

    /// Waits until so many requests have ended since it was first started, and returns them all.
    std::vector<NginxRequest> requests(std::size_t expected) const;

private:
    TemporaryDirectory m_directory;
    std::vector<std::unique_ptr<FreePort>> m_ports;
    std::unique_ptr<ServerProcess> m_process;
};

} // namespace TAV::test
