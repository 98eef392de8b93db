#pragma once

#include <string>

#include "tav/ITAVUtils.h"

namespace programs
{

/// The version of the running kernel, from uname(2).
TAV::kernelVersion runningKernel();

/// The version that begins a release text such as "6.1.0-13-amd64". A number that is missing counts as 0, one that does
/// not fit into its 8 bits as 255, which keeps versions in their order.
TAV::kernelVersion parseKernelRelease(const std::string& release);

} // namespace programs
