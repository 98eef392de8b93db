#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "peers/Peers.h"

namespace TAV::bench::peers
{
namespace
{

constexpr unsigned int kLastDescriptor = 1024;

using Arguments = std::array<const char*, 3>;

[[noreturn]] void become(const Arguments& arguments)
{
    ::close_range(STDERR_FILENO + 1, kLastDescriptor, 0);
    ::execv(arguments[0], const_cast<char* const*>(arguments.data()));
    ::_exit(127);
}

void awaitSuccess(pid_t pid)
{
    int status = 0;
    require(::waitpid(pid, &status, 0) == pid && status == 0, "plain fork");
}

} // namespace

Work plainRun()
{
    return []
    {
        const pid_t pid = ::fork();
        if (pid == 0)
            become({kTrue});
        awaitSuccess(pid);
    };
}

Work plainCapture()
{
    return []
    {
        std::array<int, 2> fds{};
        require(::pipe(fds.data()) == 0, "pipe");
        const pid_t pid = ::fork();
        if (pid == 0)
        {
            ::dup2(fds[1], STDOUT_FILENO);
            become({kEcho, kWord});
        }
        ::close(fds[1]);
        std::array<char, 64> text{};
        require(::read(fds[0], text.data(), text.size()) > 0, "read");
        ::close(fds[0]);
        awaitSuccess(pid);
    };
}

} // namespace TAV::bench::peers
