#pragma once

#include <map>
#include <string>
#include <vector>

#include "tav/ITAVSystemUtils.h"

namespace TAV
{

class TAVUtils;

/// The steps that both command operations share. Those for the child allocate nothing: a child forked from a process
/// with threads may hold a lock of the allocator that nobody will ever release.
namespace child
{

/// Descriptor to "keep open in the child".
using KeepMap = std::map<int, bool>;

/// A pipe pair that was never made. Duplicating, reading or closing it fails without touching a real descriptor.
constexpr int kNoFd = -1;

/// The argument list as execv(3) takes it. It points into `argv`.
std::vector<const char*> argumentPointers(const std::vector<std::string>& argv);

/// Child: ignores SIGTERM and SIGINT, which also holds for the program it becomes.
void ignoreTerminationSignals();

/// Child: closes every descriptor from `first` to `last` that is not kept, with one close_range(2) for each run.
/// @return false if the kernel refuses close_range; then some or all of them are still open
bool closeUnkeptRuns(long first, long last, const KeepMap& keep);

/// Child: puts /dev/null onto those of 0, 1 and 2 that are not kept.
/// @return false if /dev/null cannot be opened
bool connectUnkeptToDevNull(const TAVUtils& utils, ITAVSystemUtils& systemUtils, const KeepMap& keep, int& err);

/// Child: becomes the program. Returns only if that fails, and then deliberately does not end the child.
void becomeProgram(const std::vector<std::string>& argv, const std::vector<const char*>& pointers);

/// Parent: whether a wait status means a normal exit with code 0.
bool exitedWithZero(int status);

/// Parent: reads the start of the child's standard error and composes the account of its abnormal end.
/// @param sentence  what the account begins with, up to the status
std::string
describeAbnormalExit(const char* sentence, int status, int stderrFd, ITAVSystemUtils& systemUtils, int& err);

} // namespace child
} // namespace TAV
