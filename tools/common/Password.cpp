#include "common/Password.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace programs
{
namespace
{

constexpr std::size_t kLongestSecret = 64UL * 1024;

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

std::string readAll(int fd, const std::string& name, bool stopAtNewline)
{
    std::string text;
    std::array<char, 4096> piece{};
    while (!stopAtNewline || text.find('\n') == std::string::npos)
    {
        const ssize_t size = ::read(fd, piece.data(), piece.size());
        if (size < 0)
            throw SecretError(name + ": " + std::strerror(errno));
        if (size == 0)
            break;
        text.append(piece.data(), static_cast<std::size_t>(size));
        if (text.size() > kLongestSecret)
            throw SecretError(name + ": too long for a secret");
    }
    return text;
}

std::string fromFile(const std::string& path)
{
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0)
        throw SecretError(path + ": " + std::strerror(errno));
    return readAll(file.get(), path, false);
}

std::string fromEnvironment(const std::string& name)
{
    const char* value = std::getenv(name.c_str());
    if (value == nullptr)
        throw SecretError("environment variable " + name + " is not set");
    return value;
}

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
        throw SecretError(std::string("the terminal: ") + std::strerror(errno));
}

std::string fromTerminal()
{
    const Descriptor terminal(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
    if (terminal.get() < 0)
        throw SecretError("there is no terminal to ask for a password on");
    show(terminal.get(), "Password: ");
    std::string text;
    {
        const EchoOff silence(terminal.get());
        text = readAll(terminal.get(), "the terminal", true);
    }
    show(terminal.get(), "\n");
    return text;
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
    return source.environment.empty() ? "the terminal" : "environment variable " + source.environment;
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
