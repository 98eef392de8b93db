#pragma once

#include <string>
#include <vector>

#include "endpoint_scan/CpuLimit.h"
#include "endpoint_scan/Quarantine.h"
#include "endpoint_scan/Types.h"

namespace endpointscan
{

/// One run of a scan, for the reports.
struct ScanReport
{
    std::string root;
    std::string denyList;       ///< empty if a server was asked
    std::size_t denied = 0;     ///< digests on the list
    std::string server;         ///< empty if there was a deny list
    std::string proxy;          ///< empty if there was none
    std::string ticketObstacle; ///< why there was no ticket for the proxy at the beginning; empty if there was one
    std::string started;
    std::string finished;
    CpuLimit cpuLimit;
    std::string archive; ///< path, empty if nothing was quarantined
    std::string record;
    int exitCode = 0;
    std::vector<Finding> findings;
};

/// How many findings have a verdict.
std::size_t countOf(const std::vector<Finding>& findings, Verdict verdict);

/// A table with a line per finding, and a summary.
std::string scanTable(const ScanReport& report);
Json scanJson(const ScanReport& report);

std::string restoreTable(const std::vector<RestoreResult>& results);
Json restoreJson(const std::vector<RestoreResult>& results, int exitCode);

std::string listTable(const std::vector<Record>& records);
Json listJson(const std::vector<Record>& records);

} // namespace endpointscan
