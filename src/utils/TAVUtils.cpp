#include "tav/TAVUtils.h"

#include <utility>

#include "frame/FailureCodes.h"
#include "frame/LogLevels.h"
#include "tav/FMXException.h"

namespace TAV
{

const std::string kLoopbackInterfaceName = "lo";
const std::string kNullMacAddress = "00:00:00:00:00:00";

namespace
{

constexpr const char* kNoKernelVersion = "Kernel version information is null";
// The text stands as callers' log filters know it: no blank after "kernel", one after "(".
constexpr const char* kKernelTooOld = "CGroups is not supported for this operating system kernel( version: ";

constexpr int versionNumber(int major, int minor, int patch)
{
    return major * 65536 + minor * 256 + patch;
}

constexpr int kFirstKernelWithCGroups = versionNumber(2, 6, 24);

} // namespace

TAVUtils::TAVUtils(std::shared_ptr<ITAVSystemUtils> systemUtils,
                   ILogger& logger,
                   std::shared_ptr<kernelVersion> version)
    : m_systemUtils(std::move(systemUtils)), m_logger(logger), m_componentName("TAVUtils"),
      m_kernelVersion(std::move(version))
{
    if (m_kernelVersion == nullptr)
        throw FMXException(kGeneralFailure, kNoKernelVersion);

    const int major = m_kernelVersion->major;
    const int minor = m_kernelVersion->minor;
    const int patch = m_kernelVersion->patch;
    if (versionNumber(major, minor, patch) >= kFirstKernelWithCGroups)
    {
        m_isCGroupsSupported = true;
        return;
    }
    m_logger.log(kLogState,
                 m_componentName,
                 kKernelTooOld + std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch) +
                     ")");
}

TAVUtils::~TAVUtils() = default;

std::chrono::system_clock::time_point TAVUtils::getCurrentSystemClockNow()
{
    return std::chrono::system_clock::now();
}

bool TAVUtils::isCGroupsSupported()
{
    return m_isCGroupsSupported;
}

// Deliberately empty: callers rely on a limit staying in force until its processes exit.
void TAVUtils::removeCPULimit(std::set<int>, std::string) {}

} // namespace TAV
