#pragma once

#include <array>
#include <memory>

#include "tav/ILogger.h"
#include "tav/ITAVSystemUtils.h"
#include "tav/ITAVUtils.h"

namespace TAV
{

/// Name of the loopback interface: "lo". No operation of the library reads it.
TAV_EXPORT extern const std::string kLoopbackInterfaceName;
/// The hardware address of an interface that has none: "00:00:00:00:00:00". No operation of the library reads it.
TAV_EXPORT extern const std::string kNullMacAddress;

/// `ITAVUtils` over the system calls of an `ITAVSystemUtils`; logs under the component name "TAVUtils".
///
/// **Threads.** It holds no lock. The command operations change no member, so they may run on several threads at once
/// as far as the logger and the system-call object allow it. The cgroup operations store a path: the caller serialises
/// them.
///
/// **Beside the system-call object** a forked child makes calls straight to the C library: signal(2), sysconf(3) or
/// getrlimit(2), close(2) or close_range(2), and execv(3).
class TAV_EXPORT TAVUtils : public ITAVUtils
{
public:
    /// Decides from the kernel's version whether CPU limits may be used.
    /// @param systemUtils  the system calls; shared with the caller, and not checked for null
    /// @param logger       kept by reference: it must outlive this object
    /// @param version      version of the running kernel, shared with the caller. An old one (before 2.6.24) is logged
    ///                     at level 5 and only switches CPU limits off.
    /// @throws FMXException  code 1, "Kernel version information is null", if `version` is null
    TAVUtils(std::shared_ptr<ITAVSystemUtils> systemUtils, ILogger& logger, std::shared_ptr<kernelVersion> version);
    TAVUtils(const TAVUtils&) = delete;
    TAVUtils& operator=(const TAVUtils&) = delete;
    ~TAVUtils() override;

    std::chrono::system_clock::time_point getCurrentSystemClockNow() override;
    bool setCPULimit(std::set<int> pids, unsigned short limit, std::string groupName) override;
    void removeCPULimit(std::set<int> pids, std::string groupName) override;
    bool executeSystemCommand(const std::vector<std::string>& argv, const std::map<int, bool>* fdsToKeepOpen) override;
    bool readSystemCommandOutput(std::vector<std::string> argv,
                                 const std::map<int, bool>* fdsToKeepOpen,
                                 int* outPipe) override;
    bool isCGroupsSupported() override;
    bool isDefaultCGroupsMountAvailable() override;

    /// Closes both ends of a pipe through the system-call object, the first one first; failures are not reported.
    /// @param fds  the pair; both elements become 0 (not -1), so a second call with it closes descriptor 0
    void closePipeFds(std::array<int, 2>& fds);

    /// Looks a descriptor up in a keep-map. Any thread.
    /// @param fd   the descriptor
    /// @param fds  the keep-map, or null
    /// @return what the map says of `fd`; false if `fds` is null or does not name it
    bool checkIfFdToBeKeptOpen(int fd, const std::map<int, bool>* fds) const;

    /// Duplicates a descriptor onto a number, unless that number is kept or is the descriptor itself. The outcome is
    /// not reported.
    /// @param oldFd  the descriptor
    /// @param newFd  the number
    /// @param fds    the keep-map, or null
    /// @param err    the error value to start from; taken as a copy and dropped
    void duplicateFd(int oldFd, int newFd, const std::map<int, bool>* fds, int err) const;

    /// Extends the stored controller path by the library's task group and makes that directory if it is missing.
    /// The path is extended whatever the outcome: call `isDefaultCGroupsMountAvailable` before each call.
    /// @param groupName  accepted and not used: the directory's name is fixed
    /// @return whether the directory exists now; false is logged at level 6
    bool updateCPUTaskGroupDirectory(std::string& groupName);

    /// Counts the word "processor" in /proc/cpuinfo (proc(5)).
    /// @return how many logical CPUs the kernel lists; 1 if it lists none or the file cannot be read
    unsigned int getNumberOfAvailableCPUCores();

private:
    std::shared_ptr<ITAVSystemUtils> m_systemUtils;
    ILogger& m_logger;
    std::string m_componentName;
    std::shared_ptr<kernelVersion> m_kernelVersion;
    bool m_isCGroupsSupported = false;
    std::string m_cpuCgroupPath;
};

} // namespace TAV
