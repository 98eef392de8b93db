#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "endpoint_scan/Types.h"
#include "endpoint_scan/Verdicts.h"

namespace endpointscan
{

/// What the scanner needs to know of its surroundings.
struct ScanSettings
{
    int root = -1;                  ///< the open directory
    std::vector<Identity> excluded; ///< directories that are not entered
    unsigned int threads = 1;
    std::function<bool()> isCancelled;                                 ///< asked by any thread
    std::function<void(std::size_t done, std::size_t all)> onProgress; ///< called by the caller's thread, now and then
};

/// Examines every regular file below a directory with a pool of threads, each with a libmagic of its own and as an
/// asker of its own. When it returns, the threads have ended: commands can be run without other threads beside.
/// @return one finding per file or other entry that was met, sorted by path
/// @throws TAV::FMXException  if the database of file types cannot be loaded
std::vector<Finding> scan(const ScanSettings& settings, Verdicts& verdicts);

} // namespace endpointscan
