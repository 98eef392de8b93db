#include "reputation_server/Certificates.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <array>
#include <stdexcept>

namespace reputationserver
{
namespace
{

constexpr long kVersion3 = 2;
constexpr long kClockDifference = 60L * 60;
constexpr long kLifetime = 30L * 24 * 60 * 60;
constexpr int kSerialBits = 64;

[[noreturn]] void fail(const std::string& what)
{
    std::array<char, 256> reason{};
    ERR_error_string_n(ERR_get_error(), reason.data(), reason.size());
    throw std::runtime_error("cannot " + what + ": " + reason.data());
}

void require(bool ok, const char* what)
{
    if (!ok)
        fail(what);
}

Key makeKey()
{
    const std::unique_ptr<EVP_PKEY_CTX, void (*)(EVP_PKEY_CTX*)> context(EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr),
                                                                         EVP_PKEY_CTX_free);
    EVP_PKEY* key = nullptr;
    require(context != nullptr && EVP_PKEY_keygen_init(context.get()) == 1 &&
                EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(), NID_X9_62_prime256v1) == 1 &&
                EVP_PKEY_keygen(context.get(), &key) == 1,
            "make a key");
    return {key, EVP_PKEY_free};
}

/// A serial number that no other certificate of this name has: clients remember them.
void setSerial(X509& certificate)
{
    const std::unique_ptr<BIGNUM, void (*)(BIGNUM*)> number(BN_new(), BN_free);
    require(number != nullptr && BN_rand(number.get(), kSerialBits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 1 &&
                BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(&certificate)) != nullptr,
            "number a certificate");
}

void setName(X509_NAME* name, const std::string& text)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.c_str());
    require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, bytes, -1, -1, 0) == 1, "name a certificate");
}

void addExtension(X509& certificate, X509& issuer, int which, const char* value)
{
    X509V3_CTX context = {};
    X509V3_set_ctx(&context, &issuer, &certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, void (*)(X509_EXTENSION*)> extension(
        X509V3_EXT_conf_nid(nullptr, &context, which, value), X509_EXTENSION_free);
    require(extension != nullptr && X509_add_ext(&certificate, extension.get(), -1) == 1, "extend a certificate");
}

/// A certificate without extensions and signature.
Certificate begin(const std::string& name, EVP_PKEY& key)
{
    Certificate certificate(X509_new(), X509_free);
    require(certificate != nullptr && X509_set_version(certificate.get(), kVersion3) == 1, "make a certificate");
    setSerial(*certificate);
    setName(X509_get_subject_name(certificate.get()), name);
    require(X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kClockDifference) != nullptr &&
                X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kLifetime) != nullptr &&
                X509_set_pubkey(certificate.get(), &key) == 1,
            "fill in a certificate");
    return certificate;
}

void sign(X509& certificate, X509& issuer, EVP_PKEY& issuerKey)
{
    require(X509_set_issuer_name(&certificate, X509_get_subject_name(&issuer)) == 1 &&
                X509_sign(&certificate, &issuerKey, EVP_sha256()) > 0,
            "sign a certificate");
}

Certificate makeAuthority(EVP_PKEY& key)
{
    Certificate certificate = begin("reputation_server authority", key);
    addExtension(*certificate, *certificate, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
    addExtension(*certificate, *certificate, NID_key_usage, "critical,keyCertSign");
    addExtension(*certificate, *certificate, NID_subject_key_identifier, "hash");
    sign(*certificate, *certificate, key);
    return certificate;
}

Certificate makeServer(EVP_PKEY& key, X509& authority, EVP_PKEY& authorityKey)
{
    Certificate certificate = begin("localhost", key);
    addExtension(*certificate, authority, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(*certificate, authority, NID_key_usage, "critical,digitalSignature");
    addExtension(*certificate, authority, NID_ext_key_usage, "serverAuth");
    addExtension(*certificate, authority, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1");
    addExtension(*certificate, authority, NID_authority_key_identifier, "keyid:always");
    sign(*certificate, authority, authorityKey);
    return certificate;
}

} // namespace

Certificates makeCertificates()
{
    const Key authorityKey = makeKey();
    Certificate authority = makeAuthority(*authorityKey);
    Key serverKey = makeKey();
    Certificate server = makeServer(*serverKey, *authority, *authorityKey);
    return {std::move(authority), std::move(server), std::move(serverKey)};
}

std::string toPem(X509& certificate)
{
    const std::unique_ptr<BIO, int (*)(BIO*)> memory(BIO_new(BIO_s_mem()), BIO_free);
    require(memory != nullptr && PEM_write_bio_X509(memory.get(), &certificate) == 1, "write a certificate");
    char* text = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

} // namespace reputationserver
