#include "tavctl/Capture.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <thread>

#include "tavctl/Context.h"

namespace tavctl
{
namespace
{

/// A pipe that other programs do not inherit. Both ends are closed at the end.
class Pipe
{
public:
    Pipe()
    {
        if (::pipe2(m_fds.data(), O_CLOEXEC) != 0)
            throw Failure(std::string("cannot make a pipe: ") + std::strerror(errno));
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe()
    {
        closeWriteEnd();
        ::close(m_fds[0]);
    }

    void closeWriteEnd()
    {
        if (m_fds[1] >= 0)
            ::close(m_fds[1]);
        m_fds[1] = -1;
    }
    int readEnd() const { return m_fds[0]; }
    int* ends() { return m_fds.data(); }

private:
    std::array<int, 2> m_fds{-1, -1};
};

/// Takes what is in the pipe now.
/// @return false at its end
bool takeWhatIsThere(int fd, std::string& output)
{
    std::array<char, 64UL * 1024> piece{};
    for (;;)
    {
        const ssize_t size = ::read(fd, piece.data(), piece.size());
        if (size > 0)
            output.append(piece.data(), static_cast<std::size_t>(size));
        else if (size == 0 || errno != EINTR)
            return size < 0 && errno == EAGAIN;
    }
}

/// Reads a pipe in a thread of its own, so that a program never waits for room in it. Stops at the end of the pipe, or
/// when told that the program has ended: a program that it left behind may hold the pipe open for long.
class Drain
{
public:
    explicit Drain(int fd) : m_fd(fd)
    {
        ::fcntl(fd, F_SETFL, O_NONBLOCK); // of this end only
        m_thread = std::thread([this] { work(); });
    }
    Drain(const Drain&) = delete;
    Drain& operator=(const Drain&) = delete;
    ~Drain() { finish(); }

    std::string finish()
    {
        m_stop.closeWriteEnd();
        if (m_thread.joinable())
            m_thread.join();
        return std::move(m_output);
    }

private:
    void work()
    {
        std::array<struct pollfd, 2> ends{{{m_fd, POLLIN, 0}, {m_stop.readEnd(), POLLIN, 0}}};
        bool isStopped = false;
        while (!isStopped)
        {
            if (::poll(ends.data(), ends.size(), -1) < 0)
                continue;
            isStopped = ends[1].revents != 0;
            if (!takeWhatIsThere(m_fd, m_output))
                return;
        }
    }

    int m_fd;
    Pipe m_stop;
    std::string m_output;
    std::thread m_thread;
};

} // namespace

Captured captureOutput(TAV::ITAVUtils& utils, const std::vector<std::string>& argv)
{
    Pipe pipe;
    Drain drain(pipe.readEnd());
    Captured captured;
    captured.isSuccess = utils.readSystemCommandOutput(argv, nullptr, pipe.ends());
    pipe.closeWriteEnd();
    captured.output = drain.finish();
    return captured;
}

} // namespace tavctl
