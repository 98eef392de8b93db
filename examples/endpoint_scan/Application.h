#pragma once

namespace endpointscan
{

/// The whole program; its result is the exit code.
int run(int argc, const char* const* argv);

} // namespace endpointscan
