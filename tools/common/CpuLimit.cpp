#include "common/CpuLimit.h"

#include <fstream>
#include <memory>
#include <utility>

#include "common/KernelVersion.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"

namespace programs
{
namespace
{

constexpr std::uint64_t kSmallestQuotaUs = 1000;

/// Hands each line on and remembers the last one, which is where the library says why it refuses.
class LastLine : public TAV::ILogger
{
public:
    explicit LastLine(TAV::ILogger& next) : m_next(next) {}

    void log(int level, std::string message) override
    {
        m_text = message;
        m_next.log(level, std::move(message));
    }

    void log(int level, std::string component, const std::string& message) override
    {
        m_text = message;
        m_next.log(level, std::move(component), message);
    }

    const std::string& text() const { return m_text; }

private:
    TAV::ILogger& m_next;
    std::string m_text;
};

/// What /proc says of a process or thread.
struct Task
{
    int process = 0; ///< the process that it belongs to; 0 if there is no such task
    bool isZombie = false;
};

Task lookUp(int id)
{
    Task task;
    std::ifstream file("/proc/" + std::to_string(id) + "/status");
    for (std::string key; file >> key;)
    {
        std::string value;
        if (key == "State:" && file >> value)
            task.isZombie = value == "Z" || value == "X";
        else if (key == "Tgid:")
            file >> task.process;
    }
    return task;
}

std::string inForce(const CpuGroup& group)
{
    return group.isLimited() ? "; " + std::to_string(group.quotaUs) + " us stay in force" : "; no limit is in force";
}

std::string whyQuotaRefused(const CpuGroup& group, std::uint64_t wanted)
{
    const std::string start = "the kernel refused a quota of " + std::to_string(wanted) + " us: ";
    if (wanted < kSmallestQuotaUs)
        return start + "none may be below " + std::to_string(kSmallestQuotaUs) + " us" + inForce(group);
    const std::int64_t above = readControlValue(group.controller + "/cpu.cfs_quota_us", -1);
    if (above >= 0)
        return start + "the group around has " + std::to_string(above) + " us to give" + inForce(group);
    return start + "that is out of its range" + inForce(group);
}

/// @return why the process is not in the group, or an empty text if it is
std::string whyNotMember(const CpuGroup& group, int pid)
{
    const Task task = lookUp(pid);
    if (group.members.count(task.process) != 0)
        return "";
    const std::string name = "process " + std::to_string(pid);
    if (task.process == 0)
        return name + " does not exist";
    if (task.isZombie)
        return name + " has ended";
    return name + " was not moved: the kernel refused it";
}

void verify(CpuLimitOutcome& outcome, const std::set<int>& pids, unsigned short percent)
{
    const CpuGroup& group = outcome.group;
    outcome.wantedQuotaUs =
        std::uint64_t{percent} * static_cast<std::uint64_t>(group.periodUs) * outcome.processors / 100;
    if (group.quotaUs < 0 || static_cast<std::uint64_t>(group.quotaUs) != outcome.wantedQuotaUs)
        outcome.refusals.push_back({0, whyQuotaRefused(group, outcome.wantedQuotaUs)});
    for (const int pid : pids)
    {
        std::string reason = whyNotMember(group, pid);
        if (!reason.empty())
            outcome.refusals.push_back({pid, std::move(reason)});
    }
}

std::unique_ptr<TAV::TAVUtils> makeUtils(TAV::ILogger& logger)
{
    return std::make_unique<TAV::TAVUtils>(
        std::make_shared<TAV::TAVSystemUtils>(), logger, std::make_shared<TAV::kernelVersion>(runningKernel()));
}

} // namespace

CpuLimitOutcome
setCpuLimit(TAV::ILogger& logger, const std::set<int>& pids, unsigned short percent, const std::string& groupName)
{
    LastLine lines(logger);
    const std::unique_ptr<TAV::TAVUtils> utils = makeUtils(lines);
    CpuLimitOutcome outcome;
    outcome.accepted = utils->setCPULimit(pids, percent, groupName);
    outcome.processors = utils->getNumberOfAvailableCPUCores();
    outcome.group = readCpuGroup();
    if (outcome.accepted)
        verify(outcome, pids, percent);
    else
        outcome.reason = lines.text();
    return outcome;
}

std::string explain(const CpuLimitOutcome& outcome)
{
    if (outcome.accepted)
    {
        std::string text;
        for (const CpuRefusal& refusal : outcome.refusals)
            text += (text.empty() ? "" : "; ") + refusal.reason;
        return text;
    }
    // The library's own text is about files; here what matters is the host.
    if (outcome.group.controller.empty())
        return "this host offers no cgroup v1 cpu controller where the library looks for it (" + outcome.reason + ")";
    return outcome.reason;
}

unsigned int countProcessors(TAV::ILogger& logger)
{
    return makeUtils(logger)->getNumberOfAvailableCPUCores();
}

} // namespace programs
