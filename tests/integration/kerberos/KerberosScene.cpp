#include "KerberosScene.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>

#include "tav/TAVSystemUtils.h"

namespace TAV::test
{
namespace
{

constexpr int kStateLevel = 5;
constexpr int kDetailLevel = 6;

} // namespace

LogLine failureLine(const std::string& reason)
{
    return {kDetailLevel, "KrbHandler", reason};
}

LogLine renewedLine()
{
    return {kStateLevel, "KrbHandler", "Kerberos configuration was set successfully."};
}

std::vector<LogLine> noCacheToRemove()
{
    return {failureLine("Either kerberos credentials cache file not found or could not be deleted during kerberos "
                        "ticket renewal.")};
}

std::vector<LogLine> noKeytabToRemove()
{
    return {failureLine("Either kerberos keytab file not found or could not be deleted during kerberos ticket "
                        "renewal.")};
}

std::vector<LogLine> operator+(std::vector<LogLine> lines, const std::vector<LogLine>& more)
{
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

std::vector<LogLine> operator+(std::vector<LogLine> lines, const LogLine& more)
{
    lines.push_back(more);
    return lines;
}

ClientConfig::ClientConfig(const std::string& file, const std::string& defaults)
{
    // Of several files, the first that says something counts.
    const std::string own = m_directory.write("krb5.conf", "[libdefaults]\n" + defaults + "\n");
    ::setenv("KRB5_CONFIG", (own + ":" + file).c_str(), 1);
}

krb5_error_code WatchedKrbAPIWrapper::noted(krb5_error_code result)
{
    if (result != 0)
        m_error = result;
    return result;
}

krb5_error_code WatchedKrbAPIWrapper::krb5InitContext(krb5_context* context)
{
    return noted(KrbAPIWrapper::krb5InitContext(context));
}

krb5_error_code WatchedKrbAPIWrapper::krb5ParseName(krb5_context context, const char* name, krb5_principal* principal)
{
    return noted(KrbAPIWrapper::krb5ParseName(context, name, principal));
}

krb5_error_code WatchedKrbAPIWrapper::krb5KtAddEntry(krb5_context context, krb5_keytab keytab, krb5_keytab_entry* entry)
{
    return noted(KrbAPIWrapper::krb5KtAddEntry(context, keytab, entry));
}

krb5_error_code WatchedKrbAPIWrapper::krb5CcResolve(krb5_context context, const char* name, krb5_ccache* cache)
{
    return noted(KrbAPIWrapper::krb5CcResolve(context, name, cache));
}

krb5_error_code WatchedKrbAPIWrapper::krb5GetInitCredsKeytab(krb5_context context,
                                                             krb5_creds* creds,
                                                             krb5_principal client,
                                                             krb5_keytab keytab,
                                                             krb5_deltat startTime,
                                                             const char* service,
                                                             krb5_get_init_creds_opt* options)
{
    return noted(KrbAPIWrapper::krb5GetInitCredsKeytab(context, creds, client, keytab, startTime, service, options));
}

KerberosScene::KerberosScene(const std::string& cacheName,
                             const std::string& keytabName,
                             std::shared_ptr<WatchedKrbAPIWrapper> krbApi)
    : m_cacheFile(named(cacheName)), m_keytabFile(named(keytabName)), m_krbApi(std::move(krbApi)),
      m_handler(std::make_unique<KrbHandler>(
          m_logger, std::make_shared<TAVSystemUtils>(), m_cacheFile, m_keytabFile, m_krbApi))
{
}

std::string KerberosScene::named(const std::string& name) const
{
    return name.find_first_of("/:") == std::string::npos ? m_directory.file(name) : name;
}

Renewal KerberosScene::renew(const std::string& user, const std::string& password)
{
    TAVProxyConfig config;
    config.userPrincipal = user;
    config.password = password;
    return watched([&] { return m_handler->configKrbSession(config); });
}

Renewal KerberosScene::renewAgain()
{
    return watched([this] { return m_handler->renewTicket(); });
}

Renewal KerberosScene::watched(const std::function<bool()>& renewal)
{
    const std::size_t linesBefore = m_logger.lines().size();
    const bool renewed = renewal();
    return {renewed, m_krbApi->takeError(), logSince(linesBefore)};
}

std::vector<LogLine> KerberosScene::end()
{
    const std::size_t linesBefore = m_logger.lines().size();
    m_handler.reset();
    return logSince(linesBefore);
}

std::vector<std::string> KerberosScene::files() const
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_directory.path()))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<LogLine> KerberosScene::logSince(std::size_t linesBefore) const
{
    std::vector<LogLine> lines = m_logger.lines();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(linesBefore));
    return lines;
}

} // namespace TAV::test
