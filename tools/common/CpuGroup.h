#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <string>

namespace programs
{

// Where the library looks for the controller, and for what in it.
inline constexpr std::array<const char*, 2> kCpuControllerPlaces = {"/sys/fs/cgroup/cpu,cpuacct", "/cgroup/cpu"};
inline constexpr const char* kCpuPeriodFile = "/cpu.cfs_period_us";
inline constexpr const char* kCpuQuotaFile = "/cpu.cfs_quota_us";

/// The library's CPU group as the kernel shows it. The library tells none of this: it neither looks at what the kernel
/// answers to a write nor says where the group is.
struct CpuGroup
{
    std::string controller;    ///< mount point of the `cpu` controller; empty if the host offers none to the library
    std::string path;          ///< directory of the group; empty if nobody has made it yet
    std::int64_t periodUs = 0; ///< microseconds
    std::int64_t quotaUs = -1; ///< microseconds of processor time per period; negative for no limit
    std::set<int> members;     ///< process ids
    std::uint64_t periods = 0; ///< periods in which the group was at work
    std::uint64_t throttledPeriods = 0; ///< of these, the ones in which it was held back
    std::uint64_t throttledNs = 0;      ///< nanoseconds for which its processes were held back

    bool exists() const { return !path.empty(); }
    bool isLimited() const { return exists() && quotaUs >= 0; }
};

/// Reads the group at the place where the library looks. `root` stands in front of every path, for tests.
CpuGroup readCpuGroup(const std::string& root = "");

/// The first number in a control file, or `otherwise` if there is none.
std::int64_t readControlValue(const std::string& path, std::int64_t otherwise);

/// Lines of text that show the group to people; `processors` is how many the quota is a share of.
std::string describe(const CpuGroup& group, unsigned int processors);

/// The quota as a percentage of so many processors.
double percentOf(const CpuGroup& group, unsigned int processors);

} // namespace programs
