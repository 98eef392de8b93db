#include "apps/TlsClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>

namespace TAV::test
{

TlsClient::TlsClient(const std::string& port)
    : m_fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), m_context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free),
      m_tls(SSL_new(m_context.get()), SSL_free)
{
    ::signal(SIGPIPE, SIG_IGN);
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(std::stoul(port)));
    if (::connect(m_fd, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)) != 0 ||
        SSL_set_fd(m_tls.get(), m_fd) != 1 || SSL_connect(m_tls.get()) != 1)
        throw std::runtime_error("cannot connect to port " + port);
}

TlsClient::~TlsClient()
{
    ::close(m_fd);
}

bool TlsClient::send(const std::string& bytes)
{
    return SSL_write(m_tls.get(), bytes.data(), static_cast<int>(bytes.size())) > 0;
}

std::string TlsClient::receiveUntil(const std::string& text)
{
    std::string received;
    std::array<char, 4096> piece;
    while (text.empty() || received.find(text) == std::string::npos)
    {
        const int size = SSL_read(m_tls.get(), piece.data(), static_cast<int>(piece.size()));
        if (size <= 0)
            break;
        received.append(piece.data(), static_cast<std::size_t>(size));
    }
    return received;
}

std::string TlsClient::receiveAll()
{
    return receiveUntil("");
}

} // namespace TAV::test
