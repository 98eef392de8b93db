#pragma once

#include <string>

#include "support/TemporaryDirectory.h"

namespace TAV::test
{

/// A server's certificate and its key: the paths of two PEM files.
struct ServerCertificate
{
    std::string certificate;
    std::string key;
};

/// A certificate authority that lives as long as its object, and certificates for servers on the loopback. All files
/// lie in a directory of its own.
class TestAuthority
{
public:
    TestAuthority();
    TestAuthority(const TestAuthority&) = delete;
    TestAuthority& operator=(const TestAuthority&) = delete;

    /// The one of this program, made on first use.
    static const TestAuthority& shared();

    /// The certificate of the authority, which clients trust.
    const std::string& caFile() const { return m_ca.certificate; }

    /// The certificate of another authority.
    const std::string& otherCaFile() const { return m_otherCa.certificate; }

    /// For localhost and 127.0.0.1, signed by the authority, valid.
    const ServerCertificate& good() const { return m_good; }

    /// Like the good one, but its time is over.
    const ServerCertificate& expired() const { return m_expired; }

    /// Like the good one, but for another host.
    const ServerCertificate& wrongName() const { return m_wrongName; }

    /// For localhost and 127.0.0.1, signed by itself only.
    const ServerCertificate& selfSigned() const { return m_selfSigned; }

    /// Like the good one, but signed by the other authority.
    const ServerCertificate& fromOtherAuthority() const { return m_fromOther; }

    /// Like the good one, but signed by somebody who took the authority's name.
    const ServerCertificate& fromImpostor() const { return m_fromImpostor; }

private:
    TemporaryDirectory m_directory;
    ServerCertificate m_ca;
    ServerCertificate m_otherCa;
    ServerCertificate m_good;
    ServerCertificate m_expired;
    ServerCertificate m_wrongName;
    ServerCertificate m_selfSigned;
    ServerCertificate m_fromOther;
    ServerCertificate m_fromImpostor;
};

} // namespace TAV::test
