#pragma once

#include <cstdint>

namespace TAV::test
{

/// A TCP port of the loopback that nobody else gets while this object lives.
///
/// A connection to it is refused until a server listens there. Any server that sets SO_REUSEADDR can, as they all do,
/// and after it has ended another one, or the same one again.
class FreePort
{
public:
    FreePort();
    FreePort(const FreePort&) = delete;
    FreePort& operator=(const FreePort&) = delete;
    ~FreePort();

    std::uint16_t number() const { return m_number; }

private:
    int m_fd;
    std::uint16_t m_number = 0;
};

/// Whether a server accepts connections on a port of the loopback.
bool acceptsConnections(std::uint16_t port);

} // namespace TAV::test
