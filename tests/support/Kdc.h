#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/KdcPort.h"
#include "support/ServerProcess.h"
#include "support/TemporaryDirectory.h"

namespace TAV::test
{

/// How a KDC is to be.
struct KdcSettings
{
    std::string realm = "TEST.EXAMPLE";
    bool udp = true;                     ///< whether it listens there
    bool tcp = true;                     ///< the same
    std::chrono::seconds clockOffset{0}; ///< how far its clock is ahead of everybody's
};

/// An MIT krb5kdc of the test's own on the loopback, with a realm, a database and a port of its own. Nothing of the
/// machine's configuration is read.
class Kdc
{
public:
    /// What is missing to run one on this machine; empty if nothing is.
    static std::string missing();

    /// Makes the realm, without accounts, and returns when the KDC answers.
    explicit Kdc(const KdcSettings& settings = {});

    /// A krb5.conf for clients, which anybody may read. It keeps libkrb5 from asking the DNS.
    std::string clientConfig() const { return m_directory.file("krb5.conf"); }

    std::string realm() const { return m_settings.realm; }
    std::uint16_t port() const { return m_port.number(); }

    /// Variables of the environment that make a program's clock wrong, whoever's program it is; while this object
    /// lives.
    std::vector<std::string> clockAheadBy(std::chrono::seconds offset) const;

    /// Makes an account that has an RC4 key, as well as an AES key.
    /// @param options  more options of kadmin's addprinc, which come later than the usual ones and win
    void addUser(const std::string& name, const std::string& password, const std::vector<std::string>& options = {});

    /// Makes a service with a random key.
    /// @return the content of its keytab
    std::string addService(const std::string& name);

    /// Runs a command of kadmin.local, such as {"addprinc", "-randkey", "HTTP/localhost"}.
    /// @throws std::runtime_error  if it fails
    void administer(const std::vector<std::string>& command);

    /// Ends it at once. Its port stays reserved, and refuses.
    void stop();
    /// Ends it; its port then takes whatever comes, by the protocols that it listened on, and never answers.
    void fallSilent();
    /// Starts it again, on the same port and with the same realm.
    void start();

    /// What it has logged so far.
    std::string log() const;

    /// How many tickets of this kind it has issued, by its log.
    /// @param service  such as "krbtgt/TEST.EXAMPLE@TEST.EXAMPLE"
    std::size_t issued(const std::string& user, const std::string& service) const;

private:
    ServerProgram program() const;
    void run(const std::vector<std::string>& tool);

    KdcSettings m_settings;
    TemporaryDirectory m_directory;
    KdcPort m_port;
    std::unique_ptr<ServerProcess> m_process;
};

} // namespace TAV::test
