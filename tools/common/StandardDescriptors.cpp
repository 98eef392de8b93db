#include "common/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

namespace programs
{

void restoreProcessDefaults()
{
    static_cast<void>(std::signal(SIGCHLD, SIG_DFL));
    int fd = ::open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = ::dup(fd);
    if (fd > STDERR_FILENO)
        ::close(fd);
}

void ignoreBrokenPipes()
{
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
}

} // namespace programs
