#pragma once

namespace reputationserver
{

/// The whole program; its result is the exit code: 0 when it was stopped by SIGINT or SIGTERM, 1 if it could not serve,
/// 2 for bad arguments or a bad list.
int run(int argc, const char* const* argv);

} // namespace reputationserver
