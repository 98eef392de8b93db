#pragma once

#include <functional>
#include <memory>
#include <string>

namespace TAV::bench
{

using Work = std::function<void()>;

/// A row without a target.
constexpr double kNoTarget = 0;
/// The library has to be ahead of the peer.
constexpr double kAhead = 1.00;
/// The library has to be as fast as the peer, within what a run can tell apart.
constexpr double kAsFast = 1.05;

/// One row of the table: the library and a peer doing the same work, measured in turns in one run.
struct Pair
{
    std::string what = {};
    std::string peer = {};
    /// The ratio library / peer that must not be exceeded.
    double target = kNoTarget;
    Work ours = {};
    /// Empty if this machine does not have the peer.
    Work theirs = {};
    /// Makes what must exist while the pair is measured; throws std::runtime_error with the reason if it cannot.
    std::function<std::shared_ptr<void>()> surroundings = {};
    int rounds = 101;
    /// Zero lets the measurement choose a number that takes some milliseconds.
    int callsPerRound = 0;
};

/// A thing that exists only while a pair is measured, for that pair's two sides to use.
template <typename Thing>
class WhileMeasured
{
public:
    Thing& operator*() const { return **m_slot; }
    Thing* operator->() const { return m_slot->get(); }

    /// For `Pair::surroundings`.
    template <typename Make>
    [[nodiscard]] std::function<std::shared_ptr<void>()> madeBy(Make make) const
    {
        return [slot = m_slot, make]
        {
            *slot = make();
            return std::shared_ptr<void>(nullptr, [slot](void*) { slot->reset(); });
        };
    }

private:
    std::shared_ptr<std::unique_ptr<Thing>> m_slot = std::make_shared<std::unique_ptr<Thing>>();
};

/// Stands between the two in a pair's name: "what vs peer".
constexpr const char* kBetweenNames = " vs ";
/// Marks the runs that measure bytes instead of seconds.
constexpr const char* kMemoryLabel = "memory";

/// Registers the pair with Google Benchmark.
void compare(Pair pair);

/// Registers the pair for a comparison of the time on the clock that the call in the middle takes (p50).
void compareLatency(Pair pair);

/// Registers the pair for a comparison of memory instead: the most that a process of its own has resident while it runs
/// one side once.
void comparePeakMemory(Pair pair);

/// CPU time of this process and of the children that it has waited for, in seconds: a command's cost falls in both.
double cpuSeconds();

/// Ends the run with a message if a measured operation fails: a failure's time means nothing.
void require(bool success, const char* operation);

} // namespace TAV::bench
