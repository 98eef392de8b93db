#pragma once

#include <string>

#include "support/TemporaryDirectory.h"

namespace TAV::test
{

/// Why a process cannot be given authorities of the machine's that nobody else sees; empty if it can.
std::string obstacleToMachineCas();

/// From here on, this process and its children find one authority, and no other, where libcurl looks for those of the
/// machine. For a SacrificialProcess: there is no way back.
/// @param caFile  its certificate
/// @param place   gets a directory for it; must live as long as the process
void giveMachineCas(const std::string& caFile, const TemporaryDirectory& place);

/// Makes an authority that has signed nothing, under a name of its own: one with another's name would hide that.
/// @param place  gets the file
/// @return its certificate
std::string makeStrangeCa(const TemporaryDirectory& place);

} // namespace TAV::test
