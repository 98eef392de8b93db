#pragma once

namespace tavctl
{

/// The whole program: reads the command line, runs the one subcommand and tells the exit code: 0 for success, 1 for a
/// failure whose reason stands on standard error, 2 for bad arguments, 3 for a query without success.
int run(int argc, const char* const* argv);

} // namespace tavctl
