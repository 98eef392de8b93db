#include "LoadProcess.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>

namespace TAV::test
{
namespace
{

using Clock = std::chrono::steady_clock;

double usedBy(const std::vector<const LoadProcess*>& processes)
{
    double seconds = 0;
    for (const LoadProcess* process : processes)
        seconds += process->cpuSeconds();
    return seconds;
}

} // namespace

LoadProcess::LoadProcess(unsigned int busyThreads) : m_threads(busyThreads == 0 ? 1 : busyThreads)
{
    std::string program = TAV_CPU_LOAD_PROGRAM;
    std::string threads = std::to_string(busyThreads);
    std::string parent = std::to_string(getpid());
    char* const arguments[] = {program.data(), threads.data(), parent.data(), nullptr};
    if (posix_spawn(&m_pid, program.c_str(), nullptr, nullptr, arguments, environ) != 0)
        throw std::runtime_error("cannot start " + program);
}

LoadProcess::~LoadProcess()
{
    becomeZombie();
    reap();
}

std::set<int> LoadProcess::threads() const
{
    const std::string tasks = "/proc/" + std::to_string(m_pid) + "/task";
    for (const auto deadline = Clock::now() + std::chrono::seconds(20); Clock::now() < deadline;)
    {
        std::set<int> ids;
        for (const auto& entry : std::filesystem::directory_iterator(tasks))
            ids.insert(std::stoi(entry.path().filename()));
        if (ids.size() == m_threads)
            return ids;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    throw std::runtime_error("the threads have not started");
}

void LoadProcess::becomeZombie()
{
    if (m_pid <= 0)
        return;
    kill(m_pid, SIGKILL);
    siginfo_t information = {};
    waitid(P_PID, static_cast<id_t>(m_pid), &information, WEXITED | WNOWAIT);
}

void LoadProcess::reap()
{
    if (m_pid <= 0)
        return;
    waitpid(m_pid, nullptr, 0);
    m_pid = -1;
}

double LoadProcess::cpuSeconds() const
{
    clockid_t clock = {};
    timespec time = {};
    if (clock_getcpuclockid(m_pid, &clock) != 0 || clock_gettime(clock, &time) != 0)
        throw std::runtime_error("cannot read the processor time of " + std::to_string(m_pid));
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double processorsUsed(const std::vector<const LoadProcess*>& processes, std::chrono::milliseconds time)
{
    const auto begin = Clock::now();
    const double before = usedBy(processes);
    std::this_thread::sleep_for(time);
    const double after = usedBy(processes);
    return (after - before) / std::chrono::duration<double>(Clock::now() - begin).count();
}

} // namespace TAV::test
