#include "Pair.h"

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <utility>
#include <vector>

namespace TAV::bench
{
namespace
{

constexpr double kSecondsPerRound = 0.003;
constexpr double kMicro = 1e-6;
constexpr double kNano = 1e-9;
constexpr double kBytesPerKilobyte = 1024;

double secondsOf(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * kMicro;
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// What one call of a side takes, over so many calls.
using SecondsPerCall = double (*)(const Work& work, int calls);

double cpuSecondsPerCall(const Work& work, int calls)
{
    const double before = cpuSeconds();
    for (int call = 0; call < calls; ++call)
        work();
    return (cpuSeconds() - before) / calls;
}

/// The time on the clock of the call in the middle: half of the calls take longer.
double medianLatency(const Work& work, int calls)
{
    std::vector<double> latencies;
    for (int call = 0; call < calls; ++call)
    {
        const auto before = std::chrono::steady_clock::now();
        work();
        latencies.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count());
    }
    return median(std::move(latencies));
}

/// How many calls take some milliseconds; also warms both sides up.
int chooseCalls(const Pair& pair, SecondsPerCall measure)
{
    if (pair.callsPerRound != 0)
        return pair.callsPerRound;
    int calls = 1;
    while (std::min(measure(pair.ours, calls), measure(pair.theirs, calls)) * calls < kSecondsPerRound)
        calls *= 2;
    return calls;
}

struct Round
{
    double ours;
    double theirs;
};

void report(benchmark::State& state, const std::vector<Round>& rounds, double target)
{
    const auto medianOf = [&rounds](auto value)
    {
        std::vector<double> values;
        std::transform(rounds.begin(), rounds.end(), std::back_inserter(values), value);
        return median(values);
    };
    state.counters["ours"] = medianOf([](const Round& round) { return round.ours; });
    state.counters["theirs"] = medianOf([](const Round& round) { return round.theirs; });
    state.counters["ratio"] = medianOf([](const Round& round) { return round.ours / round.theirs; });
    state.counters["target"] = target;
}

/// Each round runs both sides one right after the other and keeps their ratio. What disturbs the machine for longer
/// than a round disturbs both sides alike; what is shorter disturbs few rounds, which the median drops.
void measureTurns(benchmark::State& state, const Pair& pair, SecondsPerCall secondsPerCall)
{
    const int calls = chooseCalls(pair, secondsPerCall);
    std::vector<Round> rounds;
    for ([[maybe_unused]] auto iteration : state)
    {
        Round round = {};
        const bool oursFirst = rounds.size() % 2 == 0;
        if (oursFirst)
            round.ours = secondsPerCall(pair.ours, calls);
        round.theirs = secondsPerCall(pair.theirs, calls);
        if (!oursFirst)
            round.ours = secondsPerCall(pair.ours, calls);
        rounds.push_back(round);
        state.SetIterationTime(round.ours + round.theirs);
    }
    report(state, rounds, pair.target);
}

void measureTime(benchmark::State& state, const Pair& pair)
{
    measureTurns(state, pair, cpuSecondsPerCall);
}

void measureLatency(benchmark::State& state, const Pair& pair)
{
    measureTurns(state, pair, medianLatency);
}

double peakBytes(const Work& work)
{
    const pid_t pid = ::fork();
    if (pid == 0)
    {
        work();
        ::_exit(0);
    }
    int status = 0;
    rusage usage = {};
    require(::wait4(pid, &status, 0, &usage) == pid && status == 0, "a process of its own");
    return static_cast<double>(usage.ru_maxrss) * kBytesPerKilobyte;
}

void measureMemory(benchmark::State& state, const Pair& pair)
{
    std::vector<Round> rounds;
    for ([[maybe_unused]] auto iteration : state)
        rounds.push_back({peakBytes(pair.ours), peakBytes(pair.theirs)});
    state.SetLabel(kMemoryLabel);
    report(state, rounds, pair.target);
}

using Measure = void (*)(benchmark::State&, const Pair&);

void run(benchmark::State& state, const Pair& pair, Measure measure)
{
    if (!pair.theirs)
    {
        state.SkipWithError("peer not installed");
        return;
    }
    try
    {
        const auto held = pair.surroundings ? pair.surroundings() : nullptr;
        measure(state, pair);
    }
    catch (const std::runtime_error& failure)
    {
        state.SkipWithError(failure.what());
    }
}

benchmark::internal::Benchmark* add(Pair pair, Measure measure)
{
    const std::string name = pair.what + kBetweenNames + pair.peer;
    return benchmark::RegisterBenchmark(
        name.c_str(), [pair = std::move(pair), measure](benchmark::State& state) { run(state, pair, measure); });
}

} // namespace

void compare(Pair pair)
{
    const int rounds = pair.rounds;
    add(std::move(pair), measureTime)->Iterations(rounds)->UseManualTime();
}

void compareLatency(Pair pair)
{
    const int rounds = pair.rounds;
    add(std::move(pair), measureLatency)->Iterations(rounds)->UseManualTime();
}

void comparePeakMemory(Pair pair)
{
    add(std::move(pair), measureMemory)->Iterations(3);
}

double cpuSeconds()
{
    timespec self = {};
    rusage children = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &self);
    getrusage(RUSAGE_CHILDREN, &children);
    return static_cast<double>(self.tv_sec) + static_cast<double>(self.tv_nsec) * kNano + secondsOf(children.ru_utime) +
           secondsOf(children.ru_stime);
}

void require(bool success, const char* operation)
{
    if (success)
        return;
    std::cerr << "bench: " << operation << " failed\n";
    std::exit(EXIT_FAILURE);
}

} // namespace TAV::bench
