#pragma once

#include <sys/types.h>

#include <chrono>
#include <set>
#include <vector>

namespace TAV::test
{

/// A process that keeps so many threads busy, or sleeps when that is none. Killed and waited for at the end.
class LoadProcess
{
public:
    explicit LoadProcess(unsigned int busyThreads = 0);
    LoadProcess(const LoadProcess&) = delete;
    LoadProcess& operator=(const LoadProcess&) = delete;
    ~LoadProcess();

    int pid() const { return m_pid; }

    /// The ids of its threads, once all have started.
    std::set<int> threads() const;

    /// Kills it and leaves a zombie behind, until `reap` or the end.
    void becomeZombie();
    void reap();

    /// Processor time that it has used, in seconds.
    double cpuSeconds() const;

private:
    pid_t m_pid = -1;
    unsigned int m_threads;
};

/// How many processors the processes kept busy together over a time: 0.5 is half of one. An upper bound of the truth is
/// never exceeded however loaded the machine is, because the clock is read before the first and after the last of them.
double processorsUsed(const std::vector<const LoadProcess*>& processes, std::chrono::milliseconds time);

} // namespace TAV::test
