#include "DirectCalls.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace TAV::test
{

DirectCalls* g_armedDirectCalls = nullptr;

void DirectCalls::arm()
{
    g_armedDirectCalls = this;
}

void DirectCalls::disarm()
{
    g_armedDirectCalls = nullptr;
}

void DirectCalls::forget()
{
    events.clear();
    closedRuns.clear();
    m_closeRangeCalls = 0;
}

long DirectCalls::answerSysconf(int name)
{
    events.push_back(name == _SC_OPEN_MAX ? "::sysconf(_SC_OPEN_MAX)" : "::sysconf(" + std::to_string(name) + ")");
    return openMax;
}

int DirectCalls::answerGetrlimit(int resource, struct rlimit* limit)
{
    events.push_back(resource == RLIMIT_NOFILE ? "::getrlimit(RLIMIT_NOFILE)"
                                               : "::getrlimit(" + std::to_string(resource) + ")");
    if (!limitIsReadable)
        return errno = EPERM, -1;
    *limit = {softLimit, hardLimit};
    return 0;
}

int DirectCalls::answerClose(int fd)
{
    events.push_back("::close(" + std::to_string(fd) + ")");
    closedRuns.emplace_back(fd, fd);
    return closeError == 0 ? 0 : (errno = closeError, -1);
}

int DirectCalls::answerCloseRange(unsigned int first, unsigned int last, int flags)
{
    events.push_back("::close_range(" + std::to_string(first) + ", " + std::to_string(last) +
                     (flags == 0 ? ")" : ", flags " + std::to_string(flags) + ")"));
    if (closeRangeFailsFrom != 0 && ++m_closeRangeCalls >= closeRangeFailsFrom)
        return errno = closeRangeError, -1;
    if (first > last)
        return errno = EINVAL, -1;
    closedRuns.emplace_back(first, last);
    return 0;
}

int DirectCalls::answerExecv(const char* path, char* const* argv)
{
    std::string event = std::string("::execv(") + path + ":";
    for (; *argv != nullptr; ++argv)
        event.append(" [").append(*argv).append("]");
    events.push_back(event + ")");
    return errno = execvError, -1;
}

char* DirectCalls::answerStrerror(int err)
{
    events.push_back("::strerror(" + std::to_string(err) + ")");
    m_errorText = scriptedErrorText(err);
    return m_errorText.data();
}

void DirectCalls::noteSignal(int number, bool isIgnored)
{
    const std::string name = number == SIGTERM ? "SIGTERM" : number == SIGINT ? "SIGINT" : std::to_string(number);
    events.push_back("::signal(" + name + (isIgnored ? ", SIG_IGN)" : ", something else)"));
}

std::string scriptedErrorText(int err)
{
    return "text of error " + std::to_string(err);
}

} // namespace TAV::test
