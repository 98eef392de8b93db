#include "frame/LogLevels.h"
#include "tav/TAVUtils.h"
#include "utils/Cgroup.h"

namespace TAV
{
namespace
{

constexpr const char* kSysFsCpuCgroupMount = "/sys/fs/cgroup/cpu,cpuacct";
constexpr const char* kLegacyCpuCgroupMount = "/cgroup/cpu";
constexpr const char* kTaskGroupName = "zell_tp_ods";
constexpr mode_t kTaskGroupMode = 0700;

constexpr const char* kNoMount = "Could not find cgroup mount or it is been modified";
constexpr const char* kGroupFailed = "Failed to create subgroup for cgroup task";

} // namespace

bool cgroup::exists(ITAVSystemUtils& systemUtils, const std::string& path)
{
    struct stat status = {};
    int err = 0;
    return systemUtils.stat(path.c_str(), &status, err) == 0;
}

std::string cgroup::joined(const std::string& directory, const char* name)
{
    return directory + "/" + name;
}

bool TAVUtils::isDefaultCGroupsMountAvailable()
{
    m_cpuCgroupPath.clear();
    const auto hasFile = [this](const char* mount, const char* name)
    { return cgroup::exists(*m_systemUtils, cgroup::joined(mount, name)); };

    // Always all four, so that what the system sees does not depend on the host.
    const bool sysFsPeriod = hasFile(kSysFsCpuCgroupMount, cgroup::kCpuPeriodFile);
    const bool sysFsQuota = hasFile(kSysFsCpuCgroupMount, cgroup::kCpuQuotaFile);
    const bool legacyPeriod = hasFile(kLegacyCpuCgroupMount, cgroup::kCpuPeriodFile);
    const bool legacyQuota = hasFile(kLegacyCpuCgroupMount, cgroup::kCpuQuotaFile);

    if (sysFsPeriod && sysFsQuota)
        m_cpuCgroupPath = kSysFsCpuCgroupMount;
    else if (legacyPeriod && legacyQuota)
        m_cpuCgroupPath = kLegacyCpuCgroupMount;
    else
        m_logger.log(kLogDetail, m_componentName, kNoMount);
    return !m_cpuCgroupPath.empty();
}

bool TAVUtils::updateCPUTaskGroupDirectory(std::string&)
{
    // Deliberately before any check and never undone: discovery starts every path afresh.
    m_cpuCgroupPath = cgroup::joined(m_cpuCgroupPath, kTaskGroupName);
    if (cgroup::exists(*m_systemUtils, m_cpuCgroupPath))
        return true;
    int err = 0;
    if (m_systemUtils->mkdir(m_cpuCgroupPath, kTaskGroupMode, err) == 0)
        return true;
    m_logger.log(kLogDetail, m_componentName, kGroupFailed);
    return false;
}

} // namespace TAV
