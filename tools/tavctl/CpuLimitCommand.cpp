#include <limits>
#include <memory>
#include <set>
#include <vector>

#include "common/CpuLimit.h"
#include "tavctl/Commands.h"

namespace tavctl
{
namespace
{

constexpr const char* kCpuLimitExamples =
    "N is a percentage of the whole machine: 100 is the full time of every processor. The processes share it, all in\n"
    "the library's one group; a name given by --group is handed on, and the library does not use it. A later limit\n"
    "replaces an earlier one for every process in the group. Nothing takes a limit away but the end of the process.\n"
    "\n"
    "The library does not learn what the kernel refuses, so the result is read back: what the kernel did not carry "
    "out\n"
    "is told on standard error, with exit code 1.\n"
    "\n"
    "Examples:\n"
    "  tavctl cpu-limit --percent 20 4711 4712\n"
    "  tavctl cpu-limit --percent 5 $$\n"
    "  tavctl cpu-limit --status --json";

struct CpuLimitOptions
{
    bool status = false;
    unsigned short percent = 0;
    bool hasPercent = false;
    std::string group;
    std::vector<int> pids;
};

nlohmann::json toJson(const programs::CpuGroup& group, unsigned int processors)
{
    nlohmann::json json{{"controller", nullptr}, {"group", nullptr}, {"processors", processors}};
    if (!group.controller.empty())
        json["controller"] = group.controller;
    if (!group.exists())
        return json;
    json["group"] = group.path;
    json["period_us"] = group.periodUs;
    json["quota_us"] = group.quotaUs;
    json["members"] = group.members;
    json["periods"] = group.periods;
    json["throttled_periods"] = group.throttledPeriods;
    json["throttled_time_ns"] = group.throttledNs;
    if (group.isLimited())
        json["percent"] = programs::percentOf(group, processors);
    return json;
}

int showStatus(Context& context)
{
    const programs::CpuGroup group = programs::readCpuGroup();
    const unsigned int processors = programs::countProcessors(context.logger);
    context.console.show(programs::describe(group, processors), toJson(group, processors));
    return kSuccess;
}

nlohmann::json toJson(const programs::CpuLimitOutcome& outcome, const CpuLimitOptions& options)
{
    nlohmann::json refusals = nlohmann::json::array();
    for (const programs::CpuRefusal& refusal : outcome.refusals)
    {
        nlohmann::json entry{{"what", refusal.pid == 0 ? "quota" : "process"}, {"reason", refusal.reason}};
        if (refusal.pid != 0)
            entry["pid"] = refusal.pid;
        refusals.push_back(std::move(entry));
    }
    return {{"percent", options.percent},
            {"pids", options.pids},
            {"success", outcome.isInForce()},
            {"wanted_quota_us", outcome.wantedQuotaUs},
            {"refused_by_kernel", std::move(refusals)},
            {"status", toJson(outcome.group, outcome.processors)}};
}

int limitAndTell(const CpuLimitOptions& options, Context& context)
{
    const std::set<int> pids(options.pids.begin(), options.pids.end());
    const programs::CpuLimitOutcome outcome =
        programs::setCpuLimit(context.logger, pids, options.percent, options.group);
    if (!outcome.accepted)
        throw Failure("cpu-limit: not set: " + programs::explain(outcome));
    context.console.show(programs::describe(outcome.group, outcome.processors), toJson(outcome, options));
    for (const programs::CpuRefusal& refusal : outcome.refusals)
        context.console.error("cpu-limit: " + refusal.reason);
    return outcome.isInForce() ? kSuccess : kFailure;
}

int limitOrShow(const CpuLimitOptions& options, Context& context)
{
    if (options.status)
        return showStatus(context);
    if (!options.hasPercent)
        throw UsageError("cpu-limit: give --percent N and process ids, or --status");
    if (options.pids.empty())
        throw UsageError("cpu-limit: give the ids of the processes to limit");
    return limitAndTell(options, context);
}

} // namespace

void registerCpuLimit(CLI::App& app, Action& chosen)
{
    auto options = std::make_shared<CpuLimitOptions>();
    CLI::App* command = app.add_subcommand("cpu-limit", "Put processes under a CPU limit, or show the one in force");
    CLI::Option* percent = command->add_option("--percent", options->percent, "Percentage of the whole machine")
                               ->check(CLI::Range(0, 65535));
    CLI::Option* group = command->add_option("--group", options->group, "Name handed to the library");
    CLI::Option* pids = command->add_option("PID", options->pids, "The processes")
                            ->check(CLI::Range(1, std::numeric_limits<int>::max()));
    command->add_flag("--status", options->status, "Show controller, group, quota, members and throttled time")
        ->excludes(percent)
        ->excludes(group)
        ->excludes(pids);
    command->footer(kCpuLimitExamples);
    command->callback(
        [options, percent, &chosen]
        {
            options->hasPercent = percent->count() > 0;
            chosen = [options](Context& context) { return limitOrShow(*options, context); };
        });
}

} // namespace tavctl
