#include "support/FreePort.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

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

} // namespace

FreePort::FreePort() : m_fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    // Bound, but never listening: Linux lets a second socket that also says SO_REUSEADDR bind and listen, and gives the
    // port to nobody who asks for any.
    const int yes = 1;
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof(address);
    auto* const anyAddress = reinterpret_cast<sockaddr*>(&address);
    if (m_fd < 0 || ::setsockopt(m_fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes)) != 0 ||
        ::bind(m_fd, anyAddress, size) != 0 || ::getsockname(m_fd, anyAddress, &size) != 0)
        throw std::system_error(errno, std::generic_category(), "a free port");
    m_number = ntohs(address.sin_port);
}

FreePort::~FreePort()
{
    ::close(m_fd);
}

bool acceptsConnections(std::uint16_t port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    const bool accepted = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    ::close(fd);
    return accepted;
}

} // namespace TAV::test
