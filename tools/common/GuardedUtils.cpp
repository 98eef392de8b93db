#include "common/GuardedUtils.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace programs
{
namespace
{

constexpr int kNotStarted = 127; // what a shell answers too

/// Made before a command runs; ends the process in whichever child comes back, also by an exception.
class ReturnedChildGuard
{
public:
    ReturnedChildGuard() : m_caller(::getpid()) {}
    ReturnedChildGuard(const ReturnedChildGuard&) = delete;
    ReturnedChildGuard& operator=(const ReturnedChildGuard&) = delete;
    ~ReturnedChildGuard()
    {
        if (::getpid() != m_caller)
            ::_exit(kNotStarted);
    }

private:
    pid_t m_caller;
};

const std::map<int, bool> kKeepNothing;

const std::map<int, bool>* mapOrNothing(const std::map<int, bool>* fdsToKeepOpen)
{
    return fdsToKeepOpen == nullptr ? &kKeepNothing : fdsToKeepOpen;
}

bool canRun(const std::vector<std::string>& argv)
{
    return !argv.empty() && obstacleToRun(argv.front()).empty();
}

} // namespace

std::string obstacleToRun(const std::string& path)
{
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0)
        return std::strerror(errno);
    if (!S_ISREG(status.st_mode))
        return "not a regular file";
    return ::access(path.c_str(), X_OK) == 0 ? "" : std::strerror(errno);
}

GuardedUtils::GuardedUtils(std::shared_ptr<TAV::ITAVUtils> utils) : m_utils(std::move(utils)) {}

bool GuardedUtils::executeSystemCommand(const std::vector<std::string>& argv, const std::map<int, bool>* fdsToKeepOpen)
{
    if (!canRun(argv))
        return false;
    const ReturnedChildGuard guard;
    return m_utils->executeSystemCommand(argv, mapOrNothing(fdsToKeepOpen));
}

bool GuardedUtils::readSystemCommandOutput(std::vector<std::string> argv,
                                           const std::map<int, bool>* fdsToKeepOpen,
                                           int* outPipe)
{
    if (!canRun(argv))
        return false;
    const ReturnedChildGuard guard;
    return m_utils->readSystemCommandOutput(std::move(argv), mapOrNothing(fdsToKeepOpen), outPipe);
}

std::chrono::system_clock::time_point GuardedUtils::getCurrentSystemClockNow()
{
    return m_utils->getCurrentSystemClockNow();
}

bool GuardedUtils::setCPULimit(std::set<int> pids, unsigned short limit, std::string groupName)
{
    return m_utils->setCPULimit(std::move(pids), limit, std::move(groupName));
}

void GuardedUtils::removeCPULimit(std::set<int> pids, std::string groupName)
{
    m_utils->removeCPULimit(std::move(pids), std::move(groupName));
}

bool GuardedUtils::isCGroupsSupported()
{
    return m_utils->isCGroupsSupported();
}

bool GuardedUtils::isDefaultCGroupsMountAvailable()
{
    return m_utils->isDefaultCGroupsMountAvailable();
}

} // namespace programs
