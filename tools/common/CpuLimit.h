#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "common/CpuGroup.h"
#include "tav/ILogger.h"

namespace programs
{

/// A request that the kernel did not carry out although the library reported success.
struct CpuRefusal
{
    int pid = 0;        ///< the process that was not moved; 0 if it is the quota
    std::string reason; ///< for people
};

/// What became of a CPU limit.
struct CpuLimitOutcome
{
    bool accepted = false;            ///< what the library answered
    std::string reason;               ///< why it refused: the last line that it logged
    std::uint64_t wantedQuotaUs = 0;  ///< the quota that the percentage comes to; 0 unless accepted
    std::vector<CpuRefusal> refusals; ///< what the kernel refused all the same, found by reading back
    unsigned int processors = 1;
    CpuGroup group; ///< as it stands afterwards

    bool isInForce() const { return accepted && refusals.empty(); }
};

/// Puts processes under a limit through the library on the running kernel, and then reads back whether it holds: the
/// library learns nothing of a write that the kernel refuses.
/// @param logger  gets the library's lines
/// @param pids    ids above 0; a thread's id stands for its process
CpuLimitOutcome
setCpuLimit(TAV::ILogger& logger, const std::set<int>& pids, unsigned short percent, const std::string& groupName);

/// Why a limit is not in force, for people; empty if it is.
std::string explain(const CpuLimitOutcome& outcome);

/// The processors that a percentage is of, as the library counts them.
unsigned int countProcessors(TAV::ILogger& logger);

} // namespace programs
