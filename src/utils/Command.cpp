#include "utils/Command.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "frame/LogLevels.h"
#include "tav/TAVUtils.h"

namespace TAV::command
{
namespace
{

// Both operations say "execute" here.
constexpr const char* kPipeFailed = "Failed to create Pipe FD to execute system command";
constexpr const char* kDevNull = "/dev/null";
constexpr std::size_t kStderrLimit = 200;

/// Closes [first, last]; an empty run, which the kernel would call an error, is none.
bool closeRun(long first, long last)
{
    return first > last || ::close_range(static_cast<unsigned int>(first), static_cast<unsigned int>(last), 0) == 0;
}

} // namespace

bool Run::makeErrPipe()
{
    if (systemUtils.pipe(errPipe, err, 0) == 0)
        return true;
    logger.log(kLogFailure, component, kPipeFailed);
    return false;
}

bool Run::finish(bool outcome)
{
    utils.closePipeFds(errPipe);
    return outcome;
}

bool Run::fail(const char* reason)
{
    logger.log(kLogFailure, component, reason);
    return finish(false);
}

// Flattened, so that the path is made in place: a call of memcpy would bring in another page of the C library.
[[gnu::flatten]] bool Run::connectUnkeptToDevNull(const KeepMap& keep)
{
    const auto isKept = [&](int fd) { return utils.checkIfFdToBeKeptOpen(fd, &keep); };
    if (isKept(STDIN_FILENO) && isKept(STDOUT_FILENO) && isKept(STDERR_FILENO))
        return true;
    const int nullFd = systemUtils.open(kDevNull, O_RDWR, err);
    if (nullFd < 0)
        return false;
    for (int standardFd = STDIN_FILENO; standardFd <= STDERR_FILENO; ++standardFd)
        utils.duplicateFd(nullFd, standardFd, &keep, err);
    // Deliberately also when it came back as one of 0, 1 and 2: that one then ends closed.
    ::close(nullFd);
    return true;
}

std::string Run::describeAbnormalExit(const char* sentence, int status)
{
    std::array<char, kStderrLimit + 1> text{}; // the last byte stays zero
    const ssize_t size = systemUtils.read(errPipe[0], text.data(), kStderrLimit, err);

    std::string account = sentence + std::to_string(status) + " and errno - " + std::strerror(err) + ".";
    if (size < 1)
        return account + " Stderr could not be read.";
    return account + " Stderr is - " + text.data();
}

std::vector<const char*> argumentPointers(const std::vector<std::string>& argv)
{
    std::vector<const char*> pointers;
    pointers.reserve(argv.size() + 1);
    for (const std::string& argument : argv)
        pointers.push_back(argument.c_str());
    pointers.push_back(nullptr);
    return pointers;
}

void ignoreTerminationSignals()
{
    static_cast<void>(std::signal(SIGTERM, SIG_IGN));
    static_cast<void>(std::signal(SIGINT, SIG_IGN));
}

bool closeUnkeptRuns(long first, long last, const KeepMap& keep)
{
    // upper_bound instead of ++: it is inlined, while ++ brings in a page of the C++ library.
    for (auto entry = keep.lower_bound(static_cast<int>(first)); entry != keep.end() && entry->first <= last;
         entry = keep.upper_bound(entry->first))
    {
        if (!entry->second)
            continue;
        if (!closeRun(first, entry->first - 1L))
            return false;
        first = entry->first + 1L;
    }
    return closeRun(first, last);
}

void becomeProgram(const std::vector<std::string>& argv, const std::vector<const char*>& pointers)
{
    // execv takes its list without const for C's sake; it writes to neither the list nor the texts.
    ::execv(argv.at(0).c_str(), const_cast<char* const*>(pointers.data()));
}

bool exitedWithZero(int status)
{
    return ((status >> 8) & 0xff) == 0 && (status & 0x7f) == 0;
}

} // namespace TAV::command
