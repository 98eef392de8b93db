#pragma once

#include "tav/ITAVSystemUtils.h"

namespace TAV
{

/// The production system-call layer: forwards each operation to the C call that it is named after.
///
/// **Threads.** It has no state, so one object serves any number of services and threads.
///
/// It lives in a library of its own, `libtavsystemutils`: a product that brings its own `ITAVSystemUtils` need not link
/// it.
class TAV_EXPORT TAVSystemUtils : public ITAVSystemUtils
{
public:
    TAVSystemUtils() = default;
    TAVSystemUtils(const TAVSystemUtils&) = delete;
    TAVSystemUtils& operator=(const TAVSystemUtils&) = delete;
    ~TAVSystemUtils() override;

    int open(std::string path, int flags, int& err) override;
    ssize_t read(int fd, void* buffer, std::size_t count, int& err) override;
    int close(int fd, int& err) override;
    int setenv(const char* name, const char* value, int overwrite, int& err) override;
    int pipe(std::array<int, 2>& fds, int& err, int flags) override;
    pid_t fork(int& err) override;
    pid_t waitpid(pid_t pid, int* status, int options, int& err) override;
    int mkdir(std::string path, mode_t mode, int& err) override;
    int dup2(int oldFd, int newFd, int& err) override;
    int stat(const char* path, struct stat* buffer, int& err) override;
    void openOutputFile(std::ofstream& stream, std::string path) override;
    void openInputFile(std::ifstream& stream, std::string path) override;
};

} // namespace TAV
