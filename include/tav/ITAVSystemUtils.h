#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <cstddef>
#include <fstream>
#include <string>

#include "tav/Export.h"

namespace TAV
{

/// The system calls that the services make, behind an interface so that a test can replace them.
///
/// Each operation but the two stream openers stands for the one POSIX call of the same name, and so does its result.
/// The last argument, `err`, receives the `errno` value of a failed call and is left as it is by a successful one.
/// Nothing is retried, not even after EINTR.
///
/// `open`, `close` and `dup2` are called in a forked child too, before it starts its program: an implementation takes
/// no lock and allocates no memory in them beyond what the C call does. The operations are called on the thread of
/// whoever called the service; an object that is shared between threads must allow that, as `TAVSystemUtils` does.
///
/// The order of the operations is part of the binary interface.
class TAV_EXPORT ITAVSystemUtils
{
public:
    virtual ~ITAVSystemUtils() = default;

    /// open(2) without a mode: `flags` must not hold O_CREAT.
    /// @return the descriptor, or a negative number
    virtual int open(std::string path, int flags, int& err) = 0;

    /// read(2): up to `count` bytes from `fd` into `buffer`. May block.
    /// @return the bytes read, 0 at the end of the file, or a negative number
    virtual ssize_t read(int fd, void* buffer, std::size_t count, int& err) = 0;

    /// close(2).
    /// @return 0, or -1
    virtual int close(int fd, int& err) = 0;

    /// setenv(3): changes the environment of the whole process, so it must not run beside getenv(3) of another thread.
    /// @return 0, or -1
    virtual int setenv(const char* name, const char* value, int overwrite, int& err) = 0;

    /// pipe2(2).
    /// @param fds    receives the read end in `fds[0]` and the write end in `fds[1]`; untouched on failure
    /// @param flags  0, or O_CLOEXEC and the like; note that it stands behind `err`
    /// @return 0, or -1
    virtual int pipe(std::array<int, 2>& fds, int& err, int flags) = 0;

    /// fork(2).
    /// @return the child's process id in the parent, 0 in the child, or -1
    virtual pid_t fork(int& err) = 0;

    /// waitpid(2). Blocks until the child ends, unless `options` says otherwise.
    /// @param status  receives the raw wait status, as wait(2) describes it
    /// @return the child's process id, or -1
    virtual pid_t waitpid(pid_t pid, int* status, int options, int& err) = 0;

    /// mkdir(2).
    /// @return 0, or -1
    virtual int mkdir(std::string path, mode_t mode, int& err) = 0;

    /// dup2(2).
    /// @return `newFd`, or -1
    virtual int dup2(int oldFd, int newFd, int& err) = 0;

    /// stat(2).
    /// @return 0, or -1
    virtual int stat(const char* path, struct stat* buffer, int& err) = 0;

    /// Opens `stream`, which is not open yet, for writing on `path`; the file is made if missing and emptied otherwise.
    /// The caller learns the outcome from `stream.is_open()`.
    virtual void openOutputFile(std::ofstream& stream, std::string path) = 0;

    /// Opens `stream`, which is not open yet, for reading on `path`.
    /// The caller learns the outcome from `stream.is_open()`.
    virtual void openInputFile(std::ifstream& stream, std::string path) = 0;
};

} // namespace TAV
