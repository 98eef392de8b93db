// The files that arrive in a directory, until somebody stops the program.
#pragma once

#include <poll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <deque>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

class Inbox
{
public:
    /// Make it before other threads start: they inherit that SIGTERM and SIGINT are blocked.
    explicit Inbox(const std::filesystem::path& directory)
        : m_directory(std::filesystem::canonical(directory)), m_eventsFd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        sigset_t stop = {};
        ::sigemptyset(&stop);
        ::sigaddset(&stop, SIGTERM);
        ::sigaddset(&stop, SIGINT);
        ::sigprocmask(SIG_BLOCK, &stop, nullptr); // they wait in a descriptor, and interrupt no call of the library
        m_signalsFd = ::signalfd(-1, &stop, SFD_CLOEXEC);
        if (::inotify_add_watch(m_eventsFd, m_directory.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO) < 0)
            throw std::system_error(errno, std::generic_category(), m_directory);
        for (const auto& entry : std::filesystem::directory_iterator(m_directory))
            add(entry.path()); // what was there before
        receive();             // what came meanwhile; add() takes nothing twice
        std::sort(m_waiting.begin(), m_waiting.end());
    }
    Inbox(const Inbox&) = delete;
    Inbox& operator=(const Inbox&) = delete;
    ~Inbox()
    {
        ::close(m_eventsFd);
        ::close(m_signalsFd);
    }

    /// Waits for the next file. Nothing when the program is to stop and no file is left.
    std::optional<std::string> next()
    {
        while (m_waiting.empty())
        {
            std::array<pollfd, 2> ready = {{{m_eventsFd, POLLIN, 0}, {m_signalsFd, POLLIN, 0}}};
            ::poll(ready.data(), ready.size(), -1);
            if (ready[0].revents != 0)
                receive();
            else if (ready[1].revents != 0)
                return std::nullopt;
        }
        const std::string path = m_waiting.front();
        m_waiting.pop_front();
        return path;
    }

private:
    void receive()
    {
        alignas(inotify_event) std::array<char, 16384> buffer{};
        const ssize_t length = ::read(m_eventsFd, buffer.data(), buffer.size());
        for (ssize_t at = 0; at < length;)
        {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
            if (event->len > 0)
                add(m_directory / event->name);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }

    /// Regular files only: a directory has the checksum of nothing, and a FIFO would block.
    void add(const std::filesystem::path& path)
    {
        std::error_code isGone;
        const bool isFile = std::filesystem::is_regular_file(std::filesystem::symlink_status(path, isGone));
        if (isFile && std::find(m_waiting.begin(), m_waiting.end(), path.string()) == m_waiting.end())
            m_waiting.push_back(path.string());
    }

    std::filesystem::path m_directory;
    int m_eventsFd = -1;
    int m_signalsFd = -1;
    std::deque<std::string> m_waiting;
};
