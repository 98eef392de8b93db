#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tav/Export.h"

namespace TAV
{

/// Version of the running kernel: 2.6.24 is {2, 6, 24}.
struct kernelVersion
{
    std::uint8_t major = 0;
    std::uint8_t minor = 0;
    std::uint8_t patch = 0;
};

/// Runs external commands with a controlled set of open descriptors, and puts processes under a CPU quota.
///
/// The order of the operations is part of the binary interface.
///
/// **The keep-map.** Both command operations take a `std::map<int, bool>` from descriptor to "keep open in the child".
/// A descriptor that is absent, or present with `false`, is closed in the child. The pointer may be null.
///
/// **The child may come back.** Both command operations fork. When the program cannot be started, the child does not
/// exit: the call returns in the child too, and the child goes on in the caller's code. Guard each call:
///
///     const pid_t before = getpid();
///     const bool ok = utils.executeSystemCommand(argv, nullptr);
///     if (getpid() != before)
///         _exit(127);
///
/// **The child ignores SIGTERM and SIGINT**, and that survives the start of the program: only SIGKILL, or a handler of
/// the program's own, ends it. There is no time-out.
class TAV_EXPORT ITAVUtils
{
public:
    virtual ~ITAVUtils() = default;

    /// The system clock, now. Any thread.
    virtual std::chrono::system_clock::time_point getCurrentSystemClockNow() = 0;

    /// Puts processes under a CPU quota through the cgroup v1 `cpu` controller.
    /// @param pids       the processes; ids of 0 and below are skipped
    /// @param limit      percentage of the whole machine: 100 is the full time of every CPU
    /// @param groupName  accepted and not used: the group is one, shared by all users of this library on the host
    /// @return true when every step that is checked succeeded
    virtual bool setCPULimit(std::set<int> pids, unsigned short limit, std::string groupName) = 0;

    /// Does nothing. A limit stays in force until the processes leave the group by themselves, by exiting for instance.
    virtual void removeCPULimit(std::set<int> pids, std::string groupName) = 0;

    /// Runs a program in a child process, waits for it, and tells whether it exited with status 0.
    ///
    /// Without a keep-map, or with one that keeps 2, the child's standard input and output go to /dev/null (standard
    /// input ends up closed in most processes), its standard error goes to a pipe of this call, and nothing else stays
    /// open, whatever the map says of other descriptors. With a keep-map that does not keep 2, exactly the kept
    /// descriptors stay open and the rest of 0, 1 and 2 goes to /dev/null.
    ///
    /// Blocks until the child ends. In the pipe mode it blocks for ever when the child fails without a word on standard
    /// error, and when the child writes more than the pipe holds (64 KiB) there.
    ///
    /// @param argv           the program's path, used as it is (no search of PATH), and its arguments. Logged whole.
    /// @param fdsToKeepOpen  the keep-map, or null
    /// @return true only when the child exited normally with status 0; false also for an empty `argv`. In a child whose
    ///         /dev/null could not be opened: true, and that child runs on.
    virtual bool executeSystemCommand(const std::vector<std::string>& argv,
                                      const std::map<int, bool>* fdsToKeepOpen) = 0;

    /// Runs a program like `executeSystemCommand`, with its standard output connected to the caller's pipe. When the
    /// child fails, the first 200 bytes of its standard error are logged.
    ///
    /// Both ends of `outPipe` stay open in the caller: close the write end, then read. The call returns only when the
    /// child has ended, so more output than the pipe holds (64 KiB) blocks it for ever, unless another thread reads.
    /// A keep-map that does not keep 2 avoids the standard-error pipe, as above; a failing child's words are then lost.
    ///
    /// @param argv           as for `executeSystemCommand`
    /// @param fdsToKeepOpen  the keep-map, or null. Used only when it does not keep 2.
    /// @param outPipe        two descriptors, read end first, as pipe(2) makes them
    /// @return true only when the child exited normally with status 0; false also for an empty `argv` or a null
    ///         `outPipe`, and in every child that comes back
    virtual bool
    readSystemCommandOutput(std::vector<std::string> argv, const std::map<int, bool>* fdsToKeepOpen, int* outPipe) = 0;

    /// Whether the kernel is 2.6.24 or newer, as decided at construction. Any thread; no system call.
    virtual bool isCGroupsSupported() = 0;

    /// Whether the cgroup v1 `cpu` controller is mounted at one of the two places where it is looked for.
    virtual bool isDefaultCGroupsMountAvailable() = 0;
};

} // namespace TAV
