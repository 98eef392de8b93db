#pragma once

#include <spdlog/logger.h>

#include <memory>
#include <string>

namespace endpointscan
{

/// Where the services' lines go: to the end of a file if one is named; else to standard error, where only failures are
/// shown unless `isVerbose`. Each line is written out at once, so that a forked child holds none of them.
/// @throws UsageError  if the file cannot be opened
std::shared_ptr<spdlog::logger> makeSink(const std::string& file, bool isVerbose);

} // namespace endpointscan
