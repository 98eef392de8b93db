#pragma once

#include <sys/resource.h>

#include <string>
#include <vector>

namespace tavctl
{

/// Runs a program to its end: found through PATH, with this process's descriptors and environment. SIGTERM and SIGHUP
/// are handed on to it; SIGINT and SIGQUIT are left to it, as a terminal sends them to both.
/// @param coreLimit  the program's limit for core dumps
/// @return its exit code; 128 + the signal that ended it; 127 or 126, as in a shell, if it cannot be started, which the
///         child tells on standard error
int runChildProgram(const std::vector<std::string>& argv, const struct rlimit& coreLimit);

} // namespace tavctl
