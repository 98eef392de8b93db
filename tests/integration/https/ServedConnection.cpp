#include "ServedConnection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <system_error>

namespace TAV::test
{
namespace
{

constexpr std::size_t kBufferSize = 64U * 1024U;

/// The value of Content-Length in a head; 0 without one.
std::size_t announcedLength(const std::string& head)
{
    constexpr std::string_view kName = "\r\nContent-Length: ";
    const std::size_t at = head.find(kName);
    return at == std::string::npos ? 0 : std::stoul(head.substr(at + kName.size()));
}

} // namespace

std::vector<ConnectionRecord> ConnectionJournal::records() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_records;
}

std::size_t ConnectionJournal::begin()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_records.emplace_back();
    return m_records.size() - 1;
}

void ConnectionJournal::update(std::size_t number, const std::function<void(ConnectionRecord&)>& change)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    change(m_records[number]);
}

Bell::Bell() : m_fd(::eventfd(0, EFD_SEMAPHORE | EFD_CLOEXEC))
{
    if (m_fd < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

Bell::~Bell()
{
    ::close(m_fd);
}

void Bell::ring()
{
    if (::eventfd_write(m_fd, 1) != 0)
        throw std::system_error(errno, std::generic_category(), "ringing a bell");
}

void Bell::answer()
{
    eventfd_t value = 0;
    if (::eventfd_read(m_fd, &value) != 0)
        throw std::system_error(errno, std::generic_category(), "answering a bell");
}

ServedConnection::ServedConnection(
    int socket, SSL_CTX* context, ServerBells& bells, ConnectionJournal& journal, std::size_t number)
    : m_fd(socket), m_context(context), m_bells(bells), m_journal(journal), m_number(number), m_buffer(kBufferSize)
{
    // What is sent in one piece leaves at once, alone.
    const int on = 1;
    ::setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

ServedConnection::~ServedConnection()
{
    closeSocket();
}

void ServedConnection::handshake()
{
    m_tls.reset(SSL_new(m_context));
    if (m_tls == nullptr || SSL_set_fd(m_tls.get(), m_fd) != 1)
        throw std::runtime_error("cannot make a TLS connection");
    inTls([this] { return SSL_accept(m_tls.get()); });
    note(
        [this](ConnectionRecord& record)
        {
            record.tlsVersion = SSL_get_version(m_tls.get());
            record.resumed = SSL_session_reused(m_tls.get()) == 1;
        });
}

void ServedConnection::beginHandshake()
{
    // Over memory: reading on from the socket, it would go as far as the client's next bytes let it.
    const std::unique_ptr<SSL, void (*)(SSL*)> tls(SSL_new(m_context), SSL_free);
    BIO* const received = BIO_new(BIO_s_mem());
    BIO* const reply = BIO_new(BIO_s_mem());
    if (tls == nullptr || received == nullptr || reply == nullptr)
        throw std::runtime_error("cannot make a TLS connection");
    SSL_set_bio(tls.get(), received, reply);
    while (BIO_pending(reply) == 0)
    {
        const std::string_view bytes = receive();
        BIO_write(received, bytes.data(), static_cast<int>(bytes.size()));
        SSL_accept(tls.get());
    }
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(reply, &bytes);
    send({bytes, static_cast<std::size_t>(size)});
}

void ServedConnection::waitForBytes()
{
    waitFor(m_fd, POLLIN);
}

void ServedConnection::readHead()
{
    constexpr std::string_view kEnd = "\r\n\r\n";
    std::string received = std::move(m_unread);
    while (received.find(kEnd) == std::string::npos)
        received += receive();
    const std::size_t size = received.find(kEnd) + kEnd.size();
    m_unread = received.substr(size);
    received.resize(size);
    note([&](ConnectionRecord& record) { record.requests.push_back({std::move(received), ""}); });
}

void ServedConnection::readBody()
{
    std::size_t size = 0;
    note([&](ConnectionRecord& record) { size = announcedLength(record.requests.back().head); });
    std::string body = std::move(m_unread);
    body.reserve(size);
    while (body.size() < size)
        body += receive();
    m_unread = body.substr(size);
    body.resize(size);
    note([&](ConnectionRecord& record) { record.requests.back().body = std::move(body); });
}

void ServedConnection::send(std::string_view bytes)
{
    while (!bytes.empty())
    {
        const int size =
            m_tls != nullptr
                ? inTls([&] { return SSL_write(m_tls.get(), bytes.data(), static_cast<int>(bytes.size())); })
                : inPlain(POLLOUT, [&] { return ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL); });
        bytes.remove_prefix(static_cast<std::size_t>(size));
    }
}

void ServedConnection::pause(std::chrono::milliseconds time)
{
    // Descriptor -1 is never ready: only the time can run out.
    waitFor(-1, 0, static_cast<int>(time.count()));
}

void ServedConnection::waitUntilTold()
{
    waitFor(m_bells.proceed.fd(), POLLIN);
    m_bells.proceed.answer();
}

void ServedConnection::waitForClient()
{
    while (m_fd >= 0)
        receive();
}

void ServedConnection::closeCleanly()
{
    inTls([this] { return SSL_shutdown(m_tls.get()) < 0 ? -1 : 1; });
    closeSocket();
}

void ServedConnection::cut()
{
    // The kernel would make a reset of it if something were left unread.
    while (::recv(m_fd, m_buffer.data(), m_buffer.size(), MSG_DONTWAIT) > 0)
        continue;
    closeSocket();
}

void ServedConnection::reset()
{
    const linger now = {1, 0};
    ::setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
    closeSocket();
}

/// Waits until a descriptor is ready, or until the time is over.
void ServedConnection::waitFor(int fd, short events, int timeoutMs)
{
    std::array<pollfd, 2> awaited = {pollfd{m_bells.stop.fd(), POLLIN, 0}, pollfd{fd, events, 0}};
    if (::poll(awaited.data(), awaited.size(), timeoutMs) < 0)
        throw std::system_error(errno, std::generic_category(), "poll");
    if (awaited[0].revents != 0)
        throw ConnectionOver();
}

/// Repeats an operation until it is done, waiting in between for what it lacks.
/// @return its result, above 0
int ServedConnection::inTls(const std::function<int()>& operation)
{
    for (;;)
    {
        ERR_clear_error();
        const int result = operation();
        if (result > 0)
            return result;
        const int error = SSL_get_error(m_tls.get(), result);
        if (error == SSL_ERROR_SSL)
            endAfterAlert();
        if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE)
            throw ConnectionOver();
        waitFor(m_fd, error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT);
    }
}

int ServedConnection::inPlain(short readiness, const std::function<ssize_t()>& operation)
{
    waitFor(m_fd, readiness);
    const ssize_t result = operation();
    if (result <= 0)
        throw ConnectionOver();
    return static_cast<int>(result);
}

/// Gives the client the time to read the alert that it was sent: closing at once would reset the connection if the
/// client has sent more by then.
void ServedConnection::endAfterAlert()
{
    m_tls.reset();
    ::shutdown(m_fd, SHUT_WR);
    waitForClient();
}

std::string_view ServedConnection::receive()
{
    char* const data = m_buffer.data();
    const int size = m_tls != nullptr
                         ? inTls([&] { return SSL_read(m_tls.get(), data, static_cast<int>(m_buffer.size())); })
                         : inPlain(POLLIN, [&] { return ::recv(m_fd, data, m_buffer.size(), 0); });
    return {data, static_cast<std::size_t>(size)};
}

void ServedConnection::closeSocket()
{
    if (m_fd < 0)
        return;
    // TLS still knows the descriptor's number, which somebody else may get now.
    m_tls.reset();
    ::close(m_fd);
    m_fd = -1;
    note([](ConnectionRecord& record) { record.ended = true; });
}

} // namespace TAV::test
