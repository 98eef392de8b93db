#pragma once

namespace TAV::bench
{

/// From now on sysconf(_SC_OPEN_MAX) and getrlimit(RLIMIT_NOFILE) tell this limit to everything in this process and in
/// the children it forks. The real limit stays: raising it needs a right that few machines give.
void tellDescriptorLimit(long limit);

} // namespace TAV::bench
