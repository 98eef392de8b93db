#include "support/KdcPort.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace TAV::test
{
namespace
{

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void require(bool good)
{
    if (!good)
        throw std::system_error(errno, std::generic_category(), "a port for a KDC");
}

void allowSharing(int fd)
{
    const int yes = 1;
    require(::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes)) == 0);
}

bool bindTo(int fd, std::uint16_t port)
{
    const sockaddr_in address = loopback(port);
    return ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

/// Holds a number for UDP, and lets a KDC share it.
/// @return -1 if it is somebody else's
int reserveUdp(std::uint16_t port)
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    require(fd >= 0);
    // Sharing is allowed only afterwards, so that two reservations never meet on one number.
    if (!bindTo(fd, port))
    {
        ::close(fd);
        return -1;
    }
    allowSharing(fd);
    // It hears itself alone: for everybody else the port is closed.
    const sockaddr_in itself = loopback(port);
    require(::connect(fd, reinterpret_cast<const sockaddr*>(&itself), sizeof(itself)) == 0);
    return fd;
}

int takeSilently(int type, std::uint16_t port)
{
    const int fd = ::socket(AF_INET, type | SOCK_CLOEXEC, 0);
    require(fd >= 0);
    allowSharing(fd);
    require(bindTo(fd, port) && (type != SOCK_STREAM || ::listen(fd, SOMAXCONN) == 0));
    return fd;
}

void closeIfOpen(int& fd)
{
    if (fd >= 0)
        ::close(std::exchange(fd, -1));
}

} // namespace

KdcPort::KdcPort()
{
    constexpr int kAttempts = 100;
    for (int attempt = 0; attempt < kAttempts && m_udpFd < 0; ++attempt)
    {
        m_tcp = std::make_unique<FreePort>();
        m_udpFd = reserveUdp(m_tcp->number());
    }
    if (m_udpFd < 0)
        throw std::runtime_error("no number is free for both TCP and UDP");
}

KdcPort::~KdcPort()
{
    refuse();
    closeIfOpen(m_udpFd);
}

void KdcPort::beSilent(bool udp, bool tcp)
{
    refuse();
    if (udp)
        m_silentUdpFd = takeSilently(SOCK_DGRAM, number());
    if (tcp)
        m_silentTcpFd = takeSilently(SOCK_STREAM, number());
}

void KdcPort::refuse()
{
    closeIfOpen(m_silentUdpFd);
    closeIfOpen(m_silentTcpFd);
}

} // namespace TAV::test
