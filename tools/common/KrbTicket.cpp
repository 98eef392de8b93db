#include "common/KrbTicket.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "common/Keytab.h"
#include "common/Text.h"
#include "tav/KrbHandler.h"
#include "tav/TAVSystemUtils.h"

namespace programs
{
namespace
{

namespace fs = std::filesystem;

// How the handler begins to tell of a file that was not there to be deleted: in the ordinary course, each time.
constexpr const char* kNothingToDelete = "Either kerberos ";

void forbidCoreDumps()
{
    struct rlimit limit = {};
    ::getrlimit(RLIMIT_CORE, &limit);
    limit.rlim_cur = 0;
    ::setrlimit(RLIMIT_CORE, &limit);
}

std::vector<QueryLine> withoutDeletions(std::vector<QueryLine> lines)
{
    const auto isDeletion = [](const QueryLine& line) { return line.message.rfind(kNothingToDelete, 0) == 0; };
    lines.erase(std::remove_if(lines.begin(), lines.end(), isDeletion), lines.end());
    return lines;
}

bool isThere(const std::string& path)
{
    std::error_code ignored;
    return !path.empty() && fs::exists(fs::symlink_status(path, ignored));
}

[[noreturn]] void refuse(const std::string& path, const std::string& obstacle)
{
    throw std::runtime_error(path + ": " + obstacle +
                             ", and would be deleted: name another file, or delete it yourself");
}

/// A renewal deletes what is there. A slip of the pen must not cost the machine its own keytab.
void requireOwnKeytab(const std::string& path, const std::string& principal)
{
    if (!isThere(path))
        return;
    TAV::KrbAPIWrapper api;
    Keytab keytab;
    try
    {
        keytab = readKeytab(api, path);
    }
    catch (const std::runtime_error&)
    {
        refuse(path, "exists and is no keytab");
    }
    const std::string name = fullPrincipal(api, principal);
    for (const KeytabEntry& entry : keytab.entries)
    {
        if (entry.principal != name)
            refuse(path, "holds a key of " + entry.principal);
    }
}

void requireCache(const std::string& path)
{
    if (const std::string obstacle = obstacleToCache(path); !obstacle.empty())
        throw std::runtime_error(obstacle);
    if (!isThere(path))
        return;
    char beginning[2] = {};
    std::ifstream file(path, std::ios::binary);
    file.read(beginning, sizeof beginning);
    if (!fs::is_regular_file(path) || beginning[0] != 5 || (beginning[1] != 3 && beginning[1] != 4))
        refuse(path, "exists and is no credentials cache");
}

TAV::TAVProxyConfig configOf(const KrbAccount& account)
{
    TAV::TAVProxyConfig config;
    config.userPrincipal = account.principal;
    config.password = readKrbPassword(account.password);
    return config;
}

} // namespace

std::string obstacleToCache(const std::string& path)
{
    if (path.find(':') == std::string::npos)
        return "";
    return printable(path) + ": what stands before a colon may be taken for a type of cache: give a path without one";
}

std::string readKrbPassword(const SecretSource& source)
{
    std::string password = readPassword(source);
    if (password.size() > kLongestKrbPassword)
        throw SecretError("the password is longer than " + std::to_string(kLongestKrbPassword) +
                          " bytes, which is more than the library takes");
    return password;
}

std::string KrbRenewal::obstacle(const std::string& principal) const
{
    return "no ticket for " + printable(principal) + ": " + failure.cause;
}

KrbTicket::KrbTicket(TAV::ILogger& logger, const KrbAccount& account)
    : m_log(std::make_unique<QueryLog>(logger)), m_api(std::make_shared<NotingKrbApi>()),
      m_failure([this] { return m_api->failure(); }), m_config(configOf(account))
{
    if (!account.keytab.empty() && account.keytab == account.cache)
        throw std::runtime_error(account.keytab + ": keytab and cache must be two files");
    requireOwnKeytab(account.keytab, account.principal);
    requireCache(account.cache);
    forbidCoreDumps();
    m_files = std::make_unique<KrbFiles>(account.keytab, account.cache);
    m_handler = std::make_unique<TAV::KrbHandler>(
        *m_log, std::make_shared<TAV::TAVSystemUtils>(), m_files->cache(), m_files->keytab(), m_api);
}

KrbTicket::KrbTicket(std::unique_ptr<QueryLog> log,
                     std::unique_ptr<TAV::IkrbHandler> handler,
                     std::function<KrbFailure()> failure,
                     TAV::TAVProxyConfig config)
    : m_log(std::move(log)), m_handler(std::move(handler)), m_failure(std::move(failure)), m_config(std::move(config))
{
}

KrbTicket::~KrbTicket() = default;

KrbRenewal KrbTicket::renew()
{
    if (m_api != nullptr)
        m_api->forget();
    m_log->takeLines();
    KrbRenewal renewal;
    renewal.isRenewed =
        std::exchange(m_isConfigured, true) ? m_handler->renewTicket() : m_handler->configKrbSession(m_config);
    renewal.lines = withoutDeletions(m_log->takeLines());
    if (renewal.isRenewed)
        return renewal;
    renewal.failure = m_failure();
    // A key that the KDC refuses is left behind, and GSSAPI would show it to the KDC again at each transfer: enough
    // wrong passwords to lock any account. One that nobody has seen may be right, and then GSSAPI gets the ticket by
    // itself.
    if (m_files != nullptr && renewal.failure.error != KRB5_KDC_UNREACH)
        static_cast<void>(std::remove(m_files->keytab().c_str()));
    return renewal;
}

} // namespace programs
