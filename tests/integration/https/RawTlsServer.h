#pragma once

#include <openssl/ssl.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ServedConnection.h"
#include "TestAuthority.h"

namespace TAV::test
{

/// One thing that a server does on a connection, and all that it does on one.
using Step = std::function<void(ServedConnection&)>;
using Script = std::vector<Step>;

/// @name Steps
/// What a script does before its `handshake` it does in plain TCP. When it is at its end, the server waits for the
/// client to close.
/// @{
Step handshake();
Step beginHandshake(); ///< answers the client's hello, and leaves it at that
Step waitForBytes();   ///< waits until the client has sent something, without reading it
Step readHead();
Step readBody();
Step readRequest(); ///< head and body
Step send(std::string bytes);
Step trickle(std::string bytes); ///< sends each byte alone
Step pause(std::chrono::milliseconds time);
Step waitUntilTold();
Step stayStill(); ///< waits for the client to close
Step closeCleanly();
Step cut();
Step reset();
/// @}

/// A script that takes a request in TLS, and goes on with these steps.
Script afterRequest(Script steps);

/// A whole answer with status 200.
std::string answer(const std::string& body);

/// A port of the loopback that nobody else gets. Connections to it are refused until somebody listens.
class ReservedPort
{
public:
    ReservedPort();
    ReservedPort(const ReservedPort&) = delete;
    ReservedPort& operator=(const ReservedPort&) = delete;
    ~ReservedPort();

    std::uint16_t number() const { return m_number; }

private:
    int m_fd;
    std::uint16_t m_number = 0;
};

/// How a server speaks TLS.
struct TlsOptions
{
    int minVersion = TLS1_VERSION;
    int maxVersion = TLS1_3_VERSION;
    int verifyMode = SSL_VERIFY_NONE; ///< SSL_VERIFY_PEER asks for a client certificate
};

/// A server that does on each connection exactly what a test tells it, right or wrong. Each
/// connection has a thread. The n-th script is for the n-th connection, and one too many is reset.
///
///     RawTlsServer server({afterRequest({send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nfour"), reset()})});
///     QueryScene scene(configTowards(server.port(), TestAuthority::shared().caFile()));
class RawTlsServer
{
public:
    explicit RawTlsServer(std::vector<Script> scripts, const TlsOptions& options = {});
    RawTlsServer(const RawTlsServer&) = delete;
    RawTlsServer& operator=(const RawTlsServer&) = delete;
    ~RawTlsServer();

    std::uint16_t port() const { return m_port.number(); }

    /// What has happened so far.
    std::vector<ConnectionRecord> connections() const { return m_journal.records(); }

    /// Lets one `waitUntilTold` go on, now or when it comes to it.
    void proceed() { m_bells.proceed.ring(); }

    /// Ends everything, in whatever state it is. From then on the port refuses.
    void stop();

private:
    void serve();
    void play(int socket, std::size_t number);

    std::vector<Script> m_scripts;
    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> m_context;
    ReservedPort m_port;
    ServerBells m_bells;
    ConnectionJournal m_journal;
    int m_listenFd = -1;
    std::thread m_acceptor;
    std::vector<std::thread> m_players; ///< the acceptor's, until it has ended
};

} // namespace TAV::test
