// tav_self_report TARGET [ARGUMENT...]
//
// Tells what this process was given: its descriptors, how it treats SIGTERM and SIGINT, its arguments and environment.
// TARGET is a file to write that to, or "fd:N" for a descriptor that is open already. One fact a line; texts are in
// hex, so that any byte can occur in them:
//
//     fd 3 + /tmp/some-file        (r, w or + for both)
//     signal SIGTERM ignored       (or: default, handled)
//     arg 2f62696e2f74727565
//     env 504154483d2f62696e

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>

namespace
{

/// A caller may have lowered the soft limit so far that nothing can be opened any more.
void raiseDescriptorLimit()
{
    struct rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0)
    {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

std::set<int> openDescriptors()
{
    std::set<int> fds;
    DIR* directory = ::opendir("/proc/self/fd");
    if (directory == nullptr)
        std::exit(4);
    while (const dirent* entry = ::readdir(directory))
    {
        const int fd = std::atoi(entry->d_name);
        if (entry->d_name[0] != '.' && fd != ::dirfd(directory))
            fds.insert(fd);
    }
    ::closedir(directory);
    return fds;
}

std::string describeDescriptor(int fd)
{
    std::array<char, PATH_MAX> target{};
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t size = ::readlink(path.c_str(), target.data(), target.size());
    const int access = ::fcntl(fd, F_GETFL) & O_ACCMODE;
    const char* mode = access == O_RDWR ? "+" : access == O_WRONLY ? "w" : "r";
    return "fd " + std::to_string(fd) + " " + mode + " " +
           std::string(target.data(), size < 0 ? 0 : static_cast<std::size_t>(size)) + "\n";
}

std::string describeSignal(const char* name, int number)
{
    struct sigaction action = {};
    ::sigaction(number, nullptr, &action);
    const char* disposition = action.sa_handler == SIG_IGN   ? "ignored"
                              : action.sa_handler == SIG_DFL ? "default"
                                                             : "handled";
    return std::string("signal ") + name + " " + disposition + "\n";
}

std::string describeText(const char* kind, std::string_view text)
{
    constexpr const char* kDigits = "0123456789abcdef";
    std::string line = std::string(kind) + " ";
    for (const char character : text)
    {
        const auto byte = static_cast<unsigned char>(character);
        line.push_back(kDigits[byte >> 4U]);
        line.push_back(kDigits[byte & 15U]);
    }
    return line + "\n";
}

bool writeTo(const std::string& target, std::string_view text)
{
    const int fd = target.rfind("fd:", 0) == 0 ? std::atoi(target.c_str() + 3)
                                               : ::open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    while (!text.empty())
    {
        const ssize_t size = ::write(fd, text.data(), text.size());
        if (size < 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(size));
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return 2;
    raiseDescriptorLimit();
    std::string report;
    for (const int fd : openDescriptors())
        report += describeDescriptor(fd);
    report += describeSignal("SIGTERM", SIGTERM) + describeSignal("SIGINT", SIGINT);
    for (int i = 0; i < argc; ++i)
        report += describeText("arg", argv[i]);
    for (char** variable = environ; *variable != nullptr; ++variable)
        report += describeText("env", *variable);
    return writeTo(argv[1], report) ? 0 : 3;
}
