#pragma once

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "tav/testing/FakeTAVSystemUtils.h"

namespace TAV::test
{

/// A system on which a command runs in the imagination only: the pipe, the child, how it ends and what it writes are
/// the test's to choose, and no real process or descriptor is touched.
///
///     auto system = std::make_shared<ImaginarySystem>();
///     system->status = 3 << 8; // the child exits with 3
///     TAV::TAVUtils utils(system, logger, version);
///     EXPECT_FALSE(utils.executeSystemCommand({"/bin/tool"}, nullptr));
///     EXPECT_THAT(system->openFds, IsEmpty());
///
/// What has a stand-in: `pipe`, `fork`, `waitpid`, `read`, `close`, `open` and `dup2`. Each may be replaced as usual.
/// The rest, files and the environment, is the real system's.
///
/// **Threads.** Operations may be called from any thread. The members below are set, and `openFds` is read, while no
/// other thread calls.
class ImaginarySystem : public FakeTAVSystemUtils
{
public:
    /// @param plan  what fails; shared with other fakes, or null for a plan of its own
    explicit ImaginarySystem(std::shared_ptr<FaultPlan> plan = nullptr) : FakeTAVSystemUtils(std::move(plan))
    {
        imagineChild();
        imagineDescriptors();
    }

    std::array<int, 2> pipeFds{40, 41};    ///< the ends of each pipe: where to read, where to write
    pid_t pid = 4711;                      ///< what fork answers; 0 makes the caller the child
    int status = 0;                        ///< how the child ended, as waitpid(2) tells it; an exit code is code << 8
    std::string stderrText = "went wrong"; ///< what each reading gives, as far as it fits
    int nullFd = 50;                       ///< what opening a file answers, /dev/null for one

    /// The pipe ends that were handed out and not closed. Closing any other number fails with EBADF.
    std::multiset<int> openFds;

private:
    void imagineChild()
    {
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
    }

    void imagineDescriptors()
    {
        onPipe = [this](std::array<int, 2>& fds, int&, int)
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            fds = pipeFds;
            openFds.insert(fds.begin(), fds.end());
            return 0;
        };
        onClose = [this](int fd, int& err)
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            const auto end = openFds.find(fd);
            if (end == openFds.end())
                return err = EBADF, -1;
            openFds.erase(end);
            return 0;
        };
        onOpen = [this](const std::string&, int, int&) { return nullFd; };
        onDup2 = [](int, int newFd, int&) { return newFd; };
    }

    std::mutex m_mutex;
};

} // namespace TAV::test
