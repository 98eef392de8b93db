#pragma once

#include <cstdint>
#include <memory>

#include <krb5/krb5.h>

#include "tav/ILogger.h"
#include "tav/ITAVSystemUtils.h"
#include "tav/IkrbAPIWrapper.h"
#include "tav/IkrbHandler.h"

namespace TAV
{

/// `IkrbHandler` over the calls of an `IkrbAPIWrapper`; logs under the component name "KrbHandler".
///
/// **Process.** The two environment variables belong to the whole process: make one handler, before other threads
/// start.
///
/// **Files.** Give it a directory of mode 0700 that the daemon owns. The keytab is made with mode 0600, whatever the
/// umask. Both files are deleted when the handler dies; a cache whose name has a type is never deleted.
///
/// **Secrets.** The password stays in the handler's memory, and in freed memory that is not wiped: switch core dumps
/// off (RLIMIT_CORE 0, setrlimit(2)).
class TAV_EXPORT KrbHandler : public IkrbHandler
{
public:
    /// Sets KRB5_CLIENT_KTNAME to the keytab's path and KRB5CCNAME to the cache's, for the whole process. No file is
    /// touched and no Kerberos call made.
    /// @param logger          kept by reference: it must outlive this object
    /// @param systemUtils     sets the variables; shared with the caller, and not checked for null
    /// @param cacheFilePath   credentials cache, as a plain path. What stands before a colon in it is taken for a
    ///                        type; a cache with a type, FILE: too, is never deleted: its tickets outlive renewals and
    ///                        the handler, and serve under the old account
    /// @param keytabFilePath  client keytab; cut at 4097 characters when it is written
    /// @param krbApi          the Kerberos calls; shared with the caller, and not checked for null
    /// @throws FMXException  code 1: "Cache file path not provided.", "Keytab file path not provided."; or, when a
    ///                       variable cannot be set, "Credentials cache filepath environment variable failed to set."
    ///                       for KRB5_CLIENT_KTNAME and "Keytab filepath environment variable failed to set." for
    ///                       KRB5CCNAME, crossed on purpose
    KrbHandler(ILogger& logger,
               std::shared_ptr<ITAVSystemUtils> systemUtils,
               std::string& cacheFilePath,
               std::string& keytabFilePath,
               std::shared_ptr<IkrbAPIWrapper> krbApi);
    KrbHandler(const KrbHandler&) = delete;
    KrbHandler& operator=(const KrbHandler&) = delete;

    /// Deletes both files; a file that cannot be deleted is logged (level 6). The environment stays as it is.
    ~KrbHandler() override;

    bool configKrbSession(TAVProxyConfig& config) override;
    bool renewTicket() override;

    /// @name The steps of a renewal
    /// `renewTicket` runs them in this order, in a context that it makes before and frees afterwards.
    /// @{

    /// Derives the key and fills the keytab entry.
    /// @return false if that failed, which is logged (level 6) but for want of memory
    bool addKeyAndPricipal();

    /// Writes the keytab.
    /// @return false if that failed, which is logged (level 6)
    bool generateKrbKeyTabAndCache();

    /// Obtains initial credentials with the keytab.
    /// @return false if that failed, which is logged (level 6)
    bool initKrb();
    /// @}

    /// Frees what a renewal holds: principal, password, salt, the handles of cache and keytab, and the context, in this
    /// order. Does nothing without a context. The keytab entry, the key and the credentials are deliberately left.
    void freeKrbMemory();

private:
    bool failed(const char* reason);
    void removeFile(const std::string& path, const char* failure);

    TAVProxyConfig m_proxyConfig;
    krb5_context m_context = nullptr;
    krb5_keytab_entry* m_keytabEntry = nullptr;
    krb5_enctype m_enctype = 0;
    krb5_data m_passwordData{};
    krb5_data m_saltData{};
    krb5_keytab m_keytab = nullptr;
    krb5_principal m_principal = nullptr;
    krb5_timestamp m_timestamp = 0;
    krb5_ccache m_ccache = nullptr;
    krb5_creds m_creds{};
    std::string m_cacheFilePath;
    std::string m_keytabFilePath;
    krb5_keyblock m_keyblock{};
    std::shared_ptr<IkrbAPIWrapper> m_krbApi;
    ILogger& m_logger;
    std::string m_componentName;
    std::shared_ptr<ITAVSystemUtils> m_systemUtils;
    std::string m_keytabEnvName;
    std::string m_cacheEnvName;
    std::string m_enctypeName;
    std::int32_t m_keyVersion = 2;
};

} // namespace TAV
