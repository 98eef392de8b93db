#include <cstdint>
#include <stdexcept>

#include "frame/LogLevels.h"
#include "tav/TAVUtils.h"
#include "utils/Cgroup.h"

namespace TAV
{
namespace
{

constexpr const char* kCgroupProcsFile = "cgroup.procs";
constexpr const char* kCpuInfoFile = "/proc/cpuinfo";
constexpr const char* kProcessorKey = "processor";

constexpr const char* kNoMount = "Could not find cgroup mount or it is been modified.";
constexpr const char* kNoProcess = "No process provided to set CPU limitation";
constexpr const char* kPeriodNotOpened = "Failed to open CPU default period configuration file";
constexpr const char* kPeriodNotANumber = "Failed to process CPU default period";
constexpr const char* kPeriodZero = "Invalid CPU default period read";
constexpr const char* kFilesMissing = "Failed to find process PID configuration or CPU quota configuration file";
constexpr const char* kQuotaNotOpened = "Failed to open CPU quota configuration file";
constexpr const char* kProcsNotOpened = "Failed to open process PID configuration file for PID: ";

/// Reads the period from the first line of its file.
/// @return null, or why there is none
const char* readPeriod(ITAVSystemUtils& systemUtils, const std::string& path, std::int64_t& period)
{
    std::ifstream file;
    systemUtils.openInputFile(file, path);
    if (!file.is_open())
        return kPeriodNotOpened;
    std::string line;
    std::getline(file, line);
    file.close();
    try
    {
        period = std::stoll(line);
    }
    catch (const std::invalid_argument&)
    {
        return kPeriodNotANumber;
    }
    catch (const std::out_of_range&)
    {
        return kPeriodNotANumber;
    }
    // Deliberately only zero: a negative period goes on as the unsigned number of the same bits.
    return period == 0 ? kPeriodZero : nullptr;
}

/// Percent of all processors' time in one period. The product comes first, and both it and the period's bits are
/// deliberately taken as unsigned: a negative period gives a huge quota, which the kernel refuses.
std::uint64_t quotaOf(unsigned short limit, std::int64_t period, unsigned int cpuCount)
{
    return std::uint64_t{limit} * static_cast<std::uint64_t>(period) * cpuCount / 100;
}

/// Writes a number whole, as text: a locale's thousands separators must not get into it. The kernel's answer comes with
/// the close and is deliberately not looked at.
template <typename Number>
void writeAndClose(std::ofstream& file, Number number)
{
    file << std::to_string(number);
    file.close();
}

/// Moves one process into the group. Ids of 0 and below are skipped, but open the file all the same.
/// @return false if the file of process ids cannot be opened
bool addProcess(ITAVSystemUtils& systemUtils, const std::string& procsPath, int pid)
{
    std::ofstream file;
    systemUtils.openOutputFile(file, procsPath);
    if (!file.is_open())
        return false;
    if (pid > 0)
        writeAndClose(file, pid);
    return true;
}

} // namespace

unsigned int TAVUtils::getNumberOfAvailableCPUCores()
{
    std::ifstream file;
    m_systemUtils->openInputFile(file, kCpuInfoFile);
    if (!file.is_open())
        return 1;
    unsigned int count = 0;
    std::string word;
    // Not only until the end of the file: a stream that fails otherwise would keep the loop going for ever.
    while (file.good())
    {
        file >> word;
        if (word == kProcessorKey)
            ++count;
        // Blanks at the end of the file leave the word as it was.
        word.clear();
    }
    file.close();
    return count == 0 ? 1 : count;
}

bool TAVUtils::setCPULimit(std::set<int> pids, unsigned short limit, std::string groupName)
{
    const auto refused = [this](const std::string& reason)
    {
        m_logger.log(kLogDetail, m_componentName, reason);
        return false;
    };

    if (!isCGroupsSupported())
        return false;
    if (!isDefaultCGroupsMountAvailable())
        return refused(kNoMount);
    if (pids.empty())
        return refused(kNoProcess);
    if (!updateCPUTaskGroupDirectory(groupName))
        return false;

    std::int64_t period = 0;
    if (const char* reason =
            readPeriod(*m_systemUtils, cgroup::joined(m_cpuCgroupPath, cgroup::kCpuPeriodFile), period))
        return refused(reason);

    const std::string quotaPath = cgroup::joined(m_cpuCgroupPath, cgroup::kCpuQuotaFile);
    const std::string procsPath = cgroup::joined(m_cpuCgroupPath, kCgroupProcsFile);
    const bool hasQuota = cgroup::exists(*m_systemUtils, quotaPath);
    const bool hasProcs = cgroup::exists(*m_systemUtils, procsPath);
    if (!hasQuota || !hasProcs)
        return refused(kFilesMissing);

    std::ofstream quotaFile;
    m_systemUtils->openOutputFile(quotaFile, quotaPath);
    if (!quotaFile.is_open())
        return refused(kQuotaNotOpened);
    writeAndClose(quotaFile, quotaOf(limit, period, getNumberOfAvailableCPUCores()));

    for (const int pid : pids)
    {
        if (!addProcess(*m_systemUtils, procsPath, pid))
            return refused(kProcsNotOpened + std::to_string(pid));
    }
    return true;
}

} // namespace TAV
