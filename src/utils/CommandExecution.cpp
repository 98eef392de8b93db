#include <unistd.h>

#include <algorithm>
#include <climits>

#include "frame/LogLevels.h"
#include "tav/TAVUtils.h"
#include "utils/Command.h"

namespace TAV
{
namespace
{

constexpr const char* kForkFailed = "Failed to fork process to execute system command";
constexpr const char* kDevNullFailed = "Failed to open /dev/null";
constexpr const char* kCommandStarted = "Child process called to execute the system command : ";
constexpr const char* kWaitFailed = "Failed to wait for child pid exit status in execute system command";
constexpr const char* kNoStderr = "Stderr is not available to read";
constexpr const char* kAbnormalExit = "Child exited abnormally in executing system command with return status ";

constexpr long kDescriptorsIfUnknown = 65535;
constexpr long kFirstClosed = STDERR_FILENO + 1;

/// Child: closes what is not kept, from the highest possible descriptor down to 3.
void closeSurplusDescriptors(const TAVUtils& utils, const command::KeepMap& keep)
{
    long last = ::sysconf(_SC_OPEN_MAX);
    if (last < 0)
        last = kDescriptorsIfUnknown;
    last = std::min<long>(last, INT_MAX);
    if (command::closeUnkeptRuns(kFirstClosed, last, keep))
        return;
    for (long fd = last; fd >= kFirstClosed; --fd)
    {
        if (!utils.checkIfFdToBeKeptOpen(static_cast<int>(fd), &keep))
            ::close(static_cast<int>(fd));
    }
}

/// Child: takes everything away that is not kept, up to the start of the program.
/// @return false if /dev/null cannot be opened
bool prepareChild(command::Run& run, const command::KeepMap& keep)
{
    command::ignoreTerminationSignals();
    run.systemUtils.dup2(run.errPipe[1], STDERR_FILENO, run.err);
    closeSurplusDescriptors(run.utils, keep);
    for (int fd = STDOUT_FILENO; fd >= STDIN_FILENO; --fd)
    {
        if (!run.utils.checkIfFdToBeKeptOpen(fd, &keep))
            ::close(fd);
    }
    return run.connectUnkeptToDevNull(keep);
}

/// The command line for people: one blank before each argument, the first one included.
std::string commandLine(const std::vector<std::string>& argv)
{
    std::string line;
    for (const std::string& argument : argv)
        line.append(" ").append(argument);
    return line;
}

} // namespace

bool TAVUtils::executeSystemCommand(const std::vector<std::string>& argv, const std::map<int, bool>* fdsToKeepOpen)
{
    if (argv.empty())
        return false;

    // Made before the fork, where no page is copied for it, and before the pipe: if memory runs out, nothing is open.
    const std::vector<const char*> arguments = command::argumentPointers(argv);
    const std::string started = kCommandStarted + commandLine(argv);

    command::Run run{*this, *m_systemUtils, m_logger, m_componentName};
    command::KeepMap pipeKeep;
    const command::KeepMap* keep = fdsToKeepOpen;
    if (fdsToKeepOpen == nullptr || checkIfFdToBeKeptOpen(STDERR_FILENO, fdsToKeepOpen))
    {
        if (!run.makeErrPipe())
            return false;
        // Deliberately without the caller's other entries: with a pipe, nothing else stays open.
        pipeKeep = {{STDERR_FILENO, true}, {run.errPipe[0], true}, {run.errPipe[1], true}};
        keep = &pipeKeep;
    }

    const pid_t pid = m_systemUtils->fork(run.err);
    if (pid == -1)
        return run.fail(kForkFailed);
    if (pid == 0)
    {
        if (!prepareChild(run, *keep))
        {
            m_logger.log(kLogFailure, m_componentName, kDevNullFailed);
            return true; // in the child, which deliberately goes on in the caller's code
        }
        command::becomeProgram(argv, arguments);
        // Deliberately no exit: a child whose program cannot be started goes on as if it were the parent.
    }

    m_logger.log(kLogDetail, m_componentName, started);
    int status = 0;
    if (m_systemUtils->waitpid(pid, &status, 0, run.err) != pid)
        return run.fail(kWaitFailed);
    if (command::exitedWithZero(status))
        return run.finish(true);
    if (run.errPipe[0] == 0)
    {
        m_logger.log(kLogDetail, m_componentName, kNoStderr);
        return false; // deliberately without closing the pair
    }
    // Deliberately composed and dropped: callers rely on the pipe being read, and on nothing being logged.
    run.describeAbnormalExit(kAbnormalExit, status);
    return run.finish(false);
}

} // namespace TAV
