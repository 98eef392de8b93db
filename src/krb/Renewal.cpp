#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/LogLevels.h"
#include "tav/KrbHandler.h"

namespace TAV
{
namespace
{

constexpr const char* kCacheNotRemoved =
    "Either kerberos credentials cache file not found or could not be deleted during kerberos ticket renewal.";
constexpr const char* kKeytabNotRemoved =
    "Either kerberos keytab file not found or could not be deleted during kerberos ticket renewal.";
constexpr const char* kNoContext = "Kerberos module initializtion failed.";
constexpr const char* kNoPrincipal = "Kerberos principal name parsing failed.";
constexpr const char* kNoEnctype = "Kerberos encryption type string parsing failed.";
constexpr const char* kNoTime = "Kerberos time retrieval failed.";
constexpr const char* kNoSalt = "Kerberos salt generation failed.";
constexpr const char* kNoKey = "Kerberos Passkey generation failed.";
constexpr const char* kNoKeytab = "Kerberos keytab generation failed.";
constexpr const char* kNoEntry = "Kerberos keytab entry addition failed.";
constexpr const char* kNoCache = "Kerberos credentials cache generation failed.";
constexpr const char* kNoCredentials = "Kerberos initialization failed.";
constexpr const char* kDone = "Kerberos configuration was set successfully.";

constexpr std::size_t kPasswordSize = 8192;
constexpr std::size_t kKeytabNameSize = 4105; // the zero byte included

/// A zero-filled entry, deliberately left to nobody: it owns nothing, and the next renewal makes its own.
krb5_keytab_entry* newKeytabEntry()
{
    return static_cast<krb5_keytab_entry*>(std::calloc(1, sizeof(krb5_keytab_entry)));
}

/// A zero-filled copy of the password in memory that `krb5FreeDataContents` frees.
/// @return false for want of memory
bool copyPassword(const std::string& password, krb5_data& copy)
{
    copy.length = static_cast<unsigned int>(password.size());
    copy.data = static_cast<char*>(std::calloc(kPasswordSize, 1));
    if (copy.data == nullptr)
        return false;
    if (password.size() > kPasswordSize)
        std::abort(); // deliberately not a failure: no such password exists
    password.copy(copy.data, password.size());
    return true;
}

} // namespace

bool KrbHandler::configKrbSession(TAVProxyConfig& config)
{
    m_proxyConfig = config;
    return renewTicket();
}

bool KrbHandler::renewTicket()
{
    removeFile(m_cacheFilePath, kCacheNotRemoved);
    removeFile(m_keytabFilePath, kKeytabNotRemoved);
    if (m_krbApi->krb5InitContext(&m_context) != 0)
    {
        failed(kNoContext);
        freeKrbMemory();
        return false;
    }
    const bool renewed = addKeyAndPricipal() && generateKrbKeyTabAndCache() && initKrb();
    if (renewed)
        m_logger.log(kLogState, m_componentName, kDone);
    freeKrbMemory();
    return renewed;
}

bool KrbHandler::addKeyAndPricipal()
{
    if (m_krbApi->krb5ParseName(m_context, m_proxyConfig.userPrincipal.c_str(), &m_principal) != 0)
        return failed(kNoPrincipal);
    if (m_krbApi->krb5StringToEnctype(m_enctypeName.data(), &m_enctype) != 0)
        return failed(kNoEnctype);
    if (m_krbApi->krb5Timeofday(m_context, &m_timestamp) != 0)
        return failed(kNoTime);

    m_keytabEntry = newKeytabEntry();
    if (m_keytabEntry == nullptr || !copyPassword(m_proxyConfig.password, m_passwordData))
        return false;
    if (m_krbApi->krb5Principal2salt(m_context, m_principal, &m_saltData) != 0)
        return failed(kNoSalt);
    if (m_krbApi->krb5cStringToKey(m_context, m_enctype, &m_passwordData, &m_saltData, &m_keyblock) != 0)
        return failed(kNoKey);

    // The copy of the password lives for the derivation alone.
    if (m_passwordData.data != nullptr)
    {
        m_krbApi->krb5FreeDataContents(m_context, &m_passwordData);
        m_passwordData.length = 0;
    }

    m_keytabEntry->principal = m_principal;
    m_keytabEntry->timestamp = m_timestamp;
    m_keytabEntry->vno = static_cast<krb5_kvno>(m_keyVersion);
    m_keytabEntry->key = m_keyblock; // deliberately shares the key's contents
    return true;
}

bool KrbHandler::generateKrbKeyTabAndCache()
{
    std::array<char, kKeytabNameSize> name{};
    // A longer path is cut.
    static_cast<void>(std::snprintf(name.data(), name.size(), "WRFILE:%s", m_keytabFilePath.c_str()));
    if (m_krbApi->krb5KtResolve(m_context, name.data(), &m_keytab) != 0)
        return failed(kNoKeytab);
    if (m_krbApi->krb5KtAddEntry(m_context, m_keytab, m_keytabEntry) != 0)
        return failed(kNoEntry);
    return true;
}

bool KrbHandler::initKrb()
{
    if (m_krbApi->krb5CcResolve(m_context, m_cacheFilePath.c_str(), &m_ccache) != 0)
        return failed(kNoCache);
    m_creds = {}; // deliberately not freed before
    if (m_krbApi->krb5GetInitCredsKeytab(m_context, &m_creds, m_principal, m_keytab, 0, nullptr, nullptr) != 0)
        return failed(kNoCredentials);
    return true;
}

} // namespace TAV
