#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "tav/TAVSystemUtils.h"
#include "tav/testing/Fake.h"

namespace TAV::test
{

/// A system-call object that a test steers. Each operation notes its call and fails if the test planned so; otherwise
/// it asks the test's own stand-in for that operation, if there is one, or forwards to the real system.
///
///     FakeTAVSystemUtils system;
///     system.failCall("pipe", 1, EMFILE);           // the first pipe fails, later ones are real
///     system.onFork = [](int&) { return 4711; };    // no process is made
///     ...
///     EXPECT_THAT(system.calls(), ElementsAre("pipe(flags 0)", "fork()", ...));
///
/// A planned failure returns -1 and stores the error; a stream that is to be opened stays closed. Link
/// `tavutils::tavsystemutils` with it.
///
/// **Children.** The child of a real fork may go on with this object, whatever other threads did with it at the fork,
/// and so it may with its plan. With other doubles, a logger for one, it may not if they were in use then.
class FakeTAVSystemUtils : public ITAVSystemUtils, public Fake
{
public:
    using Fake::Fake;

    /// @name Stand-ins
    /// When set, each takes the place of the real operation of its name.
    /// @{
    std::function<int(const std::string&, int, int&)> onOpen; ///< in place of the real operation
    std::function<ssize_t(int, void*, std::size_t, int&)> onRead;
    std::function<int(int, int&)> onClose;
    std::function<int(const char*, const char*, int, int&)> onSetenv;
    std::function<int(std::array<int, 2>&, int&, int)> onPipe;
    std::function<pid_t(int&)> onFork;
    std::function<pid_t(pid_t, int*, int, int&)> onWaitpid;
    std::function<int(const std::string&, mode_t, int&)> onMkdir;
    std::function<int(int, int, int&)> onDup2;
    std::function<int(const char*, struct stat*, int&)> onStat;
    std::function<void(std::ofstream&, const std::string&)> onOpenOutputFile;
    std::function<void(std::ifstream&, const std::string&)> onOpenInputFile;
    /// @}

    int open(std::string path, int flags, int& err) override
    {
        if (const auto fault = enter("open", joined({path, std::to_string(flags)})))
            return err = *fault, -1;
        return onOpen ? onOpen(path, flags, err) : m_real.open(path, flags, err);
    }

    ssize_t read(int fd, void* buffer, std::size_t count, int& err) override
    {
        if (const auto fault = enter("read", joined({std::to_string(fd), std::to_string(count)})))
            return err = *fault, -1;
        return onRead ? onRead(fd, buffer, count, err) : m_real.read(fd, buffer, count, err);
    }

    int close(int fd, int& err) override
    {
        if (const auto fault = enter("close", std::to_string(fd)))
            return err = *fault, -1;
        return onClose ? onClose(fd, err) : m_real.close(fd, err);
    }

    int setenv(const char* name, const char* value, int overwrite, int& err) override
    {
        if (const auto fault = enter("setenv", joined({name, value, std::to_string(overwrite)})))
            return err = *fault, -1;
        return onSetenv ? onSetenv(name, value, overwrite, err) : m_real.setenv(name, value, overwrite, err);
    }

    int pipe(std::array<int, 2>& fds, int& err, int flags) override
    {
        if (const auto fault = enter("pipe", "flags " + std::to_string(flags)))
            return err = *fault, -1;
        return onPipe ? onPipe(fds, err, flags) : m_real.pipe(fds, err, flags);
    }

    pid_t fork(int& err) override
    {
        if (const auto fault = enter("fork", ""))
            return err = *fault, -1;
        return onFork ? onFork(err) : forked([&] { return m_real.fork(err); });
    }

    pid_t waitpid(pid_t pid, int* status, int options, int& err) override
    {
        if (const auto fault = enter("waitpid", joined({std::to_string(pid), std::to_string(options)})))
            return err = *fault, -1;
        return onWaitpid ? onWaitpid(pid, status, options, err) : m_real.waitpid(pid, status, options, err);
    }

    int mkdir(std::string path, mode_t mode, int& err) override
    {
        if (const auto fault = enter("mkdir", joined({path, std::to_string(mode)})))
            return err = *fault, -1;
        return onMkdir ? onMkdir(path, mode, err) : m_real.mkdir(path, mode, err);
    }

    int dup2(int oldFd, int newFd, int& err) override
    {
        if (const auto fault = enter("dup2", joined({std::to_string(oldFd), std::to_string(newFd)})))
            return err = *fault, -1;
        return onDup2 ? onDup2(oldFd, newFd, err) : m_real.dup2(oldFd, newFd, err);
    }

    int stat(const char* path, struct stat* buffer, int& err) override
    {
        if (const auto fault = enter("stat", path))
            return err = *fault, -1;
        return onStat ? onStat(path, buffer, err) : m_real.stat(path, buffer, err);
    }

    void openOutputFile(std::ofstream& stream, std::string path) override
    {
        if (enter("openOutputFile", path))
            return;
        onOpenOutputFile ? onOpenOutputFile(stream, path) : m_real.openOutputFile(stream, path);
    }

    void openInputFile(std::ifstream& stream, std::string path) override
    {
        if (enter("openInputFile", path))
            return;
        onOpenInputFile ? onOpenInputFile(stream, path) : m_real.openInputFile(stream, path);
    }

private:
    TAVSystemUtils m_real;
};

} // namespace TAV::test
