#include "tav/KrbHandler.h"

#include <cstdio>
#include <utility>

#include "frame/FailureCodes.h"
#include "frame/LogLevels.h"
#include "tav/FMXException.h"

namespace TAV
{
namespace
{

constexpr const char* kNoCachePath = "Cache file path not provided.";
constexpr const char* kNoKeytabPath = "Keytab file path not provided.";
// Deliberately crossed: each text names the other variable's file.
constexpr const char* kKeytabNotSet = "Credentials cache filepath environment variable failed to set.";
constexpr const char* kCacheNotSet = "Keytab filepath environment variable failed to set.";
// Deliberately without the full stop of the renewal's texts.
constexpr const char* kCacheNotRemoved =
    "Either kerberos credentials cache file not found or could not be deleted during shutdown";
constexpr const char* kKeytabNotRemoved =
    "Either kerberos keytab file not found or could not be deleted during shutdown";

constexpr int kOverwrite = 1;

} // namespace

KrbHandler::KrbHandler(ILogger& logger,
                       std::shared_ptr<ITAVSystemUtils> systemUtils,
                       std::string& cacheFilePath,
                       std::string& keytabFilePath,
                       std::shared_ptr<IkrbAPIWrapper> krbApi)
    : m_cacheFilePath(cacheFilePath), m_keytabFilePath(keytabFilePath), m_krbApi(std::move(krbApi)), m_logger(logger),
      m_componentName("KrbHandler"), m_systemUtils(std::move(systemUtils)), m_keytabEnvName("KRB5_CLIENT_KTNAME"),
      m_cacheEnvName("KRB5CCNAME"), m_enctypeName("arcfour-hmac-md5")
{
    if (m_cacheFilePath.empty())
        throw FMXException(kGeneralFailure, kNoCachePath);
    if (m_keytabFilePath.empty())
        throw FMXException(kGeneralFailure, kNoKeytabPath);

    int err = 0;
    if (m_systemUtils->setenv(m_keytabEnvName.c_str(), m_keytabFilePath.c_str(), kOverwrite, err) != 0)
        throw FMXException(kGeneralFailure, kKeytabNotSet);
    if (m_systemUtils->setenv(m_cacheEnvName.c_str(), m_cacheFilePath.c_str(), kOverwrite, err) != 0)
        throw FMXException(kGeneralFailure, kCacheNotSet);
}

KrbHandler::~KrbHandler()
{
    freeKrbMemory();
    removeFile(m_cacheFilePath, kCacheNotRemoved);
    removeFile(m_keytabFilePath, kKeytabNotRemoved);
}

void KrbHandler::freeKrbMemory()
{
    if (m_context == nullptr)
        return;
    if (m_principal != nullptr)
        m_krbApi->krb5FreePrincipal(m_context, std::exchange(m_principal, nullptr));
    if (m_passwordData.data != nullptr)
        m_krbApi->krb5FreeDataContents(m_context, &m_passwordData);
    if (m_saltData.data != nullptr)
        m_krbApi->krb5FreeDataContents(m_context, &m_saltData);
    if (m_ccache != nullptr)
        m_krbApi->krb5CcClose(m_context, std::exchange(m_ccache, nullptr));
    if (m_keytab != nullptr)
        m_krbApi->krb5KtClose(m_context, std::exchange(m_keytab, nullptr));
    m_krbApi->krb5FreeContext(std::exchange(m_context, nullptr));
}

bool KrbHandler::failed(const char* reason)
{
    m_logger.log(kLogDetail, m_componentName, reason);
    return false;
}

void KrbHandler::removeFile(const std::string& path, const char* failure)
{
    if (std::remove(path.c_str()) != 0)
        failed(failure);
}

} // namespace TAV
