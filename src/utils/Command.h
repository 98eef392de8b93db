#pragma once

#include <array>
#include <map>
#include <string>
#include <vector>

#include "tav/ILogger.h"
#include "tav/ITAVSystemUtils.h"

namespace TAV
{

class TAVUtils;

namespace command
{

/// Descriptor to "keep open in the child".
using KeepMap = std::map<int, bool>;

/// Stands for the end of a pipe that was never made: using it fails without touching a real descriptor.
constexpr int kNoFd = -1;

/// What one run of a command works with, and the steps that both operations share. The steps of the child allocate
/// nothing while all goes well: a child forked from a process with threads may hold a lock of the allocator for good.
struct Run
{
    TAVUtils& utils;
    ITAVSystemUtils& systemUtils;
    ILogger& logger;
    const std::string& component;
    std::array<int, 2> errPipe{kNoFd, kNoFd};
    /// The one error value of the run: the last one that any system call stored.
    int err = 0;

    /// Makes the pipe for the child's standard error. Logs a failure.
    bool makeErrPipe();

    /// Closes that pipe and hands the outcome on.
    bool finish(bool outcome);

    /// Ends the run with a line that says why.
    bool fail(const char* reason);

    /// Child: puts /dev/null onto those of 0, 1 and 2 that are not kept. False if /dev/null cannot be opened.
    bool connectUnkeptToDevNull(const KeepMap& keep);

    /// Parent: reads the start of the child's standard error and composes the account of its abnormal end.
    /// @param sentence  what the account begins with, up to the status
    std::string describeAbnormalExit(const char* sentence, int status);
};

/// The argument list as execv(3) takes it. It points into `argv`.
std::vector<const char*> argumentPointers(const std::vector<std::string>& argv);

/// Child: ignores SIGTERM and SIGINT, which also holds for the program it becomes.
void ignoreTerminationSignals();

/// Child: closes every descriptor from `first` to `last` that is not kept, with one close_range(2) for each run.
/// @return false if the kernel refuses close_range; then some or all of them are still open
bool closeUnkeptRuns(long first, long last, const KeepMap& keep);

/// Child: becomes the program. Returns only if that fails, and then deliberately does not end the child.
void becomeProgram(const std::vector<std::string>& argv, const std::vector<const char*>& pointers);

/// Parent: whether a wait status means a normal exit with code 0.
bool exitedWithZero(int status);

} // namespace command
} // namespace TAV
