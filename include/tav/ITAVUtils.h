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

/// Version of the running kernel: 2.6.24 is {2, 6, 24}. The caller fills it, from uname(2) for instance.
struct kernelVersion
{
    std::uint8_t major = 0; ///< first number of the release
    std::uint8_t minor = 0; ///< second number
    std::uint8_t patch = 0; ///< third number; put 255 for a greater one, which no decision turns on
};

/// Runs external commands with a controlled set of open descriptors, and puts processes under a CPU quota.
///
/// **The keep-map.** Both command operations take a `std::map<int, bool>` from descriptor to "keep open in the child".
/// A descriptor that is absent, or present with `false`, is closed in the child. The pointer may be null. The map stays
/// the caller's and is not kept after the call.
///
/// **The child may come back.** Both command operations fork. When the program cannot be started, the child does not
/// exit: the call returns in the child too, and the child goes on in the caller's code. Guard each call:
///
///     const pid_t before = getpid();
///     const bool ok = utils.executeSystemCommand(argv, nullptr);
///     if (getpid() != before)
///     {
///         const ssize_t told = write(STDERR_FILENO, "not started\n", 12); // with a pipe, the caller waits for a word
///         _exit(told < 0 ? 126 : 127);
///     }
///
/// **The child ignores SIGTERM and SIGINT**, and that survives the start of the program: only SIGKILL, or a handler of
/// the program's own, ends it. There is no time-out.
///
/// **Descriptors that are closed** are those below the soft limit RLIMIT_NOFILE (getrlimit(2)), in
/// `executeSystemCommand` also the one that is the limit. One that was opened above a limit lowered since then stays
/// open in the child, unless it is marked close-on-exec.
///
/// **Failure.** Nothing is thrown but for want of memory and what the caller's own objects throw. Each failure is a
/// result, and most of them a log line too.
///
/// The order of the operations is part of the binary interface.
class TAV_EXPORT ITAVUtils
{
public:
    virtual ~ITAVUtils() = default;

    /// The system clock. Any thread; not logged.
    /// @return `std::chrono::system_clock::now()`
    virtual std::chrono::system_clock::time_point getCurrentSystemClockNow() = 0;

    /// Puts processes under a CPU quota through the cgroup v1 `cpu` controller: finds the controller, makes the
    /// library's task group in it if it is missing, writes the group's quota, and moves the processes into it.
    ///
    /// The kernel's own answer to what is written is not looked at: it may refuse a quota (any below 1000 us, so limit
    /// 0 too) or a process (one that is dead) while this call returns true. Read the files back to be sure. A refusal
    /// by this call is logged at level 6; nothing that was done before it is undone.
    ///
    /// One thread at a time on one object. Source: the kernel's document "CFS Bandwidth Control".
    ///
    /// @param pids       the processes; ids of 0 and below are skipped, an empty set is refused
    /// @param limit      percentage of the whole machine: 100 is the full time of every CPU; not capped. It holds for
    ///                   the group as a whole, not for each process.
    /// @param groupName  accepted and not used: the group is one, shared by all users of this library on the host
    /// @return true when every step that is checked succeeded
    virtual bool setCPULimit(std::set<int> pids, unsigned short limit, std::string groupName) = 0;

    /// Does nothing. A limit stays in force until the processes leave the group by themselves, by exiting for instance.
    /// @param pids       not used
    /// @param groupName  not used
    virtual void removeCPULimit(std::set<int> pids, std::string groupName) = 0;

    /// Runs a program in a child process, waits for it, and tells whether it exited with status 0. The command line is
    /// logged at level 6, whole; a call that cannot be made, at level 2. A program that fails is not logged.
    /// In a caller without descriptor 0 the pipe below has its read end there: a failing program is then followed by a
    /// line at level 6, that standard error is not available, and by both ends left open in the caller.
    ///
    /// Without a keep-map, or with one that keeps 2, the child's standard error goes to a pipe of this call, its
    /// standard output to /dev/null, and nothing else stays open but the two ends of that pipe, whatever the map says
    /// of other descriptors. With a keep-map that does not keep 2, exactly the kept descriptors stay open and the rest
    /// of 0, 1 and 2 goes to /dev/null. In both cases /dev/null is opened under the lowest free number, and that number
    /// ends closed even if it is one of the three: as a rule it is 0, standard input.
    ///
    /// Blocks until the child ends. In the pipe mode it blocks for ever when the child fails without a word on standard
    /// error, and when the child writes more than the pipe holds (64 KiB, pipe(7)) there. A keep-map that does not keep
    /// 2 avoids both.
    ///
    /// The program starts by execv(3) and inherits the environment. The wait is one waitpid(2), so a signal handler
    /// without SA_RESTART, or SIGCHLD set to SIG_IGN, makes the call fail while the program may run on.
    ///
    /// @param argv           the program's path, used as it is (no search of PATH), and its arguments, each up to its
    ///                       first zero byte
    /// @param fdsToKeepOpen  the keep-map, or null
    /// @return true only when the child exited normally with status 0; false also for an empty `argv`. In a child whose
    ///         /dev/null could not be opened: true, and that child runs on.
    virtual bool executeSystemCommand(const std::vector<std::string>& argv,
                                      const std::map<int, bool>* fdsToKeepOpen) = 0;

    /// Runs a program like `executeSystemCommand`, with its standard output connected to the caller's pipe. When the
    /// child fails, its raw wait status and the first 200 bytes of its standard error are logged at level 2. The
    /// command line is not logged. The program gets neither pipe's own ends: in the pipe mode it has 1 and 2 alone.
    ///
    /// Both ends of `outPipe` stay open in the caller: close the write end, then read. The call returns only when the
    /// child has ended, so more output than the pipe holds (64 KiB, pipe(7)) blocks it for ever, unless another thread
    /// reads. A keep-map that does not keep 2 avoids the standard-error pipe, as above; a failing child's words are
    /// then lost.
    ///
    /// @param argv           as for `executeSystemCommand`
    /// @param fdsToKeepOpen  the keep-map, or null. Used only when it does not keep 2; 1 is connected to the pipe
    ///                       whatever it says.
    /// @param outPipe        two descriptors, read end first, as pipe2(2) makes them; give it O_CLOEXEC, so that
    ///                       children of other threads do not hold the write end. Both must be above 2: the child
    ///                       closes their numbers, so with an end on 1 nothing is captured, and the result may be true.
    /// @return true only when the child exited normally with status 0; false also for an empty `argv` or a null
    ///         `outPipe`, and in every child that comes back
    virtual bool
    readSystemCommandOutput(std::vector<std::string> argv, const std::map<int, bool>* fdsToKeepOpen, int* outPipe) = 0;

    /// Tells whether CPU limits may be used at all. Any thread; no system call, no log line.
    /// @return whether the kernel is 2.6.24 or newer, as decided at construction
    virtual bool isCGroupsSupported() = 0;

    /// Looks for the cgroup v1 `cpu` controller at /sys/fs/cgroup/cpu,cpuacct, then at /cgroup/cpu, and remembers where
    /// it is. One thread at a time on one object. Its absence is logged at level 6.
    /// @return whether the files of the period and of the quota are both there at one of the two places
    virtual bool isDefaultCGroupsMountAvailable() = 0;
};

} // namespace TAV
