#include "endpoint_scan/CpuLimit.h"

#include <unistd.h>

#include "common/CpuLimit.h"

namespace endpointscan
{

CpuLimit limitOwnCpu(TAV::ILogger& logger, unsigned short percent)
{
    const programs::CpuLimitOutcome outcome = programs::setCpuLimit(logger, {::getpid()}, percent, "endpoint_scan");
    CpuLimit limit{percent, outcome.isInForce(), programs::explain(outcome)};
    if (limit.isInForce)
        limit.explanation = std::to_string(percent) + " % of the machine, " + std::to_string(outcome.group.quotaUs) +
                            " us of every " + std::to_string(outcome.group.periodUs) + " us";
    return limit;
}

} // namespace endpointscan
