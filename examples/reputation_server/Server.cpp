#include "reputation_server/Server.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace reputationserver
{
namespace
{

constexpr const char* kLoopback = "127.0.0.1";
constexpr const char* kPath = "/1";
constexpr const char* kJsonType = "application/json";
constexpr int kBacklog = 256;
constexpr std::size_t kLongestRequest = 4096;
constexpr std::size_t kRequestsPerConnection = 1'000'000;
constexpr time_t kIdleSeconds = 2;        // how long a connection is kept for, and at most delays the end
constexpr std::chrono::seconds kGrace{2}; // for what is under way when the server is stopped
constexpr int kNotAllowed = 405;
constexpr int kNoLength = 411;
constexpr int kTooLong = 413;

/// A thread for each connection. The server library's own pool has eight, and a connection that is kept holds one of
/// them although it is idle.
class ConnectionThreads : public httplib::TaskQueue
{
public:
    /// Without a thread to be had, the connection is served at once, and new ones wait for its end.
    void enqueue(std::function<void()> connection) override
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            ++m_running;
        }
        try
        {
            std::thread([this, connection] { serve(connection); }).detach();
        }
        catch (const std::system_error&)
        {
            serve(connection);
        }
    }

    void shutdown() override
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_ended.wait(lock, [this] { return m_running == 0; });
    }

private:
    void serve(const std::function<void()>& connection)
    {
        connection();
        const std::lock_guard<std::mutex> lock(m_mutex);
        --m_running;
        m_ended.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_ended;
    int m_running = 0;
};

/// Whether a socket is a connection to this port of the loopback.
bool isConnectionTo(int port, int fd)
{
    struct sockaddr_in own = {};
    struct sockaddr_in peer = {};
    socklen_t ownSize = sizeof(own);
    socklen_t peerSize = sizeof(peer);
    return ::getsockname(fd, reinterpret_cast<struct sockaddr*>(&own), &ownSize) == 0 && own.sin_family == AF_INET &&
           ntohs(own.sin_port) == port && ::getpeername(fd, reinterpret_cast<struct sockaddr*>(&peer), &peerSize) == 0;
}

/// Breaks off all connections of this process to the port. The server library tells nobody which they are.
void cutConnectionsTo(int port)
{
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", ignored))
    {
        const int fd = std::stoi(entry.path().filename().string());
        if (isConnectionTo(port, fd))
            ::shutdown(fd, SHUT_RDWR);
    }
}

/// A body that does not tell its length would be read whole, however long it is.
bool hasBodyOfUnknownLength(const httplib::Request& request)
{
    const bool isBodyRead = request.method == "POST" || request.method == "PUT" || request.method == "PATCH";
    return request.has_header("Transfer-Encoding") || (isBodyRead && !request.has_header("Content-Length"));
}

std::string reasonOf(int status)
{
    if (status == kTooLong)
        return "no request is longer than " + std::to_string(kLongestRequest) + " bytes";
    if (status == kNoLength)
        return "tell the length of the request (Content-Length)";
    return "only POST " + std::string(kPath) + " is answered here";
}

/// What is answered without a look at the body: no such path, no such method, a request that is too long, or may be.
void explain(const httplib::Request& request, httplib::Response& response)
{
    if (request.method != "POST" || response.status == kNoLength)
        response.set_header("Connection", "close"); // a body that it brought was not read
    if (response.body.empty())
        response.set_content(problem(response.status, reasonOf(response.status)).json, kJsonType);
}

httplib::Server::HandlerResponse refuseUnknownLength(const httplib::Request& request, httplib::Response& response)
{
    if (!hasBodyOfUnknownLength(request))
        return httplib::Server::HandlerResponse::Unhandled;
    response.status = kNoLength;
    return httplib::Server::HandlerResponse::Handled;
}

void refuseMethod(const httplib::Request&, httplib::Response& response)
{
    response.status = kNotAllowed;
}

} // namespace

Server::Server(const Certificates& certificates, Handler handler, unsigned int delayMs)
    : m_handler(std::move(handler)), m_delayMs(delayMs),
      m_server(std::make_unique<httplib::SSLServer>(certificates.server.get(), certificates.serverKey.get()))
{
    if (!m_server->is_valid())
        throw std::runtime_error("the certificate cannot be used");
    m_server->new_task_queue = [] { return new ConnectionThreads; };
    m_server->set_keep_alive_max_count(kRequestsPerConnection);
    m_server->set_keep_alive_timeout(kIdleSeconds);
    m_server->set_payload_max_length(kLongestRequest);
    m_server->set_tcp_nodelay(true);
    // Not the library's own choice, with which two servers may listen on one port.
    m_server->set_socket_options(
        [this](int socket)
        {
            const int yes = 1;
            ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
            m_listener = socket;
        });
    m_server->set_pre_routing_handler(refuseUnknownLength);
    m_server->set_error_handler(httplib::Server::Handler(explain));
    m_server->Post(
        kPath, [this](const httplib::Request& request, httplib::Response& response) { respond(request, response); });
    m_server->Get(kPath, refuseMethod).Put(kPath, refuseMethod).Patch(kPath, refuseMethod);
    m_server->Delete(kPath, refuseMethod).Options(kPath, refuseMethod);
}

Server::~Server() = default;

int Server::bind(int port)
{
    errno = 0;
    const int bound = port == 0                                 ? m_server->bind_to_any_port(kLoopback)
                      : m_server->bind_to_port(kLoopback, port) ? port
                                                                : -1;
    if (bound <= 0)
        throw std::runtime_error("cannot listen on " + std::string(kLoopback) + ":" + std::to_string(port) + ": " +
                                 std::strerror(errno));
    ::listen(m_listener, kBacklog); // the library lets five connections wait
    m_port = bound;
    return bound;
}

void Server::serve()
{
    m_server->listen_after_bind();
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_hasEnded = true;
    m_changed.notify_all();
}

bool Server::isServing() const
{
    return m_server->is_running();
}

void Server::stop()
{
    m_server->stop();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_isStopped = true;
    m_changed.notify_all();
    // A request may come in for ever, a byte at a time.
    if (!m_changed.wait_for(lock, kGrace, [this] { return m_hasEnded; }))
        cutConnectionsTo(m_port);
}

void Server::waitForDelay()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, std::chrono::milliseconds(m_delayMs), [this] { return m_isStopped; });
}

void Server::respond(const httplib::Request& request, httplib::Response& response)
{
    if (m_delayMs != 0)
        waitForDelay();
    const Answer answer = m_handler(request.body);
    response.status = answer.status;
    response.set_content(answer.json, kJsonType);
}

} // namespace reputationserver
