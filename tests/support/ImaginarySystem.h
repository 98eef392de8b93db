#pragma once

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <string>

#include "support/FakeSystemUtils.h"

namespace TAV::test
{

/// A system on which a command runs in the imagination only: the pipe, the child, how it ends and what it writes are
/// the test's to choose, and no real process or descriptor is touched. Each stand-in may be replaced as usual.
class ImaginarySystem : public FakeSystemUtils
{
public:
    ImaginarySystem()
    {
        onPipe = [this](std::array<int, 2>& fds, int&, int)
        {
            fds = pipeFds;
            openFds.insert(fds.begin(), fds.end());
            return 0;
        };
        onFork = [this](int&) { return pid; };
        onWaitpid = [this](pid_t child, int* wstatus, int, int&)
        {
            *wstatus = status;
            return child;
        };
        onRead = [this](int, void* buffer, std::size_t count, int&)
        {
            const std::size_t size = std::min(count, stderrText.size());
            std::memcpy(buffer, stderrText.data(), size);
            return static_cast<ssize_t>(size);
        };
        onClose = [this](int fd, int& err) { return openFds.erase(fd) == 1 ? 0 : (err = EBADF, -1); };
        onOpen = [this](const std::string&, int, int&) { return nullFd; };
        onDup2 = [](int, int newFd, int&) { return newFd; };
    }

    std::array<int, 2> pipeFds{40, 41};
    pid_t pid = 4711; ///< what fork answers; 0 makes the caller the child
    int status = 0;   ///< how the child ended
    std::string stderrText = "went wrong";
    int nullFd = 50; ///< what opening /dev/null answers

    /// The pipe ends that were handed out and not closed.
    std::multiset<int> openFds;
};

} // namespace TAV::test
