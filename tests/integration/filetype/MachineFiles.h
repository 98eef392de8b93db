#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace TAV::test
{

/// How many files are looked at.
inline constexpr std::size_t kMachineFiles = TAV_TEST_MACHINE_FILES;

/// Files of the machine's own, of as many kinds as it has: one or more of each file name extension under /usr and /etc.
const std::vector<std::string>& machineFiles();

} // namespace TAV::test
