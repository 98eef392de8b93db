#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "frame/LogLevels.h"
#include "tav/TAVUtils.h"
#include "utils/Command.h"

namespace TAV
{
namespace
{

constexpr const char* kForkFailed = "Failed to fork process to read system command output";
constexpr const char* kLimitFailed = "Failed to get filelimit";
constexpr const char* kDevNullFailed = "Failed to open /dev/null";
constexpr const char* kStderrFailed = "Failed to duplicate STDERR in child process. Error was ";
constexpr const char* kStdoutFailed = "Failed to duplicate Stdout in child process. Error was ";
constexpr const char* kWaitFailed = "Failed to wait for child pid exit status in read system command";
constexpr const char* kAbnormalExit = "Child exited abnormally in reading system command output with return status ";

/// Child: closes what is not kept, from 0 up to the last descriptor that the soft limit allows.
/// @return false, with nothing closed, if the limit cannot be read
bool closeUnkeptDescriptors(const TAVUtils& utils, const command::KeepMap& keep)
{
    struct rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    const long count = static_cast<long>(std::min<rlim_t>(limit.rlim_cur, INT_MAX));
    if (command::closeUnkeptRuns(0, count - 1, keep))
        return true;
    for (int fd = 0; fd < count; ++fd)
    {
        if (!utils.checkIfFdToBeKeptOpen(fd, &keep))
            ::close(fd);
    }
    return true;
}

/// Child: takes everything away that is not kept and connects its output, up to the start of the program.
/// @return an empty text, or why the program cannot be started; both pairs are then left open
std::string prepareChild(command::Run& run, const command::KeepMap& keep, const int* outPipe)
{
    command::ignoreTerminationSignals();
    if (!closeUnkeptDescriptors(run.utils, keep))
        run.logger.log(kLogFailure, run.component, kLimitFailed);
    if (!run.connectUnkeptToDevNull(keep))
        return kDevNullFailed;
    if (run.utils.checkIfFdToBeKeptOpen(STDERR_FILENO, &keep))
    {
        if (run.systemUtils.dup2(run.errPipe[1], STDERR_FILENO, run.err) != STDERR_FILENO)
            return std::string(kStderrFailed) + std::strerror(run.err);
        run.utils.closePipeFds(run.errPipe);
    }
    // Standard output is kept in every mode: the caller's pipe goes there.
    if (run.systemUtils.dup2(outPipe[1], STDOUT_FILENO, run.err) != STDOUT_FILENO)
        return std::string(kStdoutFailed) + std::strerror(run.err);
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

    const std::vector<const char*> arguments = command::argumentPointers(argv);
    command::Run run{*this, *m_systemUtils, m_logger, m_componentName};
    command::KeepMap keep;
    if (fdsToKeepOpen != nullptr && !checkIfFdToBeKeptOpen(STDERR_FILENO, fdsToKeepOpen))
    {
        keep = *fdsToKeepOpen;
    }
    else
    {
        if (!run.makeErrPipe())
            return false;
        keep = {{STDERR_FILENO, true}, {run.errPipe[0], true}, {run.errPipe[1], true}};
    }
    for (const int fd : {STDOUT_FILENO, outPipe[0], outPipe[1]})
        keep[fd] = true;

    const pid_t pid = m_systemUtils->fork(run.err);
    if (pid == -1)
        return run.fail(kForkFailed);
    if (pid == 0)
    {
        const std::string obstacle = prepareChild(run, keep, outPipe);
        if (!obstacle.empty())
        {
            m_logger.log(kLogFailure, m_componentName, obstacle);
            return false; // in the child, which deliberately goes on in the caller's code
        }
        command::becomeProgram(argv, arguments);
        // Deliberately no exit: a child whose program cannot be started goes on as if it were the parent.
    }

    int status = 0;
    if (m_systemUtils->waitpid(pid, &status, 0, run.err) != pid)
        return run.fail(kWaitFailed);
    if (command::exitedWithZero(status))
        return run.finish(true);
    // Deliberately also without a pipe: reading from it then fails, and the line says so.
    m_logger.log(kLogFailure, m_componentName, run.describeAbnormalExit(kAbnormalExit, status));
    return run.finish(false);
}

} // namespace TAV
