#include "RawTlsServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace TAV::test
{
namespace
{

void require(bool good, const char* what)
{
    if (!good)
        throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// A socket bound to a port of the loopback; 0 stands for any free one.
int boundSocket(std::uint16_t port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    require(fd >= 0, "socket");
    // A second socket may be bound to the port as long as none listens.
    const int on = 1;
    require(::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == 0, "setsockopt");
    const sockaddr_in address = loopback(port);
    require(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0, "bind");
    return fd;
}

std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> makeContext(const TlsOptions& options)
{
    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    const ServerCertificate& files = TestAuthority::shared().good();
    constexpr std::string_view kName = "raw server";
    const auto* const name = reinterpret_cast<const unsigned char*>(kName.data());
    SSL_CTX* const raw = context.get();
    if (raw == nullptr || SSL_CTX_use_certificate_chain_file(raw, files.certificate.c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(raw, files.key.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_set_min_proto_version(raw, options.minVersion) != 1 ||
        SSL_CTX_set_max_proto_version(raw, options.maxVersion) != 1 ||
        // The server takes everything: what is refused, the client refuses.
        SSL_CTX_set_cipher_list(raw, "DEFAULT:@SECLEVEL=0") != 1 ||
        SSL_CTX_set_session_id_context(raw, name, static_cast<unsigned int>(kName.size())) != 1)
        throw std::runtime_error("cannot set the server's TLS up");
    SSL_CTX_set_verify(raw, options.verifyMode, nullptr);
    return context;
}

/// The server's system calls must not be disturbed by signals of the process, nor write() end it. Its threads inherit
/// it.
void blockAllSignals()
{
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

} // namespace

Step handshake()
{
    return &ServedConnection::handshake;
}

Step beginHandshake()
{
    return &ServedConnection::beginHandshake;
}

Step waitForBytes()
{
    return &ServedConnection::waitForBytes;
}

Step readHead()
{
    return &ServedConnection::readHead;
}

Step readBody()
{
    return &ServedConnection::readBody;
}

Step readRequest()
{
    return [](ServedConnection& connection)
    {
        connection.readHead();
        connection.readBody();
    };
}

Step send(std::string bytes)
{
    return [bytes = std::move(bytes)](ServedConnection& connection) { connection.send(bytes); };
}

Step trickle(std::string bytes)
{
    return [bytes = std::move(bytes)](ServedConnection& connection)
    {
        for (const char& byte : bytes)
            connection.send({&byte, 1});
    };
}

Step pause(std::chrono::milliseconds time)
{
    return [time](ServedConnection& connection) { connection.pause(time); };
}

Step waitUntilTold()
{
    return &ServedConnection::waitUntilTold;
}

Step stayStill()
{
    return &ServedConnection::waitForClient;
}

Step closeCleanly()
{
    return &ServedConnection::closeCleanly;
}

Step cut()
{
    return &ServedConnection::cut;
}

Step reset()
{
    return &ServedConnection::reset;
}

Script afterRequest(Script steps)
{
    steps.insert(steps.begin(), {handshake(), readRequest()});
    return steps;
}

std::string answer(const std::string& body)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

ReservedPort::ReservedPort() : m_fd(boundSocket(0))
{
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    require(::getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &size) == 0, "getsockname");
    m_number = ntohs(address.sin_port);
}

ReservedPort::~ReservedPort()
{
    ::close(m_fd);
}

RawTlsServer::RawTlsServer(std::vector<Script> scripts, const TlsOptions& options)
    : m_scripts(std::move(scripts)), m_context(makeContext(options)), m_listenFd(boundSocket(m_port.number()))
{
    require(::listen(m_listenFd, SOMAXCONN) == 0, "listen");
    m_acceptor = std::thread([this] { serve(); });
}

RawTlsServer::~RawTlsServer()
{
    stop();
}

void RawTlsServer::stop()
{
    if (!m_acceptor.joinable())
        return;
    m_bells.stop.ring();
    m_acceptor.join();
    for (std::thread& player : m_players)
        player.join();
    ::close(m_listenFd);
}

void RawTlsServer::serve()
{
    blockAllSignals();
    for (;;)
    {
        std::array<pollfd, 2> awaited = {pollfd{m_bells.stop.fd(), POLLIN, 0}, pollfd{m_listenFd, POLLIN, 0}};
        require(::poll(awaited.data(), awaited.size(), -1) > 0, "poll");
        if (awaited[0].revents != 0)
            break;
        const int fd = ::accept4(m_listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd >= 0)
            m_players.emplace_back([this, fd, number = m_journal.begin()] { play(fd, number); });
    }
}

void RawTlsServer::play(int socket, std::size_t number)
{
    ServedConnection connection(socket, m_context.get(), m_bells, m_journal, number);
    if (number >= m_scripts.size())
        return connection.reset();
    try
    {
        for (const Step& step : m_scripts[number])
            step(connection);
        connection.waitForClient();
    }
    catch (const ConnectionOver&)
    {
        // As good an end as any: the test looks at the records.
    }
}

} // namespace TAV::test
