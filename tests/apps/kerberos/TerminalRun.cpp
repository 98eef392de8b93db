#include "apps/kerberos/TerminalRun.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "support/SacrificialProcess.h"

namespace TAV::test
{
namespace
{

constexpr int kNotStarted = 127;
constexpr int kSignalBase = 128;

/// Child: never returns.
[[noreturn]] void
become(const std::vector<std::string>& argv, const std::map<std::string, std::string>& environment, int terminalFd)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // As a terminal's programs begin, even if a shell has started the test in the background.
    for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGTSTP, SIGTTIN, SIGTTOU})
        static_cast<void>(std::signal(signal, SIG_DFL));
    const struct rlimit noCore = {0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore); // of one that is ended by Ctrl-Backslash
    if (::login_tty(terminalFd) != 0)
        ::_exit(kNotStarted);
    for (const auto& [name, value] : environment)
        ::setenv(name.c_str(), value.c_str(), 1);
    std::vector<char*> arguments;
    for (const std::string& argument : argv)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    ::execv(arguments.front(), arguments.data());
    ::_exit(kNotStarted);
}

void closeOnExec(int fd)
{
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
}

} // namespace

TerminalRun::TerminalRun(const std::vector<std::string>& argv, const std::map<std::string, std::string>& environment)
{
    if (::openpty(&m_keyboardFd, &m_terminalFd, nullptr, nullptr, nullptr) != 0)
        throw std::runtime_error(std::string("no pseudo-terminal: ") + std::strerror(errno));
    closeOnExec(m_keyboardFd);
    closeOnExec(m_terminalFd);
    ::fcntl(m_keyboardFd, F_SETFL, O_NONBLOCK);
    m_pid = ::fork();
    if (m_pid == 0)
        become(argv, environment, m_terminalFd);
}

TerminalRun::~TerminalRun()
{
    if (m_pid > 0)
    {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    ::close(m_terminalFd);
    ::close(m_keyboardFd); // which hangs up
}

bool TerminalRun::shows(const std::string& text)
{
    return eventually(
        [&]
        {
            look();
            const std::size_t place = m_screen.find(text, m_seen);
            if (place == std::string::npos)
                return false;
            m_seen = place + text.size();
            return true;
        });
}

void TerminalRun::type(const std::string& keys) const
{
    std::size_t typed = 0;
    eventually(
        [&]
        {
            const ssize_t size = ::write(m_keyboardFd, keys.data() + typed, keys.size() - typed);
            typed += size > 0 ? static_cast<std::size_t>(size) : 0;
            return typed == keys.size();
        });
}

bool TerminalRun::hasEcho() const
{
    struct termios state = {};
    if (::tcgetattr(m_terminalFd, &state) != 0)
        throw std::runtime_error(std::string("the terminal: ") + std::strerror(errno));
    return (state.c_lflag & ECHO) != 0;
}

std::optional<int> TerminalRun::end()
{
    int status = 0;
    const bool hasEnded = eventually(
        [&]
        {
            look(); // a program whose output nobody takes waits for ever
            return ::waitpid(m_pid, &status, WNOHANG) == m_pid;
        });
    if (!hasEnded)
        return std::nullopt;
    m_pid = -1;
    return WIFSIGNALED(status) ? kSignalBase + WTERMSIG(status) : WEXITSTATUS(status);
}

std::string TerminalRun::screen()
{
    look();
    return m_screen;
}

void TerminalRun::look()
{
    std::array<char, 4096> piece{};
    for (ssize_t size = 0; (size = ::read(m_keyboardFd, piece.data(), piece.size())) > 0;)
        m_screen.append(piece.data(), static_cast<std::size_t>(size));
}

} // namespace TAV::test
