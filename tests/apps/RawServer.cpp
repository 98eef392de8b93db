#include "apps/RawServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>

#include "reputation_server/Certificates.h"

namespace TAV::test
{
namespace
{

constexpr int kBacklog = 64;

/// A socket bound to a free port, which is told.
int boundSocket(const std::string& host, std::uint16_t& port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::inet_addr(host.c_str());
    socklen_t size = sizeof(address);
    auto* name = reinterpret_cast<struct sockaddr*>(&address);
    if (fd < 0 || ::bind(fd, name, size) != 0 || ::getsockname(fd, name, &size) != 0)
        throw std::runtime_error("cannot bind to a port");
    port = ntohs(address.sin_port);
    return fd;
}

/// How long the whole request is, once its head is there; 0 before.
std::size_t sizeOf(const std::string& request)
{
    const std::size_t end = request.find("\r\n\r\n");
    if (end == std::string::npos)
        return 0;
    const std::string name = "\r\nContent-Length: ";
    const std::size_t at = request.rfind(name, end);
    return end + 4 + (at == std::string::npos ? 0 : std::stoul(request.substr(at + name.size())));
}

} // namespace

RawAnswer ok(const std::string& body)
{
    return {"HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body};
}

RawServer::RawServer(Responder responder, Speaks speaks, const std::string& host)
    : m_responder(std::move(responder)), m_host(host), m_tls(nullptr, SSL_CTX_free)
{
    ::signal(SIGPIPE, SIG_IGN);
    if (speaks == Speaks::Tls)
    {
        const reputationserver::Certificates certificates = reputationserver::makeCertificates();
        m_place.write("ca.pem", reputationserver::toPem(*certificates.authority));
        m_tls.reset(SSL_CTX_new(TLS_server_method()));
        SSL_CTX_use_certificate(m_tls.get(), certificates.server.get());
        SSL_CTX_use_PrivateKey(m_tls.get(), certificates.serverKey.get());
    }
    m_listener = boundSocket(host, m_port);
    ::listen(m_listener, kBacklog);
    m_acceptor = std::thread([this] { accept(); });
}

RawServer::~RawServer()
{
    die();
    m_acceptor.join();
    for (std::thread& thread : m_threads)
        thread.join();
    ::close(m_listener);
}

void RawServer::respondWith(Responder responder)
{
    const std::lock_guard<std::mutex> alone(m_answering);
    m_responder = std::move(responder);
}

std::vector<std::string> RawServer::requests() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

void RawServer::die()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isDead = true;
    ::shutdown(m_listener, SHUT_RDWR);
    for (const int fd : m_connections)
        ::shutdown(fd, SHUT_RDWR);
}

void RawServer::accept()
{
    for (;;)
    {
        const int fd = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (fd >= 0 && !m_isDead)
        {
            m_connections.insert(fd);
            m_threads.emplace_back([this, fd] { serve(fd); });
            continue;
        }
        if (fd >= 0)
            ::close(fd);
        if (m_isDead)
            return;
    }
}

void RawServer::serve(int fd)
{
    const std::unique_ptr<SSL, void (*)(SSL*)> tls(m_tls == nullptr ? nullptr : SSL_new(m_tls.get()), SSL_free);
    std::array<char, 16UL * 1024> piece{};
    const auto receive = [&]() -> std::string
    {
        const int size = static_cast<int>(piece.size());
        const auto got =
            tls != nullptr ? SSL_read(tls.get(), piece.data(), size) : ::read(fd, piece.data(), piece.size());
        return got <= 0 ? std::string() : std::string(piece.data(), static_cast<std::size_t>(got));
    };
    const auto send = [&](const std::string& bytes)
    {
        const int size = static_cast<int>(bytes.size());
        return (tls != nullptr ? SSL_write(tls.get(), bytes.data(), size) : ::write(fd, bytes.data(), bytes.size())) ==
               size;
    };
    const bool isReady = tls == nullptr || (SSL_set_fd(tls.get(), fd) == 1 && SSL_accept(tls.get()) == 1);
    while (isReady && answerOne(receive, send))
        continue;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_connections.erase(fd);
    ::close(fd);
}

/// @return whether the connection goes on
bool RawServer::answerOne(const std::function<std::string()>& receive,
                          const std::function<bool(const std::string&)>& send)
{
    std::string request;
    while (sizeOf(request) == 0 || request.size() < sizeOf(request))
    {
        const std::string more = receive();
        if (more.empty())
            return false;
        request += more;
    }
    const std::lock_guard<std::mutex> alone(m_answering);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isDead)
            return false;
        m_requests.push_back(request);
    }
    const RawAnswer answer = m_responder(request);
    if (answer.dies)
        die();
    return !answer.dies && send(answer.bytes) && !answer.closes;
}

ClosedPort::ClosedPort() : m_fd(boundSocket("127.0.0.1", m_port)) {}

ClosedPort::~ClosedPort()
{
    ::close(m_fd);
}

} // namespace TAV::test
