#include <cstring>

#include "tavctl/doctor/Checks.h"

namespace tavctl::doctor
{
namespace
{

constexpr std::uint64_t kFew = 256;
// One close(2) of a number that is not open, in the child of a command.
constexpr double kSecondsPerClose = 200e-9;
constexpr double kSlow = 0.1;

std::string number(std::uint64_t value)
{
    return value == kUnlimited ? "unlimited" : std::to_string(value);
}

std::string duration(double seconds)
{
    constexpr double kMsPerSecond = 1000;
    if (seconds < kSlow)
        return std::to_string(static_cast<int>(seconds * kMsPerSecond) + 1) + " ms";
    return std::to_string(static_cast<int>(seconds) + 1) + " s";
}

} // namespace

/// The child of a command closes every number below the limit: at once by close_range(2), or each one alone.
std::optional<Finding> checkDescriptors(Host& host, const Questions& /*questions*/)
{
    const Limit limit = host.descriptorLimit();
    const std::string limits = "limit " + number(limit.soft) + " (hard " + number(limit.hard) + ")";
    if (limit.soft < kFew)
        return Finding{State::Warning,
                       limits + " is little for a daemon with queries and commands",
                       {"raise it: LimitNOFILE=1024 in the service's unit, or ulimit -n 1024"}};
    const int error = host.closeRangeError();
    if (error == 0)
        return Finding{State::Ok, limits + "; close_range(2) is there, so that a high one costs no time", {}};
    const double seconds = static_cast<double>(limit.soft) * kSecondsPerClose;
    const std::string text = limits + ", and no close_range(2) (" + std::strerror(error) + "): about " +
                             duration(seconds) + " to close them for each command";
    if (seconds < kSlow)
        return Finding{State::Note, text, {}};
    return Finding{State::Warning,
                   text,
                   {"lower it: LimitNOFILE=65536 in the service's unit, or --ulimit nofile=65536 for a container;",
                    "or allow close_range, which Linux has from 5.9 on, in the container's seccomp profile"}};
}

} // namespace tavctl::doctor
