#pragma once

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tav/ITAVUtils.h"
#include "tav/testing/Fake.h"

namespace TAV::test
{

/// Commands that are not run, a clock that a test sets, and CPU limits that are only remembered. No process is made and
/// no cgroup is touched.
///
///     FakeTAVUtils utils;
///     utils.onCommand = [](const auto& argv) { return argv[0] != "/bin/false"; }; // else every command succeeds
///     utils.outputs[{"/bin/uname", "-r"}] = "6.1.0\n";                            // what a captured command prints
///     utils.failCall("executeSystemCommand", 2);                                  // the second one cannot be started
///     ...
///     EXPECT_THAT(utils.commands(), ElementsAre(ElementsAre("/bin/ls", "-l")));
///     EXPECT_THAT(utils.calls(), ElementsAre("executeSystemCommand(/bin/ls -l, keep 5 7)"));
///
/// **A planned failure** gives false; the error of the plan says nothing here. What it stands for:
///
/// - `executeSystemCommand`, `readSystemCommandOutput`: no child could be made; `onCommand` is not asked, and the pipe
///   gets nothing.
/// - `setCPULimit`: a step failed before anything was written; the limit is as it was.
/// - `isCGroupsSupported`, `isDefaultCGroupsMountAvailable`: no, for this once.
/// - `getCurrentSystemClockNow`, `removeCPULimit`: these have no failure; a plan for them changes nothing.
///
/// **Unlike `TAVUtils`** it logs nothing, closes no descriptors, and never comes back in a child; a command that fails
/// in silence does not block. The kernel's refusals (a limit of 0, a dead process) do not show, as they do not show in
/// the result of the real one.
class FakeTAVUtils : public ITAVUtils, public Fake
{
public:
    using Fake::Fake;

    using Argv = std::vector<std::string>;                   ///< a program and its arguments
    using KeepMap = std::map<int, bool>;                     ///< the descriptors that a command is to keep
    using TimePoint = std::chrono::system_clock::time_point; ///< what the clock tells

    /// A group of processes under a quota.
    struct CpuLimit
    {
        unsigned short percent = 0; ///< of the whole machine, as it was asked for last
        std::set<int> pids;         ///< all that were ever put into it
    };

    /// The one group that all limits go to, whatever name the caller gives.
    static constexpr const char* kTaskGroupName = "zell_tp_ods";

    /// Whether a command of either kind exits with status 0; without it all do. It may throw, and it may block as the
    /// command would.
    std::function<bool(const Argv&)> onCommand;

    /// What commands print when their output is captured.
    std::map<Argv, std::string> outputs;
    /// The same for commands that `outputs` does not hold; without it they print nothing.
    std::function<std::string(const Argv&)> onCapture;

    /// Whether the kernel is new enough for CPU limits.
    bool cgroupsSupported = true;
    /// Whether the controller is at one of its two places.
    bool defaultMountAvailable = true;

    /// All commands of both kinds that were to be run, in order, those that failed included; refused arguments are
    /// none.
    std::vector<Argv> commands() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_commands;
    }

    /// The keep-map of each of the `commands`, in the same order; empty for null.
    std::vector<std::optional<KeepMap>> keepMaps() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_keepMaps;
    }

    /// The limits in force by the name of their group: none, or that of `kTaskGroupName`.
    std::map<std::string, CpuLimit> cpuLimits() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_limits;
    }

    /// The clock stands still at the first second of 2020 (UTC) until it is set or moved.
    void setNow(TimePoint now)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_now = now;
    }
    /// Moves the clock.
    void advance(std::chrono::system_clock::duration by)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_now += by;
    }

    /// Gives the clock that the test set.
    TimePoint getCurrentSystemClockNow() override
    {
        enter("getCurrentSystemClockNow", "", false);
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_now;
    }

    /// Refuses what the real one refuses: no cgroups, no controller, no processes. Otherwise the processes with ids
    /// above 0 join those of the group, and the percentage is that of the whole group.
    bool setCPULimit(std::set<int> pids, unsigned short limit, std::string groupName) override;

    /// Does nothing but note the call, as the real one: the limit stays.
    void removeCPULimit(std::set<int> pids, std::string groupName) override
    {
        enter("removeCPULimit", joined({textOf(pids), groupName}), false);
    }

    /// Refuses an empty `argv`; otherwise the result is that of `onCommand`.
    bool executeSystemCommand(const Argv& argv, const KeepMap* fdsToKeepOpen) override
    {
        return isStarted("executeSystemCommand", argv, fdsToKeepOpen, argv.empty()) && succeeds(argv);
    }

    /// Refuses an empty `argv` and a null `outPipe`. Otherwise writes the command's output into `outPipe[1]`, on the
    /// caller's thread, and gives the result of `onCommand`. More than the pipe holds (64 KiB, pipe(7)) blocks until
    /// another thread reads, as it does with the real one. Both ends stay open.
    bool readSystemCommandOutput(Argv argv, const KeepMap* fdsToKeepOpen, int* outPipe) override
    {
        const bool isRefused = argv.empty() || outPipe == nullptr;
        return isStarted("readSystemCommandOutput", argv, fdsToKeepOpen, isRefused) &&
               writeAll(outPipe[1], outputOf(argv)) && succeeds(argv);
    }

    bool isCGroupsSupported() override { return !enter("isCGroupsSupported", "") && cgroupsSupported; }

    bool isDefaultCGroupsMountAvailable() override
    {
        return !enter("isDefaultCGroupsMountAvailable", "") && defaultMountAvailable;
    }

