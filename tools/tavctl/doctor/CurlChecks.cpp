#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstring>
#include <memory>

#include "common/Text.h"
#include "tavctl/doctor/Checks.h"

namespace tavctl::doctor
{
namespace
{

using Certificate = std::unique_ptr<X509, void (*)(X509*)>;
using Memory = std::unique_ptr<BIO, int (*)(BIO*)>;

/// What a bundle of certificates holds.
struct Bundle
{
    int valid = 0;
    int expired = 0;
    int future = 0;
    bool isDamaged = false; ///< an entry that is none

    int count() const { return valid + expired + future; }
};

int noPassword(char* /*buffer*/, int /*size*/, int /*isWriting*/, void* /*data*/)
{
    return -1; // and never ask for one on the terminal
}

Bundle readBundle(const std::string& pem, std::time_t now)
{
    const Memory memory(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free);
    Bundle bundle;
    for (;;)
    {
        const Certificate certificate(PEM_read_bio_X509_AUX(memory.get(), nullptr, noPassword, nullptr), X509_free);
        if (certificate == nullptr)
            break;
        if (X509_cmp_time(X509_get0_notAfter(certificate.get()), &now) <= 0)
            ++bundle.expired;
        else if (X509_cmp_time(X509_get0_notBefore(certificate.get()), &now) > 0)
            ++bundle.future;
        else
            ++bundle.valid;
    }
    bundle.isDamaged = ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE;
    ERR_clear_error();
    return bundle;
}

std::string certificates(int number)
{
    return std::to_string(number) + (number == 1 ? " certificate" : " certificates");
}

Finding judge(const Bundle& bundle, const std::string& file)
{
    const std::string every = "every query fails with it (libcurl's code 77)";
    if (bundle.isDamaged)
        return {State::Problem,
                file + " is damaged behind " + certificates(bundle.count()),
                {every + ": replace it by whole PEM certificates"}};
    if (bundle.count() == 0)
        return {
            State::Problem, file + " holds no certificate", {every + ": it must be PEM, -----BEGIN CERTIFICATE-----"}};
    if (bundle.valid == 0)
        return {State::Problem,
                file + ": none of " + certificates(bundle.count()) + " is valid now",
                {"get a current one; or is this host's clock wrong?"}};
    if (bundle.expired + bundle.future > 0)
        return {State::Note,
                file + ": " + certificates(bundle.valid) + " valid, " + std::to_string(bundle.expired) + " expired, " +
                    std::to_string(bundle.future) + " not yet valid",
                {"servers that were signed by the others are refused"}};
    return {State::Ok, file + ": " + certificates(bundle.valid) + ", valid now", {}};
}

} // namespace

std::optional<Finding> checkLibcurl(Host& host, const Questions& /*questions*/)
{
    const CurlFacts facts = host.curl();
    if (!facts.speaksHttps || facts.tls.empty())
        return Finding{State::Problem,
                       "libcurl " + facts.version + " was built without TLS",
                       {"install one with it (Debian: libcurl4); every query is https"}};
    return Finding{State::Ok, "libcurl " + facts.version + " with " + facts.tls, {}};
}

std::optional<Finding> checkHttp2(Host& host, const Questions& /*questions*/)
{
    if (host.curl().speaksHttp2)
        return Finding{State::Ok, "spoken where the server offers it", {}};
    return Finding{State::Note, "not built in: queries use HTTP/1.1, and work as well", {}};
}

std::optional<Finding> checkNegotiate(Host& host, const Questions& /*questions*/)
{
    if (host.curl().speaksNegotiate)
        return Finding{State::Ok, "GSSAPI and SPNEGO: a proxy may ask for Kerberos", {}};
    return Finding{State::Warning,
                   "no GSSAPI or no SPNEGO: a proxy that asks for Kerberos cannot be passed",
                   {"install a libcurl with both (Debian: libcurl4); not needed if no proxy asks for it"}};
}

std::optional<Finding> checkCertificates(Host& host, const Questions& questions)
{
    if (questions.caFile.empty())
        return std::nullopt;
    const std::string shown = programs::printable(questions.caFile);
    const FileText file = host.read(questions.caFile);
    if (file.error != 0)
        return Finding{State::Problem,
                       shown + ": " + std::strerror(file.error),
                       {"name the file of the authority that signed the server's certificate, in PEM;",
                        "every query fails without it (libcurl's code 77)"}};
    return judge(readBundle(file.text, host.now()), shown);
}

} // namespace tavctl::doctor
