#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/KrbFailure.h"
#include "common/KrbFiles.h"
#include "common/Password.h"
#include "common/QueryLog.h"
#include "tav/IkrbHandler.h"

namespace programs
{

/// Whose ticket to have, and where to keep what belongs to it.
struct KrbAccount
{
    std::string principal;
    SecretSource password;
    std::string keytab; ///< path; empty for a directory of the process's own
    std::string cache;  ///< the same

    bool isGiven() const { return !principal.empty(); }
};

/// What came of a renewal.
struct KrbRenewal
{
    bool isRenewed = false;
    KrbFailure failure;           ///< if it is not renewed
    std::vector<QueryLine> lines; ///< the handler's, but for those on files that were not there to be deleted

    /// "no ticket for WHOM: CAUSE"
    std::string obstacle(const std::string& principal) const;
};

/// What is wrong with a path as a place for a credentials cache; empty if nothing is. libkrb5 reads what stands before
/// a colon as a type, "FILE:/x" for instance, and the file that it then writes is not the one that would be deleted.
std::string obstacleToCache(const std::string& path);

constexpr std::size_t kLongestKrbPassword = 8192;

/// Reads an account's password.
/// @throws SecretError  as `readPassword` does; and for one that is longer than the library takes, which would abort
std::string readKrbPassword(const SecretSource& source);

/// The ticket of one account for the whole process, by the library's handler: make one, before other threads start.
/// The files are removed with it. There are no core dumps of the process any more, as the password is in its memory.
class KrbTicket
{
public:
    /// Reads the password and makes the handler; nobody is asked yet. Files that a renewal would delete, and that are
    /// not what such a renewal has made, are refused; so is a cache that nobody could delete by its path.
    /// @param logger  gets the handler's lines; must outlive this object
    /// @throws SecretError, std::runtime_error, TAV::FMXException
    KrbTicket(TAV::ILogger& logger, const KrbAccount& account);

    /// For tests: another handler, and how to learn why it failed.
    KrbTicket(std::unique_ptr<QueryLog> log,
              std::unique_ptr<TAV::IkrbHandler> handler,
              std::function<KrbFailure()> failure,
              TAV::TAVProxyConfig config);
    KrbTicket(const KrbTicket&) = delete;
    KrbTicket& operator=(const KrbTicket&) = delete;
    ~KrbTicket();

    const std::string& principal() const { return m_config.userPrincipal; }

    /// Null for another handler.
    KrbFiles* files() { return m_files.get(); }

    /// Gets a new ticket, the first one too. One thread at a time, and none may be in a transfer.
    KrbRenewal renew();

private:
    std::unique_ptr<QueryLog> m_log;
    std::unique_ptr<KrbFiles> m_files; ///< outlives the handler, which deletes what is in it
    std::shared_ptr<NotingKrbApi> m_api;
    std::unique_ptr<TAV::IkrbHandler> m_handler;
    std::function<KrbFailure()> m_failure;
    TAV::TAVProxyConfig m_config;
    bool m_isConfigured = false;
};

} // namespace programs
