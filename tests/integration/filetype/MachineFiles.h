#pragma once

#include <string>
#include <vector>

namespace TAV::test
{

/// Files of the machine's own, of as many kinds as it has: one or more of each file name extension
/// under /usr and /etc, 600 or more altogether.
const std::vector<std::string>& machineFiles();

} // namespace TAV::test
