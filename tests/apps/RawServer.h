#pragma once

#include <openssl/ssl.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/TemporaryDirectory.h"

namespace TAV::test
{

/// What a server sends back, byte by byte.
struct RawAnswer
{
    std::string bytes;
    bool closes = false; ///< ends the connection behind it
    bool dies = false;   ///< nothing is sent: all connections are broken off, and nobody listens any more
};

/// A complete answer with status 200.
RawAnswer ok(const std::string& body);

/// A server on the loopback that answers what a test tells it to, right or wrong, in TLS or (as a proxy is asked)
/// without.
class RawServer
{
public:
    /// From a whole request, its head as it came, to the answer. Called once at a time.
    using Responder = std::function<RawAnswer(const std::string& request)>;

    enum class Speaks
    {
        Tls,
        Plain,
    };

    /// @param host  one of the addresses of the loopback; the certificate is for the first one, and for localhost
    explicit RawServer(Responder responder, Speaks speaks = Speaks::Tls, const std::string& host = "127.0.0.1");
    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;
    ~RawServer();

    std::string address() const { return m_host + ":" + std::to_string(m_port); }
    std::string caFile() const { return m_place.file("ca.pem"); }

    /// From now on it answers so.
    void respondWith(Responder responder);

    /// The requests so far.
    std::vector<std::string> requests() const;

private:
    void die();
    void accept();
    void serve(int fd);
    bool answerOne(const std::function<std::string()>& receive, const std::function<bool(const std::string&)>& send);

    TemporaryDirectory m_place;
    Responder m_responder;
    std::string m_host;
    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> m_tls;
    int m_listener = -1;
    std::uint16_t m_port = 0;
    mutable std::mutex m_mutex;
    std::mutex m_answering; ///< until the answer has been sent
    std::vector<std::string> m_requests;
    std::set<int> m_connections;
    bool m_isDead = false;
    std::vector<std::thread> m_threads; ///< of the connections
    std::thread m_acceptor;
};

/// A port of 127.0.0.1 where every connection is refused.
class ClosedPort
{
public:
    ClosedPort();
    ClosedPort(const ClosedPort&) = delete;
    ClosedPort& operator=(const ClosedPort&) = delete;
    ~ClosedPort();

    std::string address() const { return "localhost:" + std::to_string(m_port); }

private:
    std::uint16_t m_port = 0;
    int m_fd;
};

} // namespace TAV::test
