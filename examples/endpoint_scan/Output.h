#pragma once

#include <string>

#include "endpoint_scan/Record.h"

namespace endpointscan
{

/// The `path` of a report that goes to standard output, in place of the table.
constexpr const char* kStandardOutput = "-";

/// Why no report can be written at `path`, found out before there is anything to report; empty if one can. A file that
/// is there already will be replaced; what is not a regular file, like /dev/null, must not be.
std::string obstacleToReport(const std::string& path);

/// Tells what was done: in a report at `path`, unless that is empty, and in a table on standard output. The report
/// comes first, as nobody may be left to read the table; the table comes even if the report cannot be written.
/// @throws std::exception  if either could not be written
void tell(const std::string& path, const Json& report, const std::string& table);

/// A line on standard error for each line of the message.
void complain(const std::string& message);

} // namespace endpointscan
