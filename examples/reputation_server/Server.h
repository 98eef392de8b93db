#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "reputation_server/Answers.h"
#include "reputation_server/Certificates.h"

namespace httplib
{
class SSLServer;
struct Request;
struct Response;
} // namespace httplib

namespace reputationserver
{

/// An HTTPS server on 127.0.0.1 that answers POST /1. Each connection has a thread of its own, so that none waits for
/// another one, as long as threads are to be had.
class Server
{
public:
    /// From the body of a request to the answer. Called by many threads.
    using Handler = std::function<Answer(const std::string& body)>;

    /// @param delayMs  what each answer waits for
    Server(const Certificates& certificates, Handler handler, unsigned int delayMs);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server();

    /// Begins to listen; connections wait until `serve`.
    /// @param port  0 for a free one
    /// @return the port
    /// @throws std::runtime_error  if it cannot be had
    int bind(int port);

    /// Serves until it is stopped. Returns when all connections are closed.
    void serve();

    /// Whether `serve` has come so far that `stop` ends it.
    bool isServing() const;

    /// Ends the listening and the delays of answers, and after two seconds what is still under way then. Any thread.
    void stop();

private:
    void waitForDelay();
    void respond(const httplib::Request& request, httplib::Response& response);

    Handler m_handler;
    unsigned int m_delayMs;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isStopped = false;
    bool m_hasEnded = false;
    int m_listener = -1; ///< the server library's own descriptor
    int m_port = 0;
    std::unique_ptr<httplib::SSLServer> m_server;
};

} // namespace reputationserver
