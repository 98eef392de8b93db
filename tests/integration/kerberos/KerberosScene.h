#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/TemporaryDirectory.h"
#include "tav/KrbAPIWrapper.h"
#include "tav/KrbHandler.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{

inline constexpr const char* kUser = "user@TEST.EXAMPLE";
inline constexpr const char* kPassword = "userpw";

/// How a renewal ended.
struct Renewal
{
    bool renewed = false;
    krb5_error_code error = 0; ///< of the call of libkrb5's that failed
    std::vector<LogLine> log;  ///< what was logged meanwhile
};

/// The production call layer, which keeps what libkrb5 said last when a call failed.
class WatchedKrbAPIWrapper : public KrbAPIWrapper
{
public:
    krb5_error_code krb5InitContext(krb5_context* context) override;
    krb5_error_code krb5ParseName(krb5_context context, const char* name, krb5_principal* principal) override;
    krb5_error_code krb5KtAddEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry) override;
    krb5_error_code krb5CcResolve(krb5_context context, const char* name, krb5_ccache* cache) override;
    krb5_error_code krb5GetInitCredsKeytab(krb5_context context,
                                           krb5_creds* creds,
                                           krb5_principal client,
                                           krb5_keytab keytab,
                                           krb5_deltat startTime,
                                           const char* service,
                                           krb5_get_init_creds_opt* options) override;

    krb5_error_code takeError() { return std::exchange(m_error, 0); }

private:
    krb5_error_code noted(krb5_error_code result);

    krb5_error_code m_error = 0;
};

/// @name Log lines of the handler's
/// @{
std::vector<LogLine> noCacheToRemove();
std::vector<LogLine> noKeytabToRemove();
LogLine renewedLine();
LogLine failureLine(const std::string& reason);
/// @}

/// Lists one after the other.
std::vector<LogLine> operator+(std::vector<LogLine> lines, const std::vector<LogLine>& more);
std::vector<LogLine> operator+(std::vector<LogLine> lines, const LogLine& more);

/// Makes libkrb5 read these files, in this process and those that it starts, instead of the machine's.
/// @param defaults  lines for a [libdefaults] of the test's own, which win
class ClientConfig
{
public:
    explicit ClientConfig(const std::string& file, const std::string& defaults = "");

private:
    TemporaryDirectory m_directory;
};

/// The production handler with the files of a directory of its own, and what it logs.
///
///     Kdc kdc;
///     kdc.addUser("user", "userpw");
///     const ClientConfig config(kdc.clientConfig());
///     KerberosScene scene;
///     EXPECT_TRUE(scene.renew().renewed);
class KerberosScene
{
public:
    /// @param cacheName, keytabName  files of the directory, or whole names if they hold a slash or a colon
    explicit KerberosScene(const std::string& cacheName = "cache",
                           const std::string& keytabName = "keytab",
                           std::shared_ptr<WatchedKrbAPIWrapper> krbApi = std::make_shared<WatchedKrbAPIWrapper>());

    Renewal renew(const std::string& user = kUser, const std::string& password = kPassword);

    /// Renews for the account of the last time.
    Renewal renewAgain();

    /// Ends the handler.
    /// @return what it logged meanwhile
    std::vector<LogLine> end();

    const std::string& cacheFile() const { return m_cacheFile; }
    const std::string& keytabFile() const { return m_keytabFile; }
    std::string file(const std::string& name) const { return m_directory.file(name); }

    /// The names of what lies in the directory, in their order.
    std::vector<std::string> files() const;

private:
    std::string named(const std::string& name) const;
    Renewal watched(const std::function<bool()>& renewal);
    std::vector<LogLine> logSince(std::size_t linesBefore) const;

    TemporaryDirectory m_directory;
    std::string m_cacheFile;
    std::string m_keytabFile;
    RecordingLogger m_logger;
    std::shared_ptr<WatchedKrbAPIWrapper> m_krbApi;
    std::unique_ptr<KrbHandler> m_handler;
};

} // namespace TAV::test
