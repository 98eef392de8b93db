#include "common/CpuGroup.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace programs
{
namespace
{

constexpr const char* kGroupName = "/zell_tp_ods";

bool exists(const std::string& path)
{
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

std::string findController(const std::string& root)
{
    for (const char* place : kCpuControllerPlaces)
    {
        if (exists(root + place + kCpuPeriodFile) && exists(root + place + kCpuQuotaFile))
            return root + place;
    }
    return "";
}

void readStatistics(CpuGroup& group)
{
    std::ifstream file(group.path + "/cpu.stat");
    std::string key;
    for (std::uint64_t value = 0; file >> key >> value;)
    {
        if (key == "nr_periods")
            group.periods = value;
        else if (key == "nr_throttled")
            group.throttledPeriods = value;
        else if (key == "throttled_time")
            group.throttledNs = value;
    }
}

std::string decimal(double number, const char* format)
{
    std::array<char, 64> text = {};
    static_cast<void>(std::snprintf(text.data(), text.size(), format, number));
    return text.data();
}

std::string quotaText(const CpuGroup& group, unsigned int processors)
{
    if (!group.isLimited())
        return "none: the group is not limited";
    return std::to_string(group.quotaUs) + " us per period, " + decimal(percentOf(group, processors), "%.4g") +
           " % of " + std::to_string(processors) + (processors == 1 ? " processor" : " processors");
}

std::string membersText(const CpuGroup& group)
{
    std::string text;
    for (const int pid : group.members)
        text += (text.empty() ? "" : " ") + std::to_string(pid);
    return text.empty() ? "none" : text;
}

} // namespace

std::int64_t readControlValue(const std::string& path, std::int64_t otherwise)
{
    std::ifstream file(path);
    std::int64_t value = 0;
    return file >> value ? value : otherwise;
}

CpuGroup readCpuGroup(const std::string& root)
{
    CpuGroup group;
    group.controller = findController(root);
    const std::string path = group.controller + kGroupName;
    if (group.controller.empty() || !exists(path))
        return group;
    group.path = path;
    group.periodUs = readControlValue(path + kCpuPeriodFile, 0);
    group.quotaUs = readControlValue(path + kCpuQuotaFile, -1);
    std::ifstream members(path + "/cgroup.procs");
    for (int pid = 0; members >> pid;)
        group.members.insert(pid);
    readStatistics(group);
    return group;
}

double percentOf(const CpuGroup& group, unsigned int processors)
{
    if (group.periodUs <= 0 || processors == 0)
        return 0;
    return 100.0 * static_cast<double>(group.quotaUs) / static_cast<double>(group.periodUs) / processors;
}

std::string describe(const CpuGroup& group, unsigned int processors)
{
    if (group.controller.empty())
        return std::string("controller      none: no cgroup v1 cpu controller at ") + kCpuControllerPlaces[0] + " or " +
               kCpuControllerPlaces[1] + "\n";
    std::string text = "controller      " + group.controller + "\n";
    if (!group.exists())
        return text + "group           none yet: the first limit makes it\n";
    constexpr double kNsPerSecond = 1e9;
    return text + "group           " + group.path + "\nperiod          " + std::to_string(group.periodUs) +
           " us\nquota           " + quotaText(group, processors) + "\nmembers         " + membersText(group) +
           "\nperiods         " + std::to_string(group.periods) + ", held back in " +
           std::to_string(group.throttledPeriods) + "\nthrottled time  " +
           decimal(static_cast<double>(group.throttledNs) / kNsPerSecond, "%.3f") + " s\n";
}

} // namespace programs
