#include "utils/ChildProcess.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>

#include "tav/TAVUtils.h"

namespace TAV::child
{
namespace
{

constexpr const char* kDevNull = "/dev/null";
constexpr std::size_t kStderrLimit = 200;

/// Closes [first, last]; an empty run, which the kernel would call an error, is none.
bool closeRun(long first, long last)
{
    return first > last || ::close_range(static_cast<unsigned int>(first), static_cast<unsigned int>(last), 0) == 0;
}

} // namespace

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
    std::signal(SIGTERM, SIG_IGN);
    std::signal(SIGINT, SIG_IGN);
}

bool closeUnkeptRuns(long first, long last, const KeepMap& keep)
{
    for (auto entry = keep.lower_bound(static_cast<int>(first)); entry != keep.end() && entry->first <= last; ++entry)
    {
        if (!entry->second)
            continue;
        if (!closeRun(first, entry->first - 1L))
            return false;
        first = entry->first + 1L;
    }
    return closeRun(first, last);
}

bool connectUnkeptToDevNull(const TAVUtils& utils, ITAVSystemUtils& systemUtils, const KeepMap& keep, int& err)
{
    const auto isKept = [&](int fd) { return utils.checkIfFdToBeKeptOpen(fd, &keep); };
    if (isKept(STDIN_FILENO) && isKept(STDOUT_FILENO) && isKept(STDERR_FILENO))
        return true;
    const int nullFd = systemUtils.open(kDevNull, O_RDWR, err);
    if (nullFd < 0)
        return false;
    for (const int standardFd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        utils.duplicateFd(nullFd, standardFd, &keep, err);
    // Deliberately also when it came back as one of 0, 1 and 2: that one then ends closed.
    ::close(nullFd);
    return true;
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

std::string describeAbnormalExit(const char* sentence, int status, int stderrFd, ITAVSystemUtils& systemUtils, int& err)
{
    std::array<char, kStderrLimit + 1> text{}; // the last byte stays zero
    const ssize_t size = systemUtils.read(stderrFd, text.data(), kStderrLimit, err);

    std::string account = sentence + std::to_string(status) + " and errno - " + std::strerror(err) + ".";
    if (size < 1)
        return account + " Stderr could not be read.";
    return account + " Stderr is - " + text.data();
}

} // namespace TAV::child