private:
    /// Notes a call and its command, and tells whether the command is run at all.
    bool isStarted(const char* operation, const Argv& argv, const KeepMap* fdsToKeepOpen, bool isRefused);
    bool succeeds(const Argv& argv) const { return !onCommand || onCommand(argv); }
    std::string outputOf(const Argv& argv) const;

    static bool writeAll(int fd, const std::string& text);
    static std::string textOf(const Argv& argv);
    static std::string textOf(const std::set<int>& pids);
    static std::string textOf(const KeepMap* fdsToKeepOpen);

    mutable std::mutex m_mutex;
    std::vector<Argv> m_commands;
    std::vector<std::optional<KeepMap>> m_keepMaps;
    std::map<std::string, CpuLimit> m_limits;
    TimePoint m_now{std::chrono::seconds(1'577'836'800)};
};

inline bool FakeTAVUtils::setCPULimit(std::set<int> pids, unsigned short limit, std::string groupName)
{
    if (enter("setCPULimit", joined({textOf(pids), std::to_string(limit), groupName})))
        return false;
    if (!cgroupsSupported || !defaultMountAvailable || pids.empty())
        return false;
    const std::lock_guard<std::mutex> lock(m_mutex);
    CpuLimit& group = m_limits[kTaskGroupName];
    group.percent = limit;
    group.pids.insert(pids.upper_bound(0), pids.end());
    return true;
}

inline bool
FakeTAVUtils::isStarted(const char* operation, const Argv& argv, const KeepMap* fdsToKeepOpen, bool isRefused)
{
    if (!isRefused)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_commands.push_back(argv);
        m_keepMaps.push_back(fdsToKeepOpen == nullptr ? std::nullopt : std::make_optional(*fdsToKeepOpen));
    }
    return !enter(operation, textOf(argv) + textOf(fdsToKeepOpen)) && !isRefused;
}

inline std::string FakeTAVUtils::outputOf(const Argv& argv) const
{
    const auto output = outputs.find(argv);
    if (output != outputs.end())
        return output->second;
    return onCapture ? onCapture(argv) : std::string();
}

inline bool FakeTAVUtils::writeAll(int fd, const std::string& text)
{
    for (std::size_t done = 0; done < text.size();)
    {
        const ssize_t written = ::write(fd, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR)
            return false;
        done += written < 0 ? 0U : static_cast<std::size_t>(written);
    }
    return true;
}

/// "/bin/ls -l"
inline std::string FakeTAVUtils::textOf(const Argv& argv)
{
    std::string text;
    const char* separator = "";
    for (const std::string& argument : argv)
        text += std::exchange(separator, " ") + argument;
    return text;
}

/// "10 20", or "no processes"
inline std::string FakeTAVUtils::textOf(const std::set<int>& pids)
{
    Argv numbers;
    for (const int pid : pids)
        numbers.push_back(std::to_string(pid));
    return numbers.empty() ? "no processes" : textOf(numbers);
}

/// ", keep 5 7", ", keep nothing", or nothing for null
inline std::string FakeTAVUtils::textOf(const KeepMap* fdsToKeepOpen)
{
    if (fdsToKeepOpen == nullptr)
        return {};
    std::string kept;
    for (const auto& [fd, isKept] : *fdsToKeepOpen)
        kept += isKept ? " " + std::to_string(fd) : "";
    return ", keep" + (kept.empty() ? " nothing" : kept);
}

} // namespace TAV::test
