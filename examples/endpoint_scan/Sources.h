#pragma once

#include <memory>

#include "endpoint_scan/Options.h"
#include "endpoint_scan/Verdicts.h"
#include "tav/ILogger.h"

namespace endpointscan
{

struct ScanReport;

/// The source of verdicts that the options name. The client of a server is made here, with all that it needs, and with
/// it the one use of libcurl in this process: no other thread may run yet. The same goes for a ticket, which is got
/// here; if there is none, the report says why, and the scan will try without.
/// @param logger  gets the client's lines; must outlive the source
/// @param report  gets what the source is
/// @throws UsageError  if the deny list, which must not be empty, the name of the server or its CA file make no sense,
/// or the account
///                     of the ticket
/// @throws TAV::FMXException  if libcurl cannot be used
std::unique_ptr<Verdicts> makeVerdicts(const Options& options, TAV::ILogger& logger, ScanReport& report);

} // namespace endpointscan
