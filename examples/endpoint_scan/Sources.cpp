#include "endpoint_scan/Sources.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "common/QueryText.h"
#include "common/Text.h"
#include "endpoint_scan/CappedCurl.h"
#include "endpoint_scan/DenyListVerdicts.h"
#include "endpoint_scan/Report.h"
#include "endpoint_scan/ServerVerdicts.h"
#include "endpoint_scan/TicketDuringScan.h"
#include "tav/CurlWrapper.h"

namespace endpointscan
{
namespace
{

void requireAddress(const std::string& option, const std::string& address)
{
    const std::string obstacle = programs::obstacleToServer(address);
    if (!obstacle.empty())
        throw UsageError(option + " \"" + programs::printable(address) + "\": " + obstacle);
}

/// The client tells an unreadable file from a foreign certificate only when it asks: too late for every file.
void requireReadable(const std::string& path)
{
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored))
        throw UsageError("--ca " + programs::printable(path) + ": is a directory");
    if (!std::ifstream(path))
        throw UsageError("--ca " + programs::printable(path) + ": " + std::strerror(errno));
}

/// A ticket for the proxy, if it is to have one; with a note if there is none yet.
std::unique_ptr<TicketDuringScan> makeTicket(const Options& options, TAV::ILogger& logger, ScanReport& report)
{
    if (!options.account.isGiven())
        return nullptr;
    std::unique_ptr<programs::KrbTicket> account;
    try
    {
        account = std::make_unique<programs::KrbTicket>(logger, options.account);
    }
    catch (const std::runtime_error& error)
    {
        throw UsageError(std::string("Kerberos: ") + error.what());
    }
    auto ticket = std::make_unique<TicketDuringScan>(std::move(account));
    report.ticketObstacle = ticket->begin();
    return ticket;
}

} // namespace

std::unique_ptr<Verdicts> makeVerdicts(const Options& options, TAV::ILogger& logger, ScanReport& report)
{
    if (!options.denyList.empty())
    {
        DenyList list = DenyList::load(options.denyList);
        if (list.size() == 0)
            throw UsageError(programs::printable(options.denyList) + ": no digests");
        report.denyList = options.denyList;
        report.denied = list.size();
        return std::make_unique<DenyListVerdicts>(std::move(list));
    }
    requireAddress("--server", options.server);
    if (options.isProxyGiven)
        requireAddress("--proxy", options.proxy);
    requireReadable(options.caFile);
    report.server = options.server;
    report.proxy = options.proxy;
    auto ticket = makeTicket(options, logger, report);
    auto log = std::make_unique<programs::QueryLog>(logger);
    auto client = std::make_unique<TAV::CurlWrapper>(*log, std::make_shared<CappedCurl>());
    return std::make_unique<ServerVerdicts>(
        std::move(log),
        std::move(client),
        ServerAddress{options.server, options.caFile, options.queryTimeout, options.proxy},
        std::move(ticket));
}

} // namespace endpointscan
