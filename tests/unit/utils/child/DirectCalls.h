#pragma once

#include <sys/resource.h>

#include <string>
#include <utility>
#include <vector>

namespace TAV::test
{

/// Script and record of the C calls that a forked child makes directly.
///
/// The program that links this defines `signal`, `sysconf`, `getrlimit`, `close`, `close_range`, `execv` and `strerror`
/// itself. While an object of this class is armed, these do nothing but note themselves here, and answer as told here;
/// otherwise they do what they always do.
class DirectCalls
{
public:
    DirectCalls() = default;
    DirectCalls(const DirectCalls&) = delete;
    DirectCalls& operator=(const DirectCalls&) = delete;
    ~DirectCalls() { disarm(); }

    void arm();
    void disarm();
    void forget(); ///< drops the record, not the script

    /// What was called, in order: "::close(1)". Tests add what else happened.
    std::vector<std::string> events;

    /// What was closed, in order, as first and last number of each call.
    std::vector<std::pair<unsigned int, unsigned int>> closedRuns;

    long openMax = 8;
    bool limitIsReadable = true;
    rlim_t softLimit = 8;
    rlim_t hardLimit = 9;
    unsigned int closeRangeFailsFrom = 0; ///< number of the first call that the kernel refuses, from 1; 0 is never
    int closeRangeError = 0;
    int closeError = 0;
    int execvError = 2;

    // The scripted answers.
    long answerSysconf(int name);
    int answerGetrlimit(int resource, struct rlimit* limit);
    int answerClose(int fd);
    int answerCloseRange(unsigned int first, unsigned int last, int flags);
    int answerExecv(const char* path, char* const* argv);
    char* answerStrerror(int err);
    void noteSignal(int number, bool isIgnored);

private:
    unsigned int m_closeRangeCalls = 0;
    std::string m_errorText;
};

/// The armed object, or null. Plain data, since C calls come before any constructor has run.
extern DirectCalls* g_armedDirectCalls;

/// What the scripted `strerror` answers.
std::string scriptedErrorText(int err);

} // namespace TAV::test
