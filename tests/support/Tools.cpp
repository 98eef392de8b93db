#include "support/Tools.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace TAV::test
{
namespace
{

constexpr int kNotStarted = 127;

std::string readToEnd(int fd)
{
    std::string text;
    std::array<char, 65536> piece{};
    ssize_t size = 0;
    while ((size = ::read(fd, piece.data(), piece.size())) > 0)
        text.append(piece.data(), static_cast<std::size_t>(size));
    return text;
}

/// Starts the program with its standard output on `outputFd`; an errno value if that fails.
int start(const std::vector<std::string>& argv, const std::string& input, int outputFd, pid_t& pid)
{
    std::vector<char*> arguments;
    for (const std::string& argument : argv)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, input.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outputFd, STDOUT_FILENO);
    const int err = ::posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return err;
}

} // namespace

ToolRun runTool(const std::vector<std::string>& argv, const std::string& input)
{
    std::array<int, 2> fds{};
    if (::pipe2(fds.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("cannot make a pipe");
    pid_t pid = 0;
    const int err = start(argv, input, fds[1], pid);
    ::close(fds[1]);
    ToolRun run;
    run.output = readToEnd(fds[0]);
    ::close(fds[0]);
    int status = 0;
    if (err != 0)
        run.exitCode = kNotStarted;
    else if (::waitpid(pid, &status, 0) == pid && WIFEXITED(status))
        run.exitCode = WEXITSTATUS(status);
    return run;
}

std::string outputOf(const std::vector<std::string>& argv, const std::string& input)
{
    ToolRun run = runTool(argv, input);
    if (run.exitCode != 0)
        throw std::runtime_error(argv[0] + " ended with exit code " + std::to_string(run.exitCode));
    return std::move(run.output);
}

bool hasTool(const std::string& name)
{
    const char* path = std::getenv("PATH");
    std::istringstream directories(path == nullptr ? "" : path);
    for (std::string directory; std::getline(directories, directory, ':');)
    {
        if (::access((directory + "/" + name).c_str(), X_OK) == 0)
            return true;
    }
    return false;
}

} // namespace TAV::test
