#include "reputation_server/Server.h"

#include <httplib.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
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
constexpr time_t kIdleSeconds = 2; // how long a connection is kept for, and at most delays the end
constexpr int kNotAllowed = 405;
constexpr int kTooLong = 413;

/// A thread for each connection. The server library's own pool has eight, and a connection that is kept holds one of
/// them although it is idle.
class ConnectionThreads : public httplib::TaskQueue
{
public:
    void enqueue(std::function<void()> connection) override
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            ++m_running;
        }
        std::thread(
            [this, connection = std::move(connection)]
            {
                connection();
                const std::lock_guard<std::mutex> lock(m_mutex);
                --m_running;
                m_ended.notify_all();
            })
            .detach();
    }

    void shutdown() override
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_ended.wait(lock, [this] { return m_running == 0; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_ended;
    int m_running = 0;
};

/// What the server library answers by itself: no such path, no such method, a request that is too long.
void explain(const httplib::Request& request, httplib::Response& response)
{
    if (request.method != "POST")
        response.set_header("Connection", "close"); // a body that it brought was not read
    if (!response.body.empty())
        return;
    if (response.status == kTooLong)
        response.set_content(
            problem(kTooLong, "no request is longer than " + std::to_string(kLongestRequest) + " bytes").json,
            kJsonType);
    else
        response.set_content(problem(response.status, "only POST " + std::string(kPath) + " is answered here").json,
                             kJsonType);
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
    return bound;
}

void Server::serve()
{
    m_server->listen_after_bind();
}

bool Server::isServing() const
{
    return m_server->is_running();
}

void Server::stop()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isStopped = true;
    }
    m_stopping.notify_all();
    m_server->stop();
}

void Server::waitForDelay()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_stopping.wait_for(lock, std::chrono::milliseconds(m_delayMs), [this] { return m_isStopped; });
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
