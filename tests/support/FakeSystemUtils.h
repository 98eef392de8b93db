#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tav/TAVSystemUtils.h"

namespace TAV::test
{

/// A system-call object that a test steers. Each operation, in this order: notes the call; fails if the test planned
/// so; asks the test's own stand-in for that operation, if there is one; forwards to the real system.
///
///     FakeSystemUtils system;
///     system.failCall("pipe", 1, EMFILE);           // the first pipe fails, later ones are real
///     system.onFork = [](int&) { return 4711; };    // no process is made
///     ...
///     EXPECT_THAT(system.calls(), ElementsAre("pipe(flags 0)", "fork()", ...));
class FakeSystemUtils : public ITAVSystemUtils
{
public:
    enum class Lasting
    {
        Once,
        FromThenOn,
    };

    /// Makes call number `nth` (from 1) of an operation fail with `err`: it returns -1, a stream stays closed.
    void failCall(const std::string& operation, unsigned int nth, int err, Lasting lasting = Lasting::Once);

    /// What was called, in order, with the arguments that matter: "close(5)", "open(/dev/null, 2)".
    const std::vector<std::string>& calls() const { return m_calls; }
    unsigned int countOf(const std::string& operation) const;

    /// When set, called with the text of each call just as it is noted.
    std::function<void(const std::string&)> onCall;

    std::function<int(const std::string&, int, int&)> onOpen;
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

private:
    struct Fault
    {
        unsigned int nth = 0;
        int err = 0;
        Lasting lasting = Lasting::Once;
    };

    /// Notes a call and tells the error that it is planned to fail with.
    std::optional<int> enter(const std::string& operation, const std::string& arguments);

    TAVSystemUtils m_real;
    std::map<std::string, Fault> m_faults;
    std::map<std::string, unsigned int> m_counts;
    std::vector<std::string> m_calls;
};

} // namespace TAV::test
