#pragma once

#include <sys/stat.h>

#include <string>
#include <utility>
#include <vector>

#include "endpoint_scan/Types.h"

/// File handling that others cannot lead astray while they change the tree: names are looked up one by one below an
/// open directory, no symbolic link is followed, nothing that exists is replaced. Failures are std::system_error.
namespace endpointscan
{

/// An open descriptor, closed at the end.
class Fd
{
public:
    explicit Fd(int fd = -1) : m_fd(fd) {}
    Fd(Fd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Fd& operator=(Fd&& other) noexcept
    {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    ~Fd();

    int get() const { return m_fd; }
    /// A path that names the open file itself, for a service that takes paths.
    std::string path() const { return "/proc/self/fd/" + std::to_string(m_fd); }

private:
    int m_fd;
};

/// Throws a std::system_error of the present errno.
[[noreturn]] void fail(const std::string& what);

/// Whether `path` is relative and stays below: no empty name, no ".", no "..", no zero byte.
bool isBelow(const std::string& path);

/// "a/b/c" as {"a/b", "c"}, "c" as {"", "c"}.
std::pair<std::string, std::string> splitPath(const std::string& path);

Fd openDirectory(const std::string& path);

/// Opens the directory `path` below `root`; an empty path gives `root` again.
Fd openBelow(int root, const std::string& path);

/// The same, making the directories that are missing.
Fd makeBelow(int root, const std::string& path);

/// Opens a regular file for reading, without waiting for anything.
Fd openRegularFile(int directory, const std::string& name);

struct stat statusOf(int fd);
/// Of the entry itself, also if it is a symbolic link.
struct stat statusAt(int directory, const std::string& name);
bool existsAt(int directory, const std::string& name);
std::vector<std::string> namesIn(int directory);

/// Size, permissions, owner, time and identity; the rest stays empty.
FileFacts factsOf(const struct stat& status);

/// SHA-256 of a regular file.
std::string sha256At(int directory, const std::string& name);

/// Gives a file its owner (where this process may), permissions and time.
void applyFacts(int fd, const FileFacts& facts);

std::string readAt(int directory, const std::string& name);

void syncDirectory(int directory);

/// Removes a file, or a directory and everything in it, if it is still there.
void removeEntry(int directory, const std::string& name);

/// Removes the directory `name` and everything in it. The archive tool of a scan that was killed may be at work in it
/// for a while yet: what comes and goes there meanwhile is no failure.
void removeTree(int directory, const std::string& name);

} // namespace endpointscan
