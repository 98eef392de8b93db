#pragma once

#include <array>
#include <memory>

#include "tav/ILogger.h"
#include "tav/ITAVSystemUtils.h"
#include "tav/ITAVUtils.h"

namespace TAV
{

/// Name of the loopback interface: "lo".
TAV_EXPORT extern const std::string kLoopbackInterfaceName;
/// The hardware address of an interface that has none: "00:00:00:00:00:00".
TAV_EXPORT extern const std::string kNullMacAddress;

/// `ITAVUtils` over the system calls of an `ITAVSystemUtils`; logs under the component name "TAVUtils".
///
/// It holds no lock. The command operations change no member, so they may run on several threads at once as far as the
/// logger and the system-call object allow it. The cgroup operations store a path: the caller serialises them.
class TAV_EXPORT TAVUtils : public ITAVUtils
{
public:
    /// @param systemUtils  the system calls; shared with the caller, and not checked for null
    /// @param logger       kept by reference: it must outlive this object
    /// @param version      version of the running kernel. An old one (before 2.6.24) is logged at level 5 and only
    ///                     switches CPU limits off.
    /// @throws FMXException  code 1, "Kernel version information is null"
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

    /// Closes both ends of a pipe, the first one first, and sets both elements to 0 (not to -1).
    void closePipeFds(std::array<int, 2>& fds);

    /// What the keep-map says of `fd`; false if `fds` is null or does not name it.
    bool checkIfFdToBeKeptOpen(int fd, const std::map<int, bool>* fds) const;

    /// Duplicates `oldFd` onto `newFd`, unless `newFd` is kept or is `oldFd` itself. Its outcome is not reported.
    /// @param err  the error value to start from; taken as a copy and dropped
    void duplicateFd(int oldFd, int newFd, const std::map<int, bool>* fds, int err) const;

    /// Extends the stored controller path by the library's task group and makes that directory if it is missing.
    /// @param groupName  accepted and not used
    /// @return whether the directory exists now
    bool updateCPUTaskGroupDirectory(std::string& groupName);

    /// The number of processors that /proc/cpuinfo lists; 1 if it lists none or cannot be read.
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
