#include "common/Password.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace programs
{
namespace
{

constexpr std::size_t kLongestSecret = 64UL * 1024;
constexpr const char* kTerminal = "the terminal";
constexpr std::size_t kLongestLine = 4095; ///< without its end: the kernel drops what else is typed, without a word
constexpr int kEndings[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

class Descriptor
{
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    int get() const { return m_fd; }

private:
    int m_fd;
};

/// @return false at the end
bool readPiece(int fd, const std::string& name, std::string& text)
{
    std::array<char, 4096> piece{};
    const ssize_t size = ::read(fd, piece.data(), piece.size());
    if (size < 0)
        throw SecretError(name + ": " + std::strerror(errno));
    text.append(piece.data(), static_cast<std::size_t>(size));
    if (text.size() > kLongestSecret)
        throw SecretError(name + ": too long for a secret");
    return size > 0;
}

std::string fromFile(const std::string& path)
{
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0)
        throw SecretError(path + ": " + std::strerror(errno));
    std::string text;
    while (readPiece(file.get(), path, text))
    {
    }
    return text;
}

std::string fromEnvironment(const std::string& name)
{
    const char* value = std::getenv(name.c_str());
    if (value == nullptr)
        throw SecretError("environment variable " + name + " is not set");
    return value;
}

sigset_t endings()
{
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signal : kEndings)
        ::sigaddset(&set, signal);
    return set;
}

/// Holds back the signals that end or stop a process, for as long as it lives. What has come meanwhile takes its course
/// then, whatever somebody has installed for it.
class SignalsHeld
{
public:
    SignalsHeld() : m_held(endings()), m_arrivals(::signalfd(-1, &m_held, SFD_CLOEXEC))
    {
        if (m_arrivals.get() < 0)
            throw SecretError(std::string("cannot look for signals: ") + std::strerror(errno));
        ::pthread_sigmask(SIG_BLOCK, &m_held, &m_before);
    }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;
    ~SignalsHeld() { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

    /// Waits for something to read.
    /// @return false if a signal has come
    bool isQuietUntilReadable(int fd) const
    {
        struct pollfd both[] = {{fd, POLLIN, 0}, {m_arrivals.get(), POLLIN, 0}};
        while (::poll(both, 2, -1) < 0)
        {
            if (errno != EINTR)
                throw SecretError(std::string(kTerminal) + ": " + std::strerror(errno));
        }
        return both[1].revents == 0;
    }

private:
    sigset_t m_held;
    sigset_t m_before = {};
    Descriptor m_arrivals;
};

/// Switches a terminal's echo off for as long as it lives.
class EchoOff
{
public:
    explicit EchoOff(int fd) : m_fd(fd)
    {
        m_known = ::tcgetattr(fd, &m_before) == 0;
        struct termios silent = m_before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        if (m_known)
            ::tcsetattr(fd, TCSAFLUSH, &silent);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;
    ~EchoOff()
    {
        if (m_known)
            ::tcsetattr(m_fd, TCSAFLUSH, &m_before);
    }

private:
    int m_fd;
    struct termios m_before = {};
    bool m_known = false;
};

void show(int fd, const std::string& text)
{
    if (::write(fd, text.data(), text.size()) < 0)
        throw SecretError(std::string(kTerminal) + ": " + std::strerror(errno));
}

std::optional<std::string> readLine(int fd, const SignalsHeld& signals)
{
    std::string text;
    do
    {
        if (!signals.isQuietUntilReadable(fd))
            return std::nullopt;
    } while (readPiece(fd, kTerminal, text) && text.find('\n') == std::string::npos);
    if (text.size() > kLongestLine)
        throw SecretError(std::string(kTerminal) + ": a line of " + std::to_string(kLongestLine) +
                          " bytes may have been cut off: put the secret into a file");
    return text;
}

/// @return nothing if a signal came in between that did not end the process
std::optional<std::string> askOnce(int fd)
{
    // In the background this stops the process, while a signal can still end it.
    ::tcdrain(fd);
    const SignalsHeld signals; // to its end, so that none finds a terminal without echo
    std::optional<std::string> line;
    {
        const EchoOff silence(fd);
        show(fd, "Password: ");
        line = readLine(fd, signals);
    }
    show(fd, "\n");
    return line;
}

std::string fromTerminal()
{
    const Descriptor terminal(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
    if (terminal.get() < 0)
        throw SecretError("there is no terminal to ask for a password on");
    std::optional<std::string> line;
    while (!line)
        line = askOnce(terminal.get());
    return *line;
}

std::string readRaw(const SecretSource& source)
{
    if (!source.file.empty())
        return fromFile(source.file);
    if (!source.environment.empty())
        return fromEnvironment(source.environment);
    return fromTerminal();
}

std::string nameOf(const SecretSource& source)
{
    if (!source.file.empty())
        return source.file;
    return source.environment.empty() ? kTerminal : "environment variable " + source.environment;
}

} // namespace

std::string readSecret(const SecretSource& source)
{
    std::string secret = readRaw(source);
    if (!secret.empty() && secret.back() == '\n')
        secret.pop_back();
    if (secret.empty())
        throw SecretError(nameOf(source) + ": the secret is empty");
    if (secret.find('\0') != std::string::npos)
        throw SecretError(nameOf(source) + ": the secret holds a zero byte, where it would be cut off");
    return secret;
}

std::string readPassword(const SecretSource& source)
{
    std::string password = readSecret(source);
    if (password.find_first_of("\r\n") != std::string::npos)
        throw SecretError(nameOf(source) + ": the password is more than one line");
    return password;
}

} // namespace programs
