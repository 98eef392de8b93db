#include "endpoint_scan/Sources.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "common/QueryText.h"
#include "common/StandardDescriptors.h"
#include "common/Text.h"
#include "endpoint_scan/CappedCurl.h"
#include "endpoint_scan/DenyListVerdicts.h"
#include "endpoint_scan/Report.h"
#include "endpoint_scan/ServerVerdicts.h"
#include "tav/CurlWrapper.h"

namespace endpointscan
{
namespace
{

void requireServer(const std::string& server)
{
    const std::string obstacle = programs::obstacleToServer(server);
    if (!obstacle.empty())
        throw UsageError("--server \"" + programs::printable(server) + "\": " + obstacle);
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

} // namespace

std::unique_ptr<Verdicts> makeVerdicts(const Options& options, TAV::ILogger& logger, ScanReport& report)
{
    if (!options.denyList.empty())
    {
        DenyList list = DenyList::load(options.denyList);
        report.denyList = options.denyList;
        report.denied = list.size();
        return std::make_unique<DenyListVerdicts>(std::move(list));
    }
    requireServer(options.server);
    requireReadable(options.caFile);
    report.server = options.server;
    programs::ignoreBrokenPipes();
    auto log = std::make_unique<programs::QueryLog>(logger);
    auto client = std::make_unique<TAV::CurlWrapper>(*log, std::make_shared<CappedCurl>());
    return std::make_unique<ServerVerdicts>(
        std::move(log), std::move(client), ServerAddress{options.server, options.caFile, options.queryTimeout});
}

} // namespace endpointscan
