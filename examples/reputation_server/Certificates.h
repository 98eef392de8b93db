#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace reputationserver
{

using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)>;
using Certificate = std::unique_ptr<X509, void (*)(X509*)>;

/// What a server needs to prove that it is localhost to whoever trusts its authority. The authority's key is forgotten
/// as soon as it has signed: nobody can sign anything else with it.
struct Certificates
{
    Certificate authority;
    Certificate server; ///< for localhost and 127.0.0.1
    Key serverKey;
};

/// Makes a new authority and a server certificate, valid for a month.
/// @throws std::runtime_error  with what OpenSSL says
Certificates makeCertificates();

/// @throws std::runtime_error
std::string toPem(X509& certificate);

} // namespace reputationserver
