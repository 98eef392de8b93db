#pragma once

#include <openssl/ssl.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace TAV::test
{

struct ReceivedRequest
{
    std::string head; ///< the request line and the header lines, with the empty line that ends them
    std::string body;
};

/// What a server saw of one connection.
struct ConnectionRecord
{
    std::string tlsVersion; ///< such as "TLSv1.3"; empty if no handshake was completed
    bool resumed = false;   ///< the client came back with a TLS session of an earlier connection
    std::vector<ReceivedRequest> requests;
    bool ended = false; ///< the server has closed it, or seen the client close it
};

/// The records of all connections of a server, in their order. Any thread.
class ConnectionJournal
{
public:
    std::vector<ConnectionRecord> records() const;

    /// Begins a record.
    /// @return its number, from 0
    std::size_t begin();
    void update(std::size_t number, const std::function<void(ConnectionRecord&)>& change);

private:
    mutable std::mutex m_mutex;
    std::vector<ConnectionRecord> m_records;
};

/// A counter that another thread can wait for.
class Bell
{
public:
    Bell();
    Bell(const Bell&) = delete;
    Bell& operator=(const Bell&) = delete;
    ~Bell();

    void ring();
    /// Takes one ring, which must be there.
    void answer();

    /// Can be read from while a ring is there.
    int fd() const { return m_fd; }

private:
    int m_fd;
};

/// How a test speaks to the thread of its server.
struct ServerBells
{
    Bell stop;    ///< rung once, never answered
    Bell proceed; ///< rung for each step that waits for it
};

/// Thrown out of every operation when the connection is of no more use: the client has gone, or the server is to stop.
struct ConnectionOver
{
};

/// One accepted connection, and what a server can do with it. All operations wait without end, but notice the bell
/// that stops the server.
class ServedConnection
{
public:
    /// @param number  of its record
    ServedConnection(int socket, SSL_CTX* context, ServerBells& bells, ConnectionJournal& journal, std::size_t number);
    ServedConnection(const ServedConnection&) = delete;
    ServedConnection& operator=(const ServedConnection&) = delete;
    ~ServedConnection();

    /// Makes TLS of what was plain TCP.
    void handshake();
    /// Answers the client's hello and leaves it at that.
    void beginHandshake();

    /// Waits until something can be read.
    void waitForBytes();
    void readHead();
    /// Reads as many bytes as the head announced.
    void readBody();
    void send(std::string_view bytes);

    void pause(std::chrono::milliseconds time);
    void waitUntilTold();
    /// Drops what still comes until the client closes.
    void waitForClient();

    void closeCleanly(); ///< says goodbye in TLS (close_notify), then closes
    void cut();          ///< closes without that: the client sees the end of the stream
    void reset();        ///< throws the connection away: the client sees an error

private:
    void waitFor(int fd, short events, int timeoutMs = -1);
    int inTls(const std::function<int()>& operation);
    int inPlain(short readiness, const std::function<ssize_t()>& operation);
    void endAfterAlert();
    std::string_view receive();
    void closeSocket();
    void note(const std::function<void(ConnectionRecord&)>& change) { m_journal.update(m_number, change); }

    int m_fd;
    SSL_CTX* m_context;
    ServerBells& m_bells;
    ConnectionJournal& m_journal;
    std::size_t m_number;
    std::unique_ptr<SSL, void (*)(SSL*)> m_tls{nullptr, SSL_free};
    std::vector<char> m_buffer;
    std::string m_unread; ///< received behind a head
};

} // namespace TAV::test
