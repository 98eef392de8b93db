#pragma once

#include <string>

#include "tav/ILogger.h"

namespace endpointscan
{

/// What became of the limit that a scan was told to keep.
struct CpuLimit
{
    unsigned short percent = 0; ///< of the whole machine; 0 if none was asked for
    bool isInForce = false;
    std::string explanation; ///< for people: what holds, or why it does not
};

/// Puts this process, and the archive tool that it starts later, under a CPU limit where the host offers it. A scan
/// goes on without one, as a daemon would: a slow host is better than one that nobody has looked at.
CpuLimit limitOwnCpu(TAV::ILogger& logger, unsigned short percent);

} // namespace endpointscan
