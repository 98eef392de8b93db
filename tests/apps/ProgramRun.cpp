#include "apps/ProgramRun.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "support/TemporaryDirectory.h"

namespace TAV::test
{
namespace
{

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kLongest{280};
constexpr std::chrono::milliseconds kPause{2};
constexpr int kNotStarted = 127;
constexpr int kSignalBase = 128;

void redirect(const std::string& path, int flags, int onto)
{
    constexpr mode_t kMode = 0600;
    const int fd = ::open(path.c_str(), flags, kMode);
    if (fd < 0 || ::dup2(fd, onto) < 0)
        ::_exit(kNotStarted);
    ::close(fd);
}

/// Child: never returns.
[[noreturn]] void become(const ProgramRun& run, const TemporaryDirectory& files)
{
    ::setsid();
    const std::string out = run.outputFile.empty() ? files.file("out") : run.outputFile;
    redirect(files.file("in"), O_RDONLY, STDIN_FILENO);
    redirect(out, O_WRONLY | O_CREAT | O_TRUNC, STDOUT_FILENO);
    redirect(files.file("err"), O_WRONLY | O_CREAT | O_TRUNC, STDERR_FILENO);
    for (const auto& [name, value] : run.environment)
        ::setenv(name.c_str(), value.c_str(), 1);
    if (!run.directory.empty() && ::chdir(run.directory.c_str()) != 0)
        ::_exit(kNotStarted);
    if (run.fileSizeLimit >= 0)
    {
        const struct rlimit limit = {static_cast<rlim_t>(run.fileSizeLimit), static_cast<rlim_t>(run.fileSizeLimit)};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    std::vector<char*> arguments;
    for (const std::string& argument : run.argv)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    ::execv(arguments.front(), arguments.data());
    ::_exit(kNotStarted);
}

int waitFor(pid_t pid, const ProgramRun& run)
{
    const auto start = Clock::now();
    bool isSignalled = run.signalToSend == 0;
    for (;;)
    {
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid)
            return WIFSIGNALED(status) ? kSignalBase + WTERMSIG(status) : WEXITSTATUS(status);
        const auto elapsed = Clock::now() - start;
        if (!isSignalled && elapsed >= std::chrono::milliseconds(run.signalDelayMs))
        {
            ::kill(pid, run.signalToSend);
            isSignalled = true;
        }
        if (elapsed > kLongest)
            ::kill(-pid, SIGKILL);
        std::this_thread::sleep_for(kPause);
    }
}

} // namespace

ProgramResult ProgramRun::run() const
{
    const TemporaryDirectory files;
    files.write("in", input);
    for (const char* name : {"out", "err"}) // there even if the program is killed before it starts
        files.write(name, "");
    const pid_t pid = ::fork();
    if (pid < 0)
        throw std::runtime_error("cannot fork");
    if (pid == 0)
        become(*this, files);
    ProgramResult result;
    result.exitCode = waitFor(pid, *this);
    if (outputFile.empty())
        result.out = readFile(files.file("out"));
    result.err = readFile(files.file("err"));
    return result;
}

ProgramResult runProgram(std::vector<std::string> argv, const std::string& input)
{
    ProgramRun run;
    run.argv = std::move(argv);
    run.input = input;
    return run.run();
}

} // namespace TAV::test
