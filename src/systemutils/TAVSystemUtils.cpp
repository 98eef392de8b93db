#include "tav/TAVSystemUtils.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace TAV
{
namespace
{

/// Hands a C call's result on, and its errno if it failed.
template <typename Result>
Result reported(Result result, int& err)
{
    if (result < 0)
        err = errno;
    return result;
}

} // namespace

TAVSystemUtils::~TAVSystemUtils() = default;

int TAVSystemUtils::open(std::string path, int flags, int& err)
{
    return reported(::open(path.c_str(), flags), err);
}

ssize_t TAVSystemUtils::read(int fd, void* buffer, std::size_t count, int& err)
{
    return reported(::read(fd, buffer, count), err);
}

int TAVSystemUtils::close(int fd, int& err)
{
    return reported(::close(fd), err);
}

int TAVSystemUtils::setenv(const char* name, const char* value, int overwrite, int& err)
{
    return reported(::setenv(name, value, overwrite), err);
}

int TAVSystemUtils::pipe(std::array<int, 2>& fds, int& err, int flags)
{
    return reported(::pipe2(fds.data(), flags), err);
}

pid_t TAVSystemUtils::fork(int& err)
{
    return reported(::fork(), err);
}

pid_t TAVSystemUtils::waitpid(pid_t pid, int* status, int options, int& err)
{
    return reported(::waitpid(pid, status, options), err);
}

int TAVSystemUtils::mkdir(std::string path, mode_t mode, int& err)
{
    return reported(::mkdir(path.c_str(), mode), err);
}

int TAVSystemUtils::dup2(int oldFd, int newFd, int& err)
{
    return reported(::dup2(oldFd, newFd), err);
}

int TAVSystemUtils::stat(const char* path, struct stat* buffer, int& err)
{
    return reported(::stat(path, buffer), err);
}

void TAVSystemUtils::openOutputFile(std::ofstream& stream, std::string path)
{
    stream.open(path);
}

void TAVSystemUtils::openInputFile(std::ifstream& stream, std::string path)
{
    stream.open(path);
}

} // namespace TAV
