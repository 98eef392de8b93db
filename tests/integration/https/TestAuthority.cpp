#include "TestAuthority.h"

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

namespace TAV::test
{
namespace
{

constexpr const char* kLoopbackNames = "DNS:localhost,IP:127.0.0.1";
constexpr long kHour = 60L * 60L;
constexpr long kDay = 24 * kHour;

/// What is asked of a certificate.
struct Wish
{
    const char* commonName;
    const char* alternativeNames; ///< null: it is an authority's
    long end;                     ///< seconds from now
};

constexpr Wish kAuthority = {"Authority of a test run", nullptr, kDay};
constexpr Wish kOtherAuthority = {"Another authority of a test run", nullptr, kDay};
constexpr Wish kGood = {"localhost", kLoopbackNames, kDay};
constexpr Wish kExpired = {"localhost", kLoopbackNames, -kHour};
constexpr Wish kWrongName = {"elsewhere.invalid", "DNS:elsewhere.invalid", kDay};

struct Free
{
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
    void operator()(BIGNUM* number) const { BN_free(number); }
    void operator()(std::FILE* file) const { std::fclose(file); }
};

template <typename Object>
using Owner = std::unique_ptr<Object, Free>;

struct Identity
{
    Owner<EVP_PKEY> key;
    Owner<X509> certificate;
};

void require(bool good, const std::string& what)
{
    if (!good)
        throw std::runtime_error("certificates of the test: cannot " + what);
}

/// On an elliptic curve, which takes no time to make.
Owner<EVP_PKEY> makeKey()
{
    const Owner<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr));
    EVP_PKEY* key = nullptr;
    require(context && EVP_PKEY_keygen_init(context.get()) == 1 &&
                EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(), NID_X9_62_prime256v1) == 1 &&
                EVP_PKEY_CTX_set_ec_param_enc(context.get(), OPENSSL_EC_NAMED_CURVE) == 1 &&
                EVP_PKEY_keygen(context.get(), &key) == 1,
            "make a key");
    return Owner<EVP_PKEY>(key);
}

void setSerialNumber(X509* certificate)
{
    constexpr int kBits = 63;
    const Owner<BIGNUM> number(BN_new());
    require(number && BN_rand(number.get(), kBits, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1 &&
                BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr,
            "number a certificate");
}

void addExtension(X509* certificate, int nid, const char* value)
{
    const Owner<X509_EXTENSION> extension(X509V3_EXT_conf_nid(nullptr, nullptr, nid, value));
    require(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "extend a certificate");
}

/// A certificate as wished, signed by `issuer`, or by itself if there is none.
Identity makeIdentity(const Wish& wish, const Identity* issuer)
{
    Identity made{makeKey(), Owner<X509>(X509_new())};
    X509* const certificate = made.certificate.get();
    require(certificate != nullptr && X509_set_version(certificate, 2) == 1, "make a certificate");
    setSerialNumber(certificate);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -kDay);
    X509_gmtime_adj(X509_getm_notAfter(certificate), wish.end);
    X509_set_pubkey(certificate, made.key.get());

    X509_NAME* const name = X509_get_subject_name(certificate);
    const auto* const text = reinterpret_cast<const unsigned char*>(wish.commonName);
    require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text, -1, -1, 0) == 1, "name a certificate");
    X509_set_issuer_name(certificate, issuer == nullptr ? name : X509_get_subject_name(issuer->certificate.get()));
    if (wish.alternativeNames == nullptr)
        addExtension(certificate, NID_basic_constraints, "critical,CA:TRUE");
    else
        addExtension(certificate, NID_subject_alt_name, wish.alternativeNames);
    EVP_PKEY* const signer = issuer == nullptr ? made.key.get() : issuer->key.get();
    require(X509_sign(certificate, signer, EVP_sha256()) > 0, "sign a certificate");
    return made;
}

Owner<std::FILE> createFile(const std::string& path)
{
    Owner<std::FILE> file(std::fopen(path.c_str(), "we"));
    require(file != nullptr, "write " + path);
    return file;
}

ServerCertificate store(const TemporaryDirectory& directory, const std::string& name, const Identity& identity)
{
    const ServerCertificate paths{directory.file(name + ".pem"), directory.file(name + ".key")};
    require(PEM_write_X509(createFile(paths.certificate).get(), identity.certificate.get()) == 1, "store " + name);
    require(PEM_write_PrivateKey(
                createFile(paths.key).get(), identity.key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1,
            "store the key of " + name);
    return paths;
}

} // namespace

TestAuthority::TestAuthority()
{
    const Identity authority = makeIdentity(kAuthority, nullptr);
    const Identity other = makeIdentity(kOtherAuthority, nullptr);
    const Identity impostor = makeIdentity(kAuthority, nullptr);
    m_ca = store(m_directory, "ca", authority);
    m_otherCa = store(m_directory, "other-ca", other);
    m_good = store(m_directory, "good", makeIdentity(kGood, &authority));
    m_expired = store(m_directory, "expired", makeIdentity(kExpired, &authority));
    m_wrongName = store(m_directory, "wrong-name", makeIdentity(kWrongName, &authority));
    m_selfSigned = store(m_directory, "self-signed", makeIdentity(kGood, nullptr));
    m_fromOther = store(m_directory, "from-other", makeIdentity(kGood, &other));
    m_fromImpostor = store(m_directory, "from-impostor", makeIdentity(kGood, &impostor));
}

const TestAuthority& TestAuthority::shared()
{
    static const TestAuthority authority;
    return authority;
}

} // namespace TAV::test
