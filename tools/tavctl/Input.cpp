#include "tavctl/Input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "tavctl/Context.h"

namespace tavctl
{
namespace
{

bool isStandardInput(const std::string& path)
{
    return path.empty() || path == "-";
}

std::string readToEnd(int fd, const std::string& name)
{
    std::string bytes;
    std::array<char, 64UL * 1024> piece{};
    for (;;)
    {
        const ssize_t size = ::read(fd, piece.data(), piece.size());
        if (size == 0)
            return bytes;
        if (size > 0)
            bytes.append(piece.data(), static_cast<std::size_t>(size));
        else if (errno != EINTR)
            throw Failure(name + ": " + std::strerror(errno));
    }
}

} // namespace

std::string about(const std::string& path, const std::string& what)
{
    return (path.empty() ? "\"\"" : path) + ": " + what;
}

std::string inputName(const std::string& path)
{
    return isStandardInput(path) ? "standard input" : path;
}

std::string readInput(const std::string& path)
{
    if (isStandardInput(path))
        return readToEnd(STDIN_FILENO, inputName(path));
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw Failure(path + ": " + std::strerror(errno));
    try
    {
        std::string bytes = readToEnd(fd, path);
        ::close(fd);
        return bytes;
    }
    catch (...)
    {
        ::close(fd);
        throw;
    }
}

std::string obstacleToRead(const std::string& path)
{
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0)
        return std::strerror(errno);
    if (S_ISDIR(status.st_mode))
        return "is a directory";
    if (!S_ISREG(status.st_mode))
        return "not a regular file";
    return ::access(path.c_str(), R_OK) == 0 ? "" : std::strerror(errno);
}

} // namespace tavctl
