#pragma once

#include <functional>
#include <vector>

#include "endpoint_scan/Quarantine.h"
#include "endpoint_scan/Report.h"
#include "endpoint_scan/Types.h"

namespace endpointscan
{

/// Moves what is denied into the quarantine and notes in each finding what became of it.
/// @param isCancelled  asked between the steps; when it says so, all goes back to its place
void quarantineDenied(Quarantine& quarantine, ScanReport& report, const std::function<bool()>& isCancelled);

/// The exit code of a scan that came to its end, or was interrupted only while files were being moved.
int exitCodeOf(const std::vector<Finding>& findings, bool wasInterrupted);

} // namespace endpointscan
