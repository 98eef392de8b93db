#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "frame/LogLevels.h"
#include "tav/TAVUtils.h"
#include "utils/ChildProcess.h"

namespace TAV
{
namespace
{

constexpr const char* kPipeFailed = "Failed to create Pipe FD to execute system command";
constexpr const char* kForkFailed = "Failed to fork process to read system command output";
constexpr const char* kLimitFailed = "Failed to get filelimit";
constexpr const char* kDevNullFailed = "Failed to open /dev/null";
constexpr const char* kStderrFailed = "Failed to duplicate STDERR in child process. Error was ";
constexpr const char* kStdoutFailed = "Failed to duplicate Stdout in child process. Error was ";
constexpr const char* kWaitFailed = "Failed to wait for child pid exit status in read system command";
constexpr const char* kAbnormalExit = "Child exited abnormally in reading system command output with return status ";

/// Child: closes what is not kept, from 0 up to the last descriptor that the soft limit allows.
/// @return false, with nothing closed, if the limit cannot be read
bool closeUnkeptDescriptors(const TAVUtils& utils, const child::KeepMap& keep)
{
    struct rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    const long count = static_cast<long>(std::min<rlim_t>(limit.rlim_cur, INT_MAX));
    if (child::closeUnkeptRuns(0, count - 1, keep))
        return true;
    for (int fd = 0; fd < count; ++fd)
    {
        if (!utils.checkIfFdToBeKeptOpen(fd, &keep))
            ::close(fd);
    }
    return true;
}

/// Child: takes everything away that is not kept and connects its output, up to the start of the program.
/// @return an empty text, or why the program cannot be started
std::string prepareChild(TAVUtils& utils,
                         ITAVSystemUtils& systemUtils,
                         const child::KeepMap& keep,
                         std::array<int, 2>& errPipe,
                         const int* outPipe,
                         int& err)
{
    if (!child::connectUnkeptToDevNull(utils, systemUtils, keep, err))
        return kDevNullFailed;
    if (utils.checkIfFdToBeKeptOpen(STDERR_FILENO, &keep))
    {
        if (systemUtils.dup2(errPipe[1], STDERR_FILENO, err) != STDERR_FILENO)
            return std::string(kStderrFailed) + std::strerror(err);
        utils.closePipeFds(errPipe);
    }
    // Standard output is kept in every mode: the caller's pipe goes there.
    if (systemUtils.dup2(outPipe[1], STDOUT_FILENO, err) != STDOUT_FILENO)
        return std::string(kStdoutFailed) + std::strerror(err);
    ::close(outPipe[0]);
    ::close(outPipe[1]);
    return {};
}

} // namespace

bool TAVUtils::readSystemCommandOutput(std::vector<std::string> argv,
                                       const std::map<int, bool>* fdsToKeepOpen,
                                       int* outPipe)
{
    if (argv.empty() || outPipe == nullptr)
        return false;

    int err = 0;
    std::array<int, 2> errPipe{child::kNoFd, child::kNoFd};
    child::KeepMap keep;
    if (fdsToKeepOpen != nullptr && !checkIfFdToBeKeptOpen(STDERR_FILENO, fdsToKeepOpen))
    {
        keep = *fdsToKeepOpen;
    }
    else
    {
        if (m_systemUtils->pipe(errPipe, err, 0) != 0)
        {
            m_logger.log(kLogFailure, m_componentName, kPipeFailed);
            return false;
        }
        for (const int fd : {STDERR_FILENO, errPipe[0], errPipe[1]})
            keep[fd] = true;
    }
    for (const int fd : {STDOUT_FILENO, outPipe[0], outPipe[1]})
        keep[fd] = true;

    const std::vector<const char*> arguments = child::argumentPointers(argv);
    const pid_t pid = m_systemUtils->fork(err);
    if (pid == -1)
    {
        m_logger.log(kLogFailure, m_componentName, kForkFailed);
        closePipeFds(errPipe);
        return false;
    }
    if (pid == 0)
    {
        child::ignoreTerminationSignals();
        if (!closeUnkeptDescriptors(*this, keep))
            m_logger.log(kLogFailure, m_componentName, kLimitFailed);
        const std::string obstacle = prepareChild(*this, *m_systemUtils, keep, errPipe, outPipe, err);
        if (!obstacle.empty())
        {
            m_logger.log(kLogFailure, m_componentName, obstacle);
            return false; // in the child, which deliberately goes on in the caller's code, with both pairs open
        }
        child::becomeProgram(argv, arguments);
        // Deliberately no exit: a child whose program cannot be started goes on as if it were the parent.
    }

    int status = 0;
    if (m_systemUtils->waitpid(pid, &status, 0, err) != pid)
    {
        m_logger.log(kLogFailure, m_componentName, kWaitFailed);
        closePipeFds(errPipe);
        return false;
    }
    if (child::exitedWithZero(status))
    {
        closePipeFds(errPipe);
        return true;
    }
    // Deliberately also without a pipe: reading kNoFd fails and the line says so.
    m_logger.log(kLogFailure,
                 m_componentName,
                 child::describeAbnormalExit(kAbnormalExit, status, errPipe[0], *m_systemUtils, err));
    closePipeFds(errPipe);
    return false;
}

} // namespace TAV
