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
/// **Results.** Each operation but the two stream openers stands for the one POSIX or Linux call that its comment
/// names, and so does its result. `err` receives the `errno` value of a failed call and is left as it is by a
/// successful one. Nothing is retried, not even after EINTR, and nothing is thrown but for want of memory.
///
/// **Ownership.** Texts and buffers stay the caller's and are not kept after the call. A descriptor that an operation
/// returns is the caller's to close.
///
/// **Threads.** The operations are called on the thread of whoever called the service; an object that is shared between
/// threads must allow that, as `TAVSystemUtils` does. `open`, `close` and `dup2` are called in a forked child too,
/// before it starts its program: an implementation takes no lock and allocates no memory in them beyond what the C call
/// does.
///
/// The order of the operations is part of the binary interface.
class TAV_EXPORT ITAVSystemUtils
{
public:
    virtual ~ITAVSystemUtils() = default;

    /// Opens a file, as open(2) does without a mode.
    /// @param path   the file
    /// @param flags  open(2)'s flags, O_RDWR for instance; they must not hold O_CREAT
    /// @param err    receives `errno` on failure
    /// @return the descriptor, or a negative number
    virtual int open(std::string path, int flags, int& err) = 0;

    /// Reads from a descriptor, as read(2) does. May block.
    /// @param fd      the descriptor
    /// @param buffer  receives the bytes; at least `count` bytes long
    /// @param count   how many bytes at most
    /// @param err     receives `errno` on failure
    /// @return the bytes read, 0 at the end of the file, or a negative number
    virtual ssize_t read(int fd, void* buffer, std::size_t count, int& err) = 0;

    /// Closes a descriptor, as close(2) does.
    /// @param fd   the descriptor
    /// @param err  receives `errno` on failure
    /// @return 0, or -1
    virtual int close(int fd, int& err) = 0;

    /// Sets an environment variable, as setenv(3) does. This changes the environment of the whole process, so it must
    /// not run beside getenv(3) of another thread.
    /// @param name       the variable
    /// @param value      its value, which is copied
    /// @param overwrite  0 keeps a value that is there already
    /// @param err        receives `errno` on failure
    /// @return 0, or -1
    virtual int setenv(const char* name, const char* value, int overwrite, int& err) = 0;

    /// Makes a pipe, as pipe2(2) does.
    /// @param fds    receives the read end in `fds[0]` and the write end in `fds[1]`; untouched on failure
    /// @param err    receives `errno` on failure
    /// @param flags  0, or O_CLOEXEC and the like; note that it stands behind `err`
    /// @return 0, or -1
    virtual int pipe(std::array<int, 2>& fds, int& err, int flags) = 0;

    /// Makes a child process, as fork(2) does.
    /// @param err  receives `errno` on failure
    /// @return the child's process id in the parent, 0 in the child, or -1
    virtual pid_t fork(int& err) = 0;

    /// Waits for a child process, as waitpid(2) does. Blocks until the child ends, unless `options` says otherwise.
    /// @param pid      the child
    /// @param status   receives the raw wait status, as waitpid(2) describes it
    /// @param options  0, or WNOHANG and the like
    /// @param err      receives `errno` on failure
    /// @return the child's process id, or -1
    virtual pid_t waitpid(pid_t pid, int* status, int options, int& err) = 0;

    /// Makes a directory, as mkdir(2) does.
    /// @param path  the directory; its parent must exist
    /// @param mode  its permission bits, of which the process's umask takes some away
    /// @param err   receives `errno` on failure
    /// @return 0, or -1
    virtual int mkdir(std::string path, mode_t mode, int& err) = 0;

    /// Duplicates a descriptor onto a number, as dup2(2) does.
    /// @param oldFd  the descriptor to duplicate
    /// @param newFd  the number to put it on; what was open there is closed
    /// @param err    receives `errno` on failure
    /// @return `newFd`, or -1
    virtual int dup2(int oldFd, int newFd, int& err) = 0;

    /// Asks for a file's status, as stat(2) does: symbolic links are followed.
    /// @param path    the file
    /// @param buffer  receives the status
    /// @param err     receives `errno` on failure
    /// @return 0, or -1
    virtual int stat(const char* path, struct stat* buffer, int& err) = 0;

    /// Opens a stream for writing. The file is made if missing and emptied otherwise, as open(2) does with O_WRONLY,
    /// O_CREAT and O_TRUNC. The outcome is what `stream.is_open()` then says.
    /// @param stream  a stream that is not open yet; the caller closes it
    /// @param path    the file
    virtual void openOutputFile(std::ofstream& stream, std::string path) = 0;

    /// Opens a stream for reading, as open(2) does with O_RDONLY. The outcome is what `stream.is_open()` then says.
    /// @param stream  a stream that is not open yet; the caller closes it
    /// @param path    the file
    virtual void openInputFile(std::ifstream& stream, std::string path) = 0;
};

} // namespace TAV
