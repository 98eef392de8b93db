#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

namespace TAV::test
{

/// A connection in TLS to a server on 127.0.0.1, over which a test sends what no good client does.
class TlsClient
{
public:
    /// @param port  in digits
    explicit TlsClient(const std::string& port);
    TlsClient(const TlsClient&) = delete;
    TlsClient& operator=(const TlsClient&) = delete;
    ~TlsClient();

    /// @return false if the server has ended the connection
    bool send(const std::string& bytes);

    /// Waits until this text has come, or the connection ends.
    /// @return all that has come since the last call
    std::string receiveUntil(const std::string& text);
    std::string receiveAll();

private:
    int m_fd = -1;
    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> m_context;
    std::unique_ptr<SSL, void (*)(SSL*)> m_tls;
};

} // namespace TAV::test
