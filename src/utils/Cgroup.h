#pragma once

#include <string>

#include "tav/ITAVSystemUtils.h"

/// What finding the cgroup controller and setting a limit in it have in common.
namespace TAV::cgroup
{

constexpr const char* kCpuPeriodFile = "cpu.cfs_period_us";
constexpr const char* kCpuQuotaFile = "cpu.cfs_quota_us";

bool exists(ITAVSystemUtils& systemUtils, const std::string& path);

std::string joined(const std::string& directory, const char* name);

} // namespace TAV::cgroup
