#include <memory>

#include "common/CpuGroup.h"
#include "common/KernelVersion.h"
#include "common/Text.h"
#include "tav/TAVUtils.h"
#include "tavctl/doctor/Checks.h"
#include "tavctl/doctor/Mounts.h"

namespace tavctl::doctor
{
namespace
{

constexpr const char* kDoWithout = "setCPULimit answers false here; the other services do not need it";

class SilentLogger : public TAV::ILogger
{
public:
    void log(int /*level*/, std::string /*message*/) override {}
    void log(int /*level*/, std::string /*component*/, const std::string& /*message*/) override {}
};

/// What the library itself makes of this version.
bool isOldForLibrary(const std::string& release)
{
    SilentLogger logger;
    TAV::TAVUtils utils(nullptr, logger, std::make_shared<TAV::kernelVersion>(programs::parseKernelRelease(release)));
    return !utils.isCGroupsSupported();
}

std::string pathOf(const char* place, const char* file)
{
    return std::string(place) + file;
}

/// The controller is there, as the library demands.
Finding found(Host& host, const std::string& place)
{
    if (host.isWritable(place))
        return {State::Ok, "cgroup v1 cpu controller at " + place, {}};
    return {State::Warning,
            "cgroup v1 cpu controller at " + place + ", where this user may not write",
            {"run the daemon as root, or have root make " + place + "/zell_tp_ods and hand it over"}};
}

Finding withoutQuotas(const std::string& place, const std::string& missing)
{
    return {State::Problem, place + " has no " + missing, {"the kernel needs CONFIG_CFS_BANDWIDTH;", kDoWithout}};
}

Finding elsewhere(const std::string& place)
{
    const std::string wanted = programs::kCpuControllerPlaces[0];
    return {
        State::Problem,
        "the cgroup v1 cpu controller is at " + place + ", where the library does not look",
        {"show it at the place that the library knows:", "mkdir -p " + wanted, "mount --bind " + place + " " + wanted}};
}

Finding absent(const std::vector<Mount>& mounts)
{
    for (const Mount& mount : mounts)
    {
        if (mount.type == "cgroup2")
            return {State::Problem,
                    "this host has cgroup v2 only; the library knows the v1 cpu controller",
                    {"boot with systemd.unified_cgroup_hierarchy=0 (systemd 256 and 257 want",
                     "SYSTEMD_CGROUP_ENABLE_LEGACY_FORCE=1 as well), or do without CPU limits:",
                     kDoWithout}};
    }
    const std::string wanted = programs::kCpuControllerPlaces[0];
    return {State::Problem,
            "no cgroup controller is mounted",
            {"mkdir -p " + wanted,
             "mount -t cgroup -o cpu,cpuacct none " + wanted,
             "or do without CPU limits:",
             kDoWithout}};
}

} // namespace

std::optional<Finding> checkKernel(Host& host, const Questions& /*questions*/)
{
    const std::string release = host.kernelRelease();
    const std::string kernel = "Linux " + programs::printable(release);
    if (isOldForLibrary(release))
        return Finding{State::Problem, kernel + " is older than 2.6.24, or its version cannot be told", {kDoWithout}};
    return Finding{State::Ok, kernel + "; 2.6.24 or later is needed", {}};
}

std::optional<Finding> checkController(Host& host, const Questions& /*questions*/)
{
    std::optional<Finding> half;
    for (const char* place : programs::kCpuControllerPlaces)
    {
        const bool hasPeriod = host.exists(pathOf(place, programs::kCpuPeriodFile));
        const bool hasQuota = host.exists(pathOf(place, programs::kCpuQuotaFile));
        if (hasPeriod && hasQuota)
            return found(host, place);
        if (!half && host.exists(pathOf(place, "/cgroup.procs")))
            half = withoutQuotas(place, (hasPeriod ? programs::kCpuQuotaFile : programs::kCpuPeriodFile) + 1);
    }
    if (half)
        return half;
    const std::vector<Mount> mounts = parseMounts(host.read("/proc/self/mounts").text);
    for (const Mount& mount : mounts)
    {
        if (mount.type == "cgroup" && mount.hasOption("cpu"))
            return elsewhere(mount.place);
    }
    return absent(mounts);
}

} // namespace tavctl::doctor
