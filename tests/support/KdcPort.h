#pragma once

#include <cstdint>
#include <memory>

#include "support/FreePort.h"

namespace TAV::test
{

/// A number that is free for TCP and UDP on the loopback, and that nobody else gets while this object lives. What comes
/// to it is refused, in both protocols, until a KDC or silence takes the number.
class KdcPort
{
public:
    KdcPort();
    KdcPort(const KdcPort&) = delete;
    KdcPort& operator=(const KdcPort&) = delete;
    ~KdcPort();

    std::uint16_t number() const { return m_tcp->number(); }

    /// From now on, takes what comes by these protocols and never answers.
    void beSilent(bool udp, bool tcp);
    /// Refuses again.
    void refuse();

private:
    std::unique_ptr<FreePort> m_tcp;
    int m_udpFd = -1;
    int m_silentUdpFd = -1;
    int m_silentTcpFd = -1;
};

} // namespace TAV::test
