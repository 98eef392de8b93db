#include "support/ServerProcess.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "support/FreePort.h"
#include "support/SacrificialProcess.h"
#include "support/TemporaryDirectory.h"

extern char** environ;

namespace TAV::test
{
namespace
{

constexpr int kExitNotStarted = 127;

/// All that the child needs, made before the fork: between fork and exec only system calls are safe.
struct Start
{
    std::vector<char*> argv;
    std::vector<char*> environment;
    const char* outputFile;
    pid_t parent;
    uid_t uid;
    gid_t gid;
};

std::vector<char*> pointersTo(const std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (const std::string& text : texts)
        pointers.push_back(const_cast<char*>(text.c_str()));
    return pointers;
}

Start prepare(const ServerProgram& program)
{
    Start start{pointersTo(program.argv),
                pointersTo(program.environment),
                program.outputFile.c_str(),
                ::getpid(),
                ::getuid(),
                ::getgid()};
    start.argv.push_back(nullptr);
    // What comes first counts.
    for (char** variable = environ; *variable != nullptr; ++variable)
        start.environment.push_back(*variable);
    start.environment.push_back(nullptr);
    if (!program.user.empty() && start.uid == 0)
    {
        const passwd* entry = ::getpwnam(program.user.c_str());
        if (entry == nullptr)
            throw std::runtime_error("no user is called " + program.user);
        start.uid = entry->pw_uid;
        start.gid = entry->pw_gid;
    }
    return start;
}

bool becomeUser(const Start& start)
{
    return start.uid == ::getuid() ||
           (::setgroups(0, nullptr) == 0 && ::setgid(start.gid) == 0 && ::setuid(start.uid) == 0);
}

[[noreturn]] void runProgram(const Start& start)
{
    ::setpgid(0, 0);
    const int output = ::open(start.outputFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const int input = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    // The last of these undoes the signal at the parent's end, so that it is asked for afterwards.
    const bool ready = ::dup2(input, STDIN_FILENO) >= 0 && ::dup2(output, STDOUT_FILENO) >= 0 &&
                       ::dup2(output, STDERR_FILENO) >= 0 && becomeUser(start) &&
                       ::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0;
    // A connection of the test that lived on here would never be seen to close.
    ::close_range(STDERR_FILENO + 1, ~0U, 0);
    if (ready && ::getppid() == start.parent)
        ::execve(start.argv[0], start.argv.data(), start.environment.data());
    ::_exit(kExitNotStarted);
}

} // namespace

ServerProcess::ServerProcess(const ServerProgram& program)
    : m_name(program.argv.at(0)), m_outputFile(program.outputFile), m_pid(0)
{
    const Start start = prepare(program);
    m_pid = ::fork();
    if (m_pid < 0)
        throw std::system_error(errno, std::generic_category(), "fork");
    if (m_pid == 0)
        runProgram(start);
    // On both sides, so that the group exists for whoever comes first.
    ::setpgid(m_pid, m_pid);
}

ServerProcess::~ServerProcess()
{
    stop(SIGKILL);
}

bool ServerProcess::hasEnded() const
{
    siginfo_t information = {};
    return ::waitid(P_PID, static_cast<id_t>(m_pid), &information, WEXITED | WNOWAIT | WNOHANG) != 0 ||
           information.si_pid == m_pid;
}

void ServerProcess::waitUntil(const std::function<bool()>& isReady) const
{
    bool ready = false;
    eventually([&] { return (ready = isReady()) || hasEnded(); });
    if (!ready)
        throw std::runtime_error(m_name + " does not answer: " + readFile(m_outputFile));
}

void ServerProcess::waitUntilAnswers(std::uint16_t port) const
{
    waitUntil([port] { return acceptsConnections(port); });
}

void ServerProcess::stop(int signal)
{
    if (m_pid == 0)
        return;
    ::kill(m_pid, signal);
    eventually([this] { return hasEnded(); });
    // What it started too; before it is reaped, as the group's id is nobody's afterwards.
    ::kill(-m_pid, SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
    m_pid = 0;
}

std::string findServerProgram(const std::string& name)
{
    const char* path = std::getenv("PATH");
    std::istringstream directories(std::string(path == nullptr ? "" : path) + ":/usr/local/sbin:/usr/sbin");
    for (std::string directory; std::getline(directories, directory, ':');)
    {
        std::string program = directory + "/" + name;
        if (::access(program.c_str(), X_OK) == 0)
            return program;
    }
    return {};
}

} // namespace TAV::test
