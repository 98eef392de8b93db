// What this machine's libraries are able to do, each asked through the library's own service.
#include <curl/curl.h>
#include <profile.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "tav/FMXException.h"
#include "tav/KrbAPIWrapper.h"
#include "tav/MagicUtils.h"
#include "tav/QelSSLUtils.h"
#include "tavctl/doctor/SystemHost.h"

namespace tavctl::doctor
{
namespace
{

constexpr const char* kPrincipal = "doctor@DOCTOR.INVALID"; // with its realm, so that none is looked for
constexpr const char* kRc4Name = "arcfour-hmac-md5";

/// A file without a name.
class MemoryFile
{
public:
    explicit MemoryFile(const std::string& bytes) : m_fd(::memfd_create("tavctl", MFD_CLOEXEC))
    {
        if (m_fd < 0 || ::write(m_fd, bytes.data(), bytes.size()) < 0 || ::lseek(m_fd, 0, SEEK_SET) != 0)
            throw Failure(std::string("no memory for a file: ") + std::strerror(errno));
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { ::close(m_fd); }
    int fd() const { return m_fd; }

private:
    int m_fd;
};

std::string textOf(krb5_context context, krb5_error_code code)
{
    const char* text = krb5_get_error_message(context, code);
    std::string copy = text;
    krb5_free_error_message(context, text);
    return copy;
}

/// A setting as [libdefaults] has it.
std::string settingOf(struct _profile_t* profile, const char* name)
{
    char* value = nullptr;
    if (profile_get_string(profile, "libdefaults", name, nullptr, nullptr, &value) != 0 || value == nullptr)
        return "";
    std::string copy = value;
    profile_release_string(value);
    return copy;
}

void readSettings(krb5_context context, KerberosFacts& facts)
{
    struct _profile_t* profile = nullptr;
    if (krb5_get_profile(context, &profile) != 0)
        return;
    facts.defaultRealm = settingOf(profile, "default_realm");
    facts.permittedEnctypes = settingOf(profile, "permitted_enctypes");
    facts.allowWeakCrypto = settingOf(profile, "allow_weak_crypto");
    facts.allowRc4 = settingOf(profile, "allow_rc4");
    profile_release(profile);
}

bool isPermitted(krb5_context context, krb5_enctype wanted)
{
    krb5_enctype* types = nullptr;
    if (krb5_get_permitted_enctypes(context, &types) != 0)
        return false;
    bool isFound = false;
    for (const krb5_enctype* type = types; *type != 0; ++type)
        isFound = isFound || *type == wanted;
    krb5_free_enctypes(context, types);
    return isFound;
}

/// Derives a key as a ticket renewal does it, through the same call layer.
krb5_error_code deriveKey(TAV::KrbAPIWrapper& api, krb5_context context, krb5_enctype& type)
{
    std::string name = kRc4Name;
    std::string password = "password";
    krb5_principal principal = nullptr;
    krb5_error_code code = api.krb5ParseName(context, kPrincipal, &principal);
    if (code != 0)
        return code;
    krb5_data salt = {};
    krb5_data secret = {};
    secret.data = password.data();
    secret.length = static_cast<unsigned int>(password.size());
    krb5_keyblock key = {};
    code = api.krb5StringToEnctype(name.data(), &type);
    if (code == 0)
        code = api.krb5Principal2salt(context, principal, &salt);
    if (code == 0)
        code = api.krb5cStringToKey(context, type, &secret, &salt, &key);
    api.krb5FreeKeyblockContents(context, &key);
    api.krb5FreeDataContents(context, &salt);
    api.krb5FreePrincipal(context, principal);
    return code;
}

} // namespace

std::string SystemHost::hashingError()
{
    TAV::QelSSLUtils ssl;
    const MemoryFile file("abc");
    std::string md5;
    std::string sha1;
    std::string sha256;
    std::string hmac;
    ssl.getChecksumValues("/proc/self/fd/" + std::to_string(file.fd()), TAV::INPUT_FILE_PATH, md5, sha1, sha256);
    if (md5 != "900150983cd24fb0d6963f7d28e17f72")
        return "MD5";
    if (sha1 != "a9993e364706816aba3e25717850c26c9cd0d89d")
        return "SHA-1";
    if (sha256 != "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad")
        return "SHA-256";
    // RFC 2202, test case 2.
    ssl.getHmacSha1("what do ya want for nothing?", "Jefe", hmac);
    return hmac == "7/zfauXrL6LSdBbV8YTfnCWafHk=" ? "" : "HMAC-SHA1";
}

MimeAnswer SystemHost::mimeTypeOf(const std::string& bytes)
{
    TAV::MagicUtils magic;
    MimeAnswer answer;
    bool isOpen = false;
    try
    {
        const MemoryFile file(bytes);
        magic.magicOpen();
        isOpen = true;
        magic.magicLoad(nullptr);
        const char* type = magic.magicDescriptor(file.fd());
        answer.type = type == nullptr ? "nothing" : type;
    }
    catch (const TAV::FMXException& error)
    {
        answer.error = error.message;
    }
    if (isOpen)
        magic.magicClose();
    return answer;
}

CurlFacts SystemHost::curl()
{
    const curl_version_info_data* info = curl_version_info(CURLVERSION_NOW);
    const auto has = [info](int feature) { return (info->features & feature) != 0; };
    CurlFacts facts;
    facts.version = info->version;
    facts.tls = info->ssl_version == nullptr ? "" : info->ssl_version;
    for (const char* const* protocol = info->protocols; *protocol != nullptr; ++protocol)
        facts.speaksHttps = facts.speaksHttps || std::strcmp(*protocol, "https") == 0;
    facts.speaksHttp2 = has(CURL_VERSION_HTTP2);
    facts.speaksNegotiate = has(CURL_VERSION_GSSAPI) && has(CURL_VERSION_SPNEGO);
    return facts;
}

KerberosFacts SystemHost::kerberos()
{
    TAV::KrbAPIWrapper api;
    KerberosFacts facts;
    krb5_context context = nullptr;
    const krb5_error_code code = api.krb5InitContext(&context);
    if (code != 0)
    {
        facts.error = textOf(nullptr, code);
        return facts;
    }
    krb5_enctype type = 0;
    const krb5_error_code derived = deriveKey(api, context, type);
    facts.rc4Error = derived == 0 ? "" : textOf(context, derived);
    facts.isRc4Permitted = isPermitted(context, type);
    readSettings(context, facts);
    api.krb5FreeContext(context);
    return facts;
}

} // namespace tavctl::doctor
